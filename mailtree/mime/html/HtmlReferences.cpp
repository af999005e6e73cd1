#include "mailtree/mime/html/HtmlReferences.h"

#include <algorithm>
#include <iterator>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

struct ReferenceRow {
  std::string_view name;
  char32_t codePoint;
  bool semicolonOptional = false;
};

constexpr ReferenceRow kNamed[] = {
    {"amp", '&', true}, {"lt", '<', true}, {"gt", '>', true}, {"quot", '"', true}, {"nbsp", 0xA0, true},
    {"AMP", '&', true}, {"LT", '<', true}, {"GT", '>', true}, {"QUOT", '"', true}, {"apos", '\''},
    {"colon", ':'},     {"sol", '/'},      {"period", '.'},   {"quest", '?'},      {"equals", '='},
    {"num", '#'},       {"percnt", '%'},   {"commat", '@'},   {"plus", '+'},       {"comma", ','},
    {"semi", ';'},      {"excl", '!'},     {"lowbar", '_'},   {"ast", '*'},        {"lpar", '('},
    {"rpar", ')'},      {"lsqb", '['},     {"rsqb", ']'},     {"lcub", '{'},       {"rcub", '}'},
    {"bsol", '\\'},     {"verbar", '|'},   {"dollar", '$'},   {"grave", '`'},      {"Hat", '^'},
    {"Tab", '\t'},      {"NewLine", '\n'},
};

