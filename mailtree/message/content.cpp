// message/content.cpp - the texts of a message: set, put before, and a calendar beside them.
//
//   Displayed  What is replaced is what displayed() shows, wherever it is. Texts that count as files too
//              stay, as attachments.
//   Beside     A text goes beside the HTML, and HTML beside the text, in a multipart/alternative of both;
//              files stay outside, and pictures with the HTML that shows them.
#include "mailtree/message/content.h"

#include <algorithm>
#include <functional>
#include <tuple>

#include "mailtree/base/Utf.h"
#include "mailtree/message/files.h"
#include "mailtree/mime/html/HtmlEscape.h"
#include "mailtree/mime/html/HtmlFrame.h"

namespace mailtree {
namespace {

constexpr const char* kMixed = "multipart/mixed";
constexpr const char* kAlternative = "multipart/alternative";

enum class Kind { plain, html };

const char* typeOf(Kind kind) { return kind == Kind::html ? "text/html" : "text/plain"; }

// Signatures

/// The content is written anew, so its bytes are no longer those that were signed.
void dropSignature(Email2& signedPart, LogBase& log) {
  NodeSet signatures;
  for (int i = 0; i < signedPart.getNumParts(); ++i) {
    Email2* const part = signedPart.getPart(i);
    if (isSignature(*part)) signatures.insert(part);
    forgetReceivedBytes(*part);
  }
  removeNodes(signedPart, signatures);
  setEnclosureType(signedPart, kMixed, log);
}

// Leaves

void makeUnflowed(Email2& leaf) {
  _svContentType& type = leaf.m_contentType;
  type.m_formatFlowed = false;
  type.m_boundary.clear();  // of a multipart without parts, which is read as text
  _svParamSet others;
  for (const _svParamSet::Param& param : type.m_otherParams.params())
    if (!equalsNoCase(param.name, "delsp")) others.addParam(param.name, param.value);
  type.m_otherParams = std::move(others);
}

/// A text that does not fit in the charset that was asked for is utf-8: the tree would try others first.
void chooseCharset(Email2& root, const DataBuffer& text, LogBase& log) {
  const int wanted = codePageOfCharset(root.m_common->m_preferredCharset.getUtf8Sb().view());
  std::string unused;
  if (wanted > 0 && !encodeFromUtf8(wanted, text.view(), unused)) root.use_codepage(kCpUtf8);
  root.chooseCharsetIfNecessary(text, log);
}

bool setLeaf(Email2& root, Email2& leaf, Kind kind, std::string_view text, LogBase& log) {
  DataBuffer body;
  StringBuffer type(typeOf(kind));
  if (!body.append(text)) return false;
  chooseCharset(root, body, log);
  leaf.m_header.removeMimeField("Content-MD5", /*all=*/true);
  if (!Email2::replaceEmailBody(&leaf, body, /*isText=*/true, root.emailCodePage(), type, log)) return false;
  // The lines of the text are what they are: programs would join flowed ones (RFC 3676).
  makeUnflowed(leaf);
  leaf.refreshContentTypeHeader(log);
  return true;
}

/// The text of a message that has nothing else. It may have been empty and an attachment.
bool setWhole(Email2& root, Kind kind, std::string_view text, LogBase& log) {
  root.removeHeaderField("Content-Disposition");
  return setLeaf(root, root, kind, text, log);
}

EmailPtr newLeaf(Email2& root, Kind kind, std::string_view text, LogBase& log) {
  EmailPtr leaf(Email2::createNewObject0(*root.m_common));
  if (!leaf || !setLeaf(root, *leaf, kind, text, log)) return {};
  return leaf;
}

void makeFile(Email2& leaf, LogBase& log) {
  const std::string name(leaf.m_dispFilename.view());
  leaf.setContentDispositionUtf8("attachment", name.c_str(), log);
}

// What is displayed

/// The texts of a message that a reader sees, by rows and in their order.
class ShownTexts {
 public:
  explicit ShownTexts(MessageState& state) : m_outline(state.outline()), m_uses(m_outline.rows.size()) {
    const Displayed& displayed = state.displayed();
    for (const int row : displayed.textBody) at(row).inText = true;
    for (const int row : displayed.htmlBody) at(row).inHtml = true;
    for (const int row : displayed.attachments) at(row).isFile = true;
  }

