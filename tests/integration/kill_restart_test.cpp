// Every punch once, whatever moment the program dies. The built clockcomm (host, and poll) and
// clockcomm-sim run as separate processes over a pty; the program is killed with SIGKILL at random
// points of real calls (while starting, during the upload, around the EOT, in the transfer) and
// started again until the terminal holds no punch. At the end each punch the terminal ever had
// must be in [Clock Data Table] exactly once. CLOCKCOMM_KILL_POINTS sets the number of kills
// (`make soak` runs 1,000); CLOCKCOMM_SOAK_SEED repeats a run's random choices.
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "db/open.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::test {
namespace {

using Steady = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A child process whose stdout and stderr come back through one pipe, kept as timed lines.
class Child {
 public:
  struct Line {
    Steady::time_point at;
    std::string text;
  };

  explicit Child(const std::vector<std::string>& argv) : started_(Steady::now()) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const int error = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (error != 0) {
      close(fds[0]);
      throw std::runtime_error("posix_spawn " + argv[0] + ": " + std::strerror(error));
    }
    out_ = fds[0];
  }
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      Reap();
    }
    if (out_ >= 0) close(out_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool Reading() const { return out_ >= 0; }
  int Fd() const { return out_; }
  Steady::time_point Started() const { return started_; }
  const std::vector<Line>& Lines() const { return lines_; }

  // Takes what the pipe holds; at its end the pipe is closed.
  void ReadAvailable() {
    char buffer[4096];
    const ssize_t n = read(out_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) return;
    if (n <= 0) {
      if (!partial_.empty()) lines_.push_back({Steady::now(), std::move(partial_)});
      partial_.clear();
      close(out_);
      out_ = -1;
      return;
    }
    partial_.append(buffer, static_cast<size_t>(n));
    for (size_t end; (end = partial_.find('\n')) != std::string::npos;) {
      lines_.push_back({Steady::now(), partial_.substr(0, end)});
      partial_.erase(0, end + 1);
    }
  }
  // The first line at or after from that contains text.
  std::optional<size_t> Find(std::string_view text, size_t from = 0) const {
    for (size_t i = from; i < lines_.size(); ++i) {
      if (lines_[i].text.find(text) != std::string::npos) return i;
    }
    return std::nullopt;
  }
  void Signal(int signal_number) const { kill(pid_, signal_number); }
  // Waits for the process to end: only after its pipe ended or it was killed.
  void Reap() {
    if (pid_ <= 0) return;
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
  }
  std::string Tail(size_t count = 25) const {
    std::string text;
    for (size_t i = lines_.size() > count ? lines_.size() - count : 0; i < lines_.size(); ++i) {
      text += "  " + lines_[i].text + "\n";
    }
    return text;
  }

 private:
  Steady::time_point started_;
  pid_t pid_ = -1;
  int out_ = -1;
  std::string partial_;
  std::vector<Line> lines_;
};

