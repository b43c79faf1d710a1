// The real line loop's calendar on a manual clock: the timed polling cycle over terminals of both
// makes sharing one direct line, and the end time of a host.
#include <gtest/gtest.h>

#include <functional>
#include <future>

#include "comm/pty_pair.h"
#include "db/open.h"
#include "integration/call_fixture.h"
#include "shell/schedule/poll_list.h"
#include "shell/schedule/timed_polling.h"
#include "sim/ats_terminal.h"
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
    list.Add({.location_name = name,
              .dial_time = core::TimeOfDay::FromHms(hour, 0),
              .terminal_id = name});
  }
};

// Zon/Tranz terminals and an ATS terminal on one line, each polled in its own make's conversation.
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
  sim::ZonTerminal terminals[] = {{{.clock_number = 1, .terminal_id = "A"}, Punches(2, 100)},
                                  {{.clock_number = 2, .terminal_id = "B"}, Punches(3, 200)},
                                  {{.clock_number = 3, .terminal_id = "C"}, Punches(1, 300)}};
  sim::ATSTerminal ats_terminal(
      {.address = 4}, sim::GenerateATSPunches(ats::Series::kESeries, 2, At(9).GetDate(), 4));

  auto loop = Runner(Settings(pty.SlavePath(), false), &controller);
  shell::TimedPolling cycle(list, *loop, *logs_, manual, controller.EndCommLoop(), At(10, 0));
  auto run = std::async(std::launch::async, [&] { return cycle.Run(); });

  // The cycle and its auto-end watcher both wait on the clock between calls.
  auto call_at = [&](int hour, const std::function<bool()>& answer) {
    ASSERT_TRUE(manual.WaitForWaiters(2, seconds(20))) << screen_.All();
    auto answered = std::async(std::launch::async, answer);
    manual.Set(At(hour, 0));
    EXPECT_TRUE(answered.get()) << screen_.All();
  };
  for (int i = 0; i < 3; ++i) {
    call_at(6 + i, [&] {
      return terminals[i].AnswerPoll(*line, sim::LineKind::kDirect,
                                     std::chrono::steady_clock::now() + seconds(20)) ==
             sim::CallOutcome::kCompleted;
    });
    // Added during the day, after the pass was read: called when the list is read again.
    if (i == 0) {
      list.Add({.location_name = kClock,
                .dial_time = core::TimeOfDay::FromHms(9, 0),
                .terminal_id = "4",
                .terminal_type = terminal::TerminalType::kAtsESeries});
    }
  }
  call_at(9, [&] { return ats_terminal.Serve(*line, true) == sim::ServeOutcome::kUnlocked; });

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
                       "2009-10-20 08:00:00 Polling C ",
                       "2009-10-20 09:00:00 Polling " + std::string(kClock) + " "}));
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
