#include "mailtree/message/web_archive.h"

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "mailtree/message/displayed_text.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/html/HtmlEscape.h"

namespace mailtree {
namespace {

/// Location of a page without one: a host that cannot exist (RFC 2606).
constexpr std::string_view kDefaultBase = "http://message.invalid/";

/// Builds a web archive from a message, which it changes.
class Archive {
 public:
  explicit Archive(Email2& mail) : m_mail(mail) {}

  /// Null when the message shows no text.
  EmailPtr make() {
    if (!findPage()) return {};
    EmailPtr archive(new Email2);
    archive->use_codepage(kCpUtf8);
    copyFields(*archive);
    findReferenced();
    setPage(*archive);
    moveItems(m_mail, *archive);
    return archive;
  }

 private:
  bool findPage() {
    const Outline outline = outlineOf(m_mail);
    const Displayed display = displayedIn(outline);
    LoadBudget& budget = m_mail.m_common->m_budget;
    for (const auto* const shown : {&display.htmlBody, &display.textBody}) {
      for (const int id : *shown) {
        const Email2* const text = isReadAsText(outline.row(id)) ? outline.row(id).node : nullptr;
        if (!text) continue;
        m_texts.insert(text);
        if (!m_firstText) m_firstText = text;
      }
    }
    const std::string text = displayedText(outline, display, &budget);
    std::string page = displayedHtml(outline, display, &budget);
    if (trim(text).empty() && !containsNoCase(page, "<img")) return false;
    if (page.empty()) page = pageOfText(text);
    m_html.setString(page);
    return m_html.toCRLF();
  }

  std::string pageOfText(const std::string& text) const {
    return "<!DOCTYPE html>\n<html><head><title>" + escapeHtml(decodedField(m_mail, "Subject").value_or("")) +
           "</title></head><body><pre style=\"white-space: pre-wrap\">" + escapeHtml(text) +
           "</pre></body></html>\n";
  }

  void copyFields(Email2& archive) {
    for (const char* name : {"From", "To", "Cc", "Subject", "Date"}) {
      // Copied undecoded, because a decoded word could change an address.
      std::string scratch;
      const MimeHeader& header = m_mail.m_header;
      const std::string value(header.unfoldedValue(header.findField(name), scratch));
      archive.setHeaderField(name, value.empty() ? nullptr : value.c_str(), m_log);
    }
    for (const char* name : {"Message-ID", "X-Priority"}) archive.removeHeaderField(name);
  }

  void setPage(Email2& archive) {
    DataBuffer page;
    page.append(m_html);
    StringBuffer type("text/html");
    archive.setBody(page, /*isText=*/true, type, nullptr, m_log);
    archive.convertToMultipartX("multipart/related", m_log);
    archive.setContentSubtype("text/html", m_log);
    m_base = m_firstText ? contentLocationOf(*m_firstText) : std::string();
    if (m_base.empty()) m_base = contentLocationOf(m_mail);
    m_base = resolve(m_base);
    if (Email2* const part = archive.getPart(0))
      part->setHeaderField("Content-Location", m_base.c_str(), m_log);
  }

  /// Moves the items that the page may refer to after it.
  void moveItems(Email2& node, Email2& archive) {
    for (int i = 0; i < node.getNumParts();) {
      Email2* const part = node.getPart(i);
      if (part && isItem(*part, node)) {
        const std::string location = contentLocationOf(*part);
        if (!location.empty()) part->setHeaderField("Content-Location", resolve(location).c_str(), m_log);
        archive.insertSubPartAtIndex(node.extractSubpartByIndex(i), -1);
        continue;
      }
      if (part) moveItems(*part, archive);
      ++i;
    }
  }

  /// Style sheets may refer to items that the page does not mention, so all items in the page's enclosure
  /// that are not attachments count too.
  bool isItem(Email2& part, Email2& parent) {
    if (part.getNumParts() > 0 || m_texts.contains(&part)) return false;
    if (m_referenced.contains(&part)) return true;
    return !(contentIdOf(part).empty() && contentLocationOf(part).empty()) && parent.isMultipartRelated() &&
           !part.isStrictAttachment(&m_log);
  }

  void findReferenced() {
    std::vector<const Email2*> parts;
    walk(m_mail, [&parts](const Email2& part) { parts.push_back(&part); });
    const std::vector<bool> found = referencedIn(m_html.view(), parts);
    for (std::size_t i = 0; i < parts.size(); ++i)
      if (found[i]) m_referenced.insert(parts[i]);
  }

  static bool hasScheme(std::string_view url) {
    const std::size_t end = url.find_first_of(":/?#");
    return end != std::string_view::npos && end > 0 && url[end] == ':';
  }

  /// Resolves a location against the page as a browser does, in ASCII.
  std::string resolve(std::string_view location) const {
    const std::string_view base =
        m_base.find("://") == std::string::npos ? kDefaultBase : std::string_view(m_base);
    std::string url;
    if (!hasScheme(location)) {
      const std::size_t host = base.find("://") + 3;
      const std::size_t path = std::min(base.find('/', host), base.size());
      const bool fromRoot = location.starts_with('/');
      const std::size_t folder = base.substr(0, base.find_first_of("?#", path)).rfind('/');
      url = base.substr(0, fromRoot || folder < path ? path : folder);
      if (!fromRoot) url += '/';
      while (location.starts_with("./")) location.remove_prefix(2);
    }
    for (const char c : location) {
      constexpr const char* kDigits = "0123456789ABCDEF";
      const auto byte = static_cast<unsigned char>(c);
      if (byte > 0x20 && byte < 0x7F)
        url += c;
      else
        url.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
    return url;
  }

  Email2& m_mail;
  const Email2* m_firstText = nullptr;
  std::unordered_set<const Email2*> m_texts;  ///< What the page is made of.
  StringBuffer m_html;
  std::string m_base;
  std::unordered_set<const Email2*> m_referenced;
  LogNull m_log;
};

}  // namespace

EmailPtr webArchiveOf(Email2& mail) { return Archive(mail).make(); }

}  // namespace mailtree
