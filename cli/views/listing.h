// cli/views/listing.h - what list prints, and find for what it finds: lines in the order of the messages,
// sorted, in threads, or counted.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "cli/support/line_spool.h"
#include "cli/views/list_view.h"
#include "cli/views/summary_view.h"
#include "mailtree/message/Threads.h"

namespace mailtree::cli {

class Option;
class Verb;

struct ListSettings {
  bool json = false, csv = false, threads = false, count = false;
  std::string fields, sort, summary;
};

/// Adds --json, --csv, --fields, --sort, --threads, --count and --summary. Returns those that choose a form.
std::vector<Option> addListOptions(Verb verb, ListSettings& settings);

class Listing {
 public:
  /// What is kept of a message until it is its turn; made on any thread.
  struct Item {
    ListLine line;
    std::string key;  ///< To sort by, or the group of a summary.
    std::size_t bytes = 0;
    std::optional<Threads::Entry> entry{};
  };

  /// @param hasNames  several sources are listed, so numbers say too little.
  Listing(const ListSettings& settings, bool hasNames);

  /// A wrong option, which was reported; else fine.
  Exit check() const;
  Item itemOf(LazyMessage& message) const;
  /// False when standard output takes no more.
  bool take(Item& item);
  /// Prints what had to wait for the last message.
  Exit finish();

 private:
  /// 0, or the order to sort in.
  enum class Order { given, ascending, descending };
  /// A line that waits, in the two pieces that it has in a thread.
  struct Waiting {
    LineSpool::Place begin, rest;
  };
  struct Sorted {
    std::string key;
    LineSpool::Place line;
  };

  Result<void> printThreads();
  Result<void> printSorted();

  const ListSettings& m_settings;
  ListStyle m_style;
  std::string m_sortField;
  Order m_order = Order::given;
  std::optional<Summary> m_summary;
  LineSpool m_spool;
  std::deque<Sorted> m_sorted;
  std::deque<Waiting> m_lines;  ///< Of threads.
  Threads m_threads;
  std::size_t m_count = 0;
  bool m_hasTitle = false;
};

}  // namespace mailtree::cli
