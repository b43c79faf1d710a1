// Every punch once, whatever moment the program dies: the built clockcomm (host, and poll) and
// clockcomm-sim over a pty, the program killed with SIGKILL at random points of real calls and
// started again until the terminal holds no punch. CLOCKCOMM_KILL_POINTS sets the number of kills
// (`make soak` runs 1,000); CLOCKCOMM_SOAK_SEED repeats a run's random choices.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "db/open.h"
#include "test_support/child_process.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;
constexpr auto Pump = Child::Pump;

// Where the program was when it died, from the lines it printed (drained after its death).
enum Phase { kStarting, kUploading, kSealing, kTransferring, kFinished, kPhaseCount };
constexpr const char* kPhaseNames[kPhaseCount] = {
    "before the call", "during the upload", "after the last packet, before EOT",
    "after EOT, before the rows were in", "after the transfer"};

Phase PhaseOf(const Child& program) {
  const auto connected = program.Find("Connected");
  if (!connected) return kStarting;
  const auto end = program.Find("End of transmission", *connected);
  if (!end) return kUploading;
  const auto eot = program.Find("EOT Sent", *end);
  if (!eot) return kSealing;
  return program.Find("Transfer for clock", *eot) ? kFinished : kTransferring;
}

int64_t Ms(Steady::duration d) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(d).count();
}

uint64_t EnvNumber(const char* name, uint64_t fallback) {
  const char* text = std::getenv(name);
  return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 10) : fallback;
}

class KillRestartTest : public ::testing::Test {
 protected:
  // Host and poll each: how long a call takes from the program's start to the terminal's EOT,
  // and from the EOT to the rows being in. Measured by a round without a kill.
  struct Mode {
    bool poll = false;
    Steady::duration call{};
    Steady::duration transfer{};
  };

  void SetUp() override {
    for (const char* command :
         {"init", "settings set connection_type=Serial comm_port=1 response_wait=1",
          "company add Acme --clock DEMODATA --dir acme", "poll-list add Dock"}) {
      ASSERT_EQ(RunClockcomm(home_.path(), command).exit_code, 0) << command;
    }
    // The transfer starts right after the EOT, so that kills after the EOT land in it.
    std::ofstream(home_.path() / "SettingsOverride.txt") << "eotinterval = 0\n";
  }

  // A new batch of punches unlike any other of the run: a day per round, a minute per punch.
  std::filesystem::path WriteBatch() {
    using namespace std::chrono;
    const year_month_day day{sys_days{2021y / January / 1} + days{round_}};
    const int year = static_cast<int>(day.year());
    const unsigned month = static_cast<unsigned>(day.month()),
                   mday = static_cast<unsigned>(day.day());
    std::string lines;
    for (int i = 0; i < 8; ++i) {
      const int badge = 1 + i;
      const char* type = i % 2 == 0 ? "I" : "O";
      lines += fmt::format("{},{},,,,,{},{:02}{:02}{:02},06{:02},,,,1\n", ++sequence_, badge, type,
                           year % 100, month, mday, i);
      expected_.push_back(
          fmt::format("{}|{}|{:04}-{:02}-{:02}|06:{:02}:00", badge, type, year, month, mday, i));
    }
    const auto file = home_.path() / fmt::format("batch{}.txt", round_++);
    std::ofstream(file) << lines;
    return file;
  }

  // The simulated terminal on a pty of its own, whose path it prints.
  std::unique_ptr<Child> StartTerminal(bool poll, const std::filesystem::path& batch,
                                       std::string& pty) {
    std::vector<std::string> argv = {CLOCKCOMM_BINARY_DIR "/clockcomm-sim"};
    for (const char* word : {"zon", "--pty", "--until-delivered", "--reply-wait-ms", "500",
                             "--baud", "19200", "--punch-file"}) {
      argv.push_back(word);
    }
    argv.push_back(batch.string());
    if (!poll) argv.insert(argv.end(), {"--call-in", "--interval", "0.05"});
    auto sim = std::make_unique<Child>(argv);
    Pump({sim.get()}, Steady::now() + 10s, [&] { return sim->Find(" ready on ").has_value(); });
    const auto ready = sim->Find(" ready on ");
    if (!ready) throw std::runtime_error("the simulator did not start:\n" + sim->Tail());
    const std::string& line = sim->Lines()[*ready].text;
    const size_t from = line.find("/dev/");
    pty = line.substr(from, line.find(' ', from) - from);
    return sim;
  }

