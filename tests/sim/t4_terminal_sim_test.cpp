// The simulated T4 terminal over real sockets, spoken to packet by packet with the codec. Whole
// downloads through the network client are the integration's T4 tests.
#include "sim/t4_terminal_sim.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "comm/tcp_connection.h"
#include "comm/udp_socket.h"
#include "t4/net/t4_auth_key.h"
#include "t4/net/t4_bytes.h"
#include "t4/net/t4_events.h"
#include "t4/net/t4_frame_cutter.h"
#include "t4/net/t4_packet.h"
#include "t4/net/t4_records.h"
#include "t4/net/t4_user_records.h"

namespace clockcomm::sim {
namespace {

using namespace std::chrono_literals;
using t4::net::T4Packet;
namespace cmd = t4::net::cmd;
namespace reply = t4::net::reply;

// A bare client: sends packets built with the codec over TCP or UDP and hands back every packet
// that arrives, raw, without any of the real client's logic.
class T4RawClient {
 public:
  T4RawClient(bool tcp, uint16_t port) {
    if (tcp) {
      tcp_ = comm::TcpConnection::Connect("127.0.0.1", port, 2s);
    } else {
      udp_ = comm::UdpSocket::Connect("127.0.0.1", port);
    }
  }

  // Sends code with the next reply id (or `id`) and the session of the last CONNECT.
  void Send(uint16_t code, std::string data = {}, std::optional<uint16_t> id = {}) {
    if (!id) id = code == cmd::kConnect ? 0 : ++last_id_;
    SendRaw(t4::net::Encode({code, session_, *id, std::move(data)}));
  }
  void SendRaw(std::string packet) {
    if (tcp_) {
      std::string framed = "PP\x82\x7d" + std::string(4, '\0');
      framed[4] = static_cast<char>(packet.size() & 0xFF);
      framed[5] = static_cast<char>(packet.size() >> 8);
      tcp_->WriteText(framed + packet);
    } else {
      udp_->Send(packet);
    }
  }
  // The next packet's bytes (UDP form), or nullopt after `wait` of silence.
  std::optional<std::string> ReceiveRaw(std::chrono::milliseconds wait = 3s) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    if (udp_) {
      auto d = udp_->Receive(deadline, {});
      return d ? std::optional(d->bytes) : std::nullopt;
    }
    for (;;) {
      if (auto frame = cutter_.Next()) return frame;
      if (tcp_->WaitForInput(deadline, {}) != comm::WaitResult::kReadable) return std::nullopt;
      cutter_.Append(tcp_->Read());
    }
  }
  std::optional<T4Packet> Receive(std::chrono::milliseconds wait = 3s) {
    auto bytes = ReceiveRaw(wait);
    return bytes ? t4::net::Decode(*bytes) : std::nullopt;
  }
  // Sends and waits for the one packet that answers (code 0 when none came).
  T4Packet Call(uint16_t code, std::string data = {}, std::chrono::milliseconds wait = 3s) {
    Send(code, std::move(data));
    return Receive(wait).value_or(T4Packet{});
  }
  // CONNECT; keeps the session id handed out.
  T4Packet Connect(std::chrono::milliseconds wait = 3s) {
    auto answer = Call(cmd::kConnect, {}, wait);
    session_ = answer.session;
    return answer;
  }
  void SetLastId(uint16_t id) { last_id_ = id; }
  uint16_t Session() const { return session_; }

 private:
  std::unique_ptr<comm::TcpConnection> tcp_;
  std::optional<comm::UdpSocket> udp_;
  t4::net::T4FrameCutter cutter_;
  uint16_t session_ = 0, last_id_ = 0;
};

const std::string kAttendance("\x01\x0d\x00\x00\x00\x00\x00\x00\x00\x00\x00", 11);
const std::string kUserTable("\x01\x09\x00\x05\x00\x00\x00\x00\x00\x00\x00", 11);
constexpr auto kSilence = 300ms;  // long enough for an answer on the loopback

std::string U32s(std::initializer_list<uint32_t> values) {
  std::string bytes;
  for (uint32_t v : values) t4::net::PutU32(bytes, v);
  return bytes;
}

class T4TerminalSimTest : public ::testing::Test {
 protected:
  T4TerminalSim& Start(T4SimConfig config) {
    sim_ = std::make_unique<T4TerminalSim>(std::move(config), clock_);
    sim_->Listen("127.0.0.1", 0);
    return *sim_;
  }
  T4RawClient Client(bool tcp = true) { return T4RawClient(tcp, sim_->Port()); }

