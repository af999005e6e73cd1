// email/Email2.h - a node of an email tree: a message or a part of one. mailtree.h is the floor above it.
//
//   Ownership  A parent owns its subparts. get* and find* return borrowed pointers, create* and extract*
//              return nodes that the caller owns, insert* and add* take ownership. EmailPtr is the owner to
//              use. Lists filled by enumerations hold borrowed pointers.
//   Failure    false, 0, -1 or null, with the reason in the LogBase. Nothing throws.
//   Text       utf-8 in and out, unless the name ends in Ansi or Mb. Sizes are in bytes, indexes start at 0.
//   Names      Header fields, parameters and media types are matched without regard to case.
//   Markers    Every operation first checks the node's validity marker. On a destroyed node it does nothing
//              and returns false, 0, null or an empty result, without a message. Exceptions are noted.
//   Threads    One thread at a time for each tree; different trees are independent.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
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

/// Kinds of multipart enclosure, numbered as in the enclosure search.
enum class EnclosureKind : int { mixed = 1, alternative = 2, related = 3, digest = 4, report = 5 };

/// Recipient kinds, numbered as in the address operations.
enum class RecipientKind : int { to = 1, cc = 2, bcc = 3 };

class MAILTREE_API Email2 final : public NonRefCountedObj, public ExpressionTermSource {
 public:
  // Contents                                     defined in email/             tested in tests/email/
  //   1  Life, subparts, shared settings         model/node.cpp                node_test.cpp
  //   2  Header fields                           model/headers.cpp             headers_test.cpp
  //   3  Content attributes                      model/content_fields.cpp      headers_test.cpp
  //   4  Identifiers, dates, file names          model/identifiers.cpp         identifiers_test.cpp
  //   5  Loading                                 loading/*.cpp                 loading_test.cpp
  //   6  Output                                  output/*.cpp                  assembly_test.cpp
  //                                                                            roundtrip_test.cpp
  //                                                                            received_content_test.cpp
  //   7  Structure: enclosures and alternatives  structure/enclosures.cpp      structure_test.cpp
  //                                              structure/construction.cpp
  //                                              structure/alternatives.cpp
  //   8  Bodies                                  bodies/*.cpp                  bodies_test.cpp
  //   9  Attachments                             structure/attachments.cpp     attachments_test.cpp
  //  10  Making attachments                      creation/attachments.cpp      creation_test.cpp
  //  11  Addresses                               addresses/*.cpp               addresses_test.cpp
  //  12  Related items and calendars             structure/related.cpp         related_test.cpp
  //                                              creation/related.cpp
  //                                              creation/calendar.cpp
  //  13  Attached messages, digests, reports     structure/messages.cpp        messages_test.cpp
  //                                              structure/reports.cpp         messages_test.cpp
  //  14  Transformations of whole messages       transform/reply_forward.cpp   transform_test.cpp
  //                                              transform/clone.cpp           clone_test.cpp
  //                                              transform/mht.cpp             transform_test.cpp
  //                                              transform/tidy.cpp            transform_test.cpp
  //  15  XML and diagnostics                     output/xml.cpp                transform_test.cpp
  //                                              output/diagnostics.cpp        diagnostics_test.cpp
  //  16  Secure mail (tests in tests/secure/)    ../secure/signing.cpp         signing_test.cpp
  //                                              ../secure/enveloping.cpp      signing_test.cpp
  //                                              ../secure/symmetric.cpp       symmetric_test.cpp
  //                                              ../secure/message_certificates.cpp
  //                                              ../secure/security_state.cpp  unwrap_test.cpp

  /// @name 1. Life, subparts, shared settings
  /// @{

  /// A new message with its own settings and the default header fields, in this order: MIME-Version, Date,
  /// Message-ID, Content-Type (text/plain), Content-Transfer-Encoding (7bit), X-Priority.
  Email2();
  /// The same, sharing `common`, which must be on the heap.
  explicit Email2(_svEmailCommon& common);
  /// A bare node sharing `common`: no header fields, empty content type and transfer encoding, current date.
  /// The integer only selects this overload.
  Email2(_svEmailCommon& common, int);
  /// The same, dated `created`. Saves a clock reading per node when many are made.
  Email2(_svEmailCommon& common, const SorvikSysTime& created);
  Email2(const Email2&) = delete;
  Email2& operator=(const Email2&) = delete;
  /// Destroys the whole subtree, without recursion. A wrong marker is counted and ignored.
  ~Email2() override;
  static void operator delete(Email2* node, std::destroying_delete_t) noexcept { destroyInSlab(node); }

  /// A new message, or a bare node, sharing `common`. Null when memory ran out, as for createNewObject00.
  static Email2* createNewObject(_svEmailCommon& common);
  static Email2* createNewObject0(_svEmailCommon& common);
  /// A bare node with its own settings.
  static Email2* createNewObject00();

  /// Whether this node and every member that carries a marker are intact.
  bool isValidEmailObject() const;
  /// Whether this node's own marker is intact. Every operation checks this first.
  bool isLive() const noexcept { return hasMarker(m_magic, kEmailMarker); }
  /// Frees spare capacity of the text members of this node; the body is not touched.
  void minimizeMemUsage();

  int getNumParts() const;
  /// The child at an index, borrowed; null when out of range.
  Email2* getPart(int index) const;
  const Email2* getPartConst(int index) const;
  /// Removes a child, which the caller then owns; null when out of range. Does not check the marker.
  Email2* extractSubpartByIndex(int index);
  /// Inserts `part` before `index` and takes ownership; a negative index or one past the end appends. Null is
  /// ignored. Does not check the marker.
  void insertSubPartAtIndex(Email2* part, int index);
  /// Replaces a child with `part` and takes ownership; null only removes it. Does not check the marker.
  /// Deliberate: the old child is not destroyed; the caller is expected to hold it already.
  void replacePartAt(int index, Email2* part);
  /// Exchanges the whole child lists. Does not check the marker.
  void swapChildren(Email2& other);
  /// Exchanges the parsed content types. Does not check the marker. Deliberate: the Content-Type
  /// fields are not rewritten.
  void swapContentType(Email2& other);
  void removeAllSubparts();  ///< Destroys all children.

  /// Whether saving may overwrite a file; true without shared settings. The getter does not check the marker.
  void setOverwriteExisting(bool overwrite);
  bool getOverwriteExisting() const;
  /// Message number or identifier on a mail server; -1 for none. The getter does not check the marker.
  void setIdOnServer(int id);
  int getIdOnServer() const;
  /// Name of the email's charset; empty, never null, without shared settings.
  const char* get_charset_name() const;
  int get_charset_codepage() const;  ///< 0 without shared settings.
  /// Sets the email's charset, in which output writes all its text. Bodies are not changed: they are utf-8.
  void use_charset(_svCharset& charset);
  /// The same by code page; 0 is ignored.
  void use_codepage(int codePage);