  std::unique_ptr<Child> StartProgram(bool poll, const std::string& pty) {
    return std::make_unique<Child>(std::vector<std::string>{CLOCKCOMM_BINARY_DIR "/clockcomm",
                                                            "--home", home_.path().string(),
                                                            poll ? "poll" : "host", "--port", pty});
  }

  // A new batch on a new terminal, the program killed once (unless the round measures the mode)
  // and started again until the terminal has delivered every punch.
  void RunRound(Mode& mode, bool kill) {
    std::string pty;
    auto sim = StartTerminal(mode.poll, WriteBatch(), pty);
    auto delivered = [&] { return sim->Find("completed, 0 punches pending").has_value(); };
    auto program = StartProgram(mode.poll, pty);
    auto diagnose = [&] { return "terminal:\n" + sim->Tail() + "program:\n" + program->Tail(); };

    if (!kill) {
      auto transferred = [&]() -> std::optional<size_t> {
        const auto eot = program->Find("EOT Sent");
        return eot ? program->Find("Transfer for clock", *eot) : std::nullopt;
      };
      ASSERT_TRUE(Pump({sim.get(), program.get()}, Steady::now() + 60s, [&] {
        return delivered() && transferred();
      })) << diagnose();
      const auto eot_at = sim->Lines()[*sim->Find("completed")].at;
      mode.call = eot_at - program->Started();
      mode.transfer = std::max<Steady::duration>(program->Lines()[*transferred()].at - eot_at, 1ms);
    } else {
      const bool after_eot = std::bernoulli_distribution(1.0 / 3)(random_);
      auto random_delay = [&](Steady::duration span) {
        const double fraction = std::uniform_real_distribution<double>(0, 1)(random_);
        return std::chrono::duration_cast<Steady::duration>(span * fraction);
      };
      Steady::time_point kill_at;
      if (after_eot) {
        // Right after the terminal saw its EOT: the program is making the rows.
        ASSERT_TRUE(Pump({sim.get(), program.get()}, Steady::now() + 60s, delivered)) << diagnose();
        kill_at = Steady::now() + random_delay(mode.transfer);
      } else {
        // Anywhere from the program's start to the end of its transfer.
        kill_at = program->Started() + random_delay((mode.call + mode.transfer) * 11 / 10);
      }
      Pump({sim.get(), program.get()}, kill_at, [] { return false; });
      program->Signal(SIGKILL);
      program->Drain(Steady::now() + 10s);
      program->Wait();
      ++kills_;
      ++(mode.poll ? poll_kills_ : host_kills_);
      ++phases_[PhaseOf(*program)];
    }

    // Started again until the terminal holds no punch: a host takes its calls until then, each
    // poll makes one call.
    if (!delivered() && !mode.poll) {
      program = StartProgram(false, pty);
      ASSERT_TRUE(Pump({sim.get(), program.get()}, Steady::now() + 120s, delivered))
          << "the terminal still holds punches\n"
          << diagnose();
    }
    for (int starts = 0; !delivered(); ++starts) {
      ASSERT_LT(starts, 20) << "the terminal still holds punches\n" << diagnose();
      program = StartProgram(true, pty);
      Pump({sim.get(), program.get()}, Steady::now() + 60s, [&] { return !program->Reading(); });
    }
    // The terminal leaves once it has delivered; a host then finds its port closed and ends.
    const bool ended = Pump({sim.get(), program.get()}, Steady::now() + 30s,
                            [&] { return !sim->Reading() && !program->Reading(); });
    ASSERT_TRUE(ended) << "the terminal or the program did not end\n" << diagnose();
  }

