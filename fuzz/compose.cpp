// A message that is composed or loaded and then changed at random. The input is a message, a NUL and the
// operations; without a message a new one is composed. The tree can always be read, and finally written,
// loaded and written again.
#include <algorithm>
#include <array>
#include <string>

#include "fuzz/messages.h"
#include "fuzz/tape.h"
#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"

using namespace mailtree;
using fuzz::load;
using fuzz::Tape;
using fuzz::wasRepaired;
using fuzz::write;

namespace {

constexpr int kMaxOperations = 24;

constexpr const char* kTextTypes[] = {"text/plain", "text/html",       "text/calendar",
                                      "TEXT/Plain", "text/x-amp-html", "multipart/mixed"};
constexpr const char* kDataTypes[] = {"application/pdf", "image/png", "multipart/related",
                                      "application/octet-stream"};
constexpr const char* kAnyTypes[] = {"text/plain", "text/html", "image/*", "*", "application/pdf", ""};
constexpr const char* kAttachmentTypes[] = {nullptr,     "text/csv",       "text/plain",     "text/html",
                                            "image/png", "message/rfc822", "application/pdf"};
constexpr const char* kMultiparts[] = {"multipart/mixed",  "multipart/alternative", "multipart/related",
                                       "multipart/report", "multipart/digest",      "multipart/signed"};
constexpr const char* kFields[] = {"Subject",    "Content-Type", "Content-Transfer-Encoding", "From",
                                   "Content-ID", "X-A",          "Content-Disposition",       "Date",
                                   "To"};
constexpr const char* kCharsets[] = {"",           "us-ascii", "utf-8",    "iso-8859-1", "iso-2022-jp",
                                     "shift_jis",  "koi8-r",   "utf-16le", "gb18030",    "windows-1252",
                                     "iso-8859-2", "utf-7",    "big5",     "euc-kr",     "unheard-of"};
constexpr int kCodePages[] = {0, 1200, 1252, 932, 50220, kCpUtf8, kCpUsAscii, kCpLatin1, 99999};

int numAttachments(Email2& root) {
  LogNull log;
  return root.getNumAttachments(log);
}

std::string plainText(Email2& root) {
  LogNull log;
  StringBuffer text;
  return root.getPlainTextBodyUtf8(root, text, log) ? text.extractString() : "(none)";
}

/// Whether a text survives any transfer encoding unchanged: valid utf-8, line breaks CRLF, no NUL.
bool survivesTransport(std::string_view text) {
  return isValidUtf8(text) && !hasBareLineEnd(text) && text.find('\0') == std::string_view::npos;
}

class Composer {
 public:
  Composer(Email2& root, bool isNew, Tape& tape) : m_root(root), m_tape(tape), m_isComposed(isNew) {}

  void run() {
    using Operation = void (Composer::*)();
    static constexpr Operation kOperations[] = {
        &Composer::setBody,       &Composer::addAlternative, &Composer::addBytes,
        &Composer::addAttachment, &Composer::attach,         &Composer::dropOne,
        &Composer::extract,       &Composer::dropAll,        &Composer::setField,
        &Composer::removeBody,    &Composer::convert,        &Composer::splitUu,
        &Composer::chooseCharset, &Composer::read,           &Composer::readEffective,
        &Composer::readParts,     &Composer::prepareHtml,
    };
    for (int i = 0; i < kMaxOperations && !m_tape.isAtEnd(); ++i) (this->*m_tape.pick(kOperations))();
  }

  /// Whether the tree was built only by operations that choose the position of a part themselves.
  bool isComposed() const { return m_isComposed; }

 private:
  /// The text set last is the one that is read: always in a composed tree; in a loaded one when
  /// its part is the plain text.
  void checkPlainText(const std::string& text, const StringBuffer& type, const Email2* part) {
    if (!equalsNoCase(type, "text/plain")) return;
    if (part) fuzz::require(part->m_body.view() == text, "outPart holds the body");
    // A Content-Type field that was set can label a node with subparts as text.
    const bool isLeaf = part && part->getNumParts() == 0;
    const bool isRead = isLeaf && (part == &m_root || part == m_root.getPlainTextAlternative());
    if (m_isComposed || isRead) fuzz::require(plainText(m_root) == text, "the text that was set is read");
  }

  void putBody(bool isText, bool asAlternative) {
    StringBuffer type(isText ? m_tape.pick(kTextTypes) : m_tape.pick(kDataTypes));
    const std::string text = m_tape.text();
    DataBuffer data;
    data.append(text);
    Email2* part = nullptr;
    const bool done = asAlternative ? m_root.addAlternativeBody(data, isText, type, &part, m_log)
                                    : m_root.setBody(data, isText, type, &part, m_log);
    fuzz::require(done, "a body can be set");
    if (isText) checkPlainText(text, type, part);
  }

