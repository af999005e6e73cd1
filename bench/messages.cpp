#include "bench/messages.h"

#include <random>

#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/ContentCoding.h"

namespace mailtree::bench {
namespace {

/// Fixed seed: the same mail on every run and machine.
class Writer {
 public:
  explicit Writer(unsigned seed) : m_random(seed) {}

  std::size_t between(std::size_t low, std::size_t high) { return low + m_random() % (high - low + 1); }

  std::string word() {
    std::string text;
    for (std::size_t n = between(2, 9); n > 0; --n) text += static_cast<char>('a' + m_random() % 26);
    return text;
  }

  /// Lines of words, about `size` bytes; every `every`-th word is taken from `foreign`.
  std::string prose(std::size_t size, const std::vector<std::string>& foreign, std::size_t every) {
    std::string text;
    std::size_t line = 0, words = 0;
    while (text.size() < size) {
      const std::string next =
          !foreign.empty() && ++words % every == 0 ? foreign[m_random() % foreign.size()] : word();
      text += next;
      line += next.size() + 1;
      text += line > 68 ? "\r\n" : " ";
      if (line > 68) line = 0;
    }
    return text + "\r\n";
  }

  std::string bytes(std::size_t size) {
    std::string text(size, '\0');
    for (char& c : text) c = static_cast<char>(m_random());
    return text;
  }

  std::string token(std::size_t size) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) text += kDigits[m_random() % 64];
    return text;
  }

 private:
  std::mt19937 m_random;
};

std::string base64(std::string_view data) {
  StringBuffer text;
  ContentCoding::encodeBase64(data.data(), data.size(), text);
  return text.extractString();
}

std::string quotedPrintable(std::string_view data) {
  StringBuffer text;
  ContentCoding::encodeQuotedPrintable(data.data(), data.size(), text);
  return text.extractString();
}

/// One line of uuencoded data.
std::string uuLine(std::string_view bytes) {
  const auto digit = [](unsigned value) { return value ? static_cast<char>(value + ' ') : '`'; };
  const auto byte = [&](std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
  };
  std::string line(1, digit(static_cast<unsigned>(bytes.size())));
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const unsigned bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    for (const int shift : {18, 12, 6, 0}) line += digit(bits >> shift & 63);
  }
  return line + "\r\n";
}

std::string encodedWord(std::string_view utf8) {
  std::string text = base64(utf8);
  while (!text.empty() && text.back() < ' ') text.pop_back();
  return "=?utf-8?B?" + text + "?=";
}

std::string received(Writer& w) {
  return "Received: from " + w.word() + ".example (" + w.word() + ".example [192.0.2." +
         std::to_string(w.between(1, 254)) + "])\r\n\tby mx." + w.word() + ".example with ESMTPS id " +
         w.token(12) +
         "\r\n\tfor <reader@example.org>; Tue, 14 Apr 2026 09:12:" + std::to_string(w.between(10, 59)) +
         " +0200\r\n";
}

std::string signature(Writer& w) {
  std::string text =
      "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=example.org; s=mail;\r\n"
      "\th=from:to:subject:date:message-id; bh=" +
      w.token(43) + "=;\r\n\tb=" + w.token(64);
  for (int i = 0; i < 4; ++i) text += "\r\n\t " + w.token(70);
  return text + "\r\n";
}

std::string head(Writer& w) {
  std::string text;
  for (std::size_t n = w.between(2, 6); n > 0; --n) text += received(w);
  text += signature(w);
  text += "Date: Tue, 14 Apr 2026 09:12:" + std::to_string(w.between(10, 59)) + " +0200\r\n";
  text += "From: " + encodedWord("Jörg " + w.word()) + " <" + w.word() + "@example.org>\r\n";
  text += "To: \"" + w.word() + ", " + w.word() + "\" <" + w.word() + "@example.com>, " + w.word() +
          "@example.net\r\n";
  text += "Cc: " + w.word() + " <" + w.word() + "@example.com>\r\n";
  text += "Subject: Re: " + encodedWord("Größe und Maß " + w.word()) + "\r\n " +
          encodedWord("für " + w.word()) + "\r\n";
  text +=
      "Message-ID: <" + w.token(24) + "@example.org>\r\nIn-Reply-To: <" + w.token(24) + "@example.org>\r\n";
  text += "References: <" + w.token(24) + "@example.org>\r\n <" + w.token(24) + "@example.org>\r\n";
  for (std::size_t n = w.between(1, 7); n > 0; --n) text += "X-" + w.word() + ": " + w.prose(40, {}, 1);
  return text + "MIME-Version: 1.0\r\n";
}

