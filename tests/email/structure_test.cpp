// Enclosures and alternatives: which multipart is found, which texts are the bodies of a message.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// Deeper than any call stack could follow.
constexpr int kAbyss = 100'000;

std::string alternativesOf(Email2& root) {
  ExtPtrArray found;
  root.enumerateAlternatives(root, found);
  return pathsOf(root, found);
}

TEST(Structure, predicates_know_their_type_in_any_case_and_nothing_longer_or_shorter) {
  const struct {
    const char* type;
    const char* kinds;  // Mixed, Alternative, Related, Digest, rePort, Fax, mixed-Like, mUltipart
  } rows[] = {
      {"multipart/mixed", "MLU"},
      {"Multipart/MIXED", "MLU"},
      {"multipart/x-mixed-replace", "MLU"},
      {"multipart/alternative", "AU"},
      {"multipart/Related", "RU"},
      {"multipart/digest", "DU"},
      {"multipart/report", "PU"},
      {"multipart/fax-message", "FU"},
      {"multipart/encrypted", "LU"},
      {"multipart/voice-message", "LU"},
      {"multipart/*", "LU"},
      {"multipart/mixed2", "U"},
      {"multipart/mixe", "U"},
      {"multipartx", "U"},
      {"nultipart/mixed", ""},
      {"text/plain", ""},
      {"", ""},
  };
  for (const auto& row : rows) {
    const EmailPtr node(Email2::createNewObject00());
    node->m_contentType.m_type.setString(row.type);
    std::string kinds;
    if (node->isMultipartMixed()) kinds += 'M';
    if (node->isMultipartAlternative()) kinds += 'A';
    if (node->isMultipartRelated()) kinds += 'R';
    if (node->isMultipartDigest()) kinds += 'D';
    if (node->isMultipartReport()) kinds += 'P';
    if (node->isMultipartFax()) kinds += 'F';
    if (node->isMultipartMixedForAttachmentPurposes()) kinds += 'L';
    if (node->isMultipart()) kinds += 'U';
    EXPECT_EQ(kinds, row.kinds) << row.type;
  }
}

TEST(Structure, enclosure_search_finds_the_nearest) {
  const struct {
    const char* tree;
    int kind;
    const char* found;
    const char* parent;  // "none": left as it was
    int level;
  } rows[] = {
      {"mixed(plain)", 1, "/", "none", 0},
      {"multipart/x-mixed-replace(plain)", 1, "/", "none", 0},
      {"mixed(alternative(plain,html),alternative)", 2, "/0", "/", 1},
      {"mixed(related(alternative(plain,html)),alternative(plain))", 2, "/1", "/",
       1},  // a direct child beats a deeper one
      {"mixed(report(report(related)),report(related))", 3, "/0/0/0", "/0/0",
       3},  // the first branch beats a nearer one
      {"mixed(plain,digest(rfc822))", 4, "/1", "/", 1},
      {"mixed(report(plain,delivery))", 5, "/0", "/", 1},
      {"mixed(report(report(report(alternative(plain)))))", 2, "/0/0/0/0", "/0/0/0", 4},
      {"mixed(report(report(report(report(alternative(plain))))))", 2, "none", "none", 0},
      {"mixed(report(report(report(report(related(plain))))))", 3, "none", "none", 0},
      {"mixed(plain)", 2, "none", "none", 0},
      {"mixed(plain)", 0, "none", "none", 0},
      {"mixed(plain)", 6, "none", "none", 0},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    _svParentEmailPtr place;
    const Email2* const found = root->findMultipartEnclosureV2(row.kind, 0, place);
    EXPECT_EQ(pathOf(*root, found), row.found) << row.tree << " " << row.kind;
    EXPECT_EQ(pathOf(*root, place.m_parent), row.parent) << row.tree << " " << row.kind;
    EXPECT_EQ(place.m_level, row.level) << row.tree << " " << row.kind;
    if (place.m_parent) {
      EXPECT_EQ(place.m_parent->getPart(place.m_index), found) << row.tree;
    }
    EXPECT_EQ(root->findMultipartEnclosure(row.kind, 0), found) << row.tree << " " << row.kind;
  }
}

