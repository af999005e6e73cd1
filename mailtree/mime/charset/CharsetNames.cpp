// mime/charset/CharsetNames.cpp - the labels of charsets, and their code pages.
#include "mailtree/mime/charset/Charset.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <iterator>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

struct LabelRow {
  std::string_view label;
  int codePage;
};

// Every label found in mail: registered names and aliases, web labels, and labels mailers made up.
// In lower case, sorted by bytes. Labels without a meaning ("default", "x-user-defined",
// "unknown-8bit") are missing, that is, unknown.
// clang-format off
constexpr LabelRow kLabels[] = {
    {"437", 437}, {"5601", 51949}, {"646", 20127}, {"737", 737}, {"775", 775}, {"7bit", 20127},
    {"819", 28591}, {"850", 850}, {"852", 852}, {"855", 855}, {"857", 857}, {"858", 858}, {"860", 860},
    {"861", 861}, {"862", 862}, {"863", 863}, {"864", 864}, {"865", 865}, {"866", 866}, {"869", 869},
    {"8859_1", 28591}, {"8859_10", 28600}, {"8859_13", 28603}, {"8859_14", 28604}, {"8859_15", 28605},
    {"8859_16", 28606}, {"8859_2", 28592}, {"8859_3", 28593}, {"8859_4", 28594}, {"8859_5", 28595},
    {"8859_6", 28596}, {"8859_7", 28597}, {"8859_8", 28598}, {"8859_9", 28599}, {"ansi", 1252},
    {"ansi-1251", 1251}, {"ansi-1252", 1252}, {"ansi_x3.4-1968", 20127}, {"ansi_x3.4-1986", 20127},
    {"arabic", 28596}, {"ascii", 20127}, {"ascii-us", 20127}, {"asmo-708", 28596}, {"big-5", 950},
    {"big5", 950}, {"big5-0", 950}, {"big5-et", 950}, {"big5-eten", 950}, {"big5-hkscs", 951},
    {"big5-hkscs:1999", 951}, {"big5-hkscs:2001", 951}, {"big5-hkscs:2004", 951}, {"big5-hkscs:2008", 951},
    {"big5_hkscs", 951}, {"big5hkscs", 951}, {"big_5", 950}, {"ccsid00858", 858}, {"chinese", 936},
    {"cn-big5", 950}, {"cns11643", 51950}, {"cp-1250", 1250}, {"cp-1251", 1251}, {"cp-1252", 1252},
    {"cp-1253", 1253}, {"cp-1254", 1254}, {"cp-1255", 1255}, {"cp-1256", 1256}, {"cp-1257", 1257},
    {"cp-1258", 1258}, {"cp-437", 437}, {"cp-737", 737}, {"cp-775", 775}, {"cp-850", 850}, {"cp-852", 852},
    {"cp-855", 855}, {"cp-857", 857}, {"cp-858", 858}, {"cp-860", 860}, {"cp-861", 861}, {"cp-862", 862},
    {"cp-863", 863}, {"cp-864", 864}, {"cp-865", 865}, {"cp-866", 866}, {"cp-869", 869}, {"cp-gr", 869},
    {"cp-is", 861}, {"cp00858", 858}, {"cp10000", 10000}, {"cp1200", 1200}, {"cp12000", 12000},
    {"cp12001", 12001}, {"cp1201", 1201}, {"cp1250", 1250}, {"cp1251", 1251}, {"cp1252", 1252},
    {"cp1253", 1253}, {"cp1254", 1254}, {"cp1255", 1255}, {"cp1256", 1256}, {"cp1257", 1257},
    {"cp1258", 1258}, {"cp20127", 20127}, {"cp20866", 20866}, {"cp20936", 20936}, {"cp20949", 20949},
    {"cp21866", 21866}, {"cp28591", 28591}, {"cp28592", 28592}, {"cp28593", 28593}, {"cp28594", 28594},
    {"cp28595", 28595}, {"cp28596", 28596}, {"cp28597", 28597}, {"cp28598", 28598}, {"cp28599", 28599},
    {"cp28600", 28600}, {"cp28603", 28603}, {"cp28604", 28604}, {"cp28605", 28605}, {"cp28606", 28606},
    {"cp367", 20127}, {"cp38598", 38598}, {"cp437", 437}, {"cp50220", 50220}, {"cp50221", 50221},
    {"cp50222", 50222}, {"cp50225", 50225}, {"cp50227", 50227}, {"cp51932", 51932}, {"cp51936", 51936},
    {"cp51949", 51949}, {"cp51950", 51950}, {"cp52936", 52936}, {"cp54936", 54936}, {"cp65000", 65000},
    {"cp65001", 65001}, {"cp737", 737}, {"cp775", 775}, {"cp819", 28591}, {"cp850", 850}, {"cp852", 852},
    {"cp855", 855}, {"cp857", 857}, {"cp858", 858}, {"cp860", 860}, {"cp861", 861}, {"cp862", 862},
    {"cp863", 863}, {"cp864", 864}, {"cp865", 865}, {"cp866", 866}, {"cp869", 869}, {"cp874", 874},
    {"cp878", 20866}, {"cp932", 932}, {"cp936", 936}, {"cp943", 932}, {"cp943c", 932}, {"cp949", 949},
    {"cp950", 950}, {"cp951", 951}, {"csascii", 20127}, {"csbig5", 950}, {"csbig5hkscs", 951},
    {"cseucjp", 51932}, {"cseuckr", 51949}, {"cseucpkdfmtjapanese", 51932}, {"csgb18030", 54936},
    {"csgb2312", 936}, {"csgbk", 936}, {"cshzgb2312", 52936}, {"csibm437", 437}, {"csibm737", 737},
    {"csibm775", 775}, {"csibm850", 850}, {"csibm852", 852}, {"csibm855", 855}, {"csibm857", 857},
    {"csibm858", 858}, {"csibm860", 860}, {"csibm861", 861}, {"csibm862", 862}, {"csibm863", 863},
    {"csibm864", 864}, {"csibm865", 865}, {"csibm866", 866}, {"csibm869", 869}, {"csiso2022cn", 50227},
    {"csiso2022jp", 50221}, {"csiso2022jp2", 50220}, {"csiso2022kr", 50225}, {"csiso58gb231280", 936},
    {"csiso885913", 28603}, {"csiso885914", 28604}, {"csiso885915", 28605}, {"csiso885916", 28606},
    {"csiso88596e", 28596}, {"csiso88596i", 28596}, {"csiso88598e", 28598}, {"csiso88598i", 38598},
    {"csisolatin1", 28591}, {"csisolatin2", 28592}, {"csisolatin3", 28593}, {"csisolatin4", 28594},
    {"csisolatin5", 28599}, {"csisolatin6", 28600}, {"csisolatin9", 28605}, {"csisolatinarabic", 28596},
    {"csisolatincyrillic", 28595}, {"csisolatingreek", 28597}, {"csisolatinhebrew", 28598},
    {"csjisencoding", 50220}, {"cskoi8r", 20866}, {"cskoi8u", 21866}, {"csksc56011987", 949},
    {"csmacintosh", 10000}, {"csmskanji", 932}, {"cspc775baltic", 775}, {"cspc850multilingual", 850},
    {"cspc862latinhebrew", 862}, {"cspc8codepage437", 437}, {"cspcp852", 852}, {"csshiftjis", 932},
    {"cstis620", 874}, {"csucs4", 12000}, {"csunicode", 1200}, {"csunicode11utf7", 65000},
    {"csutf16", 1200}, {"csutf16be", 1201}, {"csutf16le", 1200}, {"csutf32", 12000}, {"csutf32be", 12001},
    {"csutf32le", 12000}, {"csutf7", 65000}, {"csutf8", 65001}, {"cswindows1250", 1250},
    {"cswindows1251", 1251}, {"cswindows1252", 1252}, {"cswindows1253", 1253}, {"cswindows1254", 1254},
    {"cswindows1255", 1255}, {"cswindows1256", 1256}, {"cswindows1257", 1257}, {"cswindows1258", 1258},
    {"cswindows31j", 932}, {"cswindows874", 874}, {"cyrillic", 28595}, {"dos-437", 437}, {"dos-737", 737},
    {"dos-775", 775}, {"dos-850", 850}, {"dos-852", 852}, {"dos-855", 855}, {"dos-857", 857},
    {"dos-858", 858}, {"dos-860", 860}, {"dos-861", 861}, {"dos-862", 862}, {"dos-863", 863},
    {"dos-864", 864}, {"dos-865", 865}, {"dos-866", 866}, {"dos-869", 869}, {"dos-874", 874},
    {"ecma-114", 28596}, {"ecma-118", 28597}, {"elot_928", 28597}, {"euc-cn", 51936},
    {"euc-jis-2004", 51932}, {"euc-jisx0213", 51932}, {"euc-jp", 51932}, {"euc-kr", 51949},
    {"euc-tw", 51950}, {"euc_cn", 51936}, {"euc_jp", 51932}, {"euc_kr", 51949}, {"euc_tw", 51950},
    {"euccn", 51936}, {"eucgb2312-cn", 51936}, {"eucjp", 51932}, {"eucjp-ms", 51932}, {"eucjp-win", 51932},
    {"eucjpms", 51932}, {"euckr", 51949}, {"euctw", 51950}, {"ext_kr", 949},
    {"extended_unix_code_packed_format_for_japanese", 51932}, {"gb", 936}, {"gb-18030", 54936},
    {"gb-2312", 936}, {"gb18030", 54936}, {"gb18030-2000", 54936}, {"gb18030-2005", 54936}, {"gb2312", 936},
    {"gb2312-80", 936}, {"gb2312.1980-0", 936}, {"gb_18030", 54936}, {"gb_1988-80", 936}, {"gb_2312", 936},
    {"gb_2312-80", 936}, {"gbk", 936}, {"greek", 28597}, {"greek8", 28597}, {"hebrew", 28598},
    {"hkscs-big5", 951}, {"hz", 52936}, {"hz-gb", 52936}, {"hz-gb-2312", 52936}, {"hz_gb_2312", 52936},
    {"ibm-437", 437}, {"ibm-737", 737}, {"ibm-775", 775}, {"ibm-850", 850}, {"ibm-852", 852},
    {"ibm-855", 855}, {"ibm-857", 857}, {"ibm-858", 858}, {"ibm-860", 860}, {"ibm-861", 861},
    {"ibm-862", 862}, {"ibm-863", 863}, {"ibm-864", 864}, {"ibm-865", 865}, {"ibm-866", 866},
    {"ibm-869", 869}, {"ibm-943", 932}, {"ibm00858", 858}, {"ibm1252", 1252}, {"ibm367", 20127},
    {"ibm437", 437}, {"ibm737", 737}, {"ibm775", 775}, {"ibm819", 28591}, {"ibm850", 850}, {"ibm852", 852},
    {"ibm855", 855}, {"ibm857", 857}, {"ibm858", 858}, {"ibm860", 860}, {"ibm861", 861}, {"ibm862", 862},
    {"ibm863", 863}, {"ibm864", 864}, {"ibm865", 865}, {"ibm866", 866}, {"ibm869", 869}, {"ibm874", 874},
    {"iso-10646-ucs-2", 1200}, {"iso-10646-ucs-4", 12000}, {"iso-2022-cn", 50227},
    {"iso-2022-cn-ext", 50227}, {"iso-2022-jp", 50220}, {"iso-2022-jp-1", 50220}, {"iso-2022-jp-2", 50220},
    {"iso-2022-jp-2004", 50220}, {"iso-2022-jp-3", 50220}, {"iso-2022-jp-ext", 50220},
    {"iso-2022-jp-mobile", 50221}, {"iso-2022-jp-ms", 50221}, {"iso-2022-kr", 50225}, {"iso-2022jp", 50220},
    {"iso-646-us", 20127}, {"iso-8859-1", 28591}, {"iso-8859-10", 28600}, {"iso-8859-11", 874},
    {"iso-8859-13", 28603}, {"iso-8859-14", 28604}, {"iso-8859-15", 28605}, {"iso-8859-16", 28606},
    {"iso-8859-2", 28592}, {"iso-8859-3", 28593}, {"iso-8859-4", 28594}, {"iso-8859-5", 28595},
    {"iso-8859-6", 28596}, {"iso-8859-6-e", 28596}, {"iso-8859-6-i", 28596}, {"iso-8859-7", 28597},
    {"iso-8859-8", 28598}, {"iso-8859-8-e", 28598}, {"iso-8859-8-i", 38598}, {"iso-8859-9", 28599},
    {"iso-88591", 28591}, {"iso-885910", 28600}, {"iso-885913", 28603}, {"iso-885914", 28604},
    {"iso-885915", 28605}, {"iso-885916", 28606}, {"iso-88592", 28592}, {"iso-88593", 28593},
    {"iso-88594", 28594}, {"iso-88595", 28595}, {"iso-88596", 28596}, {"iso-88597", 28597},
    {"iso-88598", 28598}, {"iso-88599", 28599}, {"iso-8859_1", 28591}, {"iso-8859_10", 28600},
    {"iso-8859_13", 28603}, {"iso-8859_14", 28604}, {"iso-8859_15", 28605}, {"iso-8859_16", 28606},
    {"iso-8859_2", 28592}, {"iso-8859_3", 28593}, {"iso-8859_4", 28594}, {"iso-8859_5", 28595},
    {"iso-8859_6", 28596}, {"iso-8859_7", 28597}, {"iso-8859_8", 28598}, {"iso-8859_9", 28599},
    {"iso-celtic", 28604}, {"iso-ir-100", 28591}, {"iso-ir-101", 28592}, {"iso-ir-109", 28593},
    {"iso-ir-110", 28594}, {"iso-ir-126", 28597}, {"iso-ir-127", 28596}, {"iso-ir-138", 28598},
    {"iso-ir-144", 28595}, {"iso-ir-148", 28599}, {"iso-ir-149", 949}, {"iso-ir-157", 28600},
    {"iso-ir-166", 874}, {"iso-ir-179", 28603}, {"iso-ir-199", 28604}, {"iso-ir-203", 28605},
    {"iso-ir-226", 28606}, {"iso-ir-58", 936}, {"iso-ir-6", 20127}, {"iso-latin-1", 28591},
    {"iso-latin-2", 28592}, {"iso2022-cn", 50227}, {"iso2022-jp", 50220}, {"iso2022-kr", 50225},
    {"iso2022cn", 50227}, {"iso2022jp", 50220}, {"iso2022kr", 50225}, {"iso646-us", 20127},
    {"iso8859-1", 28591}, {"iso8859-10", 28600}, {"iso8859-11", 874}, {"iso8859-13", 28603},
    {"iso8859-14", 28604}, {"iso8859-15", 28605}, {"iso8859-16", 28606}, {"iso8859-2", 28592},
    {"iso8859-3", 28593}, {"iso8859-4", 28594}, {"iso8859-5", 28595}, {"iso8859-6", 28596},
    {"iso8859-7", 28597}, {"iso8859-8", 28598}, {"iso8859-9", 28599}, {"iso88591", 28591},
    {"iso885910", 28600}, {"iso885911", 874}, {"iso885913", 28603}, {"iso885914", 28604},
    {"iso885915", 28605}, {"iso885916", 28606}, {"iso88592", 28592}, {"iso88593", 28593},
    {"iso88594", 28594}, {"iso88595", 28595}, {"iso88596", 28596}, {"iso88597", 28597}, {"iso88598", 28598},
    {"iso88599", 28599}, {"iso8859_1", 28591}, {"iso8859_10", 28600}, {"iso8859_13", 28603},
    {"iso8859_14", 28604}, {"iso8859_15", 28605}, {"iso8859_16", 28606}, {"iso8859_2", 28592},
    {"iso8859_3", 28593}, {"iso8859_4", 28594}, {"iso8859_5", 28595}, {"iso8859_6", 28596},
    {"iso8859_7", 28597}, {"iso8859_8", 28598}, {"iso8859_9", 28599}, {"iso_2022-jp", 50220},
    {"iso_2022-kr", 50225}, {"iso_2022_jp", 50220}, {"iso_646-us", 20127}, {"iso_646.irv:1991", 20127},
    {"iso_8859-1", 28591}, {"iso_8859-10", 28600}, {"iso_8859-10:1992", 28600}, {"iso_8859-11", 874},
    {"iso_8859-13", 28603}, {"iso_8859-14", 28604}, {"iso_8859-14:1998", 28604}, {"iso_8859-15", 28605},
    {"iso_8859-16", 28606}, {"iso_8859-16:2001", 28606}, {"iso_8859-1:1987", 28591}, {"iso_8859-2", 28592},
    {"iso_8859-2:1987", 28592}, {"iso_8859-3", 28593}, {"iso_8859-3:1988", 28593}, {"iso_8859-4", 28594},
    {"iso_8859-4:1988", 28594}, {"iso_8859-5", 28595}, {"iso_8859-5:1988", 28595}, {"iso_8859-6", 28596},
    {"iso_8859-6:1987", 28596}, {"iso_8859-7", 28597}, {"iso_8859-7:1987", 28597}, {"iso_8859-8", 28598},
    {"iso_8859-8-e", 28598}, {"iso_8859-8-i", 38598}, {"iso_8859-8:1988", 28598}, {"iso_8859-9", 28599},
    {"iso_8859-9:1989", 28599}, {"iso_8859_1", 28591}, {"iso_8859_10", 28600}, {"iso_8859_13", 28603},
    {"iso_8859_14", 28604}, {"iso_8859_15", 28605}, {"iso_8859_16", 28606}, {"iso_8859_2", 28592},
    {"iso_8859_3", 28593}, {"iso_8859_4", 28594}, {"iso_8859_5", 28595}, {"iso_8859_6", 28596},
    {"iso_8859_7", 28597}, {"iso_8859_8", 28598}, {"iso_8859_9", 28599}, {"isolatin1", 28591},
    {"jis", 50220}, {"jis7", 50220}, {"jis8", 50221}, {"jis_encoding", 50220}, {"koi", 20866},
    {"koi-8", 20866}, {"koi8", 20866}, {"koi8-r", 20866}, {"koi8-ru", 21866}, {"koi8-rus", 20866},
    {"koi8-u", 21866}, {"koi8_r", 20866}, {"koi8_ru", 21866}, {"koi8_u", 21866}, {"koi8r", 20866},
    {"koi8u", 21866}, {"korean", 949}, {"ks-c-5601-1987", 949}, {"ks_c-5601-1987", 949}, {"ks_c_5601", 949},
    {"ks_c_5601-1987", 949}, {"ks_c_5601-1989", 949}, {"ks_c_5601-1992", 949}, {"ks_c_5601_1987", 949},
    {"ks_x_1001", 949}, {"ksc-5601", 949}, {"ksc5601", 949}, {"ksc5601-1987", 949}, {"ksc_5601", 949},
    {"l1", 28591}, {"l10", 28606}, {"l2", 28592}, {"l3", 28593}, {"l4", 28594}, {"l5", 28599},
    {"l6", 28600}, {"l7", 28603}, {"l8", 28604}, {"l9", 28605}, {"latin-1", 28591}, {"latin-10", 28606},
    {"latin-2", 28592}, {"latin-3", 28593}, {"latin-4", 28594}, {"latin-5", 28599}, {"latin-6", 28600},
    {"latin-7", 28603}, {"latin-8", 28604}, {"latin-9", 28605}, {"latin0", 28605}, {"latin1", 28591},
    {"latin10", 28606}, {"latin2", 28592}, {"latin3", 28593}, {"latin4", 28594}, {"latin5", 28599},
    {"latin6", 28600}, {"latin7", 28603}, {"latin8", 28604}, {"latin9", 28605}, {"latin_1", 28591},
    {"logical", 38598}, {"mac", 10000}, {"mac-ce", 10029}, {"mac-cyrillic", 10007}, {"mac-greek", 10006},
    {"mac-roman", 10000}, {"mac_roman", 10000}, {"maccentraleurope", 10029}, {"maccyrillic", 10007},
    {"macgreek", 10006}, {"maciceland", 10079}, {"macintosh", 10000}, {"macroman", 10000},
    {"macturkish", 10081}, {"macukraine", 10007}, {"ms-1250", 1250}, {"ms-1251", 1251}, {"ms-1252", 1252},
    {"ms-1253", 1253}, {"ms-1254", 1254}, {"ms-1255", 1255}, {"ms-1256", 1256}, {"ms-1257", 1257},
    {"ms-1258", 1258}, {"ms-ansi", 1252}, {"ms-arab", 1256}, {"ms-cyrl", 1251}, {"ms-ee", 1250},
    {"ms-greek", 1253}, {"ms-hebr", 1255}, {"ms-turk", 1254}, {"ms874", 874}, {"ms932", 932},
    {"ms936", 936}, {"ms949", 949}, {"ms950", 950}, {"ms_kanji", 932}, {"pc-multilingual-850+euro", 858},
    {"s-jis", 932}, {"shift-jis", 932}, {"shift_jis", 932}, {"shift_jis-2004", 932},
    {"shift_jisx0213", 932}, {"shiftjis", 932}, {"simplified_chinese", 936}, {"sjis", 932},
    {"sjis-win", 932}, {"sun_eu_greek", 28597}, {"tis-620", 874}, {"tis-620-0", 874}, {"tis-620.2533", 874},
    {"tis620", 874}, {"tis620-2533", 874}, {"tis620.2533", 874}, {"tw-big5", 950}, {"u-jis", 51932},
    {"ucs-2", 1200}, {"ucs-2be", 1201}, {"ucs-2le", 1200}, {"ucs-4", 12000}, {"ucs-4be", 12001},
    {"ucs-4le", 12000}, {"ucs2", 1200}, {"ucs4", 12000}, {"uhc", 949}, {"ujis", 51932}, {"unicode", 1200},
    {"unicode-1-1-utf-7", 65000}, {"unicode-1-1-utf-8", 65001}, {"unicode-2-0-utf-7", 65000},
    {"unicode11utf8", 65001}, {"unicode20utf8", 65001}, {"unicodefeff", 1200}, {"unicodefffe", 1201},
    {"us", 20127}, {"us-ascii", 20127}, {"us_ascii", 20127}, {"usascii", 20127}, {"utf-16", 1200},
    {"utf-16-be", 1201}, {"utf-16-le", 1200}, {"utf-16be", 1201}, {"utf-16le", 1200}, {"utf-32", 12000},
    {"utf-32be", 12001}, {"utf-32le", 12000}, {"utf-7", 65000}, {"utf-8", 65001}, {"utf-8-mac", 65001},
    {"utf-8-sig", 65001}, {"utf16", 1200}, {"utf16be", 1201}, {"utf16le", 1200}, {"utf32", 12000},
    {"utf32be", 12001}, {"utf32le", 12000}, {"utf7", 65000}, {"utf8", 65001}, {"utf8mb4", 65001},
    {"utf_16", 1200}, {"utf_16be", 1201}, {"utf_16le", 1200}, {"utf_32", 12000}, {"utf_32be", 12001},
    {"utf_32le", 12000}, {"utf_7", 65000}, {"utf_8", 65001}, {"visual", 28598}, {"win-1250", 1250},
    {"win-1251", 1251}, {"win-1252", 1252}, {"win-1253", 1253}, {"win-1254", 1254}, {"win-1255", 1255},
    {"win-1256", 1256}, {"win-1257", 1257}, {"win-1258", 1258}, {"win1250", 1250}, {"win1251", 1251},
    {"win1252", 1252}, {"win1253", 1253}, {"win1254", 1254}, {"win1255", 1255}, {"win1256", 1256},
    {"win1257", 1257}, {"win1258", 1258}, {"winbaltrim", 1257}, {"windows-1250", 1250},
    {"windows-1251", 1251}, {"windows-1252", 1252}, {"windows-1253", 1253}, {"windows-1254", 1254},
    {"windows-1255", 1255}, {"windows-1256", 1256}, {"windows-1257", 1257}, {"windows-1258", 1258},
    {"windows-31j", 932}, {"windows-65001", 65001}, {"windows-874", 874}, {"windows-932", 932},
    {"windows-936", 936}, {"windows-949", 949}, {"windows-950", 950}, {"windows-ansi", 1252},
    {"windows1250", 1250}, {"windows1251", 1251}, {"windows1252", 1252}, {"windows1253", 1253},
    {"windows1254", 1254}, {"windows1255", 1255}, {"windows1256", 1256}, {"windows1257", 1257},
    {"windows1258", 1258}, {"windows874", 874}, {"windows_1250", 1250}, {"windows_1251", 1251},
    {"windows_1252", 1252}, {"windows_1253", 1253}, {"windows_1254", 1254}, {"windows_1255", 1255},
    {"windows_1256", 1256}, {"windows_1257", 1257}, {"windows_1258", 1258}, {"x-big5-hkscs", 951},
    {"x-cp1250", 1250}, {"x-cp1251", 1251}, {"x-cp1252", 1252}, {"x-cp1253", 1253}, {"x-cp1254", 1254},
    {"x-cp1255", 1255}, {"x-cp1256", 1256}, {"x-cp1257", 1257}, {"x-cp1258", 1258}, {"x-cp20936", 20936},
    {"x-cp20949", 20949}, {"x-cp437", 437}, {"x-cp50227", 50227}, {"x-cp737", 737}, {"x-cp775", 775},
    {"x-cp850", 850}, {"x-cp852", 852}, {"x-cp855", 855}, {"x-cp857", 857}, {"x-cp858", 858},
    {"x-cp860", 860}, {"x-cp861", 861}, {"x-cp862", 862}, {"x-cp863", 863}, {"x-cp864", 864},
    {"x-cp865", 865}, {"x-cp866", 866}, {"x-cp869", 869}, {"x-euc", 51932}, {"x-euc-cn", 51936},
    {"x-euc-jp", 51932}, {"x-euc-kr", 51949}, {"x-euc-tw", 51950}, {"x-eucjp", 51932}, {"x-gb2312", 936},
    {"x-gbk", 936}, {"x-ibm866", 866}, {"x-iso-2022-jp-ms", 50221}, {"x-iso-8859-1", 28591},
    {"x-iso-8859-10", 28600}, {"x-iso-8859-13", 28603}, {"x-iso-8859-14", 28604}, {"x-iso-8859-15", 28605},
    {"x-iso-8859-16", 28606}, {"x-iso-8859-2", 28592}, {"x-iso-8859-3", 28593}, {"x-iso-8859-4", 28594},
    {"x-iso-8859-5", 28595}, {"x-iso-8859-6", 28596}, {"x-iso-8859-7", 28597}, {"x-iso-8859-8", 28598},
    {"x-iso-8859-9", 28599}, {"x-jis", 50220}, {"x-mac", 10000}, {"x-mac-ce", 10029},
    {"x-mac-centraleurroman", 10029}, {"x-mac-cyrillic", 10007}, {"x-mac-greek", 10006},
    {"x-mac-icelandic", 10079}, {"x-mac-roman", 10000}, {"x-mac-turkish", 10081},
    {"x-mac-ukrainian", 10007}, {"x-macintosh", 10000}, {"x-ms-cp932", 932}, {"x-shift-jis", 932},
    {"x-shift_jis", 932}, {"x-sjis", 932}, {"x-uhc", 949}, {"x-unicode-2-0-utf-7", 65000},
    {"x-unicode20utf8", 65001}, {"x-windows-1250", 1250}, {"x-windows-1251", 1251},
    {"x-windows-1252", 1252}, {"x-windows-1253", 1253}, {"x-windows-1254", 1254}, {"x-windows-1255", 1255},
    {"x-windows-1256", 1256}, {"x-windows-1257", 1257}, {"x-windows-1258", 1258}, {"x-windows-874", 874},
    {"x-windows-949", 949}, {"x-windows-950", 950}, {"x-x-big5", 950}, {"zh-big5", 950}, {"zh-gb2312", 936},
};
// clang-format on

