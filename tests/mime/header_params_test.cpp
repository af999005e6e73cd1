// Parameters of header values: read from anything that is sent, written so that everybody can read them.
#include "mailtree/mime/header/HeaderParams.h"

#include "mailtree/base/Utf.h"
#include "mailtree/mime/Limits.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

/// "value|name=value|name=value"
std::string show(std::string_view text) {
  const ParameterizedValue parsed = parseParameterizedValue(text);
  std::string out(parsed.value);
  for (const auto& param : parsed.params.params()) out += "|" + param.name + "=" + param.value;
  return out;
}

TEST(HeaderParams, reads_what_mailers_send) {
  const Row rows[] = {
      {"  text/plain ;; Charset = \"utf-8\" ; ", "text/plain|Charset=utf-8"},
      {"(first) text/plain (a; b) ; (odd (nested)) a=b (plain; really)", "text/plain|a=b"},
      {"text/plain (never closed; charset=utf-8", "text/plain (never closed|charset=utf-8"},
      // Quotes and their substitutes
      {"a/b; name=\"x \\\"y\\\" \\\\z; w\"", "a/b|name=x \"y\" \\z; w"},
      {"a; filename=\"C:\\temp\\\"; size=5", "a|filename=C:\\temp\\|size=5"},
      {"a; filename=\"my \"best\" file.txt\"; size=1", "a|filename=my \"best\" file.txt|size=1"},
      {"a; filename=\"never; closed.txt; size=5", "a|filename=never; closed.txt|size=5"},
      {"a; boundary=\"abc; charset=\"utf-8\"", "a|boundary=abc|charset=utf-8"},
      {"a; boundary=\"abc\"rubbish; name=\"x\"", "a|boundary=abc|name=x"},
      {"a; charset='utf-8'; boundary='x'; name=\"\"; b=", "a|charset=utf-8|boundary='x'|name=|b="},
      // Characters that need quotes, and blanks
      {"a; boundary=-=_a:b?,(d); name=my (1).txt ; x=y/z", "a|boundary=-=_a:b?,(d)|name=my (1).txt|x=y/z"},
      {"a; flowed; charset=x; boundary", "a|charset=x"},
      // Missing and odd separators
      {"a/b, c = utf-8 name=\"a.txt\" filename=\"b.txt\"", "a/b|c=utf-8|name=a.txt|filename=b.txt"},
      {"filename=x.txt", "|filename=x.txt"},
      {"\"attachment\"; =x; b=y; x=1; X=2", "attachment|b=y|x=1"},
      // RFC 2231
      {"a; x*=iso-8859-1'fr'caf%E9; y*=\"utf-8''caf%C3%A9\"", "a|x=café|y=café"},
      {"a; x=\"fallback\"; x*=utf-8''%C3%A9; y*=utf-8''%C3%A9; y=\"fallback\"; z=1", "a|x=é|y=é|z=1"},
      {"a; n*0=\"one \"; n*1=two; n*2*=%20th%72ee", "a|n=one two three"},
      {"a; n*1*=%A9x; n*0*=utf-8''caf%C3; m*0*=''a; m*1=%41", "a|n=caféx|m=a%41"},
      {"a; n*0=a; n*0=b; n*2=c; m*=it's 100%; p*=x-nobody'en'caf%C3%A9", "a|n=ac|m=it's 100%|p=café"},
      {"a; n*10=k; n*9=j; n*0=a; n*x=1; n*-1=2; m*=utf-8''a%0D%0Ab%00c", "a|n=ajk|n*x=1|n*-1=2|m=abc"},
      // Encoded words where none belong
      {"a; x=\"=?utf-8?Q?caf=C3=A9?=.txt\"; y==?utf-8?Q?caf=C3=A9?=", "a|x=café.txt|y=café"},
      {"a; n*0=\"=?utf-8?Q?caf\"; n*1=\"=C3=A9?=\"", "a|n=café"},
      {"a; Boundary==?utf-8?Q?x?=; b=c", "a|Boundary==?utf-8?Q?x?=|b=c"}};
  expectEach(show, rows);
}

