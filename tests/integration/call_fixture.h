// A program folder with one company (clock DEMODATA), its employees and validation tables, and
// the call loop's objects wired as the command line wires them; terminals and modems are the
// simulators on real pty pairs.
#pragma once

#include <gtest/gtest.h>

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

#include "comm/pty_pair.h"
#include "core/clock.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/company_factory.h"
#include "shell/line_runner.h"
#include "shell/logs.h"
#include "shell/my_static.h"
#include "sim/zon_terminal.h"
#include "terminal/call_controller.h"
#include "test_support/temp_dir.h"
#include "zon/driver/zon_family.h"

namespace clockcomm::test {

// Records every screen line and lets a test wait for one.
class RecordingScreen : public terminal::ScreenSink {
 public:
  void Line(std::string_view text) override {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(text);
    cv_.notify_all();
  }
  void Status(std::string_view text) override {
    std::lock_guard lock(mutex_);
    status_ = std::string(text);
    statuses_.emplace_back(text);
    cv_.notify_all();
  }
  void AppendStatus(std::string_view text) override {
    std::lock_guard lock(mutex_);
    status_ += text;
  }
  // True when a line (or status) containing text was shown within the timeout.
  bool WaitFor(const std::string& text,
               std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, timeout, [&] { return ContainsLocked(text); });
  }
  bool Contains(const std::string& text) const {
    std::lock_guard lock(mutex_);
    return ContainsLocked(text);
  }
  int Count(const std::string& text) const {
    std::lock_guard lock(mutex_);
    int n = 0;
    for (const auto& l : lines_) n += l.find(text) != std::string::npos;
    return n;
  }
  std::vector<std::string> Lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  std::string All() const {
    std::lock_guard lock(mutex_);
    std::string out;
    for (const auto& l : lines_) out += l + "\n";
    return out;
  }

 private:
  bool ContainsLocked(const std::string& text) const {
    for (const auto& l : lines_) {
      if (l.find(text) != std::string::npos) return true;
    }
    for (const auto& s : statuses_) {
      if (s.find(text) != std::string::npos) return true;
    }
    return false;
  }
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::vector<std::string> lines_;
  std::vector<std::string> statuses_;
  std::string status_;
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
    shell::LineSettings s;
    s.device = device;
    s.connection_type = modem ? comm::ConnectionType::kModem : comm::ConnectionType::kSerial;
    s.response_wait = std::chrono::seconds(1);
    s.second_pause = std::chrono::milliseconds(0);
    s.packet_timeout = std::chrono::milliseconds(3000);
    return s;
  }

  // The Zon/Tranz line runner with these settings, as the command line makes it.
  std::unique_ptr<shell::LineRunner> Runner(shell::LineSettings settings,
                                            terminal::CallController* controller = nullptr) {
    static const terminal::TerminalFamily family = zon::ZonFamily();
    return std::make_unique<shell::LineRunner>(std::move(settings), family,
                                               controller ? *controller : *controller_, *services_);
  }

  // Runs the host loop on a direct line while the terminal calls in; with once, it leaves after
  // that call, else it runs until something ends it.
  sim::CallOutcome HostOnce(sim::ZonTerminal& terminal, bool* loop_ok = nullptr, bool once = true) {
    auto pty = comm::PtyPair::Open();
    auto master = pty.TakeMaster();
    auto loop = Runner(Settings(pty.SlavePath(), false));
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

  int64_t Rows(const std::string& where = "1=1") {
    return company_db_->Query("SELECT COUNT(*) FROM [Clock Data Table] WHERE " + where)
        .Field(0)
        .AsInt();
  }

  // Entries of the event log of this type (and, when given, with this description).
  int64_t Events(const std::string& type, const std::optional<std::string>& description = {}) {
    auto log = db::Open(paths_->EventLogDatabase());
    if (description) {
      return log
          ->Query("SELECT COUNT(*) FROM LogTable WHERE EventType = ? AND EventDes = ?",
                  {type, *description})
          .Field(0)
          .AsInt();
    }
    return log->Query("SELECT COUNT(*) FROM LogTable WHERE EventType = ?", {type}).Field(0).AsInt();
  }

  std::vector<std::filesystem::path> DataFiles(const std::string& extension) {
    std::vector<std::filesystem::path> out;
    for (const auto& e : std::filesystem::directory_iterator(paths_->DataDirectory())) {
      if (e.path().extension() == extension) out.push_back(e.path());
    }
    return out;
  }

  static std::vector<std::string> Punches(int count, int first_sequence = 1) {
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i) {
      const int minute = i % 60;
      const int hour = 6 + (i / 60) % 12;
      char line[64];
      std::snprintf(line, sizeof line, "%d,%d,,,,,%s,091020,%02d%02d,,,,1", first_sequence + i,
                    12 + (i % 2), i % 2 == 0 ? "I" : "O", hour, minute);
      out.emplace_back(line);
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
