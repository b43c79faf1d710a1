#include "app/serve_lines.h"

#include <algorithm>
#include <iostream>

#include "db/open.h"
#include "db/schema.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::app {

ServeLines::ServeLines(CallSession& session, std::unique_ptr<SiteRun> site)
    : session_(session), site_(std::move(site)) {}

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

std::map<std::string, terminal::InputCounters> ServeLines::BadInputByClock() {
  std::map<std::string, terminal::InputCounters> all;
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
  return Start("host", [this] { return site_->Host(false, true); });
}

web::DeskReply ServeLines::Poll(const std::vector<int64_t>& location_ids) {
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
