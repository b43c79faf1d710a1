#include "comm/serial_line.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>

#include "comm/fd_io.h"
#include "core/errors.h"

namespace clockcomm::comm {

namespace fs = std::filesystem;

namespace {

// Where UUCP lock files live, in the order tried (on most systems the first is a link to the
// second).
constexpr const char* kLockDirectories[] = {"/var/lock", "/run/lock"};

// Beyond the time the bytes need on the wire, a write may wait this long for room.
constexpr std::chrono::milliseconds kWriteMargin{5000};

struct Rate {
  int baud;
  speed_t speed;
};
// Every rate LineSettings accepts has an entry here.
constexpr Rate kRates[] = {{110, B110},     {300, B300},     {600, B600},      {1200, B1200},
                           {2400, B2400},   {4800, B4800},   {9600, B9600},    {19200, B19200},
                           {38400, B38400}, {57600, B57600}, {115200, B115200}};

speed_t SpeedOf(int baud) {
  for (const Rate& rate : kRates) {
    if (rate.baud == baud) return rate.speed;
  }
  throw core::ArgumentException("Unsupported line rate " + std::to_string(baud) + ".", "Settings");
}

tcflag_t SizeFlag(int data_bits) {
  switch (data_bits) {
    case 5:
      return CS5;
    case 6:
      return CS6;
    case 7:
      return CS7;
    default:
      return CS8;
  }
}

// Devices without modem lines (a pty) answer the modem ioctls with one of these.
bool NoModemLines(int error) { return error == ENOTTY || error == EINVAL; }

// A lock file holds the PID as ten ASCII characters, right-aligned, and a newline.
std::string LockFileText(pid_t pid) { return fmt::format("{:>10}\n", pid); }

// The PID a lock file names; nothing when the file is missing or holds no number.
std::optional<pid_t> ReadLockHolder(const fs::path& file) {
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return std::nullopt;
  char buffer[32];
  ssize_t n = ::read(fd, buffer, sizeof buffer);
  ::close(fd);
  if (n <= 0) return std::nullopt;
  std::string_view text(buffer, static_cast<size_t>(n));
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ' || text.back() == '\r')) {
    text.remove_suffix(1);
  }
  long pid = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
  if (error != std::errc() || end != text.data() + text.size() || pid <= 0 || pid > INT_MAX) {
    return std::nullopt;
  }
  return static_cast<pid_t>(pid);
}

// kill(pid, 0) fails with EPERM for a live process of another user.
bool ProcessAlive(pid_t pid) { return ::kill(pid, 0) == 0 || errno == EPERM; }

PortBusyError Busy(int error, const std::string& device, const std::optional<fs::path>& lock_file) {
  std::optional<pid_t> holder;
  std::error_code ec;
  const bool has_lock_file = lock_file && fs::exists(*lock_file, ec);
  if (has_lock_file) holder = ReadLockHolder(*lock_file);
  std::string description = "The port " + device + " is in use by ";
  if (!holder) {
    description += "another program";
  } else if (*holder == ::getpid()) {
    description += "this process (" + std::to_string(*holder) + ")";
  } else {
    description += "process " + std::to_string(*holder);
  }
  if (has_lock_file) description += " (lock file " + lock_file->string() + ")";
  description += ": ";
  description += std::strerror(error);
  return PortBusyError(error, description, holder);
}

}  // namespace

SerialLine::~SerialLine() { Close(); }

std::optional<fs::path> SerialLine::LockDirectory() const {
  auto usable = [](const fs::path& dir) {
    std::error_code ec;
    return fs::is_directory(dir, ec) && ::access(dir.c_str(), W_OK | X_OK) == 0;
  };
  if (lock_directory_) {
    if (usable(*lock_directory_)) return lock_directory_;
    return std::nullopt;
  }
  for (const char* dir : kLockDirectories) {
    if (usable(dir)) return fs::path(dir);
  }
  return std::nullopt;
}

