#include "comm/modem_strings.h"

#include <gtest/gtest.h>

namespace clockcomm::comm {
namespace {

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
