// email/bodies/charset.cpp - received text that names no charset brought to utf-8.

#include "mailtree/base/Utf.h"
#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

/// Whether a byte C2 or C3 is followed by one that is no ASCII: how every accented Latin letter begins in
/// utf-8, and rarely anything else in another charset.
bool looksLikeUtf8(std::string_view bytes) noexcept {
  for (std::size_t i = 0; i + 1 < bytes.size(); ++i)
    if ((bytes[i] == '\xC2' || bytes[i] == '\xC3') && is8bit(bytes[i + 1])) return true;
  return false;
}

}  // namespace

void Email2::detectAndSetCharset(LogBase& log) {
  if (!isLive()) return;
  LogContextExitor context(log, "detectAndSetCharset");
  const std::string_view bytes = m_body.view();
  if (looksLikeUtf8(bytes) || isValidUtf8(bytes)) {
    if (m_common && m_common->m_charset.getCodePage() == 0) m_common->m_charset.setByCodePage(kCpUtf8);
    return;
  }
  const int ofHeader = m_header.getDetectedCP();
  constexpr int kCpLatin2 = 28592;
  if (ofHeader >= 1 && checkConvertBody(ofHeader, log)) return;
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