void SerialLine::Open(const std::string& device_path) {
  Close();
  // The lock file is named after the device itself, so that /dev/modem and the ttyS it points
  // to share one.
  std::error_code ec;
  fs::path real_path = fs::canonical(device_path, ec);
  if (ec) real_path = device_path;
  std::optional<fs::path> lock_file;
  if (auto dir = LockDirectory()) lock_file = *dir / ("LCK.." + real_path.filename().string());

  int fd = ::open(device_path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    const int error = errno;
    if (error == EBUSY) throw Busy(error, device_path, lock_file);  // TIOCEXCL of another
    throw core::SystemError::FromErrno(error, "open " + device_path);
  }
  fd_ = fd;
  device_path_ = device_path;
  hung_up_ = false;
  try {
    Lock(lock_file);
    ApplySettings(settings_);
  } catch (...) {
    Close();
    throw;
  }
}

void SerialLine::Lock(const std::optional<fs::path>& lock_file) {
  // flock belongs to the open file description, so it refuses a second SerialLine of this
  // process as well as another process.
  if (::flock(fd_, LOCK_EX | LOCK_NB) < 0) {
    const int error = errno;
    if (error == EWOULDBLOCK) throw Busy(error, device_path_, lock_file);
    throw core::SystemError::FromErrno(error, "flock " + device_path_);
  }
  if (lock_file) TakeLockFile(*lock_file);
  if (::ioctl(fd_, TIOCEXCL) < 0) {
    throw core::SystemError::FromErrno(errno, "TIOCEXCL " + device_path_);
  }
}

// The lock file appears whole or not at all: the PID goes into a file of this process first,
// which is then linked to the lock's name (link fails when the name exists). A process killed
// half way leaves at most that file of its own, never a lock file without a PID, which would
// refuse the port to every later start until someone removed it.
void SerialLine::TakeLockFile(const fs::path& file) {
  // Numbered within the process too: several lines of one process take their ports at once.
  static std::atomic<int> taken{0};
  const fs::path own = file.parent_path() / ("LTMP." + std::to_string(::getpid()) + "." +
                                             std::to_string(taken.fetch_add(1)));
  {
    const std::string text = LockFileText(::getpid());
    int fd = ::open(own.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) throw core::SystemError::FromErrno(errno, "lock file " + own.string());
    // Other programs read the PID in it, whatever the program's umask.
    ::fchmod(fd, 0644);
    const ssize_t written = ::write(fd, text.data(), text.size());
    const int error = errno;
    ::close(fd);
    if (written != static_cast<ssize_t>(text.size())) {
      ::unlink(own.c_str());
      throw core::SystemError::FromErrno(written < 0 ? error : EIO, "lock file " + own.string());
    }
  }
  struct RemoveOwn {
    const fs::path& path;
    ~RemoveOwn() { ::unlink(path.c_str()); }
  } remove_own{own};
  // Two rounds: a stale file is removed in the first and ours linked in the second.
  for (int round = 0; round < 2; ++round) {
    if (::link(own.c_str(), file.c_str()) == 0) {
      lock_file_ = file;
      return;
    }
    if (errno != EEXIST) throw core::SystemError::FromErrno(errno, "lock file " + file.string());
    // A file without a PID cannot be checked and is left to the operator. One naming this
    // process is left from an earlier run under the same PID: this line holds the descriptor
    // lock, so no other line of ours has the port.
    std::optional<pid_t> holder = ReadLockHolder(file);
    if (!holder || (*holder != ::getpid() && ProcessAlive(*holder))) {
      throw Busy(EBUSY, device_path_, file);
    }
    if (::unlink(file.c_str()) < 0 && errno != ENOENT) {
      throw core::SystemError::FromErrno(errno, "stale lock file " + file.string());
    }
  }
  throw Busy(EBUSY, device_path_, file);
}

void SerialLine::Close() {
  if (fd_ >= 0) {
    // A tty keeps TIOCEXCL while anyone has it open (a pty pair holds its slave), so clear it.
    ::ioctl(fd_, TIOCNXCL);
    ::close(fd_);
  }
  fd_ = -1;
  if (!lock_file_.empty()) {
    if (ReadLockHolder(lock_file_) == ::getpid()) ::unlink(lock_file_.c_str());
    lock_file_.clear();
  }
}

void SerialLine::RequireOpen(const char* operation) const {
  if (fd_ < 0) {
    throw ConnectionClosedError(std::string(operation) + ": the port " +
                                (device_path_.empty() ? std::string("(none)") : device_path_) +
                                " is not open.");
  }
}

