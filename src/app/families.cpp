#include "app/families.h"

#include "zon/driver/zon_family.h"

namespace clockcomm::app {

std::span<const terminal::TerminalFamily> Families() {
  static const terminal::TerminalFamily kFamilies[] = {
      zon::ZonFamily(),
  };
  return kFamilies;
}

}  // namespace clockcomm::app
