#include "mailtree/base/DataBuffer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <utility>

#include "mailtree/base/LargeMemory.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Output.h"
#include "mailtree/base/Search.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/base/Utf.h"
#include "mailtree/base/internal.h"

namespace mailtree {
namespace {

constexpr std::size_t kMinCapacity = 32;
constexpr std::size_t kReadChunk = std::size_t{64} * 1024;

std::string_view firstBytes(std::string_view bytes, std::size_t limit) noexcept {
  return limit ? bytes.substr(0, limit) : bytes;
}

bool isInside(const void* p, const unsigned char* begin, std::size_t size) noexcept {
  const std::less<const void*> before;
  return size && !before(p, begin) && before(p, begin + size);
}

/// Size of a regular file, 0 for a file of unknown size.
std::size_t expectedSize(const char* path) noexcept {
  return neverThrow<std::size_t>(0, [&]() -> std::size_t {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : static_cast<std::size_t>(size);
  });
}

void appendUtf16LE(std::string& out, std::string_view utf16) {
  if (utf16.starts_with("\xFF\xFE")) utf16.remove_prefix(2);
  appendUtf16AsUtf8(out, utf16, /*bigEndian=*/false);
}

}  // namespace

DataBuffer::DataBuffer(const DataBuffer& other) : SorvikObject(other) { append(other); }

DataBuffer::DataBuffer(DataBuffer&& other) noexcept : SorvikObject(other) { takeData(other); }

DataBuffer& DataBuffer::operator=(const DataBuffer& other) {
  if (this != &other) {
    DataBuffer copy(other);
    takeData(copy);
  }
  return *this;
}

DataBuffer& DataBuffer::operator=(DataBuffer&& other) noexcept {
  takeData(other);
  return *this;
}

DataBuffer::~DataBuffer() { clear(); }

std::size_t DataBuffer::heapUsage() const { return m_capacity; }

bool DataBuffer::containsChar(char c) const noexcept { return view().find(c) != std::string_view::npos; }

bool DataBuffer::containsSubstring(const char* text, std::size_t limit) const noexcept {
  return findSubstring(firstBytes(view(), limit), viewOf(text)) != std::string_view::npos;
}

bool DataBuffer::containsBareCRLF() const noexcept { return hasBareLineEnd(view()); }

std::ptrdiff_t DataBuffer::findBytes(const void* bytes, std::size_t size) const noexcept {
  const std::string_view wanted(static_cast<const char*>(bytes), bytes ? size : 0);
  const std::size_t at = findSubstring(view(), wanted);
  return at == std::string_view::npos ? -1 : static_cast<std::ptrdiff_t>(at);
}

bool DataBuffer::endsWithStr(const char* text) const noexcept { return view().ends_with(viewOf(text)); }

bool DataBuffer::hasLineLonger(std::size_t n) const noexcept { return hasLineLongerThan(view(), n); }

bool DataBuffer::is7bit(std::size_t limit) const noexcept { return isAscii(firstBytes(view(), limit)); }

bool DataBuffer::toHexString(StringBuffer& out) const { return out.appendHexDataNoWS(m_data, m_size); }

/// Makes the bytes this buffer's own, with room for `capacity` in all.
bool DataBuffer::own(std::size_t capacity) {
  if (capacity <= m_capacity) return true;
  // The first allocation is exact, because most buffers are filled by one append of
  // known size; later ones are geometric.
  const std::size_t grown = std::max({capacity, m_capacity + m_capacity / 2, kMinCapacity});
  const bool borrowed = m_capacity == 0;
  void* const fresh = borrowed ? std::malloc(grown) : std::realloc(m_data, grown);
  if (!fresh) {
    ++abandonedCount();
    return false;
  }
  preferHugePages(fresh, grown);
  if (borrowed && m_size) std::memcpy(fresh, m_data, m_size);
  m_data = static_cast<unsigned char*>(fresh);
  m_capacity = grown;
  return true;
}

bool DataBuffer::append(const void* bytes, std::size_t size) {
  if (!bytes || size == 0) return true;
  const bool isOwnData = isInside(bytes, m_data, m_size);
  const std::ptrdiff_t offset = isOwnData ? static_cast<const unsigned char*>(bytes) - m_data : 0;
  if (!reserveMore(size)) return false;
  std::memcpy(m_data + m_size, isOwnData ? m_data + offset : bytes, size);
  m_size += size;
  return true;
}

bool DataBuffer::append(const StringBuffer& text) { return append(text.view()); }

bool DataBuffer::appendChar(char c) {
  if (!reserveMore(1)) return false;
  m_data[m_size++] = static_cast<unsigned char>(c);
  return true;
}

bool DataBuffer::prepend(const void* bytes, std::size_t size) {
  if (!bytes || size == 0) return true;
  const bool isOwnData = isInside(bytes, m_data, m_size);
  const std::ptrdiff_t offset = isOwnData ? static_cast<const unsigned char*>(bytes) - m_data : 0;
  if (!reserveMore(size)) return false;
  std::memmove(m_data + size, m_data, m_size);
  std::memcpy(m_data, isOwnData ? m_data + size + offset : bytes, size);
  m_size += size;
  return true;
}

bool DataBuffer::reserveMore(std::size_t size) {
  return size <= std::numeric_limits<std::size_t>::max() - m_size && own(m_size + size);
}

unsigned char* DataBuffer::appendUninitialized(std::size_t size) {
  if (!reserveMore(std::max<std::size_t>(size, 1)))
    return nullptr;  // null means failure, so an empty buffer needs an address too
  unsigned char* const added = m_data + m_size;
  m_size += size;
  return added;
}

void DataBuffer::clear() noexcept {
  if (m_capacity) std::free(m_data);
  m_data = nullptr;
  m_size = m_capacity = 0;
}

void DataBuffer::shorten(std::size_t n) noexcept { m_size -= std::min(n, m_size); }

void DataBuffer::takeData(DataBuffer& other) noexcept {
  if (this == &other) return;
  clear();
  m_data = std::exchange(other.m_data, nullptr);
  m_size = std::exchange(other.m_size, 0);
  m_capacity = std::exchange(other.m_capacity, 0);
}

void DataBuffer::borrowData(const void* bytes, std::size_t size) noexcept {
  clear();
  if (!bytes || size == 0) return;
  // Never written through: every change goes through own(), which copies first.
  m_data = const_cast<unsigned char*>(static_cast<const unsigned char*>(bytes));
  m_size = size;
}

void DataBuffer::minimizeMemoryUsage() noexcept {
  if (m_size == m_capacity || m_capacity == 0) return;
  if (m_size == 0) return clear();
  void* const smaller = std::realloc(m_data, m_size);
  if (!smaller) return;
  m_data = static_cast<unsigned char*>(smaller);
  m_capacity = m_size;
}

std::size_t DataBuffer::replaceChar(char a, char b) {
  if (!containsChar(a) || !own(m_size)) return 0;
  std::size_t count = 0;
  for (std::size_t i = 0; i < m_size; ++i) {
    if (m_data[i] != static_cast<unsigned char>(a)) continue;
    m_data[i] = static_cast<unsigned char>(b);
    ++count;
  }
  return count;
}

std::size_t DataBuffer::replaceAllOccurances(std::string_view a, std::string_view b) {
  DataBuffer replaced;
  const std::size_t count = replaceAllInto(replaced, view(), a, b);
  if (count) takeData(replaced);
  return count;
}

bool DataBuffer::cvUnicodeToUtf8(StringBuffer& out) const {
  const std::size_t before = out.getSize();
  const bool converted = neverThrow(false, [&] {
    appendUtf16LE(out.text(), view());
    return true;
  });
  if (!converted) out.shorten(out.getSize() - before);
  return converted;
}

bool DataBuffer::cvUnicodeToUtf8_db(DataBuffer& out) const {
  StringBuffer text;
  return cvUnicodeToUtf8(text) && out.append(text);
}

bool DataBuffer::loadFileUtf8(const char* path, LogBase& log) {
  const LogContextExitor context(log, "loadFileUtf8", log.m_verboseLogging);
  clear();
  const int error = readFile(path ? path : "");
  if (error == 0) return true;
  clear();
  logHostError(log, path, error);
  return false;
}

/// Appends a file's bytes; 0 or an errno.
int DataBuffer::readFile(const char* path) {
  const FilePtr file(std::fopen(path, "rbe"));
  if (!file) return errno;
  std::setvbuf(file.get(), nullptr, _IONBF, 0);  // unbuffered: bytes are read straight into place
  // One byte more than the file has, to find its end without growing again.
  if (!reserveMore(expectedSize(path) + 1)) return ENOMEM;
  for (;;) {
    if (m_size == m_capacity && !reserveMore(kReadChunk)) return ENOMEM;
    errno = 0;
    m_size += std::fread(m_data + m_size, 1, m_capacity - m_size, file.get());
    if (std::ferror(file.get())) return errno ? errno : EIO;
    if (std::feof(file.get())) return 0;
  }
}

}  // namespace mailtree
