// T4Clock against the in-process terminal: the bulk read's filters, the poll's count check and
// when it may clear the terminal's log, real-time transactions, and slow calls in virtual time;
// and the duplicate filter it applies.
#include "t4/t4_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "core/errors.h"
#include "fake_t4_device.h"

namespace clockcomm::t4 {
namespace {

using test::FakeT4Device;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Lines = std::vector<std::string>;

// Stores punches as "badge@HH:nn:ss"; throws for the store call numbered fail_at (a bulk read's
// punches are one call).
struct Listener : IT4Listener {
  Lines punches;
  int calls = 0, fail_at = -1, polls = 0;
  void ReceivedPunch(T4Clock& clock) override { ReceivedPunches(clock, {clock.CurrentPunch()}); }
  void ReceivedPunches(T4Clock&, const std::vector<T4Punch>& batch) override {
    if (calls++ == fail_at) throw std::runtime_error("disk full");
    for (const auto& p : batch) {
      punches.push_back(std::to_string(p.badge_id) + "@" + p.timestamp.GetTime().ToString());
    }
  }
  void AutoPolled(T4Clock&) override { ++polls; }
};

AttTransaction P(std::string badge, int hour, int minute, int second, int state = 0) {
  return test::Transaction(std::move(badge),
                           *core::DateTime::FromParts(2024, 2, 29, hour, minute, second), state);
}

class T4ClockTest : public ::testing::Test {
 protected:
  T4ClockTest() {
    auto fake = std::make_unique<FakeT4Device>(clock);
    device = fake.get();
    t4 = std::make_unique<T4Clock>(
        7, "Front",
        std::make_unique<T4EthernetConnection>(std::move(fake), "10.0.0.5", 1, "Front", log),
        [this] { return include_seconds; }, clock, log);
    t4->SetListener(&listener);
  }
  void Start() {
    ASSERT_TRUE(t4->Connect());
    ASSERT_TRUE(t4->RegisterEvents());
  }
  void Pump() { t4->PumpEvents(comm::kNoDeadline, {}); }
  // A table's next row: a new session, nothing logged, delivered or remembered yet.
  void Fresh() {
    t4->Disconnect();
    log.Clear();
    listener = {};
    t4->Duplicates().Reset();
  }

