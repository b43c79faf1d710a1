#include "web/login_limiter.h"

namespace clockcomm::web {

std::optional<std::chrono::seconds> LoginLimiter::RetryAfter(const std::string& key) {
  const auto now = clock_.Steady();
  std::lock_guard lock(mutex_);
  auto it = failures_.find(key);
  if (it == failures_.end()) return std::nullopt;
  auto& times = it->second;
  while (!times.empty() && now - times.front() >= kLoginWindow) times.pop_front();
  if (static_cast<int>(times.size()) < kMaxLoginFailures) return std::nullopt;
  // The try is allowed again once enough of the failures have left the window.
  const auto free_at = times[times.size() - kMaxLoginFailures] + kLoginWindow;
  const auto wait = std::chrono::ceil<std::chrono::seconds>(free_at - now);
  return std::max(wait, std::chrono::seconds(1));
}

void LoginLimiter::RecordFailure(const std::string& key) {
  const auto now = clock_.Steady();
  std::lock_guard lock(mutex_);
  if (failures_.size() >= kMaxLimiterKeys && !failures_.contains(key)) Prune(now);
  auto& times = failures_[key];
  times.push_back(now);
  // More than the limit is never needed to know when the key is free again.
  while (static_cast<int>(times.size()) > kMaxLoginFailures) times.pop_front();
}

void LoginLimiter::Prune(core::Clock::Monotonic now) {
  std::erase_if(failures_, [&](const auto& item) {
    return item.second.empty() || now - item.second.back() >= kLoginWindow;
  });
  // Still full (a flood of names): forget a quarter of the keys rather than grow without bound.
  if (failures_.size() >= kMaxLimiterKeys) {
    size_t drop = failures_.size() / 4;
    for (auto it = failures_.begin(); it != failures_.end() && drop > 0; --drop) {
      it = failures_.erase(it);
    }
  }
}

}  // namespace clockcomm::web