  /// The value of a term: "body" (ignoring case) appends the effective body; any other term replaces `out` by
  /// the decoded header field of that name.
  void supplyTermValue(const char* term, StringBuffer& out) override;
  /// @}

  /// @name 2. Header fields
  ///
  /// Values are read unfolded and decoded (RFC 2047), in utf-8. The fields that the model interprets are also
  /// held as parsed members; the setters keep both in step.
  /// @{

  /// Replaces `out` with the first field of that name; false, with `out` emptied, when it is missing.
  bool getHeaderFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const;
  bool getHeaderFieldX(const char* name, XString& out, LogBase& log) const;
  int getNumHeaderFields() const;
  /// Replaces `out` with name or value of the index-th field; false, with `out` emptied, past the end.
  bool getHeaderFieldName(int index, StringBuffer& out, LogBase& log) const;
  bool getHeaderFieldValue(int index, StringBuffer& out, LogBase& log) const;
  bool hasHeaderField(const char* name, LogBase& log) const;
  /// Whether some field of that name has a decoded value that matches the pattern; "*" matches any text.
  bool hasHeaderMatchingUtf8(const char* name, const char* pattern, bool caseSensitive, LogBase& log) const;
  /// Subject, Reply-To, X-Mailer and X-UIDL, as getHeaderFieldUtf8 reads them.
  bool getSubjectUtf8(StringBuffer& out, LogBase& log) const;
  bool getReplyToUtf8(StringBuffer& out, LogBase& log) const;
  bool getMailerUtf8(StringBuffer& out, LogBase& log) const;
  bool getUidlUtf8(StringBuffer& out, LogBase& log) const;

  /// Sets a field. Date, From, Reply-To, Content-ID, Content-Type and Content-Transfer-Encoding also set
  /// the parsed members; any other is only stored. CR and LF are removed. A null value removes the field; a
  /// null or empty name does nothing. Deliberate: From without "@" sets the display name only, and the
  /// field holds just that name.
  void setHeaderField(const char* name, const char* value, LogBase& log);
  /// @param asGiven  the value is already encoded: it is only folded when written.
  void setHeaderField_a(const char* name, const char* value, bool asGiven, LogBase& log);
  /// Appends a field even when one of that name exists. The six fields above are replaced.
  /// A null value adds nothing.
  void addHeaderField2(const char* name, const char* value, LogBase& log);
  /// @param asGiven  as for setHeaderField_a; no effect on the six fields.
  void addHeaderField2_a(const char* name, const char* value, bool asGiven, LogBase& log);
  /// Removes every field of that name and clears the parsed member it sets.
  /// Deliberate: removing "Bcc" leaves the Bcc recipients in place.
  void removeHeaderField(const char* name);
  /// Sets a field of the index-th attachment; false, with an error, when there is none.
  bool setAttachmentHeader(int index, const char* name, const char* value, LogBase& log);
  /// Replaces header, parsed members, sender and recipients with those of `source`. Body and children stay.
  void copyHeader(Email2& source, LogBase& log);
  /// @}

  /// @name 3. Content attributes
  ///
  /// Each setter changes the parsed member and its header field.
  /// @{

  /// Replace `out` with the media type, the transfer encoding, or the name parameter of the Content-Type.
  void getContentType(StringBuffer& out) const;
  void getContentEncoding(StringBuffer& out) const;
  void getName(StringBuffer& out);
  void getContentId(StringBuffer& out) const;       ///< Appends, angle brackets included.
  void getAttachmentName(StringBuffer& out) const;  ///< Appends the name parameter.

  /// Replaces the whole Content-Type (RFC 2045). Any text may be null. A null or empty type keeps the present
  /// one, or text/plain when there is none; any other null omits its parameter. A code page other than 0 sets
  /// the email's charset for text, message and multipart/signed. Subtype is kept for multipart/related and
  /// ignored for types that contain "multipart".
  void setContentTypeUtf8(const char* type, const char* name, const char* protocol, const char* micalg,
                          int codePage, const char* boundary, const char* smimeType, const char* subtype,
                          LogBase& log);
  /// Rebuilds the Content-Type field from the parsed members. A received field with the same meaning stays.
  void refreshContentTypeHeader(LogBase& log);
  /// Changes the media type and keeps the parameters. Deliberate: the type is stored as
  /// given, case and blanks too.
  void fixContentTypeUtf8(const char* type, LogBase& log);
  /// Sets the media type of the main part of a multipart/related (its type parameter), in lower case.
  void setContentSubtype(const char* subtype, LogBase& log);
  /// Sets the name parameter of the Content-Type. As for the disposition, a name can turn a text body
  /// into a file or back. Output converts bodies to the email's charset but not files, so charset
  /// label or bytes are adjusted.
  void setName(const StringBuffer& name, LogBase& log);
  /// Sets the Content-ID as given: the caller supplies the angle brackets. Null removes the field.
  void setContentId(const char* id, LogBase& log);
  /// Sets the Content-Transfer-Encoding (RFC 2045, 6) of this node. The stored body is always decoded and
  /// does not change. Null or empty removes the encoding.
  void setContentEncodingNonRecursive(const char* encoding, LogBase& log);
  /// Sets the encoding of every text and edifact part of the subtree. Deliberate: this node gets the
  /// member even when it is neither.
  void setContentEncodingRecursive(const char* encoding, LogBase& log);
  /// The same without that exception for this node.
  void setContentEncodingInner(const char* encoding, LogBase& log);
  /// Sets the encoding that suits text in a code page: 7bit for us-ascii, base64 for East Asian code pages
  /// (932 to 950, 50220 to 54936), quoted-printable for all others. The second integer is ignored.
  void setEncodingViaCodePage(int codePage, int, LogBase& log);
  /// Sets the Content-Disposition type (RFC 2183), such as "attachment"; the file name stays. See setName.
  void setContentDisposition1(const char* disposition, LogBase& log);
  /// Sets disposition type and file name. A null or empty name removes the filename parameter.
  void setContentDispositionUtf8(const char* disposition, const char* filename, LogBase& log);
  /// Sets the file name in the Content-Disposition; the type stays.
  void setFilenameUtf8(const char* filename, LogBase& log);
  /// Replaces `out` with the decoded file name: the filename of the disposition, else the name parameter,
  /// else a Content-Location with a dot in it, else "attachedFile" with the extension of the media type.
  void getFilenameUtf8(StringBuffer& out, LogBase& log) const;
  /// @}

  /// @name 4. Identifiers, dates, file names
  /// @{

