// The program's side of a Hayes modem: its commands in virtual time (the response wait and the
// guard times pass on the injected clock), and the init string it leaves the modem with.
#include <gtest/gtest.h>

#include "comm/hayes_modem.h"
#include "comm/modem_strings.h"
#include "comm/stub_connection.h"

namespace clockcomm::comm {
namespace {

using namespace std::chrono_literals;

TEST(HayesModem, ResultCodesAndWaitsInVirtualTime) {
  struct Case {
    const char* legend;
    std::string command;  // "+++" is the escape
    std::string answer;   // what the modem says to it
    std::string result;
    std::chrono::milliseconds waited;  // virtual time that passed
    std::string leftover = "";
  };
  const std::vector<Case> cases = {
      {"echo and OK", "ATZ", "ATZ\r\r\nOK\r\n", "OK", 0ms},
      {"no answer: the response wait", "AT&F", "", "", 3000ms},
      {"noise is not an answer", "ATI", "ATI\r\r\nhello\r\n", "", 3000ms},
      {"a dial keeps what follows CONNECT", "ATDT5551234", "\r\nCONNECT 2400\r\nxyz",
       "CONNECT 2400", 0ms, "xyz"},
      {"escape: a guard time before and after", "+++", "\r\nOK\r\n", "OK", 2000ms},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.legend);
    core::ManualClock clock;
    StubConnection stub({}, &clock);
    stub.SetResponder([&](std::string_view written) {
      return written.substr(0, c.command.size()) == c.command ? c.answer : "";
    });
    HayesModem modem(stub, clock, 3s, WakeSet{});
    const auto start = clock.Steady();
    EXPECT_EQ(c.command == "+++" ? modem.Escape() : modem.Command(c.command), c.result);
    EXPECT_EQ(clock.Steady() - start, c.waited);
    EXPECT_EQ(modem.TakeLeftover(), c.leftover);
  }
}

TEST(AutoAnswerOffInit, TurnsAutoAnswerOffInAnyInitString) {
  struct Row {
    const char* init;
    const char* expected;
  };
  const Row rows[] = {
      {"ATE1Q0V1X4S0=1", "ATE1Q0V1X4S0=0"},
      {"AT&FE1Q0V1X4S0=2", "AT&FE1Q0V1X4S0=0"},
      {"ATS0=12E1", "ATS0=0E1"},               // several digits, more commands after
      {"ats0=1", "atS0=0"},                    // lower case
      {"ATS0=1S7=60s0=3", "ATS0=0S7=60S0=0"},  // every occurrence
      {"ATS0=", "ATS0=0"},                     // no digits: still the register, not appended
      {"ATZ", "ATZS0=0"},                      // none: appended
      {"ATS10=2S0?", "ATS10=2S0?S0=0"},        // other registers and a query are not S0=
      {"ATE1 S0=1\r\n", "ATE1 S0=0"},          // line end dropped
      {"ATZ\r", "ATZS0=0"},                    // appended before nothing, not after the CR
      {"", "ATE1Q0V1X4S0=0"},
      {" \r\n", "ATE1Q0V1X4S0=0"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.init);
    EXPECT_EQ(AutoAnswerOffInit(row.init), row.expected);
  }
}

}  // namespace
}  // namespace clockcomm::comm
