// Enclosures and alternatives: which multipart is found, which texts are the bodies of a message.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

std::string alternativesOf(Email2& root) {
  ExtPtrArray found;
  root.enumerateAlternatives(root, found);
  EXPECT_EQ(root.getNumAlternatives(), found.getSize());
  return pathsOf(root, found);
}

TEST(Structure, enclosure_search_finds_the_nearest) {
  // Tree, kind, level; path found, its parent ("none": left as it was), index (7: left as it was) and level.
  const auto rows = casesOf<4>(R"(
      mixed(plain) | 1 | 0 | / none 7 0
      # The node itself is seen at any level, a child beats a deeper one, and the first branch a nearer one.
      mixed(plain) | 1 | 9 | / none 7 9
      mixed(alternative(plain,html),alternative) | 2 | 0 | /0 / 0 1
      mixed(related(alternative(plain)),alternative) | 2 | 0 | /1 / 1 1
      mixed(report(report(related)),report(related)) | 3 | 0 | /0/0/0 /0/0 0 3
      mixed(plain,digest(rfc822)) | 4 | 0 | /1 / 1 1
      mixed(report(plain,delivery)) | 5 | 0 | /0 / 0 1
      mixed(report(report(report(alternative(plain))))) | 2 | 0 | /0/0/0/0 /0/0/0 0 4
      mixed(report(report(report(report(alternative(plain)))))) | 2 | 0 | none none 7 0
      mixed(report(alternative(plain))) | 2 | 2 | /0/0 /0 0 4
      mixed(plain) | 0 | 0 | none none 7 0   mixed(plain) | 6 | 0 | none none 7 0)");
  for (const auto& [tree, kind, level, expected] : rows) {
    const EmailPtr root = buildTree(tree);
    _svParentEmailPtr place;
    place.m_index = 7;
    const Email2* const found = root->findMultipartEnclosureV2(std::stoi(kind), std::stoi(level), place);
    const std::string where = std::to_string(place.m_index) + " " + std::to_string(place.m_level);
    EXPECT_EQ(pathOf(*root, found) + " " + pathOf(*root, place.m_parent) + " " + where, expected) << tree;
    EXPECT_EQ(root->findMultipartEnclosure(std::stoi(kind), std::stoi(level)), found) << tree << " " << kind;
  }
}

TEST(Structure, every_walk_survives_a_chain_deeper_than_the_call_stack) {
  constexpr int kAbyss = 100'000;
  EmailPtr root = buildChain(kAbyss, "multipart/mixed", "text/html");
  const RefPtr<_svEmailCommon> common(root->m_common);
  Email2* const leaf = root->findContentType("TEXT/html");
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(root->findMultipartEnclosure(2, -kAbyss), nullptr);
  EXPECT_EQ(root->getHtmlAlternative(), leaf);
  EXPECT_EQ(root->findHtmlPart(), leaf);
  DataBuffer body;
  EXPECT_TRUE(root->getEffectiveBodyData(*root, body, quiet));

  leaf->m_body.append("NAME");
  ExtPtrArray pairs;
  pairs.appendObject(new StringPair("NAME", "Ann"));
  const EmailPtr copy(root->cloneAndReplace_v3(false, pairs, quiet));
  EXPECT_EQ(copy->findContentType("text/html")->m_body.view(), "Ann");

  StringBuffer text;
  root->logEmailStructure(text, quiet);
  EXPECT_EQ(root->getEmailSize(quiet), 4u + kAbyss * (4u + 4 + 6) + 4);
  ProgressContext progress(nullptr);
  LogMemory log;
  EXPECT_FALSE(root->assembleMimeBody2(text, nullptr, false, nullptr, progress, log, 0, false, true));
  EXPECT_EQ(log.entries().back().text, "Parts nested too deeply were left out.");

  leaf->m_contentType.m_type.setString("application/pdf");
  int count = 0;
  EXPECT_EQ(root->getAttachment(0), leaf);
  EXPECT_EQ(root->getNthPartOfType(0, "application/*", false, false, count, quiet), leaf);
  root->dropAttachmentsForTempMht(text, quiet);
  root->dropAttachments();
  EXPECT_EQ(root->extractAttachment(0), nullptr);
  root.reset();
  EXPECT_EQ(common->refCount(), 1) << "all nodes are gone";
}

