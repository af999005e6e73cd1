// email/structure/reports.cpp - the parts of delivery and feedback reports, and delivery-status fields.
#include "mailtree/email/structure/enclosure_walk.h"

namespace mailtree {
namespace {

/// Types accepted as a delivery status, best first.
constexpr const char* kDeliveryStatusTypes[] = {"message/delivery-status", "message/disposition-notification",
                                                "message/feedback-report"};

struct ReportVisitor : EnclosureVisitor {
  bool isWanted(const Email2& node) const { return node.isReportPart(); }
  bool isNested(const Email2& child) const { return child.isMultipartMixed() || child.isMultipartReport(); }
};

struct ReportCount : ReportVisitor {
  int count = 0;
  bool take(const Email2&, const WalkLevel*) noexcept {
    ++count;
    return false;
  }
};

/// Finds the part at a position, counted per enclosure.
class ReportAt : public ReportVisitor {
 public:
  explicit ReportAt(int index) noexcept : m_index(index) {}
  const Email2* part() const noexcept { return m_part; }

  bool take(const Email2& part, WalkLevel* enclosure) noexcept {
    const int position = enclosure ? enclosure->count++ : 0;
    if (position == m_index) m_part = &part;
    return m_part != nullptr;
  }

 private:
  int m_index;
  const Email2* m_part = nullptr;
};

const Email2* findDeliveryStatus(const Email2& root) {
  for (const char* type : kDeliveryStatusTypes)
    if (const Email2* part = root.findContentType(type)) return part;
  return nullptr;
}

/// Reads the decoded delivery status; false after logging an error.
bool readDeliveryStatus(const Email2& root, const char* whenMissing, DataBuffer& out, LogBase& log) {
  const Email2* const part = findDeliveryStatus(root);
  if (!part) {
    log.logError(whenMissing);
    return false;
  }
  part->getEffectiveBodyData(*part, out, log);
  if (out.isEmpty()) log.logError("Delivery-status information is empty");
  return !out.isEmpty();
}

/// The same with CRLF line breaks.
bool readDeliveryStatusLines(const Email2& root, const char* whenMissing, StringBuffer& out, LogBase& log) {
  DataBuffer bytes;
  return readDeliveryStatus(root, whenMissing, bytes, log) && out.append(bytes) && out.toCRLF();
}

/// Removes one empty line between blocks, half of several. Returns how many were removed.
std::size_t joinBlocks(StringBuffer& text) { return text.replaceAllOccurances("\r\n\r\n", "\r\n"); }

}  // namespace

bool Email2::isReportPart() const {
  const std::string_view type = mediaType(this);
  if (equalsNoCase(type, "message/rfc822")) return false;
  return beginsWithNoCase(type, "message/") || beginsWithNoCase(type, "text/rfc822-headers");
}

int Email2::getNumReports() {
  if (!isLive()) return 0;
  return neverThrow(0, [&] {
    ReportCount visitor;
    walkEnclosures(*this, visitor);
    return visitor.count;
  });
}

bool Email2::getReport(int index, LogBase&, StringBuffer& out) {
  out.weakClear();
  if (!isLive()) return false;
  return neverThrow(false, [&] {
    ReportAt visitor(index);
    return walkEnclosures(*this, visitor) && out.append(visitor.part()->m_body);
  });
}

bool Email2::getHeaderFieldAttr(const char* fieldName, const char* attrName, XString& out, LogBase& log) {
  out.clear();
  return isLive() && m_header.getSubFieldUtf8(fieldName, attrName, out.getUtf8Sb_rw(), log);
}

bool Email2::getDeliveryStatusInfo(const char* fieldName, XString& out, LogBase& log) {
  out.clear();
  if (!isLive()) return false;
  LogContextExitor context(log, "getDeliveryStatusInfo");
  StringBuffer text;
  if (!readDeliveryStatusLines(*this, "No message/delivery-status MIME part found (1)", text, log))
    return false;
  while (joinBlocks(text) > 0) continue;  // each round halves the longest run of empty lines
  MimeHeader fields;
  fields.loadMimeHeaderText(text, log);
  fields.getMimeFieldUtf8(fieldName, out.getUtf8Sb_rw(), log);
  return !out.isEmpty();
}

bool Email2::getDsnFinalRecipients(ClsStringArray& out, LogBase& log) {
  if (!isLive()) return false;
  LogContextExitor context(log, "getDsnFinalRecipients");
  StringBuffer text;
  if (!readDeliveryStatusLines(*this, "No message/delivery-status MIME part found (2)", text, log))
    return false;
  joinBlocks(text);  // Deliberate: only once, so two consecutive empty lines end the fields.
  MimeHeader fields;
  fields.loadMimeHeaderText(text, log);
  return neverThrow(false, [&] {
    for (int i = fields.findField("final-recipient"); i >= 0;
         i = fields.findField("final-recipient", i + 1)) {
      std::string recipient = fields.decodedValue(i);
      constexpr std::string_view kType = "RFC822;";
      if (const std::size_t at = findNoCase(recipient, kType); at != std::string::npos)
        recipient.erase(at, kType.size());
      if (!out.appendUtf8(trim(recipient))) return false;
    }
    return true;
  });
}

bool Email2::getDeliveryStatusContent(XString& out, LogBase& log) {
  out.clear();
  if (!isLive()) return false;
  LogContextExitor context(log, "getDeliveryStatusContent");
  DataBuffer bytes;
  return readDeliveryStatus(*this, "No message/delivery-status MIME part found (3)", bytes, log) &&
         out.appendAnsiN(bytes.view().data(), bytes.getSize());
}

}  // namespace mailtree
