#include "mailtree/mime/header/ContentTypeTable.h"

#include <cstddef>
#include <iterator>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

struct Row {
  const char* type;
  const char* extension;
};

/// Media types found in mail. The first row of a type holds its usual extension, the first row of an
/// extension its usual type. Add a row to the group it belongs to, and mind whether it becomes the first of
/// its type or extension.
constexpr Row kRows[] = {
    // Unknown
    {"application/octet-stream", "bin"},
    {"application/octet-stream", "dat"},
    // Text
    {"text/plain", "txt"},
    {"text/plain", "text"},
    {"text/plain", "log"},
    {"text/plain", "conf"},
    {"text/plain", "ini"},
    {"text/plain", "cfg"},
    {"text/html", "html"},
    {"text/html", "htm"},
    {"text/css", "css"},
    {"text/csv", "csv"},
    {"text/tab-separated-values", "tsv"},
    {"text/calendar", "ics"},
    {"text/calendar", "ifb"},
    {"text/vcard", "vcf"},
    {"text/vcard", "vcard"},
    {"text/markdown", "md"},
    {"text/markdown", "markdown"},
    {"text/xml", "xml"},
    {"text/x-patch", "patch"},
    {"text/x-patch", "diff"},
    {"text/x-python", "py"},
    {"text/x-shellscript", "sh"},
    {"text/x-c", "c"},
    {"text/x-c", "h"},
    {"text/x-c++", "cpp"},
    {"text/x-c++", "cc"},
    {"text/x-c++", "hpp"},
    {"text/x-java", "java"},
    {"text/x-perl", "pl"},
    {"text/x-sql", "sql"},
    {"text/x-tex", "tex"},
    {"text/richtext", "rtx"},
    {"text/sgml", "sgml"},
    {"text/troff", "man"},
    {"text/vtt", "vtt"},
    {"text/x-vcalendar", "vcs"},
    {"text/javascript", "js"},
    {"text/javascript", "mjs"},
    {"text/yaml", "yaml"},
    {"text/yaml", "yml"},
    // Images
    {"image/jpeg", "jpg"},
    {"image/jpeg", "jpeg"},
    {"image/jpeg", "jpe"},
    {"image/jpeg", "jfif"},
    {"image/png", "png"},
    {"image/gif", "gif"},
    {"image/bmp", "bmp"},
    {"image/bmp", "dib"},
    {"image/tiff", "tif"},
    {"image/tiff", "tiff"},
    {"image/svg+xml", "svg"},
    {"image/webp", "webp"},
    {"image/heic", "heic"},
    {"image/heif", "heif"},
    {"image/avif", "avif"},
    {"image/jp2", "jp2"},
    {"image/x-icon", "ico"},
    {"image/vnd.adobe.photoshop", "psd"},
    {"image/vnd.djvu", "djvu"},
    {"image/vnd.dxf", "dxf"},
    {"image/vnd.dwg", "dwg"},
    {"image/x-portable-pixmap", "ppm"},
    {"image/x-portable-bitmap", "pbm"},
    {"image/x-portable-graymap", "pgm"},
    {"image/x-pcx", "pcx"},
    {"image/x-tga", "tga"},
    {"image/x-xbitmap", "xbm"},
    {"image/x-xpixmap", "xpm"},
    {"image/g3fax", "g3"},
    {"image/wmf", "wmf"},
    {"image/emf", "emf"},
    // Aliases of other types here
    {"image/jpg", "jpg"},
    {"image/pjpeg", "jpg"},
    {"image/x-png", "png"},
    {"image/x-ms-bmp", "bmp"},
    {"image/vnd.microsoft.icon", "ico"},
    // Audio
    {"audio/mpeg", "mp3"},
    {"audio/mpeg", "mp2"},
    {"audio/mp4", "m4a"},
    {"audio/aac", "aac"},
    {"audio/ogg", "oga"},
    {"audio/ogg", "opus"},
    {"audio/flac", "flac"},
    {"audio/wav", "wav"},
    {"audio/x-wav", "wav"},
    {"audio/x-aiff", "aif"},
    {"audio/x-aiff", "aiff"},
    {"audio/midi", "mid"},
    {"audio/midi", "midi"},
    {"audio/amr", "amr"},
    {"audio/basic", "au"},
    {"audio/basic", "snd"},
    {"audio/x-ms-wma", "wma"},
    {"audio/x-mpegurl", "m3u"},
    {"audio/webm", "weba"},
    {"audio/3gpp", "3ga"},
    {"audio/mp3", "mp3"},
    // Video
    {"video/mp4", "mp4"},
    {"video/mp4", "m4v"},
    {"video/mpeg", "mpg"},
    {"video/mpeg", "mpeg"},
    {"video/quicktime", "mov"},
    {"video/quicktime", "qt"},
    {"video/x-msvideo", "avi"},
    {"video/x-ms-wmv", "wmv"},
    {"video/x-ms-asf", "asf"},
    {"video/x-flv", "flv"},
    {"video/x-matroska", "mkv"},
    {"video/webm", "webm"},
    {"video/ogg", "ogv"},
    {"video/3gpp", "3gp"},
    {"video/3gpp2", "3g2"},
    {"video/mp2t", "ts"},
    // Documents
    {"application/pdf", "pdf"},
    {"application/msword", "doc"},
    {"application/msword", "dot"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "docx"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.template", "dotx"},
    {"application/vnd.ms-word.document.macroenabled.12", "docm"},
    {"application/vnd.ms-excel", "xls"},
    {"application/vnd.ms-excel", "xlt"},
    {"application/vnd.ms-excel", "xla"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "xlsx"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.template", "xltx"},
    {"application/vnd.ms-excel.sheet.macroenabled.12", "xlsm"},
    {"application/vnd.ms-excel.sheet.binary.macroenabled.12", "xlsb"},
    {"application/vnd.ms-powerpoint", "ppt"},
    {"application/vnd.ms-powerpoint", "pps"},
    {"application/vnd.ms-powerpoint", "pot"},
    {"application/vnd.openxmlformats-officedocument.presentationml.presentation", "pptx"},
    {"application/vnd.openxmlformats-officedocument.presentationml.slideshow", "ppsx"},
    {"application/vnd.openxmlformats-officedocument.presentationml.template", "potx"},
    {"application/vnd.ms-powerpoint.presentation.macroenabled.12", "pptm"},
    {"application/vnd.ms-project", "mpp"},
    {"application/vnd.visio", "vsd"},
    {"application/vnd.ms-visio.drawing", "vsdx"},
    {"application/vnd.ms-publisher", "pub"},
    {"application/onenote", "one"},
    {"application/vnd.ms-outlook", "msg"},
    {"application/vnd.ms-xpsdocument", "xps"},
    {"application/vnd.ms-htmlhelp", "chm"},
    {"application/x-msaccess", "mdb"},
    {"application/x-msaccess", "accdb"},
    {"application/ms-tnef", "dat"},
    {"application/vnd.oasis.opendocument.text", "odt"},
    {"application/vnd.oasis.opendocument.text-template", "ott"},
    {"application/vnd.oasis.opendocument.spreadsheet", "ods"},
    {"application/vnd.oasis.opendocument.presentation", "odp"},
    {"application/vnd.oasis.opendocument.graphics", "odg"},
    {"application/vnd.oasis.opendocument.formula", "odf"},
    {"application/vnd.oasis.opendocument.database", "odb"},
    {"application/vnd.apple.pages", "pages"},
    {"application/vnd.apple.numbers", "numbers"},
    {"application/vnd.apple.keynote", "key"},
    {"application/rtf", "rtf"},
    {"text/rtf", "rtf"},
    {"application/postscript", "ps"},
    {"application/postscript", "eps"},
    {"application/postscript", "ai"},
    {"application/epub+zip", "epub"},
    {"application/x-mobipocket-ebook", "mobi"},
    {"application/x-dvi", "dvi"},
    {"application/x-latex", "latex"},
    {"application/x-bibtex", "bib"},
    {"application/wordperfect", "wpd"},
    {"application/vnd.lotus-1-2-3", "123"},
    {"application/illustrator", "ai"},
    {"application/x-indesign", "indd"},
    // Data
    {"application/xml", "xml"},
    {"application/xml", "xsd"},
    {"application/xslt+xml", "xslt"},
    {"application/xhtml+xml", "xhtml"},
    {"application/xhtml+xml", "xht"},
    {"application/rss+xml", "rss"},
    {"application/atom+xml", "atom"},
    {"application/json", "json"},
    {"application/ld+json", "jsonld"},
    {"application/geo+json", "geojson"},
    {"application/yaml", "yaml"},
    {"application/toml", "toml"},
    {"application/gpx+xml", "gpx"},
    {"application/vnd.google-earth.kml+xml", "kml"},
    {"application/vnd.google-earth.kmz", "kmz"},
    {"application/x-sqlite3", "sqlite"},
    {"application/x-sqlite3", "db"},
    {"application/edifact", "edi"},
    {"application/edi-x12", "x12"},
    {"application/sql", "sql"},
    {"application/x-ndjson", "ndjson"},
    {"application/wasm", "wasm"},
    {"application/javascript", "js"},
    {"application/x-javascript", "js"},
    {"application/x-httpd-php", "php"},
    {"application/x-sh", "sh"},
    {"application/x-csh", "csh"},
    {"application/x-tcl", "tcl"},
    {"application/x-perl", "pl"},
    {"application/x-yaml", "yml"},
    // Archives and programs
    {"application/zip", "zip"},
    {"application/gzip", "gz"},
    {"application/x-tar", "tar"},
    {"application/x-gtar", "tgz"},
    {"application/x-bzip2", "bz2"},
    {"application/x-xz", "xz"},
    {"application/zstd", "zst"},
    {"application/x-7z-compressed", "7z"},
    {"application/vnd.rar", "rar"},
    {"application/x-rar-compressed", "rar"},
    {"application/x-zip-compressed", "zip"},
    {"application/x-gzip", "gz"},
    {"application/x-compressed", "tgz"},
    {"application/x-lzh", "lzh"},
    {"application/x-lzh", "lha"},
    {"application/x-lzip", "lz"},
    {"application/x-compress", "z"},
    {"application/x-cpio", "cpio"},
    {"application/x-iso9660-image", "iso"},
    {"application/vnd.ms-cab-compressed", "cab"},
    {"application/x-stuffit", "sit"},
    {"application/mac-binhex40", "hqx"},
    {"application/applefile", "bin"},
    {"application/x-apple-diskimage", "dmg"},
    {"application/java-archive", "jar"},
    {"application/java-vm", "class"},
    {"application/vnd.android.package-archive", "apk"},
    {"application/vnd.debian.binary-package", "deb"},
    {"application/x-rpm", "rpm"},
    {"application/x-msi", "msi"},
    {"application/vnd.microsoft.portable-executable", "exe"},
    {"application/vnd.microsoft.portable-executable", "dll"},
    {"application/x-msdownload", "exe"},
    {"application/x-bat", "bat"},
    {"application/x-shockwave-flash", "swf"},
    {"application/x-bittorrent", "torrent"},
    // Mail, certificates, signatures
    {"message/rfc822", "eml"},
    {"message/rfc822", "mime"},
    {"message/global", "u8msg"},
    {"message/delivery-status", "txt"},
    {"message/disposition-notification", "txt"},
    {"text/rfc822-headers", "txt"},
    {"multipart/related", "mht"},
    {"multipart/related", "mhtml"},
    {"application/mbox", "mbox"},
    {"application/pkcs7-mime", "p7m"},
    {"application/x-pkcs7-mime", "p7m"},
    {"application/pkcs7-signature", "p7s"},
    {"application/x-pkcs7-signature", "p7s"},
    {"application/pkcs10", "p10"},
    {"application/pkcs12", "p12"},
    {"application/pkcs12", "pfx"},
    {"application/x-x509-ca-cert", "cer"},
    {"application/x-x509-ca-cert", "crt"},
    {"application/x-x509-ca-cert", "der"},
    {"application/pkix-cert", "cer"},
    {"application/pkix-crl", "crl"},
    {"application/x-pem-file", "pem"},
    {"application/pgp-signature", "asc"},
    {"application/pgp-signature", "sig"},
    {"application/pgp-encrypted", "pgp"},
    {"application/pgp-keys", "asc"},
    {"application/pgp-keys", "gpg"},
    {"application/timestamp-reply", "tsr"},
    {"application/vnd.apple.pkpass", "pkpass"},
    {"application/ics", "ics"},
    {"application/smil+xml", "smil"},
    // Fonts and models
    {"font/ttf", "ttf"},
    {"font/otf", "otf"},
    {"font/woff", "woff"},
    {"font/woff2", "woff2"},
    {"application/vnd.ms-fontobject", "eot"},
    {"model/stl", "stl"},
    {"model/obj", "obj"},
    {"model/gltf-binary", "glb"},
    {"model/vnd.dwf", "dwf"},
    {"model/iges", "igs"},
    {"model/iges", "iges"},
};

constexpr bool isLowerToken(std::string_view text, std::string_view punctuation) noexcept {
  for (const char c : text)
    if (!isLowerAscii(c) && !isDigitAscii(c) && !contains(punctuation, {&c, 1})) return false;
  return !text.empty();
}

/// Whether every row is a lower-case "type/subtype" and an extension without a dot.
constexpr bool areRowsWellFormed() noexcept {
  for (const Row& row : kRows) {
    const std::string_view type = row.type;
    const std::size_t slash = type.find('/');
    if (slash == std::string_view::npos || !isLowerToken(type.substr(0, slash), "")) return false;
    if (!isLowerToken(type.substr(slash + 1), "-+.") || !isLowerToken(row.extension, "")) return false;
  }
  return true;
}
static_assert(areRowsWellFormed());

}  // namespace

const char* svMimeContentType(int index) noexcept {
  const auto at = static_cast<std::size_t>(index) / 2;
  if (index < 0 || at >= std::size(kRows)) return "";
  return index % 2 == 0 ? kRows[at].type : kRows[at].extension;
}

std::string_view extensionOfContentType(std::string_view type) noexcept {
  for (const Row& row : kRows)
    if (equalsNoCase(type, row.type)) return row.extension;
  return {};
}

std::string_view contentTypeOfExtension(std::string_view extension) noexcept {
  for (const Row& row : kRows)
    if (equalsNoCase(extension, row.extension)) return row.type;
  return {};
}

}  // namespace mailtree
