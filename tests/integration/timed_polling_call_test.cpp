// The calendar of the real line loop over a pty pair, from a manual clock (the line's waits are
// real): the timed polling cycle, whose terminals are simulators sharing one direct line (each
// answers only its own id), and the end time of a host.
#include <gtest/gtest.h>

#include <future>

#include "comm/pty_pair.h"
#include "db/open.h"
#include "integration/call_fixture.h"
#include "shell/schedule/poll_list.h"
#include "shell/schedule/timed_polling.h"
#include "sim/zon_terminal.h"

namespace clockcomm::test {
namespace {

using std::chrono::seconds;

class TimedPollingCallTest : public CallFixture {
 protected:
  core::DateTime At(int hour, int minute = 0) {
    return *core::DateTime::FromParts(2009, 10, 20, hour, minute, 0);
  }

  void AddLocation(shell::PollList& list, const std::string& name, int hour) {
    shell::PollRow row;
    row.location_name = name;
    row.terminal_id = name;
    row.dial_time = core::TimeOfDay::FromHms(hour, 0);
    list.Add(row);
  }

  sim::TerminalConfig Terminal(const std::string& id, int number) {
    sim::TerminalConfig config;
    config.terminal_id = id;
    config.clock_number = number;
    return config;
  }
};

TEST_F(TimedPollingCallTest, LocationsArePolledAtTheirCallTimesInOrderAndTheListIsReadAgain) {
  core::ManualWallClock manual(At(5, 0));
  terminal::CallController controller(manual, *logs_, screen_);
  auto product = db::Open(paths_->ClockwynDatabase(), db::OpenMode::kCreate);
  db::CreateProductSchema(*product);
  shell::PollList list(*product);
  // Entered out of call-time order on purpose.
  AddLocation(list, "C", 8);
  AddLocation(list, "A", 6);
  AddLocation(list, "B", 7);

  auto pty = comm::PtyPair::Open();
  auto line = pty.TakeMaster();
  sim::ZonTerminal a(Terminal("A", 1), Punches(2, 100));
  sim::ZonTerminal b(Terminal("B", 2), Punches(3, 200));
  sim::ZonTerminal c(Terminal("C", 3), Punches(1, 300));
  sim::ZonTerminal d(Terminal("D", 4), Punches(2, 400));

  auto loop = Runner(Settings(pty.SlavePath(), false), &controller);
  shell::TimedPolling cycle(list, *loop, *logs_, manual, controller.EndCommLoop(), At(10, 0));
  auto run = std::async(std::launch::async, [&] { return cycle.Run(); });

  // The cycle and its auto-end watcher both wait on the clock between calls.
  auto call_at = [&](sim::ZonTerminal& terminal, int hour) {
    ASSERT_TRUE(manual.WaitForWaiters(2, seconds(20))) << screen_.All();
    auto answered = std::async(std::launch::async, [&] {
      return terminal.AnswerPoll(*line, sim::LineKind::kDirect,
                                 std::chrono::steady_clock::now() + seconds(20));
    });
    manual.Set(At(hour, 0));
    EXPECT_EQ(answered.get(), sim::CallOutcome::kCompleted) << screen_.All();
  };
  call_at(a, 6);
  // Added during the day, after the pass was read: called when the list is read again.
  AddLocation(list, "D", 9);
  call_at(b, 7);
  call_at(c, 8);
  call_at(d, 9);

  ASSERT_TRUE(manual.WaitForWaiters(2, seconds(20)));
  manual.Set(At(10, 0));  // the auto-end time
  ASSERT_EQ(run.wait_for(seconds(20)), std::future_status::ready);
  EXPECT_EQ(run.get(), shell::TimedPollingResult::kStopped);
  loop->End();

  EXPECT_EQ(Rows(), 8);
  // Each poll happened at its call time, in call-time order.
  const std::string all = screen_.All();
  const auto pos_a = all.find("2009-10-20 06:00:00 Polling A");
  const auto pos_b = all.find("2009-10-20 07:00:00 Polling B");
  const auto pos_c = all.find("2009-10-20 08:00:00 Polling C");
  const auto pos_d = all.find("2009-10-20 09:00:00 Polling D");
  ASSERT_NE(pos_a, std::string::npos) << all;
  ASSERT_NE(pos_b, std::string::npos) << all;
  ASSERT_NE(pos_c, std::string::npos) << all;
  ASSERT_NE(pos_d, std::string::npos) << all;
  EXPECT_LT(pos_a, pos_b);
  EXPECT_LT(pos_b, pos_c);
  EXPECT_LT(pos_c, pos_d);
  EXPECT_EQ(screen_.Count("Polling "), 4);
}

TEST_F(TimedPollingCallTest, AHostStopsAtTheEndTimeItShows) {
  core::ManualWallClock manual(At(7, 59));
  terminal::CallController controller(manual, *logs_, screen_);
  auto pty = comm::PtyPair::Open();
  auto settings = Settings(pty.SlavePath(), false);
  settings.end_time = "08:00";
  auto loop = Runner(settings, &controller);
  auto run = std::async(std::launch::async, [&] { return loop->Host(); });
  ASSERT_TRUE(manual.WaitForWaiters(1, seconds(20))) << screen_.All();
  EXPECT_TRUE(screen_.Contains("Mode = (serial) End at 08:00")) << screen_.All();
  manual.Set(At(8, 0));
  ASSERT_EQ(run.wait_for(seconds(20)), std::future_status::ready) << screen_.All();
  EXPECT_TRUE(run.get());
  EXPECT_TRUE(screen_.Contains("Closing Port"));
}

}  // namespace
}  // namespace clockcomm::test
