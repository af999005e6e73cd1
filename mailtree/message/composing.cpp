// message/composing.cpp - a new message in one call.
#include <string>
#include <string_view>

#include "mailtree/message/Message.h"
#include "mailtree/mime/html/HtmlText.h"

namespace mailtree {

Result<Message> Message::compose(const ComposeOptions& options) {
  const bool needsText = options.text.empty() && !options.html.empty();
  const std::string text = needsText ? textOfHtml(options.html) : options.text;
  using Setter = Result<void> (Message::*)(std::string_view);
  const struct {
    std::string_view value;
    Setter set;
  } rows[] = {{options.from, &Message::setFrom},       {options.to, &Message::setTo},
              {options.cc, &Message::setCc},           {options.bcc, &Message::setBcc},
              {options.subject, &Message::setSubject}, {text, &Message::setText},
              {options.html, &Message::setHtml}};
  Message message;
  for (const auto& [value, set] : rows) {
    if (value.empty()) continue;
    if (Result<void> done = (message.*set)(value); !done) return std::move(done).error();
  }
  return message;
}

}  // namespace mailtree
