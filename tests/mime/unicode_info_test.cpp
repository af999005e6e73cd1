#include "mailtree/mime/UnicodeInfo.h"

#include "tests/mime/tables.h"

namespace mailtree {
namespace {

std::string suggestedFor(std::string_view text, const char* preferred) {
  UnicodeInfo info;
  info.ExamineUnicode("\xE6\x97\xA5");  // an earlier scan leaves no trace
  info.ExamineUnicode(text);
  _svCharset suggestion;
  suggestion.setByName("old");
  info.suggestCharset(suggestion, preferred, text, quiet);
  EXPECT_STREQ(suggestion.getName(), std::string(charsetNameOf(suggestion.getCodePage())).c_str()) << text;
  return suggestion.getName();
}

TEST(SuggestCharset, FollowsPreferenceScriptAndTodaysReader) {
  const struct {
    const char* text;
    const char* preferred;
    const char* charset;  // Empty: none suggested.
  } rows[] = {
      // The preference carries the text.
      {"привет", "KOI8-R", "koi8-r"},
      {"日本語", "shift_jis", "shift_jis"},
      {"日本語", "sjis", "shift_jis"},
      {"schön", "utf-8", "utf-8"},
      {"привет 😀", "gb18030", "gb18030"},
      {"plain", "us-ascii", "us-ascii"},
      // iso-8859-1 or iso-8859-2 carries it.
      {"", nullptr, ""},
      {"schön", nullptr, ""},
      {"schön", "", ""},
      {"schön", "us-ascii", ""},
      {"schön", "no such charset", ""},
      {"žluťoučký", "koi8-r", ""},
      {"2 × 3 ÷ 1 °C", nullptr, ""},
      // A sister of the preference.
      {"привет — «мир» №", "iso-8859-5", "windows-1251"},
      {"привет — мир", "koi8-r", "windows-1251"},
      {"Ђорђе", "koi8-r", "windows-1251"},
      {"It’s €5", "iso-8859-1", "windows-1252"},
      {"żółć – „tak”", "iso-8859-2", "windows-1250"},
      {"Ωμέγα „α”", "iso-8859-7", "windows-1253"},
      {"שלום – ₪", "iso-8859-8", "windows-1255"},
      {"ﾃｽﾄ 日本", "iso-2022-jp", "iso-2022-jp"},
      {"똠방각하", "euc-kr", "ks_c_5601-1987"},
      {"朱镕基", "gb2312", "gb2312"},
      {"䶮", "gb2312", "gb18030"},
      // utf-8 for all else.
      {"привет", nullptr, "utf-8"},
      {"привет", "iso-8859-7", "utf-8"},
      {"日本語", "windows-874", "utf-8"},
      {"привет, schön", "koi8-r", "utf-8"},
      {"привет Ωμέγα —", "iso-8859-5", "utf-8"},
      {"It’s", "koi8-u", "utf-8"},
      {"schön 😀", "iso-8859-1", "utf-8"},
      {"a ❤️ b → c", "iso-8859-1", "utf-8"},
      {"привет — ☎", "koi8-r", "utf-8"},
      {"नमस्ते", "windows-1252", "utf-8"},
      {"привет", "utf-16", "utf-8"},
      {"привет", "utf-7", "utf-8"},
      {"schön", "utf-16be", ""},
      {"caf\xE9", "iso-8859-1", "utf-8"},
      {"caf\xE9", nullptr, "utf-8"},
      {"\xED\xA0\x80\xC3", "utf-8", "utf-8"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(suggestedFor(row.text, row.preferred), row.charset)
        << row.text << ", preferred " << (row.preferred ? row.preferred : "nothing");
}

}  // namespace
}  // namespace mailtree
