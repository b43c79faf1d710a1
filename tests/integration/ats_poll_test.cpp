// ATS terminals polled by the real line runner over a pty or a TCP port: every punch into
// [Clock Data Table] once, whatever the terminal does wrong on the way.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "comm/tcp_connection.h"
#include "integration/call_fixture.h"
#include "sim/ats_terminal.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;
using sim::ATSTerminal;
using sim::ATSTerminalConfig;
using terminal::TerminalType;

class ATSPollTest : public CallFixture {
 protected:
  // A location of the poll list: its name is the clock name of the fixture's company, its terminal
  // id the terminal's address.
  static shell::PollRow Location(const std::string& address, int terminal_address = 1,
                                 std::optional<TerminalType> type = std::nullopt) {
    return {.location_id = terminal_address,
            .location_name = kClock,
            .location_phone = address,
            .terminal_id = std::to_string(terminal_address),
            .terminal_type = type};
  }

  std::unique_ptr<shell::LineRunner> AtsRunner(const std::string& device,
                                               comm::ConnectionType type) {
    auto settings = Settings(device, type == comm::ConnectionType::kModem);
    settings.connection_type = type;
    settings.terminal_type = TerminalType::kAtsESeries;
    return Runner(settings);
  }

  // Polls the terminal once over a pty; true when the poll succeeded.
  bool PollOverPty(ATSTerminal& terminal, std::optional<TerminalType> type = std::nullopt) {
    auto pty = comm::PtyPair::Open();
    auto far_end = pty.TakeMaster();
    auto served = std::async(std::launch::async, [&] { return terminal.Serve(*far_end, true); });
    const bool ok = AtsRunner(pty.SlavePath(), comm::ConnectionType::kSerial)
                        ->PollLocations({Location("", terminal.Config().address, type)});
    served.wait_for(5s);
    return ok;
  }

  static std::vector<ats::TCDPacket> Punches(sim::ATSTerminalConfig config, int count) {
    return sim::GenerateATSPunches(config.series, count, core::SystemClock().Now().GetDate(),
                                   config.address);
  }
};

TEST_F(ATSPollTest, EachSeriesOverASerialLineDeliversEveryPunchOnce) {
  const std::pair<ats::Series, TerminalType> series[] = {
      {ats::Series::kESeries, TerminalType::kAtsESeries},
      {ats::Series::kCyberSeries, TerminalType::kAtsCyberSeries},
      {ats::Series::kProdigy, TerminalType::kAtsProdigy}};
  int64_t expected = 0;
  for (const auto& [kind, type] : series) {
    SCOPED_TRACE(static_cast<int>(type));
    const ATSTerminalConfig config{.series = kind};
    auto punches = Punches(config, 6);
    for (auto& punch : punches) punch.BadgeId += expected * 10;  // other people than before
    ATSTerminal terminal(config, punches);
    EXPECT_TRUE(PollOverPty(terminal, type)) << screen_.All();
    EXPECT_TRUE(terminal.PendingPunches().empty());
    EXPECT_FALSE(terminal.Locked()) << "unlocked at the end of the poll";
    EXPECT_EQ(Rows(), expected += 6);
  }
  EXPECT_EQ(Events("Unknown Packet Recieved"), 0);
}

// Through a modem: the location's number dialled, then the conversation of a direct line.
TEST_F(ATSPollTest, ThroughAModemTheLocationsNumberIsDialledAndEveryPunchArrivesOnce) {
  const ATSTerminalConfig config{.series = ats::Series::kCyberSeries};
  ATSTerminal terminal(config, Punches(config, 5));
  ModemRig rig({}, sim::LineParty([&](comm::FdConnection& line, bool) {
                 return terminal.Serve(line, true) == sim::ServeOutcome::kUnlocked
                            ? sim::CallOutcome::kCompleted
                            : sim::CallOutcome::kNoAnswer;
               }));
  EXPECT_TRUE(AtsRunner(rig.pty.SlavePath(), comm::ConnectionType::kModem)
                  ->PollLocations({Location(ModemRig::kNumber, 1, TerminalType::kAtsCyberSeries)}))
      << screen_.All();
  EXPECT_EQ(rig.modem.Stats().dials, 1);
  EXPECT_EQ(rig.modem.LastTerminalOutcome(), sim::CallOutcome::kCompleted);
  EXPECT_TRUE(terminal.PendingPunches().empty());
  EXPECT_EQ(Rows(), 5);
}

