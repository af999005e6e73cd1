// cli/sign.cpp - mailtree sign: signs a message with S/MIME.
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/base/Log.h"
#include "mailtree/message/securing.h"

namespace mailtree::cli {
namespace {

struct SignOptions {
  std::string file;
  mailtree::SignOptions form;
  bool noChain = false, noTime = false, noCertificateId = false;
  KeyOptions keys;
  Destination output;
};

/// The given certificate that matches From, else the first given one; without any, the one issued to From.
/// Null when there is none with a private key.
const Certificate* signerFor(const std::string& from, Keys& keys) {
  const std::vector<Certificate*> named = keys.withPrivateKey();
  const auto own = std::ranges::find_if(
      named, [&](const Certificate* certificate) { return certificate->isForAddress(from); });
  if (own != named.end()) return *own;
  if (!named.empty() || !keys.named.empty()) return named.empty() ? nullptr : named.front();
  LogNull log;
  return keys.store.findByEmailAddr(from.c_str(), /*forEncryption=*/false, log);
}

/// Warns of faults that recipients will find in the signature.
void warnOf(const std::string& file, const std::string& from, bool isPss, const Certificate& signer) {
  if (!signer.isForAddress(from))
    reportError(file,
                "warning: the certificate is not issued to " + (from.empty() ? "any address in From" : from));
  if (!signer.isFitFor(CertificateUse::sign))
    reportError(file, "warning: the certificate is not valid for signing mail");
  if (const std::string problem = invalidityOf(signer); !problem.empty())
    reportError(file, "warning: the certificate " + problem);
  if (isPss && signer.keyAlgorithm() != "RSA")
    reportError(file, "warning: --pss has no effect with a key of type " + signer.keyAlgorithm());
}

mailtree::SignOptions formOf(const SignOptions& options, const Certificate* signer) {
  mailtree::SignOptions form = options.form;
  form.chain = !options.noChain;
  form.time = !options.noTime;
  form.certificateId = !options.noCertificateId;
  if (signer) form.certificate = signer->fingerprint();
  return form;
}

Exit sign(const SignOptions& options) {
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  std::optional<mailtree::Message> message = openMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, limitsIn(*message));
  const std::string from = message->from().address;
  const Certificate* const signer = signerFor(from, keys);
  if (!signer && !keys.named.empty()) {
    reportError(options.file, "the given certificate has no private key (use --key, or --p12 for both)");
    return Exit::negative;
  }
  if (signer) warnOf(options.file, from, options.form.pss, *signer);
  if (const Result<void> done = message->sign(keys.all, formOf(options, signer)); !done) {
    reportError(options.file, done.error().message);
    return Exit::negative;
  }
  return worse(limits, writeMessage(*message, options.output));
}

}  // namespace

void addSign(Verb app, Action& action) {
  auto options = std::make_shared<SignOptions>();
  const Verb verb = app.addVerb("sign", "Sign a message (S/MIME)");
  verb.addText("FILE", options->file, "Message; - is standard input").required();
  addCertificateOptions(verb, options->keys);
  addPrivateKeyOptions(verb, options->keys);
  verb.addFlag("--opaque", options->form.opaque,
               "Put content and signature into one file, which any server leaves unchanged");
  verb.addText("--digest", options->form.digest, "Digest: sha256 (default), sha384 or sha512")
      .check(digestProblem);
  verb.addFlag("--pss", options->form.pss, "Use RSA-PSS instead of PKCS#1 v1.5");
  verb.addText("--filename", options->form.fileName,
               "Name of the signature file (default: smime.p7s or smime.p7m)");
  verb.addFlag("--no-chain", options->noChain, "Include only the signer's certificate, not its chain");
  verb.addFlag("--no-time", options->noTime, "Leave out the signing time and the S/MIME capabilities");
  verb.addFlag("--no-certificate-id", options->noCertificateId,
               "Leave out the signing certificate attribute (signing-certificate-v2)");
  addOutput(verb, options->output);
  verb.setFooter(
      "The signer is the certificate of --cert and --key or --p12, else the one in --certs issued to\n"
      "the address in From. Bcc is removed. Signed or encrypted content is signed unchanged, with its\n"
      "layers.\n"
      "Example:\n  mailtree sign --p12 anna.p12 mail.eml -o signed.eml");
  verb.whenChosen([options, &action] { action = [options] { return sign(*options); }; });
}

}  // namespace mailtree::cli
