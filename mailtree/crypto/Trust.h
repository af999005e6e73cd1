// crypto/Trust.h - trust anchors, revocation lists, and certification paths to an anchor.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

struct NativeTrust;  ///< Anchors and lists as objects of the cryptographic library.

class Trust {
 public:
  using Certificates = std::vector<RefPtr<Certificate>>;

  bool addAnchor(Certificate& certificate);
  /// Revocation lists in PEM or DER; returns how many.
  int addLists(std::string_view bytes);
  bool hasAnchors() const noexcept { return !m_anchors.empty(); }
  const Certificates& anchors() const noexcept { return m_anchors; }
  bool hasLists() const noexcept { return m_hasLists; }

  /// See SystemCerts. `held` and `others` may be on the path, but are not trusted. trustedThen is set when
  /// the path valid at the first time was valid at the other too; another path may have been.
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
