// The LAN listener of a site: host mode for terminals on a network. Every terminal that connects
// gets a line of its own (LanCall) on a thread of its own and holds its calls at once with the
// others; the listener accepts, bounds how many are served at once, runs the recovery sweep, polls
// the scheduled locations meanwhile, and at End hangs every terminal up.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>

#include "comm/network_line.h"
#include "comm/tcp_connection.h"
#include "records/intake/intake_recovery.h"
#include "shell/lan/lan_call.h"
#include "shell/lan/lan_poller.h"
#include "shell/line_runner.h"

namespace clockcomm::shell {

inline constexpr uint16_t kDefaultLanPort = 3001;

struct LanSettings {
  comm::EndPoint listen{"0.0.0.0", kDefaultLanPort};
  // Terminals served at once; more wait in the listener's backlog until one hangs up.
  int calls_at_once = 1000;
  // Locations polled at once over the network.
  int polls_at_once = 16;
  // A connected terminal silent this long between calls is hung up.
  std::chrono::milliseconds idle_close = std::chrono::minutes(5);
};

class LanHost {
 public:
  // controller: the listener's own (its End ends every call); log and screen: what every call's
  // controller writes to.
  LanHost(LineSettings settings, LanSettings lan,
          std::span<const terminal::TerminalFamily> families, terminal::CallController& controller,
          LineServices& services, core::LogSink& log, terminal::ScreenSink& screen);
  ~LanHost();
  LanHost(const LanHost&) = delete;
  LanHost& operator=(const LanHost&) = delete;

  // Binds the listening address. False (shown, logged, and on stderr with the system's reason)
  // when it cannot be bound.
  bool Listen();
  // The port listened on (the chosen one when the settings asked for port 0).
  uint16_t Port() const { return listener_ ? listener_->Port() : 0; }
  // Host mode until End, the auto-end time, or (idle end) a reload; with once, until the first
  // call has ended. True when the listener was open, the run did not end on an error, and, with
  // once, that call succeeded and its punches went in.
  bool Host(bool once = false);
  // Host mode also ends when idle_end is requested; the calls in progress go on to their end.
  void SetIdleEnd(const core::StopSignal* idle_end) { idle_end_ = idle_end; }

  int GoodCalls() const { return good_calls_; }
  int FailedCalls() const { return failed_calls_; }

 private:
  struct Active;
  void Serve(std::unique_ptr<comm::TcpConnection> connection);
  // Joins the calls that have ended and counts them.
  void ReapEnded();
  // Whether a call has ended and waits to be reaped; mutex_ held.
  bool AnyEnded() const;
  void WaitForFreeSlot();
  void PollDueLocations();
  void Recover();
  void Close();
  bool Ending() const;
  comm::SteadyTime NextWake() const;

  LineSettings settings_;
  LanSettings lan_;
  std::span<const terminal::TerminalFamily> families_;
  const terminal::TerminalFamily& family_;
  terminal::CallController& controller_;
  LineServices& services_;
  core::LogSink& log_;
  terminal::ScreenSink& screen_;
  records::IntakeRecovery recovery_;
  core::Clock::Monotonic next_recovery_{};
  std::unique_ptr<comm::TcpListener> listener_;
  std::unique_ptr<LanPoller> poller_;  // the scheduled locations' polls, when there is a schedule
  const core::StopSignal* idle_end_ = nullptr;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::list<Active> active_;
  core::StopSignal call_ended_;     // a call has ended: the listener wakes to count it
  std::atomic<int> good_calls_{0};  // read by a console while the calls run
  std::atomic<int> failed_calls_{0};
  std::optional<bool> first_call_delivered_;
};

}  // namespace clockcomm::shell
