#include "shell/schedule/clock_entry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "core/errors.h"
#include "schedule_test_support.h"
#include "shell/schedule/clock_entry_comparer.h"

namespace clockcomm::shell {
namespace {

using namespace std::chrono_literals;
using testing::At;
using testing::Hm;
using testing::Row;

TEST(ClockEntry, FromPollRow) {
  ClockEntry entry = ClockEntry::FromPollRow(
      Row(7, "Dock", Hm(6, 45), false, "555-0199"),
      ClockLine{comm::ConnectionType::kModem, terminal::TerminalType::kZonTranz, 3});
  EXPECT_EQ(entry.Address(), "555-0199");
  EXPECT_EQ(entry.GroupKey(), "555-0199");
  EXPECT_EQ(entry.CallTime().GetTime(), Hm(6, 45));
  EXPECT_FALSE(entry.Active());
  EXPECT_EQ(entry.ComPort(), 3);
  EXPECT_NE(entry.UniqueID(), ClockEntry::FromPollRow(Row(7, "Dock", Hm(6, 45))).UniqueID());
}

TEST(ClockEntryComparer, CallTimeThenLineThenPollListOrder) {
  auto make = [](int64_t id, core::DateTime call, std::string group) {
    ClockEntry e;
    e.SetLocationId(id);
    e.SetCallTime(call);
    e.SetGroupKey(std::move(group));
    return e;
  };
  const auto nine = At(2009, 10, 20, 9, 0);
  struct Case {
    ClockEntry a, b;
    int expected;
    const char* legend;
  } cases[] = {
      {make(1, nine, "x"), make(2, nine.AddMinutes(1), "a"), -1, "earlier call time first"},
      {make(1, nine.AddDays(1), "a"), make(2, nine, "a"), 1, "tomorrow after today"},
      {make(9, nine, "line1"), make(2, nine, "line2"), -1, "same time: by line"},
      {make(3, nine, "line1"), make(2, nine, "line1"), 1, "same line: by LocationId"},
      {make(3, nine, "line1"), make(3, nine, "line1"), 0, "same in every key"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ClockEntryComparer::Compare(c.a, c.b), c.expected) << c.legend;
    EXPECT_EQ(ClockEntryComparer::Compare(c.b, c.a), -c.expected) << c.legend;
  }
}

}  // namespace
}  // namespace clockcomm::shell
