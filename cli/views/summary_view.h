// cli/views/summary_view.h - how many messages there are of each sender, domain, month or type.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cli/views/list_view.h"

namespace mailtree::cli {

struct SummaryKind;

class Summary {
 public:
  /// The kinds, for the command line.
  static std::vector<std::string> kinds();
  /// @param kind  one of kinds().
  explicit Summary(std::string_view kind);

  /// The group of a message; on any thread.
  std::string groupOf(LazyMessage& message) const;
  void add(const std::string& group, std::uint64_t bytes);
  /// Months in order, others the largest first. A table has bars on a terminal.
  void write(std::ostream& out, const ListStyle& style) const;

 private:
  struct Group {
    std::uint64_t messages = 0, bytes = 0;
  };

  const SummaryKind* m_kind;
  std::unordered_map<std::string, Group> m_groups;
};

}  // namespace mailtree::cli