// Further names for text, sorted: those of HTML 4, Latin letters, and signs and spaces of newsletters. The
// semicolon is optional for those of iso-8859-1.
struct TextRow {
  std::string_view name;
  char16_t character;
};
constexpr TextRow kTextNames[] = {
    {"AElig", 0xC6},       {"Aacute", 0xC1},    {"Abreve", 0x102},   {"Acirc", 0xC2},
    {"Agrave", 0xC0},      {"Alpha", 0x391},    {"Amacr", 0x100},    {"Aogon", 0x104},
    {"Aring", 0xC5},       {"Atilde", 0xC3},    {"Auml", 0xC4},      {"Beta", 0x392},
    {"Cacute", 0x106},     {"Ccaron", 0x10C},   {"Ccedil", 0xC7},    {"Chi", 0x3A7},
    {"Dagger", 0x2021},    {"Dcaron", 0x10E},   {"Delta", 0x394},    {"Dstrok", 0x110},
    {"ETH", 0xD0},         {"Eacute", 0xC9},    {"Ecaron", 0x11A},   {"Ecirc", 0xCA},
    {"Egrave", 0xC8},      {"Emacr", 0x112},    {"Eogon", 0x118},    {"Epsilon", 0x395},
    {"Eta", 0x397},        {"Euml", 0xCB},      {"Gamma", 0x393},    {"Gbreve", 0x11E},
    {"Iacute", 0xCD},      {"Icirc", 0xCE},     {"Idot", 0x130},     {"Igrave", 0xCC},
    {"Imacr", 0x12A},      {"Iota", 0x399},     {"Iuml", 0xCF},      {"Kappa", 0x39A},
    {"Lambda", 0x39B},     {"Lstrok", 0x141},   {"Mu", 0x39C},       {"Nacute", 0x143},
    {"Ncaron", 0x147},     {"NoBreak", 0x2060}, {"Ntilde", 0xD1},    {"Nu", 0x39D},
    {"OElig", 0x152},      {"Oacute", 0xD3},    {"Ocirc", 0xD4},     {"Odblac", 0x150},
    {"Ograve", 0xD2},      {"Omega", 0x3A9},    {"Omicron", 0x39F},  {"Oslash", 0xD8},
    {"Otilde", 0xD5},      {"Ouml", 0xD6},      {"Phi", 0x3A6},      {"Pi", 0x3A0},
    {"Prime", 0x2033},     {"Psi", 0x3A8},      {"Rcaron", 0x158},   {"Rho", 0x3A1},
    {"Sacute", 0x15A},     {"Scaron", 0x160},   {"Scedil", 0x15E},   {"Sigma", 0x3A3},
    {"THORN", 0xDE},       {"Tau", 0x3A4},      {"Tcaron", 0x164},   {"Tcedil", 0x162},
    {"Theta", 0x398},      {"Uacute", 0xDA},    {"Ucirc", 0xDB},     {"Udblac", 0x170},
    {"Ugrave", 0xD9},      {"Umacr", 0x16A},    {"Upsilon", 0x3A5},  {"Uring", 0x16E},
    {"Uuml", 0xDC},        {"Xi", 0x39E},       {"Yacute", 0xDD},    {"Yuml", 0x178},
    {"Zacute", 0x179},     {"Zcaron", 0x17D},   {"Zdot", 0x17B},     {"ZeroWidthSpace", 0x200B},
    {"Zeta", 0x396},       {"aacute", 0xE1},    {"abreve", 0x103},   {"acirc", 0xE2},
    {"acute", 0xB4},       {"aelig", 0xE6},     {"agrave", 0xE0},    {"alefsym", 0x2135},
    {"alpha", 0x3B1},      {"amacr", 0x101},    {"and", 0x2227},     {"ang", 0x2220},
    {"aogon", 0x105},      {"aring", 0xE5},     {"asymp", 0x2248},   {"atilde", 0xE3},
    {"auml", 0xE4},        {"bdquo", 0x201E},   {"beta", 0x3B2},     {"brvbar", 0xA6},
    {"bull", 0x2022},      {"cacute", 0x107},   {"cap", 0x2229},     {"ccaron", 0x10D},
    {"ccedil", 0xE7},      {"cedil", 0xB8},     {"cent", 0xA2},      {"check", 0x2713},
    {"checkmark", 0x2713}, {"chi", 0x3C7},      {"cir", 0x25CB},     {"circ", 0x2C6},
    {"clubs", 0x2663},     {"cong", 0x2245},    {"copy", 0xA9},      {"crarr", 0x21B5},
    {"cross", 0x2717},     {"cup", 0x222A},     {"curren", 0xA4},    {"dArr", 0x21D3},
    {"dagger", 0x2020},    {"darr", 0x2193},    {"dash", 0x2010},    {"dcaron", 0x10F},
    {"deg", 0xB0},         {"delta", 0x3B4},    {"diams", 0x2666},   {"divide", 0xF7},
    {"dstrok", 0x111},     {"eacute", 0xE9},    {"ecaron", 0x11B},   {"ecirc", 0xEA},
    {"egrave", 0xE8},      {"emacr", 0x113},    {"empty", 0x2205},   {"emsp", 0x2003},
    {"ensp", 0x2002},      {"eogon", 0x119},    {"epsilon", 0x3B5},  {"equiv", 0x2261},
    {"eta", 0x3B7},        {"eth", 0xF0},       {"euml", 0xEB},      {"euro", 0x20AC},
    {"exist", 0x2203},     {"fnof", 0x192},     {"forall", 0x2200},  {"frac12", 0xBD},
    {"frac14", 0xBC},      {"frac34", 0xBE},    {"frasl", 0x2044},   {"gamma", 0x3B3},
    {"gbreve", 0x11F},     {"ge", 0x2265},      {"hArr", 0x21D4},    {"hairsp", 0x200A},
    {"harr", 0x2194},      {"hearts", 0x2665},  {"hellip", 0x2026},  {"horbar", 0x2015},
    {"iacute", 0xED},      {"icirc", 0xEE},     {"iexcl", 0xA1},     {"igrave", 0xEC},
    {"imacr", 0x12B},      {"image", 0x2111},   {"imath", 0x131},    {"infin", 0x221E},
    {"int", 0x222B},       {"iogon", 0x12F},    {"iota", 0x3B9},     {"iquest", 0xBF},
    {"isin", 0x2208},      {"iuml", 0xEF},      {"kappa", 0x3BA},    {"kcedil", 0x137},
    {"lArr", 0x21D0},      {"lambda", 0x3BB},   {"lang", 0x2329},    {"laquo", 0xAB},
    {"larr", 0x2190},      {"lcedil", 0x13C},   {"lceil", 0x2308},   {"ldquo", 0x201C},
    {"le", 0x2264},        {"lfloor", 0x230A},  {"lowast", 0x2217},  {"loz", 0x25CA},
    {"lrm", 0x200E},       {"lsaquo", 0x2039},  {"lsquo", 0x2018},   {"lstrok", 0x142},
    {"macr", 0xAF},        {"mdash", 0x2014},   {"micro", 0xB5},     {"middot", 0xB7},
    {"minus", 0x2212},     {"mu", 0x3BC},       {"nabla", 0x2207},   {"nacute", 0x144},
    {"nbsp", 0xA0},        {"ncaron", 0x148},   {"ncedil", 0x146},   {"ndash", 0x2013},
    {"ne", 0x2260},        {"ni", 0x220B},      {"not", 0xAC},       {"notin", 0x2209},
    {"nsub", 0x2284},      {"ntilde", 0xF1},    {"nu", 0x3BD},       {"numero", 0x2116},
    {"numsp", 0x2007},     {"oacute", 0xF3},    {"ocirc", 0xF4},     {"odblac", 0x151},
    {"oelig", 0x153},      {"ograve", 0xF2},    {"oline", 0x203E},   {"omacr", 0x14D},
    {"omega", 0x3C9},      {"omicron", 0x3BF},  {"oplus", 0x2295},   {"or", 0x2228},
    {"ordf", 0xAA},        {"ordm", 0xBA},      {"oslash", 0xF8},    {"otilde", 0xF5},
    {"otimes", 0x2297},    {"ouml", 0xF6},      {"para", 0xB6},      {"part", 0x2202},
    {"permil", 0x2030},    {"perp", 0x22A5},    {"phi", 0x3C6},      {"phone", 0x260E},
    {"pi", 0x3C0},         {"piv", 0x3D6},      {"plusmn", 0xB1},    {"pound", 0xA3},
    {"prime", 0x2032},     {"prod", 0x220F},    {"prop", 0x221D},    {"psi", 0x3C8},
    {"puncsp", 0x2008},    {"rArr", 0x21D2},    {"radic", 0x221A},   {"rang", 0x232A},
    {"raquo", 0xBB},       {"rarr", 0x2192},    {"rcaron", 0x159},   {"rceil", 0x2309},
    {"rdquo", 0x201D},     {"real", 0x211C},    {"reg", 0xAE},       {"rfloor", 0x230B},
    {"rho", 0x3C1},        {"rlm", 0x200F},     {"rsaquo", 0x203A},  {"rsquo", 0x2019},
    {"rtrif", 0x25B8},     {"sacute", 0x15B},   {"sbquo", 0x201A},   {"scaron", 0x161},
    {"scedil", 0x15F},     {"sdot", 0x22C5},    {"sect", 0xA7},      {"shy", 0xAD},
    {"sigma", 0x3C3},      {"sigmaf", 0x3C2},   {"sim", 0x223C},     {"spades", 0x2660},
    {"squ", 0x25A1},       {"squf", 0x25AA},    {"star", 0x2606},    {"starf", 0x2605},
    {"sub", 0x2282},       {"sube", 0x2286},    {"sum", 0x2211},     {"sup", 0x2283},
    {"sup1", 0xB9},        {"sup2", 0xB2},      {"sup3", 0xB3},      {"supe", 0x2287},
    {"szlig", 0xDF},       {"tau", 0x3C4},      {"tcaron", 0x165},   {"tcedil", 0x163},
    {"there4", 0x2234},    {"theta", 0x3B8},    {"thetasym", 0x3D1}, {"thinsp", 0x2009},
    {"thorn", 0xFE},       {"tilde", 0x2DC},    {"times", 0xD7},     {"trade", 0x2122},
    {"uArr", 0x21D1},      {"uacute", 0xFA},    {"uarr", 0x2191},    {"ucirc", 0xFB},
    {"udblac", 0x171},     {"ugrave", 0xF9},    {"umacr", 0x16B},    {"uml", 0xA8},
    {"uogon", 0x173},      {"upsih", 0x3D2},    {"upsilon", 0x3C5},  {"uring", 0x16F},
    {"uuml", 0xFC},        {"weierp", 0x2118},  {"xi", 0x3BE},       {"yacute", 0xFD},
    {"yen", 0xA5},         {"yuml", 0xFF},      {"zacute", 0x17A},   {"zcaron", 0x17E},
    {"zdot", 0x17C},       {"zeta", 0x3B6},     {"zwj", 0x200D},     {"zwnj", 0x200C},
};
static_assert(std::is_sorted(std::begin(kTextNames), std::end(kTextNames),
                             [](const TextRow& a, const TextRow& b) { return a.name < b.name; }));

