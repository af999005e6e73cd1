// cli/support/json_values.h - values that several JSON outputs have.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mailtree/message/Values.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree::cli {

std::string quotedOrNull(const std::optional<std::string>& text);
/// A list of texts.
std::string textsOf(const std::vector<std::string>& texts);
/// An object of name and address.
std::string addressOf(const Address& address);
std::string addressOrNull(const std::optional<_svEmailAddress>& address);
/// "2026-04-22T11:30:02Z"
std::string dateOrNull(const std::optional<SorvikSysTime>& date);
/// A list of sentences.
std::string limitsOf(LimitSet limits);

}  // namespace mailtree::cli
