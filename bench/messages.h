// bench/messages.h - generated mail that every benchmark works on, the same bytes on every run.
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

// Messages that grow in one direction, each count including everything of its kind.
std::string manyParts(int count);
std::string deep(int levels);
std::string manyFields(int count);
std::string manyAddresses(int count);
std::string longText(int bytes);   ///< One text in utf-8.
std::string largeFile(int bytes);  ///< One file in base64.

std::string uuencodedFile(std::size_t bytes);  ///< A text with one uuencoded file of that size.
std::string unlabelled(const char* fields, const char* sentence);  ///< 64 kB of a text that names no charset.

/// What a person sends: a text, the same in HTML with two images in it, three files; 5 MB.
struct Draft {
  struct File {
    const char* name;  ///< Of an image, also its Content-ID.
    const char* type;
    std::string bytes;
  };
  std::string text, html;
  std::vector<File> images, files;

  std::size_t bytes() const;
};

const Draft& draft();

/// The four sets and the two odd shapes.
const std::vector<MessageSet>& allSets();

/// The same shapes in sets that no cache holds, every message another one. Each is made when it is wanted.
struct ColdSet {
  const char* name;
  MessageSet (*make)(const char* name);
};
const std::vector<ColdSet>& coldSets();

}  // namespace mailtree::bench
