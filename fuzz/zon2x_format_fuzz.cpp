// Zon2xToTcdFormatter on anything: Format succeeds or raises the date or time error; a formatted
// line of 13 fields is recognised as already formatted.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/errors.h"
#include "zon/zon2x_to_tcd_formatter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view line(reinterpret_cast<const char*>(data), size);
  clockcomm::zon::Zon2xToTcdFormatter formatter;
  const bool formattable = formatter.Formattable(line);
  formatter.AlreadyFormatted(line);
  try {
    std::string out = formatter.Format(line);
    if (out.size() < 2 || out.front() != '"' || out.back() != '"') abort();
    const bool has_quotes_or_spaces = line.find_first_of("\" ") != std::string_view::npos;
    if (formattable && !has_quotes_or_spaces && !formatter.AlreadyFormatted(out)) abort();
  } catch (const clockcomm::core::FormatException&) {
  }
  return 0;
}
