// email/loading/uuencoded.cpp - uuencoded files in a text, as mailers sent them before MIME, and
// some long after.

#include <algorithm>
#include <array>
#include <string>
#include <tuple>

#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"
#include "mailtree/email/internal.h"
#include "mailtree/email/loading/body_repairs.h"
#include "mailtree/mime/coding/Uu.h"
#include "mailtree/mime/html/Html.h"

namespace mailtree {
namespace {

constexpr const char* kAnyBegin = "begin 6";
/// A block counts as two parts, because creating a part costs twice as much as parsing one.
constexpr int kPartsPerBlock = 2;
/// How far to search for the first block: far enough for any text, cheap for any file.
constexpr std::size_t kSniffedBytes = 50'000;

/// The begin lines of a block, by file mode, in order of preference.
constexpr std::array<std::string_view, 4> kBegins = {"begin 666", "begin 644", "begin 664", "begin 600"};

bool holdsBegin(const DataBuffer& body) {
  return std::ranges::any_of(
      kBegins, [&](std::string_view begin) { return body.containsSubstring(begin.data(), kSniffedBytes); });
}

/// The log text for a body with uuencoded files, or null when there seem to be none. The three texts differ
/// in their dots, for the three ways of detection.
const char* sniff(const Email2& node, const DataBuffer& body) {
  if (!body.containsSubstring(kAnyBegin, kSniffedBytes)) return nullptr;
  if (!node.m_contentType.m_type.isEmpty())
    return holdsBegin(body) ? "UU decoding MIME body and adding as attachment..." : nullptr;
  if (hasAttachHeader(node))
    return body.containsSubstring("<<", kSniffedBytes) ? "UU decoding MIME body and adding as attachment."
                                                       : nullptr;
  return holdsBegin(body) ? "UU decoding MIME body and adding as attachment.." : nullptr;
}

/// Attached files keep their bytes; attached messages are searched when they are opened.
bool mayHoldUuencoded(const Email2& node) {
  return !isType(node.m_contentType.m_type, "message/rfc822") && !node.isStrictAttachment(nullptr);
}

/// Converts text of unknown charset to utf-8, because old mailers used their own. Malformed
/// bytes become U+FFFD.
void convertToUtf8(StringBuffer& text) {
  if (isValidUtf8(text)) return;
  std::string decoded;
  const int detected = detectCodePage(text);
  const bool isWhole = decodeToUtf8(detected > 0 ? detected : kCpLatin1, text, decoded);
  if (isWhole || detected == kCpUtf8) text.setString(decoded);
}

void addFiles(Email2& node, ExtPtrArray& files, ExtPtrArraySb& names, LogBase& log) {
  for (int i = 0; i < files.getSize(); ++i) {
    StringBuffer& name = *names.sbAt(i);
    convertToUtf8(name);
    EmailPtr part(
        Email2::createAttachmentFromDataUtf8(*node.m_common, name.getString(), nullptr, nullptr, 0, log));
    if (!part) continue;
    part->m_body.takeData(*files.at<DataBuffer>(i));
    StringBuffer type;
    if (node.addAttachment(part.get(), type, log)) std::ignore = part.release();  // the node owns it now
  }
}

/// The text before the first block, in utf-8. Deliberate: it ends at the first text that looks like a
/// begin line, even in prose.
DataBuffer extractText(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log) {
  const std::size_t begin = findSubstring(body.view(), kAnyBegin);
  body.shorten(body.getSize() - std::min(begin, body.getSize()));
  node.m_body.takeData(body);
  if (lacksCharset(node, !charset.empty())) node.detectAndSetCharset(log);
  DataBuffer text;
  // A text body is utf-8 already; anything else still has its original bytes.
  if (isConvertibleText(node.traits()) || !receivedTextToUtf8(charset, node.m_body.view(), text).converted)
    text.takeData(node.m_body);
  node.m_body.clear();
  return text;
}

/// Whether text is lost between the first apparent begin line and the first real one.
bool isTextCut(std::string_view body, std::size_t firstBlock) {
  const std::size_t cut = findSubstring(body, kAnyBegin);
  return cut < firstBlock && !trim(body.substr(cut, firstBlock - cut)).empty();
}

/// Converts an HTML file to utf-8 from its declared charset, else from the email's.
void htmlToUtf8(const Email2& email, DataBuffer& html) {
  StringBuffer label;
  if (!_svHtmlHelp::getCharset(StringBuffer(html.view()), label)) label.setString(email.get_charset_name());
  DataBuffer converted;
  if (receivedTextToUtf8(label, html.view(), converted).converted) html.takeData(converted);
}

/// Finds begin lines, searching forward only, so a text is searched once per kind, however many
/// blocks it has.
class BeginFinder {
 public:
  explicit BeginFinder(std::string_view text) noexcept : m_text(text) { m_next.fill(0); }

