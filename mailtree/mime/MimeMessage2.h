// mime/MimeMessage2.h - one MIME entity of a parse tree: loading reads it, edits it and takes its content.
//
//   Lifetime   A parse tree lives for one load. Loading moves bodies out of it.
//   Ownership  A parent owns its parts. createNewObject, extractPart and getAppleDoubleAttachment transfer
//              ownership to the caller; add*/replacePart take it.
//   Bodies     Decoded from their transfer encoding. Text that output converts back is in utf-8;
//              an attached text file keeps its bytes. A message/*, and a multipart that could
//              not be split, holds its raw bytes.
//   Failure    Nothing throws. An entity in which an operation ran out of memory is incomplete and does not
//              become a node.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/Origin.h"
#include "mailtree/base/Slab.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/mime/AttachmentRules.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/Repairs.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/header/ContentType.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

class LogBase;
class SystemCerts;
class UnwrapInfo;
class _clsCades;
class MimeMessage2;

/// The place of an entity in the text it was parsed from. Parts of a multipart that was transfer-encoded as a
/// whole have none.
struct EntityPlace {
  const MimeMessage2* entity;
  std::size_t begin, bodyBegin;
  std::size_t end;  ///< Where the body of a leaf ends.
};

class MAILTREE_API MimeMessage2 final : public SorvikObject {
 public:
  MimeMessage2() = default;
  MimeMessage2(const MimeMessage2&) = delete;
  MimeMessage2& operator=(const MimeMessage2&) = delete;
  ~MimeMessage2() override;  ///< Not recursive, for trees of any depth.
  static void operator delete(MimeMessage2* entity, std::destroying_delete_t) noexcept {
    destroyInSlab(entity);
  }

  /// A new empty heap entity owned by the caller; null when memory ran out.
  static MimeMessage2* createNewObject();

  // Parsing. Each function replaces the content of the entity. No input makes it fail; false only when memory
  // ran out. `option` is ignored.

  bool loadMimeComplete(const StringBuffer& mime, LogBase& log, bool option);
  /// Parses the bytes in place; `keepInput` and `scratch` are ignored too.
  bool loadMimeComplete2(const char* data, unsigned size, bool keepInput, StringBuffer& scratch, LogBase& log,
                         bool option);
  bool loadMimeCompleteDb(DataBuffer& mime, LogBase& log);
  /// What the three functions above use. `parts` is the number of parts allowed;
  /// the parts used are subtracted from it.
  bool loadText(std::string_view mime, int& parts, LogBase& log);
  bool loadText(std::string_view mime, LogBase& log);
  /// The same, and lists where each entity is, in the order in which they begin.
  bool loadText(std::string_view mime, std::vector<EntityPlace>& places, LogBase& log);
  /// The same for the content of an entity at a level of a tree (the message is level 1). Nothing may
  /// precede its header, which ends at the first empty line.
  /// @param origin  the entity's Origin.
  /// @param parts   parts still allowed; the parts used are subtracted from it.
  bool loadContent(std::string_view mime, int level, Origin origin, int& parts, LogBase& log);
  /// Parses this entity again from its received bytes, which stay, so that signed multiparts inside it get
  /// theirs too: the parser records them for the outermost one only. Does nothing without received bytes.
  bool reloadReceived(int level, int& parts, LogBase& log);
  /// Strips directories from every attachment file name in the tree.
  void makeAttachmentFilenamesRelative(LogBase& log);

  // Reading

