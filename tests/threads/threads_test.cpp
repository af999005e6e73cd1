// Different trees in different threads share nothing that matters: meant for the thread sanitizer, right
// without it too.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "mailtree/email/Email2.h"
#include "mailtree/message/MessageStream.h"
#include "tests/support/places.h"

namespace mailtree {
namespace {

std::vector<std::string> sampleMessages() {
  std::vector<std::string> messages;
  for (const auto& entry : std::filesystem::directory_iterator(places::samples())) {
    std::ifstream file(entry.path(), std::ios::binary);
    messages.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return messages;
}

std::string loadChangeWrite(const std::string& message) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  SystemCerts certs;
  LogMemory log;
  const EmailPtr mail(Email2::createFromMimeText2a(*common, message.data(), static_cast<int>(message.size()),
                                                   certs, log, false));
  mail->setHeaderField("Subject", "geändert", log);
  mail->setDate("Sat, 21 Nov 2026 08:30:00 +0100", log, true);
  mail->addRecipient(2, "Ольга", "olga@vokzal.example", log);
  StringBuffer text, scratch;
  mail->genEmailFilename(scratch);
  ProgressContext progress(nullptr);
  EXPECT_TRUE(mail->assembleMimeBody2(text, nullptr, false, "SVX-", progress, log, 0, true, true));
  // Loading makes boundaries of its own where it takes files out of a text.
  text.replaceAllOccurances(mail->m_contentType.m_boundary.getString(), "boundary");
  return text.extractString();
}

TEST(Threads, load_change_and_write_different_messages_at_once) {
  const std::vector<std::string> messages = sampleMessages();
  ASSERT_GE(messages.size(), 12U);
  std::vector<std::string> alone;
  for (const std::string& message : messages) alone.push_back(loadChangeWrite(message));

  std::vector<std::thread> threads;
  std::vector<int> differences(8, 0);
  for (std::size_t t = 0; t < differences.size(); ++t)
    threads.emplace_back([&, t] {
      for (std::size_t i = 0; i < 3 * messages.size(); ++i) {
        const std::size_t at = (i + t) % messages.size();
        differences[t] += loadChangeWrite(messages[at]) != alone[at];
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(differences, std::vector<int>(differences.size(), 0));
}

TEST(Threads, may_share_one_settings_object_by_reference) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&common] {
      for (int i = 0; i < 200; ++i) const EmailPtr node(Email2::createNewObject0(*common));
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(common->refCount(), 1);
}

/// Numbered messages of all lengths; every tenth is a file, a few of them large, and every 111th is missing.
class NumberedMessages {
 public:
  NumberedMessages() : m_folder(std::filesystem::temp_directory_path() / "mailtree_stream_test") {
    std::filesystem::create_directory(m_folder);
    for (std::size_t i = 10; i <= kCount; i += 10)
      std::ofstream(pathOf(i)) << textOf(i, i % 500 ? 10 : (i % 1000 + 1) * 3000);
  }
  NumberedMessages(const NumberedMessages&) = delete;
  NumberedMessages& operator=(const NumberedMessages&) = delete;
  ~NumberedMessages() { std::filesystem::remove_all(m_folder); }

  static constexpr std::size_t kCount = 5000;

  MessageFeed feed() const {
    return [this, i = std::size_t{0}](SourceMessage& message) mutable {
      if (++i > kCount) return false;
      message = {};
      message.path = i % 111 ? pathOf(i) : "missing";
      message.hasBytes = i % 111 && i % 10;
      if (message.hasBytes) message.bytes = textOf(i, i * 7919 % 30'000);
      return true;
    };
  }

 private:
  std::string pathOf(std::size_t i) const { return (m_folder / std::to_string(i)).string(); }
  static std::string textOf(std::size_t i, std::size_t size) {
    return std::to_string(i) + ' ' + std::string(size, 'x');
  }

  std::filesystem::path m_folder;
};

TEST(Threads, get_messages_and_give_results_in_order) {
  const NumberedMessages messages;
  constexpr struct {
    unsigned threads;
    std::size_t budget;
  } kRows[] = {{1, 1 << 24}, {2, 1 << 24}, {3, 1}, {8, 1 << 20}};
  const auto number = [](SourceMessage& message) {
    return message.error ? std::size_t{0} : std::stoul(message.bytes);
  };
  for (const auto& [threads, budget] : kRows) {
    SCOPED_TRACE(threads);
    std::size_t count = 0, wrong = 0;
    const auto take = [&](SourceMessage&, std::size_t got) {
      ++count;
      wrong += got != (count % 111 ? count : 0);
      return true;
    };
    EXPECT_EQ(streamMessages(messages.feed(), number, take, {.threads = threads, .budget = budget}),
              StreamEnd::whole);
    EXPECT_EQ(count, NumberedMessages::kCount);
    EXPECT_EQ(wrong, 0U);

    count = 0;
    const auto takeSome = [&](SourceMessage&, std::size_t) { return ++count < 1000; };
    EXPECT_EQ(streamMessages(messages.feed(), number, takeSome, {.threads = threads}), StreamEnd::stopped);
    EXPECT_EQ(count, 1000U);

    std::atomic<bool> cancel = false;
    const auto cancelLater = [&](SourceMessage&, std::size_t) {
      if (++count == 2000) cancel = true;
      return true;
    };
    EXPECT_EQ(streamMessages(messages.feed(), number, cancelLater, {.threads = threads, .cancel = &cancel}),
              StreamEnd::cancelled);
    EXPECT_LT(count, 2100U);
  }
}

}  // namespace
}  // namespace mailtree