  core::ManualClock clock{*core::DateTime::FromParts(2024, 2, 29, 9, 0, 0)};
  test::TestLog log;
  Listener listener;
  FakeT4Device* device;  // owned through the clock's connection
  bool include_seconds = true;
  std::unique_ptr<T4Clock> t4;
};

TEST_F(T4ClockTest, ReadSkipsEmptySlotsNonPunchesAndDuplicates) {
  struct Case {
    const char* legend;
    bool tft, seconds;
    std::vector<AttTransaction> log;
    Lines delivered;
    int errors, duplicates;
  };
  const AttTransaction empty = test::Transaction("5", *core::DateTime::FromParts(2000, 1, 1));
  // clang-format off
  const Case cases[] = {
      {"badge 0 and 2000-01-01: silently", false, true,
       {P("0", 8, 0, 0), empty, P("5", 8, 0, 0)}, {"5@08:00:00"}, 0, 0},
      {"state 7, numeric terminal", false, true,
       {P("5", 8, 0, 0, 7), P("6", 8, 0, 0)}, {"6@08:00:00"}, 0, 0},
      {"state 7, string enrolment", true, true,
       {P("5", 8, 0, 0, 7), P("6", 8, 0, 0)}, {"5@08:00:00", "6@08:00:00"}, 0, 0},
      {"text badges: padded; unreadable", true, true,
       {P(" 42 ", 8, 0, 0), P("A1", 8, 0, 0)}, {"42@08:00:00"}, 1, 0},
      {"seconds kept: 59 s apart", false, true,
       {P("5", 8, 0, 59), P("5", 8, 0, 0)}, {"5@08:00:59", "5@08:00:00"}, 0, 0},
      {"seconds dropped: exact duplicate", false, false,
       {P("5", 8, 0, 59), P("5", 8, 0, 0)}, {"5@08:00:00"}, 0, 1},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.legend);
    Fresh();
    device->tft = c.tft;
    device->log = c.log;
    ASSERT_TRUE(t4->Connect());
    ASSERT_TRUE(t4->BeginRead());
    while (t4->Read(c.seconds)) {
    }
    EXPECT_EQ(listener.punches, c.delivered);
    EXPECT_EQ(log.Count("Error: "), c.errors);
    EXPECT_EQ(log.Count("Duplicate Punch: "), c.duplicates);
  }
  // The last row's second entry.
  EXPECT_EQ(log.Lines().back(),
            "Duplicate Punch: Clock: Front, BadgeID: 5, TimeStamp: 2024-02-29 08:00:00");
}

TEST_F(T4ClockTest, MatchingCountsClearWithoutReadingAMismatchReReads) {
  Start();
  device->Punch(P("5", 8, 0, 0));
  device->Punch(P("6", 8, 0, 0));
  Pump();
  device->calls.clear();
  t4->DownloadPunches();
  EXPECT_THAT(device->calls, ElementsAre("EnableDevice(0)", "GetDeviceStatus", "ClearGLog",
                                         "EnableDevice(1)", "RegEvent"));
  EXPECT_FALSE(t4->Pending());

  // Nothing pending: the terminal is only enabled and registered again.
  device->calls.clear();
  t4->DownloadPunches();
  EXPECT_THAT(device->calls, ElementsAre("EnableDevice(1)", "RegEvent"));
  EXPECT_EQ(listener.polls, 1);

  // One transaction arrives, another never does (the count starts again from the last poll):
  // read the whole log, deliver only the new one.
  device->Punch(P("5", 9, 0, 0));
  device->log.push_back(P("7", 9, 0, 5));
  Pump();
  device->calls.clear();
  t4->DownloadPunches();
  EXPECT_THAT(device->calls,
              ElementsAre("EnableDevice(0)", "GetDeviceStatus", "ReadGeneralLogData",
                          "IsTFTMachine", "GetGeneralExtLogData", "GetGeneralExtLogData",
                          "GetGeneralExtLogData", "ClearGLog", "EnableDevice(1)", "RegEvent"));
  EXPECT_EQ(log.Count("Received Transactions: 1, Clock Transaction Count: 2"), 1);
  EXPECT_THAT(listener.punches,
              ElementsAre("5@08:00:00", "6@08:00:00", "5@09:00:00", "7@09:00:05"));
  EXPECT_EQ(listener.polls, 2);
}

// Badge 1 came in real time, 2 and 3 did not (or all three did). Whatever fails, the log is cleared
// only after every punch in it was stored, and once the failure is gone each punch has been
// delivered exactly once.
TEST_F(T4ClockTest, LogKeptUntilEveryPunchIsStored) {
  struct Case {
    const char* legend;
    bool all_real_time;   // the counts match
    const char* failing;  // terminal operation that fails, or ""
    int error_code, listener_fails_at;
    Lines delivered;
    bool cleared;
    const char* error;  // what the one "Error" event says ("" for none)
  };
  const Lines all = {"1@08:00:00", "2@08:01:00", "3@08:02:00"};
  const char* clear_failed = "Clock: Front, ClearGLog failed: Data not found or data repeated";
  // clang-format off
  const Case cases[] = {
      {"bulk read fails", false, "ReadGeneralLogData", -100, -1, {"1@08:00:00"}, false,
       "Clock: Front, ReadGeneralLogData failed: Operation failed or data not exist"},
      {"count unknown: read anyway", false, "GetDeviceStatus", -1, -1, all, true, ""},
      {"clear fails", false, "ClearGLog", 0, -1, all, false, clear_failed},
      {"clear fails after a match", true, "ClearGLog", 0, -1, all, false, clear_failed},
      {"listener throws at 2", false, "", 0, 1, {"1@08:00:00"}, false,
       "Clock: Front, the read stopped (disk full); the clock's transaction log is kept."},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.legend);
    Fresh();
    Start();
    device->log.clear();
    device->Punch(P("1", 8, 0, 0));
    for (const AttTransaction& p : {P("2", 8, 1, 0), P("3", 8, 2, 0)}) {
      c.all_real_time ? device->Punch(p) : device->log.push_back(p);
    }
    Pump();
    if (*c.failing) device->failures[c.failing] = c.error_code;
    listener.fail_at = c.listener_fails_at;

    t4->DownloadPunches();
    EXPECT_EQ(listener.punches, c.delivered);
    EXPECT_EQ(device->log.empty(), c.cleared);
    EXPECT_TRUE(t4->Pending());
    EXPECT_EQ(listener.polls, 1);
    EXPECT_EQ(log.Count(std::string("Error: ") + c.error), *c.error ? 1 : 0);
    EXPECT_EQ(device->calls.back(), "RegEvent");

    device->failures.clear();
    listener.fail_at = -1;
    t4->DownloadPunches();
    EXPECT_EQ(listener.punches, all);
    EXPECT_TRUE(device->log.empty());
  }
}

