#include "tests/support/messages.h"

namespace mailtree {
namespace {

bool writeTo(Email2& node, const WriteForm& options, StringBuffer& text, _svOutput* sink) {
  LogNull log;
  ProgressContext progress(nullptr);
  return node.assembleMimeBody2(text, sink, options.dotStuff, options.omitPrefix, progress, log,
                                /*depth=*/0, options.qpFor8bit, options.isTop);
}

}  // namespace

EmailPtr load(std::string_view message) {
  LogNull log;
  SystemCerts certs;
  StringBuffer mime(message);
  return EmailPtr(Email2::createFromMimeText2(*new _svEmailCommon, mime, /*discardInput=*/true,
                                              /*unwrap=*/false, certs, log, /*parseOption=*/false));
}

EmailPtr loadPop3(std::string_view message) {
  LogNull log;
  SystemCerts certs;
  DataBuffer raw;
  raw.append(message);
  return EmailPtr(Email2::createFromPop3(*new _svEmailCommon, raw, /*unwrap=*/false, certs, log));
}

std::string write(Email2& node, const WriteForm& options) {
  StringBuffer text;
  return writeTo(node, options, text, nullptr) ? text.extractString() : "FAILED";
}

std::string writeToSink(Email2& node, const WriteForm& options) {
  StringBuffer unused;
  DataBuffer bytes;
  MemoryOutput sink(bytes);
  if (!writeTo(node, options, unused, &sink)) return "FAILED";
  return unused.isEmpty() ? std::string(bytes.view()) : "TEXT TOUCHED";
}

std::string crlf(std::string_view text) {
  std::string out;
  for (const char c : text) out.append(c == '\n' ? "\r\n" : std::string(1, c));
  return out;
}

std::string field(const Email2& node, const char* name) {
  LogNull log;
  StringBuffer value;
  return node.getHeaderFieldUtf8(name, value, log) ? value.extractString() : "(absent)";
}

}  // namespace mailtree
