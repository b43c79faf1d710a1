// Polling network terminals several at once: locations are called in parallel, each on a line of
// its own, and End stops the calls under way.
#include <gtest/gtest.h>

#include <future>

#include "comm/tcp_connection.h"
#include "integration/call_fixture.h"
#include "shell/lan/lan_poller.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;

class LanPollTest : public CallFixture {
 protected:
  std::unique_ptr<shell::LanPoller> Poller(int at_once) {
    static const terminal::TerminalFamily families[] = {zon::ZonFamily()};
    auto settings = Settings("", false);
    settings.connection_type = comm::ConnectionType::kLan;
    return std::make_unique<shell::LanPoller>(settings, at_once, families, *controller_, *services_,
                                              *logs_, screen_);
  }
  static shell::PollRow Location(int64_t id, const comm::TcpListener& terminal) {
    shell::PollRow row;
    row.location_id = id;
    row.location_name = "Dock" + std::to_string(id);
    row.location_phone = "127.0.0.1:" + std::to_string(terminal.Port());
    row.terminal_id = "7";
    return row;
  }
};

TEST_F(LanPollTest, LocationsArePolledAtOnceAndEndStopsTheCallsUnderWay) {
  // Each terminal answers only once both have been reached: polled one after the other, the
  // first would never answer.
  comm::TcpListener port_a("127.0.0.1", 0), port_b("127.0.0.1", 0);
  sim::TerminalConfig config;
  config.terminal_id = "7";
  sim::ZonTerminal terminal_a(config, Punches(3, 1)), terminal_b(config, Punches(3, 4));
  std::mutex mutex;
  std::condition_variable reached;
  int connected = 0;
  auto answer = [&](comm::TcpListener& port, sim::ZonTerminal& terminal) {
    auto line = port.Accept(std::chrono::steady_clock::now() + 10s);
    if (!line) return sim::CallOutcome::kNone;
    std::unique_lock lock(mutex);
    ++connected;
    reached.notify_all();
    if (!reached.wait_for(lock, 10s, [&] { return connected == 2; })) {
      return sim::CallOutcome::kNone;
    }
    lock.unlock();
    return terminal.AnswerPoll(*line);
  };
  auto a = std::async(std::launch::async, [&] { return answer(port_a, terminal_a); });
  auto b = std::async(std::launch::async, [&] { return answer(port_b, terminal_b); });
  auto poller = Poller(2);
  EXPECT_TRUE(poller->PollLocations({Location(1, port_a), Location(2, port_b)})) << screen_.All();
  EXPECT_EQ(a.get(), sim::CallOutcome::kCompleted);
  EXPECT_EQ(b.get(), sim::CallOutcome::kCompleted);
  ExpectEachPunchOnce(6);
  EXPECT_EQ(poller->GoodLocations(), 2);

  // Terminals that take the connection and never answer: End ends their polls at once.
  comm::TcpListener mute_a("127.0.0.1", 0), mute_b("127.0.0.1", 0);
  auto polls = std::async(std::launch::async, [&] {
    return poller->PollLocations({Location(3, mute_a), Location(4, mute_b)});
  });
  auto line_a = mute_a.Accept(std::chrono::steady_clock::now() + 10s);
  auto line_b = mute_b.Accept(std::chrono::steady_clock::now() + 10s);
  ASSERT_TRUE(line_a && line_b);
  const auto pressed = std::chrono::steady_clock::now();
  controller_->PressEnd();
  EXPECT_FALSE(polls.get());
  EXPECT_LT(std::chrono::steady_clock::now() - pressed, 900ms) << "no response wait waited out";
  EXPECT_EQ(Rows(), 6);
}

}  // namespace
}  // namespace clockcomm::test
