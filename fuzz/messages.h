// fuzz/messages.h - loading and writing, for the targets that work on whole messages.
#pragma once

#include <string>
#include <string_view>

#include "fuzz/target.h"
#include "mailtree/email/Email2.h"

namespace mailtree::fuzz {

enum class Source { bytes, pop3 };

/// Any input loads.
inline EmailPtr load(std::string_view text, Source source = Source::bytes) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  DataBuffer bytes;
  bytes.append(text);
  SystemCerts certs;
  LogNull log;
  EmailPtr root(source == Source::pop3
                    ? Email2::createFromPop3(*common, bytes, true, certs, log)
                    : Email2::createFromMimeDb(*common, bytes, true, true, certs, log, false));
  require(root != nullptr, "any input loads");
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

/// Whether loading repaired anything: a repaired message may differ from what was written, for
/// example in a charset label.
inline bool wasRepaired(const Email2& node) {
  if (!node.m_repairs.isEmpty()) return true;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (wasRepaired(*node.getPartConst(i))) return true;
  return false;
}

/// Output can be loaded, and where nothing had to be repaired, writing it again gives the same bytes.
inline void requireStable(std::string_view written, bool qpFor8bit) {
  const EmailPtr second = load(written);
  const std::string twice = write(*second, qpFor8bit);
  const EmailPtr third = load(twice);
  if (!wasRepaired(*second) && !wasRepaired(*third))
    require(write(*third, qpFor8bit) == twice, "output is stable");
}

}  // namespace mailtree::fuzz
