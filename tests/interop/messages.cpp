#include "tests/interop/messages.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree::interop {
namespace {

using nlohmann::json;
using namespace std::string_literals;

struct File {
  std::string name;
  const char* type;  ///< Null: by the name.
  int codePage;
  std::string bytes;
  const char* expectedType;
};

struct Row {
  const char* name;
  const char* charset;  ///< Expected charset of the body; null where nothing names one.
  std::optional<std::string> text, html = {};
  std::vector<File> files = {};
  std::vector<std::string> messages = {};
  const char* preferred = nullptr;  ///< Preferred charset.
  const char* start = nullptr;      ///< Tree to begin with. Its images are expected as files.
};

std::string page(const std::string& charset, const std::string& body) {
  return "<html><head><META http-equiv=\"Content-Type\" content=\"text/html;charset=" + charset +
         "\"><title>t</title></head>\r\n<body>" + body + "</body></html>\r\n";
}

std::string everyByte() {
  std::string bytes;
  for (int i = 0; i < 3 * 256; ++i) bytes += static_cast<char>(i);
  return bytes;
}

std::string repeated(std::string_view piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) text += piece;
  return text;
}

const std::string kAwkward =
    "Hello,\r\n\r\n.a dot\r\n..two\r\n.\r\nFrom here on\r\n>From there\r\nblanks \t \r\n "
    "\r\n=3D=\r\n--b--\r\n-- \r\n\ttab\r\n";
const std::string kGerman = "Gr\u00fc\u00dfe aus K\u00f6ln\r\n";
const std::string kMixedScripts = "Gr\u00fc\u00dfe \U0001F600 \u043c\u0438\u0440 \u65e5\u672c \r\n.\r\n";
const std::string kJapanese = "\u65e5\u672c\u8a9e\u306e\u30c6\u30ad\u30b9\u30c8\u3067\u3059\u3002\r\n.\r\n";
const File kBinary = {"daten.bin", nullptr, 0, everyByte(), "application/octet-stream"};

File named(const std::string& name) { return {name, "application/pdf", 0, "%PDF", "application/pdf"}; }

Row preferring(const char* charset, Row row) {
  row.preferred = charset;
  return row;
}

Row startingWith(const char* tree, Row row) {
  row.start = tree;
  return row;
}

std::vector<Row> rows() {
  const std::string logo = "<img src=\"cid:logo@example.com\">";
  return {
      {"empty", nullptr, ""},
      {"ascii", "us-ascii", kAwkward},
      {"no_final_line_end", "us-ascii", "one\r\ntwo"},
      {"only_line_ends", "us-ascii", "\r\n\r\n\r\n"},
      {"long_ascii", "us-ascii", repeated("word ", 900) + "\r\n" + kAwkward},
      {"long_unbroken", "us-ascii", repeated("x", 4000)},
      {"german", "iso-8859-1", kGerman + kAwkward},
      {"long_german", "iso-8859-1", repeated("\u00fc=. ", 900)},
      {"scripts", "utf-8", kMixedScripts + kAwkward},
      preferring("utf-8", {"preferred_utf8", "utf-8", kGerman}),
      preferring("iso-2022-jp", {"iso_2022_jp", "iso-2022-jp", kJapanese}),
      preferring("shift_jis", {"shift_jis", "shift_jis", kJapanese}),
      preferring("iso-2022-jp", {"preferred_too_small", "utf-8", kMixedScripts}),
      preferring("iso-2022-jp", {"html_japanese", "iso-2022-jp", {}, page("iso-2022-jp", kJapanese)}),
      {"html", "us-ascii", {}, page("us-ascii", "<p>x</p>\r\n.\r\n<pre>a \r\n</pre>")},
      {"html_emoji", "utf-8", {}, page("utf-8", "<p>\U0001F600</p>" + repeated("<i>y</i>", 400))},
      {"both", "iso-8859-1", kGerman, page("iso-8859-1", "<p>\u00fc</p>")},
      {"both_widened", "utf-8", kGerman, page("utf-8", "<p>\U0001F600</p>")},
      startingWith("related(png[cid=<logo@example.com>])", {"image", "us-ascii", {}, page("us-ascii", logo)}),
      startingWith("alt(related(png[cid=<logo@example.com>]))",
                   {"image_and_text", "utf-8", kMixedScripts, page("utf-8", logo), {kBinary}}),
      {"file_only", nullptr, {}, {}, {kBinary}},
      {"files",
       "us-ascii",
       kAwkward,
       {},
       {kBinary,
        {"zahlen.csv", nullptr, 1252,
         "Stra\xDF"
         "e;\x80 5 \r\n.\r\nFrom\r\n",
         "text/csv"},
        {"zeilen.txt", nullptr, kCpUtf8, "a\nb\r\nc\rd \t\n\n.\n\u00fc" + repeated("z", 1100), "text/plain"},
        {"leer.txt", nullptr, 0, "", "text/plain"},
        {"leer.bin", nullptr, 0, "", "application/octet-stream"},
        {"seite.html", nullptr, 0, "<p>x", "text/html"},
        {"", "image/png", 0, "PNG", "image/png"}}},
      {"everything",
       "utf-8",
       kGerman,
       page("utf-8", "<p>\U0001F600</p>"),
       {named("bericht.pdf"), {"a.csv", "text/csv", 1252, "\xFC;\xE4\r\n", "text/csv"}}},
      {"names",
       "us-ascii",
       "see there\r\n",
       {},
       {named("\u00dcbersicht M\u00e4rz.pdf"), named("\U0001F600.pdf"), named("a \"quoted\" name.pdf"),
        named("semi;colon, comma=equals.pdf"), named("O'Neil (1) [2] <3>.pdf"), named("100% sure.pdf"),
        named("=?utf-8?Q?x?=.pdf"), named("\u65e5\u672c\u8a9e\u306e\u8cc7\u6599.pdf"),
        named(repeated("Sehr langer Name ", 12) + ".pdf"),
        named(repeated("Gr\u00f6\u00dfen\u00fcbersicht ", 12) + ".pdf"),
        named(repeated("\u6f22", 80) + ".pdf")}},
      {"names_latin",
       "iso-8859-1",
       kGerman,
       {},
       {named("\u00dcbersicht.pdf"), named("\u20ac und \u6f22.pdf")}},
      {"messages",
       "us-ascii",
       kAwkward,
       {},
       {kBinary},
       {"Subject: inner\n\nbody\n",
        "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\n\u00fc\nend",
        "Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b\nContent-Type: "
        "image/png\n\ntwo\n--b--\n"}},
  };
}

