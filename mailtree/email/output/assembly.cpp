// email/output/assembly.cpp - writes an email tree as MIME (RFC 2045, 2046).

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "mailtree/base/Search.h"
#include "mailtree/email/internal.h"
#include "mailtree/email/output/text_body.h"
#include "mailtree/email/output/unencoded.h"
#include "mailtree/mime/BoundaryLines.h"
#include "mailtree/mime/EncryptedBody.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/header/HeaderLines.h"

namespace mailtree {
namespace {

/// Maximum depth of the recursion. Loaded trees are far below; only a tree built by the caller can be deeper.
constexpr int kMaxWrittenDepth = 1'000;

/// The boundaries of the multiparts around a node, innermost first.
struct Enclosing {
  std::string_view boundary;
  const Enclosing* outer;
};

/// Why a message was not written completely.
struct Faults {
  bool tooDeep = false;         ///< Parts were left out.
  bool dotAfterBareCr = false;  ///< In bytes for SMTP that must not change. Stops the walk.
};

/// A walk over a subtree: its destination, and the settings for all nodes below.
struct Assembly {
  Destination to;
  bool forSmtp;  ///< The destination doubles leading dots.
  const char* omitPrefix;
  LogBase& log;
  bool qpFor8bit;
  bool isTop;
  int level = 0;
  const Enclosing* around = nullptr;
  Faults* faults;  ///< Of the whole walk.

