// Memory that runs out anywhere: nothing may be missing without a word.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "tests/support/messages.h"

namespace {
constexpr long kNever = -1;
long g_untilFailure = kNever;  ///< Allocations that still succeed before one fails.
}  // namespace

void* operator new(std::size_t size) {
  void* const memory = g_untilFailure == 0 ? nullptr : std::malloc(size ? size : 1);
  if (g_untilFailure > kNever) --g_untilFailure;
  return memory ? memory : throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace mailtree {
namespace {

/// Runs something with its first allocation failing, then its second, until none is left to fail.
template <class Attempt, class Check>
void failEverywhere(Attempt&& attempt, Check&& check) {
  bool hasFailed = true;
  for (long allocation = 0; hasFailed; ++allocation) {
    g_untilFailure = allocation;
    auto result = attempt();
    hasFailed = g_untilFailure == kNever;
    g_untilFailure = kNever;
    ASSERT_NO_FATAL_FAILURE(check(std::move(result))) << allocation;
  }
}

std::string allOf(Email2& root) {
  StringBuffer addresses;
  root.getAllRecipientAddresses(addresses);
  return write(root) + "\n" + addresses.extractString();
}

TEST(Memory, that_runs_out_while_loading_leaves_a_tree_that_says_so) {
  const std::string message = crlf(
      "From: \"A, B\" <a@e.com>\nTo: =?utf-8?Q?J=C3=B6rg?= <j@e.com>, k@e.com\nCc: l@e.com\nTo: m@e.com\n"
      "Subject: gr\xC3\xBC\xC3\x9F\nContent-Type: multipart/mixed; boundary=b\n\n--b\n"
      "Content-Type: text/plain; charset=iso-8859-1\n\ngr\xFC\xDF, too long for where short ones go\n--b\n"
      "Content-Type: application/pdf; name=\"a file with a name that is long.pdf\"\n"
      "Content-Transfer-Encoding: base64\n\nJVBERg==\n--b\nContent-Type: message/rfc822\n\nSubject: x\n\ny\n"
      "--b--\n");
  const std::string whole = allOf(*load(message));
  RefPtr<_svEmailCommon> common(new _svEmailCommon);
  SystemCerts certs;
  LogNull log;
  DataBuffer bytes;
  bytes.append(message);
  failEverywhere(
      [&] { return EmailPtr(Email2::createFromMimeDb(*common, bytes, false, true, certs, log, false)); },
      [&](EmailPtr root) {
        if (root && common->m_isWhole) {
          EXPECT_EQ(allOf(*root), whole);
        }
        root.reset();
        common = RefPtr<_svEmailCommon>(new _svEmailCommon);
      });
}

TEST(Memory, that_runs_out_drops_no_recipient) {
  const EmailPtr node = load("To: a@e.com\n\n");
  LogNull log;
  failEverywhere(
      [&] { return node->addRecipient(1, "Somebody with a long name", "somebody@example.com", log); },
      [&, expected = 1](bool added) mutable {
        expected += added;
        EXPECT_EQ(node->getNumRecipients(1), expected);
        const std::string written = field(*node, "To");
        EXPECT_EQ(std::count(written.begin(), written.end(), '@'), expected);
      });
}

}  // namespace
}  // namespace mailtree
