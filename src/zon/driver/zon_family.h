// The Zon/Tranz family's row of the family table.
#pragma once

#include "terminal/family.h"

namespace clockcomm::zon {

terminal::TerminalFamily ZonFamily();

}  // namespace clockcomm::zon
