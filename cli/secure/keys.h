// cli/secure/keys.h - options for certificates, private keys, trust anchors and revocation lists.
#pragma once

#include <string>
#include <vector>

#include "cli/message/streaming.h"
#include "cli/secure/passwords.h"
#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/message/Keys.h"

namespace mailtree::cli {

class Verb;

struct KeyOptions {
  std::vector<std::string> certs, keys, pkcs12, folders, trust, revoked;
  PasswordOptions passwords;

  bool isAny() const {
    return !(certs.empty() && keys.empty() && pkcs12.empty() && folders.empty() && trust.empty() &&
             revoked.empty());
  }
};

/// Adds --cert and --certs.
void addCertificateOptions(Verb verb, KeyOptions& options);
/// Adds --key, --p12 and the password options.
void addPrivateKeyOptions(Verb verb, KeyOptions& options);
/// Adds --trust and --crl.
void addTrustOptions(Verb verb, KeyOptions& options);
/// Adds all of them, for a verb that reads messages.
void addReadingKeyOptions(Verb verb, KeyOptions& options);

/// The settings for messages that are read with keys: those serve one thread, so with any there is only one.
StreamSettings streamWith(const KeyOptions& keys, StreamSettings settings);

/// The certificates and keys that were read.
struct Keys {
  mailtree::Keys all;
  SystemCerts& store = all.systemCerts();
  /// Fingerprint of each file's own certificate: the first with a private key, else the first. The others
  /// are its chain.
  std::vector<std::string> named;

  /// The named certificates that have a private key; borrowed.
  std::vector<Certificate*> withPrivateKey() const;
  /// The named certificates; borrowed.
  std::vector<Certificate*> certificates() const;
};

/// Reads all files that the options name. unreadable after reporting an error with the file name.
Exit readKeys(const KeyOptions& options, Keys& keys);

}  // namespace mailtree::cli
