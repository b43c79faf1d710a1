#include "shell/port_map.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <set>

#include "core/text.h"
#include "shell/comm_settings.h"

namespace clockcomm::shell {

std::string PortDevice(const InstallInformation& install, int com_port) {
  const std::string mapped =
      core::Trim(install.Value(kPortsSection, "COM" + std::to_string(com_port)));
  if (!mapped.empty()) return mapped;
  return "/dev/ttyS" + std::to_string(com_port - 1);
}
namespace {

// The number of a port name as the lookup spells it: "COM" (any case) and 1 to 256 without
// leading zeros. "COM03" or "COM 3" would never be found.
std::optional<int> ComPortNumber(const std::string& name) {
  if (name.size() < 4 || !core::StartsWithIgnoreCase(name, "COM") || name[3] == '0') {
    return std::nullopt;
  }
  for (size_t i = 3; i < name.size(); ++i) {
    if (!std::isdigit(static_cast<unsigned char>(name[i]))) return std::nullopt;
  }
  const std::optional<int> n = core::ParseInt(name.substr(3));
  if (!n || *n > kMaxCommPort) return std::nullopt;
  return n;
}

bool Mapped(const InstallInformation& install, int port) {
  return !core::TrimView(install.Value(kPortsSection, "COM" + std::to_string(port))).empty();
}

}  // namespace

std::vector<PortMapping> PortMappings(const InstallInformation& install, int also_port) {
  std::set<int> ports = {also_port};
  for (const auto& entry : install.Values(kPortsSection)) {
    if (auto n = ComPortNumber(entry.name)) ports.insert(*n);
  }
  std::vector<PortMapping> mappings;
  for (int port : ports) {
    mappings.push_back({port, PortDevice(install, port), Mapped(install, port)});
  }
  return mappings;
}

std::vector<std::string> PortWarnings(const InstallInformation& install) {
  std::vector<std::string> warnings;
  const std::string file = install.RegistryFile().string();
  auto entries = install.Values(kPortsSection);
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.line < b.line; });
  for (const auto& entry : entries) {
    const std::optional<int> port = ComPortNumber(entry.name);
    if (!port) {
      warnings.push_back(fmt::format(
          "{} line {}: [{}] \"{}\" is not a port name COM1 to COM{}; the line maps nothing", file,
          entry.line, kPortsSection, entry.name, kMaxCommPort));
    } else if (core::TrimView(entry.value).empty()) {
      warnings.push_back(fmt::format("{} line {}: [{}] {} has no device; {} is used", file,
                                     entry.line, kPortsSection, entry.name,
                                     PortDevice(install, *port)));
    }
  }
  return warnings;
}

}  // namespace clockcomm::shell
