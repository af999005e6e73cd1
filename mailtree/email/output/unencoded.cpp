#include "mailtree/email/output/unencoded.h"

#include <string>

#include "mailtree/base/Search.h"

namespace mailtree {
namespace {

/// Gathers small pieces, so that a sink is written to in large ones whatever the text looks like.
class PieceWriter {
 public:
  explicit PieceWriter(const Destination& to) noexcept : m_to(to) {}

  bool put(std::string_view piece) {
    if (m_gathered.size() + piece.size() > kEnough && !flush()) return false;
    if (piece.size() > kEnough) return m_to.write(piece);
    m_gathered.append(piece);
    return true;
  }
  bool flush() {
    const bool written = m_gathered.empty() || m_to.write(m_gathered);
    m_gathered.clear();
    return written;
  }

 private:
  static constexpr std::size_t kEnough = std::size_t{16} * 1024;

  const Destination& m_to;
  std::string m_gathered;
};

bool writeDotStuffed(std::string_view bytes, const Destination& to) {
  PieceWriter pieces(to);
  if (bytes.starts_with('.') && !pieces.put(".")) return false;
  for (std::size_t at; (at = findSubstring(bytes, "\n.")) != std::string_view::npos;
       bytes.remove_prefix(at + 1))
    if (!pieces.put(bytes.substr(0, at + 2))) return false;  // this dot, and again with the next piece
  return pieces.put(bytes) && pieces.flush();
}

}  // namespace

bool writeUnencoded(std::string_view bytes, bool dotStuff, const Destination& to) {
  return dotStuff && to.sink ? writeDotStuffed(bytes, to) : to.write(bytes);
}

}  // namespace mailtree