  const char* getContentType() const noexcept { return m_contentType.m_type.getString(); }
  bool isMultipart() const noexcept;
  bool isMultipartMixed() const noexcept;
  /// Whether the disposition or the file name makes the part an attachment.
  bool isAttachment(LogBase& log) const;
  void getDisposition(StringBuffer& out) const { out.setString(m_disposition); }
  const char* getContentEncoding() const noexcept { return m_transferEncoding.getString(); }
  void getContentEncoding(StringBuffer& out) const { out.setString(m_transferEncoding); }
  void getContentId(StringBuffer& out) const { out.setString(m_contentId); }
  /// The charset parameter as written, empty when absent.
  void getCharset(StringBuffer& out) const { out.setString(m_charset); }
  /// Code page of the 8-bit text in the header; 0 when there is none.
  int getHeaderDetectedCP() const noexcept { return m_header.getDetectedCP(); }
  /// Disposition filename, else name parameter; utf-8.
  void getMimeFilename(StringBuffer& out) const;
  /// Decoded value, replacing `out`, empty when absent.
  void getHeaderFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const;
  /// Appends one owned _svEmailAddress per address of the fields of that name.
  void getEmailAddresses(const char* field, ExtPtrArray& out, LogBase& log) const;
  /// Appends the header as text, CRLF after every line but the last, 8-bit values written as encoded words.
  void getQBEncodedHeader(StringBuffer& out, LogBase& log) const;
  /// The decoded body, borrowed.
  DataBuffer* getMimeBodyDb() const noexcept { return &m_body; }
  int getNumParts() const noexcept { return static_cast<int>(m_parts.size()); }
  /// Borrowed; null when out of range.
  MimeMessage2* getPart(int index) const noexcept;
  const _svContentType& contentType() const noexcept { return m_contentType; }
  const MimeHeader& header() const noexcept { return m_header; }
  PartTraits traits() const noexcept;

  // Changing

  /// Merges all fields of this name into the first; the decoded addresses do not change.
  void collapseMultiple(const char* field, LogBase& log);
  /// Replaces the media type; `refreshHeader` also rewrites the field.
  void setContentType(const char* type, bool refreshHeader, LogBase& log);
  void setNameUtf8(const char* name, LogBase& log);  ///< Null removes it.
  void setCharset(const _svCharset& charset, LogBase& log);
  void setCharset(const char* name, LogBase& log);
  void setDisposition(const char* disposition, LogBase& log);
  void setFilenameUtf8(const char* filename, LogBase& log);
  void setContentEncoding(const char* encoding, LogBase& log);
  void setBoundary(const char* boundary, LogBase& log);
  /// Replaces a field, or adds it; a null value removes every one of that name.
  void addReplaceHeaderFieldUtf8(const char* name, const char* value, LogBase& log);
  /// Sets the body from raw bytes in a charset: converted to utf-8 when `isText` and output would
  /// convert it back.
  void setMimeBody8Bit_2(const void* data, unsigned size, const _svCharset& charset, bool isText,
                         LogBase& log);
  void setMimeBodyBinary2(const unsigned char* data, unsigned size, LogBase& log);  ///< Null or 0 empties it.
  /// Copies the fields for type, disposition and transfer encoding of another entity as they were received.
  void copyContentFields(const MimeMessage2& from);
  /// Takes the Content- fields, body and parts of another entity. All other fields stay.
  void adoptContent(MimeMessage2& content);
  /// Makes this empty entity a multipart/alternative with a fresh boundary.
  void newMultipartAlternative(LogBase& log);
  void addPart(MimeMessage2* part);         ///< Takes ownership; null is ignored.
  void addPartInFront(MimeMessage2* part);  ///< Takes ownership; null is ignored.
  MimeMessage2* extractPart(int index);     ///< Owned by the caller; null when out of range.
  /// Deletes a part of a tree that is taken apart: its place stays, and getPart() returns null for it.
  void deletePart(int index) noexcept;
  /// Replaces a part. The caller takes ownership of the old one.
  void replacePart(int index, MimeMessage2* part, LogBase& log);
  void copyMimeBody(DataBuffer& out, LogBase& log) const;  ///< Appends.
  void extractMimeBody(DataBuffer& out, LogBase& log);     ///< Moves; this body is empty afterwards.
  void clearMimeBody() { m_body.clear(); }
  /// Removes the data fork of a multipart/appledouble (its first child that is not application/applefile)
  /// and returns it as an attachment, owned by the caller; null elsewhere.
  MimeMessage2* getAppleDoubleAttachment(LogBase& log);
  /// Decodes a body whose transfer encoding is X-UUencode, or an alias of it, in place; the encoding becomes
  /// base64. A body without a decodable block stays as it is.
  void uuDecodeAttachment(LogBase& log);