  /// Replaces the Message-ID with a new random one. False, with an error, when the host has no random bytes.
  bool generateMessageID(LogBase& log);
  /// Sets a new Content-ID. False when the host has no random bytes: it is then set, but may not be unique.
  bool generateContentId(LogBase& log);
  /// Sets the date from RFC 5322 text; other text is logged and does not change the date.
  /// @param setField  also stores the text in the Date field, date or not; null removes the field.
  void setDate(const char* rfc822, LogBase& log, bool setField);
  void resetDate(LogBase& log);            ///< To the current time, in the host's zone.
  void getDate(SorvikSysTime& out) const;  ///< In GMT.
  /// Appends a file name that sorts by date and does not collide, ending in ".eml".
  /// Takes at least a millisecond.
  void genEmailFilename(StringBuffer& out) const;
  static void genEmailFilename2(const SorvikSysTime& time, StringBuffer& out);
  /// @}

  /// @name 5. Loading
  ///
  /// Any input gives a tree, owned by the caller; null only when memory ran out. Its nodes share `common`,
  /// which also receives what was found out about the signatures and encrypted layers.
  /// - `discardInput` empties the input once it is parsed, to save memory.
  /// - `unwrap` opens signed and encrypted layers with the keys in `certs`. A message whose top is
  ///   multipart/mixed keeps its layers.
  /// - `parseOption` has no effect.
  /// @{

  /// From MIME text.
  static Email2* createFromMimeText2(_svEmailCommon& common, StringBuffer& mime, bool discardInput,
                                     bool unwrap, SystemCerts& certs, LogBase& log, bool parseOption);
  /// From `size` bytes, which are only read; a size of 0 or less is an empty message. Layers are unwrapped.
  static Email2* createFromMimeText2a(_svEmailCommon& common, const char* text, int size, SystemCerts& certs,
                                      LogBase& log, bool parseOption);
  /// From bytes. Also joins the parts of a multipart/related that was split into several.
  static Email2* createFromMimeDb(_svEmailCommon& common, DataBuffer& mime, bool discardInput, bool unwrap,
                                  SystemCerts& certs, LogBase& log, bool parseOption);
  /// From a POP3 download (RFC 1939). Undoes the dot-stuffing in `raw` first, and removes directories from
  /// file names. Deliberate: the top level is not normalized.
  static Email2* createFromPop3(_svEmailCommon& common, DataBuffer& raw, bool unwrap, SystemCerts& certs,
                                LogBase& log);

  /// Normalises the top level of a parsed message: joins duplicate To, Cc and Bcc fields, puts a lone
  /// attachment into a multipart/mixed, and makes alternatives of plain text and HTML side by side.
  static void loadFromMimeTextProcessing(MimeMessage2& tree, LogBase& log);
  /// Makes alternatives of the first plain text and the first HTML part of a multipart/mixed. With exactly
  /// two parts it becomes a multipart/alternative itself; otherwise a new one becomes its first part.
  static void transformMmToMa(MimeMessage2& mixed, LogBase& log);
  /// Builds the tree from a parsed entity. Header fields are moved out of `entity`.
  /// @param extractBody  true: bodies are moved too; false: they are copied.
  static Email2* createFromMimeObject2(_svEmailCommon& common, MimeMessage2& entity, bool extractBody,
                                       bool unwrap, LogBase& log, SystemCerts& certs);

  /// Splits a text with uuencoded blocks: the text before the first block becomes the plain-text
  /// body of `email`, the first block named ".htm" its HTML body, every other block an
  /// attachment. `text` is only read.
  /// @return false, with `email` unchanged, when there is no block.
  static bool splitOutlookHtmlUU(StringBuffer& text, Email2& email, LogBase& log);

  void getRawBodyThisPart(DataBuffer& out) const;  ///< Replaces `out` by a copy of the body.
  void getRawBodyUtf8(XString& out);               ///< Appends the body as text. Does not check the marker.
  void getNonMultipartBodyData(DataBuffer& out) const;  ///< Appends the body.
  const DataBuffer* getNonMultipartBody3() const;       ///< The body, borrowed.
  /// @}

  /// @name 6. Output
  /// @{

  /// Writes this node and everything below it as MIME. Text is converted from utf-8 to the email's charset.
  /// The tree may change on the way: 8bit text becomes quoted-printable, and a part that does not fit the
  /// email's charset is labelled utf-8.
  /// @param text         destination when `sink` is null; appended to.
  /// @param sink         destination when not null.
  /// @param dotStuff     doubles the dot of every line that begins with one (RFC 5321, 4.5.2); only
  ///                     with a sink. Leaves with a bare CR, which some servers take for a line end,
  ///                     are written in base64; signed content and attached messages with a dot after a
  ///                     bare CR make the call fail.
  /// @param omitPrefix   header fields whose names begin with it are omitted in all parts; may be null.
  /// @param depth        0 at the node the caller starts from.
  /// @param qpFor8bit    8bit parts become quoted-printable, except inside attached messages.
  /// @param isTop        true at the node the caller starts from.
  /// @return false when a write failed; earlier output stays in the sink.
  /// Deliberate: a failing subpart does not stop its siblings.
  bool assembleMimeBody2(StringBuffer& text, _svOutput* sink, bool dotStuff, const char* omitPrefix,
                         ProgressContext& progress, LogBase& log, int depth, bool qpFor8bit, bool isTop);
  /// Writes `body` in this node's transfer encoding to the sink, or appends it to `text` when there is none.
  /// The unnamed flag has no effect.
  /// @param normalizeLineEnds  an unencoded body is written with CRLF line breaks.
  bool getEncodedBody(const DataBuffer& body, StringBuffer& text, ProgressContext& progress, LogBase& log,
                      bool, _svOutput* sink, bool dotStuff, bool normalizeLineEnds) const;
  /// Replaces `out` with this node's own body in its transfer encoding; a body with NUL
  /// bytes is given in base64.
  void getMimeBodyEncodedUtf8(StringBuffer& out, LogBase& log);
  /// Estimated size of this subtree as MIME, in bytes.
  unsigned getEmailSize(LogBase& log) const;

  /// Appends one B encoded word (RFC 2047) of any length; nothing for empty data or a null charset. A utf-8
  /// byte order mark is dropped.
  static void bEncodeData(const unsigned char* data, long length, const char* charset, StringBuffer& out);
  /// The same with Q encoding; commas are escaped. An empty charset means utf-8.
  static void qEncodeData(const unsigned char* data, long length, const char* charset, StringBuffer& out);
  /// Appends this node's header as it is written, encoded for the email's charset. The flag has no effect.
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
  /// First node of that media type, depth-first and starting with this one;
  /// borrowed, null when there is none.
  Email2* findContentType(const char* contentType) const;
  /// The nearest enclosure of a kind, which may be this node; borrowed, null when there is none.
  /// @param kind   an EnclosureKind; any other number finds nothing.
  /// @param level  levels already descended; callers pass 0. Nodes below level 4 are not searched.
  Email2* findMultipartEnclosure(int kind, int level) const;
  /// The same; also reports parent, index and level. When this node itself matches, only the level is set.
  Email2* findMultipartEnclosureV2(int kind, int level, _svParentEmailPtr& parent);

