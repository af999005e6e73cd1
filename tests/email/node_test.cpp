#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <sstream>
#include <string>

#include "mailtree/base/Platform.h"
#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/identities.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

/// Destroys an object in place. Its type stays readable, which is what sanitizers ask for before a call;
/// everything else is as the destructor left it.
template <class Object>
void destroy(Object& object) {
  void* type;  // the virtual table, where every object of a polymorphic type begins
  std::memcpy(&type, static_cast<const void*>(&object), sizeof type);
  object.~Object();
  std::memcpy(static_cast<void*>(&object), &type, sizeof type);
}

TEST(Node, new_message_has_six_fields_in_order_and_a_bare_node_none_but_both_are_dated_now) {
  const EmailPtr email(new Email2);
  EXPECT_EQ(writtenHeader(*email), "MIME-Version: 1.0\r\nDate: " + fieldOf(*email, "Date") +
                                       "\r\nMessage-ID: " + fieldOf(*email, "Message-ID") +
                                       "\r\nContent-Type: text/plain\r\n"
                                       "Content-Transfer-Encoding: 7bit\r\nX-Priority: 3 (Normal)");
  EXPECT_EQ(disagreeingFields(*email), "");
  const EmailPtr bare(Email2::createNewObject00());
  EXPECT_EQ(bare->getNumHeaderFields(), 0);
  SorvikSysTime now;
  now.getCurrentGmt();
  for (const SorvikSysTime& date : {email->m_date, bare->m_date})
    EXPECT_TRUE(std::abs(now.toUnixTime() - date.toUnixTime()) <= 5 && date.m_isUtc);
}

/// Whether a node is valid though one of these members is destroyed.
template <class... Member>
bool isValidWithoutOneOf(Email2& node, Member Email2::*... members) {
  const auto isValidWithout = [&](auto& member) {
    destroy(member);
    const bool isValid = node.isValidEmailObject();
    new (&member) std::remove_reference_t<decltype(member)>;
    return isValid;
  };
  return (isValidWithout(node.*members) || ...);
}

TEST(Node, is_invalid_when_any_marked_member_is_destroyed) {
  const EmailPtr email(new Email2);
  EXPECT_FALSE(isValidWithoutOneOf(
      *email, &Email2::m_disposition, &Email2::m_transferEncoding, &Email2::m_contentId,
      &Email2::m_dispFilename, &Email2::m_body, &Email2::m_header, &Email2::m_subParts, &Email2::m_toAddrs,
      &Email2::m_ccAddrs, &Email2::m_bccAddrs, &Email2::m_fromAddr, &Email2::m_date));
  EXPECT_TRUE(email->isValidEmailObject());
}

TEST(Node, a_destroyed_node_has_no_settings) {
  alignas(Email2) std::byte storage[sizeof(Email2)];  // outlives the node, so that looking at it is no crime
  Email2& node = *new (storage) Email2;
  destroy(node);
  EXPECT_FALSE(node.isValidEmailObject() || node.getNumParts() || node.getPart(0));
  EXPECT_TRUE(node.getOverwriteExisting() && node.getIdOnServer() == -1 && node.traits().type.empty());
  EXPECT_STREQ(node.get_charset_name(), "");
}