  /// The texts of a kind that are no files, or those that are.
  std::vector<int> rowsOf(Kind kind, bool areFiles) const {
    std::vector<int> rows;
    for (int row = 0; row < static_cast<int>(m_uses.size()); ++row) {
      const Use& use = m_uses[static_cast<std::size_t>(row)];
      if ((use.inText || use.inHtml) && use.isFile == areFiles && isOfKind(row, kind)) rows.push_back(row);
    }
    return rows;
  }

  /// Whether only readers of this kind see it.
  bool isExclusive(int row, Kind kind) const {
    const Use& use = m_uses[static_cast<std::size_t>(row)];
    return kind == Kind::html ? use.inHtml && !use.inText : use.inText && !use.inHtml;
  }

  const PartRow& row(int id) const { return m_outline.row(id); }
  Email2* node(int id) const { return m_outline.row(id).node; }

  /// The part to move a text with: the multipart/related whose root it is, so that its pictures come along.
  int unitOf(int id) const {
    for (int parent = row(id).parent;
         parent >= 0 && row(id).index == 0 && row(parent).node->isMultipartRelated(); parent = row(id).parent)
      id = parent;
    return id;
  }

 private:
  struct Use {
    bool inText = false, inHtml = false, isFile = false;
  };
  Use& at(int row) { return m_uses[static_cast<std::size_t>(row)]; }

  bool isOfKind(int row, Kind kind) const {
    const PartRow& part = m_outline.row(row);
    if (kind == Kind::html) return isHtml(part);
    return isPlain(part) || equalsNoCase(part.contentType, "text/enriched") ||
           equalsNoCase(part.contentType, "text/richtext");
  }

  const Outline& m_outline;
  std::vector<Use> m_uses;
};

/// A multipart/related without a root, made for pictures that the HTML to come will show.
int relatedWithoutRoot(const Outline& outline) {
  for (std::size_t id = 0; id < outline.rows.size(); ++id) {
    const PartRow& row = outline.rows[id];
    if (!row.node->isMultipartRelated() || row.isLeaf()) continue;
    const PartRow& first = outline.row(outline.childrenOf(row).front());
    if (first.isLeaf() && !isReadAsText(first)) return static_cast<int>(id);
  }
  return -1;
}

// Setting

class TextSetter {
 public:
  TextSetter(MessageState& state, Kind kind, std::string_view text)
      : m_state(state), m_root(state.root()), m_kind(kind), m_text(text), m_shown(state) {
    const Kind other = kind == Kind::html ? Kind::plain : Kind::html;
    m_own = m_shown.rowsOf(kind, /*areFiles=*/false);
    m_others = m_shown.rowsOf(other, /*areFiles=*/false);
    if (m_others.empty()) m_others = m_shown.rowsOf(other, /*areFiles=*/true);
    m_ownFiles = m_shown.rowsOf(kind, /*areFiles=*/true);
    if (kind == Kind::html) addFilesInPage();
  }

  bool run() {
    const bool isDone = m_text.empty() ? remove() : put();
    // What was joined when loading is as it is from now on.
    walk(m_root, [](Email2& node) { node.m_repairs.remove(Repair::looseAlternative); });
    return isDone;
  }

 private:
  /// A plain text that counts as a file, such as the footer of a mailing list, is part of the page too.
  void addFilesInPage() {
    for (const int row : m_shown.rowsOf(Kind::plain, /*areFiles=*/true))
      if (std::ranges::find(m_others, row) == m_others.end()) m_ownFiles.push_back(row);
  }

  bool put() {
    if (m_own.size() == 1 && isAlternativeOfOthers()) {
      makeFiles();
      return setLeaf(m_root, *m_shown.node(m_own.front()), m_kind, m_text, m_log);
    }
    if (!m_others.empty()) return putBeside();
    if (m_own.empty()) return insert();
    makeFiles();
    // First, because an enclosure that is left with nothing but the text takes its place.
    const bool isSet = setLeaf(m_root, *m_shown.node(m_own.front()), m_kind, m_text, m_log);
    removeOwn(/*from=*/1);
    return isSet;
  }

  bool isAlternativeOfOthers() const {
    const Kind other = m_kind == Kind::html ? Kind::plain : Kind::html;
    return m_shown.isExclusive(m_own.front(), m_kind) && !m_others.empty() &&
           std::ranges::all_of(m_others, [&](int row) { return m_shown.isExclusive(row, other); });
  }

  /// A text that is also a file is no longer shown. The whole message cannot be a file beside a text.
  void makeFiles() {
    for (const int row : m_ownFiles)
      if (row != 0) makeFile(*m_shown.node(row), m_log);
  }