  /// Makes this node an enclosure of the given type. Its former content moves to a new first child; the
  /// header fields of the message stay here. An empty plain text gets no child.
  void convertToMultipartX(const char* multipartType, LogBase& log);
  /// New empty enclosures with their own boundaries, owned by the caller; null when memory ran out.
  static Email2* createEmptyMultipartDigest(_svEmailCommon& common, LogBase& log);
  static Email2* createEmptyMultipartRelated(_svEmailCommon& common, LogBase& log);
  static Email2* createEmptyMultipartAlternative(_svEmailCommon& common, LogBase& log);
  /// Adds an empty multipart/alternative as the first child of a multipart/mixed. Any other node becomes a
  /// multipart/alternative with its former content as first child. False when memory ran out.
  bool addAlternativeEnclosure(LogBase& log);
  /// The nearest alternative enclosure, made when missing; borrowed, null on failure.
  Email2* ensureAlternativeEnclosure(LogBase& log);
  /// Destroys the first child of the nearest alternative enclosure that has this type, or is a
  /// multipart/related with it as main type.
  void removeAlternative(const char* contentType, LogBase& log);

  // An alternative is a text body: a text leaf that mail clients show, at most one for each media type.
  // Alternatives are numbered from 0 in the order of enumerateAlternatives. The nodes returned are borrowed;
  // null when there is none.

  /// Appends the alternatives at and below this node. Those in related and alternative enclosures come before
  /// loose texts. `root` is the root of the tree: it counts as a text even without a Content-Type.
  void enumerateAlternatives(const Email2& root, ExtPtrArray& out);
  /// Appends `candidate` unless the list holds it, or another node of its media type.
  void checkAddEmailUniqueContentType(const Email2* candidate, ExtPtrArray& list) const;
  /// Whether this node can never be an alternative: it is an attachment, or of a type that no
  /// mail client shows.
  bool isNotAlternativeBody();
  int getNumAlternatives();
  Email2* getAlternative(const Email2& root, int index);  ///< Of `root`.
  /// Replaces `out` with the media type of an alternative; false when there is none.
  bool getAlternativeContentType(int index, StringBuffer& out, LogBase* log);
  /// Appends the body of an alternative of `root`, in utf-8. False only when there is no such alternative.
  bool getAlternativeBodyData(const Email2& root, int index, DataBuffer& out, LogBase& log);
  /// The same, then converts all of `out` to a code page; below 1 and 65001 it stays utf-8. Characters that
  /// the code page does not have become "?".
  bool getAlternativeBodyMb(const Email2& root, int index, DataBuffer& out, int codePage, LogBase& log);
  /// The number of the alternative of a media type; -1 when there is none. Deliberate:
  /// 0, not -1, on a dead node.
  int getAlternativeIndexByContentType(const char* contentType);
  int getPlainTextAlternativeIndex();
  int getHtmlAlternativeIndex();
  Email2* getAlternativeByContentType(const char* contentType);
  Email2* getPlainTextAlternative();
  Email2* getHtmlAlternative();
  /// @}

  /// @name 8. Bodies
  ///
  /// A part's body is stored decoded, text in utf-8. `root` is the root of the tree.
  /// @{

  /// Appends the plain-text or the HTML body. The plain text of a multipart/report is its first part. False
  /// when there is none; an empty body is a success.
  bool getPlainTextBodyUtf8(const Email2& root, StringBuffer& out, LogBase& log);
  bool getHtmlBodyUtf8(const Email2& root, StringBuffer& out, LogBase& log);
  /// The same in quoted-printable, of the utf-8 text. The second buffer is not used.
  /// Deliberate: these follow the first part of each multipart down and see no other.
  bool getPlainTextBodyQP(const Email2& root, StringBuffer& out, StringBuffer&, LogBase& log);
  bool getHtmlBodyQP(const Email2& root, StringBuffer& out, StringBuffer&, LogBase& log);
  /// Whether the QP forms find such a body.
  bool hasPlainTextBody();
  bool hasHtmlBody();
  /// The plain-text part that the QP forms find; borrowed, null when there is none.
  Email2* findPlainTextPart();
  /// Appends the effective body: the leaf that mail clients show for this node. False when there is
  /// none. Deliberate: when the leaf is application, image, video or audio, `out` is emptied and
  /// the result is false.
  bool getEffectiveBodyData(const Email2& root, DataBuffer& out, LogBase& log) const;
  /// Replaces `out` with the effective body in a code page; below 1 and 65001 it is given as stored.
  /// Characters that the code page does not have become "?".
  void getEffectiveBodyMb(const Email2& root, int codePage, DataBuffer& out, LogBase& log) const;
  /// The stored body of the first leaf, to be read or changed in place; borrowed, null when there is none.
  DataBuffer* getEffectiveBodyObject3(const Email2& root);
  bool equalsContentType(const char* type) const;  ///< Whether this node has the media type.

  /// Sets the body of a media type. An existing body of that type is replaced. A multipart keeps its bodies
  /// of other types; a single part of any type is replaced. To keep it, use addAlternativeBody.
  /// @param data      moved from, as in all of these but setBodyDb; utf-8 when `isText`.
  /// @param type      a multipart type is an error: it is logged and overwritten by text/plain or
  ///                  application/octet-stream.
  /// @param outPart   may be null; receives the node that holds the body, borrowed, or null on failure.
  ///                  Deliberate: also null when HTML replaced an empty first text part of a multipart/mixed.
  bool setBody(DataBuffer& data, bool isText, StringBuffer& type, Email2** outPart, LogBase& log);
  /// Adds or replaces an alternative. The enclosure is made when missing. HTML goes into a
  /// multipart/related when there is one.
  bool addAlternativeBody(DataBuffer& data, bool isText, StringBuffer& type, Email2** outPart, LogBase& log);
  /// Replaces the first subpart of that type in an enclosure, or inserts a new one: plain text first, HTML
  /// first with `htmlFirst`, everything else last.
  bool replaceOrAddNonMultipart(Email2* enclosure, bool htmlFirst, DataBuffer& data, bool isText,
                                StringBuffer& type, Email2** outPart, LogBase& log);
  /// Replaces a node's own body. An empty type keeps the present one. Text gets the transfer encoding that
  /// suits its code page (with 0 it keeps the present one), anything else base64.
  static bool replaceEmailBody(Email2* target, DataBuffer& data, bool isText, int codePage,
                               StringBuffer& type, LogBase& log);
  /// A new part with these settings, owned by the caller; null without shared settings.
  Email2* createNonMultipart(DataBuffer& data, bool isText, int codePage, StringBuffer& type, LogBase& log);
  /// Appends `part` to the alternative enclosure and destroys the alternative of that type. Takes ownership
  /// of `part` when it returns true.
  bool addReplaceAlternative(Email2* part, const char* type, LogBase& log);
  void setBodyDb(const DataBuffer& data);  ///< Copies the bytes; nothing else changes.

