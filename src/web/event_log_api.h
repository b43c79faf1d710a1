// The event log and the daily text logs: GET /api/v1/events (a page of a period, filtered by clock
// and event type), DELETE /api/v1/events (the purge of a period, confirmed), GET
// /api/v1/events/report (the printed report as a download), GET /api/v1/text-logs (a day's files)
// and GET /api/v1/text-logs/{name} (one of them).
#pragma once

#include "core/clock.h"
#include "core/log_sink.h"
#include "shell/my_static.h"
#include "web/api_gate.h"

namespace clockcomm::web {

class EventLogApi : public ApiArea {
 public:
  EventLogApi(shell::MyPaths paths, core::Clock& clock, core::LogSink& log)
      : paths_(std::move(paths)), clock_(clock), log_(log) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  void List(const httplib::Request& req, httplib::Response& res);
  void Purge(const httplib::Request& req, httplib::Response& res, const std::string& who);
  void Report(const httplib::Request& req, httplib::Response& res);
  void TextLogList(const httplib::Request& req, httplib::Response& res);
  void TextLogFile(const httplib::Request& req, httplib::Response& res);

  shell::MyPaths paths_;
  core::Clock& clock_;
  core::LogSink& log_;
};

}  // namespace clockcomm::web
