// cli/verify.cpp - mailtree verify: checks the signatures of a message and what they cover.
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/json_text.h"
#include "cli/support/terminal.h"
#include "cli/views/layers.h"
#include "cli/views/security_json.h"

namespace mailtree::cli {
namespace {

struct VerifyOptions {
  SourceArguments sources;
  StreamSettings stream;
  bool json = false;
  KeyOptions keys;
};

constexpr std::size_t kNameWidth = 11;

const char* signOf(Check::Mark mark) {
  switch (mark) {
    case Check::Mark::good: return "ok  ";
    case Check::Mark::bad: return "NO  ";
    case Check::Mark::notChecked: return "?   ";
    case Check::Mark::note: break;
  }
  return "    ";
}

void writeCheck(const Check& check) {
  std::string name = check.name;
  name.resize(kNameWidth, ' ');
  writeLine(std::string("  ").append(signOf(check.mark)).append(name), check.text);
}

void writeLayer(const SecurityLayer& layer, std::size_t number, const Security& security) {
  standardOutput() << "layer " << number << ": " << mailtree::nameOf(layer.kind) << '\n';
  for (const Check& check : checksOf(layer, security)) writeCheck(check);
}

std::string quotedOrNone(const std::string& value) { return value.empty() ? "none" : inQuotes(value); }

void writeChecklist(const Security& security) {
  for (std::size_t i = 0; i < security.layers.size(); ++i) writeLayer(security.layers[i], i + 1, security);
  for (const FieldDifference& field : security.differences)
    writeLine("field ", wordOrQuoted(field.name) + ": inside part " + field.part + ": " +
                            quotedOrNone(field.inside) + ", displayed: " + quotedOrNone(field.outside));
  writeLine(security.isValid ? "valid: " : "NOT valid: ", verdictOf(security));
}

Exit verify(Input& input, const VerifyOptions& options, const Keys& keys) {
  const std::optional<mailtree::Message> message = openMessage(input, keys.all);
  if (!message) return Exit::unreadable;
  const Security& security = message->security();
  if (options.json)
    standardOutput() << ObjectText()
                            .add("schema", kSchema)
                            .add("file", input.name)
                            .addSerialized("security", securityOf(security))
                            .closed()
                     << '\n';
  else
    writeChecklist(security);
  const Exit answer = security.isValid ? Exit::fine : Exit::negative;
  return worse(answer, reportLimits(input.name, limitsIn(*message)));
}

Exit verifyAll(const VerifyOptions& options) {
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  return forEachMessage(options.sources,
                        {.hasTitles = !options.json, .stream = streamWith(options.keys, options.stream)},
                        [&](Input& input) { return verify(input, options, keys); });
}

}  // namespace

void addVerify(Verb app, Action& action) {
  auto options = std::make_shared<VerifyOptions>();
  const Verb verb = app.addVerb(
      "verify", "Check the signatures of a message; status 1 unless all is signed and every check passes");
  addSources(verb, options->sources);
  verb.addFlag("--json", options->json, "One JSON object on one line");
  addReadingKeyOptions(verb, options->keys);
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "Status 0 requires all of this: every signature is valid; one of them covers all of the content;\n"
      "its signer's certificate has a certification path to a trust anchor of --trust, is not revoked,\n"
      "is valid for signing, and is issued to the only address in From; no displayed field differs\n"
      "inside. S/MIME signs no header fields; only From is checked, by the certificate. ? marks what\n"
      "could not be checked. Encrypted layers are opened with --p12, or --cert and --key.\n"
      "Example:\n  mailtree verify --trust ca.pem mail.eml");
  verb.whenChosen([options, &action] { action = [options] { return verifyAll(*options); }; });
}

}  // namespace mailtree::cli
