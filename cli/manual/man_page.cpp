#include "cli/manual/man_page.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

#include "cli/support/terminal.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kSourceColumns = 78;
constexpr std::string_view kExitStatus = "Exit status: ";

struct Glyph {
  char c;
  const char* name;
};

/// Characters that the formatter would change, or take for its own.
constexpr Glyph kGlyphs[] = {{'\\', "\\e"},  {'-', "\\-"},   {'"', "\\(dq"}, {'\'', "\\(aq"},
                             {'`', "\\(ga"}, {'^', "\\(ha"}, {'~', "\\(ti"}};

std::string glyphs(std::string_view text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = nextCodePoint(text, at);
    const auto* const known = std::ranges::find_if(
        kGlyphs, [c](const Glyph& glyph) { return c == static_cast<char32_t>(glyph.c); });
    if (known != std::end(kGlyphs)) {
      out += known->name;
    } else if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      std::array<char, 16> name{};
      std::snprintf(name.data(), name.size(), "\\[u%04X]", static_cast<unsigned>(c));
      out += name.data();
    }
  }
  return out;
}

/// A line of text; a dot at its beginning would make it a request.
std::string textLine(std::string_view text) { return (text.starts_with('.') ? "\\&" : "") + glyphs(text); }

/// Words after a macro. Short capitalized ones could be taken for macros. Hyphens remain, because programs
/// that index pages look for their names.
std::string arguments(std::string_view text) {
  constexpr std::size_t kLongestMacro = 3;
  std::string out;
  while (!(text = trimLeft(text)).empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    const bool isLikeMacro = word.size() <= kLongestMacro && isUpperAscii(word.front());
    out += isLikeMacro ? " \\&" : " ";
    for (std::size_t at = 0; at < word.size();) {
      const std::size_t hyphen = std::min(word.find('-', at), word.size());
      out += glyphs(word.substr(at, hyphen - at));
      if (hyphen < word.size()) out += '-';
      at = hyphen + 1;
    }
    text.remove_prefix(word.size());
  }
  return out;
}

std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(), toUpperAscii);
  return text;
}

class PageWriter {
 public:
  void request(std::string_view macro, std::string_view text = {}) {
    m_out << '.' << macro << arguments(text) << '\n';
  }

  void date(std::string_view day) { m_out << ".Dd " << day << '\n'; }

  /// Each sentence begins a line, as is usual in the sources of manual pages.
  void text(std::string_view paragraph) {
    while (!paragraph.empty()) {
      const std::size_t end = std::min(paragraph.find(". "), paragraph.size());
      std::ostringstream lines;
      writeLine(lines, kSourceColumns, "", "", paragraph.substr(0, end + 1));
      std::istringstream in(lines.str());
      for (std::string line; std::getline(in, line);) m_out << textLine(line) << '\n';
      paragraph.remove_prefix(std::min(end + 2, paragraph.size()));
    }
  }

  void beginList() { m_out << ".Bl -tag -width Ds\n"; }
  void endList() { m_out << ".El\n"; }

  void option(const OptionFacts& option) {
    m_out << ".It";
    for (const std::string& name : option.names) {
      if (&name != &option.names.front()) m_out << " ,";
      if (option.isPositional)
        m_out << " Ar" << arguments(name);
      else
        m_out << " Fl " << glyphs(name.substr(1));
    }
    if (!option.isPositional && !option.value.empty()) m_out << " Ar" << arguments(option.value);
    if (option.isRepeatable) m_out << " ...";
    m_out << '\n';
    text(option.fullDescription());
  }

  void options(const std::vector<OptionFacts>& options) {
    if (options.empty()) return;
    beginList();
    for (const OptionFacts& one : options) option(one);
    endList();
  }

  void examples(const std::vector<std::string>& lines) {
    if (lines.empty()) return;
    m_out << ".Sh EXAMPLES\n.Bd -literal -offset indent\n";
    for (const std::string& line : lines) m_out << textLine(line) << '\n';
    m_out << ".Ed\n";
  }

  /// Names of pages, as "see also" lists them.
  void references(const std::vector<std::string>& pages) {
    for (const std::string& page : pages)
      m_out << ".Xr " << page << " 1" << (&page == &pages.back() ? "" : " ,") << '\n';
  }

  std::string str() const { return m_out.str(); }

 private:
  std::ostringstream m_out;
};

void writeSynopsis(PageWriter& page, const VerbFacts& verb) {
  page.request("Sh", "SYNOPSIS");
  page.request("Nm", verb.name());
  if (!verb.verbs.empty()) page.request("Ar", "VERB");
  page.request("Op Ar", "OPTIONS");
  for (const OptionFacts& argument : verb.arguments)
    page.request(argument.isRequired ? "Ar" : "Op Ar",
                 argument.name() + (argument.isRepeatable ? " ..." : ""));
}

void writeDescription(PageWriter& page, const VerbFacts& verb) {
  page.request("Sh", "DESCRIPTION");
  page.text(verb.summary + ".");
  for (const std::string& paragraph : verb.paragraphs) {
    if (paragraph.starts_with(kExitStatus)) continue;
    page.request("Pp");
    page.text(paragraph);
  }
  if (!verb.arguments.empty()) page.request("Pp");
  page.options(verb.arguments);
}

void writeOptions(PageWriter& page, const VerbFacts& verb) {
  for (const OptionGroup& group : verb.groups) {
    page.request("Sh", upperCase(group.title));
    page.options(group.options);
  }
  if (verb.verbs.empty()) return;
  page.request("Sh", "VERBS");
  page.beginList();
  for (const VerbFacts& inner : verb.verbs) {
    page.request("It Xr", inner.name("-") + " 1");
    page.text(inner.summary + ".");
  }
  page.endList();
}

void writeExitStatus(PageWriter& page, const VerbFacts& command) {
  for (const std::string& paragraph : command.paragraphs) {
    if (!paragraph.starts_with(kExitStatus)) continue;
    page.request("Sh", "EXIT STATUS");
    page.text(paragraph.substr(kExitStatus.size()));
  }
}

/// The pages of the verbs around this one.
std::vector<std::string> neighbors(const VerbFacts& verb, const VerbFacts& command) {
  std::vector<std::string> pages;
  for (const VerbFacts& inner : verb.verbs) pages.push_back(inner.name("-"));
  if (!pages.empty()) return pages;
  VerbFacts outer = verb;
  for (outer.path.pop_back(); outer.path.size() >= command.path.size(); outer.path.pop_back())
    pages.insert(pages.begin(), outer.name("-"));
  return pages;
}

}  // namespace

std::string manPage(const VerbFacts& verb, const VerbFacts& command, const std::string& date) {
  PageWriter page;
  page.date(date);
  page.request("Dt", upperCase(verb.name("-")) + " 1");
  page.request("Os", command.name() + " " MAILTREE_VERSION);
  page.request("Sh", "NAME");
  page.request("Nm", verb.name("-"));
  page.request("Nd", verb.summary);
  writeSynopsis(page, verb);
  writeDescription(page, verb);
  writeOptions(page, verb);
  writeExitStatus(page, command);
  page.examples(verb.examples);
  page.request("Sh", "SEE ALSO");
  page.references(neighbors(verb, command));
  return page.str();
}

}  // namespace mailtree::cli
