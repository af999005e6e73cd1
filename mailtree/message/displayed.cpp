#include "mailtree/message/displayed.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "mailtree/base/SubstringSet.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/html/CidReferences.h"

namespace mailtree {
namespace {

enum class Kind { mixed, alternative, related, signedContent, digest, report };

constexpr struct {
  std::string_view type;
  Kind kind;
} kKinds[] = {{"multipart/alternative", Kind::alternative},
              {"multipart/related", Kind::related},
              {"multipart/signed", Kind::signedContent},
              {"multipart/digest", Kind::digest},
              {"multipart/report", Kind::report}};

constexpr std::string_view kMediaTypes[] = {"image/", "audio/", "video/"};
constexpr std::string_view kSignatureTypes[] = {"pgp-signature", "pkcs7-signature"};

Kind kindOf(const PartRow& row) {
  for (const auto& [type, kind] : kKinds)
    if (equalsNoCase(row.contentType, type)) return kind;
  return Kind::mixed;
}

bool isMedia(const PartRow& row) {
  return std::ranges::any_of(kMediaTypes,
                             [&](std::string_view type) { return beginsWithNoCase(row.contentType, type); });
}

bool isSignature(const PartRow& row) {
  return std::ranges::any_of(kSignatureTypes,
                             [&](std::string_view type) { return containsNoCase(row.contentType, type); });
}

std::string bareId(std::string_view id) {
  std::string bare(id);
  std::erase_if(bare, [](char c) { return c == '<' || c == '>' || isSpaceAscii(c); });
  return bare;
}

bool isBlank(const PartRow& row) { return trim(row.node->m_body.view()).empty(); }

bool isMarkedAttachment(const PartRow& row) {
  return equalsNoCase(trim(row.node->m_disposition), "attachment");
}

/// What a list of parts shows, from worst to best. "converted" is text as HTML, or HTML as text.
enum class Worth { nothing, media, blank, converted, best };

/// What is shown of a part and all below it.
struct View {
  std::vector<int> text, html;
  Worth textWorth = Worth::nothing, htmlWorth = Worth::nothing;

  bool hasText() const { return textWorth > Worth::blank; }
};

View shown(int id, Worth textWorth, Worth htmlWorth) { return {{id}, {id}, textWorth, htmlWorth}; }

void append(View& view, View&& next) {
  const auto join = [](std::vector<int>& rows, std::vector<int>& more) {
    if (rows.empty())
      rows = std::move(more);
    else
      rows.insert(rows.end(), more.begin(), more.end());
  };
  join(view.text, next.text);
  join(view.html, next.html);
  const bool isConverted = view.textWorth == Worth::converted || next.textWorth == Worth::converted;
  view.textWorth = isConverted ? Worth::converted : std::max(view.textWorth, next.textWorth);
  view.htmlWorth = std::max(view.htmlWorth, next.htmlWorth);
}

class Display {
 public:
  /// @param anyText  whether to show texts of every subtype, and named ones that are not the first.
  Display(const Outline& outline, bool anyText)
      : m_outline(outline), m_anyText(anyText), m_views(outline.rows.size()) {}

  View whole() {
    // Children have higher numbers than their parents, so no recursion is needed.
    for (int id = count() - 1; id >= 0; --id)
      if (!m_outline.row(id).isLeaf()) m_views[at(id)] = viewOfMultipart(m_outline.row(id));
    const PartRow& root = m_outline.row(0);
    if (!root.isLeaf()) return std::move(m_views[0]);
    return viewOf(0, root.isMessage() ? Kind::digest : Kind::mixed, /*isFirst=*/true);
  }

 private:
  static std::size_t at(int id) { return static_cast<std::size_t>(id); }
  int count() const { return static_cast<int>(m_outline.rows.size()); }

  /// @param isFirst  whether it is the first child: later texts with a file name are files.
  View viewOf(int id, Kind parent, bool isFirst) {
    const PartRow& row = m_outline.row(id);
    if (!row.isLeaf()) return std::move(m_views[at(id)]);
    if (isMarkedAttachment(row)) return {};
    if (isMedia(row) || (row.isMessage() && parent == Kind::digest))
      return shown(id, Worth::media, Worth::media);
    const bool isBody = (isPlain(row) || isHtml(row)) && (isFirst || row.filename.empty());
    if (!isBody && !(m_anyText && isReadAsText(row))) return {};
    if (isBlank(row)) return shown(id, Worth::blank, Worth::blank);
    return isHtml(row) ? shown(id, Worth::converted, Worth::best) : shown(id, Worth::best, Worth::converted);
  }