TEST(Structure, find_content_type_looks_at_parents_before_children) {
  const EmailPtr root = buildTree("mixed(related(html),html,mixed(pdf))");
  for (const auto& [type, found] :
       casesOf<2>("text/html | /0/0   MULTIPART/mixed | /   application/pdf | /2/0   text/plain | none"))
    EXPECT_EQ(pathOf(*root, root->findContentType(type.c_str())), found);
}

TEST(Structure, converting_moves_the_content_into_a_first_child) {
  const auto rows = casesOf<3>(R"(
      plain | multipart/mixed | mixed(plain)      plain[body=] | multipart/mixed | mixed
      none[body=] | multipart/mixed | mixed       html[body=] | multipart/related | related(html)
      mixed | multipart/mixed | mixed(mixed)      pdf[name=a]:inline | m/x | m/x:inline(pdf[name=a])
      mixed(plain,alternative(html)) | multipart/alternative | alternative(mixed(plain,alternative(html))))");
  for (const auto& [tree, type, after] : rows) {
    const EmailPtr root = buildTree(tree);
    root->convertToMultipartX(type.c_str(), quiet);
    EXPECT_EQ(printTree(root, TreeDetail::names), after) << tree;
  }
}

TEST(Structure, converting_keeps_the_message_on_the_root_and_gives_the_rest_to_the_child) {
  const EmailPtr root = buildTree("mixed[enc=quoted-printable,body=Hello]");
  root->setHeaderField("Subject", "Plans", quiet);
  const std::string boundary = root->m_contentType.m_boundary.getString();
  LogMemory log;
  log.m_verboseLogging = true;
  root->convertToMultipartX("multipart/related", log);
  EXPECT_EQ(log.text(),
            "convertToMultipartX:\n"
            "  multipartContentType: multipart/related\n"
            "  m_contentType: multipart/mixed\n");

  const Email2& child = *root->getPart(0);
  const std::string newBoundary = root->m_contentType.m_boundary.getString();
  EXPECT_NE(newBoundary, boundary);
  EXPECT_EQ(fieldOf(*root, "Subject"), "Plans");
  EXPECT_FALSE(root->hasHeaderField("Content-Transfer-Encoding", quiet));
  EXPECT_EQ(fieldOf(*root, "Content-Type"), "multipart/related; boundary=\"" + newBoundary + "\"");
  EXPECT_EQ(fieldOf(child, "Content-Type"), "multipart/mixed; boundary=\"" + boundary + "\"");
  EXPECT_EQ(fieldOf(child, "Content-Transfer-Encoding"), "quoted-printable");
  EXPECT_EQ(disagreeingFields(*root) + disagreeingFields(child), "");
  EXPECT_EQ(child.m_common, root->m_common);
  EXPECT_EQ(child.m_body.view(), "Hello");
  EXPECT_TRUE(root->m_body.isEmpty());
}

TEST(Structure, empty_enclosures_have_a_boundary_and_the_settings_given) {
  const EmailPtr owner(Email2::createNewObject00());
  std::string trees;
  for (const auto create : {&Email2::createEmptyMultipartRelated, &Email2::createEmptyMultipartDigest,
                            &Email2::createEmptyMultipartAlternative}) {
    const EmailPtr enclosure(create(*owner->m_common, quiet));
    trees += printTree(enclosure) + " ";
    EXPECT_TRUE(enclosure->m_common == owner->m_common && !enclosure->m_contentType.m_boundary.isEmpty());
  }
  EXPECT_EQ(trees, "related digest alternative ");
}

TEST(Structure, an_alternative_enclosure_is_made_where_none_is_in_reach) {
  // The tree, what ensuring one gives, and what adding one gives whether there is one or not.
  const auto rows = casesOf<3>(R"(
      html | alternative(html) | alternative(html)
      mixed(plain) | mixed(alternative,plain) | mixed(alternative,plain)
      mixed(related(alternative)) | mixed(related(alternative)) | mixed(alternative,related(alternative)))");
  for (const auto& [tree, ensured, added] : rows) {
    const EmailPtr root = buildTree(tree), other = buildTree(tree);
    const Email2* const enclosure = root->ensureAlternativeEnclosure(quiet);
    EXPECT_TRUE(enclosure && enclosure->isMultipartAlternative()) << tree;
    EXPECT_EQ(printTree(root), ensured);
    EXPECT_TRUE(other->addAlternativeEnclosure(quiet)) << tree;
    EXPECT_EQ(printTree(other), added);
  }
}

