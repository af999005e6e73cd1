// mime/AttachmentForms.cpp - attachments in legacy formats: AppleDouble pairs and uuencoded bodies.
#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/coding/Uu.h"

namespace mailtree {
namespace {

bool hasType(const MimeMessage2& entity, std::string_view type) noexcept {
  return equalsNoCase(entity.getContentType(), type);
}

/// Index of the first part that is not the resource fork; -1 when there is none.
int findDataFork(const MimeMessage2& pair) noexcept {
  for (int i = 0; i < pair.getNumParts(); ++i)
    if (!hasType(*pair.getPart(i), "application/applefile")) return i;
  return -1;
}

bool hasFilename(const MimeMessage2& entity) {
  StringBuffer filename;
  entity.getMimeFilename(filename);
  return !filename.isEmpty();
}

/// The file name of the pair: its own, or that of a part (RFC 1740 puts it on the resource fork).
void getPairFilename(const MimeMessage2& pair, StringBuffer& out) {
  pair.getMimeFilename(out);
  for (int i = 0; out.isEmpty() && i < pair.getNumParts(); ++i) pair.getPart(i)->getMimeFilename(out);
}

}  // namespace

MimeMessage2* MimeMessage2::getAppleDoubleAttachment(LogBase& log) {
  return neverThrow<MimeMessage2*>(nullptr, [&]() -> MimeMessage2* {
    const int index = hasType(*this, "multipart/appledouble") ? findDataFork(*this) : -1;
    if (index < 0) return nullptr;
    StringBuffer pairFilename;
    getPairFilename(*this, pairFilename);

    Owned<MimeMessage2> fork(extractPart(index));
    if (!fork->m_disposition.equalsIgnoreCase("attachment")) fork->setDisposition("attachment", log);
    if (!pairFilename.isEmpty() && !hasFilename(*fork)) fork->setFilenameUtf8(pairFilename.getString(), log);
    return fork.release();
  });
}

void MimeMessage2::uuDecodeAttachment(LogBase& log) {
  neverThrow(false, [&] {
    if (!isUuTransferEncoding(m_transferEncoding)) return false;
    Uu decoder;
    DataBuffer decoded;
    if (!decoder.uu_decode(m_body.view(), decoded)) return false;

    setContentEncoding("base64", log);
    StringBuffer name;
    decoder.uu_getFilename(name);
    name.stripDirectory();
    // Many of these parts have no name but the one in the uuencode block.
    if (!name.isEmpty() && isValidUtf8(name) && !hasFilename(*this)) setNameUtf8(name.getString(), log);
    if (isConvertibleText(traits())) {
      setMimeBody8Bit_2(decoded.getData2(), static_cast<unsigned>(decoded.getSize()), m_parsedCharset,
                        /*isText=*/true, log);
    } else {
      m_body.takeData(decoded);
    }
    return true;
  });
}

}  // namespace mailtree
