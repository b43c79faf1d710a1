// The header packet a Zon/Tranz terminal sends first in an upload: its application, clock name,
// clock number and the kind of upload ("W", "P" or "F").
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace clockcomm::zon {

class ZonHeaderPacket {
 public:
  // Throws core::ArgumentException "Invalid upload type." (parameter "UploadType") unless the
  // upload type is exactly "W", "P" or "F".
  ZonHeaderPacket(std::string clock_name, int32_t clock_number, std::string application_name,
                  std::string upload_type);

  const std::string& ClockName() const { return clock_name_; }
  int32_t ClockNumber() const { return clock_number_; }
  const std::string& ApplicationName() const { return application_name_; }
  const std::string& UploadType() const { return upload_type_; }

  static bool IsValidUploadType(std::string_view upload_type);

  std::string ToString() const;
  friend bool operator==(const ZonHeaderPacket&, const ZonHeaderPacket&) = default;

 private:
  std::string clock_name_;
  int32_t clock_number_;
  std::string application_name_;
  std::string upload_type_;
};

class ZonHeaderPacketStatic {
 public:
  // Splits at FS: field 2 application, 3 clock name, 4 clock number, 5 upload type; later fields
  // are ignored. Throws core::IndexOutOfRangeException for fewer than six fields,
  // core::FormatException for a clock number that is not a whole number, and the constructor's
  // ArgumentException for a bad upload type.
  static ZonHeaderPacket Parse(std::string_view text);
};

}  // namespace clockcomm::zon
