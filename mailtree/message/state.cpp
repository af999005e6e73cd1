// message/state.cpp - the life of a Message: reading, copying, and which of its two trees is written.
#include <new>

#include "mailtree/base/Log.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree {
namespace {

bool hasUnixLines(std::string_view message) {
  const std::size_t end = message.find('\n');
  return end != std::string_view::npos && (end == 0 || message[end - 1] != '\r');
}

/// Whether line breaks in a body are those of the message. base64 and binary carry bytes; in
/// quoted-printable, only in text are literal line breaks the same as encoded ones.
bool hasTextLineBreaks(const Email2& leaf) {
  const std::string_view encoding = leaf.m_transferEncoding;
  if (encoding.empty() || equalsNoCase(encoding, "7bit") || equalsNoCase(encoding, "8bit")) return true;
  const std::string_view type = leaf.m_contentType.m_type;
  return equalsNoCase(encoding, "quoted-printable") && (type.empty() || beginsWithNoCase(type, "text/"));
}

void convertToCrlf(Email2& node) {
  if (node.getNumParts() > 0 || !hasTextLineBreaks(node) || !node.m_body.containsBareCRLF() ||
      node.m_body.containsChar('\0'))
    return;  // with NUL bytes present, LF may be half of a character
  StringBuffer lines(node.m_body.view());
  DataBuffer body;
  if (lines.toCRLF() && body.append(lines)) node.m_body.takeData(body);
}

/// A complete tree; one without a root when memory ran out.
Tree loadTree(DataBuffer& bytes, SystemCerts& certs, bool unwrap, LoadBudget* budget) {
  Tree tree{RefPtr<_svEmailCommon>(new _svEmailCommon), nullptr, hasUnixLines(bytes.view())};
  if (budget) {
    tree.common->m_budget = *budget;
    tree.common->m_sharesBudget = true;
  }
  LogNull log;
  tree.root.reset(Email2::createFromMimeDb(*tree.common, bytes, /*discardInput=*/false, unwrap, certs, log,
                                           /*parseOption=*/false));
  if (budget) *budget = tree.common->m_budget;
  // An incomplete tree must not be shown, or written over the complete message.
  if (!tree.common->m_isWhole) tree.root.reset();
  return tree;
}

Tree copyOf(const Tree& tree) {
  LogNull log;
  Tree copy{{}, EmailPtr(tree.root->clone_v3(/*shareImageData=*/false, log)), tree.hasUnixLines};
  if (copy.root) copy.common = RefPtr<_svEmailCommon>(copy.root->m_common);
  return copy;
}

}  // namespace

Error noMemory() { return {ErrorCode::noMemory, std::string(kNoMemory), {}}; }

const Outline& MessageState::outline() {
  if (!cachedOutline) cachedOutline = outlineOf(root());
  return *cachedOutline;
}

void MessageState::changed() noexcept {
  cachedOutline.reset();
  cachedDisplayed.reset();
  isAsReceived = false;
  openBytes.clear();
}

std::string_view MessageState::receivedBytes() const noexcept {
  if (!isAsReceived) return {};
  return isSealed() ? sealedBytes.view() : openBytes.view();
}

Result<Email2*> MessageState::written() {
  if (isSealed() && !sealed.root) {
    SystemCerts none;
    sealed = loadTree(sealedBytes, none, /*unwrap=*/false, nullptr);
    if (!sealed.root) return noMemory();
  }
  Tree& tree = isSealed() ? sealed : opened;
  if (std::exchange(tree.hasUnixLines, false)) walkUnsigned(*tree.root, convertToCrlf);
  return tree.root.get();
}

bool MessageState::holdsSecret() const {
  return wasEncrypted || answersEncrypted || isEncrypted(root()) ||
         std::ranges::any_of(layers,
                             [](const SecureLayer& layer) { return layer.isEncrypted() && layer.opened; });
}

Result<void> MessageState::beginContentChange() {
  for (const SecureLayer& layer : layers)
    if (layer.isEncrypted() && (isSealed() || layer.part == SecureLayer::kWholeMessage))
      return Error{ErrorCode::encrypted, "the content is encrypted: decrypt the message first", layer.part};
  sealedBytes.clear();
  sealed = {};
  layers.clear();
  innerFields.clear();
  cachedSecurity.reset();
  return {};
}

