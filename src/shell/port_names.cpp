#include "shell/port_names.h"

#include "core/text.h"

namespace clockcomm::shell {

std::string PortDevice(const InstallInformation& install, int com_port) {
  const std::string mapped =
      core::Trim(install.Value(kPortsSection, "COM" + std::to_string(com_port)));
  if (!mapped.empty()) return mapped;
  return "/dev/ttyS" + std::to_string(com_port - 1);
}

}  // namespace clockcomm::shell
