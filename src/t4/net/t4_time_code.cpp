#include "t4/net/t4_time_code.h"

#include <fmt/format.h>

#include "t4/net/t4_bytes.h"

namespace clockcomm::t4::net {

std::optional<core::DateTime> T4Time::ToDateTime() const {
  if (year > 2099) return std::nullopt;
  return core::DateTime::FromParts(year, month, day, hour, minute, second);
}

std::string T4Time::ToString() const {
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", year, month, day, hour, minute, second);
}

uint32_t EncodeTimeCode(const core::DateTime& time) {
  const core::Date d = time.GetDate();
  const core::TimeOfDay t = time.GetTime();
  const uint32_t days =
      static_cast<uint32_t>((d.Year() % 100) * 372 + (d.Month() - 1) * 31 + (d.Day() - 1));
  return days * 86400 + static_cast<uint32_t>((t.Hour() * 60 + t.Minute()) * 60 + t.Second());
}

T4Time DecodeTimeCode(uint32_t code) {
  T4Time time;
  time.second = static_cast<int>(code % 60);
  code /= 60;
  time.minute = static_cast<int>(code % 60);
  code /= 60;
  time.hour = static_cast<int>(code % 24);
  code /= 24;
  time.day = static_cast<int>(code % 31) + 1;
  code /= 31;
  time.month = static_cast<int>(code % 12) + 1;
  time.year = 2000 + static_cast<int>(code / 12);
  return time;
}

std::string EncodeTime6(const T4Time& time) {
  std::string bytes;
  for (int part : {time.year - 2000, time.month, time.day, time.hour, time.minute, time.second}) {
    PutU8(bytes, static_cast<uint8_t>(part));
  }
  return bytes;
}

T4Time DecodeTime6(std::string_view bytes) {
  return {2000 + GetU8(bytes, 0), GetU8(bytes, 1), GetU8(bytes, 2),
          GetU8(bytes, 3),        GetU8(bytes, 4), GetU8(bytes, 5)};
}

}  // namespace clockcomm::t4::net
