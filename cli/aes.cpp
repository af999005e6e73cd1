// cli/aes.cpp - mailtree aes: encrypts and decrypts the bodies of a message in place with one key.
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/secure/passwords.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/support/output_file.h"
#include "mailtree/crypto/SymmetricCipher.h"
#include "mailtree/crypto/Wipe.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/EncryptedBody.h"

namespace mailtree::cli {
namespace {

constexpr int kIterations = 600'000;
constexpr std::size_t kSaltSize = 16;
/// The salt for key derivation, in hexadecimal, so that decryption needs only the password.
constexpr const char* kSaltField = "X-Mailtree-Salt";

struct AesOptions {
  std::string file;
  std::string mode = "gcm";
  int bits = 256;
  bool isOld = false;
  std::optional<std::string> keyFile;
  PasswordOptions passwords;
  Destination output;
};

struct ModeRow {
  std::string_view name;
  CipherMode mode;
};
constexpr ModeRow kModes[] = {{"cbc", CipherMode::cbc}, {"ctr", CipherMode::ctr}, {"gcm", CipherMode::gcm}};

const ModeRow* modeOf(std::string_view name) {
  const auto* const row =
      std::ranges::find_if(kModes, [name](const ModeRow& mode) { return equalsNoCase(mode.name, name); });
  return row == std::end(kModes) ? nullptr : row;
}

std::string hexOf(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

bool isHex(std::string_view text) {
  return !text.empty() && text.size() % 2 == 0 &&
         std::ranges::all_of(text, [](char c) { return hexValue(c) >= 0; });
}

/// Reserves all memory first: blocks freed by a growing buffer could not be wiped.
DataBuffer bytesOfHex(std::string_view text) {
  DataBuffer bytes;
  bytes.reserveMore(text.size() / 2);
  for (std::size_t i = 0; i + 1 < text.size(); i += 2)
    bytes.appendChar(static_cast<char>(hexValue(text[i]) * 16 + hexValue(text[i + 1])));
  return bytes;
}

/// Sets a key given in hexadecimal digits or as raw bytes.
bool setKeyOf(std::string_view content, int bits, _svSymSettings& settings) {
  const auto size = static_cast<std::size_t>(bits / 8);
  const std::string_view text = trim(content);
  if (text.size() != 2 * size || !isHex(text)) return content.size() == size && settings.setKey(content);
  DataBuffer key = bytesOfHex(text);
  const WipedAtEnd wiped(key);
  return settings.setKey(key.view());
}

Exit readKeyFile(const AesOptions& options, _svSymSettings& settings) {
  DataBuffer content;
  const WipedAtEnd wiped(content);
  if (!readFile(*options.keyFile, content)) return Exit::unreadable;
  if (setKeyOf(content.view(), options.bits, settings)) return Exit::fine;
  reportError(*options.keyFile,
              "is not a key of " + std::to_string(options.bits) + " bits in hexadecimal or raw bytes");
  return Exit::unreadable;
}

Exit readPasswords(const AesOptions& options, bool isNew, Passwords& passwords) {
  if (const Exit result = passwords.read(options.passwords); result != Exit::fine) return result;
  if (passwords.all().empty() && !isNew) passwords.ask(options.file);
  if (passwords.all().empty() && isNew && !passwords.askForNew(options.file)) return Exit::unreadable;
  if (!passwords.all().empty()) return Exit::fine;
  return usageError("aes", "--key-file, --password-file, --password-fd or MAILTREE_PASSWORD is needed");
}

Exit deriveKey(const AesOptions& options, const Secret& password, std::string_view salt,
               _svSymSettings& settings) {
  if (settings.deriveKey(password.view(), salt, kIterations, options.bits)) return Exit::fine;
  reportError("no key could be derived from the password");
  return Exit::unreadable;
}

Exit failWith(const AesOptions& options, const char* what, const LogMemory& log) {
  const std::string problem = lastError(log, "");
  reportError(options.file, problem.empty() ? std::string(what) : std::string(what) + ": " + problem);
  return Exit::negative;
}

/// The fields for the original encoding and the salt hold one value each, so a second encryption would
/// lose the first.
bool isEncryptedAlready(Email2& email) {
  bool found = email.m_header.findField(kSaltField) >= 0;
  walk(email, [&found](const Email2& node) {
    found = found || node.m_header.findField(kOriginalEncodingField) >= 0;
  });
  return found;
}

struct SealedBody {
  std::string type, body;
  bool operator==(const SealedBody&) const = default;
};

/// The encrypted bodies in the library's order.
std::vector<SealedBody> sealedBodies(Email2& email) {
  std::vector<SealedBody> bodies;
  walk(email, [&bodies](const Email2& node) {
    if (!node.m_body.isEmpty())
      bodies.push_back({std::string(node.m_contentType.m_type.view()), std::string(node.m_body.view())});
  });
  return bodies;
}

/// Whether every body is in the same place after loading, which joins loose alternatives and
/// wraps lone attachments.
bool keepsBodiesInPlace(const AesOptions& options, Email2& email) {
  StringBuffer text;
  LogNull log;
  if (!assembleMessage(email, text, log)) return false;
  const std::optional<Message> again = loadMessageToWrite(options.file, text.view());
  return again && sealedBodies(*again->root) == sealedBodies(email);
}

/// Derives a key from a password and writes the salt into the header.
Exit setPassword(const AesOptions& options, Email2& email, _svSymSettings& settings) {
  Passwords passwords;
  if (const Exit result = readPasswords(options, /*isNew=*/true, passwords); result != Exit::fine)
    return result;
  const Secret& password = passwords.all().front();
  LogMemory log;
  if (password.view().empty()) return failWith(options, "the password must not be empty", log);
  std::array<char, kSaltSize> salt{};
  if (::getentropy(salt.data(), salt.size()) != 0)
    return failWith(options, "no random numbers available", log);
  const std::string_view bytes(salt.data(), salt.size());
  email.setHeaderField(kSaltField, hexOf(bytes).c_str(), log);
  return deriveKey(options, password, bytes, settings);
}

Exit encrypt(const AesOptions& options, std::string_view /*bytes*/, Message& message,
             _svSymSettings& settings) {
  Email2& email = *message.root;
  LogMemory log;
  if (isEncryptedAlready(email))
    return failWith(options, "is already encrypted; after a second encryption it could not be decrypted",
                    log);
  const Exit result =
      options.keyFile ? readKeyFile(options, settings) : setPassword(options, email, settings);
  if (result != Exit::fine) return result;
  SymmetricCipher cipher;
  if (!email.aesStandardEncryptAnsi(cipher, settings, log))
    return failWith(options, "could not be encrypted", log);
  if (keepsBodiesInPlace(options, email)) return Exit::fine;
  return failWith(options, "the bodies would be in another order after loading and could not be decrypted",
                  log);
}

Exit decryptWith(const AesOptions& options, Email2& email, _svSymSettings& settings) {
  LogMemory log;
  SymmetricCipher cipher;
  if (email.aesStandardDecryptAnsi(cipher, /*bodyIsBinary=*/false, settings, log)) return Exit::fine;
  return failWith(options, "could not be decrypted: wrong key, changed message, or --old is needed", log);
}

/// A wrong password may decrypt the first bodies by chance, so each attempt starts from the original message.
Exit tryPasswords(const AesOptions& options, std::string_view bytes, std::string_view salt, Message& message,
                  _svSymSettings& settings) {
  Passwords passwords;
  if (const Exit result = readPasswords(options, /*isNew=*/false, passwords); result != Exit::fine)
    return result;
  SymmetricCipher cipher;
  LogNull log;
  for (const Secret& password : passwords.all()) {
    if (const Exit result = deriveKey(options, password, salt, settings); result != Exit::fine) return result;
    message.root->removeHeaderField(kSaltField);
    if (&password == &passwords.all().back()) break;
    if (message.root->aesStandardDecryptAnsi(cipher, /*bodyIsBinary=*/false, settings, log))
      return Exit::fine;
    std::optional<Message> again = loadMessageToWrite(options.file, bytes);
    if (!again) return Exit::unreadable;
    message.root.reset();  // before the shared settings it refers to
    message = std::move(*again);
  }
  return decryptWith(options, *message.root, settings);
}

Exit decrypt(const AesOptions& options, std::string_view bytes, Message& message, _svSymSettings& settings) {
  if (options.keyFile) {
    const Exit result = readKeyFile(options, settings);
    return result == Exit::fine ? decryptWith(options, *message.root, settings) : result;
  }
  LogMemory log;
  StringBuffer salt;
  message.root->getHeaderFieldUtf8(kSaltField, salt, log);
  if (!isHex(trim(salt.view())))
    return failWith(options, "was not encrypted with a password: missing X-Mailtree-Salt field", log);
  return tryPasswords(options, bytes, bytesOfHex(trim(salt.view())).view(), message, settings);
}

using Work = Exit (*)(const AesOptions&, std::string_view, Message&, _svSymSettings&);

/// @param form  the output options of the result.
Exit run(const AesOptions& options, Work work, const WriteForm& form) {
  std::optional<Input> input = readInput(options.file);
  if (!input) return Exit::unreadable;
  std::optional<Message> message = loadMessageToWrite(*input);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());
  _svSymSettings settings;
  settings.m_mode = modeOf(options.mode)->mode;
  settings.m_bindsBodies = !options.isOld;
  if (const Exit result = work(options, input->bytes(), *message, settings); result != Exit::fine)
    return result;
  return worse(limits, writeMessage(*message->root, options.output, form));
}

void addDirection(Verb aes, Action& action, const char* name, const char* description, const char* example,
                  Work work, const WriteForm& form) {
  auto options = std::make_shared<AesOptions>();
  const Verb verb = aes.addVerb(name, description);
  verb.addText("FILE", options->file, "Message; - is standard input").required();
  const Option key =
      verb.addText("--key-file", options->keyFile, "File with the key, in hexadecimal or raw bytes")
          .kind(kFile);
  addPasswordOptions(verb, options->passwords);
  verb.option("--password-file").excludes(key);
  verb.option("--password-fd").excludes(key);
  verb.addText("--mode", options->mode, "Cipher mode (default: gcm, which detects changes)")
      .oneOf({"cbc", "ctr", "gcm"});
  verb.addNumber("--bits", options->bits, "Key size (default: 256)").oneOf({"128", "192", "256"});
  if (work == decrypt)
    verb.addFlag("--old", options->isOld,
                 "For gcm messages from mailtree versions that did not bind each body to its type and place");
  addOutput(verb, options->output);
  verb.setFooter(std::string("Example:\n  ") + example);
  verb.whenChosen([options, work, form, &action] {
    action = [options, work, form] { return run(*options, work, form); };
  });
}

}  // namespace

void addAes(Verb app, Action& action) {
  const Verb verb = app.addVerb("aes", "Encrypt or decrypt the bodies of a message in place with one key");
  verb.requireVerb();
  addDirection(verb, action, "encrypt", "Encrypt every body; header and structure stay readable",
               "mailtree aes encrypt --key-file key mail.eml -o hidden.eml", encrypt, {});
  addDirection(verb, action, "decrypt", "Decrypt a message from aes encrypt; status 1 when the key is wrong",
               "mailtree aes decrypt --key-file key hidden.eml -o mail.eml", decrypt,
               {.readers = Readers::owner});
  verb.setFooter(
      "The key comes from a file, or from a password (PBKDF2 with HMAC-SHA-256, 600,000 iterations),\n"
      "whose salt is in the field X-Mailtree-Salt. Cipher mode and key size are not in the message:\n"
      "give the same --mode and --bits to decrypt.\n"
      "Only gcm detects every change, moved bodies and every wrong key. To send mail to others use\n"
      "encrypt, which needs no shared key.\n"
      "Example:\n  openssl rand -hex 32 > key\n  mailtree aes encrypt --key-file key mail.eml -o hidden.eml");
}

}  // namespace mailtree::cli
