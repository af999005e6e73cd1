// message/answering.cpp - replies and forwarded messages. They are new messages: nothing of the answered one
// goes into them but what is put there.
#include <algorithm>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/answer_recipients.h"
#include "mailtree/message/answer_subject.h"
#include "mailtree/message/files.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/quoting.h"
#include "mailtree/message/received_form.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree {
namespace {

// The header

std::vector<Address> withoutNames(std::vector<Address> entries) {
  for (Address& entry : entries) entry.name.clear();
  return entries;
}

/// A received name may be one that cannot be written so that it reads the same.
Result<void> setRecipients(Message& answer, const AnswerRecipients& recipients) {
  if (!answer.setTo(recipients.to))
    if (Result<void> done = answer.setTo(withoutNames(recipients.to)); !done) return done;
  if (!answer.setCc(recipients.cc))
    if (Result<void> done = answer.setCc(withoutNames(recipients.cc)); !done) return done;
  return {};
}

Result<Message> newAnswer(const Address& from, const AnswerRecipients& recipients,
                          const std::string& subject) {
  if (trim(from.address).empty())
    return Error{ErrorCode::badValue, "the answer needs a sender's address", "From"};
  Message answer;
  return answer.setFrom(from)
      .and_then([&] { return setRecipients(answer, recipients); })
      .and_then([&] { return subject.empty() ? Result<void>() : answer.setSubject(subject); })
      .transform([&] { return std::move(answer); });
}

Result<void> setThread(Message& answer, const Message& answered) {
  if (Result<void> done = answer.setInReplyTo(answeredId(answered)); !done) return done;
  return answer.setReferences(answerReferences(answered));
}

// The content

bool storeText(Email2& email, const std::string& text, const char* type, LogBase& log) {
  StringBuffer lines(text), mediaType(type);
  DataBuffer body;
  const bool isHtml = equalsNoCase(type, "text/html");
  if (!lines.toCRLF() || !body.append(lines)) return false;
  return isHtml ? email.addAlternativeBody(body, /*isText=*/true, mediaType, nullptr, log)
                : email.setBody(body, /*isText=*/true, mediaType, nullptr, log);
}

bool putText(Email2& email, const AnswerText& text) {
  LogNull log;
  if (!isAscii(text.plain) || !isAscii(text.html)) email.use_codepage(kCpUtf8);
  if (!storeText(email, text.plain, "text/plain", log)) return false;
  if (!text.html.empty() && !storeText(email, text.html, "text/html", log)) return false;
  if (Email2* const plain = email.getPlainTextAlternative()) {
    plain->m_contentType.m_formatFlowed = true;
    plain->refreshContentTypeHeader(log);
  }
  return true;
}

/// A copy with the fields that describe its content.
EmailPtr copyOf(const Part& part, _svEmailCommon& common) {
  LogNull log;
  Email2& node = *MessageState::rowOf(part).node;
  EmailPtr copy(node.clone_v3_inner(common, /*shareImageData=*/false, log));
  if (!copy) return copy;
  for (const Header& field : part.headers())
    if (!beginsWithNoCase(field.name, "Content-")) copy->removeHeaderField(field.name.c_str());
  return copy;
}

Result<void> addInlineItems(Email2& email, const Message& answered) {
  LogNull log;
  for (const Part& item : answered.inlineItems()) {
    EmailPtr copy = copyOf(item, *email.m_common);
    if (!copy) return noMemory();
    email.addRelatedContent(copy.release(), log);
  }
  return {};
}

bool addMessage(Email2& email, std::string_view message, const std::string& name) {
  LogNull log;
  DataBuffer bytes;
  return bytes.append(message) && attachMessageTo(email, name, bytes, log);
}

bool addFile(Email2& email, const Part& file) {
  // Made anew, because it may have come encoded, which other types may be (RFC 2046, 5.2.1; RFC 6532, 3.5).
  if (file.type() == "message/rfc822") return addMessage(email, file.bytes(), file.name());
  LogNull log;
  StringBuffer type;
  EmailPtr copy = copyOf(file, *email.m_common);
  if (!copy) return false;
  // What is a file by its place only would be shown as a text of the answer.
  if (!equalsNoCase(copy->m_disposition, "attachment"))
    copy->setContentDispositionUtf8("attachment", file.fileName().c_str(), log);
  if (!email.addAttachment(copy.get(), type, log)) return false;
  std::ignore = copy.release();
  return true;
}

Result<void> addFiles(Email2& email, const Message& answered) {
  MessageState& state = MessageState::of(answered);
  const std::vector<int>& quoted = state.displayed().textBody;
  for (const Part& file : answered.attachments()) {
    // A list's footer, for example, is quoted already, and is a file by its place only.
    const bool isQuoted = file.isText() && std::ranges::find(quoted, file.number()) != quoted.end();
    if (isQuoted && file.name().empty()) continue;
    if (!addFile(email, file)) return noMemory();
  }
  return {};
}

Result<void> quote(Message& answer, const Message& quoted, Quote form, std::string_view text) {
  if (form != Quote::none && isEncrypted(quoted.email2()))
    return Error{ErrorCode::encrypted, "the content is encrypted, and none of the keys opens it", "1"};
  const AnswerText texts = answerText(quoted, form, text);
  if (!putText(answer.email2(), texts)) return noMemory();
  return texts.html.empty() ? Result<void>() : addInlineItems(answer.email2(), quoted);
}

Result<void> attachWhole(Email2& email, const Message& message) {
  const Result<std::string> whole = wholeMessage(message);
  if (!whole) return whole.error();
  return addMessage(email, *whole, {}) ? Result<void>() : noMemory();
}

void markEncrypted(Message& answer, const Message& quoted) {
  MessageState::of(answer).answersEncrypted = MessageState::of(quoted).holdsSecret();
}

}  // namespace

Result<Message> Message::reply(const ReplyOptions& options) const {
  if (options.automatic && isAutomatic())
    return Error{ErrorCode::automatic, "no automatic answer may go to a program, a list or a report", {}};
  Result<AnswerRecipients> recipients = replyRecipients(*this, options);
  if (!recipients) return std::move(recipients).error();
  Result<Message> answer = newAnswer(options.from, *recipients, answerSubject("Re: ", oneLine(subject())));
  if (!answer) return answer;
  Result<void> done = setThread(*answer, *this);
  if (done && options.automatic) done = answer->setHeader("Auto-Submitted", "auto-replied");
  if (done) done = quote(*answer, *this, options.quote, options.text);
  if (done && options.attachments) done = addFiles(answer->email2(), *this);
  if (!done) return std::move(done).error();
  markEncrypted(*answer, *this);
  return answer;
}

Result<Message> Message::forward(const ForwardOptions& options) const {
  Result<Message> answer =
      newAnswer(options.from, {options.to, options.cc}, answerSubject("Fwd: ", oneLine(subject())));
  if (!answer) return answer;
  Result<void> done;
  if (options.asAttachment) {
    done = quote(*answer, *this, Quote::none, options.text);
    if (done) done = attachWhole(answer->email2(), *this);
    // What is still encrypted stays so.
    MessageState::of(*answer).answersEncrypted = m_state->wasEncrypted || m_state->answersEncrypted;
  } else {
    done = quote(*answer, *this, Quote::block, options.text);
    if (done) done = addFiles(answer->email2(), *this);
    markEncrypted(*answer, *this);
  }
  if (!done) return std::move(done).error();
  return answer;
}

}  // namespace mailtree