std::string part(std::string_view type, std::string_view encoding, std::string_view body) {
  return "Content-Type: " + std::string(type) + "\r\nContent-Transfer-Encoding: " + std::string(encoding) +
         "\r\n\r\n" + std::string(body);
}

std::string multipart(std::string_view subtype, std::string_view boundary,
                      const std::vector<std::string>& parts) {
  const std::string line = "\r\n--" + std::string(boundary);
  std::string text = "Content-Type: multipart/" + std::string(subtype) + "; boundary=\"" +
                     std::string(boundary) + "\"\r\n\r\n";
  for (const std::string& each : parts)
    text += line.substr(text.ends_with("\r\n\r\n") ? 2 : 0) + "\r\n" + each;
  return text + line + "--\r\n";
}

const std::vector<std::string> kGerman = {"Größe", "Äpfel", "über", "Straße", "schön", "–", "€"};
const std::vector<std::string> kLatin = {"Größe", "Äpfel", "über", "Straße", "schön", "café", "año"};
const std::vector<std::string> kRussian = {"поезд",   "приходит", "утром", "вокзал",
                                           "встреча", "Ольга",    "зонт"};
const std::vector<std::string> kJapanese = {"来週の会議", "資料", "よろしくお願いします", "金曜日",
                                            "午後三時"};
const std::vector<std::string> kChinese = {"会议", "时间", "星期五", "资料", "谢谢", "下午三点"};

struct CharsetRow {
  const char* label;
  const std::vector<std::string>* words;
};
const CharsetRow kCharsets[] = {{"iso-8859-1", &kLatin},     {"windows-1252", &kGerman},
                                {"iso-2022-jp", &kJapanese}, {"gb18030", &kChinese},
                                {"koi8-r", &kRussian},       {"utf-8", &kRussian}};

/// A message of about `size` bytes; its body repeats one block.
std::string ofLength(int size, const std::string& head, const std::string& block) {
  std::string text = head;
  text.reserve(static_cast<std::size_t>(size) + head.size() + block.size());
  while (text.size() < static_cast<std::size_t>(size)) text += block;
  return text;
}

std::string encodedIn(const char* label, const std::string& utf8) {
  std::string bytes;
  encodeFromUtf8(codePageOfCharset(label), utf8, bytes);
  return bytes;
}

std::string shortMail(Writer& w) {
  return head(w) + part("text/plain; charset=utf-8", "8bit", w.prose(w.between(200, 3000), kGerman, 12));
}

std::string htmlMail(Writer& w) {
  std::string html = "<html><head><title>x</title></head><body>";
  for (std::size_t size = w.between(16'000, 60'000); html.size() < size;)
    html += "<p style=\"margin:0;color:#333\"><a href=\"https://example.org/?a=" + w.word() +
            "&amp;b=" + w.word() + "\">" + w.prose(60, kGerman, 8) + "</a></p>";
  return head(w) + multipart("alternative", "=_alt",
                             {part("text/plain; charset=utf-8", "quoted-printable",
                                   quotedPrintable(w.prose(4000, kGerman, 8))),
                              part("text/html; charset=utf-8", "quoted-printable",
                                   quotedPrintable(html + "</body></html>"))});
}

std::string attachmentMail(Writer& w, std::size_t bytes) {
  return head(w) +
         multipart(
             "mixed", "=_mixed",
             {part("text/plain; charset=us-ascii", "7bit", w.prose(800, {}, 1)),
              part("application/pdf; name=\"a.pdf\"\r\nContent-Disposition: attachment; filename=\"a.pdf\"",
                   "base64", base64(w.bytes(bytes)))});
}

