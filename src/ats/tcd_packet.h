// One punch as an ATS terminal delivers it, and its TCD line form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/date_time.h"
#include "records/tcd_record.h"

namespace clockcomm::ats {

// Values fixed: they are stored and compared as numbers.
enum class PunchType {
  kIn = 0,
  kOut = 1,
  kSwitch = 2,
  kComplete = 3,
  kLunchOut = 4,
  kLunchIn = 5,
  kBreakOut = 6,
  kBreakIn = 7
};

// "I", "O", "SW", "C", "LO", "LI", "BO", "BI".
std::string_view TcdCode(PunchType type);

// The punch class every ATS punch carries in its TCD line.
inline constexpr std::string_view kAtsPunchClass = "1";

struct TCDPacket {
  std::string PunchClass{kAtsPunchClass};
  ats::PunchType PunchType = ats::PunchType::kIn;
  core::DateTime Timestamp;
  int clockId = 0;
  int64_t BadgeId = 0;
  std::optional<int64_t> DepartmentCode;
  std::string JobCode;
  friend bool operator==(const TCDPacket&, const TCDPacket&) = default;
};

// The TCD record of a punch: clock number is clockId as text, date and time in from Timestamp.
// Throws core::ArgumentException for a department out of range, a job longer than 13 characters
// or a badge that does not fit a TCD badge.
records::TcdRecord ToTcdRecord(const TCDPacket& packet, int sequence_number);

}  // namespace clockcomm::ats
