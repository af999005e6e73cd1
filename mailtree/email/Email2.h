// email/Email2.h - a node of an email tree: a message or a part of one. The one header a user includes.
//
//   Ownership  A parent owns its subparts. get*/find* lend; create*/extract* hand over; insert*/add* take.
//              EmailPtr is the owner to use; lists filled by enumerations hold borrowed pointers.
//   Failure    false, 0, -1 or null, with the reason in the LogBase. Nothing throws. Each operation says what
//              outputs hold.
//   Text       UTF-8 in and out, unless the name ends in Ansi or Mb. Sizes are bytes, indexes start at 0.
//   Liveness   Every operation first checks the node's validity marker; on a destroyed node it does nothing
//              and returns false, 0, null or an empty result, without a message. Where that is not so the
//              operation says it.
//   Threads    One tree, one thread at a time; different trees are independent.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/Origin.h"
#include "mailtree/base/Output.h"
#include "mailtree/base/Slab.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/base/XString.h"
#include "mailtree/base/Xml.h"
#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/SymmetricCipher.h"
#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/email/EmailCommon.h"
#include "mailtree/email/ExpressionTermSource.h"
#include "mailtree/email/ParentEmailPtr.h"
#include "mailtree/mime/AttachmentRules.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/Repairs.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/header/ContentType.h"
#include "mailtree/mime/header/Date.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

struct ReceivedContent;

/// Validity marker of a live node.
inline constexpr std::uint32_t kEmailMarker = 0xF592C107;

/// Kinds of multipart enclosure, as the enclosure search numbers them.
enum class EnclosureKind : int { mixed = 1, alternative = 2, related = 3, digest = 4, report = 5 };

/// Recipient kinds, as the address operations number them.
enum class RecipientKind : int { to = 1, cc = 2, bcc = 3 };

class Email2 final : public NonRefCountedObj, public ExpressionTermSource {
 public:
  // Contents                                     defined in email/             tested in tests/email/
  //   1  Life, subparts, shared settings         model/node.cpp                node_test.cpp
  //   2  Header fields                           model/headers.cpp             headers_test.cpp
  //   3  Content attributes                      model/content_attributes.cpp  content_attributes_test.cpp
  //   4  Identifiers, dates, file names          model/identifiers.cpp         identifiers_test.cpp
  //   5  Loading                                 loading/*.cpp                 loading_test.cpp
  //   6  Output                                  output/*.cpp                  assembly_test.cpp
  //                                                                            encoded_words_test.cpp
  //                                                                            roundtrip_test.cpp
  //                                                                            received_content_test.cpp
  //   7  Structure: enclosures and alternatives  structure/enclosures.cpp      structure_test.cpp
  //                                              structure/construction.cpp
  //                                              structure/alternatives.cpp
  //   8  Bodies                                  bodies/*.cpp                  bodies_test.cpp
  //                                                                            body_charset_test.cpp
  //   9  Attachments                             structure/attachments.cpp     attachments_test.cpp
  //  10  Making attachments                      creation/attachments.cpp      creation_test.cpp
  //  11  Addresses                               addresses/*.cpp               addresses_test.cpp
  //  12  Related items and calendars             structure/related.cpp         related_test.cpp
  //                                              creation/related.cpp
  //                                              creation/calendar.cpp
  //  13  Attached messages, digests, reports     structure/messages.cpp        messages_test.cpp
  //                                              structure/reports.cpp         reports_test.cpp
  //  14  Transformations of whole messages       transform/reply_forward.cpp   reply_forward_test.cpp
  //                                              transform/clone.cpp           clone_test.cpp
  //                                              transform/mht.cpp             mht_test.cpp
  //                                              transform/tidy.cpp            tidy_test.cpp
  //  15  XML and diagnostics                     output/xml.cpp                xml_test.cpp
  //                                              output/diagnostics.cpp        diagnostics_test.cpp
  //  16  Secure mail                             ../secure/signing.cpp         signing_test.cpp (tests/secure/)
  //                                              ../secure/enveloping.cpp      enveloping_test.cpp
  //                                              ../secure/symmetric.cpp       symmetric_test.cpp
  //                                              ../secure/certificates.cpp
  //                                              ../secure/security_state.cpp  security_state_test.cpp

  /// @name 1. Life, subparts, shared settings
  /// @{

  /// A new message with the default header fields MIME-Version, Date, Message-ID, Content-Type (text/plain),
  /// Content-Transfer-Encoding (7bit), X-Priority, in this order, and settings of its own.
  Email2();
  /// The same, sharing `common`, which must be on the heap.
  explicit Email2(_svEmailCommon& common);
  /// A bare node sharing `common`: no header fields, empty content type and transfer encoding, dated now. The
  /// integer only selects this overload.
  Email2(_svEmailCommon& common, int);
  /// The same, dated `created`: who makes many nodes asks for the time once.
  Email2(_svEmailCommon& common, const SorvikSysTime& created);
  Email2(const Email2&) = delete;
  Email2& operator=(const Email2&) = delete;
  /// Destroys the whole subtree, iteratively. A wrong marker is reported and ignored.
  ~Email2() override;
  static void operator delete(Email2* node, std::destroying_delete_t) noexcept { destroyInSlab(node); }

  /// Like the second and third constructor; null when memory ran out.
  static Email2* createNewObject(_svEmailCommon& common);
  static Email2* createNewObject0(_svEmailCommon& common);
  /// A bare node with settings of its own; null when memory ran out.
  static Email2* createNewObject00();

  /// Whether this node and every member that carries a marker are intact.
  bool isValidEmailObject() const;
  /// Whether this node's own marker is intact: the guard of every operation.
  bool isLive() const noexcept { return hasMarker(m_magic, kEmailMarker); }
  /// Gives back spare capacity of the text members. Not recursive; not the body.
  void minimizeMemUsage();

