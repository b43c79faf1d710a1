// The T4 host over in-process terminals on threads of their own, in real time with short cycles:
// one terminal that never answers holds up nobody, its outage is logged once however often it is
// tried, the others' punches reach their companies' databases once, and the host follows its list.
#include "t4/host/t4_host.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <condition_variable>
#include <future>
#include <mutex>

#include "comm/fd_io.h"
#include "fake_t4_device.h"
#include "records/transfer_fixture.h"

namespace clockcomm::t4 {
namespace {

using namespace std::chrono_literals;

// The fake terminal, but its event pump sleeps until the deadline or a wake, as a real one does.
class BlockingFakeDevice : public test::FakeT4Device {
 public:
  using FakeT4Device::FakeT4Device;
  PumpResult PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) override {
    FakeT4Device::PumpEvents(deadline, wake);
    std::vector<pollfd> fds;
    for (int fd : wake.Fds()) fds.push_back({fd, POLLIN, 0});
    ::poll(fds.data(), fds.size(), comm::fd_io::PollTimeoutMs(deadline));
    return wake.AnyRequested() ? PumpResult::kWoken : PumpResult::kDeadline;
  }
};

// A log several stations write at once; a test waits on it for a line.
class SharedLog : public core::LogSink {
 public:
  void Event(std::string_view type, std::string_view text) override {
    Add(std::string(type) + ": " + std::string(text));
  }
  void Debug(std::string_view name, std::string_view text) override {
    Add(std::string(name) + " debug: " + std::string(text));
  }
  void Screen(std::string_view) override {}
  int Count(const std::string& text) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(lines_.begin(), lines_.end(), [&](const auto& line) {
      return line.find(text) != std::string::npos;
    }));
  }
  bool WaitFor(const std::string& text, int times = 1) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, 20s, [&] {
      return std::count_if(lines_.begin(), lines_.end(), [&](const auto& line) {
               return line.find(text) != std::string::npos;
             }) >= times;
    });
  }

 private:
  void Add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    cv_.notify_all();
  }
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::vector<std::string> lines_;
};

AttTransaction Punch(int badge, int minute) {
  AttTransaction t;
  t.enroll_number = std::to_string(badge);
  const auto now = core::SystemClock().Now();
  t.year = now.GetDate().Year(), t.month = now.GetDate().Month(), t.day = now.GetDate().Day();
  t.hour = 7, t.minute = minute;
  return t;
}

TEST(T4HostTest, AnUnreachableTerminalHoldsUpNobodyAndTheHostFollowsItsList) {
  records::test_support::TransferFixture site;
  // A second company for the clock "Back".
  db::Open(site.registry_path)
      ->Execute(
          "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
          "[Pay Period Type]) VALUES ('Beta', 'Back', 'beta', '2009-10-18', 'weekly')");
  std::filesystem::create_directory(site.dir.path() / "beta");
  db::CreateCompanySchema(*db::Open(site.dir.path() / "beta" / "Company.db", db::OpenMode::kCreate));

  SharedLog log;
  core::SystemClock time;
  core::ManualClock device_time;  // the fakes' clock for slow calls; none is slow here
  records::CompanyFactory companies(log, site.dir.path());
  companies.Initialize(site.registry_path);
  const auto program = site.dir.path() / "program";
  std::filesystem::create_directory(program);
  PunchTypeRules rules(program, log);
  ClockAssignments assignments(program, log);
  T4PacketWriter writer(companies, rules, assignments, program, log, time);

  std::mutex list_mutex;
  std::vector<T4ClockEntry> list = {{1, "Front", "10.0.0.1", 1}, {3, "Gate", "10.0.0.3", 1}};
  auto read_clocks = [&] {
    std::lock_guard lock(list_mutex);
    return list;
  };
  // Each connection gets a terminal of its own, holding that clock's punches; Gate never answers.
  auto connect = [&](const T4ClockEntry& e) -> std::unique_ptr<IT4Connection> {
    auto device = std::make_unique<BlockingFakeDevice>(device_time);
    if (e.name == "Front") device->log = {Punch(101, 1), Punch(102, 2), Punch(101, 30)};
    if (e.name == "Back") device->log = {Punch(201, 5), Punch(202, 6)};
    if (e.name == "Gate") device->failures["Connect_Net"] = -1;
    return std::make_unique<T4EthernetConnection>(std::move(device), e.address, e.device_number,
                                                  e.name, log);
  };
  T4StationSettings settings;
  settings.cycle_interval = 30ms;
  settings.first_retry = 10ms;
  settings.max_retry = 40ms;
  T4Host host(read_clocks, connect, writer, assignments, settings, time, log);
  core::StopSignal stop;
  auto run = std::async(std::launch::async, [&] { host.Run(stop); });

  ASSERT_TRUE(log.WaitFor("Front debug: Poll of Front ended"));
  ASSERT_TRUE(log.WaitFor("Gate debug: could not connect", 4)) << "tried again and again";
  {
    std::lock_guard lock(list_mutex);
    list = {{3, "Gate", "10.0.0.3", 1}, {2, "Back", "10.0.0.2", 1}};
  }
  ASSERT_TRUE(log.WaitFor("Back debug: Poll of Back ended"));
  std::vector<std::string> names;
  for (const auto& status : host.Snapshot()) names.push_back(status.name + (status.online ? "+" : "-"));
  EXPECT_EQ(names, (std::vector<std::string>{"Back+", "Gate-"}));
  stop.Request();
  run.get();

  EXPECT_EQ(log.Count("T4 Clock Offline: Gate"), 1);
  EXPECT_EQ(site.RowCount(), 3);
  EXPECT_EQ(db::Open(site.dir.path() / "beta" / "Company.db")
                ->Query("SELECT COUNT(*) FROM [Clock Data Table]")
                .Field(0)
                .AsInt(),
            2);
  EXPECT_EQ(host.PunchesStored(), 5);
}

}  // namespace
}  // namespace clockcomm::t4