TEST(Node, operations_on_a_dead_node_give_nothing_change_nothing_and_log_no_message) {
  const EmailPtr whole = load(
      "From: a@x.org\nTo: b@x.org\nSubject: s\nReply-To: c@x.org\nX-Mailer: m\n"
      "Date: Sat, 21 Nov 2026 08:30:00 +0100\nContent-Type: multipart/mixed; boundary=b; name=n\n\n--b\n"
      "Content-Type: text/plain\n\nx\n--b\nContent-Type: application/pdf\n\nx\n--b--\n");
  Email2& node = *whole;
  const std::string written = write(node);
  const EmailPtr other(new Email2);
  LogMemory log;
  log.m_verboseLogging = true;
  StringBuffer out("untouched");
  XString outX("untouched");
  DataBuffer bytes;
  SorvikSysTime time;
  _svCharset charset;
  ExtPtrArray list;
  ExtPtrArraySb texts;
  _svParentEmailPtr place;
  int count = 7;
  {
    const Killed dead(node);
    for (const auto act : {&Email2::minimizeMemUsage, &Email2::removeAllSubparts, &Email2::clearBccFromHeader,
                           &Email2::dropAttachments})
      (node.*act)();
    for (const auto set : {&Email2::setIdOnServer, &Email2::clearRecipients}) (node.*set)(1);
    node.use_codepage(932);
    node.setOverwriteExisting(false);
    node.use_charset(charset);
    node.supplyTermValue("Date", out);
    node.supplyTermValue("body", out);

    EXPECT_FALSE(node.isValidEmailObject() || node.getNumParts() || node.getPart(0));
    EXPECT_FALSE(node.getHeaderFieldUtf8("Date", out, log) || node.getHeaderFieldX("Date", outX, log) ||
                 node.getNumHeaderFields() || node.getHeaderFieldName(0, out, log) ||
                 node.getHeaderFieldValue(0, out, log) || node.hasHeaderField("Date", log) ||
                 node.hasHeaderMatchingUtf8("Date", "*", false, log));
    for (const auto get :
         {&Email2::getSubjectUtf8, &Email2::getReplyToUtf8, &Email2::getMailerUtf8, &Email2::getUidlUtf8})
      EXPECT_FALSE((node.*get)(out, log));
    for (const auto set :
         {&Email2::setHeaderField, &Email2::addHeaderField2, &Email2::setContentDispositionUtf8})
      (node.*set)("X-A", "b", log);
    node.setHeaderField("Subject", nullptr, log);
    for (const auto set : {&Email2::setHeaderField_a, &Email2::addHeaderField2_a})
      (node.*set)("X-A", "b", true, log);
    node.removeHeaderField("To");
    EXPECT_FALSE(node.setAttachmentHeader(0, "X-A", "b", log));
    node.copyHeader(*other, log);

    for (const auto get : {&Email2::getContentType, &Email2::getContentEncoding, &Email2::getContentId,
                           &Email2::getAttachmentName, &Email2::genEmailFilename})
      (node.*get)(out);
    for (const auto get : {&Email2::getName, &Email2::getFromAddrUtf8, &Email2::getAllRecipientAddresses})
      (node.*get)(out);
    for (const auto set : {&Email2::fixContentTypeUtf8, &Email2::setContentSubtype, &Email2::setContentId,
                           &Email2::setContentEncodingNonRecursive, &Email2::setContentEncodingRecursive,
                           &Email2::setContentEncodingInner, &Email2::setContentDisposition1,
                           &Email2::setFilenameUtf8, &Email2::setFromFullUtf8, &Email2::setFromName,
                           &Email2::setFromAddr, &Email2::setReplyToUtf8, &Email2::convertToMultipartX})
      (node.*set)("a@b.example", log);
    node.setContentTypeUtf8("text/html", "n", "p", "m", 65001, "b", "s", "t", log);
    node.setName("n", log);
    node.setEncodingViaCodePage(936, 0, log);
    node.getFilenameUtf8(out, log);

    for (const auto act :
         {&Email2::refreshContentTypeHeader, &Email2::resetDate, &Email2::updateFromInHeader})
      (node.*act)(log);
    EXPECT_FALSE(node.generateMessageID(log) || node.generateContentId(log));
    node.setDate("Sat, 21 Nov 2026 08:30:00 +0100", log, true);
    node.getDate(time);

    for (const auto get :
         {&Email2::getFromFullUtf8, &Email2::getFromNameUtf8, &Email2::getSmtpReversePathUtf8})
      (node.*get)(out, log);
    node.copyRecipients(*other);
    node.getAllRecipients(1, out, log);
    EXPECT_FALSE(node.qbChooseForEmailAddrEncoding(65001) || node.addRecipient(1, "a", "a@x.org", log) ||
                 node.addMultipleRecip(1, "a@b.example", log) || node.getNumRecipients(1) ||
                 node.getRecipientFullUtf8(1, 0, out, log) || node.getRecipientNameUtf8(1, 0, out) ||
                 node.getRecipientAddrUtf8(1, 0, out) || node.getAllRecipientAddressesA(texts, list, log) ||
                 node.addRecipientsForType(1, texts, list, log));

    EXPECT_FALSE(node.isMultipart() || node.isMultipartMixed() || node.isNotAlternativeBody() ||
                 node.findContentType("text/plain") || node.findMultipartEnclosureV2(1, 0, place) ||
                 node.addAlternativeEnclosure(log) || node.ensureAlternativeEnclosure(log));
    node.removeAlternative("text/plain", log);
    node.checkAddEmailUniqueContentType(other.get(), list);
    node.enumerateAlternatives(node, list);
    EXPECT_EQ(node.getAlternativeIndexByContentType("text/calendar"), 0) << "deliberately not -1";
    EXPECT_FALSE(node.getAlternative(node, 0) || node.getPlainTextAlternative() ||
                 node.getAlternativeContentType(0, out, &log) ||
                 node.getAlternativeBodyMb(node, 0, bytes, 0, log) ||
                 node.getEffectiveBodyData(node, bytes, log));
    EXPECT_FALSE(node.isEmailAttachment(true, log) || node.isStrictAttachment(&log) ||
                 node.isMultipartMixedForAttachmentPurposes() || node.isMultipartFax() ||
                 node.attachmentIterate2(true, list, -1, log) || node.getNumAttachments(log) ||
                 node.getAttachment2(0, log) || node.extractAttachment(0) ||
                 node.dropSingleAttachment(0, log) || node.findHtmlPart() ||
                 node.getNthPartOfType(0, "*", false, false, count, log));
    node.logAttachmentReason(log, "Because.");
    node.dropAttachmentsForTempMht(out, log);
  }
  EXPECT_EQ(out.view(), "untouched");
  EXPECT_EQ(outX.view(), "untouched");
  EXPECT_EQ(countMessages(log), 0) << log.text();
  EXPECT_EQ(list.getSize() + time.m_year + count, 7);
  EXPECT_TRUE(node.getOverwriteExisting() && node.getIdOnServer() == -1 && node.emailCodePage() == 0);
  EXPECT_EQ(write(node), written);
}

