// cli/encrypt.cpp - mailtree encrypt: a message that only its recipients can read.
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
#include "cli/support/complaints.h"
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
  std::string text = "'" + name + "': it must be one of";
  for (const CipherRow& row : kCiphers) text.append(" ").append(row.name);
  return text;
}

/// Certificates that were named are the recipients, whoever the message is addressed to.
Exit takeNamed(const EncryptOptions& options, const Keys& keys, Email2& email) {
  for (Certificate* const certificate : keys.certificates()) {
    std::string problem = invalidityOf(*certificate);
    if (!certificate->isFitFor(CertificateUse::encrypt)) problem = "is not meant for encryption";
    if (!problem.empty()) {
      XString subject;
      LogNull log;
      certificate->getSubjectDN(subject, log);
      complain(options.file, "the certificate of " + std::string(subject.view()) + " " + problem);
      return Exit::negative;
    }
    email.addEncryptCert(certificate);
  }
  return Exit::fine;
}

/// Complains about every recipient who has no certificate, once.
Exit findAll(const EncryptOptions& options, Keys& keys, const Email2& email) {
  const std::vector<Recipient> recipients = recipientsOf(email);
  std::unordered_set<std::string> missing;
  if (recipients.empty()) {
    complain(options.file, "there are no recipients to encrypt to");
    return Exit::negative;
  }
  Exit result = Exit::fine;
  bool isTold = false;
  for (const Recipient& recipient : recipients) {
    LogNull log;
    const bool isHidden = std::string_view(recipient.field) == "Bcc";
    if (!keys.store.findByEmailAddr(recipient.address.c_str(), /*forEncryption=*/true, log)) {
      if (!missing.insert(lowerCase(recipient.address)).second) continue;
      complain(options.file, "no certificate for " + recipient.address + " (" + recipient.field + ")");
      result = Exit::negative;
    } else if (isHidden && !isTold) {
      complain(options.file,
               "warning: who looks at the envelope can see that it was made for hidden recipients too");
      isTold = true;
    }
  }
  return result;
}

Exit chooseRecipients(const EncryptOptions& options, Keys& keys, Email2& email) {
  return options.keys.certs.empty() ? findAll(options, keys, email) : takeNamed(options, keys, email);
}

Exit encrypt(const EncryptOptions& options) {
  if (options.keys.certs.empty() && options.keys.folders.empty())
    return refuse("encrypt", "--cert or --certs says to whom");
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
  if (result) return graver(limits, writeMessage(*result, options.output));
  complain(options.file, reasonOf(log, "could not be encrypted"));
  return Exit::negative;
}

}  // namespace

void addEncrypt(CLI::App& app, Action& action) {
  auto options = std::make_shared<EncryptOptions>();
  CLI::App* verb = app.add_subcommand("encrypt", "Encrypt a message (S/MIME) to its recipients");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addCertificateOptions(*verb, options->keys);
  addText(*verb, "--cipher", options->cipher,
          "aes-256-cbc (without it: every reader knows it), aes-256-gcm, both also with 128 and 192; 3des")
      ->check(checkCipher);
  verb->add_flag("--oaep", options->oaep, "Send the key to RSA recipients in OAEP instead of PKCS#1 v1.5");
  addText(*verb, "--filename", options->filename, "Name of the encrypted file; smime.p7m without it");
  addOutput(*verb, options->output);
  verb->footer(
      "With --cert the message is for these certificates, nobody else; give your own too to be able to read "
      "it.\n"
      "Without, everybody in To, Cc and Bcc is looked up in --certs; status 1, with a list, when one is not "
      "found.\n"
      "Bcc is taken out of the message and encrypted to, but every recipient can see for how many and which "
      "certificates:\nto hide somebody from the others, encrypt a copy of its own.\n"
      "The fields of the header stay readable. A message that is signed stays so inside.\n"
      "Example:\n  mailtree encrypt --certs people signed.eml -o secret.eml");
  verb->callback([options, &action] { action = [options] { return encrypt(*options); }; });
}

}  // namespace mailtree::cli
