// The program's side of a Hayes modem over a scripted connection in virtual time: its response
// wait and its guard times pass on the injected clock, without sleeping.
#include "comm/hayes_modem.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace clockcomm::comm
