#include "db/value.h"

#include "core/text.h"

namespace clockcomm::db {

int64_t Value::AsInt() const {
  if (auto* i = std::get_if<int64_t>(&v_)) return *i;
  if (auto* d = std::get_if<double>(&v_)) return static_cast<int64_t>(*d);
  if (auto* s = std::get_if<std::string>(&v_)) return static_cast<int64_t>(core::LeadingNumber(*s));
  return 0;
}

double Value::AsDouble() const {
  if (auto* i = std::get_if<int64_t>(&v_)) return static_cast<double>(*i);
  if (auto* d = std::get_if<double>(&v_)) return *d;
  if (auto* s = std::get_if<std::string>(&v_)) return core::LeadingNumber(*s);
  return 0;
}

std::string Value::AsText() const {
  if (auto* i = std::get_if<int64_t>(&v_)) return std::to_string(*i);
  if (auto* d = std::get_if<double>(&v_)) return core::NumberText(*d);
  if (auto* s = std::get_if<std::string>(&v_)) return *s;
  return {};
}

std::optional<int64_t> Value::AsOptionalInt() const {
  if (IsNull()) return std::nullopt;
  if (auto* s = std::get_if<std::string>(&v_)) {
    auto n = core::ParseNumber(*s);
    if (!n) return std::nullopt;
    return static_cast<int64_t>(*n);
  }
  return AsInt();
}

std::optional<double> Value::AsOptionalDouble() const {
  if (IsNull()) return std::nullopt;
  if (auto* s = std::get_if<std::string>(&v_)) return core::ParseNumber(*s);
  return AsDouble();
}

std::optional<core::Date> Value::AsDate() const {
  if (!IsText()) return std::nullopt;
  return core::ParseDate(std::get<std::string>(v_));
}

std::optional<core::TimeOfDay> Value::AsTime() const {
  if (!IsText()) return std::nullopt;
  return core::ParseTime(std::get<std::string>(v_));
}

std::optional<core::DateTime> Value::AsDateTime() const {
  if (!IsText()) return std::nullopt;
  return core::ParseDateTime(std::get<std::string>(v_));
}

bool Value::AsBool() const {
  if (auto* s = std::get_if<std::string>(&v_)) {
    std::string l = core::ToLower(core::Trim(*s));
    return l == "true" || l == "yes" || l == "-1" || l == "1" || l == "on";
  }
  return AsInt() != 0;
}

}  // namespace clockcomm::db
