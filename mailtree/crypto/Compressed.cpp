#include <zlib.h>

#include <algorithm>

#include "mailtree/crypto/Pkcs7Internal.h"
#include "mailtree/crypto/Pkcs7Opener.h"

namespace mailtree {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kZlibCompress = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x03\x08"sv;
constexpr std::size_t kFirstPiece = std::size_t{16} << 10;
constexpr std::size_t kMaxPiece = std::size_t{4} << 20;
/// Input size of one call of zlib: its sizes are unsigned ints.
constexpr std::size_t kInputPiece = std::size_t{1} << 30;

class Inflation {
 public:
  Inflation(std::string_view packed, std::size_t most) noexcept : m_rest(packed), m_max(most) {}
  Inflation(const Inflation&) = delete;
  Inflation& operator=(const Inflation&) = delete;
  ~Inflation() { inflateEnd(&m_stream); }

  static constexpr std::string_view kTooMuch = "the decompressed content is too large";

  /// Decompresses everything; returns an error text, empty on success.
  std::string_view run(DataBuffer& out) {
    if (inflateInit(&m_stream) != Z_OK) return kMalformed;
    for (std::size_t piece = kFirstPiece;; piece = std::min(piece * 2, kMaxPiece)) {
      // One byte beyond the limit, to see whether there is more.
      const std::size_t room = std::min(piece, m_max + 1 - out.getSize());
      const int state = inflateInto(out, room);
      if (out.getSize() > m_max) return kTooMuch;
      if (state == Z_STREAM_END) return {};
      if (state != Z_OK) return kMalformed;
    }
  }

 private:
  static constexpr std::string_view kMalformed = "the compressed content is malformed";

  int inflateInto(DataBuffer& out, std::size_t room) {
    unsigned char* const at = out.appendUninitialized(room);
    if (!at) return Z_MEM_ERROR;
    if (m_stream.avail_in == 0) {
      const std::string_view piece = m_rest.substr(0, kInputPiece);
      m_stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(piece.data()));
      m_stream.avail_in = static_cast<uInt>(piece.size());
      m_rest.remove_prefix(piece.size());
    }
    m_stream.next_out = at;
    m_stream.avail_out = static_cast<uInt>(room);
    const int state = inflate(&m_stream, Z_NO_FLUSH);
    out.shorten(m_stream.avail_out);
    return state;
  }

  z_stream m_stream{};
  std::string_view m_rest;
  std::size_t m_max;
};

bool isZlib(const Pkcs7Frame& frame) noexcept {
  DerReader fields(frame.before);
  fields.nextIf(kDerInteger);
  const auto algorithm = fields.nextIf(kDerSequence);
  if (!algorithm) return false;
  const auto name = DerReader(algorithm->content).nextIf(kDerObjectId);
  return name && name->content == kZlibCompress;
}

}  // namespace

bool decompressContent(const Pkcs7Frame& frame, DataBuffer& content, SecureLayer& layer, LoadBudget& budget) {
  DataBuffer joined;
  const auto packed = contentOctets(frame, joined);
  if (!packed) {
    layer.problem = "the compressed content is missing";
    return false;
  }
  if (!isZlib(frame)) {
    layer.problem = "unknown compression algorithm";
    return false;
  }
  DataBuffer unpacked;
  layer.problem = Inflation(*packed, budget.layerBytes).run(unpacked);
  budget.outOfBytes = layer.problem == Inflation::kTooMuch;
  if (!layer.problem.empty()) return false;
  budget.layerBytes -= unpacked.getSize();
  content.takeData(unpacked);
  return true;
}

}  // namespace mailtree
