// What the operator sees of a line: screen lines and a status line. A user interface implements
// it; the drivers and the line runner only write to it.
#pragma once

#include <string_view>

namespace clockcomm::terminal {

class ScreenSink {
 public:
  virtual ~ScreenSink() = default;
  virtual void Line(std::string_view text) = 0;
  // Replaces the status line.
  virtual void Status(std::string_view text) = 0;
  // Adds to the status line ("." per packet, "*" per refused one).
  virtual void AppendStatus(std::string_view text) = 0;
};

}  // namespace clockcomm::terminal