TEST(Structure, enclosure_search_counts_the_levels_its_caller_descended) {
  const EmailPtr root = buildTree("mixed(report(alternative(plain)))");
  EXPECT_EQ(pathOf(*root, root->findMultipartEnclosure(2, 2)), "/0/0");
  EXPECT_EQ(root->findMultipartEnclosure(2, 3), nullptr);
  EXPECT_EQ(pathOf(*root, root->findMultipartEnclosure(1, 9)), "/") << "the node itself is seen at any level";

  _svParentEmailPtr place;
  place.m_index = 7;
  EXPECT_EQ(root->findMultipartEnclosureV2(1, 9, place), root.get());
  EXPECT_EQ(place.m_level, 9);
  EXPECT_EQ(place.m_index, 7) << "only the level is set when the node itself matches";
}

TEST(Structure, searches_survive_a_chain_deeper_than_the_call_stack) {
  const EmailPtr mixed = buildChain(kAbyss, "multipart/mixed", "text/html");
  ASSERT_NE(mixed->findContentType("text/html"), nullptr);
  EXPECT_EQ(mixed->findMultipartEnclosure(2, -kAbyss), nullptr);
  EXPECT_EQ(mixed->getHtmlAlternativeIndex(), 0);
  EXPECT_EQ(mixed->findHtmlPart(), mixed->findContentType("TEXT/html"));
  DataBuffer body;
  LogNull log;
  EXPECT_TRUE(mixed->getEffectiveBodyData(*mixed, body, log));

  const EmailPtr related = buildChain(kAbyss, "multipart/related", "text/plain");
  EXPECT_EQ(related->getPlainTextAlternativeIndex(), 0);
  const EmailPtr alternative = buildChain(kAbyss, "multipart/alternative", "text/html");
  EXPECT_EQ(alternative->getNumAlternatives(), 1);
}

