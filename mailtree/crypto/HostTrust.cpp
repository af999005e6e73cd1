#include "mailtree/crypto/HostTrust.h"

#include <openssl/x509.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace mailtree {
namespace {

#ifdef _WIN32
constexpr char kListSeparator = ';';
#else
constexpr char kListSeparator = ':';
#endif

/// Bundles come first: a folder has the same certificates in a file each.
constexpr const char* kUsualPlaces[] = {
    "/etc/ssl/certs/ca-certificates.crt",      // Debian, Arch, Gentoo
    "/etc/pki/tls/certs/ca-bundle.crt",        // Fedora and its relatives
    "/etc/ssl/ca-bundle.pem",                  // openSUSE
    "/etc/ssl/cert.pem",                       // Alpine, BSD, macOS
    "/usr/local/share/certs/ca-root-nss.crt",  // FreeBSD
    "/usr/local/etc/openssl@3/cert.pem",       // Homebrew
    "/opt/homebrew/etc/openssl@3/cert.pem",    // Homebrew on Apple silicon
};

std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

void appendFolders(std::string_view list, std::vector<std::string>& paths) {
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(kListSeparator), list.size());
    if (end > 0) paths.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
}

}  // namespace

HostTrustPlaces hostTrustPlaces() {
  HostTrustPlaces places;
  if (const std::string_view file = variable(X509_get_default_cert_file_env()); !file.empty())
    places.paths.emplace_back(file);
  appendFolders(variable(X509_get_default_cert_dir_env()), places.paths);
  if (!places.paths.empty()) return places;
  places.areAlternatives = true;
  places.paths.emplace_back(X509_get_default_cert_file());
  places.paths.insert(places.paths.end(), std::begin(kUsualPlaces), std::end(kUsualPlaces));
  appendFolders(X509_get_default_cert_dir(), places.paths);
  return places;
}

}  // namespace mailtree
