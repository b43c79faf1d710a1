// A conversion of a terminal's data line into the quoted TCD line: can this line be converted, is
// it already a TCD line, and the conversion itself.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::zon {

class IFormatter {
 public:
  virtual ~IFormatter() = default;
  virtual bool Formattable(std::string_view line) const = 0;
  virtual bool AlreadyFormatted(std::string_view line) const = 0;
  virtual std::string Format(std::string_view line) const = 0;
};

}  // namespace clockcomm::zon