  int getNumParts() const;
  /// Borrowed; null when out of range.
  Email2* getPart(int index) const;
  const Email2* getPartConst(int index) const;
  /// Removes a child and hands it over; null when out of range. Does not check the marker.
  Email2* extractSubpartByIndex(int index);
  /// Takes `part` (null is ignored) in before `index`; negative or beyond the end appends. Does not check the
  /// marker.
  void insertSubPartAtIndex(Email2* part, int index);
  /// Puts `part` in place of a child. Null only removes. Does not check the marker.
  /// Deliberate: the old child is not destroyed; the caller is expected to hold it.
  void replacePartAt(int index, Email2* part);
  /// Exchanges the whole child lists. Does not check the marker.
  void swapChildren(Email2& other);
  /// Exchanges the parsed content types. Does not check the marker.
  /// Deliberate: the Content-Type fields are not rewritten.
  void swapContentType(Email2& other);
  void removeAllSubparts();

  void setOverwriteExisting(bool overwrite);
  bool getOverwriteExisting() const;  ///< true without shared settings.
  void setIdOnServer(int id);
  int getIdOnServer() const;  ///< -1 without shared settings.
  /// Name of the email's charset; the empty string without shared settings. Never null.
  const char* get_charset_name() const;
  int get_charset_codepage() const;  ///< 0 without shared settings.
  void use_charset(_svCharset& charset);
  /// Sets the email's charset by code page; 0 is ignored.
  void use_codepage(int codePage);

  /// The value of a term: "body" (ignoring case) appends the effective body, anything else fetches that
  /// header field.
  void supplyTermValue(const char* term, StringBuffer& out) override;
  /// @}

  /// @name 2. Header fields
  /// Values are decoded utf-8. Fields that the model interprets are kept in step with the parsed members.
  /// @{
  bool getHeaderFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const;
  /// An absent field empties `out`.
  bool getHeaderFieldX(const char* name, XString& out, LogBase& log) const;
  int getNumHeaderFields() const;
  bool getHeaderFieldName(int index, StringBuffer& out, LogBase& log) const;
  bool getHeaderFieldValue(int index, StringBuffer& out, LogBase& log) const;
  bool hasHeaderField(const char* name, LogBase& log) const;
  bool hasHeaderMatchingUtf8(const char* name, const char* pattern, bool caseSensitive, LogBase& log) const;
  bool getSubjectUtf8(StringBuffer& out, LogBase& log) const;
  bool getReplyToUtf8(StringBuffer& out, LogBase& log) const;
  bool getMailerUtf8(StringBuffer& out, LogBase& log) const;
  bool getUidlUtf8(StringBuffer& out, LogBase& log) const;

  /// Sets a field, or routes it to the parsed members: Date, From, Reply-To, Content-ID, Content-Type,
  /// Content-Transfer-Encoding. CR and LF are removed; a null value removes the field. All others are
  /// literal.
  void setHeaderField(const char* name, const char* value, LogBase& log);
  void setHeaderField_a(const char* name, const char* value, bool asGiven, LogBase& log);
  /// Appends a field even when one of that name exists; routed names replace. A null value adds nothing.
  void addHeaderField2(const char* name, const char* value, LogBase& log);
  void addHeaderField2_a(const char* name, const char* value, bool asGiven, LogBase& log);
  /// Removes every field of that name and clears the parsed member behind it.
  /// Deliberate: removing "Bcc" leaves the Bcc recipients in place.
  void removeHeaderField(const char* name);
  /// Sets a field of the index-th attachment; false, with an error, when there is none.
  bool setAttachmentHeader(int index, const char* name, const char* value, LogBase& log);
  /// Replaces header, parsed members, sender and recipients by those of `source`. Body and children stay.
  void copyHeader(Email2& source, LogBase& log);
  /// @}

  /// @name 3. Content attributes
  /// @{
  void getContentType(StringBuffer& out) const;
  void getContentEncoding(StringBuffer& out) const;
  void getName(StringBuffer& out);
  void getContentId(StringBuffer& out) const;       ///< Appends.
  void getAttachmentName(StringBuffer& out) const;  ///< Appends the name parameter.

  /// Replaces the whole Content-Type. Every text may be null: a null or empty type keeps the present one
  /// (else text/plain), other nulls leave their parameter out. A code page sets the email's charset for text,
  /// message and multipart/signed.
  void setContentTypeUtf8(const char* type, const char* name, const char* protocol, const char* micalg,
                          int codePage, const char* boundary, const char* smimeType, const char* subtype,
                          LogBase& log);
  /// Rebuilds the Content-Type field from the parsed members, unless the received text means the same
  /// already.
  void refreshContentTypeHeader(LogBase& log);
  void fixContentTypeUtf8(const char* type, LogBase& log);
  void setContentSubtype(const char* subtype, LogBase& log);
  void setName(const StringBuffer& name, LogBase& log);
  void setContentId(const char* id, LogBase& log);
  void setContentEncodingNonRecursive(const char* encoding, LogBase& log);
  /// Sets the encoding of every text and edifact part of the subtree. Deliberate: this node gets the member
  /// even when it is neither.
  void setContentEncodingRecursive(const char* encoding, LogBase& log);
  void setContentEncodingInner(const char* encoding, LogBase& log);
  /// Chooses 7bit, base64 or quoted-printable by code page. The second integer is ignored.
  void setEncodingViaCodePage(int codePage, int, LogBase& log);
  void setContentDisposition1(const char* disposition, LogBase& log);
  void setContentDispositionUtf8(const char* disposition, const char* filename, LogBase& log);
  void setFilenameUtf8(const char* filename, LogBase& log);
  /// Replaces `out` by the file name: disposition filename, name parameter, Content-Location, or
  /// "attachedFile" with the extension of the media type.
  void getFilenameUtf8(StringBuffer& out, LogBase& log) const;
  /// @}

  /// @name 4. Identifiers, dates, file names
  /// @{
  bool generateMessageID(LogBase& log);
  bool generateContentId(LogBase& log);
  void setDate(const char* rfc822, LogBase& log, bool setField);
  void resetDate(LogBase& log);
  void getDate(SorvikSysTime& out) const;
  /// Appends a file name that sorts by date and does not collide, ending in ".eml". Takes at least a
  /// millisecond.
  void genEmailFilename(StringBuffer& out) const;
  static void genEmailFilename2(const SorvikSysTime& time, StringBuffer& out);
  /// @}

