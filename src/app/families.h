// The terminal families this program serves: the one place that lists them.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "comm/connection_type.h"
#include "terminal/family.h"

namespace clockcomm::app {

std::span<const terminal::TerminalFamily> Families();

// Why no loop serves the line of the settings (its terminal type has no family, or a LAN line for
// a family that does not poll over the network), or nothing when one does.
std::optional<std::string> UnservedLine(terminal::TerminalType terminal_type,
                                        comm::ConnectionType connection_type);

}  // namespace clockcomm::app
