// email/loading/uuencoded.cpp - files that stand uuencoded in a text, as mailers sent them before MIME and some did
// long after.

#include <algorithm>
#include <array>
#include <string>
#include <tuple>

#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"
#include "mailtree/email/internal.h"
#include "mailtree/email/loading/received_body.h"
#include "mailtree/mime/coding/Uu.h"
#include "mailtree/mime/html/Html.h"

namespace mailtree {
namespace {

constexpr const char* kAnyBegin = "begin 6";
/// What a block counts for: a part that is made costs twice as much as one that came with its header.
constexpr int kPartsPerBlock = 2;
/// How far into a body a first block is looked for: far enough for any letter, cheap for any file.
constexpr std::size_t kSniffedBytes = 50'000;

/// The openings of a block, by file mode, in the order in which they are preferred.
constexpr std::array<std::string_view, 4> kBegins = {"begin 666", "begin 644", "begin 664", "begin 600"};

bool holdsBegin(const DataBuffer& body) {
  return std::ranges::any_of(
      kBegins, [&](std::string_view begin) { return body.containsSubstring(begin.data(), kSniffedBytes); });
}

/// What is said of a body that holds uuencoded files; null when it does not look like one. Three ways to find them,
/// told apart by their dots.
const char* sniff(const Email2& node, const DataBuffer& body) {
  if (!body.containsSubstring(kAnyBegin, kSniffedBytes)) return nullptr;
  if (!node.m_contentType.m_type.isEmpty())
    return holdsBegin(body) ? "UU decoding MIME body and adding as attachment..." : nullptr;
  if (hasAttachMark(node))
    return body.containsSubstring("<<", kSniffedBytes) ? "UU decoding MIME body and adding as attachment."
                                                       : nullptr;
  return holdsBegin(body) ? "UU decoding MIME body and adding as attachment.." : nullptr;
}

/// The bytes of attached files are the user's; attached messages are not looked into before they are opened.
bool mayHoldUuencoded(const Email2& node) {
  return !isType(node.m_contentType.m_type, "message/rfc822") && !node.isStrictAttachment(nullptr);
}

/// Text of which nobody says the charset, as utf-8: old mailers wrote names and texts in their own. What is damaged
/// becomes U+FFFD.
void guessUtf8(StringBuffer& text) {
  if (isValidUtf8(text)) return;
  std::string decoded;
  const int detected = detectCodePage(text);
  const bool isWhole = decodeToUtf8(detected > 0 ? detected : kCpLatin1, text, decoded);
  if (isWhole || detected == kCpUtf8) text.setString(decoded);
}

void addFiles(Email2& node, ExtPtrArray& files, ExtPtrArraySb& names, LogBase& log) {
  for (int i = 0; i < files.getSize(); ++i) {
    StringBuffer& name = *names.sbAt(i);
    guessUtf8(name);
    EmailPtr part(
        Email2::createAttachmentFromDataUtf8(*node.m_common, name.getString(), nullptr, nullptr, 0, log));
    if (!part) continue;
    part->m_body.takeData(*files.at<DataBuffer>(i));
    StringBuffer type;
    if (node.addAttachment(part.get(), type, log)) std::ignore = part.release();  // now the node's
  }
}

/// The text before the first block, in utf-8.
/// Deliberate: it ends at the first thing that looks like a begin, be it prose.
DataBuffer takeText(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log) {
  const std::size_t begin = findSubstring(body.view(), kAnyBegin);
  body.shorten(body.getSize() - std::min(begin, body.getSize()));
  node.m_body.takeData(body);
  if (lacksCharset(node, !charset.empty())) node.detectAndSetCharset(log);
  DataBuffer text;
  // What was no text body before has still its own bytes; where it was, they are utf-8.
  if (isConvertibleText(node.traits()) || !receivedTextToUtf8(charset, node.m_body.view(), text).converted)
    text.takeData(node.m_body);
  node.m_body.clear();
  return text;
}

/// Whether text is lost between the first thing that looks like a begin and the first true one.
bool isTextCut(std::string_view body, std::size_t firstBlock) {
  const std::size_t cut = findSubstring(body, kAnyBegin);
  return cut < firstBlock && !trim(body.substr(cut, firstBlock - cut)).empty();
}

/// A page that came as a file, in utf-8: by its own label, else by the email's.
void pageToUtf8(const Email2& email, DataBuffer& page) {
  StringBuffer label;
  if (!_svHtmlHelp::getCharset(StringBuffer(page.view()), label)) label.setString(email.get_charset_name());
  DataBuffer converted;
  if (receivedTextToUtf8(label, page.view(), converted).converted) page.takeData(converted);
}

/// Finds the next opening, going forward only, so that a text is searched once for each kind however many blocks
/// it holds.
class BeginFinder {
 public:
  explicit BeginFinder(std::string_view text) noexcept : m_text(text) { m_next.fill(0); }

  /// Position of the preferred kind that still occurs at or behind `from`; npos when none does.
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
  else if (detectCodePage(trimmed) != kCpUtf8)  // a body keeps damaged bytes
    guessUtf8(trimmed);
  DataBuffer body;
  body.append(trimmed);
  StringBuffer type("text/plain");
  email.setBody(body, true, type, nullptr, log);
}

/// Adds one decoded block: the first page as the HTML body, everything else as an attachment.
void addBlock(Email2& email, const StringBuffer& name, DataBuffer& data, bool& hasPage, LogBase& log) {
  StringBuffer type;
  if (hasPage || !name.containsSubstringNoCase(".htm")) {
    email.addDataAttachmentUtf8(name.getString(), nullptr, 0, data, type, log);
    return;
  }
  hasPage = true;
  pageToUtf8(email, data);
  type.setString("text/html");
  email.addAlternativeBody(data, true, type, nullptr, log);
}

void addBlocks(Email2& email, std::string_view text, BeginFinder& begins, std::size_t begin, LogBase& log) {
  constexpr std::string_view kEnd = "\nend";
  bool hasPage = false;
  while (begin != std::string_view::npos) {
    const std::size_t end = findSubstring(text, kEnd, begin);
    if (end == std::string_view::npos) return;
    const std::size_t behind = end + kEnd.size();
    Uu decoder;
    DataBuffer data;
    if (!decoder.uu_decode(text.substr(begin, behind - begin), data)) return;
    StringBuffer name;
    decoder.uu_getFilename(name);
    guessUtf8(name);
    addBlock(email, name, data, hasPage, log);
    begin = begins.next(behind);
  }
}

}  // namespace

bool takeUuencoded(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log) {
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
    log.logInfo("Text between or behind uuencoded files was left out.");

  DataBuffer text = takeText(node, body, charset, log);
  if (!node.isMultipart()) node.m_contentType.m_type.setString("text/plain");  // what is left of it
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
  // The block's own name is often the only one.
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
