// email/transform/mht.cpp - a copy prepared as a web archive.
#include "mailtree/email/internal.h"
#include "mailtree/mime/html/Html.h"

namespace mailtree {
namespace {

/// Deliberate: the text is not escaped, so "a<b" stays unchanged.
StringBuffer pageOf(const DataBuffer& text) {
  StringBuffer page(text.view());
  page.toCRLF();
  page.prepend("<html><head/><body><pre>");
  page.append("</pre></body></html>");
  return page;
}

void setPage(Email2& clone, const StringBuffer& page, LogBase& log) {
  DataBuffer html;
  html.append(page);
  StringBuffer type("text/html");
  clone.setBody(html, /*isText=*/true, type, nullptr, log);
}

void addHtmlAlternative(const Email2& email, Email2& clone, LogBase& log) {
  LogContextExitor context(log, "MultipartAlternative");
  const int html = clone.getHtmlAlternativeIndex();
  log.LogDataLong("htmlAltIndex", html);
  if (html >= 0) return;
  const int plain = clone.getPlainTextAlternativeIndex();
  log.LogDataLong("plainTextAltIndex", plain);
  if (plain < 0) return;
  DataBuffer text;
  clone.getAlternativeBodyData(email, plain, text, log);
  setPage(clone, pageOf(text), log);
}

void makePageOfText(const Email2& email, Email2& clone, LogBase& log) {
  LogContextExitor context(log, "NotMultipartAlternative");
  const StringBuffer& type = clone.m_contentType.m_type;
  log.LogDataSb("contentType", type);
  if (!type.equalsIgnoreCase("text/plain")) return;
  DataBuffer text;
  clone.getEffectiveBodyData(email, text, log);
  StringBuffer page = pageOf(text);
  _svHtmlHelp::addCharsetMetaTag(page, "utf-8", log);
  setPage(clone, page, log);
}

}  // namespace

Email2* Email2::cloneToMht2(StringBuffer& html, LogBase& log) {
  if (!isLive()) return nullptr;
  LogContextExitor context(log, "cloneToMht2");
  EmailPtr clone(clone_v3(/*shareImageData=*/false, log));
  if (!clone) return nullptr;
  const bool done = neverThrow(false, [&] {
    clone->dropAttachmentsForTempMht(html, log);
    if (clone->m_contentType.m_type.equalsIgnoreCase("multipart/alternative"))
      addHtmlAlternative(*this, *clone, log);
    else
      makePageOfText(*this, *clone, log);
    return true;
  });
  return done ? clone.release() : nullptr;
}

}  // namespace mailtree
