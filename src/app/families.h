// The terminal families this program serves: the one place that lists them.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "comm/connection_type.h"
#include "terminal/family.h"

namespace clockcomm::app {

std::span<const terminal::TerminalFamily> Families();

// Terminal type 2 (Fingerprint) is served by the T4 host from its own clock list, over the
// network, not by a line's loop.
inline bool ServedByT4Host(terminal::TerminalType type) {
  return type == terminal::TerminalType::kFingerprint;
}

// Why no loop serves the line of the settings (its terminal type has no family, or a LAN line for
// a family that does not poll over the network), or nothing when one does.
std::optional<std::string> UnservedLine(terminal::TerminalType terminal_type,
                                        comm::ConnectionType connection_type);

}  // namespace clockcomm::app
