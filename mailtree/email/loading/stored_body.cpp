// email/loading/stored_body.cpp - the stored body of one part.

#include "mailtree/email/Email2.h"

namespace mailtree {

void Email2::getRawBodyThisPart(DataBuffer& out) const {
  if (isLive()) out = m_body;
}

void Email2::getRawBodyUtf8(XString& out) {
  const std::string_view body = m_body.view();
  out.appendUtf8N(body.data(), body.size());
}

void Email2::getNonMultipartBodyData(DataBuffer& out) const {
  if (isLive()) out.append(m_body);
}

const DataBuffer* Email2::getNonMultipartBody3() const { return isLive() ? &m_body : nullptr; }

}  // namespace mailtree
