// What the tests of this folder share: a folder of their own, and what a source gives as text.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "mailtree/store/MailSource.h"

namespace mailtree {

using namespace std::string_literals;
using Strings = std::vector<std::string>;

class Stores : public testing::Test {
 protected:
  Stores() { std::filesystem::create_directories(m_root); }
  ~Stores() override { std::filesystem::remove_all(m_root); }
  std::string path(const std::string& name) const { return m_root + "/" + name; }
  /// Writes a file and the folders above it.
  std::string save(const std::string& name, const std::string& bytes) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << bytes;
    return path(name);
  }
  std::string load(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::string m_root = testing::TempDir() + "mailtree-store-" + std::to_string(::getpid());
};

/// What the rest of a source gives; "! reason" for a message or a source with an error.
template <class Show>
Strings rest(MailSource& source, Show show, const SourceOptions& options = {}) {
  Strings shown;
  for (SourceMessage message; source.next(message);) {
    const Result<void> read = readMessage(message, options);
    shown.push_back(read ? show(message) : "! " + read.error().message);
  }
  if (source.error()) shown.push_back("! " + source.error()->message);
  return shown;
}

inline Strings bodies(MailSource& source, const SourceOptions& options = {}) {
  return rest(
      source, [](const SourceMessage& message) { return message.bytes; }, options);
}

inline Strings bodiesIn(const std::string& path, const SourceOptions& options = {}) {
  Result<MailSource> source = MailSource::open(path, options);
  return source ? bodies(*source, options) : Strings{"! " + source.error().message};
}

}  // namespace mailtree
