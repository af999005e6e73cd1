#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "mailtree/base/Platform.h"
#include "mailtree/email/Email2.h"
#include "tests/support/fields.h"
#include "tests/support/places.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

/// Seconds between a node's date and now.
std::int64_t age(const Email2& node) {
  SorvikSysTime now;
  now.getCurrentGmt();
  return now.toUnixTime() - node.m_date.toUnixTime();
}

/// Destroys an object in place. Its type stays readable, which is what sanitizers ask for before a call;
/// everything else is as the destructor left it.
template <class Object>
void destroy(Object& object) {
  void* type;  // the virtual table, where every object of a polymorphic type begins
  std::memcpy(&type, static_cast<const void*>(&object), sizeof type);
  object.~Object();
  std::memcpy(static_cast<void*>(&object), &type, sizeof type);
}

/// A destroyed node in storage that outlives it, so that looking at it is no crime.
class DeadNode {
 public:
  DeadNode() : m_node(new (m_storage) Email2) { destroy(*m_node); }
  Email2& operator*() const { return *m_node; }

 private:
  alignas(Email2) std::byte m_storage[sizeof(Email2)];
  Email2* m_node;
};

// Construction

TEST(Node, new_message_has_the_six_default_fields_in_order) {
  const EmailPtr email(new Email2);
  EXPECT_EQ(fieldNames(*email),
            (std::vector<std::string>{"MIME-Version", "Date", "Message-ID", "Content-Type",
                                      "Content-Transfer-Encoding", "X-Priority"}));
  EXPECT_EQ(fieldOf(*email, "MIME-Version"), "1.0");
  EXPECT_EQ(fieldOf(*email, "Content-Type"), "text/plain");
  EXPECT_EQ(fieldOf(*email, "Content-Transfer-Encoding"), "7bit");
  EXPECT_EQ(fieldOf(*email, "X-Priority"), "3 (Normal)");
  EXPECT_EQ(email->m_contentType.m_type.view(), "text/plain");
  EXPECT_EQ(email->m_transferEncoding.view(), "7bit");
  EXPECT_LE(std::abs(age(*email)), 5);
  SorvikSysTime date;
  ASSERT_TRUE(_svDateParser::parse(fieldOf(*email, "Date"), date));
  EXPECT_TRUE(date == email->m_date);
}

TEST(Node, new_message_names_the_charset_of_the_settings_it_shares) {
  const EmailPtr first(new Email2);
  first->use_codepage(28591);
  const EmailPtr second(Email2::createNewObject(*first->m_common));
  EXPECT_EQ(fieldOf(*second, "Content-Type"), "text/plain; charset=iso-8859-1");
}

TEST(Node, bare_node_is_empty_and_dated_now) {
  const EmailPtr node(Email2::createNewObject00());
  EXPECT_EQ(node->getNumHeaderFields(), 0);
  EXPECT_TRUE(node->m_contentType.m_type.isEmpty());
  EXPECT_TRUE(node->m_transferEncoding.isEmpty());
  EXPECT_EQ(node->m_attachCodePage, 0);
  EXPECT_LE(std::abs(age(*node)), 5);
  EXPECT_TRUE(node->m_date.m_isUtc);
}

TEST(Node, every_node_holds_one_reference_to_the_shared_settings) {
  EmailPtr root(Email2::createNewObject00());
  const RefPtr<_svEmailCommon> common(root->m_common);
  EXPECT_EQ(common->refCount(), 2);
  root->insertSubPartAtIndex(Email2::createNewObject(*common), -1);
  root->insertSubPartAtIndex(Email2::createNewObject0(*common), -1);
  EXPECT_EQ(common->refCount(), 4);
  const EmailPtr child(root->extractSubpartByIndex(0));
  root.reset();
  EXPECT_EQ(common->refCount(), 2);
  EXPECT_TRUE(child->isValidEmailObject());
}

TEST(Node, message_of_its_own_frees_its_settings_with_itself) {
  EmailPtr email(new Email2);
  const RefPtr<_svEmailCommon> common(email->m_common);
  email.reset();
  EXPECT_EQ(common->refCount(), 1);
}

// Validity

/// Destroys a member for as long as it lives.
template <class Member>
class Destroyed {
 public:
  explicit Destroyed(Member& member) : m_member(member) { destroy(m_member); }
  Destroyed(const Destroyed&) = delete;
  Destroyed& operator=(const Destroyed&) = delete;
  ~Destroyed() { new (&m_member) Member; }

