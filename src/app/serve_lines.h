// The lines of `clockcomm serve`, driven from the console as from the main form's buttons: Host
// (every line hosts, polling the poll list at its call times meanwhile), Poll now (the settings'
// line calls the chosen locations) and End. One run at a time, on a thread of its own. On a site
// of T4 terminals the one line is the T4 host: Host keeps the T4 clock list connected, Poll now
// polls every clock of it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "app/call_session.h"
#include "app/site_run.h"
#include "app/t4_site.h"
#include "web/line_desk.h"

namespace clockcomm::app {

class ServeLines : public web::LineDesk {
 public:
  // How long End waits for the lines to close before it answers (a call in progress is cut).
  static constexpr std::chrono::seconds kEndWait{10};

  ServeLines(CallSession& session, std::unique_ptr<SiteRun> site);
  ServeLines(CallSession& session, std::unique_ptr<T4Site> t4);
  ~ServeLines() override;

  std::vector<web::LineView> Lines() override;
  std::map<std::string, terminal::InputCounters> BadInputByClock() override;
  std::map<std::string, long> PunchesWaitingByClock() override;
  std::set<std::string> ConnectedClocks() override;
  web::DeskReply Host() override;
  web::DeskReply Poll(const std::vector<int64_t>& location_ids) override;
  // Presses End and waits up to kEndWait for the run to end, so that the lines are idle when
  // the console is told it was done.
  web::DeskReply End() override;

  // Ends the run under way and waits for it.
  void Shutdown();

 private:
  web::DeskReply Start(const std::string& mode, std::function<bool()> job);
  web::LineView T4Line(const std::string& mode);
  web::DeskReply PollT4(const std::vector<int64_t>& location_ids);

  CallSession& session_;
  std::unique_ptr<SiteRun> site_;  // one of the two
  std::unique_ptr<T4Site> t4_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::string mode_ = "idle";
  bool running_ = false;
  std::thread run_;
};

}  // namespace clockcomm::app
