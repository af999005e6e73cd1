// email/loading/from_entity.cpp - turns a parse tree into an email tree, one node per entity.
// Everything is moved.

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "mailtree/email/internal.h"
#include "mailtree/email/loading/body_repairs.h"
#include "mailtree/email/loading/layer_places.h"
#include "mailtree/email/loading/received_date.h"
#include "mailtree/email/loading/settings_restorer.h"
#include "mailtree/email/loading/unwrapping.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/coding/Uu.h"

namespace mailtree {
namespace {

struct BuildOptions {
  bool extractBody = true;
  bool consume = false;          ///< Delete each part of the parse tree when its node is complete.
  bool repair = true;            ///< Unpack Macintosh and Unix forms, and repair broken texts.
  SystemCerts* certs = nullptr;  ///< Keys to open layers with; null: do not unwrap.
};

/// Counts two levels, which is exact for nearly all mail.
std::size_t expectedNodes(const MimeMessage2& root) noexcept {
  std::size_t count = 1;
  for (int i = 0; i < root.getNumParts(); ++i)
    count += 1 + static_cast<std::size_t>(root.getPart(i)->getNumParts());
  return count;
}

constexpr std::string_view kAppleDouble = "multipart/appledouble";

class TreeBuilder {
 public:
  TreeBuilder(const MimeMessage2& root, _svEmailCommon& common, const BuildOptions& options,
              LogBase& log) noexcept
      : m_common(common), m_options(options), m_log(log), m_nodes(expectedNodes(root)) {
    m_now.getCurrentGmt();
  }

  /// Null when memory ran out; the part is then missing from its parent.
  EmailPtr build(MimeMessage2& entity, int depth, bool unwrap) noexcept {
    return neverThrow(EmailPtr(), [&] { return convert(entity, depth, unwrap); });
  }

 private:
  EmailPtr convert(MimeMessage2& entity, int depth, bool unwrap);
  void readEnvelope(const MimeMessage2& entity, Email2& node);
  void moveHeader(MimeMessage2& entity, Email2& node);
  void recordCharset(const _svCharset& charset, Email2& node);
  void resetSendSettings() noexcept;
  void loadBody(MimeMessage2& entity, Email2& node, const StringBuffer& charset);
  void moveBody(MimeMessage2& entity, Email2& node);
  void addChildren(MimeMessage2& entity, Email2& node, int depth, bool unwrap);
  void convertForkText(MimeMessage2& fork);
  MimeMessage2& unpackChild(MimeMessage2& parent, int index, MimeMessage2& child);

