// What the simulators read and write as text: the program's messages, AT command lines, punch
// files and transcripts.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "core/errors.h"
#include "sim/host_message.h"
#include "sim/modem_command.h"
#include "sim/punch_source.h"
#include "sim/transcript.h"
#include "test_support/temp_dir.h"
#include "zon/protocol_char.h"
#include "zon/zon2x_to_tcd_formatter.h"

namespace clockcomm::sim {
namespace {

using Kind = HostMessage::Kind;
using zon::ProtocolChar;

const std::string kFs(1, ProtocolChar::kFs);
std::string S(char c) { return std::string(1, c); }

std::string Framed(char lead, const std::string& body) {
  std::string frame = S(lead) + body + S(ProtocolChar::kEtx);
  return frame + DownloadBlockCheck(frame);
}

TEST(HostMessageTest, CutsWhatTheProgramSends) {
  struct Case {
    const char* legend;
    std::string input;
    HostContext context;
    Kind kind;
    bool framed;
    bool check_ok;
    size_t left;  // bytes left in the buffer afterwards
  };
  const auto& pc = ProtocolChar::Shared();
  std::string bad_ack4 = pc.ACK4();
  bad_ack4[3] = 'x';
  // What the program sends in a good call is cut in every call of the integration tests; here what
  // is odd.
  std::vector<Case> cases = {
      {"single NAK then more", pc.NAK() + pc.EOT(), HostContext::kCall, Kind::kNak, false, true, 1},
      {"EOT4 back to back", pc.EOT4() + pc.EOT4(), HostContext::kCall, Kind::kEot, true, true, 4},
      {"ACK4 with a damaged check", bad_ack4, HostContext::kCall, Kind::kAck, true, false, 0},
      {"noise byte", "x" + pc.ENQ(), HostContext::kCall, Kind::kOther, false, true, 1},
      {"table header without a count", Framed(ProtocolChar::kSoh, "LEVEL1"), HostContext::kDownload,
       Kind::kTableHeader, false, false, 0},
      {"SOH during a call is noise", pc.SOH() + "DOWNLOAD" + pc.ETX(), HostContext::kCall,
       Kind::kOther, false, true, 9},
      {"overlong frame without ETX", pc.STX() + std::string(kMaxHostFrameLength + 1, 'x'),
       HostContext::kCall, Kind::kOther, false, true, kMaxHostFrameLength + 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.legend);
    std::string buffer = c.input;
    auto m = TakeHostMessage(buffer, c.context);
    ASSERT_TRUE(m.has_value());
    EXPECT_EQ(m->kind, c.kind);
    EXPECT_EQ(m->framed, c.framed);
    EXPECT_EQ(m->check_ok, c.check_ok);
    EXPECT_EQ(buffer.size(), c.left);
  }
}

TEST(HostMessageTest, WaitsForTheRestOfASplitMessage) {
  const auto& pc = ProtocolChar::Shared();
  struct Case {
    const char* legend;
    std::string whole;
    HostContext context;
  };
  std::vector<Case> cases = {
      {"ACK4", pc.ACK4(), HostContext::kCall},
      {"poll header", pc.STX() + "101" + pc.ETX(), HostContext::kCall},
      {"table header and its check", Framed(ProtocolChar::kSoh, "LEVEL2" + kFs + "1"),
       HostContext::kDownload},
      {"row and its check", Framed(ProtocolChar::kStx, "7" + kFs + "Bob"), HostContext::kDownload},
  };
  for (const auto& c : cases) {
    for (size_t cut = 1; cut < c.whole.size(); ++cut) {
      SCOPED_TRACE(std::string(c.legend) + " cut at " + std::to_string(cut));
      std::string buffer = c.whole.substr(0, cut);
      EXPECT_FALSE(TakeHostMessage(buffer, c.context).has_value());
      EXPECT_EQ(buffer.size(), cut) << "nothing is consumed while incomplete";
      buffer += c.whole.substr(cut);
      auto m = TakeHostMessage(buffer, c.context);
      ASSERT_TRUE(m.has_value());
      EXPECT_NE(m->kind, Kind::kOther);
      EXPECT_TRUE(buffer.empty());
    }
  }
}

// The program's own commands (ATZ, the init string, ATDT, H0, O, S0?) are sent in every modem call;
// here the spellings it never sends.
TEST(ModemCommandTest, ParsesCommandLines) {
  using K = AtCommand::Kind;
  auto commands = ParseAtCommands("e0 v0&C1S12=5S12?DT 555-1234;H");
  ASSERT_TRUE(commands.has_value());
  std::vector<K> kinds;
  for (const auto& c : *commands) kinds.push_back(c.kind);
  EXPECT_EQ(kinds, (std::vector<K>{K::kEcho, K::kVerbose, K::kOther, K::kSetRegister,
                                   K::kQueryRegister, K::kDial}));
  EXPECT_EQ((*commands)[3].register_number, 12);
  EXPECT_EQ((*commands)[3].value, 5);
  EXPECT_EQ((*commands)[5].text, "5551234") << "a dial takes the rest of the line";
  EXPECT_EQ(DialedNumber("P9,,5551234"), "95551234");
  for (const char* bad : {"S=1", "S0", "S0=256", "S300=1", "&", "&1", "E1%"}) {
    EXPECT_FALSE(ParseAtCommands(bad).has_value()) << bad;
  }
}

TEST(PunchSourceTest, GeneratedPunchesAreDistinctWellFormedLinesOfTheDay) {
  const auto day = core::Date::FromYmdOrThrow(2009, 10, 20);
  auto punches = GeneratePunches(1000, day);
  ASSERT_EQ(punches.size(), 1000u);
  EXPECT_EQ(std::set<std::string>(punches.begin(), punches.end()).size(), punches.size());
  zon::Zon2xToTcdFormatter formatter;
  for (const auto& punch : punches) {
    ASSERT_TRUE(formatter.Formattable(punch)) << punch;
    EXPECT_NO_THROW(formatter.Format(punch)) << punch;  // valid dates and times throughout
  }
  EXPECT_TRUE(GeneratePunches(0, day).empty());
}

TEST(PunchSourceTest, PunchFileSkipsCommentsAndNamesTheBadLine) {
  test::TempDir dir;
  const auto path = (dir.path() / "punches.txt").string();
  {
    std::ofstream out(path, std::ios::binary);
    out << "# two punches\r\n2,12,,,,,I,091020,1224,,,,1\r\n\n 3,12,,,,,O,091020,1705,,,,1 \n";
  }
  EXPECT_EQ(ReadPunchFile(path), (std::vector<std::string>{"2,12,,,,,I,091020,1224,,,,1",
                                                           "3,12,,,,,O,091020,1705,,,,1"}));
  {
    std::ofstream out(path, std::ios::binary);
    out << "2,12,,,,,I,091020,1224,,,,1\n2,12,I,091020\n";
  }
  try {
    ReadPunchFile(path);
    ADD_FAILURE() << "a short line was accepted";
  } catch (const core::ArgumentException& e) {
    EXPECT_NE(std::string(e.what()).find("line 2"), std::string::npos) << e.what();
  }
  EXPECT_THROW(ReadPunchFile((dir.path() / "missing.txt").string()), core::SystemError);
}

// Whole transcripts are read and written by the golden tests; here every byte value and the lines
// that are no comment, setting or step.
TEST(Transcript, BytesRoundTripAndMalformedLinesAreRefused) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  EXPECT_EQ(UnescapeBytes(EscapeBytes(all + " ")), all + " ");
  EXPECT_EQ(EscapeBytes("a\\b\r\n\x05 c "), "a\\\\b\\r\\n\\x05 c\\x20");
  for (const char* bad : {"\\q", "\\x1", "\\", "\\xg0"}) {
    EXPECT_THROW(UnescapeBytes(bad), core::FormatException) << bad;
  }
  for (const char* bad : {"> ok\nline: late\n", "? what\n"}) {
    EXPECT_THROW(ParseTranscript(bad), core::FormatException) << bad;
  }
}

}  // namespace
}  // namespace clockcomm::sim
