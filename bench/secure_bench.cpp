// Signing, verifying, encrypting and decrypting, each compared with one call of libcrypto on the same bytes.
#include <benchmark/benchmark.h>
#include <openssl/cms.h>
#include <openssl/pem.h>

#include <memory>
#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pkcs7Builder.h"
#include "mailtree/crypto/Pkcs7Opener.h"

namespace mailtree::bench {
namespace {

constexpr const char* kFolder = MAILTREE_TEST_DATA "/secure/";

template <auto release>
struct Releases {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};
template <class T, auto release>
using Handle = std::unique_ptr<T, Releases<release>>;
using Bio = Handle<BIO, BIO_free_all>;
using Cms = Handle<CMS_ContentInfo, CMS_ContentInfo_free>;

struct FreeStack {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};

std::string pathOf(const char* name) { return std::string(kFolder) + name; }

X509* readCertificate(const char* name) {
  const Bio file(BIO_new_file(pathOf(name).c_str(), "r"));
  return file ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr) : nullptr;
}

EVP_PKEY* readKey(const char* name) {
  const Bio file(BIO_new_file(pathOf(name).c_str(), "r"));
  return file ? PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr;
}

/// An identity for both sides.
struct Identity {
  explicit Identity(const std::string& name)
      : certificate(readCertificate((name + ".pem").c_str())), key(readKey((name + ".key").c_str())) {
    LogNull log;
    for (const std::string& file : {name + ".pem", name + ".key", std::string("chain.pem")})
      certs.addFromFile(pathOf(file.c_str()).c_str(), nullptr, log);
    certs.addTrustAnchors(pathOf("root.pem").c_str(), log);
    CertificateHolder::appendNewCertHolder(certs.findByEmailAddr((name + "@example.com").c_str(), false, log),
                                           holders, log);
    sk_X509_push(stack.get(), certificate.get());
    sk_X509_push(issuers.get(), issuer.get());
    X509_STORE_add_cert(store.get(), root.get());
  }

  SystemCerts certs;
  ExtPtrArray holders;
  Handle<X509, X509_free> certificate;
  Handle<X509, X509_free> issuer{readCertificate("intermediate.pem")};
  Handle<X509, X509_free> root{readCertificate("root.pem")};
  Handle<EVP_PKEY, EVP_PKEY_free> key;
  Handle<X509_STORE, X509_STORE_free> store{X509_STORE_new()};
  std::unique_ptr<STACK_OF(X509), FreeStack> stack{sk_X509_new_null()};
  std::unique_ptr<STACK_OF(X509), FreeStack> issuers{sk_X509_new_null()};
};

/// RSA-2048.
Identity& alice() {
  static Identity one("alice");
  return one;
}
/// P-256: avoids the millisecond that RSA needs to decrypt a key on both sides.
Identity& carol() {
  static Identity one("carol");
  return one;
}
using Who = Identity& (*)();

std::string contentOf(const benchmark::State& state) {
  static constexpr std::string_view kLine =
      "Lines of a message, each with its line break, as they are signed.\r\n";
  const auto size = static_cast<std::size_t>(state.range(0)) << 20;
  std::string text;
  text.reserve(size + kLine.size());
  while (text.size() < size) text += kLine;
  text.resize(size);
  return text;
}

Bio bioOf(std::string_view bytes) {
  return Bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

std::string encoded(CMS_ContentInfo* cms) {
  std::string der(static_cast<std::size_t>(i2d_CMS_ContentInfo(cms, nullptr)), '\0');
  auto* at = reinterpret_cast<unsigned char*>(der.data());
  i2d_CMS_ContentInfo(cms, &at);
  return der;
}

Cms decoded(std::string_view der) {
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  return Cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(der.size())));
}

void expect(benchmark::State& state, bool done) {
  if (!done) state.SkipWithError("failed");
}

