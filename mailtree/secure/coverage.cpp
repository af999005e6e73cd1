#include "mailtree/secure/coverage.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "mailtree/mime/Address.h"
#include "mailtree/secure/part_path.h"

namespace mailtree {
namespace {

/// As deep as the parser goes, so that the recursion is bounded.
void listLeaves(const MimeMessage2& entity, const PartPath& path, std::vector<std::string>& leaves) {
  if (entity.getNumParts() == 0) leaves.push_back(path.text());
  for (int i = 0; i < entity.getNumParts(); ++i) listLeaves(*entity.getPart(i), path.part(i), leaves);
}

}  // namespace

std::string soleSender(const MimeMessage2& message, LogBase& log) {
  const MimeHeader& header = message.header();
  const int first = header.findField("From");
  if (first < 0 || header.findField("From", first + 1) >= 0) return {};
  ExtPtrArray addresses;
  message.getEmailAddresses("From", addresses, log);
  if (addresses.getSize() != 1) return {};
  return std::string(addresses.at<_svEmailAddress>(0)->m_address.view());
}

void matchSender(SecureLayer& layer, const std::string& sender) {
  for (SignerVerdict& signer : layer.signers)
    if (signer.certificate && !sender.empty())
      signer.addressMatches = answerOf(signer.certificate->isForAddress(sender));
}

void listUncovered(const MimeMessage2& message, std::span<SecureLayer> layers) {
  const std::string root = PartPath().text();
  const auto mayLeaveOut = [&](const SecureLayer& layer) { return layer.isSigned() && layer.part != root; };
  if (std::ranges::none_of(layers, mayLeaveOut)) return;
  std::vector<std::string> leaves;
  listLeaves(message, PartPath(), leaves);
  for (SecureLayer& layer : layers) {
    if (!mayLeaveOut(layer)) continue;
    std::ranges::copy_if(leaves, std::back_inserter(layer.uncovered),
                         [&](const std::string& leaf) { return !isWithin(leaf, layer.part); });
  }
}

}  // namespace mailtree