  /// @name 5. Loading
  /// Every node of the result shares `common`. The result is owned by the caller; null when memory ran out.
  /// No input is refused. `certs` is what signed and encrypted layers are opened with, `unwrap` whether they
  /// are: throughout a message, but not below a multipart/mixed at its top. What they were worth is in `common`.
  /// @{
  static Email2* createFromMimeText2(_svEmailCommon& common, StringBuffer& mime, bool discardInput,
                                     bool unwrap, SystemCerts& certs, LogBase& log, bool parseOption);
  static Email2* createFromMimeText2a(_svEmailCommon& common, const char* text, int size, SystemCerts& certs,
                                      LogBase& log, bool parseOption);
  static Email2* createFromMimeDb(_svEmailCommon& common, DataBuffer& mime, bool discardInput, bool unwrap,
                                  SystemCerts& certs, LogBase& log, bool parseOption);
  /// Undoes the dot-stuffing of POP3 first. Deliberate: no normalisation of the top level on this path.
  static Email2* createFromPop3(_svEmailCommon& common, DataBuffer& raw, bool unwrap, SystemCerts& certs,
                                LogBase& log);

  static void loadFromMimeTextProcessing(MimeMessage2& tree, LogBase& log);
  static void transformMmToMa(MimeMessage2& mixed, LogBase& log);
  static Email2* createFromMimeObject2(_svEmailCommon& common, MimeMessage2& entity, bool extractBody,
                                       bool unwrap, LogBase& log, SystemCerts& certs);

  /// Splits a text in which an HTML page and files were pasted as uuencoded blocks: what stands before the first
  /// block becomes the plain-text body, the first block named ".htm" the HTML body, every other an attachment.
  /// @return false when there is no block; `email` is then untouched. `text` is only read.
  static bool splitOutlookHtmlUU(StringBuffer& text, Email2& email, LogBase& log);

  void getRawBodyThisPart(DataBuffer& out) const;  ///< Replaces `out` by a copy of the body.
  void getRawBodyUtf8(XString& out);               ///< Appends the body as text. Does not check the marker.
  void getNonMultipartBodyData(DataBuffer& out) const;  ///< Appends the body.
  const DataBuffer* getNonMultipartBody3() const;       ///< Borrowed.
  /// @}

  /// @name 6. Output
  /// @{

  /// Writes this node and everything below it as MIME.
  /// The tree is normalised on the way and stays so: 8bit text may become quoted-printable, text is converted
  /// from utf-8 to the email's charset, a part that its charset cannot carry is relabelled utf-8.
  /// @param text         destination when `sink` is null; appended to.
  /// @param sink         destination when not null.
  /// @param dotStuff     doubles the dot of every line that begins with one, only when writing to a sink. Leaves that
  ///                     hold a bare CR, which some servers take for a line end, go in base64; signed content and
  ///                     attached messages with a dot after one make the call fail.
  /// @param omitPrefix   header fields whose names begin with it are left out everywhere; may be null.
  /// @param depth        0 at the node the caller starts from.
  /// @param qpFor8bit    8bit parts become quoted-printable, except inside attached messages.
  /// @param isTop        true at the node the caller starts from.
  /// @return false when a write failed; earlier output stays in the sink. Deliberate: a failing subpart does
  /// not stop its
  ///         siblings.
  bool assembleMimeBody2(StringBuffer& text, _svOutput* sink, bool dotStuff, const char* omitPrefix,
                         ProgressContext& progress, LogBase& log, int depth, bool qpFor8bit, bool isTop);
  /// Writes bytes in this node's transfer encoding to the sink, or appends them to `text` without one. The
  /// unnamed flag has no effect. `normalizeLineEnds` brings unencoded bodies to CRLF.
  bool getEncodedBody(const DataBuffer& body, StringBuffer& text, ProgressContext& progress, LogBase& log,
                      bool, _svOutput* sink, bool dotStuff, bool normalizeLineEnds) const;
  /// Replaces `out` by this node's own body in its transfer encoding; bytes with a NUL are given in base64.
  void getMimeBodyEncodedUtf8(StringBuffer& out, LogBase& log);
  /// Estimated bytes of the whole MIME text of this subtree.
  unsigned getEmailSize(LogBase& log) const;

  /// Appends one encoded word, however long; nothing for empty data or a null charset. A utf-8 byte-order
  /// mark is dropped.
  static void bEncodeData(const unsigned char* data, long length, const char* charset, StringBuffer& out);
  /// The same with Q, commas escaped. An empty charset is utf-8.
  static void qEncodeData(const unsigned char* data, long length, const char* charset, StringBuffer& out);
  /// Appends this node's header rendered for the email's charset. The flag has no effect.
  void getQBEncodedMimeHeader(StringBuffer& out, LogBase& log, bool) const;
  /// @}

  /// @name 7. Structure: enclosures and alternatives
  /// @{
  bool isMultipart() const;
  bool isMultipartMixed() const;  ///< Also multipart/x-mixed-replace.
  bool isMultipartAlternative() const;
  bool isMultipartRelated() const;
  bool isMultipartDigest() const;
  bool isMultipartReport() const;
  /// First node of that type, this one included, depth-first; borrowed, null when none.
  Email2* findContentType(const char* contentType) const;
  /// Finds the nearest enclosure, this node included.
  /// @param kind   an EnclosureKind; anything else finds nothing.
  /// @param level  levels already descended; callers pass 0. Nodes below level 4 are not seen.
  /// @return borrowed; null when there is none.
  Email2* findMultipartEnclosure(int kind, int level) const;
  /// The same, also reporting parent, index and level; when this node itself matches only the level is set.
  Email2* findMultipartEnclosureV2(int kind, int level, _svParentEmailPtr& parent);

