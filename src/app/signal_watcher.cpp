#include "app/signal_watcher.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

#include "core/errors.h"

namespace clockcomm::app {

SignalWatcher::SignalWatcher(std::function<void()> on_end, std::function<void()> on_hangup) {
  if (!on_hangup) on_hangup = on_end;
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGHUP);
  // Blocked here, inherited by every thread started later: the signals only reach the signalfd.
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal_fd_ = signalfd(-1, &set, SFD_CLOEXEC);
  if (signal_fd_ < 0) throw core::SystemError::FromErrno(errno, "signalfd");
  thread_ = std::thread([this, on_end = std::move(on_end), on_hangup = std::move(on_hangup)] {
    pollfd fds[2] = {{signal_fd_, POLLIN, 0}, {done_.WakeFd(), POLLIN, 0}};
    while (!done_.Requested()) {
      if (poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if (fds[0].revents & POLLIN) {
        signalfd_siginfo info;
        if (read(signal_fd_, &info, sizeof info) != sizeof info) continue;
        if (info.ssi_signo == SIGHUP) {
          on_hangup();
        } else {
          on_end();
        }
      }
    }
  });
}

SignalWatcher::~SignalWatcher() {
  done_.Request();
  if (thread_.joinable()) thread_.join();
  close(signal_fd_);
}

}  // namespace clockcomm::app
