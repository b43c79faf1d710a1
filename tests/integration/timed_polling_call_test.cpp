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
  sim::ZonTerminal terminals[] = {{Terminal("A", 1), Punches(2, 100)},
                                  {Terminal("B", 2), Punches(3, 200)},
                                  {Terminal("C", 3), Punches(1, 300)},
                                  {Terminal("D", 4), Punches(2, 400)}};

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
  for (int i = 0; i < 4; ++i) {
    call_at(terminals[i], 6 + i);
    // Added during the day, after the pass was read: called when the list is read again.
    if (i == 0) AddLocation(list, "D", 9);
  }

  ASSERT_TRUE(manual.WaitForWaiters(2, seconds(20)));
  manual.Set(At(10, 0));  // the auto-end time
  ASSERT_EQ(run.wait_for(seconds(20)), std::future_status::ready);
  EXPECT_EQ(run.get(), shell::TimedPollingResult::kStopped);
  loop->End();

  EXPECT_EQ(Rows(), 8);
  // Each poll happened once, at its call time, in call-time order.
  auto polls = screen_.Lines();
  std::erase_if(polls,
                [](const std::string& shown) { return shown.find("Polling ") == shown.npos; });
  EXPECT_EQ(polls, (std::vector<std::string>{
                       "2009-10-20 06:00:00 Polling A ", "2009-10-20 07:00:00 Polling B ",
                       "2009-10-20 08:00:00 Polling C ", "2009-10-20 09:00:00 Polling D "}));
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