  /// Chooses the email's charset for its first text. A later text that does not fit changes it to utf-8.
  void chooseCharsetIfNecessary(const DataBuffer& utf8Text, LogBase& log);
  void chooseCharsetIfNecessaryX(XString& text, LogBase& log);
  /// Converts a received 8-bit body without a charset label to utf-8. Tried in turn: utf-8, the code page of
  /// the header, iso-8859-1, iso-8859-2. An email without a charset gets the one found.
  void detectAndSetCharset(LogBase& log);
  /// Converts the body from a code page to utf-8; false, with the body unchanged, when it has
  /// bytes that mean nothing there.
  bool checkConvertBody(int codePage, LogBase& log);

  // Repairs of received bodies. A body that needs none is left alone.

  /// Text: utf-16 with a byte order mark becomes utf-8; in a utf-8 email NUL bytes become blanks.
  void checkFixEmailTextBody(LogBase& log);
  void checkFixUnicodeHtml(LogBase& log);  ///< HTML in utf-16 becomes utf-8 while the email has no charset.
  void checkFixNotReallyHtml();  ///< An attachment named ".pdf" but labelled HTML becomes application/pdf.
  /// HTML in 7bit with a line of 2000 characters or more becomes quoted-printable.
  void checkHtmlLongLineLength(LogBase& log);
  /// Completes the structure of an HTML body and makes its charset META tag name the email's charset.
  void prepHtmlBody(DataBuffer& html, LogBase& log);
  /// The same for the HTML body; false when there is none or the email has no charset.
  bool updateHtmlMetaCharset(LogBase& log);
  /// Appends the hyperlink URLs of the plain-text and HTML bodies, duplicates included.
  void captureHyperlinkUrls(ExtPtrArraySb& urls);
  /// Estimated bytes to send: bodies and headers. On every level signing adds to them and
  /// encrypting multiplies them.
  unsigned getSendCost() const;
  /// @}

  /// @name 9. Attachments
  ///
  /// Attachments are numbered from 0 in the order of attachmentIterate2.
  /// @{

  /// Whether this node is an attachment. `inMixed` tells whether its parent is a mixed enclosure.
  bool isEmailAttachment(bool inMixed, LogBase& log);
  /// The narrower test: application types and disposition "attachment". The log may be null.
  bool isStrictAttachment(LogBase* log) const;
  /// Logs type, subject, sender, names and the reason of a decision.
  void logAttachmentReason(LogBase& log, const char* reason);
  /// Whether children count as in a multipart/mixed; also x-mixed-replace, encrypted, voice-message and
  /// the literal "multipart/*".
  bool isMultipartMixedForAttachmentPurposes() const;
  bool isMultipartFax() const;  ///< multipart/fax-message
  /// Lists the attachments at and below this node, or removes one from the tree.
  /// @param inMixed  isMultipartMixedForAttachmentPurposes() of this node, or of its parent for a leaf.
  /// @param out      empty at the call. Receives the attachments, borrowed.
  /// @param target   below 0: all are listed. Otherwise the attachment of this number is removed from its
  ///                 parent and appended last; the caller owns it.
  /// @return with a target: whether it was found. Deliberate: attachments below alternatives or signed
  ///         content are listed, but may not be removable; removal then counts without them.
  bool attachmentIterate2(bool inMixed, ExtPtrArray& out, int target, LogBase& log);
  int getNumAttachments(LogBase& log);
  /// The index-th attachment, borrowed; null when there is none.
  Email2* getAttachment(int index);
  Email2* getAttachment2(int index, LogBase& log);
  /// Removes the index-th attachment from the tree; owned by the caller, null when there is none.
  Email2* extractAttachment(int index);
  /// Destroys the index-th attachment; false when there is none.
  bool dropSingleAttachment(int index, LogBase& log);
  /// Destroys the attachments in all mixed and related enclosures. Deliberate: a part that counts as an
  /// attachment only because it follows the body stays.
  void dropAttachments();
  /// Destroys the strict attachments in mixed and related enclosures whose Content-ID
  /// does not occur in `html`.
  void dropAttachmentsForTempMht(StringBuffer& html, LogBase& log);
  /// The index-th leaf of a media type, breadth-first; borrowed, null when there is none.
  /// Deliberate: in a message of one part the disposition does not matter.
  /// @param contentType         may hold "*", which matches any text.
  /// @param inlineOnly          only parts with disposition "inline".
  /// @param excludeAttachments  no parts with disposition "attachment". Not looked at with `inlineOnly`.
  /// @param count               receives the number of parts that matched, the result included.
  Email2* getNthPartOfType(int index, const char* contentType, bool inlineOnly, bool excludeAttachments,
                           int& count, LogBase& log);
  /// The HTML body found by following the first part of each multipart; borrowed, null when there is none.
  Email2* findHtmlPart();
  /// @}

  /// @name 10. Making attachments
  ///
  /// A new attachment becomes the last subpart of this node, which is converted to multipart/mixed when
  /// necessary. Without a `contentType` (null) the extension of the file name decides. On failure nothing is
  /// added.
  /// @{

  /// A new attachment, owned by the caller; null when memory ran out. The bytes are copied. A null or empty
  /// name becomes "attach.dat".
  static Email2* createAttachmentFromDataUtf8(_svEmailCommon& common, const char* fileName,
                                              const char* contentType, const unsigned char* data, int size,
                                              LogBase& log);
  /// The same from a file; null, with the reason logged, when it cannot be read.
  static Email2* createAttachmentFromFileX(_svEmailCommon& common, XString& path, const char* contentType,
                                           LogBase& log);
  /// A message/rfc822 part, owned by the caller. The bytes are moved from `mime` and written unchanged.
  static Email2* createRfc822AttachedMessage(_svEmailCommon& common, DataBuffer& mime, LogBase& log);
  /// Attaches bytes or a file.
  /// @param codePage        of a text file, for its charset label; 0 when unknown or not a text.
  /// @param outContentType  receives the media type of the attachment.
  bool addDataAttachmentUtf8(const char* fileName, const char* contentType, int codePage,
                             const DataBuffer& data, StringBuffer& outContentType, LogBase& log);
  bool addFileAttachmentX(XString& path, const char* contentType, StringBuffer& outContentType, LogBase& log);
  /// Attaches a part. Takes ownership of it when it returns true.
  bool addAttachment(Email2* part, StringBuffer& outContentType, LogBase& log);
  /// Attaches a message as createRfc822AttachedMessage makes it.
  bool attachMessage(DataBuffer& mime, LogBase& log);
  /// Appends the media type of a file extension without dot; nothing for an unknown one. Deliberate: the
  /// first letter must be lower case.
  static void getTypeFromExtension(const char* extension, StringBuffer& out);
  /// Appends the usual extension of a media type, without dot; false for an unknown one.
  static bool getExtensionFromType(const char* contentType, StringBuffer& out);
  /// Replaces the outputs with disposition type and file name.
  void getContentDisposition(StringBuffer& disposition, StringBuffer& fileName);
  /// @}

