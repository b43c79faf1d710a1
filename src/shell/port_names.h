// The device path of a COM port number: the [Ports] section of registry.ini ("COM3=/dev/ttyUSB0"),
// else /dev/ttyS<N-1>.
#pragma once

#include <string>

#include "shell/install_information.h"

namespace clockcomm::shell {

inline constexpr const char* kPortsSection = "Ports";

std::string PortDevice(const InstallInformation& install, int com_port);

}  // namespace clockcomm::shell
