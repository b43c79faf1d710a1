// The ATS family's row of the family table.
#pragma once

#include "terminal/family.h"

namespace clockcomm::ats {

terminal::TerminalFamily ATSFamily();

}  // namespace clockcomm::ats
