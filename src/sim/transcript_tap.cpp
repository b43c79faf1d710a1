#include "sim/transcript_tap.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "core/errors.h"

namespace clockcomm::sim {

TranscriptTap::TranscriptTap() : pty_(comm::PtyPair::Open()) {
  int fds[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
    throw core::SystemError::FromErrno(errno, "socketpair");
  }
  relay_end_ = std::make_unique<comm::FdConnection>(fds[0], "tap");
  far_end_ = std::make_unique<comm::FdConnection>(fds[1], "far end of the tap");
  program_side_ = pty_.TakeMaster();
  thread_ = std::thread([this] { Relay(); });
}

TranscriptTap::~TranscriptTap() { Finish(); }

void TranscriptTap::Sync(const std::string& text) {
  std::lock_guard lock(mutex_);
  transcript_.Add(TranscriptStep::Kind::kSync, text);
}

Transcript TranscriptTap::Finish() {
  stop_.Request();
  if (thread_.joinable()) thread_.join();
  std::lock_guard lock(mutex_);
  return transcript_;
}

// Sleeps in poll() on both ends and the stop signal; whatever one end says goes to the other.
void TranscriptTap::Relay() {
  struct Side {
    comm::FdConnection& from;
    comm::FdConnection& to;
    TranscriptStep::Kind kind;
    bool open = true;
  };
  Side sides[2] = {{*program_side_, *relay_end_, TranscriptStep::Kind::kProgram},
                   {*relay_end_, *program_side_, TranscriptStep::Kind::kFarEnd}};
  while (!stop_.Requested() && (sides[0].open || sides[1].open)) {
    pollfd fds[3] = {{sides[0].open ? sides[0].from.Fd() : -1, POLLIN, 0},
                     {sides[1].open ? sides[1].from.Fd() : -1, POLLIN, 0},
                     {stop_.WakeFd(), POLLIN, 0}};
    if (::poll(fds, 3, -1) < 0 && errno != EINTR) return;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].revents == 0) continue;
      Side& side = sides[i];
      try {
        const std::string text = side.from.Read();
        if (text.empty()) continue;
        {
          std::lock_guard lock(mutex_);
          transcript_.Add(side.kind, text);
        }
        side.to.WriteText(text);
      } catch (const core::Error&) {
        side.open = false;  // that end has gone: nothing more comes from it
      }
    }
  }
}

}  // namespace clockcomm::sim
