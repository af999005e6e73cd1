// Operations on whole messages: cloning, replacing, replying, related items, attached messages,
// reports, XML. The input is a message, a NUL and the operations. Afterwards the tree can be written,
// loaded and written again.
#include <algorithm>
#include <memory>
#include <string>

#include "fuzz/messages.h"
#include "fuzz/tape.h"
#include "mailtree/base/Utf.h"

using namespace mailtree;
using fuzz::load;
using fuzz::Tape;
using fuzz::write;

namespace {

constexpr int kMaxOperations = 12;
constexpr const char* kItemNames[] = {"a.png", "b.html", "noextension", "c.unheard-of", ""};
constexpr const char* kItemTypes[] = {nullptr, "image/png", "text/css", "text/html"};
constexpr const char* kFields[] = {"Final-Recipient", "Action", "Subject", "Content-Type",
                                   "Content-Disposition"};
constexpr const char* kParameters[] = {"filename", "charset", "name", "boundary"};
constexpr const char* kTerms[] = {"body", "Subject", "from", ""};
constexpr int kMaxMessages = 8;

class Transformer {
 public:
  Transformer(EmailPtr root, Tape& tape) : m_root(std::move(root)), m_tape(tape) {}

  Email2& run() {
    using Operation = void (Transformer::*)();
    static constexpr Operation kOperations[] = {
        &Transformer::clone,       &Transformer::replace,        &Transformer::reply,
        &Transformer::forward,     &Transformer::toMht,          &Transformer::tidy,
        &Transformer::render,      &Transformer::readMessages,   &Transformer::removeMessage,
        &Transformer::readReport,  &Transformer::addItem,        &Transformer::dropItem,
        &Transformer::fixRelated,  &Transformer::addCalendar,    &Transformer::moveText,
        &Transformer::supplyTerms, &Transformer::readAttributes, &Transformer::readDigest,
    };
    for (int i = 0; i < kMaxOperations && !m_tape.isAtEnd(); ++i) (this->*m_tape.pick(kOperations))();
    return *m_root;
  }

 private:
  void clone() {
    const EmailPtr copy(m_root->clone_v3(m_tape.byte() % 2 == 0, m_log));
    fuzz::require(copy && copy->m_common != m_root->m_common, "a clone has its own settings");
    fuzz::require(write(*copy, false) == write(*m_root, false), "a clone is written like its source");
  }

  void replace() {
    ExtPtrArray pairs;
    for (int i = m_tape.byte() % 3; i >= 0; --i) {
      const std::string key = m_tape.text(), value = m_tape.text();
      pairs.appendObject(new StringPair(key.c_str(), value.c_str()));
    }
    EmailPtr copy(m_root->cloneAndReplace_v3(/*shareImageData=*/false, pairs, m_log));
    fuzz::require(copy != nullptr, "terms can be replaced");
    m_root = std::move(copy);
  }

  void reply() { m_root->convertToReply(m_log); }
  void forward() { m_root->convertToForward(m_log); }

  void toMht() {
    StringBuffer html;
    const std::string before = write(*m_root, false);
    const EmailPtr page(m_root->cloneToMht2(html, m_log));
    fuzz::require(page != nullptr, "a web archive can be made");
    fuzz::require(write(*m_root, false) == before, "its source is unchanged");
    write(*page, false);
  }

  void tidy() {
    m_root->removeAttachmentPaths(m_log);
    m_root->unSpamify(m_log);
    m_root->safeguardBodies(m_log);
  }

  void render() {
    StringBuffer xml, scratch;
    fuzz::require(m_root->getEmailXml(m_tape.byte() % 2 == 0, xml, m_log), "a message becomes XML");
    fuzz::require(isValidUtf8(xml.view()), "XML is utf-8");
    LogMemory structure;
    m_root->logEmailStructure(scratch, structure);
    m_root->logContentTypeAndEncoding(structure);
  }

  void readMessages() {
    SystemCerts certs;
    const int count = m_root->getNumAttachedMessages(m_log);
    for (int i = 0; i < std::min(count, kMaxMessages); ++i) {
      int counter = 0;
      const EmailPtr message(m_root->getAttachedMessage(i, counter, certs, m_log));
      fuzz::require(message != nullptr, "every counted message can be loaded");
    }
    int counter = 0;
    fuzz::require(!m_root->getAttachedMessage(count, counter, certs, m_log),
                  "an index past the end gives nothing");
  }

