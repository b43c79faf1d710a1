// A serial port over termios: open and close by device path, the settings string, DTR, carrier
// detect, input and output counts. A pseudo-terminal is a serial line too; it has no modem lines,
// so DTR is reported as not supported and carrier follows whether the other end is open.
//
// A port is held exclusively while open: a lock on the descriptor (flock, which other processes
// and other SerialLines of this one respect), TIOCEXCL against plain opens, and the UUCP lock file
// "LCK..<device name>" for programs that only look there.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "comm/connection.h"
#include "comm/line_settings.h"
#include "core/errors.h"

namespace clockcomm::comm {

// The port is held by someone else. The message names the device, the holder's PID when a lock
// file tells it, and the system error.
class PortBusyError : public core::SystemError {
 public:
  PortBusyError(int number, const std::string& description, std::optional<pid_t> holder)
      : core::SystemError(number, description), holder_(holder) {}
  std::optional<pid_t> Holder() const { return holder_; }

 private:
  std::optional<pid_t> holder_;
};

class SerialLine {
 public:
  // Lock files go to the first of /var/lock and /run/lock that exists and is writable; with
  // neither, the port is locked through its descriptor only.
  SerialLine() = default;
  // Lock files go to lock_directory (when it exists and is writable); tests give a folder of
  // their own.
  explicit SerialLine(std::filesystem::path lock_directory)
      : lock_directory_(std::move(lock_directory)) {}
  ~SerialLine();
  SerialLine(const SerialLine&) = delete;
  SerialLine& operator=(const SerialLine&) = delete;

  // Opens the device (raw, non-blocking, no controlling terminal, modem lines ignored for the
  // open), takes it exclusively and applies the current settings. Throws PortBusyError when the
  // port is held, core::SystemError naming the device for any other failure.
  void Open(const std::string& device_path);
  // Releases the port and removes the lock file this line made.
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

  // Bytes waiting in the output queue of the driver.
  int OutputCount() const;

  // Raises or drops DTR. Returns false when the device has no modem lines (a pty).
  bool SetDtr(bool on);
  // Carrier detect; on a device without modem lines, true while the other end is open.
  bool CarrierDetect() const;

  // The descriptor, for callers that build their own poll sets; -1 when closed.
  int Fd() const { return fd_; }
  // The lock file this line holds; empty when it holds none.
  const std::filesystem::path& LockFile() const { return lock_file_; }

  static constexpr size_t kMaxReadChunk = 65536;

 private:
  void ApplySettings(const LineSettings& settings);
  void RequireOpen(const char* operation) const;
  // Takes the port for this line: descriptor lock, lock file, TIOCEXCL. Throws PortBusyError.
  void Lock(const std::optional<std::filesystem::path>& lock_file);
  // Makes the lock file, taking over one whose process is gone. Throws PortBusyError.
  void TakeLockFile(const std::filesystem::path& file);
  std::optional<std::filesystem::path> LockDirectory() const;

  std::optional<std::filesystem::path> lock_directory_;
  std::filesystem::path lock_file_;
  int fd_ = -1;
  std::string device_path_;
  LineSettings settings_;
  bool hung_up_ = false;
};

}  // namespace clockcomm::comm