TEST(Structure, find_content_type_looks_at_parents_before_children) {
  const struct {
    const char* tree;
    const char* type;
    const char* found;
  } rows[] = {
      {"mixed(related(html),html,mixed(pdf))", "text/html", "/0/0"},
      {"mixed(related(html),html,mixed(pdf))", "MULTIPART/mixed", "/"},
      {"mixed(related(html),html,mixed(pdf))", "application/pdf", "/2/0"},
      {"mixed(related(html))", "text/plain", "none"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    EXPECT_EQ(pathOf(*root, root->findContentType(row.type)), row.found) << row.tree << " " << row.type;
  }
}

TEST(Structure, converting_moves_the_content_into_a_first_child) {
  const struct {
    const char* tree;
    const char* type;
    const char* after;
  } rows[] = {
      {"plain[body=Hello]", "multipart/mixed", "mixed(plain)"},
      {"plain[body=]", "multipart/mixed", "mixed"},
      {"none[body=]", "multipart/mixed", "mixed"},  // no type: a text like any other
      {"none[body=Hello]", "multipart/mixed", "mixed(none)"},
      {"html[body=]", "multipart/related", "related(html)"},
      {"pdf[name=a.pdf]:attachment", "multipart/mixed", "mixed:attachment(application/pdf[name=a.pdf])"},
      {"mixed(plain,alternative(html),pdf)", "multipart/alternative",
       "alternative(mixed(plain,alternative(html),pdf))"},
      {"mixed", "multipart/mixed", "mixed(mixed)"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    LogNull log;
    root->convertToMultipartX(row.type, log);
    const EmailPtr after = buildTree(row.after);
    EXPECT_EQ(printTree(root, TreeDetail::names), printTree(after, TreeDetail::names)) << row.tree;
  }
}

TEST(Structure, converting_keeps_the_message_on_the_root_and_gives_the_rest_to_the_child) {
  const EmailPtr root = buildTree("mixed[enc=quoted-printable](plain)");
  LogNull log;
  root->setHeaderField("Subject", "Plans", log);
  const std::string boundary = root->m_contentType.m_boundary.getString();
  root->convertToMultipartX("multipart/related", log);

  const Email2& child = *root->getPart(0);
  EXPECT_EQ(fieldOf(*root, "Subject"), "Plans");
  EXPECT_EQ(root->m_transferEncoding.view(), "");
  EXPECT_FALSE(root->hasHeaderField("Content-Transfer-Encoding", log));
  EXPECT_THAT(fieldOf(*root, "Content-Type"), testing::HasSubstr(root->m_contentType.m_boundary.getString()));
  EXPECT_NE(root->m_contentType.m_boundary.view(), boundary);
  EXPECT_EQ(child.m_contentType.m_boundary.view(), boundary);
  EXPECT_THAT(fieldOf(child, "Content-Type"), testing::HasSubstr(boundary));
  EXPECT_EQ(child.m_transferEncoding.view(), "quoted-printable");
  EXPECT_EQ(fieldOf(child, "Content-Transfer-Encoding"), "quoted-printable");
  EXPECT_EQ(child.m_common, root->m_common);
}

TEST(Structure, converting_moves_the_body) {
  const EmailPtr root = buildTree("plain[body=Hello]");
  LogMemory log;
  log.m_verboseLogging = true;
  root->convertToMultipartX("multipart/mixed", log);
  EXPECT_EQ(root->getPart(0)->m_body.view(), "Hello");
  EXPECT_TRUE(root->m_body.isEmpty());
  EXPECT_THAT(log.text(),
              testing::AllOf(testing::HasSubstr("convertToMultipartX"), testing::HasSubstr("multipart/mixed"),
                             testing::HasSubstr("text/plain")));
}

TEST(Structure, empty_enclosures_differ_in_their_boundary_only) {
  const EmailPtr owner(Email2::createNewObject00());
  LogNull log;
  const EmailPtr related(Email2::createEmptyMultipartRelated(*owner->m_common, log));
  const EmailPtr again(Email2::createEmptyMultipartRelated(*owner->m_common, log));
  const EmailPtr digest(Email2::createEmptyMultipartDigest(*owner->m_common, log));
  const EmailPtr alternative(Email2::createEmptyMultipartAlternative(*owner->m_common, log));
  EXPECT_NE(related->m_contentType.m_boundary.view(), again->m_contentType.m_boundary.view());
  EXPECT_FALSE(related->m_contentType.m_boundary.isEmpty());
  EXPECT_EQ(printTree(related) + printTree(digest) + printTree(alternative), "relateddigestalternative");
  EXPECT_EQ(related->getNumHeaderFields(), 1);
  EXPECT_EQ(related->m_common, owner->m_common);
}

TEST(Structure, an_alternative_enclosure_is_made_where_none_is_in_reach) {
  const struct {
    const char* tree;
    const char* ensured;
    const char* added;  // whether there is one or not
  } rows[] = {
      {"plain", "alternative(plain)", "alternative(plain)"},
      {"html", "alternative(html)", "alternative(html)"},
      {"mixed(plain,pdf)", "mixed(alternative,plain,pdf)", "mixed(alternative,plain,pdf)"},
      {"related(html,png)", "alternative(related(html,png))", "alternative(related(html,png))"},
      {"mixed(alternative(plain))", "mixed(alternative(plain))", "mixed(alternative,alternative(plain))"},
      {"mixed(related(alternative(html)))", "mixed(related(alternative(html)))",
       "mixed(alternative,related(alternative(html)))"},
  };
  for (const auto& row : rows) {
    LogNull log;
    const EmailPtr root = buildTree(row.tree);
    const Email2* const enclosure = root->ensureAlternativeEnclosure(log);
    ASSERT_NE(enclosure, nullptr) << row.tree;
    EXPECT_TRUE(enclosure->isMultipartAlternative()) << row.tree;
    EXPECT_EQ(printTree(root), row.ensured) << row.tree;

    const EmailPtr other = buildTree(row.tree);
    EXPECT_TRUE(other->addAlternativeEnclosure(log)) << row.tree;
    EXPECT_EQ(printTree(other), row.added) << row.tree;
  }
}

TEST(Structure, removing_an_alternative_takes_the_first_of_its_type) {
  const struct {
    const char* tree;
    const char* type;
    const char* after;
  } rows[] = {
      {"alternative(plain,html,html)", "text/html", "alternative(plain,html)"},
      {"mixed(alternative(plain,html),pdf)", "TEXT/HTML", "mixed(alternative(plain),pdf)"},
      {"alternative(plain,related(html,png))", "text/html", "alternative(plain)"},
      {"alternative(plain,related(html,png))", "text/calendar", "alternative(plain,related(html,png))"},
      {"mixed(plain,html)", "text/html", "mixed(plain,html)"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    if (Email2* related = root->findContentType("multipart/related"))
      related->m_contentType.m_subtype.setString("text/html");
    LogNull log;
    root->removeAlternative(row.type, log);
    EXPECT_EQ(printTree(root), row.after) << row.tree << " " << row.type;
  }
}

TEST(Structure, deliberately_a_dead_child_ends_the_removal_of_an_alternative) {
  const EmailPtr root = buildTree("alternative(plain,html)");
  LogMemory log;
  log.m_verboseLogging = true;
  {
    const Killed dead(*root->getPart(0));
    root->removeAlternative("text/html", log);
  }
  EXPECT_EQ(printTree(root), "alternative(plain,html)");
  EXPECT_EQ(countMessages(log), 0);
}

TEST(Structure, alternatives_are_listed_once_per_type_in_the_order_of_the_bodies) {
  const struct {
    const char* tree;
    const char* alternatives;
  } rows[] = {
      {"none", "/"},  // says nothing about itself: one text
      {"none:inline", ""},
      {"plain", "/"},
      {"pdf", ""},
      {"plain:attachment", ""},
      {"plain[name=a.txt,enc=base64]", ""},
      {"mixed(none)", ""},
      {"mixed(plain,html)", "/0 /1"},
      {"mixed(plain,alternative(plain,html))", "/1/0 /1/1"},
      {"mixed(html,alternative(plain,html),related(html))", "/2/0 /1/0"},  // related goes first
      {"mixed(mixed(html),plain,html)", "/0/0 /1"},                        // loose texts go last
      {"mixed(plain:attachment,plain)", "/1"},
      {"multipart/x-mixed-replace(plain,alternative(plain,html))", "/1/0 /1/1"},
      {"alternative(plain,related(html,png))", "/0 /1/0"},
      {"alternative(related(html,png),plain)", "/0/0 /1"},
      {"alternative(mixed(calendar,plain),html,plain)", "/1 /2 /0/0"},  // mixed below alternative goes last
      {"related(mixed(html),html)", "/1"},  // and below related is not looked into
      {"alternative(plain,calendar,text/x-other)", "/0 /1 /2"},
      {"alternative(plain,plain)", "/0"},
      {"signed(alternative(plain,html),p7s)", "/0/0 /0/1"},
      {"signed(plain,html,p7s)", "/0"},
      {"signed(p7s,plain)", "/1"},
      {"signed(mixed(plain,pdf),p7s)", "/0/0"},
      {"report(plain,delivery)", ""},
      {"digest(rfc822)", ""},
      {"fax(plain)", ""},
      {"mixed", ""},
      {"alternative(plain:attachment,html)", "/1"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    EXPECT_EQ(alternativesOf(*root), row.alternatives) << row.tree;
    ExtPtrArray found;
    root->enumerateAlternatives(*root, found);
    EXPECT_EQ(root->getNumAlternatives(), found.getSize()) << row.tree;
  }
}

TEST(Structure, deliberately_a_body_inside_signed_inside_mixed_is_not_seen) {
  const EmailPtr root = buildTree("mixed(signed(alternative(plain,html),p7s),plain)");
  EXPECT_EQ(alternativesOf(*root), "/1");
}

TEST(Structure, deliberately_a_message_without_type_is_one_alternative_of_no_type) {
  const EmailPtr root = buildTree("none[body=text]");
  LogNull log;
  StringBuffer type("left over");
  EXPECT_TRUE(root->getAlternativeContentType(0, type, &log));
  EXPECT_EQ(type.view(), "");
  EXPECT_EQ(root->getPlainTextAlternativeIndex(), -1);
}

TEST(Structure, enumeration_tells_the_root_from_an_inner_node) {
  const EmailPtr root = buildTree("signed(none,p7s)");
  ExtPtrArray found;
  root->enumerateAlternatives(*root, found);
  EXPECT_EQ(found.getSize(), 0);
  root->enumerateAlternatives(*root->getPart(0), found);
  EXPECT_EQ(pathsOf(*root, found), "/0");
}

TEST(Structure, deliberately_a_dead_first_part_hides_what_was_signed) {
  const EmailPtr root = buildTree("signed(plain,html)");
  const Killed dead(*root->getPart(0));
  EXPECT_EQ(root->getNumAlternatives(), 0);
}

TEST(Structure, some_parts_never_count_as_alternatives) {
  const struct {
    const char* node;
    bool never;
  } rows[] = {
      {"plain", false},
      {"plain:ATTACHMENT", true},
      {"plain:inline", false},
      {"plain[name=a.txt]", false},
      {"plain[name=a.txt,enc=BASE64]", true},
      {"plain[enc=base64]", false},
      {"plain[name=key.PEM]", true},
      {"pdf[enc=7bit]", false},
      {"application/edifact", true},
      {"application/smil", true},
      {"mixed:attachment", false},
      {"rfc822", false},
      {"rfc822:attachment", false},
      {"rfc822[file=page.MHT]:attachment", true},
      {"rfc822[file=page.mht]:inline", false},
      {"rfc822[name=a.pem,enc=base64]", false},
  };
  for (const auto& row : rows) EXPECT_EQ(buildTree(row.node)->isNotAlternativeBody(), row.never) << row.node;
}

TEST(Structure, alternatives_are_found_by_index_and_by_type) {
  const EmailPtr root = buildTree("mixed(alternative(plain[body=text],html[body=page]),pdf)");
  LogNull log;
  EXPECT_EQ(root->getPlainTextAlternativeIndex(), 0);
  EXPECT_EQ(root->getHtmlAlternativeIndex(), 1);
  EXPECT_EQ(root->getAlternativeIndexByContentType("TEXT/HTML"), 1);
  EXPECT_EQ(root->getAlternativeIndexByContentType("application/pdf"), -1);
  EXPECT_EQ(pathOf(*root, root->getPlainTextAlternative()), "/0/0");
  EXPECT_EQ(pathOf(*root, root->getHtmlAlternative()), "/0/1");
  EXPECT_EQ(root->getAlternativeByContentType("text/calendar"), nullptr);
  EXPECT_EQ(pathOf(*root, root->getAlternative(*root, 1)), "/0/1");
  EXPECT_EQ(root->getAlternative(*root, 2), nullptr);
  EXPECT_EQ(root->getAlternative(*root, -1), nullptr);

  StringBuffer type("left over");
  EXPECT_FALSE(root->getAlternativeContentType(2, type, nullptr));
  EXPECT_EQ(type.view(), "left over");
  EXPECT_TRUE(root->getAlternativeContentType(1, type, nullptr));
  EXPECT_EQ(type.view(), "text/html");

  DataBuffer body;
  EXPECT_TRUE(root->getAlternativeBodyData(*root, 1, body, log));
  EXPECT_EQ(body.view(), "page");
  EXPECT_FALSE(root->getAlternativeBodyData(*root, 2, body, log));
}

TEST(Structure, alternative_bodies_are_converted_to_a_code_page_from_1_up) {
  const struct {
    int codePage;
    std::string_view bytes;
  } rows[] = {{28591, "Gr\xFC\xDF"},
              {1200, std::string_view("G\0r\0\xFC\0\xDF\0", 8)},
              {65001, "Gr\xC3\xBC\xC3\x9F"},
              {0, "Gr\xC3\xBC\xC3\x9F"},
              {-5, "Gr\xC3\xBC\xC3\x9F"}};
  for (const auto& row : rows) {
    const EmailPtr root = buildTree("plain[body=Gr\xC3\xBC\xC3\x9F]");
    DataBuffer body;
    LogNull log;
    EXPECT_TRUE(root->getAlternativeBodyMb(*root, 0, body, row.codePage, log)) << row.codePage;
    EXPECT_EQ(body.view(), row.bytes) << row.codePage;
    EXPECT_FALSE(root->getAlternativeBodyMb(*root, 1, body, row.codePage, log)) << row.codePage;
  }
}

TEST(Structure, thousands_of_text_types_are_still_listed_once_each) {
  const EmailPtr root(Email2::createNewObject00());
  root->m_contentType.m_type.setString("multipart/mixed");
  constexpr int kTypes = 20'000;
  for (int i = 0; i < 2 * kTypes; ++i) {
    EmailPtr child(Email2::createNewObject0(*root->m_common));
    child->m_contentType.m_type.setString((i < kTypes ? "text/x" : "text/X") + std::to_string(i % kTypes));
    root->insertSubPartAtIndex(child.release(), -1);
  }
  ExtPtrArray found;
  root->enumerateAlternatives(*root, found);
  ASSERT_EQ(found.getSize(), kTypes);
  for (const int index : {0, 15, 16, 17, kTypes - 1})
    EXPECT_EQ(found.elementAt(index), root->getPart(index)) << index;
  root->enumerateAlternatives(*root, found);
  EXPECT_EQ(found.getSize(), kTypes) << "types that were in the list before count too";
}

TEST(Structure, effective_body_is_the_leaf_a_reader_would_see) {
  const struct {
    const char* tree;
    const char* body;
    bool found;
  } rows[] = {
      {"plain[body=text]", "had:text", true},
      {"plain[body=]", "had:", true},
      {"none[body=raw]", "had:raw", true},
      {"png", "", false},  // media empties what the caller had
      {"pdf", "", false},
      {"video/mp4", "", false},
      {"audio/wav", "", false},
      {"rfc822[body=message]", "had:message", true},
      {"mixed(plain[body=first],html[body=second])", "had:first", true},
      {"mixed(plain[body=first]:attachment,html[body=second])", "had:second", true},
      {"mixed(plain[body=first]:attachment,html[body=second]:attachment)", "had:first", true},
      {"mixed(plain[body=first]:attachment)", "had:first", true},
      {"mixed(related(html[body=deep],png),pdf)", "had:deep", true},
      {"mixed(png,plain[body=second])", "", false},
      {"mixed[body=preserved]", "had:preserved", true},  // a multipart that could not be split
      {"report(alternative(plain[body=human],html),delivery)", "had:human", true},
      // Children below something that is no multipart: the first leaf that is a body, then the first child.
      {"rfc822(mixed(plain[body=deep]),plain[body=near])", "had:near", true},
      {"rfc822(plain[body=first]:attachment,plain[body=second])", "had:second", true},
      {"rfc822(mixed(plain[body=deep]),plain[body=near]:attachment)", "had:deep", true},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    DataBuffer out;
    LogNull log;
    out.append("had:");
    EXPECT_EQ(root->getEffectiveBodyData(*root, out, log), row.found) << row.tree;
    EXPECT_EQ(out.view(), row.body) << row.tree;
  }
}

TEST(Structure, effective_body_passes_over_dead_and_missing_children_but_stops_at_a_dead_first_part) {
  LogNull log;
  const EmailPtr message = buildTree("rfc822(plain[body=first],plain[body=second])");
  DataBuffer out;
  {
    const Killed dead(*message->getPart(0));
    EXPECT_TRUE(message->getEffectiveBodyData(*message, out, log));
    EXPECT_EQ(out.view(), "second");
  }
  const EmailPtr mixed = buildTree("mixed(plain[body=first],plain[body=second])");
  const Killed dead(*mixed->getPart(0));
  EXPECT_FALSE(mixed->getEffectiveBodyData(*mixed, out, log));
  EXPECT_EQ(out.view(), "second");

  const EmailPtr holed = buildTree("mixed(plain[body=only])");
  holed->m_subParts.insertAt(0, nullptr);
  EXPECT_TRUE(holed->getEffectiveBodyData(*holed, out, log));
  EXPECT_EQ(out.view(), "secondonly");
  EXPECT_EQ(alternativesOf(*holed), "/1");
  holed->m_subParts.removeAt(0);
}

TEST(Structure, a_dead_node_answers_nothing_and_logs_no_message) {
  const EmailPtr node = buildTree("alternative(plain,html)");
  const EmailPtr alive = buildTree("plain");
  const Killed dead(*node);
  LogMemory log;
  log.m_verboseLogging = true;
  ExtPtrArray list;
  StringBuffer text;
  DataBuffer bytes;
  _svParentEmailPtr place;

  EXPECT_FALSE(node->isMultipart() || node->isMultipartAlternative());
  EXPECT_EQ(node->findContentType("text/plain"), nullptr);
  EXPECT_EQ(node->findMultipartEnclosure(2, 0), nullptr);
  EXPECT_EQ(node->findMultipartEnclosureV2(2, 0, place), nullptr);
  node->convertToMultipartX("multipart/mixed", log);
  node->removeAlternative("text/plain", log);
  EXPECT_FALSE(node->addAlternativeEnclosure(log));
  EXPECT_EQ(node->ensureAlternativeEnclosure(log), nullptr);
  node->enumerateAlternatives(*node, list);
  node->checkAddEmailUniqueContentType(alive.get(), list);
  EXPECT_EQ(list.getSize(), 0);
  EXPECT_FALSE(node->isNotAlternativeBody());
  EXPECT_EQ(node->getNumAlternatives(), 0);
  EXPECT_EQ(node->getAlternative(*node, 0), nullptr);
  EXPECT_FALSE(node->getAlternativeContentType(0, text, &log));
  EXPECT_FALSE(node->getAlternativeBodyData(*node, 0, bytes, log));
  EXPECT_FALSE(node->getAlternativeBodyMb(*node, 0, bytes, 28591, log));
  EXPECT_EQ(node->getPlainTextAlternative(), nullptr);
  EXPECT_FALSE(node->getEffectiveBodyData(*node, bytes, log));
  EXPECT_EQ(countMessages(log), 0) << log.text();
}

TEST(Structure, deliberately_the_index_of_an_alternative_of_a_dead_node_is_0) {
  const EmailPtr node = buildTree("plain");
  EXPECT_EQ(node->getHtmlAlternativeIndex(), -1);
  const Killed dead(*node);
  EXPECT_EQ(node->getAlternativeIndexByContentType("text/calendar"), 0);
  EXPECT_EQ(node->getPlainTextAlternativeIndex(), 0);
  EXPECT_EQ(node->getHtmlAlternativeIndex(), 0);
}

}  // namespace
}  // namespace mailtree