/// Every charset in both encodings, alternating.
std::string charsetMail(Writer& w, std::size_t number) {
  const CharsetRow& row = kCharsets[number / 2 % std::size(kCharsets)];
  const bool asBase64 = number % 2 == 0;
  const std::string text = encodedIn(row.label, w.prose(12'000, *row.words, 2));
  return head(w) + part("text/plain; charset=" + std::string(row.label),
                        asBase64 ? "base64" : "quoted-printable",
                        asBase64 ? base64(text) : quotedPrintable(text));
}

std::string partsMail(Writer& w, int count) {
  std::vector<std::string> parts;
  for (int i = 1; i < count; ++i)
    parts.push_back(part("text/plain; charset=us-ascii", "7bit", w.prose(60, {}, 1)));
  return head(w) + multipart("mixed", "=_many", parts);
}

std::string deepMail(Writer& w, int levels) {
  std::string inner = part("text/plain; charset=us-ascii", "7bit", w.prose(400, {}, 1));
  for (int i = 1; i < levels; ++i)
    inner = multipart("mixed", "=_level" + std::to_string(i),
                      {part("text/plain; charset=us-ascii", "7bit", w.prose(200, {}, 1)), inner});
  return head(w) + inner;
}

constexpr int kParts = 2'001, kLevels = 30;

/// Many times the size of the caches. Many parts and deep nesting take more time per byte, so less is enough.
constexpr std::size_t kCold = std::size_t{256} << 20, kColdSlow = std::size_t{64} << 20;

template <class Next>
MessageSet filled(const char* name, std::size_t bytes, Next next) {
  MessageSet set{name, {}};
  for (std::size_t size = 0; size < bytes; size += set.messages.back().size()) {
    set.messages.push_back(next());
    set.messages.back().shrink_to_fit();
  }
  return set;
}

}  // namespace

std::size_t MessageSet::bytes() const {
  std::size_t sum = 0;
  for (const std::string& message : messages) sum += message.size();
  return sum;
}

MessageSet shortText(std::size_t count) {
  Writer w(1);
  MessageSet set{"short_text", {}};
  for (std::size_t i = 0; i < count; ++i) set.messages.push_back(shortMail(w));
  return set;
}

MessageSet htmlQuotedPrintable() {
  Writer w(2);
  MessageSet set{"html_qp", {}};
  for (int i = 0; i < 24; ++i) set.messages.push_back(htmlMail(w));
  return set;
}

std::string withAttachment(std::size_t bytes) {
  Writer w(3);
  return attachmentMail(w, bytes);
}

MessageSet base64Attachments() {
  MessageSet set{"base64", {}};
  for (const std::size_t size : {500'000u, 1'500'000u, 4'000'000u})
    set.messages.push_back(withAttachment(size));
  return set;
}

MessageSet mixedCharsets() {
  Writer w(4);
  MessageSet set{"charsets", {}};
  for (std::size_t i = 0; i < 2 * std::size(kCharsets); ++i) set.messages.push_back(charsetMail(w, i));
  return set;
}

std::string manyParts(int count) {
  Writer w(5);
  return partsMail(w, count);
}

std::string deep(int levels) {
  Writer w(6);
  return deepMail(w, levels);
}

std::string manyFields(int count) {
  Writer w(7);
  std::string text = "From: a@example.org\r\nTo: b@example.org\r\nSubject: many\r\n";
  for (int i = 3; i < count; ++i) text += "X-Field-" + std::to_string(i) + ": " + w.prose(30, {}, 1);
  return text + "\r\nbody\r\n";
}

std::string manyAddresses(int count) {
  Writer w(8);
  std::string text = "From: a@example.org\r\nSubject: many\r\nTo: first@example.org";
  for (int i = 1; i < count; ++i)
    text += ",\r\n \"" + w.word() + " " + w.word() + "\" <" + w.word() + "@example.org>";
  return text + "\r\n\r\nbody\r\n";
}

std::string longText(int size) {
  return ofLength(size, "From: a@example.org\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n",
                  Writer(11).prose(1000, kGerman, 12));
}

std::string largeFile(int size) {
  return ofLength(size,
                  "From: a@example.org\r\nContent-Type: application/pdf\r\nContent-Transfer-Encoding: "
                  "base64\r\n\r\n",
                  base64(Writer(12).bytes(57 * 8)));
}

std::string unlabelled(const char* fields, const char* sentence) {
  std::string text = "From: a@example.org\r\n" + std::string(fields) + "\r\n";
  while (text.size() < 64 * 1024) text += sentence;
  return text;
}

std::string uuencodedFile(std::size_t size) {
  Writer w(9);
  const std::string bytes = w.bytes(size);
  std::string text =
      "From: a@example.org\r\nSubject: a file\r\n\r\nHere it is.\r\n\r\nbegin 644 file.bin\r\n";
  for (std::size_t at = 0; at < bytes.size(); at += 45)
    text += uuLine(std::string_view(bytes).substr(at, 45));
  return text + "`\r\nend\r\n";
}

std::size_t Draft::bytes() const {
  std::size_t sum = text.size() + html.size();
  for (const auto* list : {&images, &files})
    for (const File& file : *list) sum += file.bytes.size();
  return sum;
}

const Draft& draft() {
  static const Draft kDraft = [] {
    Writer w(10);
    Draft draft;
    draft.text = w.prose(4'000, {"Größe", "für", "Straße"}, 7);
    draft.html = "<html><head></head><body><p><img src=\"cid:logo.png\"><img src=\"cid:chart.png\">" +
                 w.prose(12'000, {"Größe", "für", "Straße"}, 7) + "</p></body></html>";
    draft.images = {{"logo.png", "image/png", w.bytes(100'000)},
                    {"chart.png", "image/png", w.bytes(400'000)}};
    draft.files = {{"report.pdf", "application/pdf", w.bytes(2'500'000)},
                   {"photo.jpg", "image/jpeg", w.bytes(1'500'000)},
                   {"table.zip", "application/zip", w.bytes(500'000)}};
    return draft;
  }();
  return kDraft;
}

const std::vector<MessageSet>& allSets() {
  static const std::vector<MessageSet> kSets = [] {
    std::vector<MessageSet> sets;
    sets.push_back(shortText(200));
    sets.push_back(htmlQuotedPrintable());
    sets.push_back(base64Attachments());
    sets.push_back(mixedCharsets());
    sets.push_back({"parts_2000", {manyParts(kParts)}});
    sets.push_back({"depth_30", {deep(kLevels)}});
    return sets;
  }();
  return kSets;
}

const std::vector<ColdSet>& coldSets() {
  static const std::vector<ColdSet> kSets = {
      {"short_text",
       [](const char* name) {
         return filled(name, kCold, [w = Writer(21)]() mutable { return shortMail(w); });
       }},
      {"html_qp",
       [](const char* name) {
         return filled(name, kCold, [w = Writer(22)]() mutable { return htmlMail(w); });
       }},
      {"base64",
       [](const char* name) {
         return filled(name, kCold, [w = Writer(23)]() mutable {
           const std::size_t size = w.between(500'000, 4'000'000);
           return attachmentMail(w, size);
         });
       }},
      {"charsets",
       [](const char* name) {
         return filled(name, kCold,
                       [w = Writer(24), i = std::size_t{0}]() mutable { return charsetMail(w, i++); });
       }},
      {"parts_2000",
       [](const char* name) {
         return filled(name, kColdSlow, [w = Writer(25)]() mutable { return partsMail(w, kParts); });
       }},
      {"depth_30",
       [](const char* name) {
         return filled(name, kColdSlow, [w = Writer(26)]() mutable { return deepMail(w, kLevels); });
       }},
  };
  return kSets;
}

}  // namespace mailtree::bench