constexpr std::size_t kLongestLabel =
    std::max_element(std::begin(kLabels), std::end(kLabels),
                     [](auto& a, auto& b) { return a.label.size() < b.label.size(); }) -> label.size();

struct NameRow {
  int codePage;
  std::string_view name;
};

/// The name of a code page in written mail.
// clang-format off
constexpr NameRow kNames[] = {
    {437, "ibm437"}, {737, "ibm737"}, {775, "ibm775"}, {850, "ibm850"}, {852, "ibm852"}, {855, "ibm855"},
    {857, "ibm857"}, {858, "ibm00858"}, {860, "ibm860"}, {861, "ibm861"}, {862, "ibm862"}, {863, "ibm863"},
    {864, "ibm864"}, {865, "ibm865"}, {866, "ibm866"}, {869, "ibm869"}, {874, "windows-874"},
    {932, "shift_jis"}, {936, "gb2312"}, {949, "ks_c_5601-1987"}, {950, "big5"}, {951, "big5-hkscs"},
    {1200, "utf-16le"}, {1201, "utf-16be"}, {1250, "windows-1250"}, {1251, "windows-1251"},
    {1252, "windows-1252"}, {1253, "windows-1253"}, {1254, "windows-1254"}, {1255, "windows-1255"},
    {1256, "windows-1256"}, {1257, "windows-1257"}, {1258, "windows-1258"}, {10000, "macintosh"},
    {10006, "x-mac-greek"}, {10007, "x-mac-cyrillic"}, {10029, "x-mac-ce"}, {10079, "x-mac-icelandic"},
    {10081, "x-mac-turkish"}, {12000, "utf-32le"}, {12001, "utf-32be"}, {20127, "us-ascii"},
    {20866, "koi8-r"}, {20932, "euc-jp"}, {20936, "gb2312"}, {20949, "euc-kr"}, {21866, "koi8-u"},
    {28591, "iso-8859-1"}, {28592, "iso-8859-2"}, {28593, "iso-8859-3"}, {28594, "iso-8859-4"},
    {28595, "iso-8859-5"}, {28596, "iso-8859-6"}, {28597, "iso-8859-7"}, {28598, "iso-8859-8"},
    {28599, "iso-8859-9"}, {28600, "iso-8859-10"}, {28603, "iso-8859-13"}, {28604, "iso-8859-14"},
    {28605, "iso-8859-15"}, {28606, "iso-8859-16"}, {38598, "iso-8859-8-i"}, {50220, "iso-2022-jp"},
    {50221, "iso-2022-jp"}, {50222, "iso-2022-jp"}, {50225, "iso-2022-kr"}, {50227, "iso-2022-cn"},
    {51932, "euc-jp"}, {51936, "gb2312"}, {51949, "euc-kr"}, {51950, "euc-tw"}, {52936, "hz-gb-2312"},
    {54936, "gb18030"}, {65000, "utf-7"}, {65001, "utf-8"},
};
// clang-format on

