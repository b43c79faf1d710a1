#include "app/commands.h"

namespace clockcomm::app {

void RegisterRecordCommands(CLI::App&, const GlobalOptions&) {}

}  // namespace clockcomm::app
