// The lenient date and time conversion on anything: what it accepts is a real calendar date and
// time of day, and its own written form reads back as the same moment.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/date_time.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm::core;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto parsed = ParseDateTime(text);
  if (!parsed) return 0;
  const Date& date = parsed->GetDate();
  if (date.Month() < 1 || date.Month() > 12 || date.Day() < 1 ||
      date.Day() > Date::DaysInMonth(date.Year(), date.Month())) {
    abort();
  }
  if (parsed->GetTime().TotalSeconds() < 0 || parsed->GetTime().TotalSeconds() >= 86400) abort();
  const auto again = ParseDateTime(parsed->ToString());
  if (!again || !(*again == *parsed)) abort();
  if (const auto only_date = ParseDate(text); only_date && *only_date != date) abort();
  if (ParseTime(text) != parsed->GetTime()) abort();
  return 0;
}
