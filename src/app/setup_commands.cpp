#include "app/commands.h"

namespace clockcomm::app {

void RegisterSetupCommands(CLI::App&, const GlobalOptions&) {}

}  // namespace clockcomm::app
