// cli/views/layers.h - signed and encrypted layers in words, for people.
#pragma once

#include <string>
#include <vector>

#include "cli/secure/verification.h"

namespace mailtree::cli {

/// A line of the list that a layer is checked by.
struct Check {
  enum class Mark { good, bad, notChecked, note };
  Mark mark;
  std::string name, text;
};

std::vector<Check> checksOf(const SecureLayer& layer, const Verification& verification);

/// What the checks come to, in a few words: "signature valid, signer trusted". What a signature does not cover is
/// always said with it.
struct LayerSummary {
  bool isFaultless;
  std::string text;
};

LayerSummary summaryOf(const SecureLayer& layer, const Verification& verification);

/// Who signed: somebody about whom everything is right, by the address in From; else the first, by nameOf. Empty when
/// that one is unknown.
std::string nameOfSigner(const SecureLayer& layer, const Verification& verification);
/// "anna@berg.example", else the subject; what is more than one word in quotes.
std::string nameOf(const Certificate& certificate);

}  // namespace mailtree::cli
