#include "comm/stub_connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "comm/fd_io.h"
#include "core/errors.h"

namespace clockcomm::comm {

StubConnection::StubConnection(std::vector<std::string> script, core::ManualClock* clock)
    : script_(script.begin(), script.end()),
      event_fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      clock_(clock) {
  if (event_fd_ < 0) throw core::SystemError::FromErrno(errno, "eventfd");
}

StubConnection::~StubConnection() { ::close(event_fd_); }

std::string StubConnection::Read() {
  std::lock_guard lock(mutex_);
  ++read_calls_;
  if (script_.empty()) {
    uint64_t drained;
    [[maybe_unused]] ssize_t n = ::read(event_fd_, &drained, sizeof drained);
    return {};
  }
  std::string next = std::move(script_.front());
  script_.pop_front();
  return next;
}

void StubConnection::WriteText(std::string_view text) {
  {
    std::lock_guard lock(mutex_);
    written_.append(text);
  }
  if (responder_) {
    std::string answer = responder_(text);
    if (!answer.empty()) Push(std::move(answer));
  }
}

void StubConnection::Push(std::string text) {
  {
    std::lock_guard lock(mutex_);
    script_.push_back(std::move(text));
  }
  const uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(event_fd_, &one, sizeof one);
}

WaitResult StubConnection::WaitForInput(SteadyTime deadline, const WakeSet& wake) {
  for (;;) {
    {
      std::lock_guard lock(mutex_);
      if (!script_.empty()) return WaitResult::kReadable;
      // Nothing queued: forget old pushes so the poll below sleeps until a new one.
      uint64_t drained;
      [[maybe_unused]] ssize_t n = ::read(event_fd_, &drained, sizeof drained);
    }
    // In virtual time the silence passes at once; only a wait without deadline really blocks.
    if (clock_ != nullptr && deadline != kNoDeadline) {
      if (wake.AnyRequested()) return WaitResult::kWoken;
      clock_->AdvanceTo(deadline);
      return WaitResult::kTimedOut;
    }
    WaitResult result = fd_io::WaitReadable(event_fd_, deadline, wake);
    if (result != WaitResult::kReadable) return result;
  }
}

std::string StubConnection::Written() const {
  std::lock_guard lock(mutex_);
  return written_;
}

int StubConnection::ReadCalls() const {
  std::lock_guard lock(mutex_);
  return read_calls_;
}

}  // namespace clockcomm::comm
