// The terminal families this program serves: the one place that lists them.
#pragma once

#include <span>

#include "terminal/family.h"

namespace clockcomm::app {

std::span<const terminal::TerminalFamily> Families();

}  // namespace clockcomm::app