  void removeOwn(std::size_t from) {
    NodeSet removed, touched;
    for (std::size_t i = from; i < m_own.size(); ++i) {
      removed.insert(m_shown.node(m_own[i]));
      touched.insert(m_shown.node(m_shown.row(m_own[i]).parent));
    }
    removeNodes(m_root, removed);
    tidyEnclosures(m_root, std::move(touched), m_log);
  }

  /// An alternative of the own text and all others, in the place of the first other one.
  bool putBeside() {
    makeFiles();
    EmailPtr own = takeOwn();
    if (!own) return false;
    Email2* const place = enclose(m_shown.unitOf(m_others.front()), std::move(own));
    if (!place) return false;
    tidyEnclosures(m_root, m_touched, m_log);
    return true;
  }

  /// The own text out of the tree, with the pictures of HTML; other own texts are removed.
  EmailPtr takeOwn() {
    if (m_kind == Kind::html && m_own.empty()) return newHtmlWithPictures();
    if (m_kind == Kind::plain || m_own.empty()) {
      EmailPtr leaf = newLeaf(m_root, m_kind, m_text, m_log);
      takeOut(m_own, 0);
      return leaf;
    }
    Email2& first = *m_shown.node(m_own.front());
    if (!setLeaf(m_root, first, m_kind, m_text, m_log)) return {};
    takeOut(m_own, 1);
    return take(m_shown.unitOf(m_own.front()));
  }

  EmailPtr newHtmlWithPictures() {
    EmailPtr leaf = newLeaf(m_root, m_kind, m_text, m_log);
    const int home = relatedWithoutRoot(m_state.outline());
    const auto isInHome = [&](int row) { return isBelow(row, home); };
    if (!leaf || home <= 0 || std::ranges::any_of(m_others, isInHome)) return leaf;
    EmailPtr related = take(home);
    related->insertSubPartAtIndex(leaf.release(), 0);
    return related;
  }

  bool isBelow(int row, int enclosure) const {
    while (row > enclosure) row = m_shown.row(row).parent;
    return row == enclosure;
  }

  EmailPtr take(int row) {
    touchParentOf(row);
    return std::move(extractNodes(m_root, {m_shown.node(row)}).front());
  }

  void takeOut(const std::vector<int>& rows, std::size_t from) {
    std::vector<Email2*> nodes;
    for (std::size_t i = from; i < rows.size(); ++i) {
      touchParentOf(rows[i]);
      nodes.push_back(m_shown.node(rows[i]));
    }
    extractNodes(m_root, nodes);
  }

  void touchParentOf(int row) {
    const int parent = m_shown.row(row).parent;
    if (parent >= 0) m_touched.insert(m_shown.node(parent));
  }

  /// Returns the new alternative; null when memory ran out.
  Email2* enclose(int first, EmailPtr own) {
    std::vector<Email2*> rest;
    for (const int row : m_others)
      if (const int unit = m_shown.unitOf(row); unit != first) {
        touchParentOf(unit);
        rest.push_back(m_shown.node(unit));
      }
    std::vector<EmailPtr> moved = extractNodes(m_root, rest);
    Email2* const alternative = encloseNode(*m_shown.node(first), kAlternative);
    if (!alternative) return nullptr;
    if (!moved.empty()) {
      Email2* const together = encloseNode(*alternative->getPart(0), kMixed);
      if (!together) return nullptr;
      for (EmailPtr& part : moved) together->insertSubPartAtIndex(part.release(), -1);
    }
    alternative->insertSubPartAtIndex(own.release(), m_kind == Kind::html ? -1 : 0);
    return alternative;
  }

  Email2* encloseNode(Email2& node, const char* type) {
    if (&node != &m_root) return encloseBelow(m_root, node, newEnclosure(*m_root.m_common, type, m_log));
    if (node.getNumParts() > 0)
      node.convertToMultipartX(type, m_log);
    else
      mailtree::enclose(node, type, m_log);
    return node.getNumParts() == 1 ? &node : nullptr;
  }

  /// The first text of the message.
  bool insert() {
    const bool hasNothing = m_root.getNumParts() == 0 && m_root.m_body.isEmpty() && m_ownFiles.empty();
    if (hasNothing) return setWhole(m_root, m_kind, m_text, m_log);
    if (m_kind == Kind::html)
      if (const int home = relatedWithoutRoot(m_state.outline()); home >= 0)
        return insertInto(*m_shown.node(home));
    makeFiles();
    if (!m_root.isMultipartAlternative()) makeMixed();
    return insertInto(m_root);
  }

