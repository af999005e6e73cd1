#include "bench/loading.h"

namespace mailtree::bench {
namespace {

std::size_t lengthOf(const _svEmailAddress& address) {
  return address.m_name.view().size() + address.m_address.view().size();
}

std::size_t readSummary(Email2& root) {
  LogNull log;
  StringBuffer subject;
  root.getSubjectUtf8(subject, log);
  std::size_t sum = subject.getSize() + lengthOf(root.m_fromAddr) + root.m_date.m_year;
  for (int i = 0; i < root.m_toAddrs.getSize(); ++i) sum += lengthOf(*root.m_toAddrs.at<_svEmailAddress>(i));
  return sum;
}

}  // namespace

EmailPtr load(const std::string& message) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  SystemCerts certs;
  LogNull log;
  return EmailPtr(Email2::createFromMimeText2a(*common, message.data(), static_cast<int>(message.size()),
                                               certs, log, false));
}

std::size_t loadWithMailtree(const std::string& message) {
  const EmailPtr root = load(message);
  return root ? readSummary(*root) : 0;
}

}  // namespace mailtree::bench
