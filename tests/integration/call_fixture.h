// A program folder with one company (clock DEMODATA), its employees and validation tables, and
// the call loop's objects wired as the command line wires them.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ats/driver/ats_family.h"
#include "comm/pty_pair.h"
#include "core/clock.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/company_factory.h"
#include "shell/line_runner.h"
#include "shell/logs.h"
#include "shell/my_static.h"
#include "sim/hayes_modem.h"
#include "sim/zon_terminal.h"
#include "terminal/call_controller.h"
#include "test_support/temp_dir.h"
#include "zon/driver/zon_family.h"

namespace clockcomm::test {

// Records every screen line and status and lets a test wait for one.
class RecordingScreen : public terminal::ScreenSink {
 public:
  void Line(std::string_view text) override { Add(lines_, text); }
  void Status(std::string_view text) override { Add(statuses_, text); }
  void AppendStatus(std::string_view) override {}
  // True when a line or status containing text was shown within the timeout.
  bool WaitFor(const std::string& text,
               std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, timeout, [&] { return CountLocked(text, true) > 0; });
  }
  bool Contains(const std::string& text) const {
    std::lock_guard lock(mutex_);
    return CountLocked(text, true) > 0;
  }
  // Lines (statuses not counted) containing text.
  int Count(const std::string& text) const {
    std::lock_guard lock(mutex_);
    return CountLocked(text, false);
  }
  std::vector<std::string> Lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  std::string All() const {
    std::string out;
    for (const auto& line : Lines()) out += line + "\n";
    return out;
  }

 private:
  void Add(std::vector<std::string>& to, std::string_view text) {
    std::lock_guard lock(mutex_);
    to.emplace_back(text);
    cv_.notify_all();
  }
  int CountLocked(const std::string& text, bool with_statuses) const {
    auto count = [&](const std::vector<std::string>& shown) {
      return std::ranges::count_if(
          shown, [&](const std::string& s) { return s.find(text) != std::string::npos; });
    };
    return static_cast<int>(count(lines_) + (with_statuses ? count(statuses_) : 0));
  }
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::vector<std::string> lines_, statuses_;
};

// A simulated modem on a pty of its own, a terminal at kNumber behind it, serving until Stop.
struct ModemRig {
  static constexpr const char* kNumber = "5551234";
  template <typename Party>
  ModemRig(sim::ModemOptions options, Party&& terminal) : modem(pty.TakeMaster(), options, stop) {
    modem.AddToPhoneBook(kNumber, std::forward<Party>(terminal));
    thread = std::thread([this] { modem.Run(); });
  }
  ~ModemRig() { Stop(); }
  void Stop() {
    stop.Request();
    if (thread.joinable()) thread.join();
  }
  comm::PtyPair pty = comm::PtyPair::Open();
  core::StopSignal stop;
  sim::HayesModem modem;
  std::thread thread;
};

class CallFixture : public ::testing::Test {
 protected:
  static constexpr const char* kClock = "DEMODATA";

  void SetUp() override {
    home_ = dir_.path();
    std::filesystem::create_directories(home_ / "data" / "demo");
    config_ = shell::MyStatic::Load(home_);
    paths_ = std::make_unique<shell::MyPaths>(config_->Paths());
    {
      auto registry = db::Open(paths_->CompanyRegistryDatabase(), db::OpenMode::kCreate);
      db::CreateCompanyRegistrySchema(*registry);
      registry->Execute(
          "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
          "[Pay Period Type], [Current Start Time], CustomDays) VALUES (?, ?, ?, ?, ?, ?, 0)",
          {"Demo Company", kClock, "demo", "2009-10-19", "weekly", "00:00:00"});
    }
    company_db_ = db::Open(paths_->CompanyDatabase("demo"), db::OpenMode::kCreate);
    db::CreateCompanySchema(*company_db_);
    company_db_->Execute(
        "INSERT INTO [Employee Table] ([Card ID], [Employee Name], [Home Department]) VALUES "
        "(12, 'Ada Lovelace', 7), (13, 'Charles Babbage', 8)");
    company_db_->Execute(
        "INSERT INTO LEVEL1 ([Card ID], Name, Active) VALUES "
        "(12, 'Ada Lovelace', 1), (13, 'Charles Babbage', 1), (14, 'Gone', 0)");
    company_db_->Execute("INSERT INTO LEVEL2 (Code, Description) VALUES ('7', 'Assembly')");
    company_db_->Execute(
        "INSERT INTO LEVEL3 (Code, Description) VALUES ('J1', 'Welding'), ('J2', 'Paint')");
    db::CreateEventLogSchema(*db::Open(paths_->EventLogDatabase(), db::OpenMode::kCreate));
    Wire();
  }