  void makeMixed() {
    const bool isCalendar = equalsNoCase(m_root.m_contentType.m_type, "text/calendar");
    if (m_root.isMultipartMixed()) return;
    if (m_root.getNumParts() > 0)
      m_root.convertToMultipartX(kMixed, m_log);
    else
      mailtree::enclose(m_root, isCalendar ? kAlternative : kMixed, m_log);
    if (!m_ownFiles.empty() && m_ownFiles.front() == 0 && m_root.getNumParts() == 1)
      makeFile(*m_root.getPart(0), m_log);
  }

  bool insertInto(Email2& enclosure) {
    EmailPtr leaf = newLeaf(m_root, m_kind, m_text, m_log);
    if (!leaf) return false;
    enclosure.insertSubPartAtIndex(leaf.release(), 0);
    return true;
  }

  /// Without a text.
  bool remove() {
    makeFiles();
    if (m_own.empty()) return true;
    if (m_own.front() == 0) return setLeaf(m_root, m_root, Kind::plain, {}, m_log);
    std::vector<EmailPtr> pictures = takePictures();
    removeOwn(/*from=*/0);
    if (pictures.empty()) return true;
    ensureMixed(m_root, m_log);
    if (!m_root.isMultipartMixed()) m_root.convertToMultipartX(kMixed, m_log);
    for (EmailPtr& picture : pictures) m_root.insertSubPartAtIndex(picture.release(), -1);
    return true;
  }

  /// Pictures stay when the HTML that shows them goes.
  std::vector<EmailPtr> takePictures() {
    std::vector<Email2*> pictures;
    for (const int row : m_own)
      if (const int unit = m_shown.unitOf(row); unit != row)
        for (int i = 1; i < m_shown.node(unit)->getNumParts(); ++i)
          pictures.push_back(m_shown.node(unit)->getPart(i));
    return extractNodes(m_root, pictures);
  }