  /// @name 11. Addresses
  ///
  /// Recipient kinds: 1 To, 2 Cc, 3 Bcc. Deliberate: any other number means To where recipients are counted,
  /// added or cleared (no field is rewritten), Bcc where one is read, and nothing in getAllRecipients. Header
  /// fields are written as RFC 5322 address lists with encoded words. An address that cannot be used is
  /// logged.
  /// @{

  /// Whether address fields in a code page use Q encoded words. False: B, for East Asian, Thai, Arabic,
  /// KOI8 and utf-16 code pages.
  bool qbChooseForEmailAddrEncoding(int codePage);
  /// Rewrites the From field from the parsed sender. Also sets SVX-Bounce-Address, once, to the first sender.
  void updateFromInHeader(LogBase& log);
  /// Sets the sender from text such as `"Anna" <anna@example.org>`. Null, or a text without an
  /// address, changes nothing.
  void setFromFullUtf8(const char* text, LogBase& log);
  /// Deliberate: an empty name clears the stored name, but the From field keeps it until it is rewritten.
  void setFromName(const char* name, LogBase& log);
  void setFromAddr(const char* address, LogBase& log);  ///< A text without "@" changes nothing.
  /// Append the sender as name and address, its display name, or its address. Without an address the first
  /// gives the decoded From field; without both the second takes the name from that field.
  void getFromFullUtf8(StringBuffer& out, LogBase& log);
  void getFromNameUtf8(StringBuffer& out, LogBase& log);
  void getFromAddrUtf8(StringBuffer& out);
  /// Replaces `out` with the envelope sender, without angle brackets: the first of SVX-Bounce-Address,
  /// Return-Path, From and Reply-To that is not empty.
  void getSmtpReversePathUtf8(StringBuffer& out, LogBase& log);
  /// Sets Reply-To from text. Null, or a text without an address, removes it.
  void setReplyToUtf8(const char* text, LogBase& log);
  /// Adds a recipient and rewrites the field of its kind; the name may be null. False without an address or
  /// when memory ran out. Each call rewrites the field: to add many, use addMultipleRecip. A Bcc field is
  /// written only with the log option "UseBccHeader".
  bool addRecipient(int kind, const char* name, const char* address, LogBase& log);
  /// Adds every address of a list; returns how many. Rewrites To and Cc, never Bcc.
  int addMultipleRecip(int kind, const char* list, LogBase& log);
  void copyRecipients(Email2& source);  ///< Adds those of another email; a Bcc field is not written.
  void clearRecipients(int kind);       ///< Removes their field, too.
  void clearBccFromHeader();            ///< Removes the field; the recipients stay.
  int getNumRecipients(int kind) const;
  /// Append the index-th recipient as name and address, its display name, or its address;
  /// false when there is none.
  bool getRecipientFullUtf8(int kind, int index, StringBuffer& out, LogBase& log);
  bool getRecipientNameUtf8(int kind, int index, StringBuffer& out);
  bool getRecipientAddrUtf8(int kind, int index, StringBuffer& out);
  /// Appends all recipients of a kind as one encoded header value.
  void getAllRecipients(int kind, StringBuffer& out, LogBase& log);
  /// Replaces `out` with the addresses of To, Cc and Bcc, with "," between them and no blanks.
  void getAllRecipientAddresses(StringBuffer& out);
  /// Appends the addresses of all recipients, or of one kind, as the envelope needs them: after
  /// the replacements (StringPair), without empty ones and duplicates. False when one could not
  /// be read or memory ran out.
  bool getAllRecipientAddressesA(ExtPtrArraySb& out, const ExtPtrArray& replacements, LogBase& log);
  bool addRecipientsForType(int kind, ExtPtrArraySb& out, const ExtPtrArray& replacements, LogBase& log);
  /// Replaces every key with its value (StringPair), pair by pair; case matters.
  static void replaceStringsSb(const ExtPtrArray& replacements, StringBuffer& text);
  /// @}

  /// @name 12. Related items and calendars
  ///
  /// Related items are what an HTML body shows, most often images; it refers to them by Content-ID or
  /// location. They are numbered from 0 in the nearest multipart/related, whose first subpart does not count
  /// when it is the HTML.
  /// @{

  int getNumRelatedItems(LogBase& log);
  /// 1 when the first subpart of this enclosure is text/html; otherwise 0.
  /// Deliberate: a first subpart of another type, such as a multipart/alternative, counts as an item.
  int firstPartNotRelatedItem(LogBase& log);
  Email2* getRelatedItem(int index, LogBase& log);  ///< Borrowed; null when out of range.
  /// Sets a field of an item; false, with an error, when there is none.
  bool setRelatedHeader(int index, const char* name, const char* value, LogBase& log);
  /// Adds an item to the related enclosure. When there is none, a new one is made around the HTML of an
  /// alternative, around the text of a multipart/mixed, or around all that this node holds. Takes ownership
  /// of `item`, unless memory ran out.
  void addRelatedContent(Email2* item, LogBase& log);
  /// Destroys an item. Deliberate: always counts from the second subpart. When the first is not the HTML,
  /// this drops the item that getRelatedItem(index + 1) returns.
  void dropRelatedItem(int index);
  /// Destroys every subpart of the enclosure except the first, of any type.
  void dropRelatedItems();
  /// Moves attachments whose Content-ID occurs in the HTML into the related enclosure, the last one first. A
  /// mixed enclosure left with nothing but a multipart/alternative becomes that alternative.
  void fixRelated(LogBase& log);

  /// New items with a generated Content-ID, owned by the caller; null without a name or when the file cannot
  /// be read. Without a `contentType` (null) the extension of the name decides. Deliberate: an unknown
  /// extension gives no type, and the part no Content-Type field.
  static Email2* createRelatedFromFileUtf8(_svEmailCommon& common, const char* path, const char* contentType,
                                           LogBase& log);
  static Email2* createRelatedFromDataUtf8(_svEmailCommon& common, const char* name, const char* contentType,
                                           const DataBuffer& data, LogBase& log);
  /// The same with `name` as Content-Location (RFC 2557) instead of a Content-ID.
  static Email2* createRelatedFromFileNoCid(_svEmailCommon& common, XString& path, XString& name,
                                            LogBase& log);
  static Email2* createRelatedFromDataNoCid(_svEmailCommon& common, const char* name, const DataBuffer& data,
                                            LogBase& log);
  /// A text/calendar body (RFC 6047) with its method, such as "REQUEST"; owned by the caller, who adds it
  /// with addReplaceAlternative. Null when memory ran out.
  /// @param data      moved from; utf-8.
  /// @param codePage  becomes the charset of the whole email; 0 keeps the present one.
  static Email2* createCalendarAlternativeUtf8(_svEmailCommon& common, DataBuffer& data, const char* method,
                                               int codePage, LogBase& log);
  /// @}