// Not ready for five probes, a packet with a bad LRC (refused and read again) and a packet of a
// type nobody knows (logged and skipped): every punch still arrives once.
TEST_F(ATSPollTest, ATerminalThatIsSlowSendsABadFrameAndAnUnknownPacketLosesNothing) {
  const ATSTerminalConfig config{.faults = {.not_ready = 5, .bad_lrc = 2, .unknown_packet = true}};
  ATSTerminal terminal(config, Punches(config, 4));
  EXPECT_TRUE(PollOverPty(terminal)) << screen_.All();
  EXPECT_TRUE(terminal.PendingPunches().empty()) << screen_.All();
  EXPECT_EQ(Rows(), 4);
  EXPECT_EQ(Events("Unknown Packet Recieved"), 1);
  EXPECT_GE(terminal.Stats().resends, 1);
  EXPECT_EQ(controller_->Snapshot().bad_input.unknown_packets, 1u);
  EXPECT_GE(controller_->Snapshot().bad_input.bad_block_check, 1u);
}

// Over the network: a terminal that never gets ready holds up no one; a line dropped mid-poll keeps
// what was acknowledged and the next poll brings the rest, nothing twice.
TEST_F(ATSPollTest, OverTcpAFailedTerminalNeverStopsTheListAndADroppedLineLosesNothing) {
  const ATSTerminalConfig busy_config{.address = 2, .faults = {.not_ready = 1'000'000}};
  const ATSTerminalConfig config{.address = 3, .faults = {.drop_after = 3}};
  core::StopSignal stop;
  ATSTerminal busy(busy_config, Punches(busy_config, 2), &stop);
  ATSTerminal dropping(config, Punches(config, 6), &stop);
  comm::TcpListener busy_port("127.0.0.1", 0), dropping_port("127.0.0.1", 0);
  std::thread busy_thread([&] { busy.ServeTcp(busy_port); });
  std::thread dropping_thread([&] { dropping.ServeTcp(dropping_port); });
  auto at = [](const comm::TcpListener& port) {
    return "127.0.0.1:" + std::to_string(port.Port());
  };
  auto runner = AtsRunner("", comm::ConnectionType::kLan);
  EXPECT_FALSE(runner->PollLocations({Location(at(busy_port), 2), Location(at(dropping_port), 3)}));
  EXPECT_EQ(Events("Terminal Not Ready - Command Not Sent"), 1);
  EXPECT_EQ(busy.PendingPunches().size(), 2u);
  const int64_t first = Rows();
  EXPECT_GT(first, 0) << "acknowledged punches are kept even though the line dropped";
  // The packet in flight when the line dropped is stored but unacknowledged: the terminal still
  // holds it, and the next poll finds it already in.
  EXPECT_GE(first + static_cast<int64_t>(dropping.PendingPunches().size()), 6);
  EXPECT_FALSE(dropping.PendingPunches().empty()) << "the line dropped before the poll's end";
  EXPECT_TRUE(runner->PollLocations({Location(at(dropping_port), 3)})) << screen_.All();
  EXPECT_TRUE(dropping.PendingPunches().empty());
  EXPECT_EQ(Rows(), 6);
  EXPECT_EQ(company_db_->Query("SELECT COUNT(DISTINCT [Card ID]) FROM [Clock Data Table]")
                .Field(0)
                .AsInt(),
            6);
  stop.Request();
  busy_thread.join();
  dropping_thread.join();
}

}  // namespace
}  // namespace clockcomm::test
