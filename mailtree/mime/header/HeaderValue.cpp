#include "mailtree/mime/header/HeaderValue.h"

#include <algorithm>
#include <iterator>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/address/AddressLexer.h"
#include "mailtree/mime/address/AddressPhrases.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"
#include "mailtree/mime/header/HeaderParams.h"

namespace mailtree {

namespace {

constexpr std::string_view kDisposition = "Content-Disposition";

struct GrammarRow {
  std::string_view name;
  FieldGrammar grammar;
};

constexpr GrammarRow kGrammars[] = {
    {"From", FieldGrammar::addresses},
    {"To", FieldGrammar::addresses},
    {"Cc", FieldGrammar::addresses},
    {"Bcc", FieldGrammar::addresses},
    {"Reply-To", FieldGrammar::addresses},
    {"Sender", FieldGrammar::addresses},
    {"Return-Path", FieldGrammar::addresses},
    {"Resent-From", FieldGrammar::addresses},
    {"Resent-To", FieldGrammar::addresses},
    {"Resent-Cc", FieldGrammar::addresses},
    {"Resent-Bcc", FieldGrammar::addresses},
    {"Resent-Sender", FieldGrammar::addresses},
    {"Resent-Reply-To", FieldGrammar::addresses},
    {"Disposition-Notification-To", FieldGrammar::addresses},
    {"Return-Receipt-To", FieldGrammar::addresses},
    {"Errors-To", FieldGrammar::addresses},
    {"Mail-Followup-To", FieldGrammar::addresses},
    {"Mail-Reply-To", FieldGrammar::addresses},
    {"Apparently-To", FieldGrammar::addresses},
    {"Content-Type", FieldGrammar::parameters},
    {"Content-Disposition", FieldGrammar::parameters},
    {"Message-ID", FieldGrammar::identifiers},
    {"In-Reply-To", FieldGrammar::identifiers},
    {"References", FieldGrammar::identifiers},
    {"Content-ID", FieldGrammar::identifiers},
    {"SVX-Bounce-Address", FieldGrammar::identifiers},
    {"Content-Location", FieldGrammar::structured},
    {"Content-Transfer-Encoding", FieldGrammar::structured},
    {"MIME-Version", FieldGrammar::structured},
    {"Date", FieldGrammar::structured},
    {"Resent-Date", FieldGrammar::structured},
    {"Resent-Message-ID", FieldGrammar::identifiers},
    {"Received", FieldGrammar::structured},
    {"DKIM-Signature", FieldGrammar::structured},
    {"Authentication-Results", FieldGrammar::structured},
    {"List-Id", FieldGrammar::structured},
    {"List-Post", FieldGrammar::structured},
    {"List-Archive", FieldGrammar::structured},
    {"List-Subscribe", FieldGrammar::structured},
    {"List-Unsubscribe", FieldGrammar::structured},
};

HeaderEncoding encodingFor(int codePage) noexcept { return {codePage, preferredWordEncoding(codePage)}; }

std::string encodeText(std::string_view fieldName, std::string_view utf8, int codePage) {
  return encodeUnstructured(utf8, encodingFor(codePage), fieldName.size() + 2);
}

/// Existing encoded words are decoded first, so they are not encoded twice.
std::string encodeFreeText(std::string_view fieldName, std::string_view utf8, int codePage) {
  if (!mayHoldEncodedWord(utf8)) return encodeText(fieldName, utf8, codePage);
  return encodeText(fieldName, decodeEncodedWords(utf8), codePage);
}

std::ptrdiff_t countAtSigns(std::string_view text) noexcept {
  return std::count(text.begin(), text.end(), '@');
}

/// Whether folding would change the text: a piece without blanks may be longer than a
/// line, or a run of blanks is shortened.
bool isUnfoldable(std::string_view text) noexcept {
  constexpr std::size_t kMaxPiece = 900, kMaxBlanks = 500;
  std::size_t piece = 0, blanks = 0;
  for (const char c : text) {
    const bool isBlank = isBlankAscii(c);
    piece = isBlank ? 0 : piece + 1;
    blanks = isBlank ? blanks + 1 : 0;
    if (piece > kMaxPiece || blanks > kMaxBlanks) return true;
  }
  return false;
}

struct ListShape {
  bool isPlain = true;  ///< No groups, routes or comments, which rewriting the entries would lose.
  int parts = 0;        ///< Between separators.
};

ListShape shapeOf(std::string_view list) {
  ListShape shape;
  bool inPart = false;
  AddressLexer lexer(list);
  for (AddressToken token = lexer.next(); token.kind != AddressToken::Kind::end; token = lexer.next()) {
    const bool isSeparator = token.is(',') || token.is(';');
    if (token.kind == AddressToken::Kind::comment || token.is(':')) shape.isPlain = false;
    if (!isSeparator && !inPart) ++shape.parts;
    inPart = !isSeparator;
  }
  return shape;
}

std::ptrdiff_t countAtSigns(const ExtPtrArray& list) noexcept {
  std::ptrdiff_t count = 0;
  for (int i = 0; i < list.getSize(); ++i) {
    const auto& entry = *list.at<_svEmailAddress>(i);
    count += countAtSigns(entry.m_name.view()) + countAtSigns(entry.m_address.view());
  }
  return count;
}

std::string entriesAsText(const ExtPtrArray& entries, int codePage) {
  LogNull quiet;
  StringBuffer out;
  const bool useQ = preferredWordEncoding(codePage) == WordEncoding::q;
  _svEmailAddress::emitAsMimeField(entries, codePage, /*first=*/true, /*forHeader=*/true, useQ, out, quiet);
  return out.extractString();
}

/// Only names and comments may be encoded: in place, or, in a list with commas inside names, by
/// rewriting its entries. The value stays when either would change its meaning or lose an address,
/// unless an address is too long for any line.
RenderedValue renderAddresses(std::string_view fieldName, std::string_view utf8, int codePage) {
  const bool mustChange = isUnfoldable(utf8);
  if (mustChange && !contains(utf8, "@"))
    return {encodeStructured(utf8, encodingFor(codePage), fieldName.size() + 2)};
  ExtPtrArray entries;
  _svEmailAddress::parseAndLoadEntries(utf8, entries);
  if (mustChange) return {entriesAsText(entries, codePage), false};

  const ListShape shape = shapeOf(utf8);
  std::string inPlace = encodePhrases(utf8, encodingFor(codePage));
  const bool isSame = readsAsEntries(inPlace, entries);
  if (isSame && shape.parts == entries.getSize()) return {std::move(inPlace)};
  if (shape.isPlain && countAtSigns(entries) >= countAtSigns(utf8)) {
    std::string rewritten = entriesAsText(entries, codePage);
    if (readsAsEntries(rewritten, entries)) return {std::move(rewritten)};
  }
  return isSame ? RenderedValue{std::move(inPlace)} : RenderedValue{std::string(utf8), false};
}

/// The text before the parameters, without characters that need an encoded word: none is allowed there.
std::string asciiType(std::string_view fieldName, std::string_view type) {
  std::string out;
  std::copy_if(type.begin(), type.end(), std::back_inserter(out),
               [](char c) { return c > ' ' && c < 0x7F && c != '"'; });
  if (out.empty() && equalsNoCase(fieldName, kDisposition)) out = "attachment";  // RFC 2183, 2.8
  return out;
}

RenderedValue renderParameters(std::string_view fieldName, std::string_view utf8, int codePage) {
  const ParameterizedValue parsed = parseParameterizedValue(utf8);
  if (parsed.overLimit) return {std::string(utf8), false};
  std::string text = isAscii(parsed.value) && !isUnfoldable(parsed.value)
                         ? std::string(parsed.value)
                         : asciiType(fieldName, parsed.value.substr(0, kMaxPlainParameter));
  for (const auto& param : parsed.params.params()) {
    const bool isName = equalsNoCase(param.name, "filename") || equalsNoCase(param.name, "name");
    appendParam(param.name, param.value, codePage, isName, text);
  }
  return {std::move(text)};
}

/// Whether every program reads the name unchanged from a quoted string.
bool isSafeInQuotes(std::string_view name) noexcept {
  return name.size() <= kMaxPlainParameter && !mayHoldEncodedWord(name) &&
         std::none_of(name.begin(), name.end(),
                      [](char c) { return c == '"' || c == '\\' || is8bit(c) || isControlAscii(c); });
}

}  // namespace

FieldGrammar grammarOf(std::string_view fieldName) noexcept {
  for (const GrammarRow& row : kGrammars)
    if (equalsNoCase(row.name, fieldName)) return row.grammar;
  return FieldGrammar::unstructured;
}

RenderedValue renderHeaderValue(std::string_view fieldName, std::string_view utf8, int codePage) {
  if (containsBreak(utf8)) return renderHeaderValue(fieldName, withoutBreaks(utf8), codePage);
  utf8 = trim(utf8);
  const FieldGrammar grammar = grammarOf(fieldName);
  if (grammar == FieldGrammar::unstructured) return {encodeFreeText(fieldName, utf8, codePage)};
  if (grammar == FieldGrammar::identifiers) return {std::string(utf8)};
  if (isAscii(utf8) && (grammar == FieldGrammar::structured || !isUnfoldable(utf8)))
    return {std::string(utf8)};
  if (grammar == FieldGrammar::addresses) return renderAddresses(fieldName, utf8, codePage);
  if (grammar == FieldGrammar::parameters) return renderParameters(fieldName, utf8, codePage);
  return {encodeStructured(utf8, encodingFor(codePage), fieldName.size() + 2)};
}

RenderedValue renderRawFilename(std::string_view value, int codePage) {
  constexpr std::string_view kOpening = "; filename=\"";
  const std::size_t opening = value.find(kOpening);
  if (opening == std::string_view::npos || !value.ends_with('"') || value.size() <= opening + kOpening.size())
    return renderHeaderValue(kDisposition, value, codePage);

  const std::string_view name =
      value.substr(opening + kOpening.size(), value.size() - opening - kOpening.size() - 1);
  if (isSafeInQuotes(name)) return renderHeaderValue(kDisposition, value, codePage);
  std::string text = renderHeaderValue(kDisposition, value.substr(0, opening), codePage).text;
  appendParam("filename", name, codePage, /*withFallback=*/true, text);
  return {std::move(text)};
}

}  // namespace mailtree
