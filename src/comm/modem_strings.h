// Text transformations of Hayes command strings that the call loop sends.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::comm {

// Sent when there is no init string to start from: echo, result codes, verbose, extended codes,
// auto-answer off.
inline constexpr const char* kAutoAnswerOffInit = "ATE1Q0V1X4S0=0";

// The init string with auto-answer off, for closing the port: every "S0=<digits>" (any case)
// becomes "S0=0", and "S0=0" is appended when the string sets no S0. Trailing blanks and line
// ends are dropped first; a blank init gives kAutoAnswerOffInit.
std::string AutoAnswerOffInit(std::string_view init);

}  // namespace clockcomm::comm