constexpr bool nameBefore(const NameRow& row, int codePage) noexcept { return row.codePage < codePage; }

/// Index of kLabels, hashed at compile time, because every text part and every encoded word is looked up.
class LabelIndex {
 public:
  constexpr LabelIndex() noexcept {
    for (std::size_t row = 0; row < std::size(kLabels); ++row) {
      std::size_t slot = slotOf(kLabels[row].label);
      while (m_rows[slot] != kFree) slot = next(slot);
      m_rows[slot] = static_cast<std::uint16_t>(row);
    }
  }

  /// The row of a label in lower case; null when there is none.
  constexpr const LabelRow* find(std::string_view label) const noexcept {
    for (std::size_t slot = slotOf(label); m_rows[slot] != kFree; slot = next(slot))
      if (kLabels[m_rows[slot]].label == label) return &kLabels[m_rows[slot]];
    return nullptr;
  }

 private:
  static constexpr std::size_t kSlots = std::bit_ceil(std::size(kLabels) * 3);
  static constexpr std::uint16_t kFree = 0xFFFF;

  /// FNV-1a.
  static constexpr std::size_t slotOf(std::string_view label) noexcept {
    std::uint32_t hash = 2166136261u;
    for (const char c : label) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    return (hash ^ (hash >> 16)) % kSlots;
  }
  static constexpr std::size_t next(std::size_t slot) noexcept { return (slot + 1) % kSlots; }

