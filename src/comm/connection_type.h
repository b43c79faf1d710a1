// How a line reaches its terminals. The numbers are the ones stored in the settings file.
#pragma once

#include <optional>
#include <string_view>

namespace clockcomm::comm {

enum class ConnectionType : int { kModem = 1, kSerial = 2, kLan = 3 };

inline constexpr std::string_view ConnectionTypeName(ConnectionType type) {
  switch (type) {
    case ConnectionType::kModem:
      return "Modem";
    case ConnectionType::kSerial:
      return "Serial";
    case ConnectionType::kLan:
      return "LAN";
  }
  return "";
}

// The type stored as number, or nothing for a number no type has.
inline constexpr std::optional<ConnectionType> ConnectionTypeFromNumber(int number) {
  if (number < 1 || number > 3) return std::nullopt;
  return static_cast<ConnectionType>(number);
}

}  // namespace clockcomm::comm
