// What Python's email package sees in messages that were composed here.
#include <gtest/gtest.h>

#include "tests/cli/command.h"
#include "tests/interop/messages.h"
#include "tests/support/places.h"

namespace mailtree::interop {
namespace {

TEST(Interop, python_sees_what_was_composed) {
  if (cli_test::shell("python3 -c 'import email.policy'").status != 0) GTEST_SKIP() << "there is no python3";
  const cli_test::Workspace folder;
  for (const Composed& message : composedMessages()) folder.write(message.name + ".eml", message.bytes);
  const auto result =
      cli_test::shell("python3 '" + places::sourceFolder() + "/tests/interop/see_with_python.py' '" +
                      folder.folder().string() + "'");
  ASSERT_EQ(result.status, 0) << result.err;
  const auto seen = nlohmann::json::parse(result.out);
  for (const Composed& message : composedMessages()) expectSeen(message, seen[message.name]);
}

}  // namespace
}  // namespace mailtree::interop
