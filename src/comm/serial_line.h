// A serial port over termios: open and close by device path, the settings string, DTR, carrier
// detect, input and output counts. A pseudo-terminal is a serial line too; it has no modem lines,
// so DTR is reported as not supported and carrier follows whether the other end is open.
#pragma once

#include <string>
#include <string_view>

#include "comm/connection.h"
#include "comm/line_settings.h"

namespace clockcomm::comm {

class SerialLine {
 public:
  SerialLine() = default;
  ~SerialLine();
  SerialLine(const SerialLine&) = delete;
  SerialLine& operator=(const SerialLine&) = delete;

  // Opens the device (raw, non-blocking, no controlling terminal, modem lines ignored for the
  // open) and applies the current settings. Throws core::SystemError naming the device.
  void Open(const std::string& device_path);
  void Close();
  bool IsOpen() const { return fd_ >= 0; }
  const std::string& DevicePath() const { return device_path_; }

  // "9600,N,8,1" ...; applied at once when open, else at the next Open. Throws
  // core::ArgumentException for a malformed or unsupported string; the old settings stay.
  void SetSettings(std::string_view settings);
  const LineSettings& Settings() const { return settings_; }

  // What is pending in the input, emptied (at most kMaxReadChunk bytes per call). Throws
  // ConnectionClosedError when the line is closed or the other end of a pty has gone.
  std::string Read();
  // Writes all of it; waits for room in the output as long as the line speed needs (plus a
  // margin), then throws core::TimeoutException.
  void Write(std::string_view text);
  // Blocks until the output has been sent (tcdrain).
  void Drain();
  WaitResult WaitForInput(SteadyTime deadline, const WakeSet& wake);

  // Bytes waiting in the output and input queues of the driver.
  int OutputCount() const;
  int InputCount() const;

  // Raises or drops DTR. Returns false when the device has no modem lines (a pty).
  bool SetDtr(bool on);
  // Carrier detect; on a device without modem lines, true while the other end is open.
  bool CarrierDetect() const;

  // The descriptor, for callers that build their own poll sets; -1 when closed.
  int Fd() const { return fd_; }

  static constexpr size_t kMaxReadChunk = 65536;

 private:
  void ApplySettings(const LineSettings& settings);
  void RequireOpen(const char* operation) const;

  int fd_ = -1;
  std::string device_path_;
  LineSettings settings_;
  bool hung_up_ = false;
};

}  // namespace clockcomm::comm
