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
  // The charset suggested, and texts with the preferred one for which it is.
  const Row rows[] = {
      // The preference carries the text.
      {"koi8-r", "привет=KOI8-R"},
      {"shift_jis", "日本語=shift_jis|日本語=sjis"},
      {"gb18030", "привет 😀=gb18030"},
      {"us-ascii", "plain=us-ascii"},
      // None, where iso-8859-1 or iso-8859-2 carries it.
      {"", "=|schön=|schön=us-ascii|schön=no such charset|schön=utf-16be|žluťoučký=koi8-r|2 × 3 ÷ 1 °C="},
      // A sister of the preference.
      {"windows-1251", "привет — «мир» №=iso-8859-5|привет — мир=koi8-r|Ђорђе=koi8-r"},
      {"windows-1252", "It’s €5=iso-8859-1"},
      {"windows-1250", "żółć – „tak”=iso-8859-2"},
      {"windows-1253", "Ωμέγα „α”=iso-8859-7"},
      {"windows-1255", "שלום – ₪=iso-8859-8"},
      {"iso-2022-jp", "ﾃｽﾄ 日本=iso-2022-jp"},
      {"ks_c_5601-1987", "똠방각하=euc-kr"},
      {"gb2312", "朱镕基=gb2312"},
      {"gb18030", "䶮=gb2312"},
      // utf-8 for all else.
      {"utf-8", "schön=utf-8|привет=|привет=iso-8859-7|привет=utf-16|привет=utf-7|日本語=windows-874"},
      {"utf-8", "привет, schön=koi8-r|привет Ωμέγα —=iso-8859-5|It’s=koi8-u|schön 😀=iso-8859-1"},
      {"utf-8", "a ❤️ b → c=iso-8859-1|привет — ☎=koi8-r|नमस्ते=windows-1252"},
      {"utf-8", "caf\xE9=iso-8859-1|caf\xE9=|\xED\xA0\x80\xC3=utf-8"}};
  for (const auto& [charset, cases] : rows)
    for (const std::string& textAndPreference : split(cases, "|")) {
      const auto parts = split(textAndPreference, "=");
      EXPECT_EQ(suggestedFor(parts[0], parts[1].c_str()), charset) << textAndPreference;
    }
  EXPECT_EQ(suggestedFor("schön", nullptr), "");
}

}  // namespace
}  // namespace mailtree