/// Runs `once` repeatedly and reports the rate in bytes of content.
template <class Once>
void measure(benchmark::State& state, std::size_t size, Once&& once) {
  for ([[maybe_unused]] const auto& _ : state) expect(state, once());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

bool sign(const std::string& text, bool detached, DataBuffer& der) {
  LogNull log;
  _svMemoryDataSource source;
  source.initializeMemSource(text.data(), static_cast<unsigned>(text.size()));
  DataBuffer unused;
  _clsCades cades;
  return Pkcs7Builder::createPkcs7Signature(source, unused, detached, true, static_cast<int>(HashId::sha256),
                                            true, false, cades, alice().holders, alice().certs, der, log);
}

std::string signByLibrary(const std::string& text, unsigned flags) {
  Identity& one = alice();
  const Bio source = bioOf(text);
  const Cms cms(
      CMS_sign(one.certificate.get(), one.key.get(), one.issuers.get(), source.get(), CMS_BINARY | flags));
  return cms ? encoded(cms.get()) : std::string();
}

bool encrypt(Identity& who, const std::string& text, ContentCipher cipher, DataBuffer& der) {
  LogNull log;
  _svMemoryDataSource source;
  source.initializeMemSource(text.data(), static_cast<unsigned>(text.size()));
  return Pkcs7Builder::createPkcs7Enveloped(source, static_cast<long long>(text.size()), true,
                                            static_cast<int>(cipher), 256, who.holders, 0, 0, false,
                                            who.certs, der, log);
}

std::string encryptByLibrary(Identity& who, const std::string& text, const EVP_CIPHER* cipher) {
  const Bio source = bioOf(text);
  const Cms cms(CMS_encrypt(who.stack.get(), source.get(), cipher, CMS_BINARY));
  return cms ? encoded(cms.get()) : std::string();
}

void signMail(benchmark::State& state, bool detached) {
  const std::string text = contentOf(state);
  measure(state, text.size(), [&] {
    DataBuffer der;
    return sign(text, detached, der);
  });
}

void signByLibrary(benchmark::State& state, unsigned flags) {
  const std::string text = contentOf(state);
  measure(state, text.size(), [&] { return !signByLibrary(text, flags).empty(); });
}

void verifyMail(benchmark::State& state) {
  const std::string text = contentOf(state);
  DataBuffer der;
  expect(state, sign(text, true, der));
  LogNull log;
  measure(state, text.size(), [&] {
    SecureLayer layer;
    return Pkcs7Opener::verifyDetached(der.view(), text, alice().certs, layer, log) &&
           layer.allSignaturesValid() && layer.signers[0].chainTrusted == Answer::yes;
  });
}

void verifyByLibrary(benchmark::State& state) {
  const std::string text = contentOf(state);
  const std::string der = signByLibrary(text, CMS_DETACHED);
  measure(state, text.size(), [&] {
    const Cms cms = decoded(der);
    const Bio source = bioOf(text);
    return CMS_verify(cms.get(), nullptr, alice().store.get(), source.get(), nullptr, CMS_BINARY) == 1;
  });
}

void openSigned(benchmark::State& state) {
  const std::string text = contentOf(state);
  DataBuffer der;
  expect(state, sign(text, false, der));
  LogNull log;
  measure(state, text.size(), [&] {
    SecureLayer layer;
    DataBuffer content;
    return Pkcs7Opener::open(der.view(), alice().certs, content, layer, log) && layer.allSignaturesValid() &&
           content.getSize() == text.size();
  });
}

void openSignedByLibrary(benchmark::State& state) {
  const std::string text = contentOf(state);
  const std::string der = signByLibrary(text, 0);
  measure(state, text.size(), [&] {
    const Cms cms = decoded(der);
    const Bio content(BIO_new(BIO_s_mem()));
    return CMS_verify(cms.get(), nullptr, alice().store.get(), nullptr, content.get(), CMS_BINARY) == 1;
  });
}

void encryptMail(benchmark::State& state, Who who, ContentCipher cipher) {
  const std::string text = contentOf(state);
  measure(state, text.size(), [&] {
    DataBuffer der;
    return encrypt(who(), text, cipher, der);
  });
}

void encryptByLibrary(benchmark::State& state, Who who, const EVP_CIPHER* cipher) {
  const std::string text = contentOf(state);
  measure(state, text.size(), [&] { return !encryptByLibrary(who(), text, cipher).empty(); });
}

void decryptMail(benchmark::State& state, Who who, ContentCipher cipher) {
  const std::string text = contentOf(state);
  DataBuffer der;
  expect(state, encrypt(who(), text, cipher, der));
  LogNull log;
  measure(state, text.size(), [&] {
    SecureLayer layer;
    DataBuffer content;
    return Pkcs7Opener::open(der.view(), who().certs, content, layer, log) &&
           content.getSize() == text.size();
  });
}

void decryptByLibrary(benchmark::State& state, Who who, const EVP_CIPHER* cipher) {
  const std::string text = contentOf(state);
  const std::string der = encryptByLibrary(who(), text, cipher);
  measure(state, text.size(), [&] {
    const Cms cms = decoded(der);
    const Bio content(BIO_new(BIO_s_mem()));
    return CMS_decrypt(cms.get(), who().key.get(), who().certificate.get(), nullptr, content.get(),
                       CMS_BINARY) == 1;
  });
}

/// Registers one task for both sides.
template <class Ours, class Theirs>
void compare(const std::string& task, Ours ours, Theirs theirs) {
  const auto ofSizes = [](benchmark::internal::Benchmark* one) {
    one->ArgName("MB")->Arg(1)->Arg(25)->Unit(benchmark::kMillisecond);
  };
  ofSizes(benchmark::RegisterBenchmark(("secure/" + task + "/mailtree").c_str(), ours));
  ofSizes(benchmark::RegisterBenchmark(("secure/" + task + "/libcrypto").c_str(), theirs));
}

void compareCipher(const std::string& name, Who who, ContentCipher ours, const EVP_CIPHER* theirs) {
  using State = benchmark::State;
  compare(
      "encrypt_" + name, [=](State& state) { encryptMail(state, who, ours); },
      [=](State& state) { encryptByLibrary(state, who, theirs); });
  compare(
      "decrypt_" + name, [=](State& state) { decryptMail(state, who, ours); },
      [=](State& state) { decryptByLibrary(state, who, theirs); });
}

const bool kRegistered = [] {
  using State = benchmark::State;
  compare(
      "sign_detached", [](State& state) { signMail(state, true); },
      [](State& state) { signByLibrary(state, CMS_DETACHED); });
  compare(
      "sign_opaque", [](State& state) { signMail(state, false); },
      [](State& state) { signByLibrary(state, 0); });
  compare("verify_detached", verifyMail, verifyByLibrary);
  compare("verify_opaque", openSigned, openSignedByLibrary);
  compareCipher("cbc_rsa", alice, ContentCipher::aesCbc, EVP_aes_256_cbc());
  compareCipher("cbc_ec", carol, ContentCipher::aesCbc, EVP_aes_256_cbc());
  compareCipher("gcm_rsa", alice, ContentCipher::aesGcm, EVP_aes_256_gcm());
  compareCipher("gcm_ec", carol, ContentCipher::aesGcm, EVP_aes_256_gcm());
  return true;
}();

}  // namespace
}  // namespace mailtree::bench
