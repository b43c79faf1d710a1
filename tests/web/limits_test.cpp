// The login limiter's window and the sessions' idle time and lifetime, in virtual time; the
// --listen forms.
#include <gtest/gtest.h>

#include "core/errors.h"
#include "web/login_limiter.h"
#include "web/session_store.h"
#include "web/web_server.h"

namespace clockcomm::web {
namespace {
using std::chrono::seconds;

TEST(LoginLimiterTest, AKeyIsFreeAgainWhenItsFailuresLeaveTheWindow) {
  core::ManualClock clock;
  LoginLimiter limiter(clock);
  for (int i = 0; i < kMaxLoginFailures; ++i) {
    EXPECT_FALSE(limiter.RetryAfter("name alice")) << i;
    limiter.RecordFailure("name alice");
    clock.Advance(seconds(10));  // failures at 0, 10, 20, 30, 40 s
  }
  EXPECT_EQ(limiter.RetryAfter("name alice"), seconds(10)) << "at 50 s: free at 60 s";
  EXPECT_FALSE(limiter.RetryAfter("name bob")) << "keys are apart";
  clock.Advance(seconds(10));
  EXPECT_FALSE(limiter.RetryAfter("name alice")) << "the first failure left the window";
  limiter.RecordFailure("name alice");  // at 60 s: five in the window again
  EXPECT_EQ(limiter.RetryAfter("name alice"), seconds(10)) << "free when the 10 s one leaves";
}

TEST(LoginLimiterTest, AFloodOfKeysStaysBounded) {
  core::ManualClock clock;
  LoginLimiter limiter(clock);
  for (size_t i = 0; i < kMaxLimiterKeys * 2; ++i) limiter.RecordFailure(std::to_string(i));
  for (int i = 0; i < kMaxLoginFailures; ++i) limiter.RecordFailure("name alice");
  EXPECT_TRUE(limiter.RetryAfter("name alice")) << "the newest key is kept";
}

TEST(SessionStoreTest, SessionsEndWhenIdleOrTooOld) {
  core::ManualClock clock;
  SessionStore sessions(clock);
  const Session a = sessions.Create({"alice", Role::kAdministrator});
  const Session b = sessions.Create({"bob", Role::kViewer});
  EXPECT_NE(a.id, b.id);
  EXPECT_NE(a.id, a.csrf_token);
  clock.Advance(kSessionIdle - seconds(1));
  ASSERT_TRUE(sessions.Find(a.id)) << "used just in time: its idle time starts again";
  clock.Advance(seconds(2));
  EXPECT_FALSE(sessions.Find(b.id)) << "idle too long";
  // Used every 20 minutes, a session still ends at its lifetime.
  const Session c = sessions.Create({"carol", Role::kOperator});
  for (auto used = std::chrono::minutes(20); used < kSessionLifetime;
       used += std::chrono::minutes(20)) {
    clock.Advance(std::chrono::minutes(20));
    ASSERT_TRUE(sessions.Find(c.id)) << used.count();
  }
  clock.Advance(std::chrono::minutes(20));
  EXPECT_FALSE(sessions.Find(c.id));
  EXPECT_FALSE(sessions.Find(a.id));
  EXPECT_EQ(sessions.Count(), 0u);
}

TEST(ListenAddressTest, Forms) {
  struct Case {
    std::string text, host;
    int port;
  };
  for (const Case& c : {Case{"0.0.0.0:9000", "0.0.0.0", 9000}, Case{":9000", "127.0.0.1", 9000},
                        Case{"192.168.1.5", "192.168.1.5", kDefaultConsolePort},
                        Case{"[::1]:8000", "::1", 8000}, Case{"localhost:0", "localhost", 0}}) {
    const ListenAddress a = ParseListenAddress(c.text);
    EXPECT_EQ(a.host, c.host) << c.text;
    EXPECT_EQ(a.port, c.port) << c.text;
  }
  for (const char* bad : {"host:", "host:http", "host:65536", "host:-1", "[::1", "[::1]8000"}) {
    EXPECT_THROW(ParseListenAddress(bad), core::ArgumentException) << bad;
  }
}

}  // namespace
}  // namespace clockcomm::web
