#include "shell/lan/lan_host.h"

#include <algorithm>
#include <iostream>

#include "core/errors.h"
#include "shell/schedule/auto_end_watcher.h"

namespace clockcomm::shell {

struct LanHost::Active {
  std::unique_ptr<LanCall> call;
  std::thread thread;
  bool ended = false;
};

LanHost::LanHost(LineSettings settings, LanSettings lan,
                 std::span<const terminal::TerminalFamily> families,
                 terminal::CallController& controller, LineServices& services, core::LogSink& log,
                 terminal::ScreenSink& screen)
    : settings_(std::move(settings)),
      lan_(std::move(lan)),
      families_(families),
      family_([&]() -> const terminal::TerminalFamily& {
        const auto* family = terminal::FindFamily(families, settings_.terminal_type);
        if (family == nullptr) {
          throw core::InvalidOperationException(
              terminal::UnservedTypeMessage(settings_.terminal_type));
        }
        return *family;
      }()),
      controller_(controller),
      services_(services),
      log_(log),
      screen_(screen),
      recovery_(IntakePathsOf(services.paths), *services.companies, controller,
                controller.Clock()) {
  settings_.connection_type = comm::ConnectionType::kLan;
}

LanHost::~LanHost() { Close(); }

bool LanHost::Listen() {
  const std::string where = lan_.listen.host + ":" + std::to_string(lan_.listen.port);
  try {
    listener_ = std::make_unique<comm::TcpListener>(lan_.listen.host, lan_.listen.port);
  } catch (const core::Error& e) {
    controller_.Show("{0} Cannot listen for LAN terminals on {1}", {where});
    controller_.Event("Invalid LAN address", e.what());
    std::cerr << "clockcomm: cannot listen for LAN terminals on " << where << ": " << e.what()
              << "\n";
    return false;
  }
  const std::string bound = lan_.listen.host + ":" + std::to_string(listener_->Port());
  controller_.Show("{0} Listening for LAN terminals on {1}", {bound});
  controller_.Event("Open Comm", "LAN " + bound);
  return true;
}

bool LanHost::Ending() const {
  return controller_.EndCommLoop().Requested() || (idle_end_ != nullptr && idle_end_->Requested());
}

void LanHost::Recover() {
  next_recovery_ = controller_.Clock().Steady() + LineRunner::kRecoveryInterval;
  const records::SweepResult swept = recovery_.Sweep();
  if (swept.delivered > 0) {
    controller_.Show("{0} Recovered {1} call file(s): {2} row(s) went in",
                     {std::to_string(swept.delivered), std::to_string(swept.rows)});
  }
}

comm::SteadyTime LanHost::NextWake() const {
  auto wake = next_recovery_;
  if (services_.schedule != nullptr) {
    // The next call time, and at least once a minute to see a changed poll list.
    int64_t seconds = 60;
    if (auto next = services_.schedule->NextDue()) {
      seconds = std::min(seconds, core::SecondsBetween(controller_.Clock().Now(), *next));
    }
    wake = std::min(
        wake, controller_.Clock().Steady() + std::chrono::seconds(std::max<int64_t>(0, seconds)));
  }
  return wake;
}

bool LanHost::Host(bool once) {
  if (!listener_ && !Listen()) return false;
  if (services_.schedule != nullptr && !poller_) {
    poller_ = std::make_unique<LanPoller>(settings_, lan_.polls_at_once, families_, controller_,
                                          services_, log_, screen_);
  }
  Recover();  // what an earlier run left comes first
  controller_.Status("Waiting for next event, press End to Quit.");
  std::optional<AutoEndWatcher> auto_end;
  if (auto deadline = NextEndDeadline(settings_.end_time, controller_.Clock().Now())) {
    auto_end.emplace(controller_.Clock(), *deadline, controller_.EndCommLoop(), controller_);
  }
  const comm::WakeSet wake{&controller_.EndCommLoop(), idle_end_, &call_ended_};
  for (;;) {
    call_ended_.Reset();
    ReapEnded();
    if (Ending() || (once && first_call_delivered_)) break;
    PollDueLocations();
    WaitForFreeSlot();
    if (Ending()) break;
    std::unique_ptr<comm::TcpConnection> connection;
    try {
      connection = listener_->Accept(NextWake(), wake);
    } catch (const core::SystemError& e) {
      // Out of descriptors, say: logged, and tried again after the calls in progress have gone on.
      controller_.Event("Error", std::string("Accepting a LAN terminal: ") + e.what());
      controller_.Clock().Pause(std::chrono::seconds(1), controller_.EndCommLoop());
      continue;
    }
    if (connection) Serve(std::move(connection));
    if (controller_.Clock().Steady() >= next_recovery_) Recover();
  }
  Close();
  if (controller_.RunFailed()) return false;
  return !once || first_call_delivered_.value_or(false);
}

void LanHost::Serve(std::unique_ptr<comm::TcpConnection> connection) {
  auto call = std::make_unique<LanCall>(std::move(connection), settings_, family_, services_, log_,
                                        screen_, controller_.Clock());
  std::lock_guard lock(mutex_);
  Active& active = active_.emplace_back();
  active.call = std::move(call);
  active.thread = std::thread([this, &active] {
    try {
      active.call->Run(lan_.idle_close, idle_end_);
    } catch (const std::exception& e) {
      // A failure on one terminal's line never stops another.
      controller_.Event("Error", "LAN terminal " + active.call->Peer() + ": " + e.what());
    }
    {
      std::lock_guard ended_lock(mutex_);
      active.ended = true;
    }
    changed_.notify_all();
    call_ended_.Request();
  });
}

void LanHost::ReapEnded() {
  std::list<Active> ended;
  {
    std::lock_guard lock(mutex_);
    for (auto it = active_.begin(); it != active_.end();) {
      auto next = std::next(it);
      if (it->ended) ended.splice(ended.end(), active_, it);
      it = next;
    }
  }
  for (Active& done : ended) {
    done.thread.join();
    LanCall& call = *done.call;
    good_calls_ += call.GoodCalls();
    failed_calls_ += call.Calls() - call.GoodCalls();
    if (call.Calls() > 0 && !first_call_delivered_)
      first_call_delivered_ = call.LastCallDelivered();
    if (call.RunFailed()) controller_.EndRunOnError();
    if (services_.schedule != nullptr && !call.LastClockName().empty()) {
      services_.schedule->UpdateForClock(call.LastClockName());
    }
  }
}

bool LanHost::AnyEnded() const {
  return std::ranges::any_of(active_, [](const Active& a) { return a.ended; });
}

void LanHost::WaitForFreeSlot() {
  std::unique_lock lock(mutex_);
  if (static_cast<int>(active_.size()) < lan_.calls_at_once) return;
  const int listener = controller_.EndCommLoop().AddListener([this] {
    std::lock_guard wake_lock(mutex_);
    changed_.notify_all();
  });
  changed_.wait(lock, [this] { return controller_.EndCommLoop().Requested() || AnyEnded(); });
  lock.unlock();
  controller_.EndCommLoop().RemoveListener(listener);
}

void LanHost::PollDueLocations() {
  if (!poller_ || services_.schedule == nullptr) return;
  services_.schedule->Load();  // the poll list may have changed since the last pass
  while (!Ending()) {
    auto due = services_.schedule->TakeDue();
    if (!due) break;
    poller_->Poll(*due);
  }
}

void LanHost::Close() {
  // End reaches every terminal's line; a reload (idle end) lets the calls in progress finish.
  if (controller_.EndCommLoop().Requested()) {
    std::lock_guard lock(mutex_);
    for (Active& a : active_) a.call->End();
  }
  while (true) {
    {
      std::unique_lock lock(mutex_);
      if (active_.empty()) break;
      changed_.wait(lock, [this] { return AnyEnded(); });
    }
    ReapEnded();
  }
  if (poller_) poller_->Wait();
  if (listener_) {
    controller_.Status("Resetting && Closing Port");
    controller_.Event("Close Comm", "LAN");
    controller_.Show("{0} Closing Port");
    listener_.reset();
  }
}

}  // namespace clockcomm::shell
