// One punch as a T4 clock accepted it: what T4PacketWriter turns into TCD records.
#pragma once

#include <string>

#include "core/date_time.h"

namespace clockcomm::t4 {

struct T4Punch {
  std::string clock_name;  // the clock's name: key of its assignments
  long device_number = 0;  // the terminal's machine number: the record's clock number
  long badge_id = 0;
  core::DateTime timestamp;
  long in_out = 0;  // the in/out state as the terminal reports it
  long work_code = 0;
};

}  // namespace clockcomm::t4