  std::array<std::uint16_t, kSlots> m_rows = [] {
    std::array<std::uint16_t, kSlots> rows{};
    rows.fill(kFree);
    return rows;
  }();
};
constexpr LabelIndex kLabelIndex;

/// The code page of a label in lower case; 0 when unknown.
constexpr int findLabel(std::string_view label) noexcept {
  const LabelRow* const row = kLabelIndex.find(label);
  return row ? row->codePage : 0;
}

constexpr bool labelsAreInOrder() {
  for (std::size_t i = 1; i < std::size(kLabels); ++i)
    if (kLabels[i - 1].label >= kLabels[i].label) return false;
  return std::none_of(std::begin(kLabels), std::end(kLabels), [](const LabelRow& row) {
    return std::any_of(row.label.begin(), row.label.end(), isUpperAscii);
  });
}
static_assert(labelsAreInOrder(), "kLabels is sorted, holds no label twice and is in lower case");

constexpr bool namesAreInOrder() {
  for (std::size_t i = 1; i < std::size(kNames); ++i)
    if (kNames[i - 1].codePage >= kNames[i].codePage) return false;
  return std::all_of(std::begin(kNames), std::end(kNames),
                     [](const NameRow& row) { return findLabel(row.name) != 0; });
}
static_assert(namesAreInOrder(), "kNames is searched by halves, and every name is a label too");

/// Quotes, blanks and separators around labels.
constexpr bool surroundsLabel(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '"' || c == '\'' || c == ';' || c == ',';
}

constexpr std::string_view bareLabel(std::string_view label) noexcept {
  while (!label.empty() && surroundsLabel(label.front())) label.remove_prefix(1);
  while (!label.empty() && surroundsLabel(label.back())) label.remove_suffix(1);
  return label;
}

}  // namespace

int codePageOfCharset(std::string_view name) noexcept {
  if (equalsNoCase(name, "utf-8")) return kCpUtf8;  // as most are
  const std::string_view label = bareLabel(name);
  if (label.empty() || label.size() > kLongestLabel) return 0;
  std::array<char, kLongestLabel> lower;
  std::transform(label.begin(), label.end(), lower.begin(), toLowerAscii);
  return findLabel(std::string_view(lower.data(), label.size()));
}

std::string_view charsetNameOf(int codePage) noexcept {
  const auto* const found = std::lower_bound(std::begin(kNames), std::end(kNames), codePage, nameBefore);
  return found != std::end(kNames) && found->codePage == codePage ? found->name : std::string_view();
}

}  // namespace mailtree
