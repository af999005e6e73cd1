#include "mailtree/mime/html/HtmlEscape.h"

namespace mailtree {

std::string escapeHtml(std::string_view text) {
  std::string html;
  html.reserve(text.size() + text.size() / 16);
  for (const char c : text) {
    switch (c) {
      case '&': html += "&amp;"; break;
      case '<': html += "&lt;"; break;
      case '>': html += "&gt;"; break;
      case '"': html += "&quot;"; break;
      case '\'': html += "&#39;"; break;
      default: html += c;
    }
  }
  return html;
}

}  // namespace mailtree
