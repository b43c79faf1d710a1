#include "app/families.h"

#include "ats/driver/ats_family.h"
#include "zon/driver/zon_family.h"

namespace clockcomm::app {

std::span<const terminal::TerminalFamily> Families() {
  static const terminal::TerminalFamily kFamilies[] = {
      zon::ZonFamily(),
      ats::ATSFamily(),
  };
  return kFamilies;
}

std::optional<std::string> UnservedLine(terminal::TerminalType terminal_type,
                                        comm::ConnectionType connection_type) {
  if (ServedByT4Host(terminal_type)) {
    if (connection_type == comm::ConnectionType::kLan) return std::nullopt;
    return "T4 terminals (terminal type 2) are reached over the network only; set "
           "connection_type to 3 (LAN) and keep them with `clockcomm t4 clocks add`.";
  }
  if (terminal::FindFamily(Families(), terminal_type) == nullptr) {
    return terminal::UnservedTypeMessage(terminal_type);
  }
  return std::nullopt;
}

}  // namespace clockcomm::app