 private:
  Member& m_member;
};

template <class Member>
bool isValidWithout(Email2& node, Member Email2::*member) {
  const Destroyed<Member> destroyed(node.*member);
  return node.isValidEmailObject();
}

TEST(Node, is_invalid_when_any_marked_member_is_destroyed) {
  const EmailPtr email(new Email2);
  Email2& node = *email;
  ASSERT_TRUE(node.isValidEmailObject());
  EXPECT_FALSE(isValidWithout(node, &Email2::m_disposition));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_transferEncoding));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_contentId));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_dispFilename));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_body));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_header));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_subParts));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_toAddrs));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_ccAddrs));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_bccAddrs));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_fromAddr));
  EXPECT_FALSE(isValidWithout(node, &Email2::m_date));
  EXPECT_TRUE(node.isValidEmailObject());
}

TEST(Node, operations_on_a_dead_node_give_nothing_and_log_nothing) {
  using Give = std::function<bool(Email2&, StringBuffer&, LogBase&)>;  // whether something came out
  const auto acts = [](void (*act)(Email2&, LogBase&)) {
    return [act](Email2& n, StringBuffer&, LogBase& log) { return act(n, log), false; };
  };
  static ExtPtrArray none;
  static ExtPtrArraySb list;
  static _svCharset charset;
  static const EmailPtr other(new Email2);
  static SorvikSysTime time;
  const struct {
    const char* name;
    Give give;
  } rows[] = {
      {"isValidEmailObject", [](auto& n, auto&, auto&) { return n.isValidEmailObject(); }},
      {"minimizeMemUsage", acts([](auto& n, auto&) { n.minimizeMemUsage(); })},
      {"getNumParts", [](auto& n, auto&, auto&) { return n.getNumParts() != 0; }},
      {"getPart", [](auto& n, auto&, auto&) { return n.getPart(0) != nullptr; }},
      {"getPartConst", [](auto& n, auto&, auto&) { return n.getPartConst(0) != nullptr; }},
      {"removeAllSubparts", acts([](auto& n, auto&) { n.removeAllSubparts(); })},
      {"setOverwriteExisting", acts([](auto& n, auto&) { n.setOverwriteExisting(false); })},
      {"getOverwriteExisting", [](auto& n, auto&, auto&) { return !n.getOverwriteExisting(); }},
      {"setIdOnServer", acts([](auto& n, auto&) { n.setIdOnServer(7); })},
      {"getIdOnServer", [](auto& n, auto&, auto&) { return n.getIdOnServer() != -1; }},
      {"get_charset_name", [](auto& n, auto&, auto&) { return *n.get_charset_name() != '\0'; }},
      {"use_charset", acts([](auto& n, auto&) { n.use_charset(charset); })},
      {"use_codepage", acts([](auto& n, auto&) { n.use_codepage(65001); })},
      {"supplyTermValue", [](auto& n, auto& out, auto&) { return n.supplyTermValue("Date", out), false; }},
      {"supplyTermValue body",
       [](auto& n, auto& out, auto&) { return n.supplyTermValue("body", out), false; }},
      {"traits", [](auto& n, auto&, auto&) { return !n.traits().type.empty(); }},

      {"getHeaderFieldUtf8",
       [](auto& n, auto& out, auto& log) { return n.getHeaderFieldUtf8("Date", out, log); }},
      {"getHeaderFieldX",
       [](auto& n, auto&, auto& log) {
         XString out("kept");
         return n.getHeaderFieldX("Date", out, log) || out.view() != "kept";
       }},
      {"getNumHeaderFields", [](auto& n, auto&, auto&) { return n.getNumHeaderFields() != 0; }},
      {"getHeaderFieldName", [](auto& n, auto& out, auto& log) { return n.getHeaderFieldName(0, out, log); }},
      {"getHeaderFieldValue",
       [](auto& n, auto& out, auto& log) { return n.getHeaderFieldValue(0, out, log); }},
      {"hasHeaderField", [](auto& n, auto&, auto& log) { return n.hasHeaderField("Date", log); }},
      {"hasHeaderMatchingUtf8",
       [](auto& n, auto&, auto& log) { return n.hasHeaderMatchingUtf8("Date", "*", false, log); }},
      {"getSubjectUtf8", [](auto& n, auto& out, auto& log) { return n.getSubjectUtf8(out, log); }},
      {"getReplyToUtf8", [](auto& n, auto& out, auto& log) { return n.getReplyToUtf8(out, log); }},
      {"getMailerUtf8", [](auto& n, auto& out, auto& log) { return n.getMailerUtf8(out, log); }},
      {"getUidlUtf8", [](auto& n, auto& out, auto& log) { return n.getUidlUtf8(out, log); }},
      {"setHeaderField", acts([](auto& n, auto& log) { n.setHeaderField("From", "a@b.example", log); })},
      {"setHeaderField null", acts([](auto& n, auto& log) { n.setHeaderField("X-A", nullptr, log); })},
      {"setHeaderField_a", acts([](auto& n, auto& log) { n.setHeaderField_a("X-A", "b", true, log); })},
      {"addHeaderField2", acts([](auto& n, auto& log) { n.addHeaderField2("X-A", "b", log); })},
      {"addHeaderField2_a", acts([](auto& n, auto& log) { n.addHeaderField2_a("Date", "b", true, log); })},
      {"removeHeaderField", acts([](auto& n, auto&) { n.removeHeaderField("To"); })},
      {"setAttachmentHeader",
       [](auto& n, auto&, auto& log) { return n.setAttachmentHeader(0, "X-A", "b", log); }},
      {"copyHeader", acts([](auto& n, auto& log) { n.copyHeader(*other, log); })},

      {"getContentType", [](auto& n, auto& out, auto&) { return n.getContentType(out), false; }},
      {"getContentEncoding", [](auto& n, auto& out, auto&) { return n.getContentEncoding(out), false; }},
      {"getName", [](auto& n, auto& out, auto&) { return n.getName(out), false; }},
      {"getContentId", [](auto& n, auto& out, auto&) { return n.getContentId(out), false; }},
      {"getAttachmentName", [](auto& n, auto& out, auto&) { return n.getAttachmentName(out), false; }},
      {"setContentTypeUtf8", acts([](auto& n, auto& log) {
         n.setContentTypeUtf8("text/html", "n", "p", "m", 65001, "b", "s", "t", log);
       })},
      {"refreshContentTypeHeader", acts([](auto& n, auto& log) { n.refreshContentTypeHeader(log); })},
      {"fixContentTypeUtf8", acts([](auto& n, auto& log) { n.fixContentTypeUtf8("text/html", log); })},
      {"setContentSubtype", acts([](auto& n, auto& log) { n.setContentSubtype("text/html", log); })},
      {"setName", acts([](auto& n, auto& log) { n.setName("n", log); })},
      {"setContentId", acts([](auto& n, auto& log) { n.setContentId("i", log); })},
      {"setContentEncodingNonRecursive",
       acts([](auto& n, auto& log) { n.setContentEncodingNonRecursive("8bit", log); })},
      {"setContentEncodingRecursive",
       acts([](auto& n, auto& log) { n.setContentEncodingRecursive("8bit", log); })},
      {"setContentEncodingInner", acts([](auto& n, auto& log) { n.setContentEncodingInner("8bit", log); })},
      {"setEncodingViaCodePage", acts([](auto& n, auto& log) { n.setEncodingViaCodePage(936, 0, log); })},
      {"setContentDisposition1", acts([](auto& n, auto& log) { n.setContentDisposition1("inline", log); })},
      {"setContentDispositionUtf8",
       acts([](auto& n, auto& log) { n.setContentDispositionUtf8("inline", "f", log); })},
      {"setFilenameUtf8", acts([](auto& n, auto& log) { n.setFilenameUtf8("f", log); })},
      {"getFilenameUtf8", [](auto& n, auto& out, auto& log) { return n.getFilenameUtf8(out, log), false; }},

      {"generateMessageID", [](auto& n, auto&, auto& log) { return n.generateMessageID(log); }},
      {"generateContentId", [](auto& n, auto&, auto& log) { return n.generateContentId(log); }},
      {"setDate", acts([](auto& n, auto& log) { n.setDate("Sat, 21 Nov 2026 08:30:00 +0100", log, true); })},
      {"resetDate", acts([](auto& n, auto& log) { n.resetDate(log); })},
      {"getDate", [](auto& n, auto&, auto&) { return n.getDate(time), time.m_year != 0; }},
      {"genEmailFilename", [](auto& n, auto& out, auto&) { return n.genEmailFilename(out), false; }},

      {"qbChooseForEmailAddrEncoding",
       [](auto& n, auto&, auto&) { return n.qbChooseForEmailAddrEncoding(65001); }},
      {"updateFromInHeader", acts([](auto& n, auto& log) { n.updateFromInHeader(log); })},
      {"setFromFullUtf8", acts([](auto& n, auto& log) { n.setFromFullUtf8("a@b.example", log); })},
      {"setFromName", acts([](auto& n, auto& log) { n.setFromName("a", log); })},
      {"setFromAddr", acts([](auto& n, auto& log) { n.setFromAddr("a@b.example", log); })},
      {"getFromFullUtf8", [](auto& n, auto& out, auto& log) { return n.getFromFullUtf8(out, log), false; }},
      {"getFromNameUtf8", [](auto& n, auto& out, auto& log) { return n.getFromNameUtf8(out, log), false; }},
      {"getFromAddrUtf8", [](auto& n, auto& out, auto&) { return n.getFromAddrUtf8(out), false; }},
      {"getSmtpReversePathUtf8",
       [](auto& n, auto& out, auto& log) { return n.getSmtpReversePathUtf8(out, log), false; }},
      {"setReplyToUtf8", acts([](auto& n, auto& log) { n.setReplyToUtf8("a@b.example", log); })},
      {"addRecipient", [](auto& n, auto&, auto& log) { return n.addRecipient(1, "a", "a@b.example", log); }},
      {"addMultipleRecip",
       [](auto& n, auto&, auto& log) { return n.addMultipleRecip(1, "a@b.example", log) != 0; }},
      {"copyRecipients", acts([](auto& n, auto&) { n.copyRecipients(*other); })},
      {"clearRecipients", acts([](auto& n, auto&) { n.clearRecipients(1); })},
      {"clearBccFromHeader", acts([](auto& n, auto&) { n.clearBccFromHeader(); })},
      {"getNumRecipients", [](auto& n, auto&, auto&) { return n.getNumRecipients(1) != 0; }},
      {"getRecipientFullUtf8",
       [](auto& n, auto& out, auto& log) { return n.getRecipientFullUtf8(1, 0, out, log); }},
      {"getRecipientNameUtf8", [](auto& n, auto& out, auto&) { return n.getRecipientNameUtf8(1, 0, out); }},
      {"getRecipientAddrUtf8", [](auto& n, auto& out, auto&) { return n.getRecipientAddrUtf8(1, 0, out); }},
      {"getAllRecipients",
       [](auto& n, auto& out, auto& log) { return n.getAllRecipients(1, out, log), false; }},
      {"getAllRecipientAddresses",
       [](auto& n, auto& out, auto&) { return n.getAllRecipientAddresses(out), false; }},
      {"getAllRecipientAddressesA",
       [](auto& n, auto&, auto& log) { return n.getAllRecipientAddressesA(list, none, log); }},
      {"addRecipientsForType",
       [](auto& n, auto&, auto& log) { return n.addRecipientsForType(1, list, none, log); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const DeadNode dead;
    StringBuffer out("untouched");
    LogMemory log;
    log.m_verboseLogging = true;
    EXPECT_FALSE(row.give(*dead, out, log));
    EXPECT_EQ(out.view(), "untouched");
    EXPECT_EQ(log.text(), "");
  }
}

// Subparts

TEST(Node, insertion_takes_any_index) {
  const struct {
    int index;
    const char* tree;
  } rows[] = {
      {-5, "mixed(plain,html,png)"}, {-1, "mixed(plain,html,png)"}, {0, "mixed(png,plain,html)"},
      {1, "mixed(plain,png,html)"},  {2, "mixed(plain,html,png)"},  {99, "mixed(plain,html,png)"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree("mixed(plain,html)");
    root->insertSubPartAtIndex(buildTree("png").release(), row.index);
    EXPECT_EQ(printTree(root), row.tree) << "index " << row.index;
  }
  const EmailPtr root = buildTree("mixed(plain)");
  root->insertSubPartAtIndex(nullptr, 0);
  EXPECT_EQ(printTree(root), "mixed(plain)");
}

TEST(Node, children_outside_the_list_are_null) {
  const EmailPtr root = buildTree("mixed(plain)");
  for (const int index : {-1, 1, 1000}) {
    EXPECT_EQ(root->getPart(index), nullptr) << index;
    EXPECT_EQ(root->extractSubpartByIndex(index), nullptr) << index;
  }
  EXPECT_EQ(printTree(root), "mixed(plain)");
}

TEST(Node, deliberate_replacing_a_part_leaves_the_old_one_alive) {
  const EmailPtr root = buildTree("mixed(plain,html,pdf)");
  const EmailPtr old(root->getPart(1));
  root->replacePartAt(1, buildTree("png").release());
  EXPECT_EQ(printTree(root), "mixed(plain,png,pdf)");
  EXPECT_EQ(printTree(old), "html");
  const EmailPtr last(root->getPart(2));
  root->replacePartAt(2, nullptr);
  EXPECT_EQ(printTree(root), "mixed(plain,png)");
}

TEST(Node, swaps_children_but_not_headers) {
  const EmailPtr a = buildTree("mixed(plain,html)"), b = buildTree("related(png)");
  a->swapChildren(*b);
  EXPECT_EQ(printTree(a), "mixed(png)");
  EXPECT_EQ(printTree(b), "related(plain,html)");
  b->swapChildren(*b);
  EXPECT_EQ(printTree(b), "related(plain,html)");
}

TEST(Node, deliberate_swapping_content_types_leaves_the_fields) {
  const EmailPtr a = buildTree("plain[name=x]"), b = buildTree("html");
  a->swapContentType(*b);
  EXPECT_EQ(printTree(a, TreeDetail::names), "html");
  EXPECT_EQ(printTree(b, TreeDetail::names), "plain[name=x]");
  EXPECT_EQ(fieldOf(*a, "Content-Type"), "text/plain; name=x");
  EXPECT_EQ(fieldOf(*b, "Content-Type"), "text/html");
}

// Destruction

/// Makes a tree of `size` nodes in branches of equal length: one branch is a mere chain.
EmailPtr growTree(int size, int branches) {
  EmailPtr root(Email2::createNewObject00());
  std::vector<Email2*> tips(static_cast<std::size_t>(branches), root.get());
  for (int i = 0; i < size; ++i) {
    Email2*& tip = tips[static_cast<std::size_t>(i % branches)];
    Email2* child = Email2::createNewObject0(*root->m_common);
    tip->insertSubPartAtIndex(child, -1);
    tip = child;
  }
  return root;
}

TEST(Node, destroys_deep_and_wide_trees_without_nesting) {
  const struct {
    int size;
    int branches;
  } rows[] = {{100'000, 1}, {10'000, 3}, {10'000, 100}, {10'000, 10'000}};
  for (const auto& row : rows) {
    EmailPtr root = growTree(row.size, row.branches);
    const RefPtr<_svEmailCommon> common(root->m_common);
    root.reset();
    EXPECT_EQ(common->refCount(), 1) << row.branches << " branches";

    root = growTree(row.size, row.branches);
    root->removeAllSubparts();
    EXPECT_EQ(root->m_common->refCount(), 1) << row.branches << " branches";
  }
}

TEST(Node, damaged_node_is_reported_and_still_destroyed_with_all_below_it) {
  EmailPtr root = buildTree("mixed(alternative(plain,html),pdf)");
  const RefPtr<_svEmailCommon> common(root->m_common);
  root->getPart(0)->m_magic = 1;
  const unsigned before = Psdk::corruptObjectsSeen();
  EXPECT_EQ(printTree(root), "mixed(dead,pdf)");
  root.reset();
  EXPECT_EQ(Psdk::corruptObjectsSeen(), before + 1);
  EXPECT_EQ(common->refCount(), 1);
}

// Shared settings

TEST(Node, settings_live_in_the_shared_object) {
  const EmailPtr root = buildTree("mixed(plain)");
  Email2& child = *root->getPart(0);
  EXPECT_TRUE(root->getOverwriteExisting());
  EXPECT_EQ(root->getIdOnServer(), -1);
  child.setOverwriteExisting(false);
  child.setIdOnServer(12);
  child.use_codepage(932);
  EXPECT_FALSE(root->getOverwriteExisting());
  EXPECT_EQ(root->getIdOnServer(), 12);
  EXPECT_EQ(root->emailCodePage(), 932);
  root->use_codepage(0);
  EXPECT_EQ(root->emailCodePage(), 932);
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
  EXPECT_TRUE(node->getOverwriteExisting());
  EXPECT_EQ(node->getIdOnServer(), -1);
  EXPECT_STREQ(node->get_charset_name(), "");
  node->setHeaderField("Content-Type", "text/html; charset=utf-8", quiet);
  node->setContentTypeUtf8("text/html", nullptr, nullptr, nullptr, 932, nullptr, nullptr, nullptr, quiet);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/html");
  node->setFromFullUtf8("J\xC3\xB6rg <joerg@example.com>", quiet);
  EXPECT_EQ(fieldOf(*node, "From"), "J\xC3\xB6rg <joerg@example.com>");
}

/// Settings on the heap with one reference held here.
RefPtr<_svEmailCommon> newCommon() { return RefPtr<_svEmailCommon>(new _svEmailCommon); }

RefPtr<Certificate> certificateOf(const std::string& name) {
  SystemCerts certs;
  certs.addFromFile((places::testData() + "/secure/" + name + ".pem").c_str(), nullptr, quiet);
  return RefPtr<Certificate>(certs.getCertificate(0));
}

TEST(SharedSettings, are_copied_one_by_one) {
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
    for (int n = 0; n <= i; ++n) lists[i]->appendObject(new CertificateHolder(*certificateOf("bob")));
  from->copyFrom(*from);
  EXPECT_EQ(from->m_encryptCerts.getSize(), 3) << "copied onto itself";

  to->copyFrom(*from);
  EXPECT_EQ(to->m_charset.getCodePage(), 936);
  EXPECT_EQ(to->m_preferredCharset.view(), "gb2312");
  EXPECT_EQ(to->m_idOnServer, 5);
  EXPECT_FALSE(to->m_overwriteExisting);
  EXPECT_TRUE(to->m_receivedSecure && to->m_allSignaturesValid && to->m_allDataDecrypted);
  EXPECT_EQ(to->m_numSignedLayers, 2);
  EXPECT_EQ(to->m_numEncryptedLayers, 3);
  EXPECT_TRUE(to->m_sendSigned && to->m_sendEncrypted);
  EXPECT_TRUE(to->m_limits.has(Limit::depth));
  EXPECT_EQ(to->m_signerCerts.getSize(), 1);
  EXPECT_EQ(to->m_decryptCerts.getSize(), 2);
  EXPECT_EQ(to->m_encryptCerts.getSize(), 3);
  EXPECT_EQ(CertificateHolder::getNthCert(to->m_encryptCerts, 2),
            CertificateHolder::getNthCert(from->m_encryptCerts, 2));
}

TEST(SharedSettings, deliberate_signing_certificate_is_overwritten_unreleased_and_never_cleared) {
  const RefPtr<Certificate> held = certificateOf("alice"), given = certificateOf("bob");
  {
    const auto from = newCommon(), to = newCommon();
    to->m_signingCert = held.get();
    held->incRefCount();
    to->copyFrom(*from);
    EXPECT_EQ(to->m_signingCert, held.get()) << "a source without one";

    from->m_signingCert = given.get();
    given->incRefCount();
    to->copyFrom(*from);
    EXPECT_EQ(to->m_signingCert, given.get());
    EXPECT_EQ(given->refCount(), 3);
    EXPECT_EQ(held->refCount(), 2);
  }
  EXPECT_EQ(given->refCount(), 1) << "released by both";
  held->decRefCount();
}

// Terms

TEST(Node, supplies_values_for_terms_through_its_second_base) {
  const EmailPtr email = buildTree("alternative(plain[body=Hello],html)");
  email->setHeaderField("Subject",
                        "Gr\xC3\xBC\xC3\x9F"
                        "e",
                        quiet);
  ExpressionTermSource& source = *email;
  StringBuffer value("a");
  source.supplyTermValue("BODY", value);
  EXPECT_TRUE(value.view().starts_with("a") && value.getSize() > 1) << value.view();
  source.supplyTermValue("subject", value);
  EXPECT_EQ(value.view(),
            "Gr\xC3\xBC\xC3\x9F"
            "e");
  source.supplyTermValue("X-None", value);
  EXPECT_EQ(value.view(), "");
}

TEST(TreeNotation, prints_what_it_built) {
  for (const char* text : {"mixed(alternative(plain,html),pdf:attachment)", "report(plain,delivery,rfc822)",
                           "signed(mixed(plain[name=x.txt]:inline,png[name=a.png,file=b.png]:inline),p7s)",
                           "image/x-tiff", "related(none,encrypted(octet),fax(zip),digest(calendar))"})
    EXPECT_EQ(printTree(buildTree(text), TreeDetail::names), text);
  EXPECT_EQ(printTree(buildTree("alt(plain)")), "alternative(plain)");
  for (const char* text :
       {"", "mixed(", "mixed(plain", "mixed(plain))", "plian", "plain[name", "plain[name=x"})
    EXPECT_THROW(buildTree(text), std::invalid_argument) << text;
}

}  // namespace
}  // namespace mailtree