constexpr char32_t kBeyondUnicode = 0x110000;

// References to the C1 controls mean the windows-1252 characters.
char32_t windows1252Character(char32_t number) noexcept {
  // 0x80 to 0x9F; 0 where windows-1252 is undefined.
  constexpr char16_t kWindows[] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                   0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
  if (number >= 0x80 && number < 0xA0 && kWindows[number - 0x80]) return kWindows[number - 0x80];
  const bool isSurrogate = number >= 0xD800 && number < 0xE000;
  return number == 0 || isSurrogate || number >= kBeyondUnicode ? kReplacementCharacter : number;
}

// The length of the named reference at the start of a text; 0 when it is unknown.
std::size_t readNamedReference(std::string_view text, char32_t& codePoint) noexcept {
  std::size_t end = 1;
  while (end < text.size() && isAlnumAscii(text[end])) ++end;
  const std::string_view name = text.substr(1, end - 1);
  const auto* const row = std::find_if(std::begin(kNamed), std::end(kNamed),
                                       [name](const ReferenceRow& each) { return each.name == name; });
  if (row == std::end(kNamed)) return 0;
  const bool hasSemicolon = end < text.size() && text[end] == ';';
  // "?a=1&lt=2" is not a reference: browsers treat attributes so.
  const bool mayEndHere = row->semicolonOptional && (end == text.size() || text[end] != '=');
  if (!hasSemicolon && !mayEndHere) return 0;
  codePoint = row->codePoint;
  return end + (hasSemicolon ? 1 : 0);
}

