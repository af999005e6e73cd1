// message/Message.h - a message as people think of it: who wrote what to whom, with which files.
//
//   Values     A Message can be moved and clone()d. Parts are views of it, valid until it changes. A message
//              that was moved from can only be destroyed or assigned to.
//   Text       utf-8 everywhere. Names of fields and types are matched without regard to case.
//   Failure    What can fail returns a Result: on an error nothing has changed, and the error says what is
//              wrong and why. Nothing throws, but for memory in the standard types.
//   Layers     Signed and encrypted content is opened when a message is read. A message whose content is not
//              changed is still written as it came, with its signature and encryption. A change of the
//              content leaves out a signature, which would be wrong from then on; encrypted content cannot be
//              changed before decrypt().
//   Threads    One thread at a time for each message, and for the Keys it is given.
//
//     auto mail = mailtree::Message::open("in.eml");
//     if (!mail) return fail(mail.error().message);
//     std::cout << mail->from().name << ": " << mail->subject() << '\n' << mail->text();
//     for (const auto& file : mail->attachments()) save(file.fileName(), file.bytes());
#pragma once

#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/message/Keys.h"
#include "mailtree/message/Part.h"
#include "mailtree/message/Report.h"
#include "mailtree/message/Result.h"
#include "mailtree/message/Security.h"
#include "mailtree/message/Values.h"