TEST_F(T4ClockTest, RealTimeTransactionsCountOnceRegistered) {
  ASSERT_TRUE(t4->Connect());
  device->failures["RegEvent"] = -1;
  EXPECT_FALSE(t4->RegisterEvents());
  device->Punch(P("9", 7, 59, 0));
  Pump();
  EXPECT_EQ(t4->ReceivedCount(), 0);

  device->failures.clear();
  ASSERT_TRUE(t4->RegisterEvents());
  device->Punch(P("5", 8, 0, 0));
  device->Punch(P("5", 8, 0, 10));  // a duplicate still is a record the terminal counts
  Pump();
  EXPECT_THAT(listener.punches, ElementsAre("5@08:00:00"));
  EXPECT_EQ(t4->ReceivedCount(), 2);
  EXPECT_EQ(log.Count("Duplicate Punch: "), 1);

  // Not stored: not counted, so the next poll's counts differ and the read brings it.
  include_seconds = false;
  listener.fail_at = 1;
  device->Punch(P("6", 8, 1, 59));
  Pump();
  EXPECT_EQ(t4->ReceivedCount(), 2);
  EXPECT_THAT(log.Lines().back(), HasSubstr("real-time punch not stored (disk full)"));

  listener.fail_at = -1;
  t4->DownloadPunches();
  EXPECT_THAT(listener.punches, ElementsAre("5@08:00:00", "9@07:59:00", "6@08:01:00"));
  EXPECT_TRUE(device->log.empty());
}

TEST_F(T4ClockTest, SlowCallsLoggedPastTheirLimit) {
  const std::tuple<const char*, int, bool> cases[] = {{"ReadGeneralLogData", 30, false},
                                                      {"ReadGeneralLogData", 31, true},
                                                      {"EnableDevice", 10, false},
                                                      {"EnableDevice", 11, true}};
  ASSERT_TRUE(t4->Connect());
  for (const auto& [function, seconds, logged] : cases) {
    log.Clear();
    clock.Set(*core::DateTime::FromParts(2024, 2, 29, 9, 0, 0));
    device->slow = {{function, std::chrono::seconds(seconds)}};
    std::string(function) == "EnableDevice" ? t4->EnableDevice(true) : t4->BeginRead();
    const std::string line = fmt::format(
        "Front debug: Slow Response to Function Call.  FunctionName: {}, Begin Time: 09:00:00, "
        "Fininsh Time: 09:00:{}, Elapsed: {}, Clock: Front",
        function, seconds, seconds);
    EXPECT_EQ(log.Lines(), logged ? Lines{line} : Lines{}) << function << " " << seconds;
  }
}