  /// @name 13. Attached messages, digests, reports
  ///
  /// Both are found in multipart/mixed and multipart/report and in multipart/mixed nested there (parts of
  /// reports also in nested multipart/report). Below any other node every child is examined. Deliberate:
  /// getting an attached message counts through nested enclosures; removing one and reading a part of a
  /// report start from 0 in each enclosure.
  /// @{

  /// Counts the parts of type message/rfc822, this node included. Deliberate: logs the type of every
  /// node visited, verbose or not.
  int getNumAttachedMessages(LogBase& log);
  /// Parses the index-th attached message into a tree of its own; owned by the caller, null when there is
  /// none. Messages attached to it are not parsed. This tree does not change, but the new one shares its
  /// settings: limits exceeded while loading are recorded there, and the charset of the attached message when
  /// none was recorded before. Send settings and the verdict on signatures stay those of this message.
  /// @param counter  0 at the call; receives the number of messages before this one.
  /// @param certs    keys for signed and encrypted layers. With the log option "NoUnwrapAttachedMessage"
  ///                 layers are not unwrapped.
  Email2* getAttachedMessage(int index, int& counter, SystemCerts& certs, LogBase& log);
  /// Replaces `out` with a parameter of a header field of the part that holds the index-th attached message.
  /// The filename of Content-Disposition is the part's file name. False when it is empty or there is no such
  /// message. Deliberate: the first message after a nested enclosure is not found.
  bool getAttachedMessageAttr(int index, int& counter, XString& fieldName, XString& attrName, LogBase& log,
                              XString& out);
  /// Destroys the index-th attached message of an enclosure; false when there is none.
  /// Deliberate: only messages directly in a multipart/mixed or multipart/report can be removed, and
  /// none after a destroyed node.
  bool removeAttachedMessage(int index);
  void removeAttachedMessages();  ///< Destroys all that can be removed.
  /// Number of messages in this multipart/digest (RFC 2046, 5.1.5); 0 for any other node.
  int getNumDigests();
  /// Like getAttachedMessage, for a message of this multipart/digest. Layers are always unwrapped.
  /// Deliberate: null for positions above 10000.
  Email2* getNthDigest(int index, SystemCerts& certs, LogBase& log);
  /// Whether this is a part of a report: text/rfc822-headers, or message/* except message/rfc822.
  bool isReportPart() const;
  int getNumReports();  ///< Number of parts of reports.
  /// Replaces `out` with the body of the index-th part of a report; false, with `out`
  /// emptied, when there is none.
  bool getReport(int index, LogBase& log, StringBuffer& out);
  /// Replaces `out` with a parameter of one of this node's own header fields; false, with `out` emptied, when
  /// field or parameter is missing.
  bool getHeaderFieldAttr(const char* fieldName, const char* attrName, XString& out, LogBase& log);

  // The delivery status is the first message/delivery-status in the tree, else the first
  // message/disposition-notification, else the first message/feedback-report (RFC 3464, 8098, 5965). A
  // missing or empty one makes these return false, with an error.

  /// Replaces `out` with a field of the delivery status; false when it is missing or empty. A field that is
  /// repeated for each recipient is read for the first one.
  bool getDeliveryStatusInfo(const char* fieldName, XString& out, LogBase& log);
  /// Appends the address of each Final-Recipient field; true even when there is none. Deliberate: reading
  /// ends at two consecutive empty lines.
  bool getDsnFinalRecipients(ClsStringArray& out, LogBase& log);
  /// Replaces `out` with the text of the delivery status; bytes that are not utf-8 become U+FFFD.
  bool getDeliveryStatusContent(XString& out, LogBase& log);
  /// @}

  /// @name 14. Transformations of whole messages
  /// @{

  /// Turns a received message, in place, into a reply to its sender (the From address; Reply-To is ignored)
  /// or into a message to forward. A heading that names the original is put before the plain text and the
  /// HTML. Recipients, trace fields and "X-" fields are removed; date and Message-ID are new. The caller sets
  /// the sender and the threading fields. An X-Priority field tells that the conversion was completed.
  /// Deliberate: when there is no body to quote, conversion stops with part of the fields changed.
  void convertToReply(LogBase& log);
  void convertToForward(LogBase& log);
  /// Removes the header fields that delivery added: Received and those that begin
  /// with "DKIM-", "SVX-" or "X-".
  void removeHdrsForwRepl(LogBase& log);

  /// A deep copy with its own settings; owned by the caller, null when memory ran out. It is written like
  /// this tree; signed content keeps its bytes.
  /// @param shareImageData  copied images and PDFs borrow the bytes of this tree, which must outlive the copy
  ///                        and not change these bodies. A copy gets its own bytes when its body is changed.
  Email2* clone_v3(bool shareImageData, LogBase& log);
  /// The same with nodes that share `common`; the settings of this tree are not copied.
  Email2* clone_v3_inner(_svEmailCommon& common, bool shareImageData, LogBase& log);
  /// A copy in which every key of the pairs (StringPair) is replaced by its value; otherwise like clone_v3.
  /// Faster than clone_v3 with replaceStrings: a text that changes is not copied first.
  Email2* cloneAndReplace_v3(bool shareImageData, const ExtPtrArray& pairs, LogBase& log);
  /// Replaces every key with its value, pair by pair, in the text bodies, header fields and addresses of the
  /// whole tree. Keys are matched with case against decoded text. What contains no key keeps its bytes; what
  /// changes is re-encoded. No line break gets into a header field. The pairs must not be part of the tree.
  void replaceStrings(const ExtPtrArray& pairs, LogBase& log);

  /// A copy without attachments for a web archive (RFC 2557); owned by the caller. An HTML body is made from
  /// text/plain when that is the only body or alternative. Other messages without HTML, such as a
  /// multipart/mixed, get none. Deliberate: text that becomes HTML is not escaped, and a charset META tag is
  /// added to the HTML of a single part, not to an alternative.
  /// @param html  parts whose Content-ID occurs in it are kept.
  Email2* cloneToMht2(StringBuffer& html, LogBase& log);

  /// In a multipart/mixed without an alternative enclosure, moves a first text/plain into a new one.
  /// Deliberate: also an attached text; callers check for that.
  void moveMtMixedPlainTextToAlt(LogBase& log);
  /// Moves the first text/html child of one node to the end of the other.
  static void checkMoveHtmlToRelated(Email2& from, Email2& to, LogBase& log);
  /// Gives every leaf a transfer encoding that survives 7-bit transport.
  void safeguardBodies(LogBase& log);
  /// Removes directories, up to the last "/" or "\", from every file name, in
  /// Content-Disposition and Content-Type.
  void removeAttachmentPaths(LogBase& log);
  /// Cleans the HTML body of text that hides words from filters, as _svHtml::unSpam does.
  void unSpamify(LogBase& log);
  /// @}