  /// Makes this node an enclosure of the given type whose first child holds the node's former content. Header
  /// fields that belong to the message stay here.
  void convertToMultipartX(const char* multipartType, LogBase& log);
  /// Empty enclosures with a fresh boundary, owned by the caller; null when memory ran out.
  static Email2* createEmptyMultipartDigest(_svEmailCommon& common, LogBase& log);
  static Email2* createEmptyMultipartRelated(_svEmailCommon& common, LogBase& log);
  static Email2* createEmptyMultipartAlternative(_svEmailCommon& common, LogBase& log);
  bool addAlternativeEnclosure(LogBase& log);
  /// The alternative enclosure, made when missing; borrowed, null on failure.
  Email2* ensureAlternativeEnclosure(LogBase& log);
  /// Removes the first alternative of that content type.
  void removeAlternative(const char* contentType, LogBase& log);

  /// Appends the text bodies beneath this node, at most one per content type, borrowed.
  void enumerateAlternatives(const Email2& root, ExtPtrArray& out);
  void checkAddEmailUniqueContentType(const Email2* candidate, ExtPtrArray& list) const;
  /// Whether this node must never count as an alternative.
  bool isNotAlternativeBody();
  int getNumAlternatives();
  Email2* getAlternative(const Email2& root, int index);
  bool getAlternativeContentType(int index, StringBuffer& out, LogBase* log);
  bool getAlternativeBodyData(const Email2& root, int index, DataBuffer& out, LogBase& log);
  bool getAlternativeBodyMb(const Email2& root, int index, DataBuffer& out, int codePage, LogBase& log);
  /// -1 when there is none. Deliberate: 0, not -1, on a dead node.
  int getAlternativeIndexByContentType(const char* contentType);
  int getPlainTextAlternativeIndex();
  int getHtmlAlternativeIndex();
  Email2* getAlternativeByContentType(const char* contentType);
  Email2* getPlainTextAlternative();
  Email2* getHtmlAlternative();
  /// @}

  /// @name 8. Bodies
  /// A part's body is stored decoded, text in utf-8. `root` is passed on to the enumeration of the alternatives.
  /// @{

  /// Appends the plain-text or HTML body as utf-8. A delivery report's plain text is its first part.
  /// @return false when there is none; an empty body is a success.
  bool getPlainTextBodyUtf8(const Email2& root, StringBuffer& out, LogBase& log);
  bool getHtmlBodyUtf8(const Email2& root, StringBuffer& out, LogBase& log);
  /// The same in quoted-printable, without charset conversion. Deliberate: these look at the first part of each
  /// multipart on the way down and at nothing beside it. The second buffer is neither read nor written.
  bool getPlainTextBodyQP(const Email2& root, StringBuffer& out, StringBuffer&, LogBase& log);
  bool getHtmlBodyQP(const Email2& root, StringBuffer& out, StringBuffer&, LogBase& log);
  /// Whether such a body is found on the way of the QP forms.
  bool hasPlainTextBody();
  bool hasHtmlBody();
  Email2* findPlainTextPart();  ///< Borrowed.
  /// Appends the bytes of the leaf that a reader would see as this node's body.
  /// Deliberate: when that leaf is application, image, video or audio, `out` is emptied instead.
  /// @return false when there is no such leaf or it is one of those.
  bool getEffectiveBodyData(const Email2& root, DataBuffer& out, LogBase& log) const;
  /// Replaces `out` by the effective body in a code page; below 1 and 65001: as it is stored. Characters that the
  /// code page does not have become "?".
  void getEffectiveBodyMb(const Email2& root, int codePage, DataBuffer& out, LogBase& log) const;
  /// The body that holds this part's content, to be read or changed in place; borrowed, null when there is none.
  DataBuffer* getEffectiveBodyObject3(const Email2& root);
  bool equalsContentType(const char* type) const;

  /// Sets the body of a type wherever it belongs: an existing body of that type is replaced, in a multipart a body
  /// of another type joins it, and a single part is replaced whatever it holds: to keep what is there, use
  /// addAlternativeBody.
  /// @param data      moved from when it is stored, as in all of these but setBodyDb; utf-8 when `isText`.
  /// @param type      overwritten when it is a multipart, which no body can be: by text/plain or
  ///                  application/octet-stream, with an error in the log.
  /// @param outPart   receives the node that holds the body, borrowed; null when it failed. Deliberate: also null
  ///                  when HTML replaced an empty first text part of a multipart/mixed. May be null.
  bool setBody(DataBuffer& data, bool isText, StringBuffer& type, Email2** outPart, LogBase& log);
  /// Adds or replaces an alternative, making the enclosure when there is none. HTML goes into a
  /// multipart/related when there is one.
  bool addAlternativeBody(DataBuffer& data, bool isText, StringBuffer& type, Email2** outPart, LogBase& log);
  /// Replaces the first subpart of that type in an enclosure, or inserts a new one: plain text first, HTML first
  /// when asked for, everything else last.
  bool replaceOrAddNonMultipart(Email2* enclosure, bool htmlFirst, DataBuffer& data, bool isText,
                                StringBuffer& type, Email2** outPart, LogBase& log);
  /// Makes a node hold this body. An empty type keeps the present one; a text body in code page 0 keeps its
  /// transfer encoding, everything that is no text gets base64.
  static bool replaceEmailBody(Email2* target, DataBuffer& data, bool isText, int codePage,
                               StringBuffer& type, LogBase& log);
  /// A new part with these settings, owned by the caller; null without shared settings.
  Email2* createNonMultipart(DataBuffer& data, bool isText, int codePage, StringBuffer& type, LogBase& log);
  /// Puts a ready part into the alternative enclosure in place of the alternative of that type. Takes `part` over
  /// when it returns true.
  bool addReplaceAlternative(Email2* part, const char* type, LogBase& log);
  void setBodyDb(const DataBuffer& data);  ///< Copies; nothing else changes.

