#include "app/command_support.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>

namespace clockcomm::app {

void Fail(const std::string& message) {
  std::cerr << message << "\n";
  throw CLI::RuntimeError(1);
}

core::Date ParseDayOption(const std::string& option, const std::string& text) {
  const bool shaped = text.size() == 10 && text[4] == '-' && text[7] == '-' &&
                      text.find_first_not_of("0123456789-") == std::string::npos;
  std::optional<core::Date> day;
  if (shaped) {
    day = core::Date::FromYmd(std::stoi(text.substr(0, 4)), std::stoi(text.substr(5, 2)),
                              std::stoi(text.substr(8, 2)));
  }
  if (!day) Fail("clockcomm: invalid " + option + " date \"" + text + "\": expected YYYY-MM-DD");
  return *day;
}

}  // namespace clockcomm::app