  MessageState& m_state;
  Email2& m_root;
  const Kind m_kind;
  const std::string_view m_text;
  const ShownTexts m_shown;
  std::vector<int> m_own, m_others, m_ownFiles;
  NodeSet m_touched;  ///< Enclosures that parts were taken out of.
  LogNull m_log;
};

/// What needs less fails as rarely as any step between, and is not worth asking for.
constexpr std::size_t kMuchMemory = 1 << 20;

bool hasRoomFor(std::size_t size) {
  DataBuffer room;
  return size < kMuchMemory || room.reserveMore(size);
}

std::vector<int> shownRows(MessageState& state) {
  std::vector<int> rows = state.displayed().textBody;
  rows.insert(rows.end(), state.displayed().htmlBody.begin(), state.displayed().htmlBody.end());
  return rows;
}

/// A new message, or a multipart without parts: there is nothing in it that a text would go beside.
bool isBlank(const Email2& root) {
  const std::string_view type = root.m_contentType.m_type;
  return root.getNumParts() == 0 && trim(root.m_body.view()).empty() &&
         (type.empty() || equalsNoCase(type, "text/plain") || beginsWithNoCase(type, "multipart/"));
}

Result<void> setContent(MessageState& state, Kind kind, std::string_view text) {
  if (Result<void> checked = checkText(text, typeOf(kind)); !checked) return checked;
  std::string lines = withCrlf(text);
  if (kind == Kind::plain && !lines.empty() && !lines.ends_with('\n')) lines += "\r\n";
  if (Result<void> begun = beginContent(state, 2 * lines.size()); !begun) return begun;
  if (!isBlank(state.root())) dropSignaturesOver(state, shownRows(state));
  LogNull log;
  const bool isDone =
      isBlank(state.root()) ? setWhole(state.root(), kind, lines, log) : TextSetter(state, kind, lines).run();
  endContent(state);
  return isDone ? Result<void>() : Result<void>(noMemory());
}

// Putting text before

std::string asParagraph(std::string_view text) {
  StringBuffer lines(escapeHtml(trimRight(text)));
  lines.replaceAllOccurances("\r\n", "<br>\r\n");
  return "<p>" + lines.extractString() + "</p>\r\n";
}

/// The first text of a kind; -1 when there is none.
int firstOf(const std::vector<int>& rows, const Outline& outline, bool (*isOfKind)(const PartRow&)) {
  const auto found = std::ranges::find_if(rows, [&](int row) { return isOfKind(outline.row(row)); });
  return found == rows.end() ? -1 : *found;
}

}  // namespace

Result<void> beginContent(MessageState& state, std::size_t size) {
  if (!hasRoomFor(size)) return noMemory();
  if (!state.isSealed() && isEncrypted(state.root()))
    return Error{ErrorCode::encrypted, "the content is encrypted: decrypt the message first", "1"};
  if (Result<void> begun = state.beginContentChange(); !begun) return begun;
  LogNull log;
  labelUntypedBody(state.root(), log);
  return {};
}

void endContent(MessageState& state) {
  LogNull log;
  if (!state.root().hasHeaderField("MIME-Version", log))
    state.root().setHeaderField("MIME-Version", "1.0", log);
  state.changed();
}

bool isSignature(const Email2& part) {
  return containsNoCase(part.m_contentType.m_type.view(), "pgp-signature") ||
         containsNoCase(part.m_contentType.m_type.view(), "pkcs7-signature");
}

void dropSignaturesOver(MessageState& state, const std::vector<int>& rows) {
  const Outline& outline = state.outline();
  std::vector<bool> isSeen(outline.rows.size());
  std::vector<int> signedRows;
  for (int row : rows)
    for (; row >= 0 && !isSeen[static_cast<std::size_t>(row)]; row = outline.row(row).parent) {
      isSeen[static_cast<std::size_t>(row)] = true;
      if (outline.row(row).node->equalsContentType("multipart/signed")) signedRows.push_back(row);
    }
  if (signedRows.empty()) return;
  // Inner ones first: a signature, which is destroyed, may be any of the rows, or hold them.
  std::ranges::sort(signedRows, std::greater<>());
  NodeSet dropped;
  LogNull log;
  for (const int row : signedRows) {
    dropSignature(*outline.row(row).node, log);
    dropped.insert(outline.row(row).node);
  }
  tidyEnclosures(state.root(), std::move(dropped), log);
  state.changed();
}

bool rewriteText(Email2& root, Email2& leaf, DataBuffer& text) {
  LogNull log;
  StringBuffer sameType;
  const bool isFlowed = leaf.m_contentType.m_formatFlowed;
  chooseCharset(root, text, log);
  if (!Email2::replaceEmailBody(&leaf, text, /*isText=*/true, root.emailCodePage(), sameType, log))
    return false;
  leaf.m_contentType.m_formatFlowed = isFlowed;
  leaf.refreshContentTypeHeader(log);
  return true;
}

Result<void> checkText(std::string_view text, std::string_view where) {
  const char* const problem = !isValidUtf8(text)                          ? "the text is not valid utf-8"
                              : contains(text, std::string_view("\0", 1)) ? "the text contains a NUL byte"
                                                                          : nullptr;
  return problem ? Result<void>(Error{ErrorCode::badValue, problem, std::string(where)}) : Result<void>();
}

std::string withCrlf(std::string_view text) {
  StringBuffer lines(text);
  lines.toCRLF();
  return lines.extractString();
}

Result<void> Message::beginTreeChange() {
  if (Result<void> begun = beginContent(*m_state); !begun) return begun;
  endContent(*m_state);
  return {};
}

Result<void> Message::setText(std::string_view text) { return setContent(*m_state, Kind::plain, text); }

Result<void> Message::setHtml(std::string_view html) { return setContent(*m_state, Kind::html, html); }

Result<void> Message::prependText(std::string_view text) {
  if (Result<void> checked = checkText(text, "text/plain"); !checked) return checked;
  if (Result<void> begun = beginContent(*m_state); !begun) return begun;
  dropSignaturesOver(*m_state, shownRows(*m_state));
  const Outline& outline = m_state->outline();
  const int plain = firstOf(m_state->displayed().textBody, outline, isPlain);
  const int html = firstOf(m_state->displayed().htmlBody, outline, isHtml);
  if (plain < 0 && html < 0) return setText(text);
  std::string lines = withCrlf(text);
  if (!lines.empty() && !lines.ends_with('\n')) lines += "\r\n";
  LogNull log;
  Email2& root = m_state->root();
  bool isDone = true;
  if (plain >= 0) {
    const std::string old = withCrlf(MessageState::partOf(*m_state, plain).text());
    isDone = setLeaf(root, *outline.row(plain).node, Kind::plain, lines + old, log);
  }
  if (html >= 0) {
    const std::string page = frameHtml(textOf(outline.row(html)), asParagraph(lines), {});
    isDone = setLeaf(root, *outline.row(html).node, Kind::html, page, log) && isDone;
  }
  endContent(*m_state);
  return isDone ? Result<void>() : Result<void>(noMemory());
}

}  // namespace mailtree