// The same among the names for text.
std::size_t readTextName(std::string_view text, char32_t& codePoint) noexcept {
  std::size_t end = 1;
  while (end < text.size() && isAlnumAscii(text[end])) ++end;
  const std::string_view name = text.substr(1, end - 1);
  const bool hasSemicolon = end < text.size() && text[end] == ';';
  const auto* const row =
      std::lower_bound(std::begin(kTextNames), std::end(kTextNames), name,
                       [](const TextRow& each, std::string_view wanted) { return each.name < wanted; });
  if (row == std::end(kTextNames) || row->name != name) return 0;
  if (!hasSemicolon && row->character > 0xFF) return 0;
  codePoint = row->character;
  return end + (hasSemicolon ? 1 : 0);
}

}  // namespace

std::size_t readNumericReference(std::string_view text, char32_t& codePoint) noexcept {
  if (!text.starts_with("&#")) return 0;
  const bool isHex = text.size() > 2 && toLowerAscii(text[2]) == 'x';
  const std::size_t digits = isHex ? 3 : 2;
  std::size_t at = digits;
  char32_t number = 0;
  for (; at < text.size(); ++at) {
    const int value = isHex || isDigitAscii(text[at]) ? hexValue(text[at]) : -1;
    if (value < 0) break;
    number = std::min<char32_t>(kBeyondUnicode, number * (isHex ? 16 : 10) + static_cast<char32_t>(value));
  }
  if (at == digits) return 0;
  codePoint = windows1252Character(number);
  return at + (at < text.size() && text[at] == ';' ? 1 : 0);
}

std::size_t readReference(std::string_view text, char32_t& codePoint) noexcept {
  if (text.size() < 2) return 0;
  if (text[1] == '#') return readNumericReference(text, codePoint);
  if (!isAlphaAscii(text[1])) return 0;
  const std::size_t length = readNamedReference(text, codePoint);
  return length > 0 ? length : readTextName(text, codePoint);
}

std::string decodeReferences(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  while (!value.empty()) {
    const std::size_t plain = std::min(value.find('&'), value.size());
    out.append(value.substr(0, plain));
    value.remove_prefix(plain);
    if (value.empty()) break;
    char32_t codePoint = '&';
    std::size_t length = readNumericReference(value, codePoint);
    if (length == 0) length = readNamedReference(value, codePoint);
    appendUtf8(out, codePoint);
    value.remove_prefix(std::max<std::size_t>(1, length));
  }
  return out;
}

std::string urlOfReference(std::string_view attribute) {
  std::string url = decodeReferences(attribute);
  const auto isBlankOrControl = [](char c) { return static_cast<unsigned char>(c) <= ' '; };
  url.erase(std::find_if_not(url.rbegin(), url.rend(), isBlankOrControl).base(), url.end());
  url.erase(url.begin(), std::find_if_not(url.begin(), url.end(), isBlankOrControl));
  url.erase(
      std::remove_if(url.begin(), url.end(), [](char c) { return c == '\t' || c == '\r' || c == '\n'; }),
      url.end());
  return url;
}

}  // namespace mailtree