void setBody(Email2& mail, const std::optional<std::string>& body, const char* type, bool asAlternative) {
  if (!body) return;
  LogNull log;
  StringBuffer given(type);
  DataBuffer data;
  data.append(*body);
  const bool done = asAlternative ? mail.addAlternativeBody(data, /*isText=*/true, given, nullptr, log)
                                  : mail.setBody(data, /*isText=*/true, given, nullptr, log);
  EXPECT_TRUE(done) << type;
}

constexpr const char* kSubject =
    "\u00dcber \U0001F600 und einen Betreff, der l\u00e4nger ist als eine einzige Zeile";
constexpr const char* kFrom = "J\u00fcrgen \"J.\" M\u00fcller";
constexpr const char* kTo = "\u65e5\u672c, \u592a\u90ce";

std::string compose(const Row& row) {
  LogNull log;
  const EmailPtr mail = row.start ? buildTree(row.start) : EmailPtr(new Email2());
  if (row.preferred) mail->m_common->m_preferredCharset.setFromUtf8(row.preferred);
  mail->setHeaderField("Subject", kSubject, log);
  mail->setFromName(kFrom, log);
  mail->setFromAddr("jm@example.com", log);
  mail->addRecipient(static_cast<int>(RecipientKind::to), kTo, "taro@example.com", log);
  setBody(*mail, row.text, "text/plain", /*asAlternative=*/false);
  setBody(*mail, row.html, "text/html", /*asAlternative=*/row.text.has_value());
  for (const File& file : row.files) {
    DataBuffer data;
    data.append(file.bytes);
    StringBuffer type;
    EXPECT_TRUE(mail->addDataAttachmentUtf8(file.name.c_str(), file.type, file.codePage, data, type, log))
        << file.name;
  }
  for (const std::string& message : row.messages) {
    DataBuffer mime;
    mime.append(crlf(message));
    EXPECT_TRUE(mail->attachMessage(mime, log)) << row.name;
  }
  return write(*mail);
}

json fileOf(const json& name, const std::string& type, std::string_view charset, const json& id,
            const std::string& bytes) {
  return {{"name", name}, {"title", name},       {"type", type},
          {"id", id},     {"hex", hexOf(bytes)}, {"charset", charset.empty() ? json() : json(charset)}};
}

json expectedFiles(const Row& row) {
  json files = json::array();
  if (row.start) files.push_back(fileOf(nullptr, "image/png", "", "<logo@example.com>", "png"));
  for (const File& file : row.files)
    files.push_back(fileOf(file.name.empty() ? "attach.dat" : file.name, file.expectedType,
                           charsetNameOf(file.codePage), nullptr, file.bytes));
  return files;
}

json orNull(const std::optional<std::string>& text) { return text ? json(*text) : json(); }

Composed composed(const Row& row) {
  return {row.name,
          compose(row),
          {{"subject", kSubject},
           {"from", kFrom},
           {"to", kTo},
           {"text", orNull(row.text)},
           {"html", orNull(row.html)},
           {"charset", row.charset ? json(row.charset) : json()},
           {"files", expectedFiles(row)},
           {"messages", row.messages},
           {"defects", json::array()}}};
}

}  // namespace

const std::vector<Composed>& composedMessages() {
  static const std::vector<Composed> all = [] {
    std::vector<Composed> messages;
    for (const Row& row : rows()) messages.push_back(composed(row));
    return messages;
  }();
  return all;
}

void expectSeen(const Composed& message, const json& seen) {
  EXPECT_EQ(seen, message.expected) << message.name << ", what would have to change in what was seen: "
                                    << json::diff(seen, message.expected).dump() << "\n"
                                    << message.bytes;
}

std::string hexOf(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    hex += kDigits[static_cast<unsigned char>(c) >> 4];
    hex += kDigits[static_cast<unsigned char>(c) & 15];
  }
  return hex;
}

}  // namespace mailtree::interop