namespace mailtree {

class Email2;

struct OpenOptions {
  const Keys* keys = nullptr;  ///< To decrypt and verify with; only used during the call.
};

struct WriteOptions {
  bool bcc = false;        ///< Keep the Bcc field, as in a draft. What is sent must not have it.
  bool dotStuff = false;   ///< As in an SMTP dialogue (RFC 5321, 4.5.2).
  bool asciiOnly = false;  ///< 8bit text becomes quoted-printable, for servers without 8BITMIME.
  bool inClear = false;    ///< Allow an answer to encrypted mail to be written unencrypted.
};

struct AttachOptions {
  std::string type = {};     ///< Media type; empty: by the extension of the name.
  std::string charset = {};  ///< Of a text file; empty: not labelled, unless it is utf-8.
};

struct InlineOptions {
  std::string type = {};       ///< As in AttachOptions.
  std::string charset = {};    ///< As in AttachOptions.
  std::string contentId = {};  ///< Without angle brackets; empty: a new one.
  /// What the HTML of a saved page calls it, such as "images/logo.png"; it gets no Content-ID then.
  std::string location = {};
};

/// Everything that most new messages have. Address lists are text, as for Message::setTo.
struct ComposeOptions {
  std::string from = {}, to = {}, cc = {}, bcc = {};
  std::string subject = {};
  std::string text = {};  ///< Plain text; empty: made from the HTML.
  std::string html = {};
};

/// How an answer repeats the text it answers.
enum class Quote {
  lines,  ///< An attribution line and "> " before each line; HTML in a blockquote.
  block,  ///< A separator, the old header in short, and the old text as it was.
  none,
};

struct ReplyOptions {
  Address from = {};              ///< The sender of the answer; required.
  bool all = false;               ///< Also to everyone in To and Cc, but for `from` and `own`.
  bool list = false;              ///< To the mailing list (List-Post) instead of the author.
  std::vector<Address> own = {};  ///< Further addresses of one's own, which get no copy.
  std::string text = {};          ///< Goes before the quoted text, in plain text and HTML.
  Quote quote = Quote::lines;
  bool attachments = false;  ///< Take the files along.
  /// Nobody writes it, such as a notice of absence: it is marked Auto-Submitted, its envelope has no sender,
  /// so that nothing comes back, and there is none to a message that isAutomatic().
  bool automatic = false;
  std::vector<Address> to = {}, cc = {};  ///< Further recipients.
};

struct ForwardOptions {
  Address from = {};  ///< Required.
  std::vector<Address> to = {}, cc = {};
  std::string text = {};      ///< Goes before the forwarded text.
  bool asAttachment = false;  ///< Attach the message whole, byte for byte.
};

struct ResendOptions {
  Address from = {};                                ///< Who sends it again; required.
  std::vector<Address> to = {}, cc = {}, bcc = {};  ///< At least one.
};

struct SignOptions {
  std::string digest = "sha256";  ///< "sha256", "sha384" or "sha512".
  bool opaque = false;  ///< One block that only S/MIME programs can read, safe from changes on the way.
  std::string certificate = {};  ///< Fingerprint of the identity to use instead of that of the From address.
  bool pss = false;              ///< RSA-PSS instead of PKCS#1 v1.5.
  bool chain = true;             ///< Include the certificates above the signer's.
  bool time = true;              ///< Include the signing time and the ciphers that can be answered with.
  bool certificateId = true;     ///< Bind the signature to the certificate (RFC 5035).
  std::string fileName = {};     ///< Of the signature; empty: "smime.p7s" or "smime.p7m".
};

struct EncryptOptions {
  /// "aes-256-cbc", which all programs can read, or "aes-256-gcm"; both also with 128 and 192; "3des".
  std::string cipher = "aes-256-cbc";
  /// Addresses that must be able to read it too, such as the sender's own.
  std::vector<std::string> alsoFor = {};
  std::vector<std::string> certificates = {};  ///< Fingerprints of the readers, instead of the recipients.
  bool oaep = false;                           ///< RSA-OAEP instead of PKCS#1 v1.5 for the key.
  std::string fileName = {};                   ///< Of the encrypted block; empty: "smime.p7m".
};

/// Who a message goes to, and where it is returned when it cannot be delivered (RFC 5321).
struct Envelope {
  std::string sender;  ///< An address; empty when there is none, and for an automatic reply (RFC 3834, 3.3).
  std::vector<std::string>
      recipients;  ///< To, Cc and Bcc, or the Resent- fields when there are any; each once.
};

/// Something about a message that a careful reader wants to know.
struct Problem {
  enum class Kind {
    repaired,     ///< Something broken was read as it was meant.
    damagedText,  ///< A text has bytes that mean nothing in its charset.
    limit,        ///< A limit was exceeded, and the rest was not read.
    ambiguous,    ///< Programs may read it in different ways: two From fields, two boundaries, ...
    notOpened,    ///< An encrypted layer could not be opened.
    malformed,    ///< A rule of the format is broken, and there is one way to read it: a line too long, ...
    deceptive,    ///< A reader may take it for something else: a name that is another address, ...
  };
  enum class Severity {
    note,     ///< Nothing is lost, and nobody is misled.
    warning,  ///< Something may be lost, or read differently elsewhere.
    danger,   ///< What a reader sees may not be what a filter saw, or not who wrote it.
  };
  Kind kind{};
  std::string part;  ///< Part::id() of the part concerned.
  std::string text;  ///< A sentence without a full stop.
  Severity severity{};
  /// Where in the message as it was read; nothing when it is at no one place, or inside an opened layer.
  std::optional<std::size_t> offset = {};
};

/// An invitation or another calendar object (RFC 5545, 6047).
struct Calendar {
  std::string method;  ///< "REQUEST", "REPLY", ...; upper case, empty when none is given.
  std::string text;    ///< The object in iCalendar form.
};

class MAILTREE_API Message {
 public:
  Message();  ///< A new message: dated now, with a Message-ID, without sender, recipients and text.
  Message(Message&&) noexcept;
  Message& operator=(Message&&) noexcept;
  ~Message();

  /// Reads a message from a file ("-" is a file of that name) or from bytes, which are copied as far as
  /// needed. Any bytes are a message: only what cannot be read at all is an error.
  static Result<Message> open(const std::string& path, const OpenOptions& options = {});
  static Result<Message> parse(std::string_view bytes, const OpenOptions& options = {});
  /// A new message; badValue for what cannot be used.
  static Result<Message> compose(const ComposeOptions& options);
  /// A copy that shares nothing with this message.
  Result<Message> clone() const;

