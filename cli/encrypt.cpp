// cli/encrypt.cpp - mailtree encrypt: encrypts a message to its recipients.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <unordered_set>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/secure/keys.h"
#include "cli/secure/sending.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/crypto/Pkcs7Builder.h"

namespace mailtree::cli {
namespace {

struct EncryptOptions {
  std::string file;
  std::string cipher = "aes-256-cbc";
  std::optional<std::string> filename;
  bool oaep = false;
  KeyOptions keys;
  std::string output;
};

struct CipherRow {
  std::string_view name;
  ContentCipher cipher;
  int keyBits;
};
constexpr CipherRow kCiphers[] = {
    {"aes-128-cbc", ContentCipher::aesCbc, 128}, {"aes-192-cbc", ContentCipher::aesCbc, 192},
    {"aes-256-cbc", ContentCipher::aesCbc, 256}, {"aes-128-gcm", ContentCipher::aesGcm, 128},
    {"aes-192-gcm", ContentCipher::aesGcm, 192}, {"aes-256-gcm", ContentCipher::aesGcm, 256},
    {"3des", ContentCipher::tripleDes, 0},
};

const CipherRow* cipherOf(std::string_view name) {
  const auto* const row = std::ranges::find_if(
      kCiphers, [name](const CipherRow& cipher) { return equalsNoCase(cipher.name, name); });
  return row == std::end(kCiphers) ? nullptr : row;
}

std::string checkCipher(const std::string& name) {
  if (cipherOf(name)) return {};
  std::string text = "'" + name + "': must be one of";
  for (const CipherRow& row : kCiphers) text.append(" ").append(row.name);
  return text;
}

/// Given certificates are the recipients, whatever addresses the message has.
Exit useGivenCertificates(const EncryptOptions& options, const Keys& keys, Email2& email) {
  for (Certificate* const certificate : keys.certificates()) {
    std::string problem = invalidityOf(*certificate);
    if (!certificate->isFitFor(CertificateUse::encrypt)) problem = "is not valid for encryption";
    if (!problem.empty()) {
      XString subject;
      LogNull log;
      certificate->getSubjectDN(subject, log);
      reportError(options.file, "the certificate of " + std::string(subject.view()) + " " + problem);
      return Exit::negative;
    }
    email.addEncryptCert(certificate);
  }
  return Exit::fine;
}

/// Reports each recipient without a certificate once.
Exit findCertificates(const EncryptOptions& options, Keys& keys, const Email2& email) {
  const std::vector<Recipient> recipients = recipientsOf(email);
  std::unordered_set<std::string> missing;
  if (recipients.empty()) {
    reportError(options.file, "no recipients to encrypt to");
    return Exit::negative;
  }
  Exit result = Exit::fine;
  bool hasWarned = false;
  for (const Recipient& recipient : recipients) {
    LogNull log;
    const bool isHidden = std::string_view(recipient.field) == "Bcc";
    if (!keys.store.findByEmailAddr(recipient.address.c_str(), /*forEncryption=*/true, log)) {
      if (!missing.insert(lowerCase(recipient.address)).second) continue;
      reportError(options.file, "no certificate for " + recipient.address + " (" + recipient.field + ")");
      result = Exit::negative;
    } else if (isHidden && !hasWarned) {
      reportError(options.file, "warning: the encrypted data shows that there are Bcc recipients");
      hasWarned = true;
    }
  }
  return result;
}

Exit chooseRecipients(const EncryptOptions& options, Keys& keys, Email2& email) {
  return options.keys.certs.empty() ? findCertificates(options, keys, email)
                                    : useGivenCertificates(options, keys, email);
}

Exit encrypt(const EncryptOptions& options) {
  if (options.keys.certs.empty() && options.keys.folders.empty())
    return usageError("encrypt", "--cert or --certs is required");
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  std::optional<Message> message = loadToSecure(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());
  Email2& email = *message->root;
  if (const Exit result = chooseRecipients(options, keys, email); result != Exit::fine) return result;

  LogMemory log;
  const CipherRow& cipher = *cipherOf(options.cipher);
  const auto transport = options.oaep ? KeyTransport::oaep : KeyTransport::pkcs1;
  const EmailPtr result(email.createPkcs7Mime(
      static_cast<int>(cipher.cipher), cipher.keyBits, static_cast<int>(transport), /*oaepHash=*/0,
      /*bySubjectKeyId=*/false, options.filename ? options.filename->c_str() : "smime.p7m", keys.store, log));
  if (result) return worse(limits, writeMessage(*result, options.output));
  reportError(options.file, reasonOf(log, "could not be encrypted"));
  return Exit::negative;
}

}  // namespace

void addEncrypt(CLI::App& app, Action& action) {
  auto options = std::make_shared<EncryptOptions>();
  CLI::App* verb = app.add_subcommand("encrypt", "Encrypt a message (S/MIME) to its recipients");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addCertificateOptions(*verb, options->keys);
  addText(
      *verb, "--cipher", options->cipher,
      "Cipher: aes-256-cbc (default; all clients support it), aes-256-gcm, both also with 128 and 192; 3des")
      ->check(checkCipher);
  verb->add_flag("--oaep", options->oaep, "Use RSA-OAEP instead of PKCS#1 v1.5 for the key");
  addText(*verb, "--filename", options->filename, "Name of the encrypted file (default: smime.p7m)");
  addOutput(*verb, options->output);
  verb->footer(
      "With --cert only these certificates can read the message; add your own to be able to read it.\n"
      "Otherwise the recipients in To, Cc and Bcc are looked up in --certs; status 1, with a list, when\n"
      "any is missing. Bcc is removed from the message and encrypted to, but every recipient can see\n"
      "which certificates can decrypt: to hide a recipient, encrypt a separate copy.\n"
      "Header fields stay readable. A signed message stays signed inside.\n"
      "Example:\n  mailtree encrypt --certs people signed.eml -o secret.eml");
  verb->callback([options, &action] { action = [options] { return encrypt(*options); }; });
}

}  // namespace mailtree::cli