  /// Verifies and strips signed layers and decrypts encrypted ones throughout the tree, outermost first.
  /// A layer that cannot be opened stays as it is. Entities already unwrapped, and everything below
  /// them, are skipped. (secure/unwrap.cpp)
  void unwrapSecurity3(UnwrapInfo& info, _clsCades& cades, SystemCerts& certs, LogBase& log);

  // Moving content out, for loading

  /// Moves the header list out, 8-bit fields rewritten as encoded words.
  void extractHeader(MimeHeader& out);
  void extractContentType(_svContentType& out) { out = std::move(m_contentType); }
  const _svCharset& charset() const noexcept { return m_parsedCharset; }

  /// For a child of a multipart/signed: its bytes exactly as received, including the header;
  /// null elsewhere. Moved out.
  std::unique_ptr<DataBuffer> extractReceivedBytes() noexcept { return std::move(m_receivedBytes); }
  const DataBuffer* receivedBytes() const noexcept { return m_receivedBytes.get(); }
  bool isSignedContent() const noexcept { return m_receivedBytes != nullptr; }

  LimitSet limits() const noexcept { return m_limits; }  ///< Limits exceeded while parsing; on the root only.
  RepairSet repairs() const noexcept { return m_repairs; }
  void addRepair(Repair repair) noexcept { m_repairs.add(repair); }
  void addLimit(Limit limit) noexcept { m_limits.add(limit); }
  bool isWhole() const noexcept { return m_isWhole; }  ///< No operation ran out of memory.
  Origin origin() const noexcept { return m_origin; }
  bool isUnwrapped() const noexcept { return m_isUnwrapped; }
  void markUnwrapped() noexcept { m_isUnwrapped = true; }

 private:
  friend class MimeParser;
  friend class SlabPool<MimeMessage2>;
  friend void destroyInSlab<MimeMessage2>(MimeMessage2* object) noexcept;

  void reset();
  void deleteParts() noexcept;
  template <class Work>
  void guarded(Work&& work) const noexcept {
    m_isWhole &= neverThrow(false, [&] {
      work();
      return true;
    });
  }
  /// The traits that are cheap to compute, without a search for Content-Class.
  PartTraits basicTraits() const noexcept;

  // The members derived from the Content- fields (EntityFields.cpp)

  enum class ContentField { type, disposition, transferEncoding, id };
  /// Reads all members from the header list, from the first field of each name; adds the
  /// limits exceeded to `limits`.
  /// @param sibling  an entity read just before, probably with the same fields; null: none.
  void readContentFields(LimitSet& limits, const MimeMessage2* sibling = nullptr);
  bool copyContentType(int fieldIndex, const MimeMessage2& sibling);
  void readContentField(ContentField which, int fieldIndex, LimitSet& limits);
  void readContentType(std::string_view value, LimitSet& limits);
  void readDisposition(std::string_view value, LimitSet& limits);
  void refreshContentTypeField();
  void refreshDispositionField();

  /// Sets the body to the utf-8 of text in the declared charset, if that changes the bytes. False: the body
  /// was left alone, because it is already correct or no charset can decode it.
  bool setBodyFromText(std::string_view bytes, std::string_view charset);

  MimeHeader m_header;
  _svContentType m_contentType;
  StringBuffer m_charset;      ///< Charset parameter as written.
  _svCharset m_parsedCharset;  ///< The same, looked up.
  StringBuffer m_disposition;  ///< Trimmed, letter case as received.
  StringBuffer m_filename;     ///< Of the Content-Disposition, utf-8.
  StringBuffer m_transferEncoding;
  StringBuffer m_contentId;
  mutable DataBuffer m_body;
  std::vector<Owned<MimeMessage2>> m_parts;
  std::unique_ptr<DataBuffer> m_receivedBytes;
  LimitSet m_limits;
  RepairSet m_repairs;
  mutable bool m_isWhole = true;
  Origin m_origin = kNoOrigin;
  bool m_isUnwrapped = false;                  ///< unwrapSecurity3 has processed this entity.
  Slab* m_slab = nullptr;                      ///< The slab that holds this entity, if any.
  MimeMessage2* m_parentInDeletion = nullptr;  ///< Set and read only while a tree is destroyed.
};

}  // namespace mailtree
