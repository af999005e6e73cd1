// cli/mht.cpp - mailtree mht: converts a message to a web archive, one file with the HTML and its
// images (RFC 2557).
//
// Browsers show the first part of a multipart/related and find the parts it refers to by Content-ID, or by
// Content-Location if that is an absolute URL.
#include <CLI/CLI.hpp>
#include <memory>
#include <unordered_set>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/support/arguments.h"
#include "cli/support/output_file.h"
#include "mailtree/base/SubstringSet.h"
#include "mailtree/message/outline.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/html/HtmlEscape.h"

namespace mailtree::cli {
namespace {

struct MhtOptions {
  std::string file;
  std::string output;
};

/// Location of a page without one: a host that cannot exist (RFC 2606).
constexpr std::string_view kDefaultBase = "http://message.invalid/";

/// Builds a web archive from a message, which it changes.
class Archive {
 public:
  explicit Archive(Email2& mail) : m_mail(mail), m_htmlPart(mail.findHtmlPart()) {}

  EmailPtr make() {
    if (!m_mail.getHtmlBodyUtf8(m_mail, m_html, m_log)) m_html = pageOfText();
    EmailPtr archive(new Email2);
    archive->use_codepage(65001);
    copyFields(*archive);
    findReferenced();
    setPage(*archive);
    moveItems(m_mail, *archive);
    return archive;
  }

 private:
  StringBuffer pageOfText() {
    const Outline outline = outlineOf(m_mail);
    const std::string text = outline.plainText < 0 ? std::string() : textOf(outline.row(outline.plainText));
    return StringBuffer("<!DOCTYPE html>\r\n<html><head><title>" +
                        escapeHtml(decodedField(m_mail, "Subject").value_or("")) +
                        "</title></head><body><pre style=\"white-space: pre-wrap\">" + escapeHtml(text) +
                        "</pre></body></html>\r\n");
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
    m_base = m_htmlPart ? locationOf(*m_htmlPart) : std::string();
    if (m_base.empty()) m_base = locationOf(m_mail);
    m_base = resolve(m_base);
    if (Email2* const part = archive.getPart(0))
      part->setHeaderField("Content-Location", m_base.c_str(), m_log);
  }

  /// Moves the items that the page may refer to after it.
  void moveItems(Email2& node, Email2& archive) {
    for (int i = 0; i < node.getNumParts();) {
      Email2* const part = node.getPart(i);
      if (part && isItem(*part, node)) {
        const std::string location = locationOf(*part);
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
    if (part.getNumParts() > 0 || &part == m_htmlPart) return false;
    if (m_referenced.contains(&part)) return true;
    return !(idOf(part).empty() && locationOf(part).empty()) && parent.isMultipartRelated() &&
           !part.isStrictAttachment(&m_log);
  }

  /// Finds the parts whose Content-ID or location occurs in the page, in one search.
  void findReferenced() {
    std::vector<const Email2*> parts;
    SubstringSet names;
    walk(m_mail, [&](const Email2& part) {
      parts.push_back(&part);
      names.add(searchableName(idOf(part)));
      names.add(searchableName(locationOf(part)));
    });
    const std::vector<bool> found = names.findIn(m_html.view());
    for (std::size_t i = 0; i < parts.size(); ++i)
      if (found[2 * i] || found[2 * i + 1]) m_referenced.insert(parts[i]);
  }

  /// Names longer than any reference or than the page cannot occur; searching for them would cost memory.
  std::string searchableName(std::string name) const {
    constexpr std::size_t kMostBytes = 8'000;  // longest URL that servers accept
    return name.size() <= std::min(kMostBytes, m_html.getSize()) ? name : std::string();
  }

  static std::string idOf(const Email2& part) {
    std::string id = decodedField(part, "Content-ID").value_or("");
    std::erase_if(id, [](char c) { return c == '<' || c == '>' || isSpaceAscii(c); });
    return id;
  }

  /// A URL may be folded anywhere (RFC 2557, 4.4).
  static std::string locationOf(const Email2& part) {
    std::string location = decodedField(part, "Content-Location").value_or("");
    std::erase_if(location, [](char c) { return c == '\t' || c == '\r' || c == '\n'; });
    return std::string(trim(location));
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
  Email2* m_htmlPart;
  StringBuffer m_html;
  std::string m_base;
  std::unordered_set<const Email2*> m_referenced;
  LogNull m_log;
};

Exit mht(const MhtOptions& options) {
  std::optional<Message> message = loadMessageToWrite(options.file);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(options.file, message->limits());
  const EmailPtr archive = Archive(*message->root).make();
  return worse(result, writeMessage(*archive, options.output));
}

}  // namespace

void addMht(CLI::App& app, Action& action) {
  auto options = std::make_shared<MhtOptions>();
  CLI::App* verb = app.add_subcommand(
      "mht", "Convert a message to a web archive: the HTML with its images, without attachments");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addOutput(*verb, options->output);
  verb->footer("Example:\n  mailtree mht samples/newsletter.eml -o page.mht && chromium page.mht");
  verb->callback([options, &action] { action = [options] { return mht(*options); }; });
}

}  // namespace mailtree::cli
