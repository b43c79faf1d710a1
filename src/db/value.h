// A typed database value with null: integer, real or text. Dates and times travel as text in the
// fixed forms "yyyy-mm-dd" and "HH:nn:ss" so that every backend sorts and compares them alike.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/date_time.h"

namespace clockcomm::db {

class Value {
 public:
  Value() = default;  // null
  Value(std::nullptr_t) {}
  Value(int v) : v_(static_cast<int64_t>(v)) {}
  Value(int64_t v) : v_(v) {}
  Value(double v) : v_(v) {}
  Value(std::string v) : v_(std::move(v)) {}
  Value(std::string_view v) : v_(std::string(v)) {}
  Value(const char* v) : v_(std::string(v)) {}
  Value(bool v) : v_(static_cast<int64_t>(v ? 1 : 0)) {}
  Value(const core::Date& d) : v_(d.Format(core::kFormatIsoDate)) {}
  Value(const core::TimeOfDay& t) : v_(t.Format(core::kFormatHourMinuteSecond)) {}
  Value(const core::DateTime& dt) : v_(dt.Format("yyyy-mm-dd HH:nn:ss")) {}
  template <typename T>
  Value(const std::optional<T>& v) {
    if (v) *this = Value(*v);
  }

  bool IsNull() const { return std::holds_alternative<std::monostate>(v_); }
  bool IsInteger() const { return std::holds_alternative<int64_t>(v_); }
  bool IsReal() const { return std::holds_alternative<double>(v_); }
  bool IsText() const { return std::holds_alternative<std::string>(v_); }

  // Conversions are lenient the way a recordset field is: null gives 0 / "" / nothing.
  int64_t AsInt() const;
  double AsDouble() const;
  std::string AsText() const;
  std::optional<int64_t> AsOptionalInt() const;
  std::optional<double> AsOptionalDouble() const;
  std::optional<core::Date> AsDate() const;
  std::optional<core::TimeOfDay> AsTime() const;
  std::optional<core::DateTime> AsDateTime() const;
  bool AsBool() const;

  friend bool operator==(const Value&, const Value&) = default;

  const std::variant<std::monostate, int64_t, double, std::string>& Raw() const { return v_; }

 private:
  std::variant<std::monostate, int64_t, double, std::string> v_;
};

using Params = std::vector<Value>;

}  // namespace clockcomm::db