  /// Chooses the email's charset for a new text, or widens it to utf-8 when the text does not fit.
  void chooseCharsetIfNecessary(const DataBuffer& utf8Text, LogBase& log);
  void chooseCharsetIfNecessaryX(XString& text, LogBase& log);
  /// Brings a received 8-bit body that names no charset to utf-8: utf-8 as it is, else by the header's code
  /// page, iso-8859-1, iso-8859-2. An email that has no charset yet gets the one found.
  void detectAndSetCharset(LogBase& log);
  /// Converts the body from a code page to utf-8; false, with the body untouched, when something in it has no
  /// meaning there.
  bool checkConvertBody(int codePage, LogBase& log);
  /// Repairs of received bodies: utf-16 to utf-8 and NULs to blanks in text; utf-16 to utf-8 in HTML; a PDF
  /// labelled as HTML; quoted-printable for HTML with lines of 2000 characters or more.
  void checkFixEmailTextBody(LogBase& log);
  void checkFixUnicodeHtml(LogBase& log);
  void checkFixNotReallyHtml();
  void checkHtmlLongLineLength(LogBase& log);
  /// Completes the structure of a page and makes its charset META tag name the email's charset.
  void prepHtmlBody(DataBuffer& html, LogBase& log);
  /// The same for the HTML body; false when there is none or no charset is chosen.
  bool updateHtmlMetaCharset(LogBase& log);
  /// Appends the hyperlink URLs of the bodies, repeated ones repeated.
  void captureHyperlinkUrls(ExtPtrArraySb& urls);
  /// Cost of sending by size; signing adds, encrypting multiplies, on every level.
  unsigned getSendCost() const;
  /// @}

  /// @name 9. Attachments
  /// @{

  /// Whether this node is an attachment; `inMixed` says that its parent is a mixed enclosure.
  bool isEmailAttachment(bool inMixed, LogBase& log);
  /// The narrower test used inside related and fax enclosures. The log may be null.
  bool isStrictAttachment(LogBase* log) const;
  void logAttachmentReason(LogBase& log, const char* reason);
  bool isMultipartMixedForAttachmentPurposes() const;
  bool isMultipartFax() const;
  bool attachmentIterate2(bool inMixed, ExtPtrArray& out, int target, LogBase& log);
  int getNumAttachments(LogBase& log);
  Email2* getAttachment(int index);                 ///< Borrowed.
  Email2* getAttachment2(int index, LogBase& log);  ///< Borrowed.
  Email2* extractAttachment(int index);             ///< Owned by the caller.
  bool dropSingleAttachment(int index, LogBase& log);
  void dropAttachments();
  void dropAttachmentsForTempMht(StringBuffer& html, LogBase& log);
  Email2* getNthPartOfType(int index, const char* contentType, bool inlineOnly, bool excludeAttachments,
                           int& count, LogBase& log);
  Email2* findHtmlPart();
  /// @}

  /// @name 10. Making attachments
  /// A new attachment is the last subpart of the node asked, which becomes a multipart/mixed unless it is one.
  /// `contentType` may be null: then the extension of the file name decides. Nothing is added on failure.
  /// @{

  /// A new attachment, owned by the caller. Without a name: "attach.dat". The bytes are copied.
  static Email2* createAttachmentFromDataUtf8(_svEmailCommon& common, const char* fileName,
                                              const char* contentType, const unsigned char* data, int size,
                                              LogBase& log);
  /// Null, with the reason logged, when the file cannot be read.
  static Email2* createAttachmentFromFileX(_svEmailCommon& common, XString& path, const char* contentType,
                                           LogBase& log);
  /// A message/rfc822 part that holds the bytes unchanged, owned by the caller.
  static Email2* createRfc822AttachedMessage(_svEmailCommon& common, DataBuffer& mime, LogBase& log);
  /// @param codePage        that of a text file; 0 when unknown or no text.
  /// @param outContentType  receives the type that the attachment has.
  bool addDataAttachmentUtf8(const char* fileName, const char* contentType, int codePage,
                             const DataBuffer& data, StringBuffer& outContentType, LogBase& log);
  bool addFileAttachmentX(XString& path, const char* contentType, StringBuffer& outContentType, LogBase& log);
  /// Takes `part` over when it returns true.
  bool addAttachment(Email2* part, StringBuffer& outContentType, LogBase& log);
  bool attachMessage(DataBuffer& mime, LogBase& log);
  /// Appends the type of an extension. Deliberate: its first letter must be lower case to be found.
  static void getTypeFromExtension(const char* extension, StringBuffer& out);
  static bool getExtensionFromType(const char* contentType, StringBuffer& out);
  void getContentDisposition(StringBuffer& disposition, StringBuffer& fileName);
  /// @}

  /// @name 11. Addresses
  /// Recipient kinds: 1 To, 2 Cc, 3 Bcc. What other numbers do differs per operation and is kept as it
  /// stands.
  /// @{

  /// Whether address headers in that code page use Q encoded words; false: B.
  bool qbChooseForEmailAddrEncoding(int codePage);
  /// Rewrites the From field; fixes SVX-Bounce-Address at the first sender.
  void updateFromInHeader(LogBase& log);
  void setFromFullUtf8(const char* text, LogBase& log);
  /// Deliberate: an empty name clears the stored name but leaves the From field until the next rewrite.
  void setFromName(const char* name, LogBase& log);
  void setFromAddr(const char* address, LogBase& log);
  void getFromFullUtf8(StringBuffer& out, LogBase& log);
  void getFromNameUtf8(StringBuffer& out, LogBase& log);
  void getFromAddrUtf8(StringBuffer& out);
  /// Replaces `out` by the envelope sender.
  void getSmtpReversePathUtf8(StringBuffer& out, LogBase& log);
  void setReplyToUtf8(const char* text, LogBase& log);
  /// The field is rewritten from the whole list each time: to add many, addMultipleRecip.
  bool addRecipient(int kind, const char* name, const char* address, LogBase& log);
  int addMultipleRecip(int kind, const char* list, LogBase& log);
  void copyRecipients(Email2& source);
  void clearRecipients(int kind);
  void clearBccFromHeader();
  int getNumRecipients(int kind) const;
  bool getRecipientFullUtf8(int kind, int index, StringBuffer& out, LogBase& log);
  bool getRecipientNameUtf8(int kind, int index, StringBuffer& out);
  bool getRecipientAddrUtf8(int kind, int index, StringBuffer& out);
  void getAllRecipients(int kind, StringBuffer& out, LogBase& log);
  void getAllRecipientAddresses(StringBuffer& out);
  bool getAllRecipientAddressesA(ExtPtrArraySb& out, const ExtPtrArray& replacements, LogBase& log);
  bool addRecipientsForType(int kind, ExtPtrArraySb& out, const ExtPtrArray& replacements, LogBase& log);
  static void replaceStringsSb(const ExtPtrArray& replacements, StringBuffer& text);
  /// @}

