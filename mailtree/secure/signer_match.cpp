#include "mailtree/secure/signer_match.h"

#include "mailtree/mime/address/Address.h"

namespace mailtree {

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

}  // namespace mailtree
