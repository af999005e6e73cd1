// email/output/diagnostics.cpp - logs the structure of a tree.
#include <vector>

#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

void logUnlessEmpty(LogBase& log, std::string_view tag, const StringBuffer& text) {
  if (!text.isEmpty()) log.LogDataSb(tag, text);
}

void logFields(Email2& node, LogBase& log) {
  LogNull quiet;
  StringBuffer from, subject, contentType;
  _svCharset none;
  node.getFromFullUtf8(from, quiet);
  node.m_header.getMimeFieldUtf8("Subject", subject, quiet);
  node.m_contentType.buildMimeHeaderValue(contentType, node.m_common ? node.m_common->m_charset : none,
                                          /*withFlowed=*/true, /*withName=*/true, log);
  logUnlessEmpty(log, "From", from);
  logUnlessEmpty(log, "Subject", subject);
  logUnlessEmpty(log, "ContentType", contentType);
  logUnlessEmpty(log, "ContentTransferEncoding", node.m_transferEncoding);
  logUnlessEmpty(log, "Filename", node.m_dispFilename);
  logUnlessEmpty(log, "Name", node.m_contentType.m_name);
  log.LogDataLong("bodySize", static_cast<std::int64_t>(node.m_body.getSize()));
}

/// The walk uses its own stack, so a tree may have any depth. Log contexts nest as the nodes do.
class StructureLog {
 public:
  StructureLog(StringBuffer& scratch, LogBase& log) noexcept : m_scratch(scratch), m_log(log) {}
  StructureLog(const StructureLog&) = delete;
  StructureLog& operator=(const StructureLog&) = delete;
  ~StructureLog() {
    while (!m_open.empty()) leave();
  }

  void write(Email2& root) {
    enter(root);
    while (!m_open.empty()) {
      Level& level = m_open.back();
      if (level.next == level.node->getNumParts())
        leave();
      else if (Email2* const part = level.node->getPart(level.next++))
        enter(*part);
    }
  }

 private:
  struct Level {
    Email2* node;
    int next = 0;
  };

  void enter(Email2& node) {
    if (!node.isLive()) return;
    m_scratch.setString(node.m_contentType.m_type);
    m_scratch.replaceCharAnsi('/', '_');
    m_open.push_back({&node});
    m_log.openContext(m_scratch);
    logFields(node, m_log);
  }

  void leave() {
    m_log.closeContext();
    m_open.pop_back();
  }

  StringBuffer& m_scratch;
  LogBase& m_log;
  std::vector<Level> m_open;
};

}  // namespace

void Email2::logEmailStructure(StringBuffer& scratch, LogBase& log) {
  if (!isLive()) return;
  neverThrow(false, [&] {
    StructureLog(scratch, log).write(*this);
    return true;
  });
}

void Email2::logContentTypeAndEncoding(LogBase& log) {
  if (!isLive()) return;
  LogNull quiet;
  StringBuffer contentType, encoding;
  m_header.getMimeFieldUtf8("content-type", contentType, quiet);
  m_header.getMimeFieldUtf8("content-transfer-encoding", encoding, quiet);
  log.LogDataSb("m_encoding", m_transferEncoding);
  log.LogDataSb("contentTypeHdr", contentType);
  log.LogDataSb("contentTransferEncodingHdr", encoding);
}

}  // namespace mailtree
