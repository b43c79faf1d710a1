// The lines one clockcomm process serves at once: the settings' own line (its COM port, or the
// LAN listener when its connection type is LAN), and the further lines of the [Lines] section of
// registry.ini:
//   [Lines]
//   COM2=Serial            another serial line with terminals wired to it
//   COM3=Modem             a modem line
//   LAN=0.0.0.0:3001       the LAN listener for terminals on the network
//   LANCallsAtOnce=1000    network terminals served at once
//   LANPollsAtOnce=16      network locations polled at once
//   LANIdleCloseSeconds=300
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "comm/connection_type.h"
#include "comm/network_line.h"
#include "shell/comm_settings.h"
#include "shell/install_information.h"
#include "shell/lan/lan_host.h"

namespace clockcomm::shell {

inline constexpr const char* kLinesSection = "Lines";

struct SerialLineEntry {
  int com_port = 1;
  comm::ConnectionType type = comm::ConnectionType::kSerial;  // kSerial or kModem
  std::string device;

  friend bool operator==(const SerialLineEntry&, const SerialLineEntry&) = default;
};

struct SiteLines {
  // The settings' serial or modem line first (none when it is the LAN), then [Lines] in port order.
  std::vector<SerialLineEntry> serial;
  // Whether the LAN listener is one of the lines.
  bool lan_listener = false;
  LanSettings lan;
  // One text per [Lines] line that is not used, as "<file> line <n>: <what>".
  std::vector<std::string> warnings;

  size_t Count() const { return serial.size() + (lan_listener ? 1 : 0); }
};

// The lines of the settings and of [Lines]. port_option, when not empty, is the device of the
// settings' line; listen_option, when given, is the LAN listener's address (and makes it a line).
SiteLines ReadSiteLines(const InstallInformation& install, const CommSettings& comm,
                        const std::string& port_option,
                        const std::optional<comm::EndPoint>& listen_option = std::nullopt);

}  // namespace clockcomm::shell
