// Turns a Zon 2x data line (13 unquoted comma-separated fields, "2,12,,,,,I,091020,1224,,,,1")
// into the quoted TCD line: punch type "PC"/"PI"/"PE"/"PO" shortened to its last letter, yymmdd
// dates to mm/dd/yy and hhmm times to hh:mm.
#pragma once

#include "zon/formatter.h"

namespace clockcomm::zon {

class Zon2xToTcdFormatter : public IFormatter {
 public:
  static constexpr const char* kInvalidDate = "Invalid date value(s).";
  static constexpr const char* kInvalidTime = "Invalid time value(s).";

  // Exactly 12 commas, whatever the fields hold.
  bool Formattable(std::string_view line) const override;
  // Exactly 26 double quotes, 13 comma-separated fields, each quoted at both ends.
  bool AlreadyFormatted(std::string_view line) const override;
  // Throws core::FormatException with kInvalidDate or kInvalidTime for a six-character date or a
  // four-character time that is not a real date or time.
  std::string Format(std::string_view line) const override;

  // The two steps on their own: "091020" -> "10/20/09", "1224" -> "12:24".
  static std::string FormatDate(std::string_view yymmdd);
  static std::string FormatTime(std::string_view hhmm);
};

}  // namespace clockcomm::zon
