// What the command prints as JSON is what docs/json-schema.json says.
#include <gtest/gtest.h>

#include <sstream>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

using Json = nlohmann::json;
using valijson::adapters::NlohmannJsonAdapter;

/// The schema allows what later versions may add; here a name that it does not have is a fault.
void closeObjects(Json& schema) {
  if (schema.contains("properties") && !schema.contains("additionalProperties"))
    schema["additionalProperties"] = false;
  for (Json& value : schema)
    if (value.is_structured()) closeObjects(value);
}

/// What does not fit the definition; empty when all does.
std::string faultsOf(const Json& document, const std::string& definition) {
  static const Json whole = [] {
    Json schema = Json::parse(readFile(places::sourceFolder() + "/docs/json-schema.json"));
    closeObjects(schema);
    return schema;
  }();
  const Json wanted = {{"definitions", whole["definitions"]},
                       {"allOf", {{{"$ref", "#/definitions/" + definition}}}}};
  valijson::Schema schema;
  valijson::SchemaParser(valijson::SchemaParser::kDraft7).populateSchema(NlohmannJsonAdapter(wanted), schema);
  valijson::ValidationResults results;
  valijson::Validator().validate(schema, NlohmannJsonAdapter(document), &results);
  std::string faults;
  for (const auto& fault : results) {
    for (const std::string& step : fault.context) faults += step;
    faults += ": " + fault.description + "\n";
  }
  return faults;
}

TEST(JsonSchema, describes_what_is_printed) {
  const Workspace work;
  work.write(
      "\xE9",
      "From: \xE9\xFF <a\xC0@x>\nTo: G\xE9: a@x;, b\nSubject: \xFF\nMessage-ID: <\xE9@x>\nReferences: "
      "<\xFF>\n"
      "List-Id: <\xC0.x>\nReply-To: <\xE9>\nDate: Thu, 1 Jan 2026 00:00:00 +9999\nX-\xE9: \xE9\n"
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain; "
      "charset=x-\xE9\n\n\xE9\xFF\n"
      "--b\nContent-Type: a\xE9/b\xE9; name=\"\xFF\"\nContent-ID: <\xE9>\nContent-Language: \xE9\n"
      "Content-Location: \xE9\nContent-Disposition: \xE9\n\n\xFF\n--b\nContent-Type: message/rfc822\n\n"
      "From: \xE9\nSubject: \xFF\n\nx\n--b\nContent-Type: multipart/digest; boundary=c\n\n--c\n\nFrom: "
      "a\n\n--c--\n");
  work.write("letter", "From: alice@example.com\nTo: alice@example.com\n\nx\n");
  const std::string alice =
                        " --cert tests/data/secure/alice.pem --cert tests/data/secure/intermediate.pem"
                        " --key tests/data/secure/alice.key ",
                    begin = "cd '" + places::sourceFolder() + "'; folder='" + work.folder().string() + "'; ";
  shell(begin + "$mailtree sign $folder/letter -o $folder/signed" + alice +
        "&& $mailtree encrypt $folder/signed -o $folder/sealed --cert tests/data/secure/alice.pem");
  std::string forms;
  for (const std::string form :
       {"To:asGroupedAddresses", "Cc:asAddresses:all", "References:asMessageIds", "Date:asDate:all",
        "Subject", "Subject:asText", "List-Unsubscribe:asURLs", "Received:all"})
    forms += " --header header:" + form;
  const std::string files = " samples tests/data/reports $folder",
                    keys = alice + "--trust tests/data/secure/root.pem";
  constexpr struct {
    const char *definition, *arguments;
    bool hasKeys = false, hasForms = false;
    int count = 26;
  } kOutputs[] = {{"show", "show --json", true},
                  {"show", "show --json --headers --body"},
                  {"jmap", "show --jmap", true},
                  {"jmap", "show --jmap --headers", false, true},
                  {"attachments", "attachments --json"},
                  {"related", "related --json"},
                  {"messages", "messages --json"},
                  {"report", "report --json"},
                  {"verify", "verify --json", true},
                  {"check", "check --json"},
                  {"jmap", "export --json --attachments $folder.files"},
                  {"list", "list --json"},
                  {"list", "list --json --threads"},
                  {"list", "find --json size:..9G"},
                  {"summary", "list --json --summary sender", false, false, 22}};
  for (const auto& output : kOutputs) {
    std::istringstream lines(shell(begin + "$mailtree " + output.arguments + (output.hasKeys ? keys : "") +
                                   (output.hasForms ? forms : "") + files)
                                 .out);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
      EXPECT_EQ(faultsOf(Json::parse(line), output.definition), "") << output.arguments << '\n' << line;
    EXPECT_EQ(count, output.count) << output.arguments;
  }
  EXPECT_NE(faultsOf(Json::parse(R"({"schema":1,"file":"","security":null,"new":1})"), "verify"), "");
}

}  // namespace
}  // namespace mailtree::cli_test
