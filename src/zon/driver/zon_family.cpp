#include "zon/driver/zon_family.h"

#include "zon/driver/zon_driver.h"

namespace clockcomm::zon {

terminal::TerminalFamily ZonFamily() {
  using terminal::TerminalType;
  // Mobility wands reach the Zon/Tranz line, which refuses them: they need a loader of their own.
  return {"ZON / Tranz",
          {TerminalType::kZonTranz, TerminalType::kMobility},
          [](terminal::DriverContext context) {
            return std::make_unique<ZonDriver>(std::move(context));
          }};
}

}  // namespace clockcomm::zon