  Assembly below(bool qpBelow, const Enclosing& enclosing) const {
    Assembly child = *this;
    child.around = &enclosing;
    child.qpFor8bit = qpBelow;
    child.isTop = false;
    ++child.level;
    return child;
  }
};

bool assemble(Email2& node, const Assembly& job);

void logKind(const Email2& node, LogBase& log) {
  if (!log.m_verboseLogging) return;
  log.LogDataSb("contentType", node.m_contentType.m_type);
  log.LogDataSb("contentTransferEncoding", node.m_transferEncoding);
}

bool isAttachedMessage(const Email2& node) noexcept {
  return node.m_contentType.m_type.equals("message/rfc822");
}

bool hasChildren(const Email2& node) noexcept { return node.m_subParts.getSize() != 0; }

void turn8bitToQp(Email2& node, LogBase& log) {
  const int field = node.m_header.findField("content-transfer-encoding");
  const bool is8bit = field >= 0 && (equalsNoCase(node.m_header.rawValue(field), "8bit") ||
                                     node.m_transferEncoding.equalsIgnoreCase("8bit"));
  if (is8bit) setTransferEncoding(node, "quoted-printable", log);
}

/// Whether this is 8-bit text without a transfer encoding. Checks the body last, because that is slow.
bool lacksTransferEncoding(const Email2& node) noexcept {
  if (node.m_disposition.equalsIgnoreCase("attachment") || hasChildren(node)) return false;
  const StringBuffer& type = node.m_contentType.m_type;
  if (!type.isEmpty() && (node.emailCodePage() != 0 || !type.containsSubstringNoCase("text/"))) return false;
  return !node.m_body.is7bit(0) && !node.m_body.containsChar('\0');
}

void labelUnlabelled8bitText(Email2& node, LogBase& log) {
  if (!lacksTransferEncoding(node)) return;
  // With its name the part still counts as a file that keeps its bytes when it is loaded again.
  const char* const name =
      node.m_contentType.m_name.isEmpty() ? nullptr : node.m_contentType.m_name.getString();
  if (node.m_contentType.m_type.isEmpty())
    node.setContentTypeUtf8("text/plain", name, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  if (node.m_transferEncoding.isEmpty()) setTransferEncoding(node, "quoted-printable", log);
}

/// Whether the body was encrypted in place of the text in its Content-Type, and must be written as it is.
bool isEncryptedInPlace(const Email2& node) noexcept {
  return isEncryptedBody(node.m_header, node.m_transferEncoding, node.m_body.view());
}

/// RFC 2045 allows a multipart only 7bit, 8bit and binary, so the field is removed. If its parts were not
/// found, the body is written unencoded, unless it is ciphertext.
void dropEncodingOfAlternative(Email2& node) {
  if (!node.m_contentType.m_type.equals("multipart/alternative") || isEncryptedInPlace(node)) return;
  node.m_header.removeMimeField("Content-Transfer-Encoding", /*all=*/true);
  if (!hasChildren(node)) node.m_transferEncoding.clear();
}

void logLeaf(const Email2& node, bool isText, LogBase& log) {
  if (!log.m_verboseLogging) return;
  if (!hasChildren(node)) log.LogDataSb("contentType", node.m_contentType.m_type);
  if (isText) log.LogDataLong("cp", node.emailCodePage());
}

OutgoingBody chooseBody(Email2& node, bool isAttachment, LogBase& log) {
  const bool isText = !isAttachment && !hasChildren(node) &&
                      beginsWithNoCase(node.m_contentType.m_type, "text/") && !isEncryptedInPlace(node);
  if (isText) node.refreshContentTypeHeader(log);
  logLeaf(node, isText, log);
  return isText ? outgoingText(node, log) : storedBody(node);
}

/// Parsers skip empty lines at the top of a message. After an empty header, a body that looks like header
/// fields would become the header, so this harmless field is written first.
constexpr std::string_view kFieldBeforeBody = "MIME-Version: 1.0";

bool looksLikeHeader(std::string_view body, const Assembly& job) noexcept {
  return job.isTop && findFirstField(body) != std::string_view::npos;
}

void appendHeader(const Email2& node, const OutgoingBody& body, const Assembly& job, StringBuffer& out) {
  const std::size_t before = out.getSize();
  node.m_header.getMimeHeader(out, job.omitPrefix, body.headerCodePage, job.isTop, job.log);
  const bool isEmpty = out.getSize() == before;
  if (isEmpty && !hasChildren(node) && looksLikeHeader(body.bytesOf(node).view(), job))
    out.append(kFieldBeforeBody);
  out.append(out.getSize() != before ? "\r\n\r\n" : "\r\n");
}

bool writeHeader(const Email2& node, const OutgoingBody& body, const Assembly& job) {
  LogContextExitor context(job.log, "writeMimeHeader", job.log.m_verboseLogging);
  if (!job.to.sink) {
    appendHeader(node, body, job, job.to.text);
    return true;
  }
  StringBuffer header;
  appendHeader(node, body, job, header);
  return job.to.write(header);
}

/// Whether bytes that must not change can be sent. Some servers take a bare CR for a line break, and a dot
/// after it for the end of the message.
bool canSend(std::string_view bytes, const Assembly& job) noexcept {
  if (job.forSmtp && findSubstring(bytes, "\r.") != std::string_view::npos) job.faults->dotAfterBareCr = true;
  return !job.faults->dotAfterBareCr;
}

bool writeReceived(std::string_view received, const Assembly& job) {
  if (!canSend(received, job)) return false;
  const std::size_t headerEnd = endOfLine(received, 0);
  const bool hasHeader = !trim(received.substr(0, headerEnd)).empty();
  if (hasHeader || !looksLikeHeader(received, job)) return job.to.write(received);
  return job.to.write(std::string(kFieldBeforeBody) + "\r\n\r\n") &&
         job.to.write(received.substr(afterLineBreak(received, headerEnd)));
}

bool writeLeaf(const Email2& node, const OutgoingBody& body, const Assembly& job) {
  const DataBuffer& bytes = body.bytesOf(node);
  if (isAttachedMessage(node) && !isEncoded(node) && !canSend(bytes.view(), job)) return false;
  return node.getEncodedBody(bytes, job.to.text, job.to.progress, job.log, false, job.to.sink,
                             /*dotStuff=*/false, body.normalizeLineEnds);
}

bool writeSubpart(Email2& part, std::string_view delimiter, const Assembly& job) {
  if (!job.to.write(delimiter)) {
    if (job.log.m_verboseLogging) job.log.logError("Failed to write boundary to output.");
    return false;
  }
  // Deliberate: a failing subpart does not stop its siblings.
  std::ignore = assemble(part, job);
  return !job.faults->dotAfterBareCr && job.to.write("\r\n");
}

bool writeSubparts(Email2& node, const Assembly& job) {
  const Enclosing enclosing{trimRight(node.m_contentType.m_boundary), job.around};
  const Assembly below = job.below(job.qpFor8bit && !isAttachedMessage(node), enclosing);
  const std::string boundary = "--" + std::string(node.m_contentType.m_boundary.view());
  const std::string delimiter = boundary + "\r\n";
  for (int i = 0; i < node.m_subParts.getSize(); ++i) {
    Email2* const part = node.m_subParts.at<Email2>(i);
    if (part && !writeSubpart(*part, delimiter, below)) return false;
    if (!node.isLive()) return false;
  }
  return job.to.write(boundary + "--\r\n") && node.isLive();
}

bool holdsBoundary(std::string_view body, const Enclosing* around) noexcept {
  for (std::size_t at = 0; around && at < body.size();) {
    const std::size_t position = findDashLine(body, at);
    if (position == std::string_view::npos) return false;
    const DashLine line = dashLineAt(body, position);
    for (const Enclosing* open = around; open; open = open->outer)
      if (line.isBoundary(open->boundary)) return true;
    at = line.next;
  }
  return false;
}

/// Whether received bytes contain an unterminated multipart and the boundary of an outer one. A parser would
/// take the end of the outer multipart for the inner one's.
bool breaksOuterMultipart(const Email2& node, std::string_view received, const Enclosing* around) {
  const auto isUnclosed = [](const Email2& part) {
    return part.m_repairs.has(Repair::boundaryUnclosed) ? Walk::stop : Walk::descend;
  };
  return walkTree(node, isUnclosed) == Walk::stop && holdsBoundary(received, around);
}

/// Encodes a body with a line that looks like the boundary of an outer multipart, after decoding or
/// conversion. Unencoded, it would end this part and begin another one, which the sender did not write.
void encodeBoundaryLines(Email2& node, const OutgoingBody& body, const Assembly& job) {
  if (hasChildren(node) || isEncoded(node) || !holdsBoundary(body.bytesOf(node).view(), job.around)) return;
  setTransferEncoding(node, body.normalizeLineEnds ? "quoted-printable" : "base64", job.log);
}

bool hasBareCr(std::string_view bytes) noexcept {
  if (!hasBareLineEnd(bytes)) return false;
  for (std::size_t at = 0; (at = bytes.find('\r', at)) != std::string_view::npos; ++at)
    if (!bytes.substr(at + 1).starts_with('\n')) return true;
  return false;
}

/// Some servers take a bare CR for a line break, and a dot after it for the end of the message.
void encodeBareCr(Email2& node, const OutgoingBody& body, const Assembly& job) {
  if (!job.forSmtp || hasChildren(node) || isEncoded(node) || isAttachedMessage(node)) return;
  if (!body.normalizeLineEnds && hasBareCr(body.bytesOf(node).view()))
    setTransferEncoding(node, "base64", job.log);
}

/// Writes the plain name of the encoding, because some programs do not know "base64;". Letter case is kept.
void normalizeEncodingName(Email2& node, LogBase& log) {
  if (hasChildren(node) || !isEncoded(node)) return;
  const int field = node.m_header.findField("Content-Transfer-Encoding");
  if (field >= 0 && !equalsNoCase(node.m_header.rawValue(field), node.m_transferEncoding))
    setTransferEncoding(node, copyOf(node.m_transferEncoding).getString(), log);
}

/// Prepares the node for writing and chooses the body to write.
bool prepare(Email2& node, const Assembly& job, OutgoingBody& body) {
  logKind(node, job.log);
  const bool isAttachment = node.isEmailAttachment(false, job.log);
  if (!node.isLive()) return false;
  if (job.qpFor8bit && !isAttachedMessage(node)) turn8bitToQp(node, job.log);
  if (!node.isLive()) return false;
  labelUnlabelled8bitText(node, job.log);
  if (!node.isLive()) return false;
  dropEncodingOfAlternative(node);
  if (!node.isLive()) return false;
  body = chooseBody(node, isAttachment, job.log);
  encodeBoundaryLines(node, body, job);
  encodeBareCr(node, body, job);
  normalizeEncodingName(node, job.log);
  return node.isLive();
}

/// Writes the header and, for a leaf, the body. A separate function, so that a converted body is freed before
/// the walk descends.
bool writeNode(Email2& node, const Assembly& job) {
  OutgoingBody body;
  if (!prepare(node, job, body) || !writeHeader(node, body, job) || !node.isLive()) return false;
  return hasChildren(node) || writeLeaf(node, body, job);
}

bool assemble(Email2& node, const Assembly& job) {
  if (!node.isLive()) return false;
  if (job.level >= kMaxWrittenDepth) {
    job.faults->tooDeep = true;
    return false;
  }
  LogContextExitor context(job.log, "assembleMimeBody");
  const DataBuffer* const received = unchangedReceivedContent(node);
  if (received && !breaksOuterMultipart(node, received->view(), job.around))
    return writeReceived(received->view(), job);
  return writeNode(node, job) && (!hasChildren(node) || writeSubparts(node, job));
}

/// Deliberate: the line break after each subpart is not counted.
std::uint64_t sizeOfDelimiters(const Email2& node) noexcept {
  if (!hasChildren(node)) return 0;
  const std::uint64_t boundary = node.m_contentType.m_boundary.getSize();
  std::uint64_t size = boundary + 6;
  for (int i = 0; i < node.m_subParts.getSize(); ++i)
    if (node.m_subParts.elementAt(i)) size += boundary + 4;
  return size;
}

std::uint64_t sizeBelowHeader(const Email2& node) noexcept {
  const std::size_t body = node.m_body.getSize();
  const bool isBase64 = node.m_transferEncoding.equalsIgnoreCase("base64");
  return (isBase64 ? ContentCoding::computeBase64Size(body, 76) : body) + 4 + sizeOfDelimiters(node);
}

std::uint64_t sizeOfNode(const Email2& node) noexcept {
  return node.m_header.getMimeHeaderSize() + sizeBelowHeader(node);
}

/// Whether only the header was downloaded; a field then holds the size on the server.
bool isHeaderOnly(const Email2& node) noexcept {
  const int field = node.m_header.findField("SVZ-HeaderOnly");
  return field >= 0 && !node.m_header.rawValue(field).empty();
}

unsigned sizeOnServer(const Email2& node, LogBase& log) {
  StringBuffer size;
  node.m_header.getMimeFieldUtf8("SVZ-Size", size, log);
  return size.uintValue();
}

/// Reserves memory for the whole message, because growing copies what is already written. An estimate is
/// enough, but it must not be too small: a header counts with all the memory that it has, because looking at
/// each field takes longer than writing it.
void reserveFor(const Email2& root, StringBuffer& text) {
  constexpr std::uint64_t kSpare = 4096;
  std::uint64_t size = 0;
  walkTree(root, [&](const Email2& node) {
    size += node.m_header.heapUsage() + sizeBelowHeader(node);
    return Walk::descend;
  });
  text.text().reserve(text.getSize() + static_cast<std::size_t>(size + size / 64 + kSpare));
}

}  // namespace

bool Email2::assembleMimeBody2(StringBuffer& text, _svOutput* sink, bool dotStuff, const char* omitPrefix,
                               ProgressContext& progress, LogBase& log, int /*depth*/, bool qpFor8bit,
                               bool isTop) {
  return neverThrow(false, [&] {
    if (!sink && isTop && isLive()) reserveFor(*this, text);
    const bool forSmtp = dotStuff && sink;
    ProgressContext unmonitored(nullptr);
    std::optional<DotStuffedOutput> stuffed;
    _svOutput* const destination = forSmtp ? &stuffed.emplace(*sink, progress) : sink;
    Faults faults;
    const bool written = assemble(*this, {.to = {text, destination, forSmtp ? unmonitored : progress, log},
                                          .forSmtp = forSmtp,
                                          .omitPrefix = omitPrefix,
                                          .log = log,
                                          .qpFor8bit = qpFor8bit,
                                          .isTop = isTop,
                                          .faults = &faults});
    if (faults.tooDeep) log.logError("Parts nested too deeply were left out.");
    if (faults.dotAfterBareCr) log.logError("Content that must not change contains a dot after a bare CR.");
    return written && !faults.tooDeep && !faults.dotAfterBareCr;
  });
}

bool Email2::getEncodedBody(const DataBuffer& body, StringBuffer& text, ProgressContext& progress,
                            LogBase& log, bool, _svOutput* sink, bool dotStuff,
                            bool normalizeLineEnds) const {
  if (!isLive()) return false;
  if (body.isEmpty()) return true;
  return neverThrow(false, [&] {
    const void* const data = body.getData2();
    const std::size_t size = body.getSize();
    if (m_transferEncoding.equalsIgnoreCase("base64"))
      return sink ? ContentCoding::encodeBase64ToOutput(data, size, *sink, progress, log)
                  : ContentCoding::encodeBase64(data, size, text);
    if (m_transferEncoding.equalsIgnoreCase("quoted-printable"))
      return sink ? ContentCoding::encodeQpToOutput(data, size, *sink, progress, log)
                  : ContentCoding::encodeQuotedPrintable(data, size, text);
    const Destination to{text, sink, progress, log};
    if (!normalizeLineEnds || !body.containsBareCRLF()) return writeUnencoded(body.view(), dotStuff, to);
    StringBuffer normalized(body.view());
    return normalized.toCRLF() && writeUnencoded(normalized, dotStuff, to);
  });
}

void Email2::getMimeBodyEncodedUtf8(StringBuffer& out, LogBase&) {
  if (!isLive()) return;
  out.clear();
  const void* const data = m_body.getData2();
  if (m_transferEncoding.equalsIgnoreCase("quoted-printable"))
    ContentCoding::encodeQuotedPrintable(data, m_body.getSize(), out);
  else if (m_transferEncoding.equalsIgnoreCase("base64") || m_body.containsChar('\0'))
    ContentCoding::encodeBase64(data, m_body.getSize(), out);
  else
    out.append(m_body);
}

unsigned Email2::getEmailSize(LogBase& log) const {
  std::uint64_t size = 0;
  const bool counted = neverThrow(false, [&] {
    walkTree(*this, [&](const Email2& node) {
      if (isHeaderOnly(node)) {
        size += sizeOnServer(node, log);
        return Walk::skipChildren;
      }
      size += sizeOfNode(node);
      return Walk::descend;
    });
    return true;
  });
  return counted ? static_cast<unsigned>(std::min<std::uint64_t>(size, std::numeric_limits<unsigned>::max()))
                 : 0;
}

}  // namespace mailtree