  /// @name 12. Related items and calendars
  /// Related items are what an HTML body refers to by Content-ID or location. They are numbered from 0 in the
  /// multipart/related that findMultipartEnclosure finds, without its first subpart when that is the HTML body.
  /// @{

  int getNumRelatedItems(LogBase& log);
  /// 1 when the first subpart of this enclosure is the HTML body; else 0.
  /// Deliberate: a body that is not text/html itself, such as an alternative, counts as an item.
  int firstPartNotRelatedItem(LogBase& log);
  Email2* getRelatedItem(int index, LogBase& log);  ///< Borrowed; null when out of range.
  /// Sets a field of an item; false, with an error, when there is none.
  bool setRelatedHeader(int index, const char* name, const char* value, LogBase& log);
  /// Puts a ready item where it belongs: into the related enclosure, else beside the HTML of an alternative, else
  /// beside the text of a multipart/mixed, else beside all that this node holds, in a new enclosure.
  /// Takes `item` over, but for a failure to make the enclosure: then it stays the caller's.
  void addRelatedContent(Email2* item, LogBase& log);
  /// Deliberate: counts from the second subpart, whether or not the first is the HTML body. Where it is not, this
  /// drops the item that getRelatedItem(index + 1) gives.
  void dropRelatedItem(int index);
  /// Destroys every subpart of the enclosure but the first, whatever that is.
  void dropRelatedItems();
  /// Moves attachments whose Content-ID stands in the HTML, byte for byte, into the related enclosure, the last of
  /// them first. A mixed enclosure that is left with nothing but the alternatives becomes them.
  void fixRelated(LogBase& log);

  /// New items, owned by the caller; null when there is no name, or the file cannot be read. A type that is not
  /// given follows from the extension of the name. Deliberate: an unknown extension gives no type at all, and the
  /// part no Content-Type field.
  static Email2* createRelatedFromFileUtf8(_svEmailCommon& common, const char* path, const char* contentType,
                                           LogBase& log);
  static Email2* createRelatedFromDataUtf8(_svEmailCommon& common, const char* name, const char* contentType,
                                           const DataBuffer& data, LogBase& log);
  /// The same, referred to by `name` as its Content-Location (RFC 2557) instead of a generated Content-ID.
  static Email2* createRelatedFromFileNoCid(_svEmailCommon& common, XString& path, XString& name,
                                            LogBase& log);
  static Email2* createRelatedFromDataNoCid(_svEmailCommon& common, const char* name, const DataBuffer& data,
                                            LogBase& log);
  /// A text/calendar body (RFC 6047) with its method, such as "REQUEST"; owned by the caller, who places it.
  /// @param data      moved from; utf-8, like every text body.
  /// @param codePage  becomes the charset of the whole email; 0 leaves that as it is.
  static Email2* createCalendarAlternativeUtf8(_svEmailCommon& common, DataBuffer& data, const char* method,
                                               int codePage, LogBase& log);
  /// @}

  /// @name 13. Attached messages, digests, reports
  /// Positions start at 0. They are found in multipart/mixed and multipart/report, and there in nested
  /// multipart/mixed (parts of reports in nested multipart/report too); below any other node every child is
  /// looked at. Deliberate: getting an attached message counts through nested enclosures, removing one and
  /// reading a part of a report count afresh in each.
  /// @{

  /// An attached message is a part of type message/rfc822, this node included. Its type and that of every node
  /// on the way are logged, however quiet the log.
  int getNumAttachedMessages(LogBase& log);
  /// Parses the index-th attached message into a tree of its own; owned by the caller, null when there is none.
  /// What is attached to it in turn is not parsed. This tree is not changed, but the new one shares its settings:
  /// loading records the limits it met there, and the message's charset when none was recorded yet; otherwise the
  /// charset in which new text goes out is the one that is there already. Whether and how this message is to be
  /// sent stays.
  /// @param counter  0 at the call; afterwards how many were passed over.
  /// @param certs    what signed and encrypted layers are opened with. The log option "NoUnwrapAttachedMessage"
  ///                 leaves them on.
  Email2* getAttachedMessage(int index, int& counter, SystemCerts& certs, LogBase& log);
  /// Replaces `out` by a parameter of a header field of the part that holds the index-th attached message; for
  /// filename of Content-Disposition, by the name that the part has. False when it is empty or there is none.
  /// Deliberate: where a nested enclosure was searched in vain and the next message would be the one, the
  /// enclosure around it is given up.
  bool getAttachedMessageAttr(int index, int& counter, XString& fieldName, XString& attrName, LogBase& log,
                              XString& out);
  /// Destroys the index-th attached message of some enclosure. Deliberate: one that is not directly in a
  /// multipart/mixed or multipart/report stays, and what follows a destroyed node there is not reached.
  bool removeAttachedMessage(int index);
  void removeAttachedMessages();  ///< All that can be removed.
  /// Entries of this multipart/digest; 0 for any other node, whatever is below it.
  int getNumDigests();
  /// Like getAttachedMessage, for an entry of this multipart/digest; layers are always opened. Deliberate: no
  /// entry above position 10000 is given.
  Email2* getNthDigest(int index, SystemCerts& certs, LogBase& log);
  /// Whether this is a part of a report: message/* but no attached message, or text/rfc822-headers.
  bool isReportPart() const;
  int getNumReports();
  /// Replaces `out` by the body of the index-th part of a report; false, with `out` emptied, when there is none.
  bool getReport(int index, LogBase& log, StringBuffer& out);
  /// Replaces `out` by a parameter of one of this node's own header fields; false, with `out` emptied, when field
  /// or parameter is absent.
  bool getHeaderFieldAttr(const char* fieldName, const char* attrName, XString& out, LogBase& log);

