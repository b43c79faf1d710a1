// The table of terminal families: which terminal types a family serves, and how to make its
// driver. The rows are listed in one place of the program's composition; adding a family is one
// folder and one row.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "terminal/terminal_driver.h"
#include "terminal/terminal_type.h"

namespace clockcomm::terminal {

struct TerminalFamily {
  std::string_view name;
  std::vector<TerminalType> types;
  std::function<std::unique_ptr<TerminalDriver>(DriverContext)> make_driver;
  // Whether its terminals call in (host mode); some makes are only ever polled.
  bool takes_calls = true;
};

// The family serving the type, or null when none does yet.
const TerminalFamily* FindFamily(std::span<const TerminalFamily> families, TerminalType type);

// "Terminal type 7 (ATS E-Series) is not served yet; ..." for a type no family serves.
std::string UnservedTypeMessage(TerminalType type);

}  // namespace clockcomm::terminal