  void removeMessage() {
    const int before = m_root->getNumAttachedMessages(m_log);
    const bool removed = m_root->removeAttachedMessage(m_tape.index());
    fuzz::require(m_root->getNumAttachedMessages(m_log) == before - (removed ? 1 : 0), "one message fewer");
  }

  void readDigest() {
    SystemCerts certs;
    const int count = m_root->getNumDigests();
    const int index = m_tape.index();
    const EmailPtr entry(m_root->getNthDigest(index, certs, m_log));
    fuzz::require((entry != nullptr) == (index >= 0 && index < count),
                  "a digest gives exactly the messages it counts");
  }

  void readReport() {
    const int count = m_root->getNumReports();
    const int index = m_tape.index();
    StringBuffer report;
    if (index >= count)
      fuzz::require(!m_root->getReport(index, m_log, report), "an index past the end gives nothing");
    XString field;
    ClsStringArray recipients;
    m_root->getDeliveryStatusInfo(m_tape.pick(kFields), field, m_log);
    m_root->getDsnFinalRecipients(recipients, m_log);
    m_root->getDeliveryStatusContent(field, m_log);
  }

  void readAttributes() {
    int counter = 0;
    XString field, attribute, value;
    field.setFromUtf8(m_tape.pick(kFields));
    attribute.setFromUtf8(m_tape.pick(kParameters));
    m_root->getAttachedMessageAttr(m_tape.index(), counter, field, attribute, m_log, value);
    m_root->getHeaderFieldAttr(field.getUtf8(), attribute.getUtf8(), value, m_log);
  }

  void addItem() {
    DataBuffer data;
    data.append(m_tape.text());
    const char* const name = m_tape.pick(kItemNames);
    Email2* const item =
        m_tape.byte() % 2 == 0
            ? Email2::createRelatedFromDataUtf8(*m_root->m_common, name, m_tape.pick(kItemTypes), data, m_log)
            : Email2::createRelatedFromDataNoCid(*m_root->m_common, name, data, m_log);
    fuzz::require((item != nullptr) == (*name != '\0'), "an item is made exactly when it has a name");
    m_root->addRelatedContent(item, m_log);
    if (item) requireItems();
  }

  void dropItem() {
    if (m_tape.byte() % 4 == 0)
      m_root->dropRelatedItems();
    else
      m_root->dropRelatedItem(m_tape.index());
    requireItems();
  }

  void requireItems() {
    const int count = m_root->getNumRelatedItems(m_log);
    for (int i = 0; i < count; ++i)
      fuzz::require(m_root->getRelatedItem(i, m_log), "every counted item is found");
    fuzz::require(!m_root->getRelatedItem(count, m_log), "an index past the end gives nothing");
  }

  void fixRelated() { m_root->fixRelated(m_log); }

  void addCalendar() {
    DataBuffer data;
    data.append(m_tape.text());
    const std::string method = m_tape.text();
    EmailPtr part(
        Email2::createCalendarAlternativeUtf8(*m_root->m_common, data, method.c_str(), 65001, m_log));
    fuzz::require(part && data.getSize() == 0, "a calendar moves its data");
    if (m_root->addReplaceAlternative(part.get(), "text/calendar", m_log)) static_cast<void>(part.release());
  }

  void moveText() { m_root->moveMtMixedPlainTextToAlt(m_log); }

  void supplyTerms() {
    StringBuffer out;
    ExpressionTermSource& terms = *m_root;
    terms.supplyTermValue(m_tape.pick(kTerms), out);
  }

  EmailPtr m_root;
  Tape& m_tape;
  LogNull m_log;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const std::size_t end = std::min(input.find('\0'), input.size());
  Tape tape(input.substr(std::min(end + 1, input.size())));
  Transformer transformer(load(input.substr(0, end)), tape);
  const bool option = size % 2 == 1;
  fuzz::requireStable(write(transformer.run(), option), option);
  return 0;
}
