// The lines of the serving process: GET /api/v1/lines (what each line does and has counted), the
// main form's buttons POST /api/v1/lines/host, /poll and /end (operator), and the live screen
// GET /api/v1/screen as server-sent events.
#pragma once

#include <atomic>
#include <chrono>

#include "core/log_sink.h"
#include "web/api_gate.h"
#include "web/line_desk.h"
#include "web/screen_feed.h"

namespace clockcomm::web {

// Live screens open at once; more are refused (503) so that they never take every request thread.
inline constexpr int kMaxScreenStreams = 4;
// A comment line on an idle live screen, so that proxies and browsers keep it open.
inline constexpr std::chrono::seconds kScreenHeartbeat{15};
// How often an idle live screen looks whether its client has gone (a blocking wait, not a spin).
inline constexpr std::chrono::seconds kScreenClientCheck{1};

class LinesApi : public ApiArea {
 public:
  // desk: null when this process runs no lines (the buttons are refused with 409).
  LinesApi(LineDesk* desk, ScreenFeed& screen, core::LogSink& log)
      : desk_(desk), screen_(screen), log_(log) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  void List(httplib::Response& res);
  void Press(const httplib::Request& req, httplib::Response& res, ApiGate& gate,
             const std::string& button);
  void Screen(const httplib::Request& req, httplib::Response& res, ApiGate& gate);

  LineDesk* desk_;
  ScreenFeed& screen_;
  core::LogSink& log_;
  std::atomic<int> streams_{0};
};

}  // namespace clockcomm::web