  _svEmailCommon& m_common;
  BuildOptions m_options;
  LogBase& m_log;
  SorvikSysTime m_now;
  SlabPool<Email2> m_nodes;
};

EmailPtr TreeBuilder::convert(MimeMessage2& entity, int depth, bool unwrap) {
  LogContextExitor context(m_log, "createFromMimeObject");
  // Deliberate: nothing is unwrapped below a multipart/mixed; code that displays its parts
  // unwraps them itself.
  const bool unwrapHere = unwrap && !entity.isMultipartMixed();
  const bool isMessage = equalsNoCase(entity.contentType().m_type, "message/rfc822");
  EmailPtr node(m_nodes.create(m_common, m_now));
  if (unwrapHere && !isMessage && m_options.certs) unwrapReceived(entity, *node, *m_options.certs, m_log);
  m_common.m_limits.add(entity.limits());
  node->m_repairs = entity.repairs();
  node->m_origin = entity.origin();
  StringBuffer charset;
  entity.getCharset(charset);
  readEnvelope(entity, *node);
  moveHeader(entity, *node);
  resetSendSettings();
  loadBody(entity, *node, charset);
  addChildren(entity, *node, depth, unwrapHere);
  return entity.isWhole() ? std::move(node) : EmailPtr();
}

void TreeBuilder::readEnvelope(const MimeMessage2& entity, Email2& node) {
  const MimeHeader& header = entity.header();
  const int from = header.findField("From");
  if (from >= 0) {
    // Addresses are parsed before encoded words are decoded, because an encoded word could forge one.
    std::string scratch;
    const std::string value(header.unfoldedValue(from, scratch));
    if (!value.empty()) node.m_fromAddr.loadSingleEmailAddr(value.c_str(), /*relaxed=*/false, m_log);
  }
  if (header.findField("To") >= 0) entity.getEmailAddresses("To", node.m_toAddrs, m_log);
  if (header.findField("Cc") >= 0) entity.getEmailAddresses("Cc", node.m_ccAddrs, m_log);
  if (header.findField("Bcc") >= 0) entity.getEmailAddresses("Bcc", node.m_bccAddrs, m_log);
  receivedDate(header, node.m_date, m_log);
}

void TreeBuilder::moveHeader(MimeMessage2& entity, Email2& node) {
  LogContextExitor context(m_log, "headerProcessing");
  entity.extractHeader(node.m_header);
  entity.getDisposition(node.m_disposition);
  entity.getContentEncoding(node.m_transferEncoding);
  entity.getContentId(node.m_contentId);
  entity.getMimeFilename(node.m_dispFilename);  // may be the name parameter, so read before the type is moved
  entity.extractContentType(node.m_contentType);
  recordCharset(entity.charset(), node);
}

/// The charset of an attachment applies only to it. Otherwise the first part with a charset decides for
/// the whole message.
void TreeBuilder::recordCharset(const _svCharset& charset, Email2& node) {
  _svCharset& common = m_common.m_charset;
  const int codePage = charset.getCodePage();
  if (codePage > 0) {
    if (node.isStrictAttachment(&m_log))
      node.m_attachCodePage = codePage;
    else if (common.getCodePage() < 1)
      common.setByCodePage(codePage);
  }
  const std::string_view name = viewOf(common.getName());
  if (equalsNoCase(name, "default") || equalsNoCase(name, "x-user-defined")) common.clear();
}

/// Clears the send settings, which do not apply to a received message.
void TreeBuilder::resetSendSettings() noexcept {
  m_common.m_sendSigned = false;
  m_common.m_sendEncrypted = false;
  m_common.m_idOnServer = -1;
}

void TreeBuilder::loadBody(MimeMessage2& entity, Email2& node, const StringBuffer& charset) {
  if (!m_options.repair) return moveBody(entity, node);
  if (!extractUuencoded(node, *entity.getMimeBodyDb(), charset, m_log)) {
    decodeUuencodedBody(node, *entity.getMimeBodyDb(), charset, m_log);
    // A node with parts is not a single file, whatever its fields say.
    if (entity.getNumParts() == 0) unpackAttachmentOnly(node, *entity.getMimeBodyDb(), m_log);
    moveBody(entity, node);
    repairReceivedText(node, m_log);
  }
  node.checkFixNotReallyHtml();
  if (node.m_disposition.equalsIgnoreCase("attachment")) return;
  if (lacksCharset(node, !charset.isEmpty())) node.detectAndSetCharset(m_log);
  node.checkHtmlLongLineLength(m_log);
}

void TreeBuilder::moveBody(MimeMessage2& entity, Email2& node) {
  if (m_log.m_debugLogging) m_log.logInfo(m_options.extractBody ? "extractMimeBody..." : "copyMimeBody...");
  if (m_options.extractBody)
    entity.extractMimeBody(node.m_body, m_log);
  else
    entity.copyMimeBody(node.m_body, m_log);
}

void TreeBuilder::addChildren(MimeMessage2& entity, Email2& node, int depth, bool unwrap) {
  if (entity.getNumParts() == 0) return;
  if (depth >= kMaxDepth) {
    m_common.m_limits.add(Limit::depth);
    return;
  }
  const bool isPair = isType(node.m_contentType.m_type, kAppleDouble);
  std::ignore = node.m_subParts.reserveMore(entity.getNumParts());  // on failure the list grows as needed
  for (int i = 0; i < entity.getNumParts(); ++i) {
    MimeMessage2& child = *entity.getPart(i);
    if (isPair) convertForkText(child);
    const std::unique_ptr<DataBuffer> received = child.extractReceivedBytes();
    const Origin origin = child.origin();  // kept if the file inside takes its place
    MimeMessage2& unpacked = m_options.repair ? unpackChild(entity, i, child) : child;
    EmailPtr part = build(unpacked, depth + 1, unwrap);
    if (!part) continue;
    part->m_origin = origin;
    if (received) storeReceivedContent(*part, std::move(*received));
    if (node.m_subParts.appendObject(part.get())) std::ignore = part.release();  // the parent owns it now
    if (m_options.consume) entity.deletePart(i);
  }
}

/// Parsing keeps the bytes of the forks of a Macintosh file. The forks of a pair that is not unpacked become
/// normal parts, and output converts their text.
void TreeBuilder::convertForkText(MimeMessage2& fork) {
  const std::string_view name = viewOf(fork.charset().getName());
  if (name.empty() || fork.getNumParts() > 0 || !isConvertibleText(fork.traits())) return;
  const DataBuffer& body = *fork.getMimeBodyDb();
  fork.setMimeBody8Bit_2(body.getData2(), static_cast<unsigned>(body.getSize()), fork.charset(),
                         /*isText=*/true, m_log);
}

/// Unpacks a child in an old Macintosh or Unix form to the file that it holds. Returns the child to use.
MimeMessage2& TreeBuilder::unpackChild(MimeMessage2& parent, int index, MimeMessage2& child) {
  MimeMessage2* part = &child;
  if (equalsNoCase(child.contentType().m_type, kAppleDouble)) {
    if (MimeMessage2* const dataFork = child.getAppleDoubleAttachment(m_log)) {
      const Owned<MimeMessage2> replaced(&child);
      parent.replacePart(index, dataFork, m_log);
      dataFork->setDisposition("attachment", m_log);
      part = dataFork;
    }
  }
  if (isUuTransferEncoding(viewOf(part->getContentEncoding()))) part->uuDecodeAttachment(m_log);
  return *part;
}

EmailPtr unwrappedTree(_svEmailCommon& common, MimeMessage2& entity, const BuildOptions& options, bool unwrap,
                       LogBase& log) {
  const std::uint64_t before = abandonedOperations();
  const std::size_t layersBefore = common.m_secureLayers.size();
  EmailPtr root = TreeBuilder(entity, common, options, log).build(entity, 0, unwrap);
  std::ignore = neverThrow(false, [&] {
    if (root) placeLayers(*root, common.m_secureLayers, common.m_innerFields, layersBefore);
    return true;
  });
  common.m_isWhole &= abandonedOperations() == before;
  return root;
}

}  // namespace

Email2* Email2::createFromMimeObject2(_svEmailCommon& common, MimeMessage2& entity, bool extractBody,
                                      bool unwrap, LogBase& log, SystemCerts& certs) {
  return unwrappedTree(common, entity, {.extractBody = extractBody, .certs = &certs}, unwrap, log).release();
}

EmailPtr consumeEntity(_svEmailCommon& common, MimeMessage2& entity, bool unwrap, SystemCerts& certs,
                       LogBase& log) {
  return unwrappedTree(common, entity, {.consume = true, .certs = &certs}, unwrap, log);
}

EmailPtr loadWrittenContent(_svEmailCommon& common, std::string_view text, LogBase& log) {
  return neverThrow(EmailPtr(), [&] {
    LogContextExitor context(log, "createFromMimeText");
    const SettingsRestorer restorer(common);
    const std::uint64_t before = abandonedOperations();
    MimeMessage2 tree;
    if (!tree.loadText(text, log)) return EmailPtr();
    EmailPtr root =
        TreeBuilder(tree, common, {.consume = true, .repair = false}, log).build(tree, 0, /*unwrap=*/false);
    return abandonedOperations() == before ? std::move(root) : EmailPtr();
  });
}

}  // namespace mailtree