TEST(T4Connection, OnlyTheNetworkConnects) {
  test::TestLog log;
  T4SerialConnection serial(1, "Dock", log);
  T4ModemConnection modem(1, "Yard", log);
  EXPECT_FALSE(serial.Connect());
  EXPECT_FALSE(modem.Connect());
  EXPECT_THROW(serial.Device(), core::InvalidOperationException);
  EXPECT_THAT(modem.ConnectFailure(), HasSubstr("T4 terminals are reached over the network only, "
                                                "not by modem line. Set the clock's connection "
                                                "type to 3 (LAN)"));
  core::ManualClock clock;
  auto lan = [&](const char* address) {
    return T4EthernetConnection(std::make_unique<FakeT4Device>(clock), address, 1, "Gate", log);
  };
  EXPECT_EQ(lan("10.0.0.5").Port(), 4370);
  EXPECT_EQ(lan("10.0.0.5:5005").Port(), 5005);
  EXPECT_THROW(lan("10.0.0.5:0"), core::ArgumentException);
}

const core::DateTime kEight = *core::DateTime::FromParts(2024, 2, 29, 8, 0, 0);

// Each case offers punches in order, "badge@second" after 08:00:00, with a '!' on a duplicate.
TEST(DuplicateChecker, ComparesWithBothNeighboursWithinTheThreshold) {
  const std::tuple<const char*, long, std::vector<const char*>> cases[] = {
      {"15 s apart is a duplicate (the default)", 15, {"1@0", "1@15!"}},
      {"16 s apart is kept", 15, {"1@0", "1@16", "1@32"}},
      {"a duplicate is not stored", 15, {"1@0", "1@10!", "1@25"}},
      {"badges are apart", 15, {"1@0", "2@0", "2@5!"}},
      {"exact match at threshold 0", 0, {"1@0", "1@0!", "1@1"}},
      {"out of order: the later neighbour", 15, {"1@100", "1@0", "1@85!", "1@84"}},
      {"out of order: the earlier neighbour", 15, {"1@100", "1@0", "1@15!", "1@16"}},
      {"between two, far from both", 15, {"1@0", "1@60", "1@30"}},
  };
  for (const auto& [legend, threshold, steps] : cases) {
    DuplicateChecker checker;
    if (threshold != 15) checker.SetThreshold(threshold);
    for (const std::string step : steps) {
      const long badge = std::stol(step);
      const int second = std::stoi(step.substr(step.find('@') + 1));
      EXPECT_EQ(checker.FindDuplicate(badge, kEight.AddSeconds(second)), step.back() == '!')
          << legend << ", " << step;
    }
  }
  DuplicateChecker checker;
  EXPECT_THROW(checker.SetThreshold(-1), core::ArgumentException);
}

TEST(DuplicateChecker, PurgeDropsOnlyPunchesOlderThanTheMinutes) {
  DuplicateChecker checker;
  checker.FindDuplicate(1, kEight);
  checker.FindDuplicate(1, kEight.AddSeconds(60));
  checker.FindDuplicate(2, kEight);
  // At 08:11:00, 08:00:00 is more than ten minutes old; 08:01:00 is exactly ten and stays.
  checker.PurgeRecords(10, kEight.AddMinutes(11));
  EXPECT_FALSE(checker.FindDuplicate(1, kEight.AddSeconds(5)));
  EXPECT_TRUE(checker.FindDuplicate(1, kEight.AddSeconds(65)));
  EXPECT_FALSE(checker.FindDuplicate(2, kEight));
  checker.Forget(2, kEight);
  EXPECT_FALSE(checker.FindDuplicate(2, kEight.AddSeconds(1)));
  checker.Reset();
  EXPECT_FALSE(checker.FindDuplicate(1, kEight.AddSeconds(65)));
}

}  // namespace
}  // namespace clockcomm::t4
