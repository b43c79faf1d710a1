// GET /api/v1/terminals over real HTTP on a site with a company clock, poll-list locations, an
// event log and punches.
#include <gmock/gmock.h>

#include <fstream>

#include "db/open.h"
#include "shell/site_status.h"
#include "web/console_fixture.h"

namespace clockcomm::web {
namespace {

core::DateTime At(int d, int hh, int nn = 0) {
  return *core::DateTime::FromParts(2009, 10, d, hh, nn, 0);
}

TEST_F(ConsoleFixture, TerminalsShowContactsAndPunchesOfTodayAndTheLast24Hours) {
  for (const char* command :
       {"company add Acme --clock DOCK --dir acme", "poll-list add GATE --dial-time 06:00",
        "poll-list add YARD --dial-time 07:00"}) {
    ASSERT_EQ(test::RunClockcomm(dir_.path(), command).exit_code, 0) << command;
  }
  auto log = shell::EventLog::Open(config_->Paths().EventLogDatabase());
  log->Write(At(19, 7), "YARD", 4, "End of call", "");
  log->Write(At(21, 6, 1), "GATE", 2, "Outbound Call Failed", "no answer");
  log->Write(At(21, 8, 1), "DOCK", 1, "End of call", "4 punches");
  // It is 12:00 on the 21st. Counted today: 08:00, 09:00 (an out punch alone) and 13:00 (a
  // clock ahead); in the last 24 hours: 08:00, 09:00 and yesterday's 13:00; neither: 11:00
  // yesterday.
  auto company = db::Open(config_->Paths().CompanyDatabase("acme"));
  for (const auto& [date_in, time_in, date_out, time_out] :
       std::vector<std::array<const char*, 4>>{{"2009-10-21", "08:00:00", nullptr, nullptr},
                                               {nullptr, nullptr, "2009-10-21", "09:00:00"},
                                               {"2009-10-21", "13:00:00", nullptr, nullptr},
                                               {"2009-10-20", "13:00:00", nullptr, nullptr},
                                               {"2009-10-20", "11:00:00", nullptr, nullptr}}) {
    company->Execute(
        "INSERT INTO [Clock Data Table] ([Card ID], [Punch Type], [Date In], [Time In], "
        "[Date Out], [Time Out]) VALUES (12, 'I', ?, ?, ?, ?)",
        {date_in ? db::Value(date_in) : db::Value(), time_in ? db::Value(time_in) : db::Value(),
         date_out ? db::Value(date_out) : db::Value(),
         time_out ? db::Value(time_out) : db::Value()});
  }
  // A T4 clock no company names yet is listed too.
  db::Open(config_->Paths().ClockwynDatabase())
      ->Execute("INSERT INTO T4Clocks (ClockName, Address) VALUES ('FINGER', '10.0.0.9')");
  AddOperator("victor", Role::kViewer);
  LoginAs("victor");
  auto res = Send("GET", "/api/v1/terminals");
  ASSERT_TRUE(res);
  ASSERT_EQ(res->status, 200) << res->body;
  EXPECT_EQ(res->get_header_value("Content-Type"), "application/json; charset=utf-8");
  // Offline: DOCK calls in and has been silent for four hours (more than the 60 minutes of a
  // hosted terminal); YARD was due daily and missed two days; FINGER was never heard from.
  const auto body = nlohmann::json::parse(res->body);
  EXPECT_EQ(body.at("time"), "2009-10-21 12:00:00");
  EXPECT_EQ(body.at("terminals"), nlohmann::json::parse(R"([
    {"name": "DOCK", "known_as": "clock of Acme", "company": "Acme", "family": "ZON / Tranz",
     "call_time": null, "connected": false, "last_contact": "2009-10-21 08:01:00",
     "last_event": "End of call: 4 punches", "last_failed": false, "overdue": false,
     "offline": true, "expected_interval_minutes": 60, "bad_input": null,
     "punches_waiting": null, "punches_today": 3, "punches_last_24h": 3},
    {"name": "GATE", "known_as": "poll list", "company": null, "family": "ZON / Tranz",
     "call_time": "06:00", "connected": false, "last_contact": "2009-10-21 06:01:00",
     "last_event": "Outbound Call Failed: no answer", "last_failed": true, "overdue": false,
     "offline": false, "expected_interval_minutes": 1500, "bad_input": null,
     "punches_waiting": null, "punches_today": null, "punches_last_24h": null},
    {"name": "YARD", "known_as": "poll list", "company": null, "family": "ZON / Tranz",
     "call_time": "07:00", "connected": false, "last_contact": "2009-10-19 07:00:00",
     "last_event": "End of call",
     "last_failed": false, "overdue": true, "offline": true, "expected_interval_minutes": 1500,
     "bad_input": null, "punches_waiting": null, "punches_today": null, "punches_last_24h": null},
    {"name": "FINGER", "known_as": "T4 clock", "company": null, "family": "Fingerprint",
     "call_time": null, "connected": false, "last_contact": null, "last_event": null,
     "last_failed": false,
     "overdue": false, "offline": true, "expected_interval_minutes": 60, "bad_input": null,
     "punches_waiting": null, "punches_today": null, "punches_last_24h": null}
  ])"));

  // One terminal, by its name in any case, with its calls newest first; an unknown name is a 404.
  log->Write(At(21, 9), "yard", 4, "Outbound Call Failed", "busy");
  res = Send("GET", "/api/v1/terminals/Yard");
  ASSERT_EQ(res->status, 200) << res->body;
  const auto yard = nlohmann::json::parse(res->body);
  EXPECT_EQ(yard.at("known_as"), "poll list");
  EXPECT_EQ(yard.at("recent_calls"), nlohmann::json::parse(R"([
    {"time": "2009-10-21 09:00:00", "type": "Outbound Call Failed", "description": "busy"},
    {"time": "2009-10-19 07:00:00", "type": "End of call", "description": ""}])"));
  res = Send("GET", "/api/v1/terminals/NOWHERE%27%20OR%201%3D1");
  EXPECT_EQ(res->status, 404);
  EXPECT_EQ(res->body, R"({"error":"No terminal of the site is named \"NOWHERE' OR 1=1\"."})");
}

// A clock name in the single-byte text of the terminals arrives as UTF-8.
TEST_F(ConsoleFixture, TerminalNamesAreSentAsUtf8) {
  shell::EventLog::Open(config_->Paths().EventLogDatabase())
      ->Write(At(21, 9), "CAF\xc9", 3, "End of call", "");
  AddOperator("victor", Role::kViewer);
  LoginAs("victor");
  auto res = Send("GET", "/api/v1/terminals");
  ASSERT_EQ(res->status, 200);
  EXPECT_EQ(nlohmann::json::parse(res->body).at("terminals").at(0).at("name"), "CAF\u00c9");
}

// A site whose registry is damaged answers 500 without the reason, which names the file; the
// event log keeps it, and the server goes on.
TEST_F(ConsoleFixture, AFailureIsA500AndAnEventNotACrash) {
  AddOperator("victor", Role::kViewer);
  LoginAs("victor");
  std::ofstream(config_->Paths().CompanyRegistryDatabase(), std::ios::trunc)
      << std::string(4096, 'x');
  auto res = Send("GET", "/api/v1/terminals");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 500);
  EXPECT_EQ(res->body, R"({"error":"The server failed; the event log says why."})");
  EXPECT_THAT(Events().back(),
              testing::StartsWith("System error: Console GET /api/v1/terminals: "));
  EXPECT_EQ(Send("GET", "/api/v1/session")->status, 200) << "still serving";
}

// How long a terminal that calls in may be silent: registry.ini [Console] OfflineAfterMinutes.
TEST(OfflineAfterMinutesTest, TheSettingItsDefaultAndItsRefusals) {
  for (const auto& [value, minutes, warned] :
       std::vector<std::tuple<std::string, std::optional<int>, bool>>{{"", 60, false},
                                                                      {"300", 300, false},
                                                                      {"0", std::nullopt, false},
                                                                      {"-5", 60, true},
                                                                      {"ten", 60, true}}) {
    shell::InstallInformation install;
    install.SetValue("Console", "OfflineAfterMinutes", value);
    std::string warning;
    EXPECT_EQ(shell::OfflineAfterMinutes(install, &warning), minutes) << value;
    EXPECT_EQ(!warning.empty(), warned) << value << ": " << warning;
  }
}

}  // namespace
}  // namespace clockcomm::web
