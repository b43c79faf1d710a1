// Zon/Tranz terminals on a network: one call in over a TCP connection of its own (connect, the
// direct-line conversation, close after the EOT), and a swarm of such terminals in one process,
// each calling once with punches no other terminal has, their starts spread over a time window.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "comm/network_line.h"
#include "core/date_time.h"
#include "core/stop_signal.h"
#include "sim/zon_terminal.h"

namespace clockcomm::sim {

// How one call over the network went: the connection could not be made (connect_error set), or
// it was made and the conversation ended with outcome.
struct NetworkCall {
  enum class Connect { kMade, kRefused, kTimedOut, kFailed };
  Connect connect = Connect::kMade;
  std::string connect_error;  // "cannot connect to HOST:PORT: <system error>"
  CallOutcome outcome = CallOutcome::kNone;
  // From just before the connect to the EOT (or to the end of the failed call).
  std::chrono::nanoseconds duration{0};

  bool Completed() const { return connect == Connect::kMade && outcome == CallOutcome::kCompleted; }
  // "connection refused", "connect timed out", "connect failed" or the call's outcome.
  std::string Name() const;
};

// A terminal that does not get its connection in this time gives the call up.
inline constexpr std::chrono::seconds kTerminalConnectTimeout{5};

// Connects to the program, calls in as on a direct line and closes the connection.
NetworkCall CallInOverTcp(ZonTerminal& terminal, const comm::EndPoint& program,
                          core::StopSignal* stop,
                          std::chrono::milliseconds connect_timeout = kTerminalConnectTimeout);

struct SwarmConfig {
  comm::EndPoint program;
  int terminals = 1;
  // The call starts are spread evenly over this window; zero starts them all at once.
  std::chrono::milliseconds within{60'000};
  int punches_each = 10;
  std::string clock_name_prefix = "SW";
  // A refused connection or a failed call is tried again after kRetryPause, up to kMaxRetries.
  bool retry = false;
  // Application, upload type, pace and waits of every terminal; name and number are set per
  // terminal.
  TerminalConfig terminal;
  std::chrono::milliseconds connect_timeout = kTerminalConnectTimeout;
  core::Date day = core::Date::FromYmdOrThrow(2026, 1, 5);  // of the generated punches
};

struct SwarmTerminal {
  std::string clock_name;
  int attempts = 0;  // calls tried; 0 when the swarm was stopped before its start
  NetworkCall last;  // the last attempt
  int punches_delivered = 0;
  // The first attempt's connect, and the end of the last attempt.
  std::chrono::steady_clock::time_point started, ended;
};

struct SwarmResult {
  int terminals = 0;
  int completed = 0;
  int failed = 0;  // terminals whose call did not complete, unstarted ones included
  int punches_delivered = 0;
  int retries = 0;
  bool retry = false;           // retries were allowed: the summary says how many happened
  double calls_per_second = 0;  // completed calls over the time from the first start to last EOT
  double p50_ms = 0, p99_ms = 0, max_ms = 0;  // connect to EOT of the completed calls
  std::map<std::string, int> outcomes;        // by NetworkCall::Name(), "not started" beside
  std::vector<SwarmTerminal> per_terminal;

  // "Swarm: 20 terminals, 20 calls completed, 0 failed, 200 punches delivered, 40.1 calls/s,
  // connect-to-EOT p50 1.2 ms p99 3.4 ms, max 3.5 ms" (with ", N retries" when retrying).
  std::string SummaryLine() const;
  std::string ToJson() const;
};

class ZonSwarm {
 public:
  static constexpr int kMaxRetries = 3;
  static constexpr std::chrono::seconds kRetryPause{1};

  // stop (may be null) ends the swarm: no further call starts, calls under way end at once.
  explicit ZonSwarm(SwarmConfig config, core::StopSignal* stop = nullptr);

  // Terminal i (1-based) is "<prefix><i>", i zero-padded to 4 digits, clock number i.
  std::vector<std::string> ClockNames() const;
  // The punches terminal i sends: badges (i-1)*K+1 .. i*K, so no two terminals share one.
  std::vector<std::string> PunchesOf(int terminal) const;

  // Runs every terminal's call (a thread each, started at its time) and waits for them all.
  SwarmResult Run();

 private:
  SwarmTerminal RunTerminal(int index);

  SwarmConfig config_;
  core::StopSignal own_stop_;  // used when the caller gives none
  core::StopSignal* stop_;
};

// The p-th percentile (0 < p <= 1) of sorted values by nearest rank; 0 for none.
double Percentile(const std::vector<double>& sorted, double p);

}  // namespace clockcomm::sim
