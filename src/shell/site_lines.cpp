#include "shell/site_lines.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/errors.h"
#include "core/text.h"
#include "shell/port_map.h"

namespace clockcomm::shell {
namespace {

std::optional<int> ComPort(const std::string& name) {
  if (name.size() < 4 || !core::StartsWithIgnoreCase(name, "COM") || name[3] == '0') {
    return std::nullopt;
  }
  const std::optional<int> n = core::ParseInt(name.substr(3));
  if (!n || *n < 1 || *n > kMaxCommPort || std::to_string(*n) != name.substr(3)) {
    return std::nullopt;
  }
  return n;
}

std::optional<comm::ConnectionType> SerialType(std::string_view value) {
  const std::string v = core::ToUpper(core::Trim(value));
  if (v == "SERIAL" || v == "2") return comm::ConnectionType::kSerial;
  if (v == "MODEM" || v == "1") return comm::ConnectionType::kModem;
  return std::nullopt;
}

// A whole number in [low, high], or nothing.
std::optional<int> Count(std::string_view value, int low, int high) {
  const std::optional<int> n = core::ParseInt(core::Trim(value));
  if (!n || *n < low || *n > high) return std::nullopt;
  return n;
}

}  // namespace

SiteLines ReadSiteLines(const InstallInformation& install, const CommSettings& comm,
                        const std::string& port_option,
                        const std::optional<comm::EndPoint>& listen_option) {
  SiteLines lines;
  const std::string file = install.RegistryFile().string();
  auto warn = [&](const InstallInformation::Entry& entry, const std::string& what) {
    lines.warnings.push_back(
        fmt::format("{} line {}: [{}] {}", file, entry.line, kLinesSection, what));
  };
  if (comm.connection_type == comm::ConnectionType::kLan) {
    lines.lan_listener = true;
  } else {
    lines.serial.push_back(
        {comm.comm_port, comm.connection_type,
         port_option.empty() ? PortDevice(install, comm.comm_port) : port_option});
  }
  auto entries = install.Values(kLinesSection);
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.line < b.line; });
  for (const auto& entry : entries) {
    const std::string& value = entry.value;
    if (auto port = ComPort(entry.name)) {
      const auto type = SerialType(value);
      if (!type) {
        warn(entry, fmt::format("{}={} is neither Serial nor Modem; the line is not served",
                                entry.name, value));
      } else if (comm.connection_type != comm::ConnectionType::kLan && *port == comm.comm_port) {
        warn(entry, fmt::format("{} is the settings' own line; its connection type comes from "
                                "clockcomm.dta",
                                entry.name));
      } else {
        lines.serial.push_back({*port, *type, PortDevice(install, *port)});
      }
    } else if (core::EqualsIgnoreCase(entry.name, "LAN")) {
      try {
        lines.lan.listen = comm::ParseEndPoint(core::Trim(value), true);
        lines.lan_listener = true;
      } catch (const core::ArgumentException& e) {
        warn(entry, fmt::format("LAN={}: {} The LAN listener is not served", value, e.what()));
      }
    } else if (core::EqualsIgnoreCase(entry.name, "LANCallsAtOnce")) {
      if (auto n = Count(value, 1, 10000))
        lines.lan.calls_at_once = *n;
      else
        warn(entry, "LANCallsAtOnce must be 1 to 10000; " +
                        std::to_string(lines.lan.calls_at_once) + " is used");
    } else if (core::EqualsIgnoreCase(entry.name, "LANPollsAtOnce")) {
      if (auto n = Count(value, 1, 256))
        lines.lan.polls_at_once = *n;
      else
        warn(entry, "LANPollsAtOnce must be 1 to 256; " + std::to_string(lines.lan.polls_at_once) +
                        " is used");
    } else if (core::EqualsIgnoreCase(entry.name, "LANIdleCloseSeconds")) {
      if (auto n = Count(value, 1, 86400))
        lines.lan.idle_close = std::chrono::seconds(*n);
      else
        warn(entry, "LANIdleCloseSeconds must be 1 to 86400; 300 is used");
    } else {
      warn(entry, fmt::format("\"{}\" is not a line (COM1 to COM{}, LAN) nor a LAN setting; "
                              "the line is ignored",
                              entry.name, kMaxCommPort));
    }
  }
  if (listen_option) {
    lines.lan.listen = *listen_option;
    lines.lan_listener = true;
  }
  const bool settings_line_first = comm.connection_type != comm::ConnectionType::kLan;
  std::stable_sort(lines.serial.begin() + (settings_line_first ? 1 : 0), lines.serial.end(),
                   [](const auto& a, const auto& b) { return a.com_port < b.com_port; });
  return lines;
}

}  // namespace clockcomm::shell