TEST(Node, children_are_inserted_taken_out_replaced_and_swapped) {
  const EmailPtr root = buildTree("mixed(plain,pdf)"), other = buildTree("related(png)");
  root->insertSubPartAtIndex(buildTree("html").release(), 1);
  root->insertSubPartAtIndex(nullptr, 0);
  for (const int index : {-1, 3}) EXPECT_FALSE(root->getPart(index) || root->extractSubpartByIndex(index));

  const EmailPtr old(root->getPart(1)), last(root->getPart(2));
  root->replacePartAt(1, buildTree("zip").release());
  EXPECT_EQ(printTree(root) + printTree(old), "mixed(plain,zip,pdf)html") << "the old one stays alive";
  root->replacePartAt(2, nullptr);
  EXPECT_EQ(printTree(root), "mixed(plain,zip)");

  root->swapChildren(*other);
  EXPECT_EQ(printTree(root) + printTree(other), "mixed(png)related(plain,zip)");
  other->swapChildren(*other);
  EXPECT_EQ(printTree(other), "related(plain,zip)");
}

TEST(Node, deliberate_swapping_content_types_leaves_the_fields) {
  const EmailPtr a = buildTree("plain[name=x]"), b = buildTree("html");
  a->swapContentType(*b);
  EXPECT_EQ(printTree(a, TreeDetail::names) + " " + printTree(b, TreeDetail::names), "html plain[name=x]");
  EXPECT_EQ(fieldOf(*a, "Content-Type") + " " + fieldOf(*b, "Content-Type"), "text/plain; name=x text/html");
}

TEST(Node, destroys_a_tree_wholly_even_when_it_is_damaged) {
  EmailPtr root = buildTree("mixed(alternative(plain,html),pdf)");
  const RefPtr<_svEmailCommon> settings(root->m_common);
  root->getPart(0)->m_magic = 1;
  const unsigned before = Psdk::corruptObjectsSeen();
  root->removeAllSubparts();
  EXPECT_EQ(Psdk::corruptObjectsSeen(), before + 1) << "what is damaged is reported";
  EXPECT_EQ(settings->refCount(), 2) << "and goes with all below it";
  root.reset();
  EXPECT_EQ(settings->refCount(), 1);
}

TEST(Node, settings_live_in_the_shared_object) {
  const EmailPtr root = buildTree("mixed(plain)");
  Email2& child = *root->getPart(0);
  child.setOverwriteExisting(false);
  child.setIdOnServer(12);
  child.use_codepage(932);
  root->use_codepage(0);
  EXPECT_TRUE(!root->getOverwriteExisting() && root->getIdOnServer() == 12 && root->emailCodePage() == 932);
  _svCharset koi8;
  koi8.setByName("koi8-r");
  root->use_charset(koi8);
  EXPECT_STREQ(child.get_charset_name(), "koi8-r");
}

