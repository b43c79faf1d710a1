#include "comm/pty_pair.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "core/errors.h"

namespace clockcomm::comm {

PtyPair PtyPair::Open(bool hold_slave_open) {
  int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0) throw core::SystemError::FromErrno(errno, "posix_openpt");
  auto fail = [&](const char* what) {
    int error = errno;
    ::close(master);
    return core::SystemError::FromErrno(error, what);
  };
  if (::grantpt(master) < 0) throw fail("grantpt");
  if (::unlockpt(master) < 0) throw fail("unlockpt");
  char name[128];
  if (::ptsname_r(master, name, sizeof name) != 0) throw fail("ptsname_r");
  // The slave's termios is the pair's line discipline: raw, so bytes pass both ways untouched.
  int slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave < 0) throw fail("open pty slave");
  termios tio{};
  if (::tcgetattr(slave, &tio) == 0) {
    ::cfmakeraw(&tio);
    ::tcsetattr(slave, TCSANOW, &tio);
  }
  if (!hold_slave_open) {
    ::close(slave);
    slave = -1;
  }
  return PtyPair(master, slave, name);
}

PtyPair::PtyPair(PtyPair&& other) noexcept
    : master_fd_(other.master_fd_),
      slave_fd_(other.slave_fd_),
      slave_path_(std::move(other.slave_path_)) {
  other.master_fd_ = -1;
  other.slave_fd_ = -1;
}

PtyPair& PtyPair::operator=(PtyPair&& other) noexcept {
  if (this != &other) {
    this->~PtyPair();
    master_fd_ = other.master_fd_;
    slave_fd_ = other.slave_fd_;
    slave_path_ = std::move(other.slave_path_);
    other.master_fd_ = -1;
    other.slave_fd_ = -1;
  }
  return *this;
}

PtyPair::~PtyPair() {
  ReleaseSlave();
  if (master_fd_ >= 0) ::close(master_fd_);
  master_fd_ = -1;
}

std::unique_ptr<FdConnection> PtyPair::TakeMaster() {
  if (master_fd_ < 0) throw core::InvalidOperationException("The pty master was already taken.");
  int fd = master_fd_;
  master_fd_ = -1;
  return std::make_unique<FdConnection>(fd, "pty master of " + slave_path_);
}

void PtyPair::ReleaseSlave() {
  if (slave_fd_ >= 0) ::close(slave_fd_);
  slave_fd_ = -1;
}

}  // namespace clockcomm::comm
