// base/Result.h - a value, or the error that says why there is none.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace mailtree {

/// What kind of thing went wrong, for programs. People read Error::message.
enum class ErrorCode {
  unreadable,    ///< A file or folder cannot be read.
  unwritable,    ///< A file cannot be written, or a program does not take the message.
  badValue,      ///< A value cannot be used: not an address, not a media type, ...
  notFound,      ///< There is no such part, field, certificate, ...
  noRecipient,   ///< The message has nobody to go to, or no sender.
  noKey,         ///< A certificate or private key is missing, locked, or not valid for this use.
  encrypted,     ///< The content is encrypted; open it with keys, or decrypt() the message first.
  inClear,       ///< An answer to encrypted mail would be written unencrypted.
  automatic,     ///< No program may answer this message.
  cryptography,  ///< Signing or encrypting failed.
  noMemory,      ///< Memory ran out.
  tooLarge,      ///< A message is longer than it may be, and was not read.
};

struct Error {
  ErrorCode code{};
  std::string message;  ///< A sentence in English, without a full stop: "not an address: 'x y'".
  std::string where;    ///< The file, part or field concerned; may be empty.
};

/// A T or an Error, with the members of C++23's std::expected. An operation that returns an error changed
/// nothing. Asking an error for its value is a mistake in the program and ends it, with the error printed.
template <class T>
class [[nodiscard]] Result {
  using Stored = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

 public:
  using value_type = T;
  using error_type = Error;

  Result() requires std::is_void_v<T>
  = default;
  template <class U = Stored>
  requires(!std::is_void_v<T> && std::is_constructible_v<Stored, U> &&
           !std::is_same_v<std::remove_cvref_t<U>, Result> && !std::is_same_v<std::remove_cvref_t<U>, Error>)
      Result(U&& value)  // NOLINT(bugprone-forwarding-reference-overload): copies are excluded above
      : m_stored(std::in_place_index<0>, std::forward<U>(value)) {}            // NOLINT(*-explicit-*)
  Result(Error error) : m_stored(std::in_place_index<1>, std::move(error)) {}  // NOLINT(*-explicit-*)

  bool has_value() const noexcept { return m_stored.index() == 0; }
  explicit operator bool() const noexcept { return has_value(); }

  decltype(auto) value() & { return valueOf(*this); }
  decltype(auto) value() const& { return valueOf(*this); }
  decltype(auto) value() && { return valueOf(std::move(*this)); }
  decltype(auto) operator*() & { return valueOf(*this); }
  decltype(auto) operator*() const& { return valueOf(*this); }
  decltype(auto) operator*() && { return valueOf(std::move(*this)); }
  Stored* operator->() requires(!std::is_void_v<T>) { return &valueOf(*this); }
  const Stored* operator->() const requires(!std::is_void_v<T>) { return &valueOf(*this); }

  const Error& error() const& { return std::get<1>(m_stored); }
  Error&& error() && { return std::get<1>(std::move(m_stored)); }

  template <class U>
  Stored value_or(U&& otherwise) const& requires(!std::is_void_v<T>) {
    return has_value() ? **this : static_cast<Stored>(std::forward<U>(otherwise));
  }
  template <class U>
      Stored value_or(U&& otherwise) && requires(!std::is_void_v<T>) {
    return has_value() ? *std::move(*this) : static_cast<Stored>(std::forward<U>(otherwise));
  }

  /// Continues with `next`, which returns a Result, or keeps the error.
  template <class F>
  auto and_then(F&& next) & {
    return continued(*this, std::forward<F>(next));
  }
  template <class F>
  auto and_then(F&& next) const& {
    return continued(*this, std::forward<F>(next));
  }
  template <class F>
  auto and_then(F&& next) && {
    return continued(std::move(*this), std::forward<F>(next));
  }
  /// Changes the value with `change`, which returns any type, or keeps the error.
  template <class F>
  auto transform(F&& change) & {
    return transformed(*this, std::forward<F>(change));
  }
  template <class F>
  auto transform(F&& change) const& {
    return transformed(*this, std::forward<F>(change));
  }
  template <class F>
  auto transform(F&& change) && {
    return transformed(std::move(*this), std::forward<F>(change));
  }
  /// Keeps the value, or tries `otherwise`, which takes the error and returns a Result of the same type.
  template <class F>
  Result or_else(F&& otherwise) && {
    return has_value() ? std::move(*this) : std::forward<F>(otherwise)(std::move(*this).error());
  }
  /// Keeps the value, or changes the error with `change`, which takes and returns an Error.
  template <class F>
  Result transform_error(F&& change) && {
    return has_value() ? std::move(*this) : Result(std::forward<F>(change)(std::move(*this).error()));
  }

 private:
  template <class Self>
  static decltype(auto) valueOf(Self&& self) {
    if (!self.has_value()) endProgram(self.error());
    if constexpr (!std::is_void_v<T>) return std::get<0>(std::forward<Self>(self).m_stored);
  }
  /// Calls with the value, or with nothing when the value is void.
  template <class Self, class F>
  static decltype(auto) call(Self&& self, F&& function) {
    if constexpr (std::is_void_v<T>)
      return std::forward<F>(function)();
    else
      return std::forward<F>(function)(valueOf(std::forward<Self>(self)));
  }
  template <class Self, class F>
  static auto continued(Self&& self, F&& next) {
    using Next = std::remove_cvref_t<decltype(call(std::forward<Self>(self), std::forward<F>(next)))>;
    if (!self.has_value()) return Next(std::forward<Self>(self).error());
    return call(std::forward<Self>(self), std::forward<F>(next));
  }
  template <class Self, class F>
  static auto transformed(Self&& self, F&& change) {
    using Changed = std::remove_cvref_t<decltype(call(std::forward<Self>(self), std::forward<F>(change)))>;
    if (!self.has_value()) return Result<Changed>(std::forward<Self>(self).error());
    if constexpr (std::is_void_v<Changed>) {
      call(std::forward<Self>(self), std::forward<F>(change));
      return Result<void>();
    } else {
      return Result<Changed>(call(std::forward<Self>(self), std::forward<F>(change)));
    }
  }
  [[noreturn]] static void endProgram(const Error& error) {
    std::fprintf(stderr, "mailtree: the value of an error was used: %s\n", error.message.c_str());
    std::abort();
  }

  std::variant<Stored, Error> m_stored;
};

}  // namespace mailtree
