#include "comm/serial_line.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "comm/fd_io.h"
#include "core/errors.h"

namespace clockcomm::comm {

namespace {

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

}  // namespace

SerialLine::~SerialLine() { Close(); }

void SerialLine::Open(const std::string& device_path) {
  Close();
  int fd = ::open(device_path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) throw core::SystemError::FromErrno(errno, "open " + device_path);
  fd_ = fd;
  device_path_ = device_path;
  hung_up_ = false;
  try {
    ApplySettings(settings_);
  } catch (...) {
    Close();
    throw;
  }
}

void SerialLine::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
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

int SerialLine::InputCount() const {
  RequireOpen("InputCount");
  int count = 0;
  if (::ioctl(fd_, FIONREAD, &count) < 0) {
    throw core::SystemError::FromErrno(errno, "FIONREAD " + device_path_);
  }
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
