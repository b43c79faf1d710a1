#include "sim/zon_swarm.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <system_error>
#include <thread>

#include "comm/tcp_connection.h"
#include "core/errors.h"

namespace clockcomm::sim {

namespace {

using Steady = std::chrono::steady_clock;

constexpr int kMinutesPerDay = 24 * 60;
constexpr int kFirstPunchMinute = 6 * 60;

double Milliseconds(std::chrono::nanoseconds d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

}  // namespace

std::string NetworkCall::Name() const {
  if (outcome == CallOutcome::kStopped) return ToString(outcome);
  switch (connect) {
    case Connect::kRefused:
      return "connection refused";
    case Connect::kTimedOut:
      return "connect timed out";
    case Connect::kFailed:
      return "connect failed";
    case Connect::kMade:
      break;
  }
  return ToString(outcome);
}

NetworkCall CallInOverTcp(ZonTerminal& terminal, const comm::EndPoint& program,
                          core::StopSignal* stop, std::chrono::milliseconds connect_timeout) {
  NetworkCall call;
  const auto begin = Steady::now();
  const std::string where = program.host + ":" + std::to_string(program.port);
  const std::string cannot = "cannot connect to " + where + ": ";
  std::unique_ptr<comm::TcpConnection> connection;
  try {
    connection = comm::TcpConnection::Connect(program.host, program.port, connect_timeout, {stop});
  } catch (const core::TimeoutException&) {
    call.connect = NetworkCall::Connect::kTimedOut;
    call.connect_error =
        cannot + "no answer within " + std::to_string(connect_timeout.count()) + " ms";
  } catch (const comm::ConnectionClosedError&) {
    call.connect = NetworkCall::Connect::kFailed;
    call.outcome = CallOutcome::kStopped;
  } catch (const core::SystemError& e) {
    const bool refused = e.Number() == ECONNREFUSED;
    call.connect = refused ? NetworkCall::Connect::kRefused : NetworkCall::Connect::kFailed;
    call.connect_error = cannot + (refused ? std::strerror(e.Number()) : e.Description());
  }
  if (connection) {
    call.outcome = terminal.CallIn(*connection, LineKind::kDirect);
    connection->Close();  // a call is one connection
  }
  call.duration = Steady::now() - begin;
  return call;
}

ZonSwarm::ZonSwarm(SwarmConfig config, core::StopSignal* stop)
    : config_(std::move(config)), stop_(stop != nullptr ? stop : &own_stop_) {
  if (config_.terminals < 1)
    throw core::ArgumentException("A swarm needs a terminal.", "terminals");
  if (config_.punches_each < 0) {
    throw core::ArgumentException("Punches cannot be negative.", "punches_each");
  }
}

std::vector<std::string> ZonSwarm::ClockNames() const {
  std::vector<std::string> names;
  for (int i = 1; i <= config_.terminals; ++i) {
    names.push_back(fmt::format("{}{:04}", config_.clock_name_prefix, i));
  }
  return names;
}

std::vector<std::string> ZonSwarm::PunchesOf(int terminal) const {
  const int count = config_.punches_each;
  const std::string date = config_.day.Format("yymmdd");
  std::vector<std::string> punches;
  for (int j = 0; j < count; ++j) {
    // Each badge punches once in the whole swarm; in and out alternate, a minute apart.
    const int badge = (terminal - 1) * count + j + 1;
    const int minute = (kFirstPunchMinute + j) % kMinutesPerDay;
    punches.push_back(fmt::format("{},{},,,,,{},{},{:02}{:02},,,,1", j + 1, badge,
                                  j % 2 == 0 ? "I" : "O", date, minute / 60, minute % 60));
  }
  return punches;
}

SwarmTerminal ZonSwarm::RunTerminal(int index) {
  TerminalConfig config = config_.terminal;
  config.clock_name = fmt::format("{}{:04}", config_.clock_name_prefix, index);
  config.clock_number = index;
  ZonTerminal terminal(config, PunchesOf(index), stop_);
  SwarmTerminal result;
  result.clock_name = config.clock_name;
  result.started = Steady::now();
  for (;;) {
    ++result.attempts;
    const size_t batch = terminal.PendingPunches().size();
    result.last = CallInOverTcp(terminal, config_.program, stop_, config_.connect_timeout);
    if (result.last.Completed()) {
      result.punches_delivered = static_cast<int>(batch - terminal.PendingPunches().size());
      break;
    }
    if (!config_.retry || result.attempts > kMaxRetries ||
        result.last.outcome == CallOutcome::kStopped || stop_->WaitFor(kRetryPause)) {
      break;
    }
  }
  result.ended = Steady::now();
  return result;
}

SwarmResult ZonSwarm::Run() {
  const int n = config_.terminals;
  const auto names = ClockNames();
  std::vector<SwarmTerminal> terminals(static_cast<size_t>(n));
  std::vector<std::thread> threads;
  threads.reserve(terminals.size());
  const auto start = Steady::now();
  const std::chrono::nanoseconds window = config_.within;
  for (int i = 0; i < n; ++i) {
    auto& slot = terminals[static_cast<size_t>(i)];
    slot.clock_name = names[static_cast<size_t>(i)];
    const auto at = start + window * i / n;
    if (stop_->WaitFor(at - Steady::now())) break;
    try {
      threads.emplace_back([this, i, &slot] { slot = RunTerminal(i + 1); });
    } catch (const std::system_error& e) {
      slot.attempts = 1;
      slot.last.connect = NetworkCall::Connect::kFailed;
      slot.last.connect_error = std::string("no thread for the call: ") + e.what();
    }
  }
  for (auto& thread : threads) thread.join();

  SwarmResult result;
  result.retry = config_.retry;
  result.terminals = n;
  std::vector<double> durations;
  std::optional<Steady::time_point> first_start, last_eot;
  for (const auto& t : terminals) {
    result.per_terminal.push_back(t);
    ++result.outcomes[t.attempts == 0 ? "not started" : t.last.Name()];
    if (t.attempts == 0) continue;
    result.retries += t.attempts - 1;
    if (!first_start || t.started < *first_start) first_start = t.started;
    if (!t.last.Completed()) continue;
    ++result.completed;
    result.punches_delivered += t.punches_delivered;
    durations.push_back(Milliseconds(t.last.duration));
    if (!last_eot || t.ended > *last_eot) last_eot = t.ended;
  }
  result.failed = result.terminals - result.completed;
  std::sort(durations.begin(), durations.end());
  result.p50_ms = Percentile(durations, 0.50);
  result.p99_ms = Percentile(durations, 0.99);
  result.max_ms = durations.empty() ? 0 : durations.back();
  if (first_start && last_eot && *last_eot > *first_start) {
    result.calls_per_second =
        result.completed / std::chrono::duration<double>(*last_eot - *first_start).count();
  }
  return result;
}

double Percentile(const std::vector<double>& sorted, double p) {
  if (sorted.empty()) return 0;
  const auto rank = static_cast<size_t>(std::ceil(p * static_cast<double>(sorted.size())));
  return sorted[std::clamp<size_t>(rank, 1, sorted.size()) - 1];
}

std::string SwarmResult::SummaryLine() const {
  std::string line = fmt::format(
      "Swarm: {} terminals, {} calls completed, {} failed, {} punches delivered, {:.1f} calls/s, "
      "connect-to-EOT p50 {:.1f} ms p99 {:.1f} ms, max {:.1f} ms",
      terminals, completed, failed, punches_delivered, calls_per_second, p50_ms, p99_ms, max_ms);
  if (retry) line += fmt::format(", {} retries", retries);
  return line;
}

std::string SwarmResult::ToJson() const {
  std::string outcome_list;
  for (const auto& [name, count] : outcomes) {
    if (!outcome_list.empty()) outcome_list += ", ";
    outcome_list += JsonString(name) + ": " + std::to_string(count);
  }
  return fmt::format(
      "{{\"terminals\": {}, \"completed\": {}, \"failed\": {}, \"punches_delivered\": {}, "
      "\"calls_per_second\": {:.3f}, \"p50_ms\": {:.3f}, \"p99_ms\": {:.3f}, \"max_ms\": {:.3f}, "
      "\"retries\": {}, \"outcomes\": {{{}}}}}",
      terminals, completed, failed, punches_delivered, calls_per_second, p50_ms, p99_ms, max_ms,
      retries, outcome_list);
}

}  // namespace clockcomm::sim
