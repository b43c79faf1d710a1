#include "app/serve_lines.h"

#include <algorithm>
#include <iostream>

#include "core/text.h"
#include "db/open.h"
#include "db/schema.h"
#include "shell/schedule/poll_list.h"
#include "t4/host/t4_clock_list.h"

namespace clockcomm::app {

ServeLines::ServeLines(CallSession& session, std::unique_ptr<SiteRun> site)
    : session_(session), site_(std::move(site)) {}

ServeLines::ServeLines(CallSession& session, std::unique_ptr<T4Site> t4)
    : session_(session), t4_(std::move(t4)) {}

ServeLines::~ServeLines() { Shutdown(); }

void ServeLines::Shutdown() {
  session_.Controller().PressEnd();
  std::thread run;
  {
    std::lock_guard lock(mutex_);
    run = std::move(run_);
  }
  if (run.joinable()) run.join();
}

std::vector<web::LineView> ServeLines::Lines() {
  std::string mode;
  {
    std::lock_guard lock(mutex_);
    mode = mode_;
  }
  if (t4_) return {T4Line(mode)};
  std::vector<web::LineView> views;
  bool first = true;
  for (auto& info : site_->LineInfos()) {
    web::LineView view{info.id, info.name, info.kind, "idle", "stopped", std::move(info.snapshot)};
    // Polling runs on the settings' line only; the others rest meanwhile.
    if (mode == "host" || (mode == "poll" && first)) {
      view.mode = mode;
      view.state = view.snapshot.in_call ? "in call"
                   : mode == "host"      ? "waiting for calls"
                                         : "polling";
    }
    views.push_back(std::move(view));
    first = false;
  }
  return views;
}

web::LineView ServeLines::T4Line(const std::string& mode) {
  // A connection of this request's own, as for Poll.
  auto product_db = db::Open(session_.Paths().ClockwynDatabase());
  const size_t listed = t4::T4ClockList(*product_db).ReadClocks().size();
  const auto clocks = t4_->Clocks();
  const auto online = std::count_if(clocks.begin(), clocks.end(),
                                    [](const t4::T4Host::ClockStatus& c) { return c.online; });
  const std::string name =
      "T4 host (" + std::to_string(listed) + (listed == 1 ? " clock)" : " clocks)");
  web::LineView view{"t4", name, "t4", mode, "stopped", {}};
  view.snapshot.punches = static_cast<int>(t4_->PunchesStored());
  if (mode == "host") {
    view.state = online > 0 ? "hosting" : "waiting for terminals";
    view.snapshot.status =
        std::to_string(online) + " of " + std::to_string(listed) + " clocks connected";
  } else if (mode == "poll") {
    view.state = "polling";
  }
  return view;
}

std::map<std::string, long> ServeLines::PunchesWaitingByClock() {
  return t4_ ? t4_->PunchesWaitingByClock() : std::map<std::string, long>{};
}

std::set<std::string> ServeLines::ConnectedClocks() {
  std::set<std::string> connected;
  if (!t4_) return connected;
  for (const auto& clock : t4_->Clocks()) {
    if (clock.online) connected.insert(core::ToUpper(clock.name));
  }
  return connected;
}

std::map<std::string, terminal::InputCounters> ServeLines::BadInputByClock() {
  std::map<std::string, terminal::InputCounters> all;
  if (!site_) return all;
  for (const auto& info : site_->LineInfos()) {
    for (const auto& [clock, counters] : info.bad_input_by_clock) all[clock] += counters;
  }
  return all;
}

web::DeskReply ServeLines::Start(const std::string& mode, std::function<bool()> job) {
  std::lock_guard lock(mutex_);
  if (running_) {
    return {web::DeskReply::Outcome::kRefused,
            "The lines are in " + mode_ + " mode: press End first."};
  }
  if (run_.joinable()) run_.join();  // the last run has ended; its thread is done
  running_ = true;
  mode_ = mode;
  // The T4 host watches End itself: cleared here, so that an End pressed from now on counts.
  if (t4_) session_.Controller().EndCommLoop().Reset();
  run_ = std::thread([this, mode, job = std::move(job)] {
    bool ok = false;
    try {
      ok = job();
    } catch (const std::exception& e) {
      session_.Logs().Event("Error", std::string("Lines ended: ") + e.what());
    }
    if (!ok)
      std::cerr << "clockcomm: the " << mode << " run ended on a failure (see the event log)\n";
    std::lock_guard ended(mutex_);
    running_ = false;
    mode_ = "idle";
    ended_.notify_all();
  });
  return {};
}

web::DeskReply ServeLines::Host() {
  if (t4_) {
    return Start("host", [this] {
      t4_->Host(session_.Controller().EndCommLoop());
      return true;
    });
  }
  return Start("host", [this] { return site_->Host(false, true); });
}

web::DeskReply ServeLines::PollT4(const std::vector<int64_t>& location_ids) {
  if (!location_ids.empty()) {
    return {web::DeskReply::Outcome::kRefused,
            "The T4 host polls every clock of the T4 clock list: poll without locations (the poll "
            "list's ids name no T4 clock)."};
  }
  auto product_db = db::Open(session_.Paths().ClockwynDatabase());
  if (t4::T4ClockList(*product_db).ReadClocks().empty()) {
    return {web::DeskReply::Outcome::kRefused,
            "The T4 clock list has no clock: add the terminals with `clockcomm t4 clocks add`."};
  }
  return Start("poll", [this] { return t4_->PollAll(); });
}

web::DeskReply ServeLines::Poll(const std::vector<int64_t>& location_ids) {
  if (t4_) return PollT4(location_ids);
  // A connection of this request's own: the lines' threads keep theirs.
  auto product_db = db::Open(session_.Paths().ClockwynDatabase());
  db::CreateProductSchema(*product_db);
  const auto rows = shell::PollList(*product_db).ReadPollRows();
  std::vector<shell::PollRow> chosen;
  for (const int64_t id : location_ids) {
    const auto it = std::find_if(rows.begin(), rows.end(),
                                 [&](const shell::PollRow& r) { return r.location_id == id; });
    if (it == rows.end()) {
      return {web::DeskReply::Outcome::kUnknownLocation,
              "No location of the poll list has the id " + std::to_string(id) + "."};
    }
    chosen.push_back(*it);
  }
  if (location_ids.empty()) {
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(chosen),
                 [](const shell::PollRow& r) { return r.select_to_dial; });
  }
  if (chosen.empty()) {
    return {web::DeskReply::Outcome::kRefused, "No location of the poll list is selected."};
  }
  return Start("poll", [this, chosen] { return site_->PollLocations(chosen); });
}

web::DeskReply ServeLines::End() {
  std::unique_lock lock(mutex_);
  if (!running_) return {web::DeskReply::Outcome::kRefused, "The lines are idle already."};
  // Pressed again now and then: a run that was just started clears End as it begins.
  const auto deadline = std::chrono::steady_clock::now() + kEndWait;
  while (running_ && std::chrono::steady_clock::now() < deadline) {
    session_.Controller().PressEnd();
    ended_.wait_for(lock, std::chrono::milliseconds(200), [this] { return !running_; });
  }
  return {};
}

}  // namespace clockcomm::app
