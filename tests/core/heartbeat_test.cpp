#include "core/heartbeat.h"

#include <gtest/gtest.h>

#include <thread>

#include "core/stop_signal.h"

namespace clockcomm::core {
namespace {

using std::chrono::milliseconds;

// A 400 ms watchdog: a 100 ms slice, pets at least 50 ms apart.
TEST(HeartbeatTest, PetsOnlyWhenEveryLoopCameRound) {
  struct Step {
    const char* what;
    int loop;  // 1 or 2; 0 unregisters loop 2
    int at_ms;
    bool pets;
  };
  const Step steps[] = {
      {"the first loop alone is not enough", 1, 1000, false},
      {"the second completes the round", 2, 1010, true},
      {"a new round starts empty", 2, 1200, false},
      {"both again, but 50 ms have passed", 1, 1200, true},
      {"both came round too soon after the pet", 1, 1220, false},
      {"", 2, 1230, false},
      {"the same round, now late enough", 1, 1260, true},
      {"a stuck loop holds the pets back", 1, 1500, false},
      {"", 1, 2000, false},
      {"the stuck loop leaves", 0, 2100, false},
      {"the one left pets alone", 1, 2100, true},
  };
  int pets = 0;
  Heartbeat heartbeat(milliseconds(400), [&] { ++pets; });
  EXPECT_EQ(heartbeat.Slice(), milliseconds(100));
  const int first = heartbeat.Register();
  const int second = heartbeat.Register();
  const Heartbeat::Time start{};
  int expected_pets = 0;
  for (const Step& step : steps) {
    if (step.loop == 0) {
      heartbeat.Unregister(second);
      continue;
    }
    const int loop = step.loop == 1 ? first : second;
    EXPECT_EQ(heartbeat.Beat(loop, start + milliseconds(step.at_ms)), step.pets)
        << step.what << " at " << step.at_ms;
    expected_pets += step.pets ? 1 : 0;
  }
  EXPECT_EQ(pets, expected_pets);
  EXPECT_FALSE(heartbeat.Beat(second, start + milliseconds(5000))) << "a loop that left";
}

// A thread's loop beats from its waits, which wake every slice; a thread without a loop, a nested
// loop and a process without a watchdog change nothing.
TEST(HeartbeatTest, WaitsBeatForTheirThreadsLoop) {
  EXPECT_EQ(Heartbeat::WaitSlice(), std::chrono::nanoseconds::max());
  std::atomic<int> pets{0};
  Heartbeat heartbeat(milliseconds(40), [&] { ++pets; });
  Heartbeat::SetProcess(&heartbeat);
  StopSignal stop;
  std::thread without_loop([&] { stop.WaitFor(milliseconds(300)); });
  without_loop.join();
  EXPECT_EQ(pets, 0) << "no loop took part";
  {
    Heartbeat::Loop loop;
    Heartbeat::Loop nested;
    EXPECT_FALSE(stop.WaitFor(milliseconds(300)));
  }
  Heartbeat::SetProcess(nullptr);
  // A pet every 5-20 ms of the 300 ms wait; a loose bound for a busy machine.
  EXPECT_GE(pets, 5);
  stop.Request();
  EXPECT_TRUE(stop.WaitFor(milliseconds(300)));
}

}  // namespace
}  // namespace clockcomm::core
