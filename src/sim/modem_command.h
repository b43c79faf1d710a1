// The command line of a Hayes modem: "AT" followed by commands, each a letter (or "&" and a
// letter) with an optional number; S registers are set with "Sr=v" and read with "Sr?"; "D"
// takes the rest of the line as the dial string. Also the result codes the modem answers with.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace clockcomm::sim {

struct AtCommand {
  enum class Kind {
    kReset,          // Z
    kEcho,           // E0/E1
    kQuiet,          // Q0/Q1
    kVerbose,        // V0/V1
    kSetRegister,    // Sr=v
    kQueryRegister,  // Sr?
    kDial,           // D[T|P]number
    kHangUp,         // H, H0
    kAnswer,         // A
    kOnline,         // O
    kOther,          // X4, &C1, L, M ...: accepted and ignored
  };
  Kind kind = Kind::kOther;
  int value = 0;  // the number after the letter; the register's new value
  int register_number = 0;
  std::string text;  // the dial string's digits; the letter of an ignored command
  friend bool operator==(const AtCommand&, const AtCommand&) = default;
};

// Parses the text after "AT" (case-insensitive). Nothing for a malformed line (the modem answers
// ERROR).
std::optional<std::vector<AtCommand>> ParseAtCommands(std::string_view after_at);

// The digits a dial string reaches: "T555-1234" and "P 555 1234" both give "5551234"; pauses
// (",") and wait-for-tone ("W") are dropped.
std::string DialedNumber(std::string_view dial_string);

enum class ResultCode { kOk, kConnect, kRing, kNoCarrier, kError, kNoDialtone, kBusy };

// Verbose: CRLF code CRLF ("CONNECT 2400" with a speed). Numeric (V0): the number and CR.
std::string FormatResult(ResultCode code, bool verbose, std::optional<int> speed = std::nullopt);

}  // namespace clockcomm::sim
