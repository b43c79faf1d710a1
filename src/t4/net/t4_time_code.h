// The terminals' time encodings: the 32-bit count of GET_TIME, SET_TIME and the attendance records
// (every month 31 days, so the value has gaps), and the six bytes of the real-time events. Both are
// the terminal's local wall time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/date_time.h"

namespace clockcomm::t4::net {

// A time as the terminal encoded it; the date may not exist (30 February can be encoded).
struct T4Time {
  int year = 2000, month = 1, day = 1, hour = 0, minute = 0, second = 0;

  bool operator==(const T4Time&) const = default;
  // nullopt for a date that does not exist or a year past 2099.
  std::optional<core::DateTime> ToDateTime() const;
  std::string ToString() const;  // "2024-02-30 08:30:00", as encoded
};

// The largest value: 2099-12-31 23:59:59.
inline constexpr uint32_t kMaxTimeCode = 0xBF92F7FF;

uint32_t EncodeTimeCode(const core::DateTime& time);  // years 2000..2099
T4Time DecodeTimeCode(uint32_t code);

// The six bytes of an event: year - 2000, month, day, hour, minute, second.
std::string EncodeTime6(const T4Time& time);
T4Time DecodeTime6(std::string_view bytes);

}  // namespace clockcomm::t4::net
