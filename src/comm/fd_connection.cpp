#include "comm/fd_connection.h"

#include <unistd.h>

#include "comm/fd_io.h"

namespace clockcomm::comm {

FdConnection::FdConnection(int fd, std::string description)
    : fd_(fd), description_(std::move(description)), socket_(fd_io::IsSocket(fd)) {
  fd_io::SetNonBlocking(fd_, description_);
}

FdConnection::~FdConnection() { Close(); }

void FdConnection::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

void FdConnection::RequireOpen() const {
  if (fd_ < 0) throw ConnectionClosedError("The connection " + description_ + " is not open.");
}

std::string FdConnection::Read() {
  RequireOpen();
  if (peer_closed_) {
    throw ConnectionClosedError("The other end of " + description_ + " closed the connection.");
  }
  auto outcome = fd_io::ReadAvailable(fd_, kMaxReadChunk, description_);
  if (outcome.hung_up) {
    peer_closed_ = true;
    // Hand over what came before the hang-up; the next Read reports it.
    if (outcome.text.empty()) {
      throw ConnectionClosedError("The other end of " + description_ + " closed the connection.");
    }
  }
  return std::move(outcome.text);
}

void FdConnection::WriteText(std::string_view text) {
  RequireOpen();
  fd_io::WriteAll(fd_, text, write_timeout_, description_, socket_);
}

WaitResult FdConnection::WaitForInput(SteadyTime deadline, const WakeSet& wake) {
  RequireOpen();
  // After a hang-up the descriptor stays readable; Read reports it.
  if (peer_closed_) return WaitResult::kReadable;
  return fd_io::WaitReadable(fd_, deadline, wake);
}

}  // namespace clockcomm::comm
