// Slows password guessing: after kMaxLoginFailures failed logins within kLoginWindow from one
// client address, or for one operator name, further logins for that address or name are refused
// (429) until the oldest of those failures is kLoginWindow old. A success does not clear the
// count, so a guesser who knows one password gains nothing on another name.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "core/clock.h"

namespace clockcomm::web {

inline constexpr int kMaxLoginFailures = 5;
inline constexpr std::chrono::seconds kLoginWindow{60};
// Keys kept at most; beyond it the ones without a failure in the window are forgotten first.
inline constexpr size_t kMaxLimiterKeys = 10000;

class LoginLimiter {
 public:
  explicit LoginLimiter(core::Clock& clock) : clock_(clock) {}

  // How long the key must wait before its next try (whole seconds, at least 1), or nothing when
  // it may try now.
  std::optional<std::chrono::seconds> RetryAfter(const std::string& key);
  void RecordFailure(const std::string& key);

 private:
  void Prune(core::Clock::Monotonic now);

  core::Clock& clock_;
  std::mutex mutex_;
  std::map<std::string, std::deque<core::Clock::Monotonic>> failures_;
};

}  // namespace clockcomm::web
