// The terminal types of the settings. Each has a fixed number (the one stored in the settings
// file): 1 and 4 are fixed by the terminals' own software, the others follow the setup list.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace clockcomm::terminal {

enum class TerminalType : int {
  kZonTranz = 1,
  kFingerprint = 2,
  kProximity = 3,
  kMobility = 4,
  kHandPunch = 5,
  kDSeries = 6,
  kAtsESeries = 7,
  kAtsCyberSeries = 8,
  kAtsProdigy = 9,
  kAtsMaximus = 10,
  kAtsOptimus = 11,
};

// The names shown on the setup screen, indexed by number - 1.
inline constexpr std::array<std::string_view, 11> kTerminalTypeNames = {
    "ZON / Tranz",  "Fingerprint",     "Proximity",   "Mobility",    "HandPunch",  "D-Series",
    "ATS E-Series", "ATS CyberSeries", "ATS Prodigy", "ATS Maximus", "ATS Optimus"};

inline constexpr std::string_view TerminalTypeName(TerminalType type) {
  return kTerminalTypeNames[static_cast<size_t>(type) - 1];
}

inline constexpr std::optional<TerminalType> TerminalTypeFromNumber(int number) {
  if (number < 1 || number > static_cast<int>(kTerminalTypeNames.size())) return std::nullopt;
  return static_cast<TerminalType>(number);
}

}  // namespace clockcomm::terminal
