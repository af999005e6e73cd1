// email/bodies/charset.cpp - the charset of an email: chosen for a new text, detected for a received one.

#include "mailtree/base/Utf.h"
#include "mailtree/email/internal.h"
#include "mailtree/mime/charset/UnicodeInfo.h"

namespace mailtree {
namespace {

/// Reads unlabelled text as utf-8 if possible. An accented Latin letter in utf-8 is strong evidence; but C2
/// and C3 are letters in Cyrillic code pages, so most of the non-ASCII text must be utf-8 too.
DamagedReading readUnlabelled(std::string_view bytes) {
  if (isValidUtf8(bytes)) return {kCpUtf8, 0};
  return codePageDespiteDamage(containsUtf8Accent(bytes) ? kCpUtf8 : 0, bytes);
}

/// Updates parts labelled 7bit after the email's charset has changed: text that was 7-bit in the old charset
/// may not be in the new one.
void updateDeclaredEncodings(Email2& email, int before, LogBase& log) {
  if (before == 0 || before == email.emailCodePage()) return;
  neverThrow(Walk::stop, [&] {
    return walkTree(email, [&](Email2& node) {
      if (isDeclared7bit(node) && isConvertibleText(node.traits()) && node.getNumParts() == 0 &&
          !node.m_body.is7bit(0))
        node.setEncodingViaCodePage(email.emailCodePage(), 0, log);
      return Walk::descend;
    });
  });
}

bool canEncode(int codePage, const DataBuffer& utf8, LogBase& log) {
  DataBuffer scratch;
  return EncodingConvert::EncConvert(kCpUtf8, codePage, utf8.getData2(), utf8.getSize(), scratch, log);
}

/// The charset to try for us-ascii text that is no longer 7-bit: the preferred one, if any.
int codePageBeyondAscii(_svEmailCommon& common) {
  if (common.m_preferredCharset.isEmpty()) return kCpUsAscii;
  _svCharset preferred;
  preferred.setByName(common.m_preferredCharset.getUtf8());
  return preferred.getCodePage() != 0 ? preferred.getCodePage() : kCpUsAscii;
}

/// Chooses the charset of an email from the first text it gets.
class CharsetChoice {
 public:
  CharsetChoice(const Email2& email, const DataBuffer& utf8, LogBase& log) noexcept
      : m_email(email), m_common(*email.m_common), m_text(utf8), m_log(log) {}

  void choose() {
    if (m_text.isEmpty()) return;
    if (m_text.is7bit(0)) {
      if (m_log.m_debugLogging) m_log.logInfo("Choosing us-ascii because body is 7bit");
      m_common.m_charset.setByCodePage(kCpUsAscii);
      return;
    }
    LogContextExitor context(m_log, "chooseCharsetIfNecessary");
    if (!useDetected() && !useSuggested()) useFirstThatFits();
  }

 private:
  void take(int codePage, const char* reason) {
    if (m_log.m_verboseLogging) m_log.logInfo(reason);
    m_common.m_charset.setByCodePage(codePage);
  }

  bool useDetected() {
    const int detected = m_email.m_header.getDetectedCP();
    if (detected < 1) return false;
    if (m_log.m_verboseLogging) m_log.LogDataLong("cpDetectedInHeader", detected);
    if (!canEncode(detected, m_text, m_log)) {
      if (m_log.m_verboseLogging)
        m_log.logInfo("Charset detected in header not sufficient for this text body...");
      return false;
    }
    take(detected, "Setting charset to what was detected in the MIME header.");
    return true;
  }

  bool useSuggested() {
    XString& preferred = m_common.m_preferredCharset;
    if (!preferred.isEmpty() && m_log.m_verboseLogging)
      m_log.LogDataSb("preferredCharset", preferred.getUtf8Sb());
    UnicodeInfo info;
    info.ExamineUnicode(m_text.view());
    _svCharset suggestion;
    info.suggestCharset(suggestion, preferred.isEmpty() ? nullptr : preferred.getUtf8(), m_text.view(),
                        m_log);
    if (suggestion.getCodePage() == 0) return false;
    if (m_log.m_verboseLogging) m_log.LogDataLong("examineUnicodeChosenCharset", suggestion.getCodePage());
    m_common.m_charset.setByCodePage(suggestion.getCodePage());
    return true;
  }

  void useFirstThatFits() {
    if (canEncode(kCpLatin1, m_text, m_log))
      return take(kCpLatin1, "Choosing iso-8859-1 because conversion was success.");
    if (canEncode(kCpLatin2, m_text, m_log))
      return take(kCpLatin2, "Choosing iso-8859-2 because conversion was success.");
    take(kCpUtf8, "Choosing utf-8 as fallback for 8bit text.");
  }

  const Email2& m_email;
  _svEmailCommon& m_common;
  const DataBuffer& m_text;
  LogBase& m_log;
};

}  // namespace

void Email2::chooseCharsetIfNecessary(const DataBuffer& utf8Text, LogBase& log) {
  if (!isLive() || !m_common) return;
  const int before = emailCodePage();
  int codePage = before;
  if (codePage == kCpUsAscii && !utf8Text.is7bit(0)) codePage = codePageBeyondAscii(*m_common);
  // Deliberate: an email in us-ascii whose preference is utf-8 stays us-ascii; output relabels its parts.
  if (codePage == kCpUtf16LE || codePage == kCpUtf16BE || codePage == kCpUtf8) return;
  if (codePage == 0) return CharsetChoice(*this, utf8Text, log).choose();

  if (canEncode(codePage, utf8Text, log)) {
    use_codepage(codePage);
  } else {
    if (log.m_verboseLogging)
      log.logInfo(
          "Unable to convert text body to existing code page.  Choosing utf-8 for all text bodies...");
    use_codepage(kCpUtf8);
  }
  updateDeclaredEncodings(*this, before, log);
}

void Email2::chooseCharsetIfNecessaryX(XString& text, LogBase& log) {
  if (!isLive()) return;
  DataBuffer utf8;
  utf8.append(text.getUtf8Sb());
  chooseCharsetIfNecessary(utf8, log);
}

void Email2::detectAndSetCharset(LogBase& log) {
  if (!isLive()) return;
  LogContextExitor context(log, "detectAndSetCharset");
  const DamagedReading utf8 = readUnlabelled(m_body.view());
  if (utf8.codePage == kCpUtf8) {
    m_repairs.addDamage(utf8.damaged);
    if (m_common && m_common->m_charset.getCodePage() == 0) m_common->m_charset.setByCodePage(kCpUtf8);
    return;
  }
  const int headerCodePage = m_header.getDetectedCP();
  if (headerCodePage >= 1 && checkConvertBody(headerCodePage, log)) return;
  if (checkConvertBody(kCpLatin1, log) || checkConvertBody(kCpLatin2, log)) return;
  if (m_common && m_common->m_charset.getCodePage() == 0) m_common->m_charset.setByCodePage(kCpUtf8);
}

bool Email2::checkConvertBody(int codePage, LogBase& log) {
  if (!isLive()) return false;
  DataBuffer text;
  if (!EncodingConvert::EncConvert(codePage, kCpUtf8, m_body.getData2(), m_body.getSize(), text, log))
    return false;
  m_body.takeData(text);
  m_repairs.add(Repair::noCharset);
  if (codePage != 0 && m_common && m_common->m_charset.getCodePage() == 0)
    m_common->m_charset.setByCodePage(codePage);
  return true;
}

}  // namespace mailtree