// Blocks in poll() on the children's pipes, reading their lines, until done() holds, the deadline
// passes or every pipe has ended. Returns done().
bool Pump(const std::vector<Child*>& children, Steady::time_point deadline,
          const std::function<bool()>& done) {
  while (!done()) {
    std::vector<pollfd> fds;
    std::vector<Child*> readers;
    for (Child* child : children) {
      if (child != nullptr && child->Reading()) {
        fds.push_back({child->Fd(), POLLIN, 0});
        readers.push_back(child);
      }
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Steady::now());
    if (fds.empty() || left <= 0ms) return done();
    if (poll(fds.data(), fds.size(), static_cast<int>(left.count())) < 0 && errno != EINTR) {
      throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
    }
    for (size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].revents != 0) readers[i]->ReadAvailable();
    }
  }
  return true;
}

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
    ASSERT_EQ(Run("init").exit_code, 0);
    ASSERT_EQ(Run("settings set connection_type=Serial comm_port=1 response_wait=1").exit_code, 0);
    ASSERT_EQ(Run("company add Acme --clock DEMODATA --dir acme").exit_code, 0);
    ASSERT_EQ(Run("poll-list add Dock").exit_code, 0);
    // The transfer starts right after the EOT, so that kills after the EOT land in it.
    std::ofstream(home_.path() / "SettingsOverride.txt") << "eotinterval = 0\n";
  }
  CommandResult Run(const std::string& args) { return RunClockcomm(home_.path(), args); }

  // A new batch of punches, each unlike any other of the run: its own day per round, its own
  // minute per punch, in and out punches, numbered on as a terminal numbers them.
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

  std::unique_ptr<Child> StartTerminal(bool poll, const std::filesystem::path& batch,
                                       std::string& pty) {
    std::vector<std::string> argv = {CLOCKCOMM_BINARY_DIR "/clockcomm-sim",
                                     "zon",
                                     "--pty",
                                     "--punch-file",
                                     batch.string(),
                                     "--until-delivered",
                                     "--reply-wait-ms",
                                     "500",
                                     "--baud",
                                     "19200"};
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

  // One round: a new batch on a new terminal, the program killed once (unless this round
  // measures the mode) and started again until the terminal has delivered every punch.
  void RunRound(Mode& mode, bool kill) {
    std::string pty;
    auto sim = StartTerminal(mode.poll, WriteBatch(), pty);
    auto delivered = [&] { return sim->Find("completed, 0 punches pending").has_value(); };
    auto program = StartProgram(mode.poll, pty);
    auto diagnose = [&] {
      return "terminal:\n" + sim->Tail() + "program:\n" + (program ? program->Tail() : "");
    };

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
      if (after_eot) {
        // Right after the terminal saw its EOT: the program is making the rows.
        ASSERT_TRUE(Pump({sim.get(), program.get()}, Steady::now() + 60s, delivered)) << diagnose();
        Pump({sim.get(), program.get()}, Steady::now() + random_delay(mode.transfer),
             [] { return false; });
      } else {
        // Anywhere from the program's start to the end of its transfer.
        Pump({sim.get(), program.get()},
             program->Started() + random_delay((mode.call + mode.transfer) * 11 / 10),
             [] { return false; });
      }
      program->Signal(SIGKILL);
      Pump({program.get()}, Steady::now() + 10s, [] { return false; });
      program->Reap();
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
    program->Reap();
    sim->Reap();
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
  const auto swept = Run("transfer --pending");
  EXPECT_EQ(swept.exit_code, 0) << swept.out << swept.err;

  std::map<std::string, int> rows;
  auto db = db::Open(home_.path() / "data" / "acme" / "Company.db");
  for (auto r = db->Query("SELECT [Card ID], [Punch Type], COALESCE([Date In], [Date Out]), "
                          "COALESCE([Time In], [Time Out]) FROM [Clock Data Table]");
       !r.Eof(); r.MoveNext()) {
    ++rows[fmt::format("{}|{}|{}|{}", r.Field(0).AsInt(), r.Field(1).AsText(), r.Field(2).AsText(),
                       r.Field(3).AsText())];
  }
  int lost = 0, doubled = 0;
  std::vector<std::string> examples;
  for (const auto& punch : expected_) {
    auto row = rows.find(punch);
    const int count = row == rows.end() ? 0 : row->second;
    if (count != 1 && examples.size() < 10)
      examples.push_back(punch + " x" + std::to_string(count));
    lost += count == 0;
    doubled += std::max(0, count - 1);
    if (row != rows.end()) rows.erase(row);
  }
  for (const auto& [row, count] : rows) {
    if (examples.size() < 10) examples.push_back("unknown row " + row);
  }

  std::string phases;
  for (int p = 0; p < kPhaseCount; ++p) {
    phases += fmt::format("{}{} {}", p == 0 ? "" : ", ", phases_[p], kPhaseNames[p]);
  }
  std::cout << fmt::format("kill points: {}, punches: {}, lost: {}, doubled: {}\n", kills_,
                           expected_.size(), lost, doubled)
            << fmt::format(
                   "  host {}, poll {}; killed {}; a call {} ms + its transfer {} ms (host), {} + "
                   "{} ms (poll); {} rounds in {:.1f} s, seed {}\n",
                   host_kills_, poll_kills_, phases, Ms(host.call), Ms(host.transfer),
                   Ms(poll.call), Ms(poll.transfer), round_,
                   std::chrono::duration<double>(Steady::now() - began).count(), seed);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(doubled, 0);
  EXPECT_TRUE(rows.empty()) << rows.size() << " rows of no punch the terminal had";
  EXPECT_TRUE(examples.empty()) << fmt::format("{}", fmt::join(examples, "\n"));
}

}  // namespace
}  // namespace clockcomm::test
