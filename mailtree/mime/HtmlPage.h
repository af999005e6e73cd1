// mime/HtmlPage.h - an HTML page as mail carries it: its hyperlinks, and what was hidden in it brought to light.
//
// Works on the tokens of mime/HtmlScanner.h; linear on any input.
#pragma once

#include <cstddef>

#include "mailtree/base/Containers.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

/// A page in utf-8. It need not be complete, nor well formed.
class _svHtml {
 public:
  /// Replaces the page by a copy of `size` bytes.
  void setHtmlN(const char* html, std::size_t size);
  /// Appends the page.
  void getHtml(StringBuffer& out) const { out.append(m_html); }
  /// Removes what is there to defeat filters. A clean-up, not a safety filter.
  void unSpam(LogBase& log);
  /// Appends the URL of every hyperlink in the order of the page, decoded, repeated ones repeated.
  void getHyperlinkUrls2(ExtPtrArraySb& urls, LogBase& log) const;

 private:
  StringBuffer m_html;
};

}  // namespace mailtree