  /// The delivery status is the first message/delivery-status in the tree, else the first
  /// message/disposition-notification, else the first message/feedback-report (RFC 3464, 8098, 5965). Without
  /// one, or when it is empty: false, with an error.

  /// Replaces `out` by a field of the delivery status; false when it is absent or empty. Of a field that every
  /// recipient has, this is the first recipient's.
  bool getDeliveryStatusInfo(const char* fieldName, XString& out, LogBase& log);
  /// Appends the address of each Final-Recipient; true when there is none, too. Deliberate: what follows two
  /// empty lines in a row is not seen.
  bool getDsnFinalRecipients(ClsStringArray& out, LogBase& log);
  /// Replaces `out` by the delivery status as it stands; bytes that are no utf-8 become U+FFFD.
  bool getDeliveryStatusContent(XString& out, LogBase& log);
  /// @}

  /// @name 14. Transformations of whole messages
  /// @{

  /// Turn a received message, in place, into an answer to its sender or into one to pass on. Its text is quoted
  /// behind a head that names it, in the plain text and in the HTML; received recipients, tracing fields and every
  /// "X-" field go; date and Message-ID are new. There is no sender until the caller sets one, and threading fields
  /// are left to the caller too. The answer goes to the From address, whatever Reply-To says.
  /// Deliberate: where the parts hold no body to quote, all stops with the fields half changed. What came to its
  /// end has an X-Priority field.
  void convertToReply(LogBase& log);
  void convertToForward(LogBase& log);
  /// Removes what delivery left in the header: Received and all that begins with "DKIM-", "SVX-" or "X-".
  void removeHdrsForwRepl(LogBase& log);

  /// A deep copy with settings of its own; owned by the caller, null when memory ran out. It is written as this
  /// tree is, signed content byte for byte.
  /// @param shareImageData  the copies of images and PDFs refer to the bytes of this tree instead of copying them.
  ///                        This tree must then outlive the copy, those bodies unchanged; a copy whose body is
  ///                        changed gets bytes of its own first.
  Email2* clone_v3(bool shareImageData, LogBase& log);
  /// The same with nodes that share `common`, whatever the settings of this tree are.
  Email2* clone_v3_inner(_svEmailCommon& common, bool shareImageData, LogBase& log);
  /// A copy in which every key of the pairs (StringPair) is replaced by its value; ownership and lifetime as for
  /// clone_v3. Cheaper than both steps: a text that changes is not copied first.
  Email2* cloneAndReplace_v3(bool shareImageData, const ExtPtrArray& pairs, LogBase& log);
  /// Replaces every key by its value, pair by pair, in the text bodies, header fields and addresses of the whole
  /// tree. Keys match case, and what the reader sees: bodies as utf-8, names and subjects decoded. What a key does
  /// not occur in is not touched; what changes is encoded for what it now holds, and members follow their fields.
  /// No line break gets into a header field. The pairs must not be part of the tree.
  void replaceStrings(const ExtPtrArray& pairs, LogBase& log);

  /// A copy without attachments, ready to be kept as a web archive: an only text/plain body, or alternative, gets a
  /// page made from it. Owned by the caller. What is neither, such as a multipart/mixed, comes without a page.
  /// Deliberate: text that becomes HTML is not escaped, and a charset META tag is added to the page of a single
  /// part, not to an alternative. Output and tag name the same charset in any case.
  /// @param html  what may refer to parts: those whose Content-ID stands in it are kept.
  Email2* cloneToMht2(StringBuffer& html, LogBase& log);

  /// In a multipart/mixed without alternatives: moves a first text/plain into a new alternative enclosure.
  /// Deliberate: an attached text too; who must not move one asks first.
  void moveMtMixedPlainTextToAlt(LogBase& log);
  /// Moves the first text/html subpart of one node to the end of another's.
  static void checkMoveHtmlToRelated(Email2& from, Email2& to, LogBase& log);
  /// Gives every part a transfer encoding that survives transport, whatever is done to 8-bit bytes on the way.
  /// Multiparts stay as they are.
  void safeguardBodies(LogBase& log);
  /// Reduces every file name, in both fields that may hold one, to what follows its last "/" or "\". A part
  /// without a Content-Disposition gets none.
  void removeAttachmentPaths(LogBase& log);
  /// Replaces the HTML body by what _svHtml::unSpam leaves of it. Nothing for an empty one.
  void unSpamify(LogBase& log);
  /// @}

  /// @name 15. XML and diagnostics
  /// @{

  /// Replaces `out` by the tree as an XML document, compact or indented: a `mime_message` with the header fields and
  /// one `body`, which holds the parts (`subpart`, each with a `mime_message`) and then the node's own body in its
  /// transfer encoding, text in utf-8 whatever the Content-Type says. Parts nested deeper than 80 levels, which XML
  /// parsers would refuse, are given as MIME in the text of the part that holds them. Changes transfer encodings as
  /// safeguardBodies does.
  /// @return false, with `out` untouched, only when no document could be made.
  bool getEmailXml(bool compact, StringBuffer& out, LogBase& log);
  /// Fills an element (base/Xml.h), named mime_message by the caller, with this node and everything below it.
  /// @return false when the node is not live or memory ran out. Deliberate: a failing subpart does not make it
  ///         false.
  bool getEmailXmlR(ClsXml& node, LogBase& log);
  /// Logs the tree, one context per node, named by its type with "_" for "/". `scratch` is overwritten.
  void logEmailStructure(StringBuffer& scratch, LogBase& log);
  /// Logs the transfer encoding and the two fields behind it and the type, empty ones too.
  void logContentTypeAndEncoding(LogBase& log);
  /// @}

  /// @name 16. Secure mail
  /// Signing and encrypting make a new message, owned by the caller; the one they are called on stays as it is.
  /// Certificates are borrowed from the caller and counted.
  /// @{

