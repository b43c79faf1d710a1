// The settings string of a serial line: rate, parity, data bits and stop bits, as in
// "9600,N,8,1" or "9600,O,7,2".
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace clockcomm::comm {

struct LineSettings {
  int baud = 9600;
  char parity = 'N';  // 'N' none, 'O' odd, 'E' even
  int data_bits = 8;  // 5..8
  int stop_bits = 1;  // 1 or 2

  // Throws core::ArgumentException (parameter "Settings") naming the part that is wrong.
  static LineSettings Parse(std::string_view text);
  // The rates a serial port can be set to.
  static bool IsSupportedRate(int baud);
  std::string ToString() const;

  // Time the line needs to carry this many bytes (start, data, parity and stop bits each).
  std::chrono::milliseconds TransmitTime(size_t bytes) const;

  friend bool operator==(const LineSettings&, const LineSettings&) = default;
};

}  // namespace clockcomm::comm
