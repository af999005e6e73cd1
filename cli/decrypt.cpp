// cli/decrypt.cpp - mailtree decrypt: writes an encrypted message decrypted.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/commands.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/support/output_file.h"
#include "mailtree/message/decryption.h"

namespace mailtree::cli {
namespace {

struct DecryptOptions {
  std::string file;
  KeyOptions keys;
  Destination output;
};

void reportChanges(const std::string& file, const DecryptedMessage& opened) {
  if (opened.lostSignature)
    reportError(file, "warning: the signature around the encrypted content is not in the output");
  for (const std::string& field : opened.fields)
    reportError(file,
                "warning: the encrypted field " + field + " differs from the outer one and replaces it");
  if (!opened.problem.empty()) reportError(file, "warning: another layer was not opened: " + opened.problem);
}

Exit decrypt(const DecryptOptions& options) {
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  DataBuffer bytes;
  if (!readFile(options.file, bytes)) return Exit::unreadable;
  const DecryptedMessage opened = decryptMessage(bytes.view(), keys.store);
  if (opened.bytes.empty()) {
    reportError(options.file, "nothing could be decrypted: " + opened.problem);
    return Exit::negative;
  }
  reportChanges(options.file, opened);
  TextFile out(options.output, Readers::owner);
  return out.write(opened.bytes) && out.commit() ? Exit::fine : Exit::unreadable;
}

}  // namespace

void addDecrypt(CLI::App& app, Action& action) {
  auto options = std::make_shared<DecryptOptions>();
  CLI::App* verb = app.add_subcommand(
      "decrypt", "Write an encrypted message decrypted; status 1 when it cannot be opened");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addCertificateOptions(*verb, options->keys);
  addPrivateKeyOptions(*verb, options->keys);
  addOutput(*verb, options->output);
  verb->footer(
      "Unwraps every encrypted layer that it has a key for; a signature inside is kept and can be\n"
      "verified.\n"
      "Outer header fields are kept, except those that the encrypted content has too.\n"
      "Example:\n  mailtree decrypt --p12 jo.p12 secret.eml -o mail.eml");
  verb->callback([options, &action] { action = [options] { return decrypt(*options); }; });
}

}  // namespace mailtree::cli
