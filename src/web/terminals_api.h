// GET /api/v1/terminals: every terminal of the site with its last contact, punches and health;
// GET /api/v1/terminals/{name}: one of them with its recent calls.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/clock.h"
#include "shell/site_status.h"
#include "web/api_gate.h"
#include "web/terminal_json.h"

namespace clockcomm::web {

// How long one gathering of the site answers the list: gathering reads every database of the
// site, so consoles that refresh often, or many at once, cost one gathering per interval.
inline constexpr std::chrono::seconds kTerminalsFresh{2};
// The event-log rows shown with one terminal.
inline constexpr int kRecentCalls = 50;

struct TerminalsSource {
  std::function<shell::SiteStatus()> gather;
  std::function<HealthRules()> rules;
  // The last rows of the event log of a clock, newest first.
  std::function<std::vector<shell::EventLogEntry>(const std::string& name, int limit)> calls;
};

class TerminalsApi : public ApiArea {
 public:
  TerminalsApi(TerminalsSource source, core::Clock& clock)
      : source_(std::move(source)), clock_(clock) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  struct Board {
    shell::SiteStatus status;
    HealthRules rules;
    std::string body;  // the list's JSON
    core::Clock::Monotonic taken;
  };
  // The site as last gathered, gathered anew when older than kTerminalsFresh; one request
  // gathers while the others wait for its result.
  std::shared_ptr<const Board> Current();
  void One(const httplib::Request& req, httplib::Response& res);

  TerminalsSource source_;
  core::Clock& clock_;
  std::mutex mutex_;
  std::shared_ptr<const Board> board_;
};

}  // namespace clockcomm::web
