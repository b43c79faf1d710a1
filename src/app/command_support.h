// Small pieces the command groups share: refusing with a message, and strict option parsing.
#pragma once

#include <string>

#include "core/date_time.h"

namespace clockcomm::app {

// Prints the message on stderr as it stands and ends the command with exit code 1.
[[noreturn]] void Fail(const std::string& message);

// A date option given as YYYY-MM-DD, strictly; refuses anything else naming the option.
core::Date ParseDayOption(const std::string& option, const std::string& text);

}  // namespace clockcomm::app