  View viewOfMultipart(const PartRow& row) {
    const bool isJoined = row.node->m_repairs.has(Repair::looseAlternative);
    if (isJoined) return viewOfAll(asReceived(row), Kind::mixed);
    const std::span<const int> children = m_outline.childrenOf(row);
    switch (kindOf(row)) {
      case Kind::alternative: return bestOf(children);
      case Kind::related: return firstWithText(fromStart(row, children));
      case Kind::report: return firstWithText({children.begin(), children.end()});
      case Kind::signedContent: return viewOfAll(withoutSignatures(children), Kind::mixed);
      case Kind::digest: return viewOfAll({children.begin(), children.end()}, Kind::digest);
      case Kind::mixed: break;
    }
    return viewOfAll({children.begin(), children.end()}, Kind::mixed);
  }

  View viewOfAll(const std::vector<int>& children, Kind kind) {
    View view;
    for (std::size_t i = 0; i < children.size(); ++i) append(view, viewOf(children[i], kind, i == 0));
    return view;
  }

  /// The text of one alternative and the HTML of another, or the same one. Of several that are equal, the
  /// first text is the plainest, and the last HTML the richest (RFC 2046, 5.1.4).
  View bestOf(std::span<const int> children) {
    View best;
    for (std::size_t i = 0; i < children.size(); ++i) {
      View view = viewOf(children[i], Kind::alternative, i == 0);
      if (view.textWorth > best.textWorth) {
        best.text = std::move(view.text);
        best.textWorth = view.textWorth;
      }
      if (view.htmlWorth > best.htmlWorth || view.htmlWorth == Worth::best) {
        best.html = std::move(view.html);
        best.htmlWorth = view.htmlWorth;
      }
    }
    return best;
  }

  /// The first child that shows a text; without one, the first child.
  View firstWithText(const std::vector<int>& children) {
    View first;
    for (std::size_t i = 0; i < children.size(); ++i) {
      View view = viewOf(children[i], Kind::related, /*isFirst=*/true);
      if (view.hasText()) return view;
      if (i == 0) first = std::move(view);
    }
    return first;
  }

  /// The children, beginning with the one that the "start" parameter names (RFC 2387, 3.2).
  std::vector<int> fromStart(const PartRow& row, std::span<const int> children) const {
    std::vector<int> ordered(children.begin(), children.end());
    const std::string* const start = row.node->m_contentType.m_otherParams.find("start");
    if (!start) return ordered;
    const std::string wanted = bareId(*start);
    const auto named = std::ranges::find_if(
        ordered, [&](int id) { return !wanted.empty() && contentIdOf(*m_outline.row(id).node) == wanted; });
    if (named != ordered.end()) std::rotate(ordered.begin(), named, named + 1);
    return ordered;
  }

  std::vector<int> withoutSignatures(std::span<const int> children) const {
    std::vector<int> rest(children.begin(), children.end());
    std::erase_if(rest, [&](int id) { return isSignature(m_outline.row(id)); });
    return rest;
  }

  /// The children of a multipart/mixed before loading joined two of them: it became an alternative itself, or
  /// got a new one, which has no origin, in front.
  std::vector<int> asReceived(const PartRow& row) const {
    const std::span<const int> children = m_outline.childrenOf(row);
    std::vector<int> received(children.begin(), children.end());
    if (received.empty() || kindOf(row) == Kind::alternative) return received;
    const PartRow& joined = m_outline.row(received.front());
    if (joined.node->m_origin != kNoOrigin || kindOf(joined) != Kind::alternative) return received;
    const std::span<const int> moved = m_outline.childrenOf(joined);
    received.erase(received.begin());
    received.insert(received.begin(), moved.begin(), moved.end());
    std::ranges::stable_sort(received, {}, [&](int id) { return m_outline.row(id).node->m_origin; });
    return received;
  }