  /// @name Who, to whom, when, about what
  /// @{
  Address from() const;    ///< The first author; empty when there is none.
  Address sender() const;  ///< The Sender field; empty without one.
  std::vector<Address> replyTo() const;
  /// Recipients as written, entries with a name and no address included (envelope() leaves them out).
  std::vector<Address> to() const;
  std::vector<Address> cc() const;
  std::vector<Address> bcc() const;
  std::string subject() const;
  std::optional<Date> date() const;  ///< Nothing when no date field can be read.
  std::string messageId() const;     ///< Without angle brackets, as all ids here.
  std::string inReplyTo() const;     ///< The first id.
  std::vector<std::string> references() const;
  std::string listId() const;           ///< Without angle brackets and description (RFC 2919).
  std::vector<Header> headers() const;  ///< All fields, in order.
  std::optional<std::string> header(std::string_view name) const;  ///< The first field of that name.
  /// @}

  /// @name What a reader sees (RFC 8621, 4.1.4)
  /// @{

  /// The plain text: every text in its order, of alternatives the plain one, HTML as text where there is no
  /// other. Lines end in LF.
  std::string text() const;
  /// The HTML; empty when no part has any. Plain texts among it are escaped.
  std::string html() const;
  /// The parts that a reader sees in the message, in order. Of alternatives that is the best one, mostly the
  /// HTML: the plain text that text() gives may be a part beside it.
  std::vector<Part> displayed() const;
  /// The files: all that is neither shown as text nor part of the HTML, and what is marked as an attachment,
  /// even if the HTML shows it. Attached messages, and pictures shown among texts, are files too. What is
  /// inside an attached message is not listed: see messages().
  std::vector<Part> attachments() const;
  std::vector<Part> inlineItems() const;  ///< What the HTML shows: pictures, referred to by cid or location.
  /// At most `length` characters of the text on one line, without what is quoted.
  std::string preview(std::size_t length = 256) const;
  /// @}

  /// @name Everything in it
  /// @{
  Part root() const;  ///< The message as a part, "1".
  /// Every part, depth-first, the root first. An attached message is one part: see messages().
  std::vector<Part> parts() const;
  std::optional<Part> part(std::string_view id) const;  ///< "1.2"; nothing when there is no such part.
  std::vector<Message> messages() const;                ///< The attached messages, in order.
  std::optional<Report> report() const;                 ///< A bounce, a receipt or a complaint.
  /// Whether no program may answer it (RFC 3834): it is from a program or a mailing list, or a report.
  bool isAutomatic() const;
  std::optional<Calendar> calendar() const;
  const Security& security() const;  ///< The verdict, as of reading.
  /// What is wrong with it, part by part. What is inside attached messages is not listed: see messages().
  std::vector<Problem> problems() const;
  /// @}

  /// @name Changing it
  ///
  /// An address list is text such as "Anna <anna@berg.example>, jo@see.example"; an empty one removes the
  /// field.
  /// @{
  Result<void> setFrom(std::string_view address);
  Result<void> setFrom(const Address& address);
  Result<void> setSender(std::string_view address);
  Result<void> setReplyTo(std::string_view addresses);
  Result<void> setTo(std::string_view addresses);
  Result<void> setTo(std::span<const Address> addresses);
  Result<void> setCc(std::string_view addresses);
  Result<void> setCc(std::span<const Address> addresses);
  Result<void> setBcc(std::string_view addresses);
  Result<void> setBcc(std::span<const Address> addresses);
  Result<void> setSubject(std::string_view text);
  Result<void> setDate(const Date& date);
  Result<void> setMessageId(std::string_view id);
  Result<void> setInReplyTo(std::string_view id);
  Result<void> setReferences(std::span<const std::string> ids);
  Result<void> setListId(std::string_view id);
  /// Replaces every field of that name with one, or adds it. Refused are line breaks, and the fields that
  /// follow from the content: Content-Type, Content-Transfer-Encoding and MIME-Version.
  Result<void> setHeader(std::string_view name, std::string_view value);
  Result<void> addHeader(std::string_view name, std::string_view value);
  Result<void> removeHeader(std::string_view name);

  /// The charset for texts and header fields that are set from now on. A text that does not fit in it makes
  /// them utf-8; without it, it is us-ascii, iso-8859-1 or utf-8 as the text needs. badValue for a name that
  /// is unknown or not for mail, such as "utf-16".
  Result<void> setCharset(std::string_view name);
  /// Sets the text, or the HTML, that a reader sees: text() or html() is it from then on. The other one and
  /// all files stay, so a message of HTML alone gets an alternative by setText(). A list's footer, which is
  /// shown but counts as a file, is only a file then. An empty text removes it.
  Result<void> setText(std::string_view text);
  Result<void> setHtml(std::string_view html);
  /// Puts text before the text, and before the HTML as a paragraph.
  Result<void> prependText(std::string_view text);
  Result<void> setCalendar(const Calendar& calendar);

