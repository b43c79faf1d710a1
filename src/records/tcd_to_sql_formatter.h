// Turns a TCD line without its clock number (thirteen fields) into the INSERT of one row of
// [Clock Data Table]: as text for export, and as the same statement with bound values for
// execution.
#pragma once

#include <string>
#include <string_view>

#include "db/value.h"

namespace clockcomm::records {

class IFormatter {
 public:
  virtual ~IFormatter() = default;
  virtual std::string Format(std::string_view line) const = 0;
};

struct SqlStatement {
  std::string sql;  // with ? placeholders
  db::Params params;
};

class TcdToSqlFormatter : public IFormatter {
 public:
  static constexpr int kFieldCount = 13;

  // The INSERT text, values written in: #yyyy/mm/dd# dates, #hh:nn# times, quoted texts.
  // Throws core::FormatException "Invalid number of fields found. Requires 13." for a line that
  // does not have exactly 13 fields, and naming the field for a date, time or number that is
  // not one.
  std::string Format(std::string_view line) const override;
  // The same columns with ? placeholders and the values bound; what is executed.
  SqlStatement ToStatement(std::string_view line) const;
};

}  // namespace clockcomm::records
