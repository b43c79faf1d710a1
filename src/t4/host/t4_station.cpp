#include "t4/host/t4_station.h"

#include <algorithm>

namespace clockcomm::t4 {

T4Station::T4Station(std::unique_ptr<T4Clock> clock, std::string address,
                     T4StationSettings settings, std::function<void(T4Clock&)> after_poll,
                     core::Clock& time, core::LogSink& log)
    : clock_(std::move(clock)),
      address_(std::move(address)),
      settings_(settings),
      after_poll_(std::move(after_poll)),
      time_(time),
      log_(log) {
  clock_->SetStopSignal(&stop_);  // End cuts short whatever the terminal is asked
}

T4Station::~T4Station() { Stop(); }

void T4Station::Start() {
  thread_ = std::thread([this] { Run(); });
}

void T4Station::Stop() {
  stop_.Request();
  if (thread_.joinable()) thread_.join();
}

void T4Station::Run() {
  auto pause = settings_.first_retry;
  while (!stop_.Requested()) {
    const bool connected = clock_->Connect();
    Reached(connected);
    if (connected) {
      // A session that ran a whole cycle was a good one: the next failure starts the pauses anew.
      if (Serve()) pause = settings_.first_retry;
      clock_->Disconnect();
    }
    if (!time_.Pause(pause, stop_)) break;
    pause = std::min(pause * 2, settings_.max_retry);
  }
}

bool T4Station::Serve() {
  if (!clock_->RegisterEvents()) {
    log_.Event("Error", "T4 clock " + clock_->Name() +
                            " refused real-time events: " + clock_->GetLastError());
  }
  bool served_a_cycle = false;
  while (!stop_.Requested()) {
    try {
      clock_->DownloadPunches();
    } catch (const std::exception& e) {
      // The terminal went away mid-poll, or a punch could not be stored: its log was kept.
      log_.Event("Error", "T4 clock " + clock_->Name() + ": " + e.what());
      return served_a_cycle;
    }
    clock_->PurgeDuplicateList(settings_.purge_minutes);
    if (after_poll_) {
      try {
        after_poll_(*clock_);
      } catch (const std::exception& e) {
        log_.Event("Error", "T4 clock " + clock_->Name() + ": " + e.what());
      }
    }
    const auto until = time_.Steady() + settings_.cycle_interval;
    if (clock_->PumpEvents(until, {&stop_}) == PumpResult::kSessionLost) {
      log_.Event("Error", "T4 clock " + clock_->Name() +
                              " dropped the connection: " + clock_->GetLastError());
      return served_a_cycle;
    }
    served_a_cycle = true;
  }
  return served_a_cycle;
}

void T4Station::Reached(bool ok) {
  online_ = ok;
  if (ok == !in_outage_) return;
  in_outage_ = !ok;
  if (in_outage_) {
    log_.Event("T4 Clock Offline",
               clock_->Name() + " at " + address_ +
                   " does not answer; trying again until it does: " + clock_->GetLastError());
  } else {
    log_.Event("T4 Clock Online", clock_->Name() + " at " + address_ + " answers again.");
  }
}

}  // namespace clockcomm::t4
