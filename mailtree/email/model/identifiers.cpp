#include "mailtree/email/Email2.h"

#include <atomic>

#include "mailtree/base/Platform.h"
#include "mailtree/base/Stdio.h"
#include "mailtree/email/addresses/unused.h"
#include "mailtree/email/model/internal.h"

namespace mailtree {
namespace {

constexpr unsigned kMessageIdBytes = 20;
constexpr unsigned kFilenameBytes = 4;
constexpr std::uint32_t kTickMask = 0xFFFFFF;
constexpr int kMaxFilenameIndex = 999;

/// Counts the file names generated in this process, cycling through 0 to 999.
std::atomic<int> GenFnameIdx{0};

int nextFilenameIndex() noexcept {
  int index = GenFnameIdx.load(std::memory_order_relaxed);
  while (!GenFnameIdx.compare_exchange_weak(index, index < kMaxFilenameIndex ? index + 1 : 0,
                                            std::memory_order_relaxed)) {
  }
  return index;
}

/// Fills `out` with the random bytes of a Message-ID; false when the random source returned too few.
bool generateMessageIdBytes(DataBuffer& out) {
  out.clear();
  RandomSource::genRandomBytes(kMessageIdBytes, out);
  return out.getSize() == kMessageIdBytes;
}

bool isAllZero(const DataBuffer& bytes) noexcept {
  return bytes.view().find_first_not_of('\0') == std::string_view::npos;
}

void appendHostAndClose(StringBuffer& id) {
  StringBuffer computer;
  Psdk::getComputerName(computer);
  id.appendChar('@');
  appendIdentifierHost(computer, id);
  id.appendChar('>');
}

}  // namespace

void appendIdentifierHost(std::string_view computerName, StringBuffer& out) {
  StringBuffer host;
  host.setString(computerName);
  host.toAlphaNumUsAscii();
  out.append(host.isEmpty() ? std::string_view("unknown") : host.view());
}

bool Email2::generateMessageID(LogBase& log) {
  if (!isLive()) return false;
  DataBuffer random;
  bool isComplete = generateMessageIdBytes(random);
  if (!isComplete) isComplete = generateMessageIdBytes(random);
  if (!isComplete) {
    log.logError("Failed to generate random bytes for email Message-ID");
    return false;
  }
  if (isAllZero(random) && !generateMessageIdBytes(random)) {
    // Deliberate: the period distinguishes this failure from the one above.
    log.logError("Failed to generate random bytes for email Message-ID.");
    return false;
  }

  StringBuffer id("<");
  random.toHexString(id);
  id.toUpperCase();
  appendHostAndClose(id);
  m_header.replaceMimeFieldUtf8("Message-ID", id.getString(), log);
  return true;
}

bool Email2::generateContentId(LogBase& log) {
  if (!isLive()) return false;
  StringBuffer id("<CID-");
  const bool isUnique = UniqueIdSource::genUniqueId(id);
  appendHostAndClose(id);
  if (log.m_verboseLogging) log.LogDataSb("generatedContentId", id);
  LogNull quiet;
  setContentId(id.getString(), quiet);
  return isUnique;
}

void Email2::setDate(const char* rfc822, LogBase& log, bool setField) {
  if (!isLive()) return;
  if (!_svDateParser::parseRFC822Date(rfc822, m_date))
    reportUnusedText("Not used as a date", viewOf(rfc822), log);
  if (setField) m_header.replaceMimeFieldUtf8("Date", rfc822, log);
}

void Email2::resetDate(LogBase& log) {
  if (!isLive()) return;
  StringBuffer now;
  _svDateParser::generateCurrentDateRFC822(now);
  setDate(now.getString(), log, /*setField=*/true);
}

void Email2::getDate(SorvikSysTime& out) const {
  if (isLive()) out.copyFrom(m_date);
}

void Email2::genEmailFilename(StringBuffer& out) const {
  if (isLive()) genEmailFilename2(m_date, out);
}

void Email2::genEmailFilename2(const SorvikSysTime& time, StringBuffer& out) {
  const std::uint32_t tick = Psdk::getTickCount() & kTickMask;
  Psdk::sleepMs(1);  // so the ticks of consecutive names differ
  DataBuffer random;
  RandomSource::genRandomBytes(kFilenameBytes, random);

  char text[200];
  _svStdio::_svSprintf6(text, sizeof text, "e_%04w%02w%02w_%02w%02w%02w", time.m_year, time.m_month,
                        time.m_day, time.m_hour, time.m_minute, time.m_second);
  out.append(text);
  _svStdio::_svSprintf2(text, sizeof text, "_%06x%03x", tick, nextFilenameIndex());
  out.append(text);
  random.toHexString(out);
  out.append(".eml");
}

}  // namespace mailtree
