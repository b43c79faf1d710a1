#include "shell/served_lines.h"

#include <fmt/format.h>

namespace clockcomm::shell {

std::optional<std::string> UnservedLine(const CommSettings& settings) {
  if (!terminal::TerminalTypeServed(settings.terminal_type)) {
    return fmt::format(
        "Terminal type {} ({}) is not served yet: only 1 ({}) has a loop; set terminal_type to 1 "
        "for Zon/Tranz terminals.",
        static_cast<int>(settings.terminal_type),
        terminal::TerminalTypeName(settings.terminal_type),
        terminal::TerminalTypeName(terminal::TerminalType::kZonTranz));
  }
  if (settings.connection_type == comm::ConnectionType::kLan) {
    return std::string(
        "Connection type 3 (LAN) is not served by this loop yet; set connection_type to 1 "
        "(Modem) or 2 (Serial).");
  }
  return std::nullopt;
}

void RequireServedLine(const CommSettings& settings) {
  if (auto reason = UnservedLine(settings)) throw core::InvalidOperationException(*reason);
}

}  // namespace clockcomm::shell
