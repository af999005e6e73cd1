// cli/sign.cpp - mailtree sign: signs a message with S/MIME.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/secure/keys.h"
#include "cli/secure/sending.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/crypto/Cades.h"

namespace mailtree::cli {
namespace {

struct SignOptions {
  std::string file;
  std::string digest = "sha256";
  std::optional<std::string> filename;
  bool opaque = false, pss = false;
  bool noChain = false, noTime = false, noCertificateId = false;
  KeyOptions keys;
  std::string output;
};

/// Secure digests and their micalg names (RFC 8551, 3.5.3.2).
struct DigestRow {
  std::string_view name;
  const char* micalg;
};
constexpr DigestRow kDigests[] = {{"sha256", "sha-256"}, {"sha384", "sha-384"}, {"sha512", "sha-512"}};

const DigestRow* digestOf(std::string_view name) {
  std::string plain(name);
  std::erase(plain, '-');
  const auto* const row = std::ranges::find_if(
      kDigests, [&](const DigestRow& digest) { return equalsNoCase(digest.name, plain); });
  return row == std::end(kDigests) ? nullptr : row;
}

std::string checkDigest(const std::string& name) {
  return digestOf(name) ? std::string() : "'" + name + "': must be sha256, sha384 or sha512";
}

std::string fromOf(Email2& email) {
  StringBuffer address;
  email.getFromAddrUtf8(address);
  return address.extractString();
}

/// The given certificate that matches From, else the first given one. Null after reporting an error.
Certificate* signerFor(const std::string& file, const std::string& from, Keys& keys) {
  const std::vector<Certificate*> named = keys.withPrivateKey();
  const auto own = std::ranges::find_if(
      named, [&](const Certificate* certificate) { return certificate->isForAddress(from); });
  if (own != named.end()) return *own;
  if (!named.empty()) return named.front();
  if (!keys.named.empty()) {
    reportError(file, "the given certificate has no private key (use --key, or --p12 for both)");
    return nullptr;
  }
  LogNull log;
  Certificate* const found = keys.store.findByEmailAddr(from.c_str(), /*forEncryption=*/false, log);
  if (!found)
    reportError(file, from.empty() ? "missing From address to find a certificate by"
                                   : "no signing certificate with a private key for " + from);
  return found;
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

EmailPtr signedBy(Email2& email, const SignOptions& options, Certificate& signer, SystemCerts& certs,
                  LogBase& log) {
  // Sets only the member: in the field, an existing signature must keep naming its own digest.
  email.m_contentType.m_micalg.setString(std::string_view(digestOf(options.digest)->micalg));
  email.setSigningCert(&signer);
  _clsCades cades;
  cades.m_rsaPss = options.pss;
  const char* const filename = options.filename ? options.filename->c_str() : nullptr;
  const auto operation = options.opaque ? &Email2::createSignedData : &Email2::createMultipartSigned;
  const char* const name = filename ? filename : options.opaque ? "smime.p7m" : "smime.p7s";
  return EmailPtr((email.*operation)(!options.noTime, !options.noCertificateId, !options.noChain, cades, name,
                                     certs, log));
}

Exit sign(const SignOptions& options) {
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  std::optional<Message> message = loadToSecure(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());
  const std::string from = fromOf(*message->root);
  Certificate* const signer = signerFor(options.file, from, keys);
  if (!signer) return Exit::negative;
  if (!options.opaque) encodeForTransport(*message->root);
  warnOf(options.file, from, options.pss, *signer);
  LogMemory log;
  const EmailPtr result = signedBy(*message->root, options, *signer, keys.store, log);
  if (result) return worse(limits, writeMessage(*result, options.output));
  reportError(options.file, reasonOf(log, "could not be signed"));
  return Exit::negative;
}

}  // namespace

void addSign(CLI::App& app, Action& action) {
  auto options = std::make_shared<SignOptions>();
  CLI::App* verb = app.add_subcommand("sign", "Sign a message (S/MIME)");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addCertificateOptions(*verb, options->keys);
  addPrivateKeyOptions(*verb, options->keys);
  verb->add_flag("--opaque", options->opaque,
                 "Put content and signature into one file, which any server leaves unchanged");
  addText(*verb, "--digest", options->digest, "Digest: sha256 (default), sha384 or sha512")
      ->check(checkDigest);
  verb->add_flag("--pss", options->pss, "Use RSA-PSS instead of PKCS#1 v1.5");
  addText(*verb, "--filename", options->filename,
          "Name of the signature file (default: smime.p7s or smime.p7m)");
  verb->add_flag("--no-chain", options->noChain, "Include only the signer's certificate, not its chain");
  verb->add_flag("--no-time", options->noTime, "Leave out the signing time and the S/MIME capabilities");
  verb->add_flag("--no-certificate-id", options->noCertificateId,
                 "Leave out the signing certificate attribute (signing-certificate-v2)");
  addOutput(*verb, options->output);
  verb->footer(
      "The signer is the certificate of --cert and --key or --p12, else the one in --certs issued to\n"
      "the address in From. Bcc is removed. Signed or encrypted content is signed unchanged, with its\n"
      "layers.\n"
      "Example:\n  mailtree sign --p12 anna.p12 mail.eml -o signed.eml");
  verb->callback([options, &action] { action = [options] { return sign(*options); }; });
}

}  // namespace mailtree::cli
