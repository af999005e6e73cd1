// Different trees in different threads share nothing that matters: meant for the thread sanitizer, right
// without it too.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "mailtree/email/Email2.h"
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

}  // namespace
}  // namespace mailtree
