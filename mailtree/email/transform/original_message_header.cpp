#include "mailtree/email/transform/original_message_header.h"

#include <string_view>

namespace mailtree {
namespace {

struct Form {
  const char* begin;
  const char* lineEnd;
  const char* end;  ///< After the subject.
};

constexpr Form kPlain = {kPlainReplyHeader, "\r\n", "\r\n\r\n"};
constexpr Form kHtml = {kHtmlReplyHeader, "<br>", "<p>"};

std::string headerOf(const QuotedFields& fields, const Form& form) {
  std::string header = form.begin;
  const auto add = [&](const char* name, std::string_view value, const char* end) {
    header.append(name).append(value).append(end);
  };
  add("From: ", fields.from, form.lineEnd);
  add("Sent: ", fields.sent, form.lineEnd);
  if (!fields.to.empty()) add("To: ", fields.to, form.lineEnd);
  if (!fields.cc.empty()) add("CC: ", fields.cc, form.lineEnd);
  add("Subject: ", fields.subject, form.end);
  return header;
}

}  // namespace

std::string plainReplyHeader(const QuotedFields& fields) { return headerOf(fields, kPlain); }
std::string htmlReplyHeader(const QuotedFields& fields) { return headerOf(fields, kHtml); }

}  // namespace mailtree
