// bench/messages.h - generated mail for all benchmarks, the same bytes on every run.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace mailtree::bench {

/// A named set of messages.
struct MessageSet {
  const char* name;
  std::vector<std::string> messages;

  std::size_t bytes() const;
};

MessageSet shortText(
    std::size_t count);            ///< 1-6 kB, folded Received and DKIM-Signature fields, encoded words.
MessageSet htmlQuotedPrintable();  ///< Text and HTML in quoted-printable, 20-80 kB.
MessageSet base64Attachments();    ///< Attachments of 0.5-4 MB.
MessageSet mixedCharsets();        ///< Text in six charsets, base64 and quoted-printable.

std::string withAttachment(std::size_t bytes);  ///< A text and one file of that size in base64.

// Messages that grow in one dimension; a count includes every unit of its kind.
std::string manyParts(int count);
std::string deep(int levels);
std::string manyFields(int count);
std::string manyAddresses(int count);
std::string longText(int bytes);   ///< One text in utf-8.
std::string largeFile(int bytes);  ///< One file in base64.

std::string uuencodedFile(std::size_t bytes);  ///< A text with one uuencoded file of that size.
std::string unlabelled(const char* fields, const char* sentence);  ///< 64 kB of text without charset label.

/// A typical message of 5 MB: a text, the same as HTML with two images, three files.
struct Draft {
  struct File {
    const char* name;  ///< Also the Content-ID of an image.
    const char* type;
    std::string bytes;
  };
  std::string text, html;
  std::vector<File> images, files;

  std::size_t bytes() const;
};

const Draft& draft();

/// The four sets, many parts, and deep nesting.
const std::vector<MessageSet>& allSets();

/// The same in sets larger than the caches, all messages different. A set is generated when it is needed.
struct ColdSet {
  const char* name;
  MessageSet (*make)(const char* name);
};
const std::vector<ColdSet>& coldSets();

}  // namespace mailtree::bench
