// mime/html/HtmlPage.h - an HTML page in mail: its hyperlinks, and removal of its hidden content.
//
// Uses the tokens of mime/html/HtmlScanner.h; linear on any input.
#pragma once

#include <cstddef>

#include "mailtree/base/Containers.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

/// A page in utf-8. It may be incomplete or malformed.
class MAILTREE_API _svHtml {
 public:
  /// Replaces the page with a copy of `size` bytes; null counts as empty.
  void setHtmlN(const char* html, std::size_t size);
  /// Appends the page.
  void getHtml(StringBuffer& out) const { out.append(m_html); }

  /// Removes markup that is there to defeat filters, so a program reading the page's text sees
  /// what a person sees.
  ///
  /// A clean-up, not a safety filter: scripts, forms and remote references stay, and the page does not become
  /// safe to show. It only removes, never adds; in doubt, it leaves things alone:
  ///
  ///   - Invisible elements are removed with their content: "display:none" and "opacity:0" in the style
  ///     attribute, the `hidden` attribute, boxes of no height ("height" or "max-height" a length of 0 with
  ///     "overflow:hidden", no padding, no "min-height" and no "display" but block or inline-block), even
  ///     where the sender means well, as with the preview line of a newsletter.
  ///   - Those with "font-size:0" or "visibility:hidden" are removed when they contain only text in bare
  ///     inline tags: other content may be visible again, and newsletters set their boxes to font size 0.
  ///   - Both only if the element is inline text, a div, p or center, its end tag is found, and it
  ///     contains only text, comments, images, line breaks and properly nested elements of these kinds.
  ///     Tables, cells, lists, unclosed and void elements stay, and "mso-hide", which hides content
  ///     from one program only, does not count.
  ///   - Style elements hide nothing here, but they may show: if one contains "!important" and the word that
  ///     is an element's class or id, only the important properties of the style attribute hide that element.
  ///     Responsive newsletters keep parts for small screens that way.
  ///   - Inside words, which inline tags do not end: comments, "</>", and elements of inline text that are
  ///     empty and have no attributes but color, face and lang. Comments between words stay, and so does
  ///     every conditional comment.
  ///   - Numeric references to ASCII letters and digits in text become those letters and digits. All other
  ///     references stay, and those in attributes.
  ///
  /// Not detected: text in the color of its background or in tiny letters, boxes moved off the screen or
  /// clipped, content hidden only by a style sheet, soft hyphens and zero-width characters, and elements of
  /// unknown names inside words.
  ///
  /// Nothing is removed inside script, style, title, textarea and the like, after unterminated markup, or
  /// where text would become a tag or a character reference. A page in utf-16, recognized by its NULs, is
  /// left alone. A second call changes nothing.
  void unSpam(LogBase& log);

  /// Appends the URL of every hyperlink (the first href of an a or area start tag) in page order, with
  /// repetitions. As in browsers, character references are decoded, white space and controls around the URL
  /// and line breaks and tabs inside it removed. A relative URL is not resolved. URLs of every scheme are
  /// included, also "javascript:" and "data:": the caller decides what is allowed. Empty ones and those into
  /// the page itself ("#top") are omitted.
  void getHyperlinkUrls2(ExtPtrArraySb& urls, LogBase& log) const;

 private:
  StringBuffer m_html;
};

}  // namespace mailtree
