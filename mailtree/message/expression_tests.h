// message/expression_tests.h - the single tests of which an expression is made. Private.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "mailtree/message/LazyMessage.h"

namespace mailtree {

/// What a test has to read, the least first.
enum class TestCost { place, header, structure, text };

struct MessageTest {
  TestCost cost = TestCost::place;
  std::function<bool(LazyMessage&)> matches{};
};

/// Whether there is a test of that name, in any case: "from", "size".
bool isTestName(std::string_view name);
/// The test NAME:VALUE, which is named by a test; badValue when the value means nothing.
Result<MessageTest> testOf(std::string_view name, std::string_view value);
/// header NAME:TEXT.
MessageTest headerTest(std::string_view field, std::string_view text);
/// A text in the subject or what a reader sees.
MessageTest wordTest(std::string_view text);

}  // namespace mailtree
