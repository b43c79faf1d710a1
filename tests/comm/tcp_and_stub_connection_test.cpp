#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "comm/stub_connection.h"
#include "comm/tcp_connection.h"
#include "core/clock.h"
#include "core/errors.h"

namespace clockcomm::comm {
namespace {

using namespace std::chrono_literals;

std::string ReadAtLeast(IConnection& conn, size_t n) {
  std::string got;
  auto deadline = std::chrono::steady_clock::now() + 2s;
  while (got.size() < n && conn.WaitForInput(deadline, {}) == WaitResult::kReadable) {
    got += conn.Read();
  }
  return got;
}

TEST(TcpConnection, CarriesTextBothWaysAndPeerCloseRaisesAfterTheLastText) {
  TcpListener listener("127.0.0.1", 0);
  ASSERT_NE(listener.Port(), 0);
  auto client = TcpConnection::Connect("localhost", listener.Port(), 2s);
  auto server = listener.Accept(std::chrono::steady_clock::now() + 2s);
  ASSERT_NE(server, nullptr);

  const std::string packet =
      "\x02"
      "1\x1c[\x1cTC28\r\n";
  client->WriteText(packet);
  EXPECT_EQ(ReadAtLeast(*server, packet.size()), packet);
  server->WriteText("\x06");
  EXPECT_EQ(ReadAtLeast(*client, 1), "\x06");

  client->WriteText("bye");
  client.reset();
  EXPECT_EQ(ReadAtLeast(*server, 3), "bye");
  ASSERT_EQ(server->WaitForInput(std::chrono::steady_clock::now() + 2s, {}), WaitResult::kReadable);
  EXPECT_THROW(server->Read(), ConnectionClosedError);
  EXPECT_TRUE(server->PeerClosed());
  EXPECT_THROW(server->Read(), ConnectionClosedError);
}

TEST(TcpConnection, RefusedConnectionIsASystemError) {
  uint16_t port;
  {
    TcpListener listener("127.0.0.1", 0);
    port = listener.Port();
  }
  EXPECT_THROW(TcpConnection::Connect("127.0.0.1", port, 2s), core::SystemError);
}

TEST(TcpListener, AcceptReturnsNullOnDeadlineAndOnStop) {
  TcpListener listener("127.0.0.1", 0);
  EXPECT_EQ(listener.Accept(std::chrono::steady_clock::now() + 20ms), nullptr);
  core::StopSignal stop;
  stop.Request();
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(listener.Accept(start + 10s, {&stop}), nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  EXPECT_THROW(TcpListener("not-an-address", 0), core::ArgumentException);
}

SteadyTime In(std::chrono::milliseconds wait) { return std::chrono::steady_clock::now() + wait; }

TEST(StubConnection, WaitSleepsUntilAPushFromAnotherThread) {
  StubConnection stub;
  EXPECT_EQ(stub.WaitForInput(In(20ms), {}), WaitResult::kTimedOut);
  std::thread pusher([&] {
    std::this_thread::sleep_for(30ms);
    stub.Push("late");
  });
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(stub.WaitForInput(In(5s), {}), WaitResult::kReadable);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  pusher.join();
  EXPECT_EQ(stub.Read(), "late");
  // A push that was read must not leave the wait thinking more is there.
  EXPECT_EQ(stub.WaitForInput(In(20ms), {}), WaitResult::kTimedOut);
}

TEST(StubConnection, InVirtualTimeOnlySilenceMovesTheClockToTheDeadline) {
  core::ManualClock clock(*core::DateTime::FromParts(2009, 10, 20, 14, 0, 0));
  StubConnection stub({"scripted"}, &clock);
  const auto start = clock.Steady();
  EXPECT_EQ(stub.WaitForInput(start + 30s, {}), WaitResult::kReadable);
  EXPECT_EQ(stub.Read(), "scripted");
  EXPECT_EQ(clock.Steady(), start);
  EXPECT_EQ(stub.WaitForInput(start + 30s + 500ms, {}), WaitResult::kTimedOut);
  EXPECT_EQ(clock.Steady(), start + 30s + 500ms);
  EXPECT_EQ(clock.Now(), *core::DateTime::FromParts(2009, 10, 20, 14, 0, 30));
  // A deadline already passed never moves time back; a raised signal moves it not at all.
  EXPECT_EQ(stub.WaitForInput(start + 1s, {}), WaitResult::kTimedOut);
  core::StopSignal stop;
  stop.Request();
  EXPECT_EQ(stub.WaitForInput(start + 60s, {&stop}), WaitResult::kWoken);
  EXPECT_EQ(clock.Steady(), start + 30s + 500ms);
  // Without a deadline the wait blocks until a push, as in real time.
  std::thread pusher([&] { stub.Push("late"); });
  EXPECT_EQ(stub.WaitForInput(kNoDeadline, {}), WaitResult::kReadable);
  pusher.join();
}

}  // namespace
}  // namespace clockcomm::comm
