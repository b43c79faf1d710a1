#include "terminal/family.h"

#include <algorithm>
#include <string>

namespace clockcomm::terminal {

const TerminalFamily* FindFamily(std::span<const TerminalFamily> families, TerminalType type) {
  for (const auto& family : families) {
    if (std::find(family.types.begin(), family.types.end(), type) != family.types.end()) {
      return &family;
    }
  }
  return nullptr;
}

std::string UnservedTypeMessage(TerminalType type) {
  return "Terminal type " + std::to_string(static_cast<int>(type)) + " (" +
         std::string(TerminalTypeName(type)) +
         ") is not served yet: its terminals would keep their punches and send them again on "
         "every call. Set terminal_type to 1 (ZON / Tranz).";
}

}  // namespace clockcomm::terminal