  /// Position, at or after `from`, of the most preferred kind that still occurs; npos when none does.
  std::size_t next(std::size_t from) {
    for (std::size_t kind = 0; kind < kBegins.size(); ++kind) {
      std::size_t& at = m_next[kind];
      if (at != std::string_view::npos && (at < from || !m_searched[kind]))
        at = findSubstring(m_text, kBegins[kind], from);
      m_searched[kind] = true;
      if (at != std::string_view::npos) return at;
    }
    return std::string_view::npos;
  }

 private:
  std::string_view m_text;
  std::array<std::size_t, kBegins.size()> m_next;
  std::array<bool, kBegins.size()> m_searched = {};
};

void setTextBefore(Email2& email, std::string_view text, LogBase& log) {
  StringBuffer trimmed(trim(text));
  const int codePage = email.emailCodePage();
  if (codePage != 0 && codePage != kCpUtf8)
    trimmed.convertEncoding(codePage, kCpUtf8, log);
  else if (detectCodePage(trimmed) != kCpUtf8)  // a body keeps malformed bytes
    convertToUtf8(trimmed);
  DataBuffer body;
  body.append(trimmed);
  StringBuffer type("text/plain");
  email.setBody(body, true, type, nullptr, log);
}

/// Adds a decoded block: the first HTML file as the HTML body, anything else as an attachment.
void addBlock(Email2& email, const StringBuffer& name, DataBuffer& data, bool& hasPage, LogBase& log) {
  StringBuffer type;
  if (hasPage || !name.containsSubstringNoCase(".htm")) {
    email.addDataAttachmentUtf8(name.getString(), nullptr, 0, data, type, log);
    return;
  }
  hasPage = true;
  htmlToUtf8(email, data);
  type.setString("text/html");
  email.addAlternativeBody(data, true, type, nullptr, log);
}

void addBlocks(Email2& email, std::string_view text, BeginFinder& begins, std::size_t begin, LogBase& log) {
  constexpr std::string_view kEnd = "\nend";
  bool hasPage = false;
  while (begin != std::string_view::npos) {
    const std::size_t end = findSubstring(text, kEnd, begin);
    if (end == std::string_view::npos) return;
    const std::size_t after = end + kEnd.size();
    Uu decoder;
    DataBuffer data;
    if (!decoder.uu_decode(text.substr(begin, after - begin), data)) return;
    StringBuffer name;
    decoder.uu_getFilename(name);
    convertToUtf8(name);
    addBlock(email, name, data, hasPage, log);
    begin = begins.next(after);
  }
}

}  // namespace

bool extractUuencoded(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log) {
  const char* const message = !body.isEmpty() && mayHoldUuencoded(node) ? sniff(node, body) : nullptr;
  if (!message) return false;
  if (log.m_verboseLogging) log.logInfo(message);
  ExtPtrArray files;
  ExtPtrArraySb names;
  UuSurroundings around;
  _svEmailCommon& common = *node.m_common;
  const int most = std::max(common.m_budget.parts, 0) / kPartsPerBlock;
  const int count = Uu::uu_decodeMultipleDb(body.view(), files, names, &around, most);
  if (count > most) common.m_limits.add(Limit::parts);
  if (count == 0 || count > most) return false;
  common.m_budget.parts -= count * kPartsPerBlock;
  if (around.textFollows || isTextCut(body.view(), around.firstBlock))
    log.logInfo("Text between or after uuencoded files was left out.");

  DataBuffer text = extractText(node, body, charset, log);
  if (!node.isMultipart()) node.m_contentType.m_type.setString("text/plain");  // the remaining text
  addFiles(node, files, names, log);
  StringBuffer type("text/plain");
  node.setBody(text, true, type, nullptr, log);
  node.m_repairs.add(Repair::uuencoded);
  return true;
}

void decodeUuencodedBody(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log) {
  if (!isUuTransferEncoding(node.m_transferEncoding)) return;
  ExtPtrArray files;
  ExtPtrArraySb names;
  UuSurroundings around;
  const bool isOneFile = Uu::uu_decodeMultipleDb(body.view(), files, names, &around) == 1;
  if (!isOneFile || around.textFollows || !trim(body.view().substr(0, around.firstBlock)).empty()) return;
  setTransferEncoding(node, "base64", log);
  StringBuffer& name = *names.sbAt(0);
  name.stripDirectory();
  // The block often has the only name.
  const bool isNamed = !node.m_dispFilename.isEmpty() || node.m_contentType.m_type.isEmpty();
  if (!isNamed && !name.isEmpty() && isValidUtf8(name)) {
    node.m_dispFilename.setString(name);
    node.setName(name, log);
  }
  DataBuffer& file = *files.at<DataBuffer>(0);
  DataBuffer text;
  const bool isText = isConvertibleText(node.traits());
  body.takeData(isText && receivedTextToUtf8(charset, file.view(), text).converted ? text : file);
}

bool Email2::splitOutlookHtmlUU(StringBuffer& text, Email2& email, LogBase& log) {
  return neverThrow(false, [&] {
    BeginFinder begins(text.view());
    const std::size_t first = begins.next(0);
    if (first == std::string_view::npos) return false;
    setTextBefore(email, text.view().substr(0, first), log);
    addBlocks(email, text.view(), begins, first, log);
    return true;
  });
}

}  // namespace mailtree
