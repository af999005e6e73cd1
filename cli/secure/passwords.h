// cli/secure/passwords.h - passwords; never from the command line, which every user of the machine can read.
#pragma once

#include <array>
#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/support/exit_codes.h"
#include "cli/support/files.h"

namespace mailtree::cli {

class Verb;

/// A password; wiped at the end and never copied.
class Secret {
 public:
  static constexpr std::size_t kMaxSize = 1023;

  Secret() = default;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { wipe(); }

  /// False when full.
  bool append(char c) noexcept;
  void wipe() noexcept;
  const char* text() const noexcept { return m_bytes.data(); }  ///< Null-terminated.
  std::string_view view() const noexcept { return {m_bytes.data(), m_size}; }

 private:
  std::array<char, kMaxSize + 1> m_bytes{};
  std::size_t m_size = 0;
};

struct PasswordOptions {
  std::vector<std::string> files;
  std::optional<int> descriptor;
};

/// Adds the options --password-file and --password-fd.
void addPasswordOptions(Verb verb, PasswordOptions& options);

class Passwords {
 public:
  /// Reads the first line of each file and of the descriptor, or MAILTREE_PASSWORD when neither is given.
  /// unreadable after reporting an error.
  Exit read(const PasswordOptions& options);
  /// Asks on the terminal, without echo.
  /// @return null without a terminal, or when nothing was entered.
  const Secret* ask(std::string_view purpose);
  /// Asks twice and compares: data encrypted with a mistyped password would be lost. False after reporting an
  /// error when the two differ.
  bool askForNew(std::string_view purpose);

  const std::list<Secret>& all() const noexcept { return m_secrets; }

 private:
  Exit readFile(const std::string& path);
  Exit readDescriptor(int descriptor, std::string_view name);
  Exit readEnvironment();

  std::list<Secret> m_secrets;  ///< A list never moves its elements.
};

}  // namespace mailtree::cli
