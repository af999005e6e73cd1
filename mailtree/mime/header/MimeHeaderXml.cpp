// mime/header/MimeHeaderXml.cpp - a header as XML elements.
#include <set>
#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/base/Xml.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/header/HeaderValue.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {
namespace {

constexpr std::string_view kBcc = "bcc";
constexpr std::string_view kInternalPrefix = "SVZ-";

/// The elements of one header. A failed allocation of an element makes the final result false.
class HeaderToXml {
 public:
  HeaderToXml(const MimeHeader& header, const ExtPtrArray* bcc, ClsXml& element) noexcept
      : m_header(header), m_bcc(bcc), m_element(element) {}

  bool run() {
    for (int i = 0; i < m_header.getNumFields(); ++i) addField(i);
    if (m_bcc && m_bcc->getSize() > 0) addBcc();
    return m_complete;
  }

 private:
  void addField(int index) {
    const std::string_view name = m_header.fieldName(index);
    if (name.empty() || beginsWithNoCase(name, kInternalPrefix)) return;
    if (equalsNoCase(name, kBcc)) return addBcc();
    ExtPtrArray addresses;
    if (grammarOf(name) == FieldGrammar::addresses) readAddresses(index, addresses);
    const XmlHandle field = newChild(m_element, lowerCase(name), {});
    if (!field) return;
    if (addresses.getSize() > 0)
      addPairs(*field, addresses);
    else
      field->takeContent(m_header.decodedValue(index));
  }

  /// Once for the whole header, at the first field: the list usually holds the same addresses as the fields,
  /// unless one of them was changed.
  void addBcc() {
    if (m_hasBcc) return;
    m_hasBcc = true;
    const XmlHandle field = newChild(m_element, kBcc, {});
    if (!field) return;
    std::set<std::string> seen;
    if (m_bcc) addPairs(*field, *m_bcc, &seen);
    for (int i = m_header.findField(kBcc); i >= 0; i = m_header.findField(kBcc, i + 1)) {
      ExtPtrArray addresses;
      readAddresses(i, addresses);
      addPairs(*field, addresses, &seen);
      if (addresses.getSize() == 0 && seen.empty()) field->takeContent(m_header.decodedValue(i));
    }
  }

  void readAddresses(int index, ExtPtrArray& addresses) const {
    std::string scratch;
    _svEmailAddress::parseAndLoadList(m_header.unfoldedValue(index, scratch), addresses);
  }

  /// @param seen  addresses that are not added again; may be null.
  void addPairs(ClsXml& field, const ExtPtrArray& addresses, std::set<std::string>* seen = nullptr) {
    for (int i = 0; i < addresses.getSize(); ++i) {
      const auto* const address = addresses.at<_svEmailAddress>(i);
      if (!address || (seen && !seen->insert(lowerCase(address->m_address.view())).second)) continue;
      newChild(field, "addr", address->m_address.view());
      newChild(field, "name", address->m_name.view());
    }
  }

  XmlHandle newChild(ClsXml& parent, std::string_view tag, std::string_view content) {
    XmlHandle child(parent.newChild(tag, content));
    m_complete = m_complete && child;
    return child;
  }

  const MimeHeader& m_header;
  const ExtPtrArray* m_bcc;
  ClsXml& m_element;
  bool m_hasBcc = false;
  bool m_complete = true;
};

}  // namespace

bool MimeHeader::mimeHeaderToXml(ClsXml& element, int, ExtPtrArray* bccAddresses, LogBase& log) const {
  const bool added = neverThrow(false, [&] { return HeaderToXml(*this, bccAddresses, element).run(); });
  if (!added) log.logError("Out of memory while adding a header to XML.");
  return added;
}

}  // namespace mailtree
