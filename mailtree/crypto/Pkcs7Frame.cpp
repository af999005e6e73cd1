#include <vector>

#include "mailtree/crypto/Pkcs7Internal.h"

namespace mailtree {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kMaxPieceNesting = 16;

const struct {
  std::string_view objectId;
  LayerKind kind;
} kTypes[] = {
    {"\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02"sv, LayerKind::opaqueSignature},
    {"\x2A\x86\x48\x86\xF7\x0D\x01\x07\x03"sv, LayerKind::enveloped},
    {"\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x01\x17"sv, LayerKind::authEnveloped},
    {"\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x01\x09"sv, LayerKind::compressed},
};

LayerKind kindOfType(std::string_view objectId) noexcept {
  for (const auto& type : kTypes)
    if (type.objectId == objectId) return type.kind;
  return LayerKind::unknown;
}

bool isEncryptedKind(LayerKind kind) noexcept {
  return kind == LayerKind::enveloped || kind == LayerKind::authEnveloped;
}

/// From the first byte of `begin` to the end of `all`, which contains it.
std::string_view tailFrom(std::string_view all, const char* begin) noexcept {
  return all.substr(static_cast<std::size_t>(begin - all.data()));
}

/// The element that describes the content is the first sequence; in CompressedData the
/// second, after the algorithm.
std::optional<DerElement> findDescription(DerReader& fields, LayerKind kind) noexcept {
  for (int sequencesBefore = kind == LayerKind::compressed ? 1 : 0;;) {
    const auto field = fields.next();
    if (!field) return {};
    if (field->tag == kDerSequence && sequencesBefore-- == 0) return field;
  }
}

/// The optional [0] at the end of the description: encrypted and implicit, or an explicit octet string.
bool readContent(DerReader& description, Pkcs7Frame& frame) noexcept {
  if (description.atEnd()) return true;
  const auto tagged = description.next();
  if (!tagged) return false;
  const bool isEncrypted = isEncryptedKind(frame.kind);
  if ((tagged->tag | kDerConstructed) != derContext(0)) return false;
  if (isEncrypted) {
    frame.content = tagged;
    return true;
  }
  frame.content = DerReader(tagged->content).next();
  return frame.content && (frame.content->tag & ~kDerConstructed) == kDerOctetString;
}

bool readDescription(std::string_view fields, Pkcs7Frame& frame) noexcept {
  DerReader description(fields);
  const auto contentType = description.nextIf(kDerObjectId);
  if (!contentType) return false;
  frame.contentType = contentType->content;
  if (isEncryptedKind(frame.kind) && !description.nextIf(kDerSequence)) return false;
  frame.describe = fields.substr(0, fields.size() - description.rest().size());
  return readContent(description, frame);
}

/// The fields after the description of an AuthEnvelopedData.
bool readMac(Pkcs7Frame& frame) noexcept {
  DerReader fields(frame.after);
  frame.hasAuthenticatedAttributes = fields.nextIf(derContext(1)).has_value();
  const auto mac = fields.nextIf(kDerOctetString);
  if (!mac) return false;
  frame.mac = mac->content;
  return true;
}

/// A SignedData without content is a detached signature, or certificates only.
LayerKind kindWithoutContent(std::string_view after) noexcept {
  DerReader fields(after);
  while (const auto field = fields.next())
    if (field->tag == kDerSet)
      return field->content.empty() ? LayerKind::certificatesOnly : LayerKind::detachedSignature;
  return LayerKind::unknown;
}

bool readBody(std::string_view body, Pkcs7Frame& frame) noexcept {
  DerReader fields(body);
  const auto description = findDescription(fields, frame.kind);
  if (!description || !readDescription(description->content, frame)) return false;
  frame.before = body.substr(0, static_cast<std::size_t>(description->whole.data() - body.data()));
  frame.after = tailFrom(body, description->whole.data() + description->whole.size());
  if (frame.kind == LayerKind::authEnveloped) return readMac(frame);
  if (frame.kind == LayerKind::opaqueSignature && !frame.content)
    frame.kind = kindWithoutContent(frame.after);
  return frame.kind != LayerKind::unknown;
}

/// Writes the frame around `content`, from its end to its beginning.
Pkcs7Room writeFrame(DerBackwardWriter& out, const Pkcs7Frame& frame, std::optional<std::size_t> contentSize,
                     std::size_t macSize) noexcept {
  Pkcs7Room room;
  if (macSize) {
    room.mac = out.leave(macSize);
    out.wrap(kDerOctetString, 0);
  } else {
    out.put(frame.after);
  }
  const std::size_t description = out.size();
  if (contentSize) {
    room.content = out.leave(*contentSize);
    const bool isEncrypted = isEncryptedKind(frame.kind);
    out.wrap(isEncrypted ? derContext(0) & ~kDerConstructed : kDerOctetString, description);
    if (!isEncrypted) out.wrap(derContext(0), description);
  }
  out.put(frame.describe);
  out.wrap(kDerSequence, description);
  out.put(frame.before);
  out.wrap(kDerSequence, 0);
  out.wrap(derContext(0), 0);
  out.put(frame.type);
  out.wrap(kDerSequence, 0);
  return room;
}

/// Appends the octets of a string split into pieces, which may be split again.
bool joinPieces(std::string_view pieces, DataBuffer& joined) {
  if (!joined.reserveMore(pieces.size())) return false;
  std::vector<DerReader> open{DerReader(pieces)};
  while (!open.empty()) {
    if (open.back().atEnd()) {
      open.pop_back();
      continue;
    }
    const auto piece = open.back().next();
    if (!piece || (piece->tag & ~kDerConstructed) != kDerOctetString) return false;
    if (!piece->isConstructed()) {
      if (!joined.append(piece->content)) return false;
    } else {
      if (open.size() == kMaxPieceNesting) return false;
      open.emplace_back(piece->content);
    }
  }
  return true;
}

}  // namespace

