#include "web/session_store.h"

#include <sodium.h>

#include <array>

namespace clockcomm::web {

std::string RandomToken() {
  std::array<unsigned char, 32> bytes;
  randombytes_buf(bytes.data(), bytes.size());
  std::array<char, bytes.size() * 2 + 1> hex;
  sodium_bin2hex(hex.data(), hex.size(), bytes.data(), bytes.size());
  return hex.data();
}

bool SameSecret(const std::string& a, const std::string& b) {
  return a.size() == b.size() && sodium_memcmp(a.data(), b.data(), a.size()) == 0;
}

Session SessionStore::Create(const Operator& who) {
  const auto now = clock_.Steady();
  Session session{RandomToken(), RandomToken(), who};
  std::lock_guard lock(mutex_);
  DropExpired(now);
  sessions_[session.id] = Entry{session, now, now};
  return session;
}

std::optional<Session> SessionStore::Find(const std::string& id) {
  const auto now = clock_.Steady();
  std::lock_guard lock(mutex_);
  auto it = sessions_.find(id);
  if (it == sessions_.end()) return std::nullopt;
  if (Expired(it->second, now)) {
    sessions_.erase(it);
    return std::nullopt;
  }
  it->second.last_used = now;
  return it->second.session;
}

bool SessionStore::Live(const std::string& id) {
  const auto now = clock_.Steady();
  std::lock_guard lock(mutex_);
  const auto it = sessions_.find(id);
  return it != sessions_.end() && !Expired(it->second, now);
}

bool SessionStore::Remove(const std::string& id) {
  std::lock_guard lock(mutex_);
  return sessions_.erase(id) > 0;
}

size_t SessionStore::Count() {
  std::lock_guard lock(mutex_);
  DropExpired(clock_.Steady());
  return sessions_.size();
}

bool SessionStore::Expired(const Entry& entry, core::Clock::Monotonic now) const {
  return now - entry.last_used >= kSessionIdle || now - entry.created >= kSessionLifetime;
}

void SessionStore::DropExpired(core::Clock::Monotonic now) {
  std::erase_if(sessions_, [&](const auto& item) { return Expired(item.second, now); });
}

}  // namespace clockcomm::web
