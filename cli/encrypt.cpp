// cli/encrypt.cpp - mailtree encrypt: encrypts a message to its recipients.
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/message/securing.h"

namespace mailtree::cli {
namespace {

struct EncryptOptions {
  std::string file;
  mailtree::EncryptOptions form;
  KeyOptions keys;
  Destination output;
};

/// Reports each recipient without a certificate; false when there is one.
bool haveAllCertificates(const std::string& file, const std::vector<Recipient>& recipients, Keys& keys) {
  const std::vector<Recipient> missing = withoutCertificate(recipients, keys.store);
  for (const Recipient& recipient : missing)
    reportError(file, "no valid certificate for " + recipient.address + " (" + recipient.field + ")");
  const auto isHidden = [&](const Recipient& recipient) {
    return std::string_view(recipient.field).ends_with("Bcc") &&
           withoutCertificate({recipient}, keys.store).empty();
  };
  if (std::ranges::any_of(recipients, isHidden))
    reportError(file, "warning: the encrypted data shows that there are Bcc recipients");
  return missing.empty();
}

Exit encrypt(const EncryptOptions& options) {
  if (options.keys.certs.empty() && options.keys.folders.empty())
    return usageError("encrypt", "--cert or --certs is required");
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  std::optional<mailtree::Message> message = openMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, limitsIn(*message));
  // Given certificates are the readers, and not the recipients of the message.
  mailtree::EncryptOptions form = options.form;
  for (const Certificate* const given : keys.certificates())
    form.certificates.push_back(given->fingerprint());
  const bool usesRecipients = options.keys.certs.empty();
  if (usesRecipients && !haveAllCertificates(options.file, recipientsOf(message->email2()), keys))
    return Exit::negative;
  if (const Result<void> done = message->encrypt(keys.all, form); !done) {
    reportError(options.file, done.error().message);
    return Exit::negative;
  }
  return worse(limits, writeMessage(*message, options.output));
}

}  // namespace

void addEncrypt(Verb app, Action& action) {
  auto options = std::make_shared<EncryptOptions>();
  const Verb verb = app.addVerb("encrypt", "Encrypt a message (S/MIME) to its recipients");
  verb.addText("FILE", options->file, "Message; - is standard input").required();
  addCertificateOptions(verb, options->keys);
  verb.addText("--cipher", options->form.cipher,
               "Cipher: aes-256-cbc (default; all clients support it), aes-256-gcm, both also with 128 and "
               "192; 3des")
      .check(cipherProblem);
  verb.addFlag("--oaep", options->form.oaep, "Use RSA-OAEP instead of PKCS#1 v1.5 for the key");
  verb.addText("--filename", options->form.fileName, "Name of the encrypted file (default: smime.p7m)");
  addOutput(verb, options->output);
  verb.setFooter(
      "With --cert only these certificates can read the message; add your own to be able to read it.\n"
      "Otherwise the recipients in To, Cc and Bcc are looked up in --certs; status 1, with a list, when\n"
      "any is missing. Bcc is removed from the message and encrypted to, but every recipient can see\n"
      "which certificates can decrypt: to hide a recipient, encrypt a separate copy.\n"
      "Header fields stay readable. A signed message stays signed inside.\n"
      "Example:\n  mailtree encrypt --certs people signed.eml -o secret.eml");
  verb.whenChosen([options, &action] { action = [options] { return encrypt(*options); }; });
}

}  // namespace mailtree::cli
