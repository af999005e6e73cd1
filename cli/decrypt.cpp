// cli/decrypt.cpp - mailtree decrypt: writes an encrypted message decrypted.
#include <memory>

#include "cli/commands.h"
#include "cli/message/store_output.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/message/decryption.h"

namespace mailtree::cli {
namespace {

struct DecryptOptions {
  SourceArguments sources;
  KeyOptions keys;
  Destination output;
  std::string store;
};

void reportChanges(const std::string& file, const DecryptedMessage& opened) {
  if (opened.lostSignature)
    reportError(file, "warning: the signature around the encrypted content is not in the output");
  for (const std::string& field : opened.fields)
    reportError(file,
                "warning: the encrypted field " + field + " differs from the outer one and replaces it");
  if (!opened.problem.empty()) reportError(file, "warning: another layer was not opened: " + opened.problem);
}

Exit decrypt(Input& input, const DecryptOptions& options, Keys& keys) {
  DecryptedMessage opened = decryptMessage(input.bytes(), keys.store);
  if (opened.bytes.empty()) {
    reportError(input.name, "nothing could be decrypted: " + opened.problem);
    return Exit::negative;
  }
  reportChanges(input.name, opened);
  if (!options.store.empty()) {
    input.rewritten = std::move(opened.bytes);
    return Exit::fine;
  }
  TextFile out(options.output, Readers::owner);
  return out.write(opened.bytes) && out.commit() ? Exit::fine : Exit::unreadable;
}

Exit decryptAll(const DecryptOptions& options) {
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  return rewriteEachMessage(options.sources, options.store, "decrypt without --out",
                            /*stream=*/std::nullopt,  // keys serve one thread
                            [&](Input& input) { return decrypt(input, options, keys); });
}

}  // namespace

void addDecrypt(Verb app, Action& action) {
  auto options = std::make_shared<DecryptOptions>();
  const Verb verb =
      app.addVerb("decrypt", "Write an encrypted message decrypted; status 1 when it cannot be opened");
  addSources(verb, options->sources);
  addCertificateOptions(verb, options->keys);
  addPrivateKeyOptions(verb, options->keys);
  addOutput(verb, options->output);
  addStoreOutput(verb, "--out", options->store, kStoreDescription).excludes("--output");
  verb.setFooter(
      "Unwraps every encrypted layer that it has a key for; a signature inside is kept and can be\n"
      "verified.\n"
      "Outer header fields are kept, except those that the encrypted content has too.\n"
      "With --out, messages that cannot be decrypted are named and left out.\n"
      "Example:\n  mailtree decrypt --p12 jo.p12 secret.eml -o mail.eml\n"
      "  mailtree decrypt --p12 jo.p12 box.mbox --out mbox:opened.mbox");
  verb.whenChosen([options, &action] { action = [options] { return decryptAll(*options); }; });
}

}  // namespace mailtree::cli