void SerialLine::SetSettings(std::string_view settings) {
  LineSettings parsed = LineSettings::Parse(settings);
  if (IsOpen()) ApplySettings(parsed);
  settings_ = parsed;
}

void SerialLine::ApplySettings(const LineSettings& s) {
  termios tio{};
  if (::tcgetattr(fd_, &tio) < 0) {
    throw core::SystemError::FromErrno(errno, "tcgetattr " + device_path_);
  }
  ::cfmakeraw(&tio);
  tio.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
  tio.c_cflag |= SizeFlag(s.data_bits) | CLOCAL | CREAD;
  if (s.parity != 'N') tio.c_cflag |= PARENB;
  if (s.parity == 'O') tio.c_cflag |= PARODD;
  if (s.stop_bits == 2) tio.c_cflag |= CSTOPB;
  tio.c_iflag &= ~(IXON | IXOFF | IXANY | INPCK | ISTRIP);
  tio.c_cc[VMIN] = 0;
  tio.c_cc[VTIME] = 0;
  ::cfsetispeed(&tio, SpeedOf(s.baud));
  ::cfsetospeed(&tio, SpeedOf(s.baud));
  if (::tcsetattr(fd_, TCSANOW, &tio) < 0) {
    throw core::SystemError::FromErrno(errno, "tcsetattr " + device_path_);
  }
}

std::string SerialLine::Read() {
  RequireOpen("Read");
  if (hung_up_) throw ConnectionClosedError("The other end of " + device_path_ + " hung up.");
  auto outcome = fd_io::ReadAvailable(fd_, kMaxReadChunk, device_path_, /*zero_is_eof=*/false);
  if (outcome.text.empty() && !outcome.hung_up) {
    // A hung-up tty reads as empty; only poll tells it apart from silence.
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, 0) > 0 && (p.revents & (POLLHUP | POLLERR)) != 0) outcome.hung_up = true;
  }
  if (outcome.hung_up) {
    hung_up_ = true;
    if (outcome.text.empty()) {
      throw ConnectionClosedError("The other end of " + device_path_ + " hung up.");
    }
  }
  return std::move(outcome.text);
}

void SerialLine::Write(std::string_view text) {
  RequireOpen("Write");
  fd_io::WriteAll(fd_, text, settings_.TransmitTime(text.size()) + kWriteMargin, device_path_);
}

void SerialLine::Drain() {
  RequireOpen("Drain");
  while (::tcdrain(fd_) < 0) {
    if (errno != EINTR) throw core::SystemError::FromErrno(errno, "tcdrain " + device_path_);
  }
}

WaitResult SerialLine::WaitForInput(SteadyTime deadline, const WakeSet& wake) {
  RequireOpen("WaitForInput");
  if (hung_up_) return WaitResult::kReadable;  // Read reports the hang-up
  return fd_io::WaitReadable(fd_, deadline, wake);
}

int SerialLine::OutputCount() const {
  RequireOpen("OutputCount");
  int count = 0;
  if (::ioctl(fd_, TIOCOUTQ, &count) < 0) return 0;
  return count;
}

bool SerialLine::SetDtr(bool on) {
  RequireOpen("SetDtr");
  int bits = TIOCM_DTR;
  if (::ioctl(fd_, on ? TIOCMBIS : TIOCMBIC, &bits) == 0) return true;
  if (NoModemLines(errno)) return false;
  throw core::SystemError::FromErrno(errno, "DTR on " + device_path_);
}

bool SerialLine::CarrierDetect() const {
  RequireOpen("CarrierDetect");
  int status = 0;
  if (::ioctl(fd_, TIOCMGET, &status) == 0) return (status & TIOCM_CD) != 0;
  if (errno == EIO) return false;  // the device hung up (a pty whose far end closed)
  if (!NoModemLines(errno)) throw core::SystemError::FromErrno(errno, "TIOCMGET " + device_path_);
  // No modem lines: the carrier is there while the other end is open (no hang-up pending).
  if (hung_up_) return false;
  pollfd p{fd_, 0, 0};
  if (::poll(&p, 1, 0) < 0) return false;
  return (p.revents & POLLHUP) == 0;
}

}  // namespace clockcomm::comm
