// cli/secure/keys.h - the options that name certificates, private keys, trust anchors and revocation lists.
#pragma once

#include <string>
#include <vector>

#include "cli/secure/passwords.h"
#include "mailtree/crypto/SystemCerts.h"

namespace mailtree::cli {

struct KeyOptions {
  std::vector<std::string> certs, keys, pkcs12, folders, trust, revoked;
  PasswordOptions passwords;
};

/// --cert and --certs.
void addCertificateOptions(CLI::App& verb, KeyOptions& options);
/// --key, --p12, and where their passwords come from.
void addPrivateKeyOptions(CLI::App& verb, KeyOptions& options);
/// --trust and --crl.
void addTrustOptions(CLI::App& verb, KeyOptions& options);
/// All of them, for a verb that reads messages.
void addReadingKeyOptions(CLI::App& verb, KeyOptions& options);

/// What the options gave.
struct Keys {
  SystemCerts store;
  /// The certificate that each file is about, by its fingerprint: the first one with a private key, else the first
  /// one. Chains follow it.
  std::vector<std::string> named;

  /// Those of the named ones that have a private key; borrowed.
  std::vector<Certificate*> withPrivateKey() const;
  /// The named ones; borrowed.
  std::vector<Certificate*> certificates() const;
};

/// Reads everything that the options name. unreadable after a complaint that names the file.
Exit readKeys(const KeyOptions& options, Keys& keys);

}  // namespace mailtree::cli
