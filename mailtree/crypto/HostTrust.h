// crypto/HostTrust.h - where the host keeps the trust anchors of its programs.
#pragma once

#include <string>
#include <vector>

namespace mailtree {

struct HostTrustPlaces {
  std::vector<std::string> paths;  ///< Files, and folders of files.
  bool areAlternatives = false;    ///< The first that has anchors counts; else all of them do.
};

/// What SSL_CERT_FILE and SSL_CERT_DIR name when one of them is set, else the usual places.
HostTrustPlaces hostTrustPlaces();

}  // namespace mailtree
