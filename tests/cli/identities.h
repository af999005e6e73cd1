// tests/cli/identities.h - who signs and reads in the tests of secure mail, as options of the command.
#pragma once

#include <string>

#include "tests/cli/command.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {

/// "alice.pem" in the folder of test identities.
inline std::string identity(const std::string& file) { return places::testData() + "/secure/" + file; }

/// The options for somebody's certificate and key, and the authority between it and the root.
inline std::string as(const std::string& name) {
  return " --cert " + identity(name + ".pem") + " --key " + identity(name + ".key") + " --cert " +
         identity("intermediate.pem") + " ";
}

inline std::string trusted() { return " --trust " + identity("root.pem") + " "; }

inline constexpr const char* kLetter =
    "From: Alice <alice@example.com>\r\nTo: Bob <bob@example.com>\r\nSubject: Boat\r\nMIME-Version: 1.0\r\n"
    "Content-Type: text/plain; charset=utf-8\r\n\r\nShall we?\r\n";

/// Signs a message; where it is then. What the command complains about goes to the test's output.
inline std::string signedMail(const Workspace& work, const std::string& mail, const std::string& options) {
  const std::string file = work.write("to-sign.eml", mail), out = work.path("signed.eml");
  const Result result = mailtree("sign " + file + options + " -o " + out);
  return result.status == 0 ? out : result.err;
}

}  // namespace mailtree::cli_test
