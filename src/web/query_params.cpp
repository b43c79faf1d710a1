#include "web/query_params.h"

#include "core/text.h"
#include "web/api_reply.h"

namespace clockcomm::web {

std::optional<std::string> QueryParams::Raw(const char* name) const {
  if (!req_.has_param(name)) return std::nullopt;
  return req_.get_param_value(name);
}

void QueryParams::Wrong(const char* name, const std::string& value, const std::string& expected) {
  if (!error_.empty()) return;
  error_ = std::string("Query parameter \"") + name + "\" is \"" + Printable(value) +
           "\": expected " + expected + ".";
}

void QueryParams::Require(const char* name) {
  if (error_.empty() && !req_.has_param(name))
    error_ = std::string("Query parameter \"") + name + "\" must be given.";
}

std::optional<core::Date> QueryParams::Date(const char* name) {
  const auto raw = Raw(name);
  if (!raw) return std::nullopt;
  auto day = core::ParseIsoDate(*raw);
  if (!day) Wrong(name, *raw, "a date YYYY-MM-DD");
  return day;
}

std::optional<int64_t> QueryParams::Int(const char* name, int64_t min, int64_t max) {
  const auto raw = Raw(name);
  if (!raw) return std::nullopt;
  // Digits only (at most 18, so no overflow): no sign, blank or exponent slips through.
  int64_t value = 0;
  bool ok = !raw->empty() && raw->size() <= 18;
  for (const char c : *raw) {
    if (c < '0' || c > '9') ok = false;
    if (ok) value = value * 10 + (c - '0');
  }
  if (!ok || value < min || value > max) {
    Wrong(name, *raw, "a whole number from " + std::to_string(min) + " to " + std::to_string(max));
    return std::nullopt;
  }
  return value;
}

Paging QueryParams::Page() {
  Paging paging;
  paging.page = Int("page", 1, 1'000'000'000).value_or(1);
  paging.page_size = Int("page_size", 1, kMaxPageSize).value_or(kDefaultPageSize);
  return paging;
}

std::optional<std::string> QueryParams::Text(const char* name) {
  const auto raw = Raw(name);
  if (!raw) return std::nullopt;
  auto ansi = core::AnsiFromUtf8(*raw);
  if (!ansi || ansi->size() > kMaxText || core::HasControlCharacter(*ansi)) {
    Wrong(name, *raw,
          "text of at most " + std::to_string(kMaxText) +
              " characters of Windows-1252, without control characters");
    return std::nullopt;
  }
  return ansi;
}

std::pair<core::Date, core::Date> QueryParams::Period(const core::Date& today) {
  const core::Date from = Date("from").value_or(today);
  const core::Date to = Date("to").value_or(today);
  if (to < from && error_.empty()) {
    error_ = "Query parameter \"to\" (" + to.Format(core::kFormatIsoDate) +
             ") is before \"from\" (" + from.Format(core::kFormatIsoDate) + ").";
  }
  return {from, to};
}

bool QueryParams::Refused(httplib::Response& res) const {
  if (error_.empty()) return false;
  ReplyError(res, 400, error_);
  return true;
}

}  // namespace clockcomm::web
