// crypto/Trust.h - trust anchors and revocation lists, and the way from a certificate to an anchor.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

struct NativeTrust;  ///< Anchors and lists as the cryptographic library holds them.

class Trust {
 public:
  using Certificates = std::vector<RefPtr<Certificate>>;

  bool addAnchor(Certificate& certificate);
  /// Revocation lists in PEM or DER; how many.
  int addLists(std::string_view bytes);
  bool hasAnchors() const noexcept { return !m_anchors.empty(); }
  const Certificates& anchors() const noexcept { return m_anchors; }
  bool hasLists() const noexcept { return m_hasLists; }

  /// See SystemCerts. `held` and `others` may stand on the way, and are not trusted for that. trustedThen is set
  /// when the way that is open at the first time was open at the other too; there may have been another one.
  ChainVerdict check(const Certificate& certificate, const Certificates& held, const Certificates& others,
                     std::int64_t unixSeconds, std::optional<std::int64_t> then) const;
  Certificates chainOf(const Certificate& certificate, const Certificates& held) const;

 private:
  struct Release {
    void operator()(NativeTrust* store) const noexcept;
  };

  bool hasStore();
  bool addList(std::string_view der);
  bool isAnchor(const Certificate& certificate) const noexcept;
  Certificate* issuerOf(const Certificate& certificate, const Certificates& held) const;

  Certificates m_anchors;
  std::unique_ptr<NativeTrust, Release> m_store;
  bool m_hasLists = false;
};

}  // namespace mailtree
