// The ATS driver's call over a scripted line into a real intake: each packet is durable before
// its ACK leaves, unreadable and unknown packets are kept aside, a bad address fails the call.
#include "ats/driver/ats_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "ats/ats_frame.h"
#include "comm/stub_line.h"
#include "core/durable_file.h"
#include "records/intake/call_state.h"
#include "records/tcd_record_static.h"
#include "records/transfer_fixture.h"

namespace clockcomm::ats {
namespace {

struct NullScreen : terminal::ScreenSink {
  void Line(std::string_view) override {}
  void Status(std::string_view) override {}
  void AppendStatus(std::string_view) override {}
};

constexpr int kTerminal = 7;

std::string Data(std::string_view packet) { return CommandFrame(kTerminal, kTerminal, packet); }

// A punch frame "PN" + badge; a badge "bad" cannot be read.
std::optional<records::TcdRecord> ReadPunch(terminal::TerminalType, const std::string& frame,
                                            int sequence) {
  const std::string badge = frame.substr(10, frame.find(kEtx) - 10);
  if (badge == "bad") throw core::FormatException("badge is not a number");
  return records::TcdRecordStatic::Parse("7," + std::to_string(sequence) + "," + badge +
                                         ",,,,,I,091021,0800,,,,1");
}

class ATSDriverTest : public ::testing::Test, public records::test_support::TransferFixture {
 protected:
  ATSDriverTest() {
    companies.Initialize(registry_path);
    std::filesystem::create_directory(dir.path() / "data");
    line.Stub().SetResponder([this](std::string_view w) { return Terminal(w); });
  }

  // Ready, takes every command, answers polls from its queue until an ACK removes the head.
  std::string Terminal(std::string_view written) {
    const std::string ack = ReplyFrame(1, kTerminal, true);
    if (written == EnquiryFrame(1, kTerminal, kStatusEnquiry))
      return ReplyFrame(kTerminal, 1, true);
    if (written == EnquiryFrame(1, kTerminal, kPollEnquiry)) {
      return queue.empty() ? std::string(1, kEot) : queue.front();
    }
    if (written == ack) {
      // What the terminal forgets now must already be durable in the call's file.
      const auto file = intake.File();
      pending_at_ack.push_back(
          std::filesystem::exists(records::StateMarker(file, records::CallState::kPending)));
      queue.pop_front();
      return {};
    }
    if (written.size() > 5 && written[0] == kSoh) {
      const bool what_are_you = written.find("S00") != std::string_view::npos;
      return ReplyFrame(kTerminal, 1, true) + (what_are_you ? std::string(1, kEot) : "");
    }
    return {};
  }

  records::CompanyFactory companies{log, dir.path()};
  records::CallIntake intake{
      {dir.path() / "data", dir.path(), registry_path}, companies, log, clock};
  NullScreen screen;
  terminal::CallController controller{clock, log, screen};
  comm::StubLine line{{}, &clock};
  records::TerminalData data{companies, log};
  std::deque<std::string> queue;
  std::vector<bool> pending_at_ack;
};

TEST_F(ATSDriverTest, EveryPacketIsKeptBeforeItsAckAndPunchesAreDelivered) {
  queue = {Data("PN12"), Data("SR01"), Data("QQ"), Data("PNbad"), Data("PN13")};
  terminal::DriverContext context{{}, line, controller, intake, data};
  context.settings.terminal_type = terminal::TerminalType::kAtsESeries;
  ATSDriver driver(std::move(context), ReadPunch);
  EXPECT_EQ(driver.PortSettings(), "9600,O,7,2");
  EXPECT_TRUE(driver.Poll({"Front", "", "7"}, ""));
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(pending_at_ack, (std::vector<bool>{true, true, true, true, true}));
  EXPECT_EQ(Rows("[Card ID]"), (std::vector<std::string>{"12", "13"}));
  EXPECT_TRUE(driver.LastCallSucceeded());
  EXPECT_EQ(driver.LastClockName(), "Front");
  const auto written = line.Stub().Written();
  // Locked before the first poll, unlocked after the last.
  EXPECT_LT(written.find(CommandFrame(1, kTerminal, "O00")),
            written.find(EnquiryFrame(1, kTerminal, kPollEnquiry)));
  EXPECT_GT(written.find(CommandFrame(1, kTerminal, "O10")),
            written.rfind(EnquiryFrame(1, kTerminal, kPollEnquiry)));
  size_t kept = 0;
  for (const auto& e : std::filesystem::directory_iterator(dir.path() / "data")) {
    if (e.path().extension() == ".BAD") {
      const std::string text = core::ReadWholeFile(e.path());
      EXPECT_THAT(text, ::testing::HasSubstr("unknown ATS packet"));
      EXPECT_THAT(text, ::testing::HasSubstr("badge is not a number"));
      ++kept;
    }
  }
  EXPECT_EQ(kept, 1u);
}

TEST_F(ATSDriverTest, BadAddressesAndAMissingReaderFailTheCallWithoutAcknowledging) {
  for (const char* id : {"95", "x", "-1"}) {
    ATSDriver driver({{}, line, controller, intake, data}, ReadPunch);
    EXPECT_FALSE(driver.Poll({"Front", "", id}, "")) << id;
    EXPECT_EQ(line.Stub().Written(), "") << id;
  }
  queue = {Data("PN12")};
  ATSDriver driver({{}, line, controller, intake, data}, {});
  EXPECT_FALSE(driver.Poll({"Front", "", "7"}, ""));
  EXPECT_EQ(queue.size(), 1u);  // refused: still on the terminal
  EXPECT_EQ(RowCount(), 0);
  EXPECT_THAT(line.Stub().Written(), ::testing::HasSubstr(ReplyFrame(1, kTerminal, false)));
}

}  // namespace
}  // namespace clockcomm::ats