  core::ManualClock clock_;
  std::unique_ptr<T4TerminalSim> sim_;
};

TEST_F(T4TerminalSimTest, SessionsAndKey) {
  struct Row {
    const char* legend;
    uint32_t key_sent;
    bool refuse_scheme, busy_menu;
    uint16_t auth_answer, command_answer;  // 0: no answer
  } rows[] = {
      {"right key", 123456, false, false, reply::kOk, reply::kOk},
      {"wrong key: refused again, commands too", 123457, false, false, reply::kUnauth,
       reply::kUnauth},
      {"scheme refused even with the right key", 123456, true, false, reply::kUnauth,
       reply::kUnauth},
      {"menu in use: CONNECT ignored", 123456, false, true, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    auto& sim =
        Start({.comm_key = 123456,
               .faults = {.busy_menu = row.busy_menu, .refuse_key_scheme = row.refuse_scheme}});
    auto client = Client(false);
    const T4Packet connect = client.Connect(row.busy_menu ? kSilence : 3000ms);
    if (row.busy_menu) {
      EXPECT_EQ(connect.code, 0);
      EXPECT_EQ(sim.Stats().ignored_connects, 1u);
      continue;
    }
    EXPECT_EQ(connect.code, reply::kUnauth);
    EXPECT_EQ(connect.session, clock_.Now().Seconds() & 0xFFFF);
    EXPECT_EQ(
        client.Call(cmd::kAuth, t4::net::AuthToken(row.key_sent, client.Session(), 0x77)).code,
        row.auth_answer);
    EXPECT_EQ(client.Call(cmd::kGetVersion).code, row.command_answer);
  }
  // A second session gets another id from the same second; an unknown one gets no answer.
  auto& sim = Start({});
  auto a = Client(), b = Client(false);
  EXPECT_NE(a.Connect().session, b.Connect().session);
  auto stranger = Client(false);
  stranger.Send(cmd::kGetTime);
  EXPECT_FALSE(stranger.Receive(kSilence));
  EXPECT_EQ(sim.Stats().unknown_sessions, 1u);
}

TEST_F(T4TerminalSimTest, ReplyIdsResendWithoutRunningAgainAndDropLowerIds) {
  auto& sim = Start({.records = 5});
  auto client = Client(false);
  client.Connect();
  client.Send(cmd::kClearAttLog, {}, 7);
  const auto cleared = client.Receive();
  ASSERT_TRUE(cleared);
  ASSERT_TRUE(sim.Punch({1, "1001", 1, 0, 776507400, 0, {}}));
  client.Send(cmd::kClearAttLog, {}, 7);  // the ACK was "lost": same id
  EXPECT_EQ(client.Receive(), cleared);
  EXPECT_EQ(sim.RecordCount(), 1u) << "the clear ran twice";
  client.Send(cmd::kGetTime, {}, 6);
  EXPECT_FALSE(client.Receive(kSilence));
  client.Send(cmd::kGetTime, {}, 0xFFFF);
  EXPECT_EQ(client.Receive()->code, reply::kOk);
  client.Send(cmd::kGetTime, {}, 0);  // the one wrap accepted
  EXPECT_EQ(client.Receive()->code, reply::kOk);
  const auto stats = sim.Stats();
  EXPECT_EQ(stats.clears, 1u);
  EXPECT_EQ(stats.stale_ids, 1u);
  EXPECT_EQ(stats.remembered_replies, 1u);
}

TEST_F(T4TerminalSimTest, CountsOptionsTimeAndClears) {
  auto& sim = Start({.records = 12, .users = 4, .faults = {.miscount = 3}});
  auto client = Client();
  client.Connect();
  struct Row {
    const char* legend;
    uint16_t code;
    std::string data;
    uint16_t answer;
    std::string answer_data;  // "*": not compared
  } rows[] = {
      {"count as index 8", cmd::kGetFreeSizes, "\x08", reply::kOk, U32s({15})},
      {"users as index 4", cmd::kGetFreeSizes, "\x04", reply::kOk, U32s({4})},
      {"index past the table", cmd::kGetFreeSizes, "\x17", reply::kError, ""},
      {"option", cmd::kOptionsRead, std::string("~SSR\0", 5), reply::kOk,
       std::string("~SSR=1\0", 7)},
      {"unknown option", cmd::kOptionsRead, std::string("Nope\0", 5), reply::kError, ""},
      {"option written", cmd::kOptionsWrite, std::string("Nope=2\0", 7), reply::kOk, ""},
      {"...and read back", cmd::kOptionsRead, std::string("Nope\0", 5), reply::kOk,
       std::string("Nope=2\0", 7)},
      {"unknown command", 77, "", reply::kUnknown, ""},
      {"SET_TIME 2024-02-29 08:30:00", cmd::kSetTime, U32s({0x2E489008}), reply::kOk, ""},
      {"...and GET_TIME reads it back", cmd::kGetTime, "", reply::kOk, U32s({0x2E489008})},
      {"SET_TIME 30 February refused", cmd::kSetTime, U32s({0x2E489008 + 86400}), reply::kError,
       ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    const T4Packet answer = client.Call(row.code, row.data);
    EXPECT_EQ(answer.code, row.answer);
    EXPECT_EQ(answer.data, row.answer_data);
  }
  const T4Packet sizes = client.Call(cmd::kGetFreeSizes);
  ASSERT_EQ(sizes.data.size(), 92u);
  EXPECT_EQ(t4::net::GetU32(sizes.data, 32), 15u) << "12 records, misreported by 3";
  EXPECT_EQ(t4::net::GetU32(sizes.data, 16), 4u);

  // CLEAR_DATA 01 empties the log only; CLEAR_DATA without data takes the users too.
  EXPECT_EQ(client.Call(cmd::kClearData, "\x01").code, reply::kOk);
  EXPECT_EQ(sim.RecordCount(), 0u);
  EXPECT_EQ(sim.Users().size(), 4u);
  EXPECT_EQ(client.Call(cmd::kClearData).code, reply::kOk);
  EXPECT_TRUE(sim.Users().empty());
}

// Reads the whole log in chunks, checking PREPARE_DATA, the packet indices and the closing ACK.
std::string ReadInChunks(T4RawClient& client, uint32_t total, uint32_t chunk) {
  std::string dataset;
  for (uint32_t offset = 0; offset < total; offset += chunk) {
    const uint32_t length = std::min(chunk, total - offset);
    client.Send(cmd::kReadBuffer, U32s({offset, length}));
    auto first = client.Receive();
    if (!first) return "no answer";
    if (first->code == reply::kData) {
      dataset += first->data;
      continue;
    }
    if (first->code != reply::kPrepareData || t4::net::GetU32(first->data, 0) != length) {
      return "bad PREPARE_DATA";
    }
    for (uint16_t index = 0;; ++index) {
      auto packet = client.Receive();
      if (!packet) return "no answer";
      if (packet->code == reply::kOk) break;
      if (packet->code != reply::kData || packet->session != index) return "index gap";
      dataset += packet->data;
    }
  }
  return dataset;
}

TEST_F(T4TerminalSimTest, BulkReadIsByteExactAtChunkAndPacketBoundaries) {
  struct Row {
    bool tcp;
    uint32_t chunk;
    size_t max_data_packet;
  } rows[] = {
      {true, 65472, 65528},  {true, 65473, 65528},  {true, 65472, 1008},
      {false, 16384, 65528}, {false, 16385, 65528},  // UDP packets hold 1,024 bytes
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message()
                 << (row.tcp ? "tcp " : "udp ") << row.chunk << " by " << row.max_data_packet);
    // 132,004 bytes: two whole chunks of 65,472 and some.
    auto& sim = Start({.records = 3300, .users = 7, .max_data_packet = row.max_data_packet});
    auto client = Client(row.tcp);
    client.Connect();
    const T4Packet descriptor = client.Call(cmd::kPrepareBuffer, kAttendance);
    ASSERT_EQ(descriptor.code, reply::kOk);
    ASSERT_EQ(descriptor.data.size(), 13u);
    const uint32_t total = t4::net::GetU32(descriptor.data, 1);
    const std::string expected = t4::net::EncodeAttendance(sim.Log(), 40);
    EXPECT_EQ(total, expected.size());
    EXPECT_EQ(ReadInChunks(client, total, row.chunk), expected);
    EXPECT_EQ(client.Call(cmd::kReadBuffer, U32s({total - 4, 5})).code, reply::kError);
    EXPECT_EQ(client.Call(cmd::kReadBuffer, U32s({total, 0})).code, reply::kOk);
    EXPECT_EQ(client.Call(cmd::kFreeData).code, reply::kOk);
    EXPECT_EQ(client.Call(cmd::kReadBuffer, U32s({0, 100})).code, reply::kError);
  }
}

TEST_F(T4TerminalSimTest, SmallDatasetsInlineAndTheLegacyRead) {
  auto& sim = Start({.records = 2, .users = 3});
  auto client = Client(false);
  client.Connect();
  const T4Packet log = client.Call(cmd::kPrepareBuffer, kAttendance);
  EXPECT_EQ(log.code, reply::kData);
  EXPECT_EQ(log.data, t4::net::EncodeAttendance(sim.Log(), 40));
  const T4Packet users = client.Call(cmd::kPrepareBuffer, kUserTable);
  EXPECT_EQ(users.code, reply::kData);
  EXPECT_EQ(t4::net::DecodeUsers(users.data, 3), sim.Users());
  EXPECT_EQ(client.Call(cmd::kPrepareBuffer, kAttendance.substr(0, 10)).code, reply::kError);

  sim.SetFaults({.refuse_buffered = true});
  EXPECT_EQ(client.Call(cmd::kPrepareBuffer, kAttendance).code, reply::kError);
  const T4Packet announce = client.Call(cmd::kAttLogRead);
  ASSERT_EQ(announce.code, reply::kPrepareData);
  EXPECT_EQ(t4::net::GetU32(announce.data, 0), 84u);
  EXPECT_EQ(client.Receive()->data, log.data);
  EXPECT_EQ(client.Receive()->session, 84) << "the closing ACK carries the size";
}

TEST_F(T4TerminalSimTest, UdpFaultsAndChecksums) {
  // 20,004 bytes.
  auto& sim = Start({.records = 500,
                     .users = 5,
                     .faults = {.udp_drop = 2, .bad_checksum_command = cmd::kGetTime}});
  auto client = Client(false);
  client.Connect();
  const uint32_t total = t4::net::GetU32(client.Call(cmd::kPrepareBuffer, kAttendance).data, 1);
  EXPECT_EQ(ReadInChunks(client, total, 16384), "index gap");
  while (client.Receive(kSilence)) {
  }
  EXPECT_EQ(ReadInChunks(client, total, 16384), t4::net::EncodeAttendance(sim.Log(), 40))
      << "dropped once only; a new reply id reads the chunk again";

  std::string bad = t4::net::Encode({cmd::kGetVersion, client.Session(), 90, {}});
  bad[2] ^= 1;
  client.SendRaw(bad);
  EXPECT_FALSE(client.Receive(kSilence));
  EXPECT_EQ(sim.Stats().bad_checksums, 1u);
  client.SetLastId(90);
  client.Send(cmd::kGetTime);
  auto corrupt = client.ReceiveRaw();
  ASSERT_TRUE(corrupt);
  EXPECT_FALSE(t4::net::Decode(*corrupt)) << "the reply's checksum should be wrong";
  client.Send(cmd::kGetTime, {}, 91);  // same id: the remembered reply, now intact
  EXPECT_EQ(client.Receive()->code, reply::kOk);
}

// A wrong prefix puts the stream out of step (the client's download recovers from it; split and
// coalesced writes are the client's tests too); a second TCP client is refused.
TEST_F(T4TerminalSimTest, AWrongPrefixAndASecondTcpClient) {
  // 1,604 bytes: PREPARE_DATA, DATA, ACK_OK on READ_BUFFER.
  auto& sim = Start({.records = 40, .max_data_packet = 1008});
  auto first = Client(), second = Client();
  first.Connect();
  first.Call(cmd::kPrepareBuffer, kAttendance);
  sim.SetFaults({.bad_prefix_once = true});
  EXPECT_THROW(ReadInChunks(first, 1604, 1604), t4::net::T4StreamError);
  EXPECT_THROW(
      {
        second.Send(cmd::kConnect);
        second.Receive();
      },
      comm::ConnectionClosedError);
  EXPECT_EQ(sim.Stats().connections_refused, 1u);
}

TEST_F(T4TerminalSimTest, DisableTimeOutReenablesAfterIdleTimeOnTheClock) {
  auto& sim = Start({});
  auto client = Client();
  client.Connect();
  const t4::net::T4Record punch{1, "1001", 1, 0, 776507400, 0, {}};
  ASSERT_EQ(client.Call(cmd::kDisableDevice, U32s({60})).code, reply::kOk);
  EXPECT_FALSE(sim.Punch(punch)) << "refused while disabled";
  clock_.Advance(59s);
  EXPECT_FALSE(sim.Enabled());
  clock_.Advance(2s);
  EXPECT_TRUE(sim.Enabled());
  EXPECT_TRUE(sim.Punch(punch));

  ASSERT_EQ(client.Call(cmd::kDisableDevice).code, reply::kOk);  // until told
  clock_.Advance(3600s);
  EXPECT_FALSE(sim.Enabled());
  EXPECT_EQ(client.Call(cmd::kExit).code, reply::kOk);
  EXPECT_TRUE(sim.Enabled()) << "the last session to leave re-enables";
  EXPECT_EQ(sim.RecordCount(), 1u);
}

TEST_F(T4TerminalSimTest, PunchIsPushedToRegisteredSessionsInTheLayoutsEventForm) {
  struct Row {
    size_t record_size, event_length;
  } rows[] = {{40, 36}, {16, 12}, {8, 10}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.record_size);
    auto& sim = Start({.record_size = row.record_size, .users = 3});
    auto listening = Client(), silent = Client(false);
    listening.Connect();
    silent.Connect();
    ASSERT_EQ(listening.Call(cmd::kRegEvent, U32s({1})).code, reply::kOk);
    ASSERT_EQ(silent.Call(cmd::kRegEvent, U32s({0})).code, reply::kOk);
    ASSERT_TRUE(sim.Punch({2, "1002", 1, 3, 776507400, 0, {}}));
    const auto event = listening.Receive();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->code, reply::kEvent);
    EXPECT_EQ(event->session, t4::net::kEventAttLog);
    ASSERT_EQ(event->data.size(), row.event_length);
    const auto decoded = t4::net::DecodeAttEvents(event->data);
    ASSERT_EQ(decoded.size(), 1u);
    EXPECT_EQ(decoded[0].user_id, "1002");
    EXPECT_EQ(decoded[0].state, 3);
    EXPECT_EQ(decoded[0].time, (t4::net::T4Time{2024, 2, 29, 8, 30, 0}));
    EXPECT_FALSE(silent.Receive(kSilence));
    EXPECT_EQ(sim.Stats().events_sent, 1u);
  }
}

}  // namespace
}  // namespace clockcomm::sim
