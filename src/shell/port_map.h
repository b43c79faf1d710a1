// What the [Ports] section of registry.ini makes of each COM port, and the lines of it that map
// nothing: a name other than COM1 to COM256 is never looked up, and an empty device leaves the
// port on its default device.
#pragma once

#include <string>
#include <vector>

#include "shell/install_information.h"

namespace clockcomm::shell {

inline constexpr const char* kPortsSection = "Ports";

// The device path of a COM port number: its [Ports] line ("COM3=/dev/ttyUSB0"), else
// /dev/ttyS<N-1>.
std::string PortDevice(const InstallInformation& install, int com_port);

struct PortMapping {
  int com_port = 0;
  std::string device;
  bool mapped = false;  // by a [Ports] line; else the default device

  friend bool operator==(const PortMapping&, const PortMapping&) = default;
};

// The device of every port [Ports] names, and of also_port, in port order and each once.
std::vector<PortMapping> PortMappings(const InstallInformation& install, int also_port);
// One text per [Ports] line that maps nothing, as "<file> line <n>: <what>".
std::vector<std::string> PortWarnings(const InstallInformation& install);

}  // namespace clockcomm::shell