TEST(Structure, removing_an_alternative_takes_the_first_of_its_type) {
  const auto rows = casesOf<3>(R"(
      mixed(alternative(plain,html,html),pdf) | TEXT/HTML | mixed(alternative(plain,html),pdf)
      alternative(plain,related(html,png)) | text/html | alternative(plain)
      alternative(plain,related(html,png)) | text/calendar | alternative(plain,related(html,png))
      mixed(plain,html) | text/html | mixed(plain,html))");
  for (const auto& [tree, type, after] : rows) {
    const EmailPtr root = buildTree(tree);
    if (Email2* related = root->findContentType("multipart/related"))
      related->m_contentType.m_subtype.setString("text/html");
    root->removeAlternative(type.c_str(), quiet);
    EXPECT_EQ(printTree(root), after) << type;
  }
  const EmailPtr root = buildTree("alternative(plain,html)");
  {
    const Killed dead(*root->getPart(0));
    root->removeAlternative("text/html", quiet);
  }
  EXPECT_EQ(printTree(root), "alternative(plain,html)") << "deliberately a dead child ends the removal";
}

TEST(Structure, alternatives_are_listed_once_per_type_in_the_order_of_the_bodies) {
  expectOfTrees(alternativesOf, R"(
      # What says nothing about itself is one text.
      none | /               none:inline |          signed(none,p7s) |
      plain | /              report(plain) |        mixed(plain,html) | /0 /1
      # In mixed, related goes first and loose texts go last; in alternative, mixed does.
      mixed(html,alternative(plain,html),related(html)) | /2/0 /1/0   mixed(mixed(html),plain,html) | /0/0 /1
      alternative(mixed(calendar,plain),html,plain) | /1 /2 /0/0      related(mixed(html),html) | /1
      alternative(related(html,png),plain) | /0/0 /1                  alternative(plain:attachment,html) | /1
      # What was signed is the first that is no signature, and deliberately not seen in mixed.
      signed(alternative(plain,html),p7s) | /0/0 /0/1                 signed(p7s,plain,html) | /1
      mixed(signed(alternative(plain,html),p7s),plain) | /1)");

  const EmailPtr root = buildTree("signed(plain,html)");
  const Killed dead(*root->getPart(0));
  EXPECT_EQ(alternativesOf(*root), "") << "deliberately a dead first part hides what was signed";
}

TEST(Structure, some_parts_never_count_as_alternatives) {
  expectOfTrees([](Email2& node) { return node.isNotAlternativeBody() ? "never" : "may"; }, R"(
      plain:ATTACHMENT | never      plain[name=a.txt,enc=BASE64] | never      plain[name=key.PEM] | never
      plain:inline | may            plain[name=a.txt] | may                   plain[enc=base64] | may
      plain[name=a.txt,enc=base64]:inline | never
      mixed:attachment | may        application/edifact | never               application/smil | never
      rfc822:attachment | may       rfc822[file=a.MHT]:attachment | never     rfc822[file=a.mht]:inline | may
      rfc822[name=a.pem] | may)");
}

