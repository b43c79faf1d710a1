// Reading a request's query string: dates, whole numbers, paging and text, each checked. The first
// value that is wrong is kept, and Refused() answers 400 naming the parameter and the value.
#pragma once

#include <httplib.h>

#include <cstdint>
#include <optional>
#include <string>

#include "core/date_time.h"

namespace clockcomm::web {

struct Paging {
  int64_t page = 1;
  int64_t page_size = 100;
  int64_t Offset() const { return (page - 1) * page_size; }
};

class QueryParams {
 public:
  static constexpr int64_t kDefaultPageSize = 100;
  static constexpr int64_t kMaxPageSize = 1000;
  // Longer texts are no name of this program's (clocks, companies, event types are at most 255).
  static constexpr size_t kMaxText = 255;

  explicit QueryParams(const httplib::Request& req) : req_(req) {}

  // A date YYYY-MM-DD; nothing when absent or wrong.
  std::optional<core::Date> Date(const char* name);
  // A whole number from min to max; nothing when absent or wrong.
  std::optional<int64_t> Int(const char* name, int64_t min, int64_t max);
  // page (from 1) and page_size (1 to kMaxPageSize), with their defaults.
  Paging Page();
  // Text as the databases keep it (Windows-1252); nothing when absent or wrong (not UTF-8, a
  // character Windows-1252 lacks, a control character, longer than kMaxText).
  std::optional<std::string> Text(const char* name);
  // from..to: today..today by default; a `to` before `from` is wrong.
  std::pair<core::Date, core::Date> Period(const core::Date& today);

  // Notes that the parameter is needed and absent.
  void Require(const char* name);
  // Writes the 400 for the first wrong value; false when every value was right.
  bool Refused(httplib::Response& res) const;

 private:
  std::optional<std::string> Raw(const char* name) const;
  void Wrong(const char* name, const std::string& value, const std::string& expected);

  const httplib::Request& req_;
  std::string error_;
};

}  // namespace clockcomm::web
