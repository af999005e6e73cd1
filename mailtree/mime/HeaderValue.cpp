#include "mailtree/mime/HeaderValue.h"

#include <algorithm>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/Address.h"
#include "mailtree/mime/EncodedWord.h"
#include "mailtree/mime/HeaderParams.h"
#include "mailtree/mime/HeaderText.h"

namespace mailtree {

namespace {

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
    {"Message-ID", FieldGrammar::structured},
    {"In-Reply-To", FieldGrammar::structured},
    {"References", FieldGrammar::structured},
    {"Content-ID", FieldGrammar::structured},
    {"Content-Location", FieldGrammar::structured},
    {"Content-Transfer-Encoding", FieldGrammar::structured},
    {"MIME-Version", FieldGrammar::structured},
    {"Date", FieldGrammar::structured},
    {"Resent-Date", FieldGrammar::structured},
    {"Resent-Message-ID", FieldGrammar::structured},
    {"Received", FieldGrammar::structured},
    {"DKIM-Signature", FieldGrammar::structured},
    {"Authentication-Results", FieldGrammar::structured},
    {"List-Id", FieldGrammar::structured},
    {"List-Post", FieldGrammar::structured},
    {"List-Archive", FieldGrammar::structured},
    {"List-Subscribe", FieldGrammar::structured},
    {"List-Unsubscribe", FieldGrammar::structured},
};

std::string encodeText(std::string_view fieldName, std::string_view utf8, int codePage) {
  const HeaderEncoding encoding{codePage, preferredWordEncoding(codePage)};
  return encodeUnstructured(utf8, encoding, fieldName.size() + 2);
}

/// Encoded words that already stand in the text are read first, so that they are not encoded a second time.
std::string encodeFreeText(std::string_view fieldName, std::string_view utf8, int codePage) {
  if (!mayHoldEncodedWord(utf8)) return encodeText(fieldName, utf8, codePage);
  return encodeText(fieldName, decodeEncodedWords(utf8), codePage);
}

std::ptrdiff_t countAtSigns(std::string_view text) noexcept {
  return std::count(text.begin(), text.end(), '@');
}

/// Only names may be encoded: the list is taken apart and written anew. The value stays when that would lose
/// an address.
RenderedValue renderAddresses(std::string_view fieldName, std::string_view utf8, int codePage) {
  if (!contains(utf8, "@")) return {encodeFreeText(fieldName, utf8, codePage)};
  ExtPtrArray list;
  _svEmailAddress::parseAndLoadList(utf8, list);
  std::ptrdiff_t atSigns = 0;
  for (int i = 0; i < list.getSize(); ++i) {
    const auto& address = *list.at<_svEmailAddress>(i);
    atSigns += countAtSigns(address.m_name.getUtf8()) + countAtSigns(address.m_address.getUtf8());
  }
  if (atSigns < countAtSigns(utf8)) return {std::string(utf8), false};

  LogNull quiet;
  StringBuffer out;
  const bool useQ = preferredWordEncoding(codePage) == WordEncoding::q;
  _svEmailAddress::emitAsMimeField(list, codePage, /*first=*/true, /*forHeader=*/true, useQ, out, quiet);
  return {out.extractString()};
}

RenderedValue renderParameters(std::string_view fieldName, std::string_view utf8, int codePage) {
  const ParameterizedValue parsed = parseParameterizedValue(utf8);
  if (parsed.overLimit) return {std::string(utf8), false};
  const auto& params = parsed.params.params();
  const auto isForeign = [](const auto& param) { return !isAscii(param.value); };
  // What is foreign must stand in a parameter's value; anywhere else the text is no parameter list.
  if (!isAscii(parsed.value) || std::none_of(params.begin(), params.end(), isForeign))
    return {encodeFreeText(fieldName, utf8, codePage)};
  std::string text(parsed.value);
  for (const auto& param : params) {
    const bool isName = equalsNoCase(param.name, "filename") || equalsNoCase(param.name, "name");
    appendParam(param.name, param.value, codePage, isName, text);
  }
  return {std::move(text)};
}

/// Whether a quoted string can hold the name just as it stands, and every reader gets it right.
bool isHarmlessInQuotes(std::string_view name) noexcept {
  return !mayHoldEncodedWord(name) && std::none_of(name.begin(), name.end(), [](char c) {
    return c == '"' || c == '\\' || is8bit(c) || isControlAscii(c);
  });
}

}  // namespace

FieldGrammar grammarOf(std::string_view fieldName) noexcept {
  for (const GrammarRow& row : kGrammars)
    if (equalsNoCase(row.name, fieldName)) return row.grammar;
  return FieldGrammar::unstructured;
}

RenderedValue renderHeaderValue(std::string_view fieldName, std::string_view utf8, int codePage) {
  if (holdsBreak(utf8)) return renderHeaderValue(fieldName, withoutBreaks(utf8), codePage);
  utf8 = trim(utf8);
  const FieldGrammar grammar = grammarOf(fieldName);
  if (grammar == FieldGrammar::unstructured) return {encodeFreeText(fieldName, utf8, codePage)};
  if (isAscii(utf8)) return {std::string(utf8)};
  if (grammar == FieldGrammar::addresses) return renderAddresses(fieldName, utf8, codePage);
  if (grammar == FieldGrammar::parameters) return renderParameters(fieldName, utf8, codePage);
  return {encodeFreeText(fieldName, utf8, codePage)};
}

RenderedValue renderRawFilename(std::string_view value, int codePage) {
  constexpr std::string_view kOpening = "; filename=\"";
  constexpr std::string_view kField = "Content-Disposition";
  const std::size_t opening = value.find(kOpening);
  if (opening == std::string_view::npos || !value.ends_with('"') || value.size() <= opening + kOpening.size())
    return renderHeaderValue(kField, value, codePage);

  const std::string_view name =
      value.substr(opening + kOpening.size(), value.size() - opening - kOpening.size() - 1);
  if (isHarmlessInQuotes(name)) return renderHeaderValue(kField, value, codePage);
  std::string text = renderHeaderValue(kField, value.substr(0, opening), codePage).text;
  appendParam("filename", name, codePage, /*withFallback=*/true, text);
  return {std::move(text)};
}

}  // namespace mailtree
