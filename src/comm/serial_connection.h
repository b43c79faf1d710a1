// IConnection over an open SerialLine. The line is owned by the caller (the call loop keeps it to
// set DTR and read carrier); reading a closed line raises ConnectionClosedError.
#pragma once

#include "comm/connection.h"
#include "comm/serial_line.h"

namespace clockcomm::comm {

class SerialConnection : public IConnection {
 public:
  explicit SerialConnection(SerialLine& line) : line_(line) {}

  std::string Read() override { return line_.Read(); }
  void WriteText(std::string_view text) override { line_.Write(text); }
  WaitResult WaitForInput(SteadyTime deadline, const WakeSet& wake) override {
    return line_.WaitForInput(deadline, wake);
  }
  void WaitUntilSent() override { line_.Drain(); }
  std::string Describe() const override { return line_.DevicePath(); }

  SerialLine& Line() { return line_; }

 private:
  SerialLine& line_;
};

}  // namespace clockcomm::comm
