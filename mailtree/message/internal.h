// message/internal.h - what a Message holds, and what its files share.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/email/Email2.h"
#include "mailtree/message/Message.h"
#include "mailtree/message/displayed.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/message/outline.h"

namespace mailtree {

/// A tree and the settings it shares.
struct Tree {
  RefPtr<_svEmailCommon> common;
  EmailPtr root;
  /// Text bodies have bare LF as line breaks, which become CRLF before they are written: a bare LF would be
  /// re-encoded as data (RFC 2045, 6.7).
  bool hasUnixLines = false;
};

struct MessageState {
  Tree opened;  ///< What readers see: signed and encrypted layers are opened.

  /// The message as received, kept only when a layer was opened in the tree. It is what is written as long
  /// as the content does not change.
  DataBuffer sealedBytes;
  Tree sealed;  ///< Of sealedBytes, with its layers closed; made when it is first needed.

  DataBuffer openBytes;       ///< The message as received, when no layer was opened in the tree.
  bool isAsReceived = false;  ///< Nothing has changed since it was read.

  std::vector<SecureLayer> layers;
  std::vector<InnerField> innerFields;
  bool wasTrustGiven = false;
  bool wasEncrypted = false;      ///< Came in an encrypted layer that is no longer there.
  bool answersEncrypted = false;  ///< Quotes what was encrypted, and must not be written in the clear.

  std::optional<Outline> cachedOutline;
  std::optional<Displayed> cachedDisplayed;
  std::optional<Security> cachedSecurity;

  Email2& root() const noexcept { return *opened.root; }
  /// The numbered parts; made when needed, and again after a change.
  const Outline& outline();
  /// Which of them a reader sees.
  const Displayed& displayed();
  /// Whether the content came encrypted, or repeats what did: answers must not be sent in the clear.
  bool holdsSecret() const;
  std::vector<Part> partsOf(const std::vector<int>& rows);
  bool isSealed() const noexcept { return !sealedBytes.isEmpty(); }
  /// The message byte for byte as it was read; empty once anything changed, and for a new message.
  std::string_view receivedBytes() const noexcept;
  /// The tree that is written, with line breaks as they are sent. noMemory when it cannot be loaded.
  Result<Email2*> written();
  /// Must be called after any change: parts are numbered anew.
  void changed() noexcept;
  /// Must be called before a change of the content. Gives up a signature; refuses encrypted content.
  Result<void> beginContentChange();
  /// Changes header fields, in the closed form too.
  template <class Change>
  Result<void> changeHeader(Change&& change) {
    if (isSealed()) {
      Result<Email2*> outside = written();
      if (!outside) return std::move(outside).error();
      change(**outside);
    }
    change(root());
    changed();
    return {};
  }

  static MessageState& of(const Message& message) noexcept { return *message.m_state; }
  static MessageState& of(const Part& part) noexcept { return *part.m_state; }
  static Part partOf(MessageState& state, int row) { return Part(state, row); }
  static const PartRow& rowOf(const Part& part) { return of(part).outline().row(part.m_row); }
  static Message messageOf(std::unique_ptr<MessageState> state) { return Message(std::move(state)); }
};

Error noMemory();

/// The fields of a header, unfolded and decoded; lines that are not fields are left out.
std::vector<Header> headersOf(const MimeHeader& fields);
/// The first field of that name.
std::optional<std::string> headerOf(const MimeHeader& fields, std::string_view name);
// What Message says under the same names.
std::string subjectIn(const MimeHeader& fields);
std::optional<Date> sentDateIn(const MimeHeader& fields);
std::string messageIdIn(const MimeHeader& fields);
std::string inReplyToIn(const MimeHeader& fields);
std::vector<std::string> referencesIn(const MimeHeader& fields);
std::string listIdIn(const MimeHeader& fields);
/// The entries of all fields of that name.
std::vector<Address> addressesOf(const Email2& root, std::string_view field);
/// A list as in an address field, separated by commas.
std::string textOf(std::span<const Address> addresses);
CertificateInfo infoOf(const Certificate& certificate);

/// Whether a program wrote it as an answer (RFC 3834, 5): nothing may come back to it.
bool isAutomatedReply(const MimeHeader& header);

/// The verdict on the layers found when the message was read.
Security securityOf(const MessageState& state);
/// Loading unwraps no layers below a multipart/mixed. They are found in a separate parse tree and then
/// located in the message's tree, where they stay. Nothing is parsed again where no part may be a layer.
void findLayersBelowMixed(MessageState& state, std::string_view bytes, SystemCerts& certs,
                          LoadBudget* budget);

/// Loads a message, which keeps a copy of the bytes.
/// @param budget  what an enclosing message has left; null for a message of its own.
Result<Message> loadMessage(const DataBuffer& bytes, const Keys* keys, LoadBudget* budget = nullptr);
/// The same, keeping the bytes instead of a copy of them. They must not be borrowed.
Result<Message> loadMessage(DataBuffer&& bytes, const Keys* keys, LoadBudget* budget = nullptr);

}  // namespace mailtree
