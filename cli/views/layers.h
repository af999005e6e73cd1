// cli/views/layers.h - descriptions of signed and encrypted layers for people.
#pragma once

#include <string>
#include <vector>

#include "mailtree/message/Security.h"

namespace mailtree::cli {

/// One line of the checklist for a layer.
struct Check {
  enum class Mark { good, bad, notChecked, note };
  Mark mark;
  std::string name, text;
};

std::vector<Check> checksOf(const SecurityLayer& layer, const Security& security);

/// The result of the checks in a few words: "signature valid, signer trusted". A signature that does not
/// cover everything always says so.
struct LayerSummary {
  bool isFaultless;
  std::string text;
};

LayerSummary summaryOf(const SecurityLayer& layer, const Security& security);

/// The verdict in words. Where no trust anchors were given it names the option for them.
std::string verdictOf(const Security& security);

/// Names the signer: the From address when a signature has no fault, else nameOf() the first signer. Empty
/// when that one has no certificate.
std::string nameOfSigner(const SecurityLayer& layer, const Security& security);
/// "anna@berg.example", else the subject; in quotes when it is more than one word.
std::string nameOf(const CertificateInfo& certificate);

}  // namespace mailtree::cli