namespace {

/// Loads a message without keeping its bytes.
std::unique_ptr<MessageState> loadState(const DataBuffer& bytes, const Keys* keys, LoadBudget* budget,
                                        bool& isSealed) {
  SystemCerts none;
  SystemCerts& certs = keys ? keys->systemCerts() : none;
  DataBuffer input;
  input.borrowData(bytes.getData2(), bytes.getSize());
  auto state = std::make_unique<MessageState>();
  state->opened = loadTree(input, certs, /*unwrap=*/true, budget);
  if (!state->opened.root) return nullptr;
  state->layers = std::move(state->opened.common->m_secureLayers);
  state->innerFields = std::move(state->opened.common->m_innerFields);
  state->wasTrustGiven = certs.hasTrustAnchors();
  isSealed = !state->layers.empty();
  findLayersBelowMixed(*state, bytes.view(), certs, budget);
  // Not later: the verdict is about the header as it was read.
  if (!state->layers.empty()) state->cachedSecurity = securityOf(*state);
  return state;
}

Result<Message> keepBytes(std::unique_ptr<MessageState> state, bool isSealed, DataBuffer&& bytes) {
  (isSealed ? state->sealedBytes : state->openBytes).takeData(bytes);
  state->isAsReceived = true;
  return MessageState::messageOf(std::move(state));
}

}  // namespace

Result<Message> loadMessage(DataBuffer&& bytes, const Keys* keys, LoadBudget* budget) {
  bool isSealed = false;
  std::unique_ptr<MessageState> state = loadState(bytes, keys, budget, isSealed);
  return state ? keepBytes(std::move(state), isSealed, std::move(bytes)) : Result<Message>(noMemory());
}

Result<Message> loadMessage(const DataBuffer& bytes, const Keys* keys, LoadBudget* budget) {
  bool isSealed = false;
  std::unique_ptr<MessageState> state = loadState(bytes, keys, budget, isSealed);
  DataBuffer copy;  // made last: the bytes are in the cache then
  if (!state || !copy.append(bytes)) return noMemory();
  return keepBytes(std::move(state), isSealed, std::move(copy));
}

Message::Message() : m_state(std::make_unique<MessageState>()) {
  m_state->opened.common = RefPtr<_svEmailCommon>(new _svEmailCommon);
  m_state->opened.root.reset(new Email2(*m_state->opened.common));
}

Message::Message(std::unique_ptr<MessageState> state) : m_state(std::move(state)) {}
Message::Message(Message&&) noexcept = default;
Message& Message::operator=(Message&&) noexcept = default;
Message::~Message() = default;

Result<Message> Message::open(const std::string& path, const OpenOptions& options) {
  DataBuffer bytes;
  LogMemory log;
  if (!bytes.loadFileUtf8(path.c_str(), log))
    return Error{ErrorCode::unreadable, lastError(log, "cannot be read"), path};
  return loadMessage(std::move(bytes), options.keys).transform_error([&path](Error error) {
    error.where = path;
    return error;
  });
}

Result<Message> Message::parse(std::string_view bytes, const OpenOptions& options) {
  DataBuffer input;
  input.borrowData(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  return loadMessage(input, options.keys);
}

Result<Message> Message::clone() const {
  auto copy = std::make_unique<MessageState>();
  copy->opened = copyOf(m_state->opened);
  if (!copy->opened.root) return noMemory();
  if (m_state->isSealed() && !copy->sealedBytes.append(m_state->sealedBytes)) return noMemory();
  if (m_state->sealed.root) {
    copy->sealed = copyOf(m_state->sealed);
    if (!copy->sealed.root) return noMemory();
  }
  if (!copy->openBytes.append(m_state->openBytes)) return noMemory();
  copy->isAsReceived = m_state->isAsReceived;
  copy->layers = m_state->layers;
  copy->innerFields = m_state->innerFields;
  copy->cachedSecurity = m_state->cachedSecurity;
  copy->wasTrustGiven = m_state->wasTrustGiven;
  copy->wasEncrypted = m_state->wasEncrypted;
  copy->answersEncrypted = m_state->answersEncrypted;
  return MessageState::messageOf(std::move(copy));
}

Email2& Message::email2() {
  m_state->changed();
  return m_state->root();
}

const Email2& Message::email2() const { return m_state->root(); }

}  // namespace mailtree
