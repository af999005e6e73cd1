#include "mailtree/email/Email2.h"

#include <tuple>
#include <utility>

#include "mailtree/base/Platform.h"
#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

/// Destroys all nodes of a list and everything below them. Children join the list before their parent is
/// destroyed, so destructors never nest, however deep the tree is.
void destroyNodes(ExtPtrArray& nodes) noexcept {
  while (nodes.getSize() > 0) {
    const EmailPtr last(static_cast<Email2*>(nodes.removeAt(nodes.getSize() - 1)));
    if (last && last->isLive()) std::ignore = last->m_subParts.transferPtrs(nodes);
  }
}

/// Writes null in a way the optimizer must keep: operations that do not check the marker then find no shared
/// settings in a destroyed node.
void clearCommon(_svEmailCommon*& common) noexcept {
  *static_cast<_svEmailCommon* volatile*>(&common) = nullptr;
}

}  // namespace

Email2::Email2(_svEmailCommon& common, Blank) noexcept : m_magic(0), m_common(&common) {
  common.incRefCount();
  writeMarker(m_magic, kEmailMarker);
  m_header.m_foldLongValues = true;
}

Email2::Email2() : Email2(*new _svEmailCommon) {}

Email2::Email2(_svEmailCommon& common) : Email2(common, Blank()) { initializeDefaults(); }

Email2::Email2(_svEmailCommon& common, int) : Email2(common, Blank()) { m_date.getCurrentGmt(); }

Email2::Email2(_svEmailCommon& common, const SorvikSysTime& created) : Email2(common, Blank()) {
  m_date.copyFrom(created);
}

void Email2::initializeDefaults() {
  LogNull quiet;
  m_header.replaceMimeFieldUtf8("MIME-Version", "1.0", quiet);
  resetDate(quiet);
  generateMessageID(quiet);
  setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, quiet);
  setTransferEncoding(*this, "7bit", quiet);
  m_header.replaceMimeFieldUtf8("X-Priority", "3 (Normal)", quiet);
  minimizeMemUsage();
}

Email2::~Email2() {
  if (!isLive()) Psdk::corruptObjectFound(nullptr);
  destroyNodes(m_subParts);
  m_toAddrs.removeAllObjects();
  m_ccAddrs.removeAllObjects();
  m_bccAddrs.removeAllObjects();
  writeMarker(m_magic, 0);
  if (m_common) m_common->decRefCount();
  clearCommon(m_common);
}

Email2* Email2::createNewObject(_svEmailCommon& common) {
  return neverThrow<Email2*>(nullptr, [&] { return new Email2(common); });
}

Email2* Email2::createNewObject0(_svEmailCommon& common) {
  return neverThrow<Email2*>(nullptr, [&] { return new Email2(common, 0); });
}

Email2* Email2::createNewObject00() {
  return neverThrow<Email2*>(nullptr, [] {
    const RefPtr<_svEmailCommon> common(new _svEmailCommon);
    return new Email2(*common, 0);
  });
}

bool Email2::isValidEmailObject() const {
  if (!isLive()) return false;
  for (const StringBuffer* text : {&m_disposition, &m_transferEncoding, &m_contentId, &m_dispFilename})
    if (!text->isValidObject()) return false;
  const SorvikObject* const members[] = {&m_body,    &m_header,   &m_subParts, &m_toAddrs,
                                         &m_ccAddrs, &m_bccAddrs, &m_fromAddr, &m_date};
  for (const SorvikObject* member : members)
    if (!member->isValidObject()) return false;
  return true;
}

void Email2::minimizeMemUsage() {
  if (!isLive()) return;
  for (StringBuffer* text :
       {&m_contentType.m_type, &m_disposition, &m_transferEncoding, &m_contentId, &m_contentType.m_name,
        &m_contentType.m_protocol, &m_contentType.m_micalg, &m_contentType.m_boundary,
        &m_contentType.m_smimeType, &m_dispFilename, &m_contentType.m_subtype})
    text->minimizeMemoryUsage();
}

// Subparts

int Email2::getNumParts() const { return isLive() ? m_subParts.getSize() : 0; }

Email2* Email2::getPart(int index) const { return isLive() ? m_subParts.at<Email2>(index) : nullptr; }

const Email2* Email2::getPartConst(int index) const { return getPart(index); }

Email2* Email2::extractSubpartByIndex(int index) { return static_cast<Email2*>(m_subParts.removeAt(index)); }

void Email2::insertSubPartAtIndex(Email2* part, int index) {
  if (part) m_subParts.insertAt(index, part);
}

void Email2::replacePartAt(int index, Email2* part) {
  std::ignore = extractSubpartByIndex(index);
  insertSubPartAtIndex(part, index);
}

void Email2::swapChildren(Email2& other) {
  ExtPtrArray mine;
  m_subParts.transferPtrs(mine);
  other.m_subParts.transferPtrs(m_subParts);
  mine.transferPtrs(other.m_subParts);
}

void Email2::swapContentType(Email2& other) { std::swap(m_contentType, other.m_contentType); }

void Email2::removeAllSubparts() {
  if (isLive()) destroyNodes(m_subParts);
}

// Shared settings

void Email2::setOverwriteExisting(bool overwrite) {
  if (isLive() && m_common) m_common->m_overwriteExisting = overwrite;
}

bool Email2::getOverwriteExisting() const { return m_common ? m_common->m_overwriteExisting : true; }

void Email2::setIdOnServer(int id) {
  if (isLive() && m_common) m_common->m_idOnServer = id;
}

int Email2::getIdOnServer() const { return m_common ? m_common->m_idOnServer : -1; }

const char* Email2::get_charset_name() const {
  return isLive() && m_common ? m_common->m_charset.getName() : "";
}

int Email2::get_charset_codepage() const { return isLive() ? emailCodePage() : 0; }

void Email2::use_charset(_svCharset& charset) {
  if (isLive() && m_common) m_common->m_charset.copy(charset);
}

void Email2::use_codepage(int codePage) {
  if (isLive() && m_common && codePage != 0) m_common->m_charset.setByCodePage(codePage);
}

void Email2::supplyTermValue(const char* term, StringBuffer& out) {
  if (!isLive()) return;
  LogNull quiet;
  if (!equalsNoCase(viewOf(term), "body")) {
    m_header.getMimeFieldUtf8(term, out, quiet);
    return;
  }
  DataBuffer body;
  getEffectiveBodyData(*this, body, quiet);
  out.append(body);
}

PartTraits Email2::traits() const noexcept {
  if (!isLive()) return {};
  return {m_contentType.m_type, m_contentType.m_name, m_disposition, m_dispFilename, m_transferEncoding};
}

}  // namespace mailtree
