// support/identities.h - the identities of tests/data/secure.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/SystemCerts.h"
#include "tests/support/places.h"

namespace mailtree {

inline constexpr const char* kIdentityPassword = "secret";

inline std::string identityFile(const std::string& name) { return places::testData() + "/secure/" + name; }

/// Adds files of tests/data/secure; each must be readable.
inline void addIdentities(SystemCerts& certs, std::initializer_list<const char*> files) {
  LogMemory log;
  for (const char* file : files)
    EXPECT_GT(certs.addFromFile(identityFile(file).c_str(), kIdentityPassword, log), 0) << file << log.text();
}

/// The certificate in a file of tests/data/secure.
inline RefPtr<Certificate> identity(const std::string& file) {
  SystemCerts certs;
  addIdentities(certs, {file.c_str()});
  return RefPtr<Certificate>(certs.getCertificate(0));
}

}  // namespace mailtree