TEST(Structure, alternatives_are_found_by_index_and_by_type) {
  const EmailPtr root = buildTree("mixed(alternative(plain[body=text],html[body=page]),pdf)");
  EXPECT_EQ(root->getHtmlAlternativeIndex() - root->getPlainTextAlternativeIndex(), 1);
  EXPECT_EQ(root->getAlternativeIndexByContentType("TEXT/HTML"), 1);
  EXPECT_EQ(root->getAlternativeIndexByContentType("application/pdf"), -1);
  EXPECT_EQ(pathOf(*root, root->getPlainTextAlternative()), "/0/0");
  EXPECT_EQ(pathOf(*root, root->getHtmlAlternative()), "/0/1");
  EXPECT_EQ(root->getAlternative(*root, 1), root->getHtmlAlternative());
  EXPECT_FALSE(root->getAlternativeByContentType("text/calendar") || root->getAlternative(*root, 2) ||
               root->getAlternative(*root, -1));

  StringBuffer type("left over");
  EXPECT_FALSE(root->getAlternativeContentType(2, type, nullptr));
  EXPECT_EQ(type.view(), "left over");
  EXPECT_TRUE(root->getAlternativeContentType(1, type, nullptr));
  EXPECT_EQ(type.view(), "text/html");
  EXPECT_TRUE(buildTree("none")->getAlternativeContentType(0, type, nullptr));
  EXPECT_EQ(type.view(), "") << "deliberately a message without type is one alternative of no type";
}

TEST(Structure, alternative_bodies_are_converted_to_a_code_page_from_1_up) {
  const EmailPtr root = buildTree("plain[body=Gr\xC3\xBC\xC3\x9F]");
  for (const int codePage : {28591, 0}) {
    DataBuffer body;
    EXPECT_TRUE(root->getAlternativeBodyMb(*root, 0, body, codePage, quiet)) << codePage;
    EXPECT_EQ(body.view(), codePage ? "Gr\xFC\xDF" : "Gr\xC3\xBC\xC3\x9F");
    EXPECT_FALSE(root->getAlternativeBodyMb(*root, 1, body, codePage, quiet)) << codePage;
  }
}

TEST(Structure, many_text_types_are_still_listed_once_each) {
  std::string tree = "mixed(text/x0", expected = "/0";
  for (int i = 1; i < 40; ++i) {
    tree += (i < 20 ? ",text/x" : ",text/X") + std::to_string(i % 20);
    if (i < 20) expected += " /" + std::to_string(i);
  }
  const EmailPtr root = buildTree(tree + ")");
  ExtPtrArray found;
  for (int time = 1; time <= 2; ++time) root->enumerateAlternatives(*root, found);
  EXPECT_EQ(pathsOf(*root, found), expected) << "types that were in the list before count too";
}

/// What is appended to a text that was there; "none" when that was removed, "LEFT" when it is alone.
std::string effectiveBodyOf(Email2& root) {
  DataBuffer out;
  out.append("had:");
  const bool found = root.getEffectiveBodyData(root, out, quiet);
  return found ? std::string(out.view()) : out.isEmpty() ? "none" : "LEFT";
}

TEST(Structure, effective_body_is_the_leaf_a_reader_would_see) {
  expectOfTrees(effectiveBodyOf, R"(
      # Media empties what the caller had.
      png | none      pdf | none      video/mp4 | none      audio/wav | none      plain[body=] | had:
      mixed(plain:attachment,html) | had:html                 mixed(plain,html) | had:plain
      mixed(plain:attachment,html:attachment) | had:plain     mixed(plain:attachment) | had:plain
      mixed(related(html,png),pdf) | had:html                 mixed[body=not split] | had:not split
      # Below something that is no multipart: the first leaf that is a body, then the first child.
      rfc822 | had:rfc822                                   rfc822(mixed(plain),html) | had:html
      rfc822(plain:attachment,html) | had:html              rfc822(mixed(plain),pdf) | had:pdf)");
}

TEST(Structure, effective_body_passes_over_dead_and_missing_children_but_stops_at_a_dead_first_part) {
  const EmailPtr message = buildTree("rfc822(plain,html)"), mixed = buildTree("mixed(plain,html)");
  const EmailPtr holed = buildTree("mixed(plain)");
  holed->m_subParts.insertAt(0, nullptr);
  const Killed dead(*message->getPart(0)), deadToo(*mixed->getPart(0));
  EXPECT_EQ(effectiveBodyOf(*message), "had:html");
  EXPECT_EQ(effectiveBodyOf(*mixed), "LEFT");
  EXPECT_EQ(effectiveBodyOf(*holed), "had:plain");
  EXPECT_EQ(alternativesOf(*holed), "/1");
  holed->m_subParts.removeAt(0);
}

}  // namespace
}  // namespace mailtree
