// Building a TcdRecord from a TCD line, and the keypad letter conversion used on badge and
// department fields.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "records/tcd_record.h"

namespace clockcomm::records {

class TcdRecordStatic {
 public:
  // Quoted and unquoted lines parse alike. Throws core::IndexOutOfRangeException for a line of
  // fewer than fourteen fields and ArgumentException for a department out of range.
  static TcdRecord Parse(std::string_view line);
  // The fields of a line: split at commas outside double quotes; a quote that opens a field
  // quotes it, two quotes inside a quoted field stand for one, other quotes are dropped.
  static std::vector<std::string> SplitFields(std::string_view line);
  // Telephone keypad digits for upper-case letters (Q and Z on 1); "-" and blank become 0;
  // digits stay; everything else, lower-case letters included, is dropped.
  static std::string ConvertLettersToNumbers(std::string_view text);
  // The date of a TCD date field: the lenient conversion, else six digits yymmdd.
  static std::optional<core::Date> ParseDateField(std::string_view text);
  // The time of a TCD time field: the lenient conversion, else four digits hhnn.
  static std::optional<core::TimeOfDay> ParseTimeField(std::string_view text);
};

}  // namespace clockcomm::records