  TempDir home_;
  std::mt19937_64 random_;
  int round_ = 0;
  int sequence_ = 0;
  std::vector<std::string> expected_;  // badge|type|date|time of each punch, once each
  int kills_ = 0, host_kills_ = 0, poll_kills_ = 0;
  int phases_[kPhaseCount] = {};
};

TEST_F(KillRestartTest, EveryPunchReachesTheDatabaseOnceWhereverTheProgramDies) {
  const auto began = Steady::now();
  const int kill_points =
      static_cast<int>(std::max<uint64_t>(1, EnvNumber("CLOCKCOMM_KILL_POINTS", 20)));
  const uint64_t seed = EnvNumber("CLOCKCOMM_SOAK_SEED", std::random_device()());
  random_.seed(seed);

  Mode host{false}, poll{true};
  ASSERT_NO_FATAL_FAILURE(RunRound(host, false));
  ASSERT_NO_FATAL_FAILURE(RunRound(poll, false));
  for (int k = 0; k < kill_points; ++k) {
    ASSERT_NO_FATAL_FAILURE(RunRound(k % 2 == 0 ? host : poll, true))
        << "kill point " << k + 1 << ", seed " << seed;
  }
  // The last round's kill may have left its file pending: the sweep delivers it.
  const auto swept = RunClockcomm(home_.path(), "transfer --pending");
  EXPECT_EQ(swept.exit_code, 0) << swept.out << swept.err;

  std::vector<std::string> rows;
  auto db = db::Open(home_.path() / "data" / "acme" / "Company.db");
  for (auto r = db->Query("SELECT [Card ID], [Punch Type], COALESCE([Date In], [Date Out]), "
                          "COALESCE([Time In], [Time Out]) FROM [Clock Data Table]");
       !r.Eof(); r.MoveNext()) {
    rows.push_back(fmt::format("{}|{}|{}|{}", r.Field(0).AsInt(), r.Field(1).AsText(),
                               r.Field(2).AsText(), r.Field(3).AsText()));
  }
  std::ranges::sort(rows);
  std::ranges::sort(expected_);
  // Lost: a punch without its row. Extra: a punch's second row, or a row of no punch.
  std::vector<std::string> lost, extra;
  std::ranges::set_difference(expected_, rows, std::back_inserter(lost));
  std::ranges::set_difference(rows, expected_, std::back_inserter(extra));
  const auto doubled = std::ranges::count_if(
      extra, [&](const std::string& row) { return std::ranges::binary_search(expected_, row); });

  std::string phases;
  for (int p = 0; p < kPhaseCount; ++p) {
    phases += fmt::format("{}{} {}", p == 0 ? "" : ", ", phases_[p], kPhaseNames[p]);
  }
  std::cout << fmt::format("kill points: {}, punches: {}, lost: {}, doubled: {}\n", kills_,
                           expected_.size(), lost.size(), doubled)
            << fmt::format(
                   "  host {}, poll {}; killed {}; a call {} ms + its transfer {} ms (host), {} + "
                   "{} ms (poll); {} rounds in {:.1f} s, seed {}\n",
                   host_kills_, poll_kills_, phases, Ms(host.call), Ms(host.transfer),
                   Ms(poll.call), Ms(poll.transfer), round_,
                   std::chrono::duration<double>(Steady::now() - began).count(), seed);
  auto some = [](const std::vector<std::string>& v) {
    return fmt::format("{}",
                       fmt::join(v.begin(), v.begin() + std::min<size_t>(v.size(), 10), "\n"));
  };
  EXPECT_TRUE(lost.empty()) << lost.size() << " punches lost, e.g.\n" << some(lost);
  EXPECT_TRUE(extra.empty()) << extra.size() - doubled << " rows of no punch and " << doubled
                             << " punches twice, e.g.\n"
                             << some(extra);
}

}  // namespace
}  // namespace clockcomm::test