TEST(Node, does_without_shared_settings) {
  const EmailPtr node(new Email2);
  node->m_common->decRefCount();
  node->m_common = nullptr;
  node->setOverwriteExisting(false);
  node->setIdOnServer(3);
  node->use_codepage(932);
  _svCharset charset;
  node->use_charset(charset);
  EXPECT_TRUE(node->getOverwriteExisting() && node->getIdOnServer() == -1);
  EXPECT_STREQ(node->get_charset_name(), "");
  node->setHeaderField("Content-Type", "text/html; charset=utf-8", quiet);
  node->setContentTypeUtf8("text/html", nullptr, nullptr, nullptr, 932, nullptr, nullptr, nullptr, quiet);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/html");
  node->setFromFullUtf8("J\xC3\xB6rg <joerg@example.com>", quiet);
  EXPECT_EQ(fieldOf(*node, "From"), "J\xC3\xB6rg <joerg@example.com>");
}

/// Settings on the heap with one reference held here.
RefPtr<_svEmailCommon> newCommon() { return RefPtr<_svEmailCommon>(new _svEmailCommon); }

TEST(SharedSettings, are_copied_one_by_one) {
  const auto textOf = [](const _svEmailCommon& s) {
    std::ostringstream text;
    text << s.m_charset.getCodePage() << ' ' << s.m_preferredCharset.view() << ' ' << s.m_idOnServer
         << s.m_overwriteExisting << s.m_receivedSecure << s.m_allSignaturesValid << s.m_allDataDecrypted
         << s.m_numSignedLayers << s.m_numEncryptedLayers << s.m_sendSigned << s.m_sendEncrypted
         << s.m_limits.has(Limit::depth) << ' ' << s.m_signerCerts.getSize() << s.m_decryptCerts.getSize()
         << s.m_encryptCerts.getSize();
    return text.str();
  };
  const auto from = newCommon(), to = newCommon();
  from->m_charset.setByCodePage(936);
  from->m_preferredCharset.setFromUtf8("gb2312");
  from->m_idOnServer = 5;
  from->m_overwriteExisting = false;
  from->m_receivedSecure = from->m_allSignaturesValid = from->m_allDataDecrypted = true;
  from->m_numSignedLayers = 2;
  from->m_numEncryptedLayers = 3;
  from->m_sendSigned = from->m_sendEncrypted = true;
  from->m_limits.add(Limit::depth);
  ExtPtrArray* lists[] = {&from->m_signerCerts, &from->m_decryptCerts, &from->m_encryptCerts};
  for (int i = 0; i < 3; ++i)
    for (int n = 0; n <= i; ++n) lists[i]->appendObject(new CertificateHolder(*identity("bob.pem")));
  from->copyFrom(*from);
  to->copyFrom(*from);
  EXPECT_EQ(textOf(*from), "936 gb2312 5011123111 123");
  EXPECT_EQ(textOf(*to), textOf(*from));
}

TEST(SharedSettings, deliberate_signing_certificate_is_overwritten_unreleased_and_never_cleared) {
  const RefPtr<Certificate> held = identity("alice.pem"), given = identity("bob.pem");
  for (const RefPtr<Certificate>& certificate : {held, given}) certificate->incRefCount();
  {
    const auto from = newCommon(), to = newCommon();
    to->m_signingCert = held.get();
    to->copyFrom(*from);
    EXPECT_EQ(to->m_signingCert, held.get()) << "a source without one";
    from->m_signingCert = given.get();
    to->copyFrom(*from);
    EXPECT_EQ(to->m_signingCert, given.get());
  }
  EXPECT_EQ(given->refCount(), 1) << "released by both";
  EXPECT_EQ(held->refCount(), 2);
  held->decRefCount();
}

TEST(Node, supplies_values_for_terms_through_its_second_base) {
  const EmailPtr email = buildTree("alternative(plain[body=Hello],html)");
  email->setHeaderField("Subject", "Grüße", quiet);
  ExpressionTermSource& source = *email;
  StringBuffer value("a");
  source.supplyTermValue("BODY", value);
  EXPECT_EQ(value.view(), "aHello");
  source.supplyTermValue("subject", value);
  EXPECT_EQ(value.view(), "Grüße");
  source.supplyTermValue("X-None", value);
  EXPECT_EQ(value.view(), "");
}

TEST(TreeNotation, takes_nothing_that_is_no_tree) {
  for (const char* text :
       {"", "mixed(", "mixed(plain", "mixed(plain))", "plian", "plain[name", "plain[name=x"})
    EXPECT_THROW(buildTree(text), std::invalid_argument) << text;
}

}  // namespace
}  // namespace mailtree
