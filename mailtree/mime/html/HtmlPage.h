// mime/html/HtmlPage.h - an HTML page as mail carries it: its hyperlinks, and a clean-up of what hides in it.
//
// Works on the tokens of mime/html/HtmlScanner.h; linear on any input.
#pragma once

#include <cstddef>

#include "mailtree/base/Containers.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

/// A page in utf-8. It need not be complete, nor well formed.
class _svHtml {
 public:
  /// Replaces the page by a copy of `size` bytes; null counts as empty.
  void setHtmlN(const char* html, std::size_t size);
  /// Appends the page.
  void getHtml(StringBuffer& out) const { out.append(m_html); }

  /// Removes what is there to defeat filters, so that a reader of the page's text sees what its viewer sees.
  ///
  /// A clean-up, not a safety filter: scripts, forms and remote references stay as they were, and nothing here
  /// makes a page safe to show. It only takes away, never adds, and in doubt it leaves a thing where it is.
  /// What it does:
  ///
  ///   - Invisible elements go with their content: "display:none" and "opacity:0" in the style attribute, the
  ///     `hidden` attribute, boxes of no height ("height" or "max-height" a length of 0 with "overflow:hidden",
  ///     no padding, no "min-height" and no "display" but block or inline-block), also where the sender meant
  ///     well, as with the preview line of a newsletter.
  ///   - Those with "font-size:0" or "visibility:hidden" go when they hold nothing but text in bare
  ///     inline tags: whatever else is in them may be visible again, and newsletters set their boxes to font
  ///     size 0.
  ///   - Either only where the element is of inline text, a div, p or center, its end tag is found, and what it
  ///     holds is text, comments, images, line breaks and properly nested elements of these kinds. Tables,
  ///     cells, lists, unclosed and void elements stay, and "mso-hide", which hides a thing from one program
  ///     only, does not count.
  ///   - Style elements hide nothing here, but they may show: where one holds "!important" and the word that is
  ///     an element's class or id, only what the style attribute itself calls important hides that element.
  ///     Responsive newsletters keep parts for small screens so.
  ///   - Inside words, which inline tags do not end: comments, "</>", and elements of inline text that are
  ///     empty and have no attributes but color, face and lang. Comments between words stay, and so does
  ///     every conditional comment.
  ///   - Numeric references to ASCII letters and digits in text become those letters and digits. All other
  ///     references stay, and those in attributes.
  ///
  /// Out of reach, so that it stays: text in the colour of its background or in tiny letters, boxes moved off
  /// the screen or clipped, what only a style sheet hides, soft hyphens and zero-width characters, and elements
  /// of unknown names inside words.
  ///
  /// Nothing of this happens inside script, style, title, textarea and the like, nor behind markup that is never
  /// closed, nor where it would turn text into a tag or a character reference. A page in utf-16, known by its
  /// NULs, is left alone. A second call changes nothing.
  void unSpam(LogBase& log);

  /// Appends the URL of every hyperlink (the first href of an a or area start tag) in the order of the page,
  /// repeated ones repeated. Character references are decoded, white space and controls around the URL and line
  /// ends and tabs inside it taken out, as browsers do. A relative URL comes as it stands, whatever a base
  /// element says. URLs of every scheme come, also "javascript:" and "data:": what a link may do is for the
  /// caller to judge. Empty ones and those into the page itself ("#top") are left out.
  void getHyperlinkUrls2(ExtPtrArraySb& urls, LogBase& log) const;

 private:
  StringBuffer m_html;
};

}  // namespace mailtree
