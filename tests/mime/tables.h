// What the tests of this folder share: tables of texts with what comes of each, and texts made to be slow.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

using namespace std::string_literals;

inline LogNull quiet;

/// What goes in and what is to come out.
using Row = std::pair<std::string, std::string>;

template <class Function, class Rows>
void expectEach(const Function& function, const Rows& rows) {
  for (const auto& [in, out] : rows) EXPECT_EQ(function(in), out) << in;
}

/// The rows of two tables: short ones stand in columns, long ones do not.
template <class Row, std::size_t N, std::size_t M>
std::vector<Row> both(const Row (&rows)[N], const Row (&more)[M]) {
  std::vector<Row> all(rows, rows + N);
  all.insert(all.end(), more, more + M);
  return all;
}

/// What a function appends to the buffer it is given.
template <class Function>
std::string textOf(const Function& write) {
  StringBuffer out;
  write(out);
  return out.extractString();
}

/// A message as it was received.
inline Owned<MimeMessage2> message(std::string_view mime, LogBase& log = quiet) {
  Owned<MimeMessage2> entity(MimeMessage2::createNewObject());
  EXPECT_TRUE(entity->loadText(mime, log)) << mime;
  return entity;
}

inline std::string repeat(std::string_view text, std::size_t count) {
  std::string out;
  for (; count > 0; --count) out += text;
  return out;
}

inline std::vector<std::string> split(std::string_view text, std::string_view separator) {
  std::vector<std::string> parts;
  for (std::size_t end; (end = text.find(separator)) != text.npos; text.remove_prefix(end + separator.size()))
    parts.emplace_back(text.substr(0, end));
  parts.emplace_back(text);
  return parts;
}

/// So many of the pieces, one after the other.
inline std::string randomText(std::mt19937& random, const std::vector<std::string>& pieces,
                              std::size_t count) {
  std::string text;
  for (; count > 0; --count) text += pieces[random() % pieces.size()];
  return text;
}

/// Texts that hold each of the pieces over and over again. A quadratic reader would take minutes.
template <class Function>
void expectEndsSoon(const Function& read, const std::vector<std::string>& pieces,
                    std::size_t size = 1'000'000, std::string_view begin = {}) {
  for (const std::string& piece : pieces) {
    const std::string text = std::string(begin) + repeat(piece, size / piece.size());
    const std::clock_t start = std::clock();  // of the processor: others may be busy as well
    read(text);
    EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC) << piece.substr(0, 40);
  }
}

}  // namespace mailtree
