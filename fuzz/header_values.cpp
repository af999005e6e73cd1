// Header values: encoded words, parameters, addresses, dates, whole headers.
#include <string>

#include "fuzz/target.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/header/ContentType.h"
#include "mailtree/mime/header/Date.h"
#include "mailtree/mime/header/HeaderParams.h"
#include "mailtree/mime/header/MimeHeader.h"

using namespace mailtree;

namespace {

bool isOneLine(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

void encodedWords(std::string_view text) {
  const std::string decoded = decodeEncodedWords(text);
  fuzz::require(isOneLine(decoded), "a decoded value is one line");
  for (const int codePage : {kCpUtf8, 28591, 50220, 0}) {
    const std::string encoded = encodeUnstructured(decoded, {codePage, preferredWordEncoding(codePage)}, 9);
    fuzz::require(isOneLine(encoded), "an encoded value is one line");
    if (isValidUtf8(decoded)) fuzz::require(isAscii(encoded), "an encoded value is ASCII");
  }
}

void addresses(std::string_view text) {
  ExtPtrArray list;
  _svEmailAddress::parseAndLoadList(text, list);
  LogNull log;
  StringBuffer written;
  _svEmailAddress::emitAsMimeField(list, kCpUtf8, true, true, true, written, log);
  fuzz::require(isOneLine(written), "a written address list is one line");
  ExtPtrArray again;
  _svEmailAddress::parseAndLoadList(written.view(), again);
  int withAt = 0, withAtAgain = 0;
  for (int i = 0; i < list.getSize(); ++i)
    withAt += contains(list.at<_svEmailAddress>(i)->m_address.view(), "@");
  for (int i = 0; i < again.getSize(); ++i)
    withAtAgain += contains(again.at<_svEmailAddress>(i)->m_address.view(), "@");
  fuzz::require(withAtAgain <= withAt, "writing adds no address");
}

void header(std::string_view text) {
  MimeHeader fields;
  LogNull log;
  fields.loadMimeHeaderText(text, log);
  fields.encode8bitFields();
  fields.replaceMimeFieldUtf8("Subject", std::string(text).c_str(), log);
  StringBuffer once, twice;
  fields.getMimeHeader(once, "SVX-", kCpUtf8, true, log);
  MimeHeader again;
  again.loadMimeHeaderText(once.view(), log);
  again.getMimeHeader(twice, "SVX-", kCpUtf8, true, log);
  fuzz::require(once.view() == twice.view(), "a written header round-trips");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  encodedWords(text);
  addresses(text);
  header(text);
  parseParameterizedValue(text);
  _svContentType type;
  _svCharset charset;
  type.loadFromMimeHeaderValue(text, charset);
  SorvikSysTime time;
  _svDateParser::parse(text, time);
  return 0;
}
