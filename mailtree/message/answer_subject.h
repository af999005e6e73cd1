// message/answer_subject.h - the subject of an answer.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// The subject with this prefix instead of all the marks of answers that it has, in any language. The tag of
/// a mailing list stays: "[boats] AW: Re[2]: Regatta" becomes "Re: [boats] Regatta".
std::string answerSubject(std::string_view prefix, std::string_view subject);

}  // namespace mailtree