TEST(HeaderParams, the_rest_beyond_the_limit_is_not_read_and_said_so) {
  std::string text = "a/b";
  for (int i = 0; i < kMaxParameters; ++i) text += "; p" + std::to_string(i) + "=v";
  EXPECT_FALSE(parseParameterizedValue(text).overLimit);
  const ParameterizedValue parsed = parseParameterizedValue(text + "; more=v");
  EXPECT_TRUE(parsed.overLimit);
  EXPECT_EQ(parsed.params.params().size(), static_cast<std::size_t>(kMaxParameters));
}

TEST(HeaderParams, hostile_values_are_read_in_linear_time) {
  expectEndsSoon(parseParameterizedValue,
                 {"(", "\"", "; a=\"x", "; a=\"\\\"", "a=\"x b", ";", " ", "; a*0=b", "; a=(", "; a==?", "\\",
                  "; a=\"x b@=\"", "; a*=utf-8''%FF"},
                 1'000'000, "a/b; c=\"");
}

TEST(HeaderParams, set_keeps_order_and_takes_by_name) {
  _svParamSet params;
  params.addParam("Method", "REQUEST\r\nX: y");
  params.addParam("a", "1");
  params.addParam("method", "2");
  EXPECT_EQ(*params.find("METHOD"), "REQUESTX: y");
  std::string value;
  EXPECT_TRUE(params.take("method", value));
  params.addParam("A", "2", /*replace=*/false);
  EXPECT_EQ(params.params().size(), 2u);
  params.addParam("a", "3", /*replace=*/true);
  ASSERT_EQ(params.params().size(), 1u);
  EXPECT_EQ(*params.find("a"), "3");
  params.clear();
  EXPECT_FALSE(params.take("method", value));
}

std::string written(std::string_view name, std::string_view value, int codePage, bool withFallback) {
  std::string out;
  appendParam(name, value, codePage, withFallback, out);
  return out;
}

TEST(HeaderParams, writes_the_simplest_form_that_carries_the_value) {
  const std::tuple<const char*, int, bool, const char*> rows[] = {
      {"utf-8", 65001, true, "; n=utf-8"},
      {"", 65001, true, "; n=\"\""},
      {"my file.txt", 65001, true, "; n=\"my file.txt\""},
      {"café.txt", 65001, true, "; n*=utf-8''caf%C3%A9.txt; n=cafe.txt"},
      {"café.txt", 28591, false, "; n*=iso-8859-1''caf%E9.txt"},
      {"日本.txt", 28591, true, "; n*=utf-8''%E6%97%A5%E6%9C%AC.txt; n=_.txt"},
      {"=?utf-8?Q?x?=", 65001, false, "; n*=utf-8''%3D%3Futf-8%3FQ%3Fx%3F%3D"},
      {"a\r\nBcc: b", 65001, true, "; n=\"aBcc: b\""},
      {"a\tb", 65001, false, "; n*=utf-8''a%09b"}};
  for (const auto& [value, codePage, withFallback, out] : rows)
    EXPECT_EQ(written("n", value, codePage, withFallback), out) << value;
  EXPECT_EQ(written("boundary", "=?utf-8?Q?x?=", 65001, false), "; boundary=\"=?utf-8?Q?x?=\"")
      << "compared with lines of the body, never decoded";
  EXPECT_EQ(written("n; x", "v", 65001, false), "");
}

TEST(HeaderParams, what_is_written_reads_back_the_same) {
  auto pieces = split("\"|\\|;| |=|'|%|a|b*0|é|日|😀|(|)|=?|?=|=?utf-8?Q?x?=|\x01|; x=\"|\\\"|,|C:\\", "|");
  pieces.insert(pieces.end(), {repeat("a", 80), repeat("x", 500), repeat(" ", 501), repeat("y", 1000)});
  std::mt19937 random(7);
  const int codePages[] = {65001, 28591, 50220, 932};
  for (int round = 0; round < 5000; ++round) {
    const std::string value = randomText(random, pieces, 1 + random() % 10);
    const std::string text =
        "attachment" +
        written("filename", value, codePages[random() % std::size(codePages)], round % 2 == 0) +
        written("size", "5", 0, false);
    ASSERT_TRUE(isAscii(text));
    ASSERT_EQ(show(text), "attachment|filename=" + value + "|size=5") << text;
  }
}

}  // namespace
}  // namespace mailtree
