#include "mailtree/email/addresses/unused.h"

#include <string>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/HeaderText.h"

namespace mailtree {
namespace {

constexpr std::string_view kNoAddress = "Not used as an address";
constexpr std::size_t kMaxQuoted = 200;

std::string shownForm(const _svEmailAddress& entry) {
  LogNull quiet;
  StringBuffer text;
  entry.emitSelfAsMimeField(kCpUtf8, /*first=*/true, /*forHeader=*/false, /*useQ=*/true, text, quiet);
  return text.extractString();
}

}  // namespace

void reportUnusedText(std::string_view what, std::string_view text, LogBase& log) {
  neverThrow(false, [&] {
    std::string line(what);
    line.append(": ").append(withoutBreaks(text.substr(0, kMaxQuoted)));
    log.logInfo(line);
    return true;
  });
}

void reportUnused(std::string_view list, UsedAddresses used, LogBase& log) {
  neverThrow(false, [&] {
    ExtPtrArray entries;
    _svEmailAddress::parseAndLoadEntries(list, entries);
    if (entries.getSize() == 0 && !trim(list).empty()) reportUnusedText(kNoAddress, list, log);
    bool hasFirst = false;
    for (int i = 0; i < entries.getSize(); ++i) {
      const auto& entry = *entries.at<_svEmailAddress>(i);
      const std::string_view address = entry.m_address.view();
      const bool isUsed = used == UsedAddresses::all ? !address.empty() : !hasFirst && contains(address, "@");
      hasFirst |= isUsed;
      if (!isUsed) reportUnusedText(kNoAddress, shownForm(entry), log);
    }
    return true;
  });
}

}  // namespace mailtree
