// fuzz/messages.h - loading and writing, for the targets that work on whole messages.
#pragma once

#include <string>
#include <string_view>

#include "fuzz/target.h"
#include "mailtree/email/Email2.h"

namespace mailtree::fuzz {

enum class Source { bytes, pop3 };

/// Any bytes load.
inline EmailPtr load(std::string_view text, Source source = Source::bytes) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  DataBuffer bytes;
  bytes.append(text);
  SystemCerts certs;
  LogNull log;
  EmailPtr root(source == Source::pop3
                    ? Email2::createFromPop3(*common, bytes, true, certs, log)
                    : Email2::createFromMimeDb(*common, bytes, true, true, certs, log, false));
  require(root != nullptr, "any bytes load");
  return root;
}

/// Any tree can be written.
inline std::string write(Email2& root, bool qpFor8bit) {
  StringBuffer text;
  LogNull log;
  ProgressContext progress(nullptr);
  require(root.assembleMimeBody2(text, nullptr, false, "SVX-", progress, log, 0, qpFor8bit, true),
          "writing works");
  return text.extractString();
}

/// Whether loading had to mend anything: a message that was broken may become a different one with every
/// repair, such as a label that says what its text was found to be.
inline bool wasMended(const Email2& node) {
  if (!node.m_repairs.isEmpty()) return true;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (wasMended(*node.getPartConst(i))) return true;
  return false;
}

/// What was written loads, and where nothing had to be mended, writing it again gives the same bytes.
inline void requireSettles(std::string_view written, bool qpFor8bit) {
  const EmailPtr second = load(written);
  const std::string twice = write(*second, qpFor8bit);
  const EmailPtr third = load(twice);
  if (!wasMended(*second) && !wasMended(*third))
    require(write(*third, qpFor8bit) == twice, "writing settles");
}

}  // namespace mailtree::fuzz
