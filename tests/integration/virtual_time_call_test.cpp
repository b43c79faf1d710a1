// The Zon driver over a scripted line in virtual time: the terminal's silence passes at once on a
// manual clock, so a call's 30-second packet time-out costs milliseconds.
#include <gtest/gtest.h>

#include "comm/stub_line.h"
#include "integration/call_fixture.h"
#include "records/terminal_data.h"
#include "zon/driver/zon_driver.h"
#include "zon/packet_encoder.h"
#include "zon/protocol_char.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;
using terminal::InputCounters;

class VirtualTimeCallTest : public CallFixture {
 protected:
  void SetUp() override {
    CallFixture::SetUp();
    controller_ = std::make_unique<terminal::CallController>(manual_, *logs_, screen_);
  }

  // Runs one host call of a terminal that says what the script holds after its ENQ CR LF.
  void Call(std::vector<std::string> script) {
    records::CallIntake intake(
        {paths_->DataDirectory(), paths_->ProgramDirectory(), paths_->CompanyRegistryDatabase()},
        *companies_, *controller_, manual_);
    records::TerminalData data(*companies_, *controller_);
    comm::StubLine line(std::move(script), &manual_);
    terminal::DriverSettings settings;
    settings.packet_timeout = 30s;
    zon::ZonDriver driver({settings, line, *controller_, intake, data});
    const auto real_start = std::chrono::steady_clock::now();
    const auto virtual_start = manual_.Steady();
    driver.Host(terminal::CallStart::kInput, std::string(1, zon::ProtocolChar::kEnq) + "\r\n");
    real_time_ = std::chrono::steady_clock::now() - real_start;
    virtual_time_ = manual_.Steady() - virtual_start;
    written_ = line.Stub().Written();
    EXPECT_EQ(driver.Calls(), 1);
  }

  std::vector<std::string> Upload(std::vector<std::string> punches) {
    std::vector<std::string> packets = {
        zon::EncodeHeader(zon::ZonHeaderPacket(kClock, 101, "TC28", "F"))};
    for (const auto& p : punches) packets.push_back(zon::EncodeData(p));
    return packets;
  }

  core::ManualClock manual_{*core::DateTime::FromParts(2009, 10, 20, 14, 0, 0)};
  std::chrono::nanoseconds real_time_{}, virtual_time_{};
  std::string written_;
};

TEST_F(VirtualTimeCallTest, ATerminalThatFallsSilentTimesOutInVirtualTimeAndLosesNothing) {
  Call(Upload(Punches(2)));
  EXPECT_TRUE(screen_.Contains("2009-10-20 14:00:30 Time out waiting for packet")) << screen_.All();
  EXPECT_TRUE(screen_.Contains("Upload Incomplete"));
  EXPECT_TRUE(screen_.Contains("File opened is: "));
  EXPECT_TRUE(
      DataFiles(".TCD").empty());  // the call's file is gone; the terminal keeps its punches
  EXPECT_EQ(controller_->Snapshot().bad_input, (InputCounters{0, 0, 1, 0}));
  EXPECT_EQ(controller_->Snapshot().good_calls, 0);
  // ENQ, then ACK for the header and both punches; no EOT.
  EXPECT_EQ(written_, "\x05\x06\x06\x06");
  EXPECT_GT(virtual_time_, 30s);
  EXPECT_LT(real_time_, 1s);
  EXPECT_EQ(Rows(), 0);
}

TEST_F(VirtualTimeCallTest, AnOverlongLineIsDroppedWholeCountedAndLogged) {
  auto script = Upload(Punches(2));
  script.insert(script.begin() + 2, std::string(5000, 'x') + "\r\n");
  script.push_back(zon::EncodeEndOfTransmission());
  Call(script);
  EXPECT_EQ(controller_->Snapshot().bad_input, (InputCounters{0, 1, 0, 0})) << screen_.All();
  EXPECT_EQ(controller_->Snapshot().good_calls, 1);
  EXPECT_EQ(Events("Error"), 1);
  EXPECT_EQ(Events("Error", "1 line(s) longer than any packet were dropped."), 1);
  EXPECT_EQ(written_, "\x05\x06\x06\x06\x04");
  EXPECT_EQ(Rows(), 2);
}

}  // namespace
}  // namespace clockcomm::test
