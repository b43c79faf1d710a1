// The console's logged-in sessions, kept in memory: a restart logs everyone out. Each session
// has a random identifier (the cookie) and a random CSRF token that every change must echo in a
// header. A session ends at logout, after kSessionIdle without a request, or kSessionLifetime
// after login, whichever comes first.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "core/clock.h"
#include "web/operator_store.h"

namespace clockcomm::web {

inline constexpr std::chrono::minutes kSessionIdle{30};
inline constexpr std::chrono::hours kSessionLifetime{12};

struct Session {
  std::string id;          // 64 hex digits, 256 random bits
  std::string csrf_token;  // 64 hex digits, 256 random bits
  Operator who;
};

class SessionStore {
 public:
  explicit SessionStore(core::Clock& clock) : clock_(clock) {}

  Session Create(const Operator& who);
  // The live session of that id (its idle time starts again), or nothing.
  std::optional<Session> Find(const std::string& id);
  // Whether that session is still live, without counting this as a use (an open live screen
  // asks it on every wake, and must not keep an idle session alive).
  bool Live(const std::string& id);
  // Ends the session; false when there was none.
  bool Remove(const std::string& id);
  size_t Count();

 private:
  struct Entry {
    Session session;
    core::Clock::Monotonic created;
    core::Clock::Monotonic last_used;
  };
  bool Expired(const Entry& entry, core::Clock::Monotonic now) const;
  void DropExpired(core::Clock::Monotonic now);

  core::Clock& clock_;
  std::mutex mutex_;
  std::map<std::string, Entry> sessions_;
};

// 256 random bits as 64 lower-case hex digits (libsodium's generator).
std::string RandomToken();
// Whether two secrets are equal, in a time that does not depend on where they differ.
bool SameSecret(const std::string& a, const std::string& b);

}  // namespace clockcomm::web