  // The logs, the controller and the companies, made as the program makes them when it starts.
  void Wire() {
    services_.reset();
    companies_.reset();
    controller_.reset();
    logs_ = std::make_unique<shell::Logs>(*paths_, clock_);
    controller_ = std::make_unique<terminal::CallController>(clock_, *logs_, screen_);
    companies_ = std::make_unique<records::CompanyFactory>(*logs_, paths_->DataDirectory());
    companies_->Initialize(paths_->CompanyRegistryDatabase());
    services_ = std::make_unique<shell::LineServices>(
        shell::LineServices{*paths_, records::ParameterOverride(), companies_.get(), nullptr});
  }

  shell::LineSettings Settings(const std::string& device, bool modem) {
    return {.device = device,
            .connection_type = modem ? comm::ConnectionType::kModem : comm::ConnectionType::kSerial,
            .response_wait = std::chrono::seconds(1),
            .second_pause = std::chrono::milliseconds(0),
            .packet_timeout = std::chrono::milliseconds(3000)};
  }

  // The line runner with these settings and the families of the command line.
  std::unique_ptr<shell::LineRunner> Runner(shell::LineSettings settings,
                                            terminal::CallController* controller = nullptr) {
    static const terminal::TerminalFamily families[] = {zon::ZonFamily(), ats::ATSFamily()};
    return std::make_unique<shell::LineRunner>(std::move(settings), families,
                                               controller ? *controller : *controller_, *services_);
  }

  // Runs the host loop on a direct line while the terminal calls in; with once, it leaves after
  // that call, else it runs until something ends it.
  sim::CallOutcome HostOnce(sim::ZonTerminal& terminal, bool* loop_ok = nullptr, bool once = true,
                            std::chrono::milliseconds packet_timeout = std::chrono::seconds(3)) {
    auto pty = comm::PtyPair::Open();
    auto master = pty.TakeMaster();
    auto settings = Settings(pty.SlavePath(), false);
    settings.packet_timeout = packet_timeout;
    auto loop = Runner(settings);
    auto outcome = std::async(std::launch::async, [&] {
      EXPECT_TRUE(screen_.WaitFor("Waiting for next event")) << screen_.All();
      return terminal.CallIn(*master);
    });
    const bool ok = loop->Host(once);
    if (loop_ok != nullptr) *loop_ok = ok;
    return outcome.get();
  }

  // Every punch of Punches(count, first_sequence) is in [Clock Data Table], each exactly once.
  void ExpectEachPunchOnce(int count, int first_sequence = 1) {
    auto rows = company_db_->Query(
        "SELECT COUNT(*), COUNT(DISTINCT Punch) FROM [Clock Data Table] WHERE Punch BETWEEN ? AND "
        "?",
        {first_sequence, first_sequence + count - 1});
    EXPECT_EQ(rows.Field(0).AsInt(), count) << screen_.All();
    EXPECT_EQ(rows.Field(1).AsInt(), count);
  }

  int64_t Rows() {
    return company_db_->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt();
  }

  // Entries of the event log of this type (and, when given, with this description).
  int64_t Events(const std::string& type, const std::optional<std::string>& description = {}) {
    return db::Open(paths_->EventLogDatabase())
        ->Query(
            "SELECT COUNT(*) FROM LogTable WHERE EventType = ? AND EventDes = "
            "COALESCE(?, EventDes)",
            {type, description})
        .Field(0)
        .AsInt();
  }

  std::vector<std::filesystem::path> DataFiles(const std::string& extension) {
    std::vector<std::filesystem::path> out;
    for (const auto& e : std::filesystem::directory_iterator(paths_->DataDirectory())) {
      if (e.path().extension() == extension) out.push_back(e.path());
    }
    return out;
  }

  // count punches numbered from first_sequence, in and out by turns, badges 12 and 13.
  static std::vector<std::string> Punches(int count, int first_sequence = 1) {
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i) {
      out.push_back(fmt::format("{},{},,,,,{},091020,{:02}{:02},,,,1", first_sequence + i,
                                12 + i % 2, i % 2 == 0 ? "I" : "O", 6 + (i / 60) % 12, i % 60));
    }
    return out;
  }

  TempDir dir_;
  std::filesystem::path home_;
  core::SystemClock clock_;
  std::unique_ptr<shell::MyStatic> config_;
  std::unique_ptr<shell::MyPaths> paths_;
  std::unique_ptr<db::Database> company_db_;
  std::unique_ptr<shell::Logs> logs_;
  RecordingScreen screen_;
  std::unique_ptr<terminal::CallController> controller_;
  std::unique_ptr<records::CompanyFactory> companies_;
  std::unique_ptr<shell::LineServices> services_;
};

}  // namespace clockcomm::test