  /// @name 15. XML and diagnostics
  /// @{

  /// Replaces `out` with the tree as an XML document, compact or indented. Each node is a `mime_message`
  /// with its header fields and one `body`: the parts (each a `subpart` with a `mime_message`) and the
  /// node's own body in its transfer encoding, text in utf-8. Parts nested deeper than 80 levels,
  /// which XML parsers would refuse, are given as MIME text in their parent. Changes transfer
  /// encodings as safeguardBodies does.
  /// @return false, with `out` unchanged, when no document could be made.
  bool getEmailXml(bool compact, StringBuffer& out, LogBase& log);
  /// Fills an element (base/Xml.h), which the caller has named mime_message, with this node and
  /// everything below it. False on a dead node or when memory ran out. Deliberate: a failing
  /// subpart does not make it false.
  bool getEmailXmlR(ClsXml& node, LogBase& log);
  /// Logs the tree, one context per node, named by its media type with "_" for "/". `scratch` is overwritten.
  void logEmailStructure(StringBuffer& scratch, LogBase& log);
  /// Logs the transfer encoding and the fields Content-Type and Content-Transfer-Encoding, empty ones too.
  void logContentTypeAndEncoding(LogBase& log);
  /// @}

  /// @name 16. Secure mail
  ///
  /// Signing and encrypting (S/MIME, RFC 8551) make a new message, owned by the caller; this one does not
  /// change. Certificates are borrowed from the caller and counted.
  /// @{

  /// A multipart/signed (RFC 8551, 3.5.3): this message as output writes it, without internal "SVX-" fields,
  /// and a detached signature over exactly those bytes. They are kept: the first part is written unchanged
  /// until something in it is changed.
  /// @param signingTime         signs the time and the supported ciphers as well.
  /// @param signingCertificate  binds the signature to the certificate (signing-certificate-v2, RFC 5035).
  /// @param includeChain        adds the certificates above the signer's.
  /// @param filename            of the signature part; null: none.
  /// @return null without shared settings, without a certificate, or when signing failed. A certificate found
  ///         by the sender's address is stored in the shared settings.
  Email2* createMultipartSigned(bool signingTime, bool signingCertificate, bool includeChain,
                                _clsCades& cades, const char* filename, SystemCerts& certs, LogBase& log);
  /// An application/pkcs7-mime with content and signature (RFC 8551, 3.5.2). Internal fields are signed, too.
  Email2* createSignedData(bool signingTime, bool signingCertificate, bool includeChain, _clsCades& cades,
                           const char* filename, SystemCerts& certs, LogBase& log);
  /// Appends the fields of `source`, except Content-Transfer-Encoding, Content-Disposition and
  /// Disposition-Notification-To; Content-Type replaces this node's own. False only on a dead node.
  bool copyHeadersForMultipartSigned(MimeHeader& source, LogBase& log);
  /// The micalg parameter of the Content-Type, which also selects the digest for signing; empty means sha1.
  /// Deliberate: setting it keeps blanks around it and removes those around the protocol parameter.
  void setMicalg(const char* micalg, LogBase& log);
  void getMicalg(StringBuffer& out);

  /// An application/pkcs7-mime (RFC 8551, 3.3) encrypted to the certificates set here, or else to those of
  /// all recipients. Null also when a recipient has no certificate; the log names each of these. For the
  /// parameters up to `bySubjectKeyId` see Pkcs7Builder::createPkcs7Enveloped.
  Email2* createPkcs7Mime(int cipher, int keyBits, int keyTransport, int oaepHash, bool bySubjectKeyId,
                          const char* filename, SystemCerts& certs, LogBase& log);
  /// Encrypts or decrypts every body in place; structure and header fields stay readable. Nodes changed
  /// before a failure stay changed. Deliberate: the ciphertext is base64 text in a base64 transfer encoding,
  /// so it is encoded twice when written.
  bool aesStandardEncryptAnsi(SymmetricCipher& cipher, _svSymSettings& settings, LogBase& log);
  /// @param bodyIsBinary  false: a body that is base64 text is decoded first.
  bool aesStandardDecryptAnsi(SymmetricCipher& cipher, bool bodyIsBinary, _svSymSettings& settings,
                              LogBase& log);

  void setSigningCert(Certificate* certificate);  ///< Null is ignored.
  Certificate* getSigningCert(LogBase& log);      ///< Borrowed; null when there is none.
  void addEncryptCert(Certificate* certificate);  ///< Null is ignored.
  void setEncryptCert(Certificate* certificate);  ///< Replaces all; null only removes them.
  void clearEncryptCerts();
  Certificate* getEncryptCert(LogBase& log);  ///< The first; borrowed, null when there is none.

  /// Records one unwrapped layer in the shared settings. The first report sets the flags, later ones can only
  /// clear them. Nothing when `secure` is false.
  void accumulateSecurityInfo(bool secure, bool signaturesValid, bool decrypted, int numSigned,
                              int numEncrypted);
  /// What loading found: every signature met is cryptographically valid, every encrypted layer was decrypted.
  /// False when there was no layer. These and the next two do not check the marker.
  bool getAllSignaturesValid() const;
  bool getAllDataDecrypted() const;
  /// Whether the sender wants the message signed or encrypted. Only stored here, for the program that sends.
  bool getSendSigned() const;
  bool getSendEncrypted() const;
  void setSendSigned(bool sendSigned);
  void setSendEncrypted(bool sendEncrypted);
  /// Whether a signed layer was met while loading, or this node itself is a signature part.
  bool getReceivedSigned() const;
  /// Whether an encrypted layer was met while loading, or this node itself is
  /// application/pkcs7-mime of any kind.
  bool getReceivedEncrypted() const;
  /// The index-th certificate of the signers, or of those the message was decrypted with;
  /// borrowed, null past the end.
  Certificate* getSignedBy(int index, LogBase& log);
  Certificate* getEncryptedBy(int index, LogBase& log);
  /// @}

  /// The properties that decide whether this is an attachment, as views into this node.
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
  RepairSet m_repairs;          ///< Repairs made in this part while loading.
  Origin m_origin = kNoOrigin;  ///< Position of the part in the text it was loaded from.
  /// Exact bytes of received signed content, written back until something in it is changed.
  std::unique_ptr<ReceivedContent> m_received;

 private:
  friend class SlabPool<Email2>;
  friend void destroyInSlab<Email2>(Email2* object) noexcept;
  struct Blank {};
  /// Common start of all constructors: members empty, marker set, one reference to `common` taken.
  Email2(_svEmailCommon& common, Blank) noexcept;
  void initializeDefaults();
  _svCharset& emailCharset(_svCharset& fallback) const noexcept {
    return m_common ? m_common->m_charset : fallback;
  }

  Slab* m_slab = nullptr;  ///< That holds this node, if any.
};

/// Owner of a node.
using EmailPtr = Owned<Email2>;

}  // namespace mailtree
