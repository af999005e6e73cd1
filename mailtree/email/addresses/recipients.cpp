#include "mailtree/email/Email2.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "mailtree/base/Platform.h"
#include "mailtree/email/addresses/unused.h"

namespace mailtree {
namespace {

using RecipientList = ExtPtrArray Email2::*;

constexpr RecipientList kTo = &Email2::m_toAddrs;
constexpr RecipientList kCc = &Email2::m_ccAddrs;
constexpr RecipientList kBcc = &Email2::m_bccAddrs;

/// The list and field that each group of operations uses for a recipient kind; null where nothing is written.
struct KindRow {
  RecipientList counted;     ///< By getNumRecipients and addRecipientsForType.
  RecipientList read;        ///< By getRecipient... and addRecipientsForType.
  RecipientList emitted;     ///< By getAllRecipients.
  RecipientList changed;     ///< By addRecipient, addMultipleRecip and clearRecipients.
  const char* cleared;       ///< Field removed by clearRecipients.
  const char* addedOne;      ///< Field rewritten by addRecipient.
  const char* addedSeveral;  ///< Field rewritten by addMultipleRecip.
};

// Deliberate: other numbers mean To in some operations and Bcc in others, and never rewrite a field. Nor do
// several Bcc recipients.
constexpr KindRow kOther{kTo, kBcc, nullptr, kTo, "To", nullptr, nullptr};
constexpr KindRow kKinds[] = {
    {kTo, kTo, kTo, kTo, "To", "To", "To"},
    {kCc, kCc, kCc, kCc, "Cc", "Cc", "CC"},
    {kBcc, kBcc, kBcc, kBcc, "bcc", "Bcc", nullptr},
};

constexpr int numberOf(RecipientKind kind) noexcept { return static_cast<int>(kind); }
static_assert(numberOf(RecipientKind::to) == 1 && numberOf(RecipientKind::bcc) == std::size(kKinds));

constexpr const KindRow& rowOf(int kind) noexcept {
  return kind >= numberOf(RecipientKind::to) && kind <= numberOf(RecipientKind::bcc) ? kKinds[kind - 1]
                                                                                     : kOther;
}

_svEmailAddress* entryOf(const Email2& email, int kind, int index) noexcept {
  return (email.*rowOf(kind).read).at<_svEmailAddress>(index);
}

/// Renders a list as the final value of a header field of this email.
void emitList(Email2& email, const ExtPtrArray& list, StringBuffer& out, LogBase& log) {
  const int codePage = email.emailCodePage();
  _svEmailAddress::emitAsMimeField(list, codePage, true, /*forHeader=*/true,
                                   email.qbChooseForEmailAddrEncoding(codePage), out, log);
}

constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15;

std::uint64_t mixHash(std::uint64_t hash, std::string_view text) noexcept {
  hash ^= text.size();
  while (!text.empty()) {
    std::uint64_t word = 0;
    const std::size_t size = std::min(text.size(), sizeof word);
    std::memcpy(&word, text.data(), size);
    hash = std::rotl((hash ^ word) * kMultiplier, 29);
    text.remove_prefix(size);
  }
  return hash * kMultiplier;
}

std::uint64_t mixHash(std::uint64_t hash, const _svEmailAddress* entry) noexcept {
  return entry ? mixHash(mixHash(hash, entry->m_name.view()), entry->m_address.view()) : hash;
}

/// Hash of the first entries of a list, much cheaper than rendering them.
std::uint64_t hashOf(const ExtPtrArray& list, int count) noexcept {
  std::uint64_t hash = 0;
  for (int i = 0; i < count; ++i) hash = mixHash(hash, list.at<_svEmailAddress>(i));
  return hash;
}

/// Whether the field was written from all entries but the last and neither has changed since. A single entry
/// may be written differently from a list.
bool canExtendField(const Email2& email, const char* field, int kind, int codePage, const ExtPtrArray& list) {
  const RenderedRecipients& then = email.m_common->m_rendered;
  const int before = list.getSize() - 1;
  return before > 1 && then.node == &email && then.kind == kind && then.codePage == codePage &&
         then.count == before &&
         then.value.view() == email.m_header.rawValue(email.m_header.findField(field)) &&
         then.entriesHash == hashOf(list, before);
}

/// The field value for the whole list, extended by one entry when possible, else rendered again.
void renderField(Email2& email, const char* field, int kind, StringBuffer& value, LogBase& log) {
  const RecipientList emitted = rowOf(kind).emitted;
  if (!email.m_common || !emitted) return email.getAllRecipients(kind, value, log);
  const ExtPtrArray& list = email.*emitted;
  const int codePage = email.emailCodePage();
  const auto* last = list.at<_svEmailAddress>(list.getSize() - 1);
  RenderedRecipients& rendered = email.m_common->m_rendered;
  if (last && canExtendField(email, field, kind, codePage, list)) {
    last->emitAsNextInMimeField(codePage, email.qbChooseForEmailAddrEncoding(codePage), rendered.value, log);
    rendered.entriesHash = mixHash(rendered.entriesHash, last);
    rendered.count = list.getSize();
  } else {
    StringBuffer whole;
    email.getAllRecipients(kind, whole, log);
    rendered = {&email, kind, codePage, list.getSize(), hashOf(list, list.getSize()), std::move(whole)};
  }
  value.setString(rendered.value.view());
}

/// Rewrites a field from the whole list of its kind; null: no field. False, with the field unchanged, when
/// memory ran out.
bool rewriteField(Email2& email, const char* field, int kind, LogBase& log) {
  if (!field) return true;
  const std::uint64_t before = abandonedOperations();
  StringBuffer value;
  renderField(email, field, kind, value, log);
  if (abandonedOperations() != before) return false;
  email.m_header.replaceMimeFieldUtf8_a(field, value.getString(), /*asGiven=*/true, /*ordinary=*/true, log);
  return abandonedOperations() == before;
}

/// Removes entries that were just added.
void dropLast(ExtPtrArray& list, int count) noexcept {
  while (count-- > 0) const Owned<SorvikObject> dropped(list.removeAt(list.getSize() - 1));
}

/// A Bcc field would show hidden recipients to everyone, so it is only written on request.
bool mayWriteField(int kind, const LogBase& log) noexcept {
  return kind != numberOf(RecipientKind::bcc) || log.hasOption("UseBccHeader");
}

void appendJoined(const ExtPtrArray& list, StringBuffer& out) {
  for (int i = 0; i < list.getSize(); ++i) {
    if (!out.isEmpty()) out.appendChar(',');
    if (const auto* entry = list.at<_svEmailAddress>(i)) out.append(entry->m_address.getUtf8Sb());
  }
}

/// The texts of a list, for fast look-up.
using TextSet = std::unordered_set<std::string_view>;

TextSet textsOf(const ExtPtrArraySb& list) {
  TextSet texts;
  for (int i = 0; i < list.getSize(); ++i) texts.insert(*list.sbAt(i));
  return texts;
}

/// Appends a text unless the list contains it; false when memory ran out.
bool appendUnique(Owned<StringBuffer> text, ExtPtrArraySb& out, TextSet& known) {
  if (!known.insert(*text).second) return true;
  if (!out.appendSb(text.get())) return false;
  std::ignore = text.release();  // the list owns it now
  return true;
}

}  // namespace

bool Email2::addRecipient(int kind, const char* name, const char* address, LogBase& log) {
  if (!isLive() || viewOf(address).empty()) return false;
  const std::uint64_t before = abandonedOperations();
  Owned<_svEmailAddress> recipient(_svEmailAddress::createNewObject());
  if (!recipient) return false;
  if (name) recipient->m_name.appendUtf8(name);
  recipient->m_name.trim2();
  recipient->m_address.appendUtf8(address);
  recipient->m_address.trim2();

  if (abandonedOperations() != before) return false;

  const KindRow& row = rowOf(kind);
  ExtPtrArray& list = this->*row.changed;
  if (!list.appendObject(recipient.get())) return false;
  std::ignore = recipient.release();  // the list owns it now
  if (!mayWriteField(kind, log) || rewriteField(*this, row.addedOne, kind, log)) return true;
  dropLast(list, 1);
  return false;
}

int Email2::addMultipleRecip(int kind, const char* list, LogBase& log) {
  if (!isLive() || !list) return 0;
  reportUnused(list, UsedAddresses::all, log);
  const KindRow& row = rowOf(kind);
  const std::uint64_t before = abandonedOperations();
  const int added = _svEmailAddress::parseAndLoadList(list, this->*row.changed, /*relaxed=*/false, log);
  const bool isWhole = abandonedOperations() == before;
  if (isWhole && (added == 0 || rewriteField(*this, row.addedSeveral, kind, log))) return added;
  dropLast(this->*row.changed, added);
  return 0;
}

void Email2::copyRecipients(Email2& source) {
  if (!isLive() || !source.isLive()) return;
  LogNull quiet;
  for (const RecipientKind kind : {RecipientKind::to, RecipientKind::cc, RecipientKind::bcc}) {
    const ExtPtrArray& list = source.*rowOf(numberOf(kind)).read;
    if (list.getSize() == 0) continue;
    StringBuffer value;
    emitList(*this, list, value, quiet);
    addMultipleRecip(numberOf(kind), value.getString(), quiet);
  }
}

void Email2::clearRecipients(int kind) {
  if (!isLive()) return;
  const KindRow& row = rowOf(kind);
  (this->*row.changed).removeAllObjects();
  m_header.removeMimeField(row.cleared, /*all=*/true);
}

void Email2::clearBccFromHeader() {
  if (isLive()) m_header.removeMimeField("bcc", /*all=*/true);
}

int Email2::getNumRecipients(int kind) const { return isLive() ? (this->*rowOf(kind).counted).getSize() : 0; }

bool Email2::getRecipientFullUtf8(int kind, int index, StringBuffer& out, LogBase& log) {
  const _svEmailAddress* entry = isLive() ? entryOf(*this, kind, index) : nullptr;
  if (!entry) return false;
  entry->emitSelfAsMimeField(kCpUtf8, true, /*forHeader=*/false, /*useQ=*/true, out, log);
  return true;
}

bool Email2::getRecipientNameUtf8(int kind, int index, StringBuffer& out) {
  const _svEmailAddress* entry = isLive() ? entryOf(*this, kind, index) : nullptr;
  if (!entry) return false;
  out.append(entry->m_name.getUtf8Sb());
  return true;
}

bool Email2::getRecipientAddrUtf8(int kind, int index, StringBuffer& out) {
  const _svEmailAddress* entry = isLive() ? entryOf(*this, kind, index) : nullptr;
  if (!entry) return false;
  out.append(entry->m_address.getUtf8Sb());
  return true;
}

void Email2::getAllRecipients(int kind, StringBuffer& out, LogBase& log) {
  const RecipientList list = rowOf(kind).emitted;
  if (isLive() && list) emitList(*this, this->*list, out, log);
}

void Email2::getAllRecipientAddresses(StringBuffer& out) {
  if (!isLive()) return;
  out.clear();
  for (const KindRow& row : kKinds) appendJoined(this->*row.read, out);
}

bool Email2::getAllRecipientAddressesA(ExtPtrArraySb& out, const ExtPtrArray& replacements, LogBase& log) {
  if (!isLive()) return false;
  LogContextExitor context(log, "getAllRecipientAddressesA");
  for (const RecipientKind kind : {RecipientKind::to, RecipientKind::cc, RecipientKind::bcc})
    if (!addRecipientsForType(numberOf(kind), out, replacements, log)) return false;
  return true;
}

bool Email2::addRecipientsForType(int kind, ExtPtrArraySb& out, const ExtPtrArray& replacements,
                                  LogBase& log) {
  if (!isLive()) {
    Psdk::badObjectFound(this);
    return false;
  }
  // Deliberate: the same name as the caller's context; both appear in the log.
  LogContextExitor context(log, "getAllRecipientAddressesA");
  return neverThrow(false, [&] {
    const int count = getNumRecipients(kind);
    TextSet known = textsOf(out);
    for (int i = 0; i < count; ++i) {
      // Deliberate: for other numbers, entries are counted in To and read from Bcc.
      const _svEmailAddress* entry = entryOf(*this, kind, i);
      if (!entry) return false;
      Owned<StringBuffer> address(new StringBuffer(entry->m_address.getUtf8Sb()));
      if (address->isEmpty()) continue;
      replaceStringsSb(replacements, *address);
      if (!appendUnique(std::move(address), out, known)) return false;
    }
    return true;
  });
}

void Email2::replaceStringsSb(const ExtPtrArray& replacements, StringBuffer& text) {
  for (int i = 0; i < replacements.getSize(); ++i)
    if (const auto* pair = replacements.at<StringPair>(i))
      text.replaceAllOccurances(pair->getKey(), pair->getValue());
}

}  // namespace mailtree
