#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "comm/network_line.h"
#include "comm/stub_connection.h"
#include "comm/tcp_connection.h"
#include "core/clock.h"
#include "core/errors.h"

namespace clockcomm::comm {
namespace {

using namespace std::chrono_literals;

SteadyTime In(std::chrono::milliseconds wait) { return std::chrono::steady_clock::now() + wait; }

std::string ReadAtLeast(IConnection& conn, size_t n) {
  std::string got;
  const SteadyTime deadline = In(2s);
  while (got.size() < n && conn.WaitForInput(deadline, {}) == WaitResult::kReadable) {
    got += conn.Read();
  }
  return got;
}

TEST(TcpConnection, CarriesTextBothWaysAndPeerCloseRaisesAfterTheLastText) {
  TcpListener listener("127.0.0.1", 0);
  auto client = TcpConnection::Connect("localhost", listener.Port(), 2s);
  auto server = listener.Accept(In(2s));
  ASSERT_NE(server, nullptr);
  const std::string packet("\x02\x00\x1c\xff\r\n", 6);
  client->WriteText(packet);
  EXPECT_EQ(ReadAtLeast(*server, packet.size()), packet);
  server->WriteText("\x06");
  EXPECT_EQ(ReadAtLeast(*client, 1), "\x06");

  client->WriteText("bye");
  client.reset();
  EXPECT_EQ(ReadAtLeast(*server, 3), "bye");
  ASSERT_EQ(server->WaitForInput(In(2s), {}), WaitResult::kReadable);
  EXPECT_THROW(server->Read(), ConnectionClosedError);
  EXPECT_TRUE(server->PeerClosed());
}

TEST(TcpListener, AcceptEndsOnTheDeadlineOrTheStopAndRefusalsRaise) {
  uint16_t port;
  {
    TcpListener listener("127.0.0.1", 0);
    port = listener.Port();
    EXPECT_EQ(listener.Accept(In(20ms)), nullptr);
    core::StopSignal stop;
    stop.Request();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(listener.Accept(start + 10s, {&stop}), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  }
  EXPECT_THROW(TcpConnection::Connect("127.0.0.1", port, 2s), core::SystemError);
  EXPECT_THROW(TcpListener("not-an-address", 0), core::ArgumentException);
}

TEST(NetworkLine, ReachesAnAddressPerCallAndReportsWhatFailed) {
  const std::pair<const char*, const char*> addresses[] = {
      {"10.0.0.7:3001", "10.0.0.7"}, {"[::1]:3001", "::1"}, {"clock7:1", "clock7"}};
  for (const auto& [text, host] : addresses) EXPECT_EQ(ParseEndPoint(text).host, host) << text;
  for (const char* bad : {"", "10.0.0.7", ":3001", "h:0", "h:65536", "h:30x", "h:"}) {
    EXPECT_THROW(ParseEndPoint(bad), core::ArgumentException) << bad;
  }
  EXPECT_EQ(ParseEndPoint("0.0.0.0:0", /*any_port=*/true).port, 0);  // listen on a free port

  TcpListener listener("127.0.0.1", 0);
  NetworkLine line;
  line.Open();
  const std::string address = "127.0.0.1:" + std::to_string(listener.Port());
  ASSERT_EQ(line.Reach(address, {}).kind, LineEvent::Kind::kConnected);
  auto terminal = listener.Accept(In(2s));
  ASSERT_NE(terminal, nullptr);
  line.Connection().WriteText("\x05");
  EXPECT_EQ(ReadAtLeast(*terminal, 1), "\x05");
  line.EndCall();  // the terminal sees the call end
  ASSERT_EQ(terminal->WaitForInput(In(2s), {}), WaitResult::kReadable);
  EXPECT_THROW(terminal->Read(), ConnectionClosedError);
  EXPECT_THROW(line.Connection().Read(), ConnectionClosedError);

  const LineEvent bad = line.Reach("nowhere", {});
  EXPECT_EQ(bad.kind, LineEvent::Kind::kFailed);
  EXPECT_NE(bad.text.find("\"nowhere\" is not a network address"), std::string::npos) << bad.text;
  uint16_t closed_port = 0;
  { closed_port = TcpListener("127.0.0.1", 0).Port(); }
  const LineEvent refused = line.Reach("127.0.0.1:" + std::to_string(closed_port), {});
  EXPECT_EQ(refused.kind, LineEvent::Kind::kFailed);
  EXPECT_NE(refused.text.find("refused"), std::string::npos) << refused.text;
}

// The LAN delay spaces the program's sends on both kinds of network line; a terminal that connected
// is a direct line whose hang-up ends it.
TEST(NetworkLine, LanDelaySpacesSendsAndAConnectedTerminalIsADirectLine) {
  constexpr auto kGap = 40ms;
  TcpListener listener("127.0.0.1", 0);
  NetworkLine polling(kGap);
  polling.Open();
  ASSERT_EQ(polling.Reach("127.0.0.1:" + std::to_string(listener.Port()), {}).kind,
            LineEvent::Kind::kConnected);
  auto accepted = listener.Accept(In(2s));
  ASSERT_NE(accepted, nullptr);
  LanCallLine hosting(std::move(accepted), kGap);
  for (TerminalLine* line : std::initializer_list<TerminalLine*>{&polling, &hosting}) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i) line->Connection().WriteText("\x06");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2 * kGap) << line->Describe();
  }
  EXPECT_EQ(ReadAtLeast(polling.Connection(), 3), "\x06\x06\x06");
  EXPECT_EQ(ReadAtLeast(hosting.Connection(), 3), "\x06\x06\x06");

  polling.Connection().WriteText("\x05\r\n");
  LineEvent call = hosting.WaitForCall(In(2s), {});
  EXPECT_EQ(call.kind, LineEvent::Kind::kInput);
  EXPECT_EQ(call.data, "\x05\r\n");
  EXPECT_EQ(hosting.WaitForCall(In(50ms), {}).kind, LineEvent::Kind::kNothing);
  polling.EndCall();
  EXPECT_THROW(
      {
        for (int i = 0; i < 2; ++i) hosting.WaitForCall(In(2s), {});
      },
      ConnectionClosedError);
}

// Silence moving the virtual clock to the deadline and not past data, and a push waking a reader,
// are what the modem and packet reader tests run on; here what they do not reach.
TEST(StubConnection, AStopOrNoDeadlineLeavesVirtualTimeAndAPushOnceReadIsGone) {
  core::ManualClock clock;
  StubConnection stub({}, &clock);
  const auto start = clock.Steady();
  core::StopSignal stop;
  stop.Request();
  EXPECT_EQ(stub.WaitForInput(start + 60s, {&stop}), WaitResult::kWoken);
  std::thread pusher([&] { stub.Push("late"); });
  EXPECT_EQ(stub.WaitForInput(kNoDeadline, {}), WaitResult::kReadable);
  pusher.join();
  EXPECT_EQ(clock.Steady(), start);

  StubConnection real_time;
  real_time.Push("once");
  EXPECT_EQ(real_time.Read(), "once");
  EXPECT_EQ(real_time.WaitForInput(In(20ms), {}), WaitResult::kTimedOut);
}

}  // namespace
}  // namespace clockcomm::comm