  /// A multipart/signed (RFC 8551, 3.5.3): the message as output writes it, without internal "SVX-" fields, and
  /// a signature over exactly those bytes. The first part of the result is written as it was signed for as long
  /// as nothing in it is changed.
  /// @param signingTime         the time of signing and the ciphers understood go along.
  /// @param signingCertificate  ties the signature to this very certificate (signing-certificate-v2).
  /// @param includeChain        the certificates above the signer's go along.
  /// @param filename            of the signature part; null: none.
  /// @return null without shared settings, without a certificate, or when signing failed. A certificate found by
  ///         the sender's address is remembered in the shared settings.
  Email2* createMultipartSigned(bool signingTime, bool signingCertificate, bool includeChain,
                                _clsCades& cades, const char* filename, SystemCerts& certs, LogBase& log);
  /// An application/pkcs7-mime that holds content and signature (RFC 8551, 3.5.2). Internal fields are signed
  /// along.
  Email2* createSignedData(bool signingTime, bool signingCertificate, bool includeChain, _clsCades& cades,
                           const char* filename, SystemCerts& certs, LogBase& log);
  /// Appends the fields of `source`, but for those that belong to its content or ask for a receipt. true.
  bool copyHeadersForMultipartSigned(MimeHeader& source, LogBase& log);
  /// The digest named in the Content-Type, which is also the one that signing uses; empty is sha1.
  /// Deliberate: blanks around it stay, those around the protocol go.
  void setMicalg(const char* micalg, LogBase& log);
  void getMicalg(StringBuffer& out);

  /// An application/pkcs7-mime encrypted to the certificates set here, or else to those of every recipient.
  /// Null also when one recipient has no certificate; the log names every one of them.
  /// @param cipher, keyBits, keyTransport, oaepHash, bySubjectKeyId  as Pkcs7Builder::createPkcs7Enveloped has
  ///                 them.
  Email2* createPkcs7Mime(int cipher, int keyBits, int keyTransport, int oaepHash, bool bySubjectKeyId,
                          const char* filename, SystemCerts& certs, LogBase& log);
  /// Encrypts every body in place; the tree and its header fields stay readable. Deliberate: the ciphertext is
  /// base64 text under a base64 transfer encoding, so it travels encoded twice. Nodes done before a failure
  /// stay changed.
  bool aesStandardEncryptAnsi(SymmetricCipher& cipher, _svSymSettings& settings, LogBase& log);
  /// @param bodyIsBinary  false: bodies that are base64 text are decoded first.
  bool aesStandardDecryptAnsi(SymmetricCipher& cipher, bool bodyIsBinary, _svSymSettings& settings,
                              LogBase& log);

  void setSigningCert(Certificate* certificate);  ///< Must not be null.
  Certificate* getSigningCert(LogBase& log);      ///< Borrowed; null when there is none.
  void addEncryptCert(Certificate* certificate);  ///< Null is ignored.
  void setEncryptCert(Certificate* certificate);
  void clearEncryptCerts();
  Certificate* getEncryptCert(LogBase& log);  ///< The first; borrowed.

  /// Records one unwrapped layer. The first report sets a flag, later ones can only clear it.
  void accumulateSecurityInfo(bool secure, bool signaturesValid, bool decrypted, int numSigned,
                              int numEncrypted);
  bool getAllSignaturesValid() const;  ///< These four do not check the marker.
  bool getAllDataDecrypted() const;
  bool getSendSigned() const;
  bool getSendEncrypted() const;
  void setSendSigned(bool sendSigned);
  void setSendEncrypted(bool sendEncrypted);
  /// Whether a signed layer was taken off, or this very node is a signature that was left in place.
  bool getReceivedSigned() const;
  /// Whether an encrypted layer was taken off, or this very node is application/pkcs7-mime, of whatever kind.
  bool getReceivedEncrypted() const;
  Certificate* getSignedBy(int index, LogBase& log);     ///< Borrowed; null beyond the end.
  Certificate* getEncryptedBy(int index, LogBase& log);  ///< Borrowed; null beyond the end.
  /// @}

  /// What the attachment decision looks at; views into this node.
  PartTraits traits() const noexcept;
  /// Code page of the email's charset; 0 without shared settings.
  int emailCodePage() const noexcept { return m_common ? m_common->m_charset.getCodePage() : 0; }

  std::uint32_t m_magic;               ///< kEmailMarker while alive.
  _svEmailCommon* m_common = nullptr;  ///< One reference held.
  int m_attachCodePage = 0;            ///< Code page recorded for a strict attachment; 0: none.
  DataBuffer m_body;                   ///< Decoded body; text in utf-8.
  ExtPtrArray m_subParts;              ///< Email2 children, owned.
  MimeHeader m_header;
  ExtPtrArray m_toAddrs;  ///< _svEmailAddress, owned; so are the next two.
  ExtPtrArray m_ccAddrs;
  ExtPtrArray m_bccAddrs;
  _svEmailAddress m_fromAddr;
  SorvikSysTime m_date;
  StringBuffer m_disposition;  ///< Content-Disposition type.
  StringBuffer m_transferEncoding;
  StringBuffer m_contentId;
  _svContentType m_contentType;
  StringBuffer m_dispFilename;  ///< filename parameter of the Content-Disposition.
  RepairSet m_repairs;          ///< What loading had to mend in this part.
  Origin m_origin = kNoOrigin;  ///< Of the part in the text it was loaded from.
  /// For signed content as it was received: its exact bytes, written back for as long as nothing in it
  /// changed.
  std::unique_ptr<ReceivedContent> m_received;

 private:
  friend class SlabPool<Email2>;
  friend void destroyInSlab<Email2>(Email2* object) noexcept;
  struct Blank {};
  /// What every constructor begins with: members empty, marker set, one reference to `common` taken.
  Email2(_svEmailCommon& common, Blank) noexcept;
  void initializeDefaults();
  _svCharset& emailCharset(_svCharset& fallback) const noexcept {
    return m_common ? m_common->m_charset : fallback;
  }

  Slab* m_slab = nullptr;  ///< In which it lives, if it does.
};

/// Owner of a node.
using EmailPtr = Owned<Email2>;

}  // namespace mailtree
