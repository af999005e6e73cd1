// What the tests of this folder share.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

namespace fs = std::filesystem;
using namespace std::string_literals;

inline LogNull quiet;

/// A text and what becomes of it.
using Row = std::pair<std::string, std::string>;

/// A change, a text before it and after it.
template <class Text>
using Change = std::tuple<void (*)(Text&), std::string, std::string>;

inline std::string contentOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// A folder of the test's own.
class FolderTest : public testing::Test {
 protected:
  void SetUp() override { fs::create_directories(m_folder); }
  void TearDown() override { fs::remove_all(m_folder); }
  std::string path(const std::string& name) const { return (m_folder / name).string(); }

  fs::path m_folder = fs::path(testing::TempDir()) / ("mailtree-base-" + std::to_string(getpid()));
};

}  // namespace mailtree
