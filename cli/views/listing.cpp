#include "cli/views/listing.h"

#include <algorithm>
#include <iostream>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/progress.h"
#include "cli/support/terminal.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/message/times.h"
#include "mailtree/mime/charset/FoldedText.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kSortedText = 48;  ///< Bytes of a text that count when it is sorted.

/// Numbers and times sort as texts of one length.
std::string numberKey(std::uint64_t number) {
  std::string digits = std::to_string(number);
  return std::string(20 - digits.size(), '0') + digits;
}

std::string textKey(std::string_view text) { return foldedText(text).substr(0, kSortedText); }

constexpr struct {
  std::string_view name;
  std::string (*keyOf)(LazyMessage& message);
} kOrders[] = {
    {"date", [](LazyMessage& m) { return m.date() ? timeText(m.date()->time) : std::string(); }},
    {"from",
     [](LazyMessage& m) {
       const Address from = m.from();
       return textKey(from.name.empty() ? from.address : from.name);
     }},
    {"subject", [](LazyMessage& m) { return textKey(m.subject()); }},
    {"size", [](LazyMessage& m) { return numberKey(m.size()); }},
};

std::vector<std::string> orders() {
  std::vector<std::string> names;
  for (const auto& order : kOrders)
    for (const char* const sign : {"", "-"}) names.push_back(sign + std::string(order.name));
  return names;
}

std::vector<std::string> wordsOf(std::string_view list) {
  std::vector<std::string> words;
  while (!list.empty()) {
    const std::size_t comma = std::min(list.find(','), list.size());
    words.emplace_back(trim(list.substr(0, comma)));
    list.remove_prefix(std::min(comma + 1, list.size()));
  }
  return words;
}

ListForm formOf(const ListSettings& settings) {
  if (settings.json) return ListForm::json;
  if (settings.csv) return ListForm::csv;
  return settings.fields.empty() ? ListForm::table : ListForm::plain;
}

}  // namespace

std::vector<Option> addListOptions(Verb verb, ListSettings& settings) {
  const Option json = verb.addFlag("--json", settings.json, "One JSON object per message, one line each");
  const Option csv =
      verb.addFlag("--csv", settings.csv, "Comma-separated values with a title line").excludes(json);
  const Option fields =
      verb.addText("--fields", settings.fields, "Only these, separated by commas: " + listFieldNames());
  const Option sort =
      verb.addText("--sort", settings.sort, "Sort by this; with - the largest or latest first")
          .oneOf(orders());
  const Option threads =
      verb.addFlag("--threads", settings.threads, "Conversations together, answers indented")
          .excludes(sort)
          .excludes(csv);
  const Option summary =
      verb.addText("--summary", settings.summary, "Messages and bytes of each sender, domain, month or type")
          .oneOf(Summary::kinds())
          .excludes(sort)
          .excludes(threads)
          .excludes(fields);
  const Option count = verb.addFlag("--count", settings.count, "Only the number of messages");
  for (const Option other : {json, csv, fields, sort, threads, summary}) count.excludes(other);
  return {json, csv, fields, sort, threads, summary, count};
}

Listing::Listing(const ListSettings& settings, bool hasNames) : m_settings(settings) {
  m_style.form = formOf(settings);
  m_style.fields = settings.fields.empty() ? allListFields() : listFieldsNamed(wordsOf(settings.fields));
  m_style.columns = standardOutputColumns();
  m_style.hasNames = hasNames;
  if (!settings.summary.empty()) m_summary.emplace(settings.summary);
  if (settings.sort.empty()) return;
  m_order = settings.sort.starts_with('-') ? Order::descending : Order::ascending;
  m_sortField = settings.sort.substr(m_order == Order::descending ? 1 : 0);
}

Exit Listing::check() const {
  const std::vector<std::string> names = wordsOf(m_settings.fields);
  for (std::size_t i = 0; i < names.size(); ++i)
    if (!m_style.fields[i]) return usageError("--fields", "there is no field '" + names[i] + "'");
  return Exit::fine;
}

Listing::Item Listing::itemOf(LazyMessage& message) const {
  Item item;
  item.bytes = message.size();
  if (m_settings.count) return item;
  if (m_summary) {
    item.key = m_summary->groupOf(message);
    return item;
  }
  item.line = lineOf(message, m_style);
  if (m_settings.threads) {
    const std::optional<Date> date = message.date();
    item.entry = {message.messageId(), message.inReplyTo(), message.references(), message.subject(),
                  date ? std::optional(date->time) : std::nullopt};
  }
  for (const auto& order : kOrders)
    if (m_order != Order::given && equalsNoCase(order.name, m_sortField)) item.key = order.keyOf(message);
  return item;
}

bool Listing::take(Item& item) {
  ++m_count;
  if (m_settings.count) return true;
  if (m_summary) {
    m_summary->add(item.key, item.bytes);
  } else if (item.entry) {
    m_threads.add(*item.entry);
    m_lines.push_back({m_spool.add(item.line.begin), m_spool.add(item.line.rest)});
  } else if (m_order != Order::given) {
    m_sorted.push_back({std::move(item.key), m_spool.add(textOf(item.line, m_style))});
  } else {
    if (!m_hasTitle) printBesideProgress(titleOf(m_style));
    m_hasTitle = true;
    printBesideProgress(textOf(item.line, m_style));
  }
  return std::cout.good();
}

Result<void> Listing::printThreads() {
  ListLine line;
  for (const Threads::Row& row : m_threads.rows()) {
    const Waiting& waiting = m_lines[row.message];
    if (Result<void> done = m_spool.read(waiting.begin, line.begin); !done) return done;
    if (Result<void> done = m_spool.read(waiting.rest, line.rest); !done) return done;
    std::cout << textOf(line, m_style, row.thread, row.depth);
  }
  return {};
}

/// Messages with the same key keep their order, which is that of their places.
Result<void> Listing::printSorted() {
  const auto placeOf = [](const Sorted& sorted) { return std::pair(sorted.line.block, sorted.line.at); };
  std::ranges::sort(m_sorted, [&](const Sorted& a, const Sorted& b) {
    if (a.key != b.key) return m_order == Order::descending ? b.key < a.key : a.key < b.key;
    return placeOf(a) < placeOf(b);
  });
  std::string line;
  for (const Sorted& sorted : m_sorted) {
    if (Result<void> done = m_spool.read(sorted.line, line); !done) return done;
    std::cout << line;
  }
  return {};
}

Exit Listing::finish() {
  if (m_settings.count) std::cout << m_count << '\n';
  if (m_summary) m_summary->write(std::cout, m_style);
  if (!m_hasTitle && !m_settings.count && !m_summary) std::cout << titleOf(m_style);
  const Result<void> done = m_settings.threads ? printThreads() : printSorted();
  if (done) return Exit::fine;
  reportError("a temporary file cannot be read: " + done.error().message);
  return Exit::unreadable;
}

}  // namespace mailtree::cli