  const Outline& m_outline;
  const bool m_anyText;
  std::vector<View> m_views;  ///< Of the multiparts; moved from when the parent is read.
};

enum class Use : unsigned char { none, text, media, item, signature, form };

/// What each leaf is used for, if anything.
std::vector<Use> usesOf(const Outline& outline, const Displayed& display) {
  std::vector<Use> uses(outline.rows.size());
  for (std::size_t id = 0; id < uses.size(); ++id) {
    const PartRow& row = outline.rows[id];
    if (row.parent < 0 || !row.isLeaf()) continue;
    const Kind parent = kindOf(outline.row(row.parent));
    if (parent == Kind::signedContent && isSignature(row)) uses[id] = Use::signature;
    if (parent == Kind::alternative && (isPlain(row) || isHtml(row)) && !isMarkedAttachment(row))
      uses[id] = Use::form;
  }
  const auto mark = [&](const std::vector<int>& rows, auto&& useOf) {
    for (const int id : rows) uses[static_cast<std::size_t>(id)] = useOf(outline.row(id));
  };
  mark(display.inlineItems, [](const PartRow&) { return Use::item; });
  for (const auto* const body : {&display.textBody, &display.htmlBody})
    mark(*body, [](const PartRow& row) { return isReadAsText(row) ? Use::text : Use::media; });
  return uses;
}

/// A multipart without parts and text has nothing to offer.
bool isEmptyEnclosure(const PartRow& row) {
  return beginsWithNoCase(row.contentType, "multipart/") && isBlank(row);
}

void addFiles(const Outline& outline, Displayed& display) {
  const std::vector<Use> uses = usesOf(outline, display);
  std::vector<bool> isListed(outline.rows.size());
  display.attachments = outline.attachments;
  for (const int id : outline.attachments) isListed[static_cast<std::size_t>(id)] = true;
  for (std::size_t id = 0; id < uses.size(); ++id) {
    const PartRow& row = outline.rows[id];
    if (!row.isLeaf() || isListed[id] || isEmptyEnclosure(row)) continue;
    if (uses[id] == Use::none || uses[id] == Use::media)
      display.attachments.push_back(static_cast<int>(id));
    else if (uses[id] == Use::item || (uses[id] == Use::form && !isBlank(row)))
      ++display.notShown;
  }
}

/// The text of all pages that are shown.
std::string shownHtml(const Outline& outline, const Displayed& display) {
  std::string html;
  for (const int id : display.htmlBody)
    if (isHtml(outline.row(id))) html.append(outline.row(id).node->m_body.view()).append(" ");
  return html;
}

void addInlineItems(const Outline& outline, Displayed& display) {
  std::vector<int> rows;
  std::vector<const Email2*> parts;
  for (int id = 1; id < static_cast<int>(outline.rows.size()); ++id) {
    if (!outline.row(id).isLeaf() || isReadAsText(outline.row(id))) continue;
    rows.push_back(id);
    parts.push_back(outline.row(id).node);
  }
  if (rows.empty()) return;
  const std::vector<bool> found = referencedIn(shownHtml(outline, display), parts);
  for (std::size_t i = 0; i < rows.size(); ++i)
    if (found[i]) display.inlineItems.push_back(rows[i]);
}

}  // namespace

bool isReadAsText(const PartRow& row) {
  return row.isLeaf() &&
         (beginsWithNoCase(row.contentType, "text/") || beginsWithNoCase(row.contentType, "multipart/"));
}

bool isHtml(const PartRow& row) { return row.isLeaf() && equalsNoCase(row.contentType, "text/html"); }

bool isPlain(const PartRow& row) {
  return row.isLeaf() &&
         (equalsNoCase(row.contentType, "text/plain") || beginsWithNoCase(row.contentType, "multipart/"));
}

std::string contentIdOf(const Email2& part) {
  const MimeHeader& header = part.m_header;
  return bareId(header.decodedValue(header.findField("Content-ID")));
}

std::string contentLocationOf(const Email2& part) {
  const MimeHeader& header = part.m_header;
  std::string location = header.decodedValue(header.findField("Content-Location"));
  std::erase_if(location, [](char c) { return c == '\t' || c == '\r' || c == '\n'; });
  return std::string(trim(location));
}

std::vector<bool> referencedIn(std::string_view html, const std::vector<const Email2*>& parts) {
  // Names longer than any reference or than the page cannot occur; searching for them would cost memory.
  constexpr std::size_t kMostBytes = 8'000;  // longest URL that servers accept
  constexpr std::size_t kNamesEach = 3;
  SubstringSet names;
  const auto add = [&](std::string_view name) {
    names.add(name.size() <= std::min(kMostBytes, html.size()) ? name : std::string_view());
  };
  for (const Email2* const part : parts) {
    const std::string id = contentIdOf(*part);
    // The colon of "cid:", in any case.
    add(id.empty() ? id : ":" + id);
    add(id.empty() ? id : ":" + cidUrlPart(id));
    add(contentLocationOf(*part));
  }
  const std::vector<bool> found = names.findIn(html);
  std::vector<bool> isReferenced(parts.size());
  for (std::size_t i = 0; i < found.size(); ++i)
    if (found[i]) isReferenced[i / kNamesEach] = true;
  return isReferenced;
}

Displayed displayedIn(const Outline& outline) {
  View view = Display(outline, /*anyText=*/false).whole();
  if (!view.hasText())
    if (View any = Display(outline, /*anyText=*/true).whole(); any.hasText()) view = std::move(any);
  Displayed display{std::move(view.text), std::move(view.html), {}, {}};
  addInlineItems(outline, display);
  addFiles(outline, display);
  return display;
}

std::vector<Part> MessageState::partsOf(const std::vector<int>& rows) {
  std::vector<Part> parts;
  parts.reserve(rows.size());
  for (const int row : rows) parts.push_back(partOf(*this, row));
  return parts;
}

const Displayed& MessageState::displayed() {
  if (!cachedDisplayed) cachedDisplayed = displayedIn(outline());
  return *cachedDisplayed;
}

std::vector<Part> Message::displayed() const { return m_state->partsOf(m_state->displayed().htmlBody); }
std::vector<Part> Message::attachments() const { return m_state->partsOf(m_state->displayed().attachments); }
std::vector<Part> Message::inlineItems() const { return m_state->partsOf(m_state->displayed().inlineItems); }

}  // namespace mailtree