  void setBody() { putBody(/*isText=*/true, /*asAlternative=*/false); }
  void addAlternative() { putBody(/*isText=*/true, /*asAlternative=*/true); }
  void addBytes() {
    m_isComposed = false;  // bodies that are not text have no fixed position
    putBody(/*isText=*/false, m_tape.byte() % 2 == 0);
  }

  void addAttachment() {
    const char* const type = m_tape.pick(kAttachmentTypes);
    const int codePage = m_tape.pick(kCodePages);
    const std::string name = m_tape.text();
    DataBuffer data;
    data.append(m_tape.text());
    StringBuffer given;
    const int before = numAttachments(m_root);
    const bool done = m_root.addDataAttachmentUtf8(name.c_str(), type, codePage, data, given, m_log);
    fuzz::require(done, "an attachment can be added");
    if (m_isComposed && !equalsNoCase(given, "message/rfc822"))
      fuzz::require(numAttachments(m_root) == before + 1, "it counts as one attachment");
  }

  void attach() {
    DataBuffer mime;
    mime.append(m_tape.text());
    fuzz::require(m_root.attachMessage(mime, m_log), "a message can be attached");
  }

  void dropOne() {
    const int before = numAttachments(m_root);
    const bool dropped = m_root.dropSingleAttachment(m_tape.index(), m_log);
    if (dropped && m_isComposed) fuzz::require(numAttachments(m_root) == before - 1, "one attachment fewer");
  }

  void extract() { const EmailPtr part(m_root.extractAttachment(m_tape.index())); }
  void dropAll() { m_root.dropAttachments(); }

  void setField() {
    m_isComposed = false;
    const char* const name = m_tape.pick(kFields);
    const std::string value = m_tape.text();
    if (m_tape.byte() % 2 == 0)
      m_root.setHeaderField(name, value.c_str(), m_log);
    else
      m_root.setAttachmentHeader(m_tape.index(), name, value.c_str(), m_log);
  }

  void removeBody() { m_root.removeAlternative(m_tape.pick(kAnyTypes), m_log); }

  void convert() {
    m_isComposed = false;
    m_root.convertToMultipartX(m_tape.pick(kMultiparts), m_log);
  }

  void splitUu() {
    StringBuffer text(m_tape.text());
    Email2::splitOutlookHtmlUU(text, m_root, m_log);
  }

  void chooseCharset() {
    const char* const name = m_tape.pick(kCharsets);
    if (m_tape.byte() % 2 == 0)
      m_root.m_common->m_preferredCharset.setFromUtf8(name);
    else
      m_root.m_common->m_charset.setByName(name);
  }

  void read() {
    StringBuffer text, html, unused;
    m_root.getPlainTextBodyUtf8(m_root, text, m_log);
    m_root.getHtmlBodyUtf8(m_root, html, m_log);
    m_root.getPlainTextBodyQP(m_root, text, unused, m_log);
    m_root.getHtmlBodyQP(m_root, html, unused, m_log);
    fuzz::require(m_root.hasPlainTextBody() == (m_root.findPlainTextPart() != nullptr),
                  "hasPlainTextBody and findPlainTextPart agree");
    ExtPtrArraySb urls;
    m_root.captureHyperlinkUrls(urls);
    m_root.getSendCost();
  }

  void readEffective() {
    DataBuffer body;
    m_root.getEffectiveBodyMb(m_root, m_tape.pick(kCodePages), body, m_log);
    m_root.getEffectiveBodyData(m_root, body, m_log);
    if (DataBuffer* own = m_root.getEffectiveBodyObject3(m_root)) own->view();
  }

  void readParts() {
    int count = 0;
    const unsigned char filters = m_tape.byte();
    m_root.getNthPartOfType(m_tape.index(), m_tape.pick(kAnyTypes), filters & 1, filters & 2, count, m_log);
  }

  void prepareHtml() {
    DataBuffer html;
    html.append(m_tape.text());
    m_root.prepHtmlBody(html, m_log);
    m_root.updateHtmlMetaCharset(m_log);
  }

  Email2& m_root;
  Tape& m_tape;
  bool m_isComposed;
  LogNull m_log;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const std::size_t end = std::min(input.find('\0'), input.size());
  const bool option = size % 2 == 1;
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  const EmailPtr root = end == 0 ? EmailPtr(new Email2(*common)) : load(input.substr(0, end));

  Tape tape(input.substr(std::min(end + 1, input.size())));
  Composer composer(*root, end == 0, tape);
  composer.run();

  const int attachments = numAttachments(*root);
  const std::string text = plainText(*root);
  const EmailPtr second = load(write(*root, option));
  if (composer.isComposed() && !wasRepaired(*second)) {
    fuzz::require(numAttachments(*second) == attachments, "attachments survive writing and loading");
    if (survivesTransport(text))
      fuzz::require(plainText(*second) == text, "the text survives writing and loading");
  }
  fuzz::requireStable(write(*second, option), option);
  return 0;
}