std::optional<Pkcs7Frame> readPkcs7Frame(std::string_view ber) noexcept {
  const auto outer = DerReader(ber).nextIf(kDerSequence);
  if (!outer) return {};
  DerReader fields(outer->content);
  const auto type = fields.nextIf(kDerObjectId);
  const auto tagged = fields.nextIf(derContext(0));
  if (!type || !tagged) return {};
  const auto body = DerReader(tagged->content).nextIf(kDerSequence);
  if (!body) return {};
  Pkcs7Frame frame;
  frame.type = type->whole;
  frame.kind = kindOfType(type->content);
  if (frame.kind == LayerKind::unknown || !readBody(body->content, frame)) frame.kind = LayerKind::unknown;
  return frame;
}

int countFirstSet(std::string_view fields, int most) noexcept {
  DerReader reader(fields);
  while (const auto field = reader.next()) {
    if (field->tag != kDerSet) continue;
    DerReader elements(field->content);
    int count = 0;
    while (count <= most && elements.next()) ++count;
    return count;
  }
  return 0;
}

std::string withoutContent(const Pkcs7Frame& frame) {
  return derOf([&](DerBackwardWriter& out) { writeFrame(out, frame, std::nullopt, 0); });
}

std::optional<std::string_view> contentOctets(const Pkcs7Frame& frame, DataBuffer& joined) {
  if (!frame.content) return {};
  if (!frame.content->isConstructed()) return frame.content->content;
  joined.clear();
  if (!joinPieces(frame.content->content, joined)) return {};
  return joined.view();
}

std::optional<Pkcs7Room> encodeWithRoom(const Pkcs7Frame& frame, std::size_t contentSize, std::size_t macSize,
                                        DataBuffer& der) {
  DerBackwardWriter counter;
  writeFrame(counter, frame, contentSize, macSize);
  der.clear();
  unsigned char* const begin = der.appendUninitialized(counter.size());
  if (!begin) return {};
  DerBackwardWriter writer(begin, counter.size());
  return writeFrame(writer, frame, contentSize, macSize);
}

}  // namespace mailtree
