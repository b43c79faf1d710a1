// A terminal's request for an employee's hours: "HRS", FS, badge number, FS, yymmddhhmm.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/date_time.h"

namespace clockcomm::zon {

class HoursRequestPacket {
 public:
  int32_t BadgeNumber() const { return badge_number_; }
  const core::DateTime& Timestamp() const { return timestamp_; }

  // True, with both fields set, for a well-formed request; false, with the fields unchanged,
  // for anything else.
  bool Parse(std::string_view text);

 private:
  int32_t badge_number_ = 0;
  core::DateTime timestamp_;
};

}  // namespace clockcomm::zon
