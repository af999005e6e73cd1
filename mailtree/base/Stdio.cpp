#include "mailtree/base/Stdio.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

using Kind = FormatArgument::Kind;

/// One directive: %[flags][width][.precision][length]conversion. The length is skipped: arguments are typed.
struct Directive {
  bool left = false;
  bool zeros = false;
  bool plus = false;
  bool space = false;
  bool prefix = false;
  unsigned width = 0;
  int precision = -1;
  char conversion = 0;
};

/// Collects the formatted text; remembers when it did not fit.
class Target {
 public:
  Target(char* out, unsigned size) noexcept : m_out(out), m_room(size - 1) {}
  void put(std::string_view text) noexcept {
    const std::size_t taken = std::min(text.size(), m_room - m_used);
    if (taken) std::memcpy(m_out + m_used, text.data(), taken);
    m_used += taken;
    m_fits = m_fits && taken == text.size();
  }
  void put(char c, std::size_t count) noexcept {
    const std::size_t taken = std::min(count, m_room - m_used);
    std::memset(m_out + m_used, c, taken);
    m_used += taken;
    m_fits = m_fits && taken == count;
  }
  int finish(bool good) noexcept {
    m_out[m_used] = '\0';
    return good && m_fits ? static_cast<int>(m_used) : -1;
  }

 private:
  char* m_out;
  std::size_t m_room;
  std::size_t m_used = 0;
  bool m_fits = true;
};

bool setFlag(Directive& directive, char c) noexcept {
  switch (c) {
    case '-': return directive.left = true;
    case '0': return directive.zeros = true;
    case '+': return directive.plus = true;
    case ' ': return directive.space = true;
    case '#': return directive.prefix = true;
    default: return false;
  }
}

unsigned readNumber(const char*& format) noexcept {
  constexpr unsigned kMax = 100000;  // larger than any caller's buffer
  unsigned number = 0;
  for (; isDigitAscii(*format); ++format)
    number = std::min(kMax, number * 10 + static_cast<unsigned>(*format - '0'));
  return number;
}

/// Reads the text after a "%" and moves past it; at the end of the format the conversion is 0.
Directive readDirective(const char*& format) noexcept {
  Directive directive;
  while (setFlag(directive, *format)) ++format;
  directive.width = readNumber(format);
  if (*format == '.') directive.precision = static_cast<int>(readNumber(++format));
  while (*format == 'l' || *format == 'h') ++format;
  directive.conversion = *format;
  if (*format) ++format;
  return directive;
}

/// sign or prefix, zeros, digits, placed as the standard functions do.
void putNumber(Target& target, const Directive& directive, std::string_view sign,
               std::string_view digits) noexcept {
  const auto least = static_cast<std::size_t>(std::max(directive.precision, 0));
  std::size_t zeros = least > digits.size() ? least - digits.size() : 0;
  const std::size_t size = sign.size() + zeros + digits.size();
  const std::size_t padding = directive.width > size ? directive.width - size : 0;
  const bool padWithZeros = directive.zeros && !directive.left && directive.precision < 0;
  if (!directive.left && !padWithZeros) target.put(' ', padding);
  if (padWithZeros) zeros += padding;
  target.put(sign);
  target.put('0', zeros);
  target.put(digits);
  if (directive.left) target.put(' ', padding);
}

void putText(Target& target, const Directive& directive, std::string_view text) noexcept {
  const std::size_t padding = directive.width > text.size() ? directive.width - text.size() : 0;
  if (!directive.left) target.put(' ', padding);
  target.put(text);
  if (directive.left) target.put(' ', padding);
}

/// The bits an unsigned conversion prints: those of the argument's type.
std::uint64_t bitsOf(const FormatArgument& argument) noexcept {
  const bool isNegativeInt =
      argument.number < 0 && argument.number >= std::numeric_limits<std::int32_t>::min();
  return isNegativeInt ? static_cast<std::uint32_t>(argument.number)
                       : static_cast<std::uint64_t>(argument.number);
}

void putUnsigned(Target& target, const Directive& directive, std::uint64_t value) noexcept {
  const bool hexadecimal = directive.conversion == 'x' || directive.conversion == 'X';
  const bool upper = directive.conversion == 'X';
  char digits[20];
  char* const end = std::to_chars(std::begin(digits), std::end(digits), value, hexadecimal ? 16 : 10).ptr;
  if (upper) std::transform(digits, end, digits, toUpperAscii);
  const std::string_view prefix = directive.prefix && hexadecimal && value ? (upper ? "0X" : "0x") : "";
  putNumber(target, directive, prefix, {digits, static_cast<std::size_t>(end - digits)});
}

void putSigned(Target& target, const Directive& directive, std::int64_t value) noexcept {
  const std::uint64_t magnitude =
      value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  char digits[20];
  char* const end = std::to_chars(std::begin(digits), std::end(digits), magnitude).ptr;
  const std::string_view sign = value < 0 ? "-" : directive.plus ? "+" : directive.space ? " " : "";
  putNumber(target, directive, sign, {digits, static_cast<std::size_t>(end - digits)});
}

/// Formats one argument; false when it does not match the directive, or the directive is unknown.
bool putArgument(Target& target, const Directive& directive, const FormatArgument& argument) noexcept {
  if (directive.conversion == 's') {
    if (argument.kind != Kind::Text) return false;
    const std::string_view text = viewOf(argument.text);
    putText(target, directive,
            directive.precision < 0 ? text : text.substr(0, static_cast<std::size_t>(directive.precision)));
    return true;
  }
  if (argument.kind == Kind::Text) return false;
  const char character = static_cast<char>(argument.number);
  switch (directive.conversion) {
    case 'd':
    case 'i': putSigned(target, directive, argument.number); return true;
    case 'u':
    case 'x':
    case 'X': putUnsigned(target, directive, bitsOf(argument)); return true;
    case 'w': putUnsigned(target, directive, static_cast<std::uint16_t>(argument.number)); return true;
    case 'c': putText(target, directive, {&character, 1}); return true;
    default: return false;
  }
}

int formatAll(char* out, unsigned size, const char* format,
              std::initializer_list<FormatArgument> arguments) noexcept {
  if (!out || size == 0) return -1;
  Target target(out, size);
  auto argument = arguments.begin();
  for (format = format ? format : ""; *format;) {
    const std::size_t literal = std::strcspn(format, "%");
    target.put({format, literal});
    format += literal;
    if (!*format) break;
    const Directive directive = readDirective(++format);
    if (directive.conversion == '%') {
      target.put('%', 1);
      continue;
    }
    if (argument == arguments.end() || !putArgument(target, directive, *argument++))
      return target.finish(false);
  }
  return target.finish(true);
}

}  // namespace

int _svStdio::_svSprintf2(char* out, unsigned size, const char* format, FormatArgument a, FormatArgument b) {
  return formatAll(out, size, format, {a, b});
}

int _svStdio::_svSprintf6(char* out, unsigned size, const char* format, FormatArgument a, FormatArgument b,
                          FormatArgument c, FormatArgument d, FormatArgument e, FormatArgument f) {
  return formatAll(out, size, format, {a, b, c, d, e, f});
}

const char* svStrChr(const char* text, char c) { return text ? std::strchr(text, c) : nullptr; }

const char* svStrStr(const char* text, const char* wanted) {
  return text && wanted ? std::strstr(text, wanted) : nullptr;
}

const char* svStrrChr(const char* text, char c) { return text ? std::strrchr(text, c) : nullptr; }

}  // namespace mailtree