  /// Attaches bytes, a file, or a message, which goes byte for byte as it was read. A name that ends in
  /// ".eml" makes an attached message too, and a message needs no name.
  Result<void> attach(std::string_view name, std::string_view bytes, const AttachOptions& options = {});
  Result<void> attachFile(const std::string& path, const AttachOptions& options = {});
  Result<void> attachMessage(const Message& message);
  /// Adds something for the HTML to show, and returns its Content-ID for `<img src="cid:...">`. HTML that is
  /// there already may refer to it by its name, as in `<img src="cid:logo.png">`.
  Result<std::string> addInline(std::string_view name, std::string_view bytes,
                                const InlineOptions& options = {});
  /// Removes a file. An enclosure left with one part is replaced by it.
  Result<void> removeAttachment(const Part& attachment);
  /// Removes any parts of this message but its root, with all that is in them: removeParts(attachments()).
  Result<void> removeParts(std::span<const Part> parts);
  /// Replaces words in header fields and texts (of HTML in text and attributes, escaped), not in attached
  /// files, in one pass: a value is not searched again. What it makes of an address is not checked. Returns
  /// how often something was replaced.
  Result<int> replaceWords(std::span<const std::pair<std::string, std::string>> words);
  /// @}

  /// @name Answering it
  ///
  /// The new message quotes what a reader sees, layers opened, and carries over no field but those that
  /// belong in an answer (RFC 5322, 3.6.4).
  /// @{
  Result<Message> reply(const ReplyOptions& options) const;
  Result<Message> forward(const ForwardOptions& options) const;
  /// This message with Resent- fields before its header (RFC 5322, 3.6.6); nothing else changes.
  Result<Message> resend(const ResendOptions& options) const;
  /// @}

  /// @name S/MIME (RFC 8551)
  ///
  /// To do both, sign first. The subject and all other fields can be read by everybody, encrypted or not; a
  /// copy of them in the signed content is compared with them on reading.
  /// @{

  /// Signs with the identity of the From address. The message still reads the same.
  Result<void> sign(const Keys& keys, const SignOptions& options = {});
  /// Encrypts for every recipient, and for nobody else: name yourself in `alsoFor` to read your own copy.
  /// noKey names those without a valid certificate. The message still reads the same here, but its content
  /// cannot be changed.
  Result<void> encrypt(const Keys& keys, const EncryptOptions& options = {});
  /// The recipients without a valid certificate, for whom encrypt() would fail; each once.
  std::vector<std::string> recipientsWithoutCertificate(const Keys& keys) const;
  /// Removes the encryption for good; signatures inside stay, those around it go with it. encrypted, with the
  /// reason, when no key fits. An encrypted layer inside that no key opens stays.
  Result<void> decrypt(const Keys& keys);
  /// @}

  /// @name Sending and storing it
  /// @{
  Envelope envelope() const;
  /// What sending it now would need: noRecipient without sender or recipients, inClear for an answer to
  /// encrypted mail.
  Result<void> check() const;
  Result<std::string> toString(const WriteOptions& options = {}) const;
  Result<void> write(std::ostream& out, const WriteOptions& options = {}) const;
  /// Written whole or not at all; an existing file is replaced. What was encrypted is readable by the owner
  /// only.
  Result<void> save(const std::string& path, const WriteOptions& options = {}) const;
  /// @}

  /// The tree of parts, borrowed; for everything that this class leaves out. Who changes it calls
  /// beginTreeChange() first, and email2() again after using the message otherwise.
  Email2& email2();
  const Email2& email2() const;
  /// Makes the tree what is written. A change of the content, as above: a signature is left out from then on,
  /// and encrypted content is refused.
  Result<void> beginTreeChange();

 private:
  friend struct MessageState;
  explicit Message(std::unique_ptr<MessageState> state);

  std::unique_ptr<MessageState> m_state;
};

}  // namespace mailtree
