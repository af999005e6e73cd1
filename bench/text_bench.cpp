// bench/text_bench.cpp - HTML pages of 1 MB as plain text: ordinary ones, and some made to be slow.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/texts.h"
#include "mailtree/mime/html/HtmlText.h"

namespace mailtree::bench {
namespace {

constexpr std::size_t kPageSize = 1'000'000;

struct Page {
  const char* name;
  std::string_view piece;
};
constexpr Page kPages[] = {
    {"prose",
     "<p>A paragraph of a <b>message</b>, with the usual &amp; <a href=\"https://www.example.org/a?b=1\">a "
     "link</a> or two, Größe 12.</p>\r\n"},
    {"newsletter",
     "<table width=\"100%\" border=\"0\" cellpadding=\"0\" role=\"presentation\"><tr><td class=\"content\" "
     "style=\"padding:8px 24px;font-family:Arial,sans-serif;font-size:14px\"><div style=\"display:none;"
     "max-height:0\">Preview</div><img src=\"a.png\" alt=\"A picture\" style=\"display:block\"><p "
     "style=\"margin:0 "
     "0 1em\">What is new, in a few lines.</p></td><td>&nbsp;</td></tr></table>\r\n"},
    {"data_tables",
     "<table border=1><tr><th>Item<th>Price<tr><td>Ink<td>12.00<tr><td>日本<td>3.50</table>\r\n"},
    {"unclosed_tags", "<div>"},
    {"nested_tables", "<table><tr><td>x"},
    {"nested_quotes", "<blockquote>x"},
    {"nested_lists", "<ul><li>x"},
};

void readAsText(benchmark::State& state, std::string_view piece) {
  const std::string html = repeated(piece, kPageSize);
  for ([[maybe_unused]] const auto& _ : state) benchmark::DoNotOptimize(textOfHtml(html));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(html.size()));
}

const bool kRegistered = [] {
  for (const Page& page : kPages)
    benchmark::RegisterBenchmark((std::string("html_text/") + page.name + "/mailtree").c_str(), readAsText,
                                 page.piece)
        ->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace
}  // namespace mailtree::bench
