#include "zon/packet_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "comm/stub_connection.h"
#include "core/errors.h"

namespace clockcomm::zon {
namespace {

using ::testing::ThrowsMessage;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(PacketReader, ReadsFromAScriptedConnectionAtItsTerminator) {
  comm::StubConnection whole({"data\r\n"});
  EXPECT_EQ(PacketReader(whole).ReadPacket(), "data");

  comm::StubConnection split({"da", "", "ta\r\nrest\r\nand"});
  PacketReader reader(split);
  EXPECT_EQ(reader.ReadPacket(), "data");
  // A buffered packet comes back without touching the connection.
  int calls = split.ReadCalls();
  EXPECT_EQ(reader.ReadPacket(), "rest");
  EXPECT_EQ(split.ReadCalls(), calls);
  EXPECT_EQ(reader.Buffer().PendingFragment(), "and");
}

TEST(PacketReader, TimeOutMeasuresSilenceNotTheWholeRead) {
  comm::StubConnection conn;
  PacketReader reader(conn);
  reader.SetTimeout(150);
  std::thread trickle([&] {
    for (char c : std::string("slow\r\n")) {
      std::this_thread::sleep_for(60ms);  // each gap is under the time-out; the sum is not
      conn.Push(std::string(1, c));
    }
  });
  EXPECT_EQ(reader.ReadPacket(), "slow");
  trickle.join();
  EXPECT_EQ(reader.TimeoutCount(), 0u);
}

class PacketReaderOverPty : public ::testing::Test {
 protected:
  void SetUp() override {
    line_.Open(pty_.SlavePath());
    terminal_ = pty_.TakeMaster();
  }
  comm::PtyPair pty_ = comm::PtyPair::Open();
  comm::SerialLine line_;
  comm::SerialConnection conn_{line_};
  std::unique_ptr<comm::FdConnection> terminal_;
};

TEST_F(PacketReaderOverPty, TimesOutOnASilentLineWithoutUsingTheCpu) {
  PacketReader reader(conn_);
  reader.SetTimeout(300);
  terminal_->WriteText("half a pack");
  rusage before{}, after{};
  getrusage(RUSAGE_THREAD, &before);
  auto start = Clock::now();
  EXPECT_THAT([&] { reader.ReadPacket(); },
              ThrowsMessage<core::TimeoutException>("A timeout has occurred."));
  const auto took = Clock::now() - start;
  EXPECT_GE(took, 300ms);
  EXPECT_LT(took, 2s);
  getrusage(RUSAGE_THREAD, &after);
  auto cpu_us = [](const rusage& r) {
    return (r.ru_utime.tv_sec + r.ru_stime.tv_sec) * 1000000LL + r.ru_utime.tv_usec +
           r.ru_stime.tv_usec;
  };
  EXPECT_LT(cpu_us(after) - cpu_us(before), 20000) << "a spinning reader burns the 300 ms";
  EXPECT_EQ(reader.TimeoutCount(), 1u);
  EXPECT_EQ(reader.Buffer().PendingFragment(), "half a pack");
  terminal_->WriteText("et\r\n");
  EXPECT_EQ(reader.ReadPacket(), "half a packet");
}

TEST_F(PacketReaderOverPty, CancelFromAnotherThreadWithinMilliseconds) {
  PacketReader reader(conn_);
  reader.SetTimeout(0);  // no time-out: only the cancel can end it
  reader.Cancel();       // a cancel before the read is forgotten
  Clock::time_point cancelled_at;
  std::thread canceller([&] {
    std::this_thread::sleep_for(50ms);
    cancelled_at = Clock::now();
    reader.Cancel();
  });
  EXPECT_EQ(reader.ReadPacket(), "");
  auto latency = Clock::now() - cancelled_at;
  canceller.join();
  EXPECT_LT(latency, 100ms);
  EXPECT_EQ(reader.CancelledCount(), 1u);
}

}  // namespace
}  // namespace clockcomm::zon
