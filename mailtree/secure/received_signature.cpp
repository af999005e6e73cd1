#include "mailtree/secure/received_signature.h"

#include <algorithm>
#include <new>
#include <utility>

#include "mailtree/base/Log.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/crypto/Pkcs7Opener.h"

namespace mailtree {
namespace {

bool anyDigestMatched(const SecureLayer& layer) noexcept {
  return std::ranges::any_of(layer.signers,
                             [](const SignerVerdict& signer) { return signer.digestMatched == Answer::yes; });
}

bool isStoredWithLf(std::string_view content) noexcept {
  return content.find('\n') != std::string_view::npos && content.find('\r') == std::string_view::npos;
}

/// Verifies with CRLF, as mail travels. Replaces the first verdict only when the result is better.
void verifyWithCrlf(std::string_view der, std::string_view content, SystemCerts& certs, SecureLayer& layer,
                    LoadBudget& budget, LogBase& log) {
  StringBuffer canonical(content);
  if (!canonical.toCRLF()) throw std::bad_alloc();
  SecureLayer second;
  if (Pkcs7Opener::verifyDetached(der, canonical, certs, second, budget, log) && anyDigestMatched(second))
    layer = std::move(second);
}

}  // namespace

bool verifyReceived(std::string_view der, std::string_view content, SystemCerts& certs, SecureLayer& layer,
                    LoadBudget& budget, LogBase& log) {
  if (!isStoredWithLf(content)) return Pkcs7Opener::verifyDetached(der, content, certs, layer, budget, log);
  LogNull quiet;  // a failed first attempt is not an error
  if (!Pkcs7Opener::verifyDetached(der, content, certs, layer, budget, quiet)) return false;
  if (!anyDigestMatched(layer)) verifyWithCrlf(der, content, certs, layer, budget, log);
  return true;
}

}  // namespace mailtree
