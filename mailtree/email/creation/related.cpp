// email/creation/related.cpp - creates related items, which an HTML body shows, from files and bytes.
//
// The HTML refers to an item by its generated Content-ID or by its location. Items without a Content-ID are
// marked inline for mail clients that do not resolve locations.
#include "mailtree/base/Platform.h"
#include "mailtree/email/creation/internal.h"

namespace mailtree {
namespace {

enum class Source { file = 1, data = 2 };  // numbered as in the errors of generateId

/// Deliberate: unlike an attachment, an item with an unknown extension gets no type.
std::string_view typeFor(const char* given, std::string_view name) noexcept {
  return given ? viewOf(given) : typeByName(name);
}

void generateId(Email2& item, Source source, LogBase& log) {
  if (item.generateContentId(log)) return;
  log.logError(source == Source::file ? "Failed to generate Content-ID for related item (1)"
                                      : "Failed to generate Content-ID for related item (2)");
}

/// Sets the fields used instead of a Content-ID: location, and disposition with the name.
void setLocation(Email2& item, const StringBuffer& name, LogBase& log) {
  item.setContentDispositionUtf8("inline", name.getString(), log);
  item.setHeaderField_a("Content-Location", name.getString(), /*asGiven=*/false, log);
}

bool fileExists(const char* tag, const char* path, LogBase& log) {
  if (FileSys::fileExistsUtf8(path)) return true;
  log.LogDataSb(tag, viewOf(path));
  log.logError("File does not exist, or cannot open file.");
  return false;
}

bool loadBody(Email2& item, const char* context, const char* path, LogBase& log) {
  LogContextExitor loading(log, context);
  item.m_body.clear();
  return item.m_body.loadFileUtf8(path, log);
}

EmailPtr fromFile(_svEmailCommon& common, const char* path, const char* contentType, LogBase& log) {
  EmailPtr item = createPart(common);
  if (!item) return item;
  generateId(*item, Source::file, log);
  const StringBuffer name = workingName(viewOf(path));
  setTypeAndEncoding(*item, typeFor(contentType, name), shortName(name), log);
  return loadBody(*item, "loadIntoRelatedBody", path, log) ? std::move(item) : EmailPtr();
}

EmailPtr fromFileNoCid(_svEmailCommon& common, XString& path, const XString& name, LogBase& log) {
  EmailPtr item = createPart(common);
  if (!item) return item;
  const StringBuffer shown = oneLine(name.view());
  setTypeAndEncoding(*item, typeFor(nullptr, path.view()), shown, log);
  setLocation(*item, shown, log);
  return loadBody(*item, "loadIntoRelatedBody2", path.getUtf8(), log) ? std::move(item) : EmailPtr();
}

EmailPtr fromData(_svEmailCommon& common, const char* name, const char* contentType, const DataBuffer& data,
                  LogBase& log) {
  EmailPtr item = createPart(common);
  if (!item) return item;
  generateId(*item, Source::data, log);
  const StringBuffer shown = oneLine(viewOf(name));
  setTypeAndEncoding(*item, typeFor(contentType, shown), shown, log);
  return item->m_body.append(data.view()) ? std::move(item) : EmailPtr();
}

EmailPtr fromDataNoCid(_svEmailCommon& common, const char* name, const DataBuffer& data, LogBase& log) {
  EmailPtr item = createPart(common);
  if (!item) return item;
  const StringBuffer shown = oneLine(viewOf(name));
  setTypeAndEncoding(*item, typeFor(nullptr, shown), shown, log);
  setLocation(*item, shown, log);
  return item->m_body.append(data.view()) ? std::move(item) : EmailPtr();
}

}  // namespace

Email2* Email2::createRelatedFromFileUtf8(_svEmailCommon& common, const char* path, const char* contentType,
                                          LogBase& log) {
  if (viewOf(path).empty() || !fileExists("filePath", path, log)) return nullptr;
  return neverThrow<Email2*>(nullptr, [&] { return fromFile(common, path, contentType, log).release(); });
}

Email2* Email2::createRelatedFromDataUtf8(_svEmailCommon& common, const char* name, const char* contentType,
                                          const DataBuffer& data, LogBase& log) {
  if (viewOf(name).empty()) return nullptr;
  return neverThrow<Email2*>(nullptr,
                             [&] { return fromData(common, name, contentType, data, log).release(); });
}

Email2* Email2::createRelatedFromFileNoCid(_svEmailCommon& common, XString& path, XString& name,
                                           LogBase& log) {
  if (path.isEmpty() || !fileExists("filename", path.getUtf8(), log)) return nullptr;
  return neverThrow<Email2*>(nullptr, [&] { return fromFileNoCid(common, path, name, log).release(); });
}

Email2* Email2::createRelatedFromDataNoCid(_svEmailCommon& common, const char* name, const DataBuffer& data,
                                           LogBase& log) {
  if (viewOf(name).empty()) return nullptr;
  return neverThrow<Email2*>(nullptr, [&] { return fromDataNoCid(common, name, data, log).release(); });
}

}  // namespace mailtree
