// message/LazyMessage.h - a message of a mailbox that is read only as far as somebody asks.
//
//   Header     Fields are read from the header alone; no byte of the body is looked at.
//   Structure  Attachments, layers, repairs and texts need the whole message, which is read once. A plain
//              text without anything special is recognized without that.
//   Lifetime   The message is borrowed until the next assign(). One is meant to be used for many messages.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/message/Message.h"
#include "mailtree/store/MailSource.h"

namespace mailtree {

class MimeHeader;

class MAILTREE_API LazyMessage {
 public:
  /// @param keys  to decrypt and verify with; borrowed, may be null.
  explicit LazyMessage(const Keys* keys = nullptr);
  /// For another thread: without a message, with the same keys.
  LazyMessage(const LazyMessage& other);
  LazyMessage& operator=(const LazyMessage&) = delete;
  ~LazyMessage();

  /// Goes on to another message, which has its bytes.
  void assign(const SourceMessage& message);
  const SourceMessage& source() const noexcept { return *m_source; }

  /// @name From its place
  /// @{
  std::size_t size() const noexcept { return m_source->bytes.size(); }
  /// Whether a Maildir says that nobody has read it; elsewhere false.
  bool isUnread() const noexcept;
  /// @}

  /// @name From its header: what Message says under the same name
  /// @{
  const MimeHeader& header();
  Address from();
  std::vector<Address> addresses(std::string_view field);
  std::string subject();
  std::optional<Date> date();
  std::string messageId();
  std::string inReplyTo();
  std::vector<std::string> references();
  std::string listId();
  /// Whether a decoded field may contain a text in lower case; false is certain, and cheap. The text has
  /// neither blanks nor anything but ASCII.
  bool mayHaveInHeader(std::string_view lowerCaseText);
  /// @}

  /// @name From all of it
  /// @{
  /// The message, its layers opened; null when there is not enough memory for it.
  const Message* message();
  /// The same, to keep; the next step must be assign().
  Result<Message> takeMessage();
  std::size_t attachmentCount();
  bool isSigned();
  bool isEncrypted();
  bool isRepaired();  ///< Something broken was read as it was meant, or a text is damaged.
  std::string text();
  /// @}

 private:
  /// What is known without reading the message as a whole.
  bool isPlainText();
  bool judgePlainText();

  const SourceMessage* m_source = nullptr;
  const Keys* m_keys;
  std::unique_ptr<MimeHeader> m_header;  ///< Of this or an earlier message, whose memory is used again.
  bool m_hasHeader = false, m_isHeaderBroken = false;
  std::size_t m_bodyBegin = 0;
  std::optional<bool> m_isPlainText;
  std::string m_lowerCaseHeader;
  bool m_hasLowerCaseHeader = false, m_mayHaveAnything = false;
  std::optional<Result<Message>> m_message;
};

}  // namespace mailtree
