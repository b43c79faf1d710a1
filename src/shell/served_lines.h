// Which lines a loop serves today: Zon/Tranz terminals on a serial line or a modem. host, poll
// and auto refuse the rest rather than speak the Zon conversation to a terminal that does not
// know it.
#pragma once

#include <optional>
#include <string>

#include "shell/comm_settings.h"

namespace clockcomm::shell {

// Why no loop serves the line of the settings, or nothing when one does.
std::optional<std::string> UnservedLine(const CommSettings& settings);
// Throws core::InvalidOperationException with that reason.
void RequireServedLine(const CommSettings& settings);

}  // namespace clockcomm::shell
