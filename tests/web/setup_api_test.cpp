// The poll list, the communications settings and the rule files over real HTTP: each area's
// changes, what they leave in PollT and the program folder, and what is refused.
#include <gmock/gmock.h>

#include <fstream>
#include <map>

#include "core/durable_file.h"
#include "db/open.h"
#include "shell/comm_settings.h"
#include "shell/schedule/poll_list.h"
#include "web/console_fixture.h"

namespace clockcomm::web {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

class SetupApiTest : public ConsoleFixture {
 protected:
  void SetUp() override {
    ConsoleFixture::SetUp();
    for (const auto& [name, role] : {std::pair{"victor", Role::kViewer},
                                     {"olga", Role::kOperator},
                                     {"ada", Role::kAdministrator}}) {
      AddOperator(name, role);
      LoginAs(name);
      sessions_[name] = {cookie_, csrf_};
    }
  }

  // A request as `who` ("" for no session), with its CSRF token when csrf.
  httplib::Result Call(const std::string& who, const std::string& method, const std::string& path,
                       const std::string& body = "", bool csrf = true) {
    httplib::Headers headers;
    if (!who.empty()) {
      headers.emplace("Cookie", sessions_.at(who).first);
      if (csrf) headers.emplace("X-CSRF-Token", sessions_.at(who).second);
    }
    if (method == "GET") return client_->Get(path, headers);
    if (method == "POST") return client_->Post(path, headers, body, "application/json");
    if (method == "PUT") return client_->Put(path, headers, body, "application/json");
    return client_->Delete(path, headers, body, "application/json");
  }
  // The answer's status and JSON body.
  std::pair<int, json> CallJson(const std::string& who, const std::string& method,
                                const std::string& path, const json& body = nullptr) {
    auto res = Call(who, method, path, body.is_null() ? "" : body.dump());
    if (!res) return {0, nullptr};
    return {res->status, json::parse(res->body, nullptr, false)};
  }
  std::vector<shell::PollRow> PollRows() {
    auto db = db::Open(config_->Paths().ClockwynDatabase());
    return shell::PollList(*db).ReadPollRows();
  }
  std::filesystem::path Home() const { return config_->Paths().ProgramDirectory(); }
  std::vector<std::string> EventsOf(const std::string& type) {
    std::vector<std::string> rows;
    for (const std::string& e : Events()) {
      if (e.rfind(type + ": ", 0) == 0) rows.push_back(e.substr(type.size() + 2));
    }
    return rows;
  }

  std::map<std::string, std::pair<std::string, std::string>> sessions_;  // cookie, CSRF token
};

TEST_F(SetupApiTest, PollListLocationsAreAddedChangedAndRemovedByAnOperator) {
  auto [status, body] =
      CallJson("olga", "POST", "/api/v1/poll-list",
               {{"name", "CAFÉ"}, {"address", "555-0100"}, {"call_time", "6:00"}});
  ASSERT_EQ(status, 201) << body;
  EXPECT_EQ(body, json::parse(R"({"id":1,"name":"CAFÉ","address":"555-0100","call_time":"06:00",
                                  "selected":true})"));
  std::tie(status, body) =
      CallJson("olga", "POST", "/api/v1/poll-list",
               {{"name", "YARD"}, {"call_time", nullptr}, {"selected", false}});
  ASSERT_EQ(status, 201) << body;
  // Stored single-byte, as the terminals and the timed cycle read it.
  ASSERT_EQ(PollRows().size(), 2u);
  EXPECT_EQ(PollRows()[0].location_name, "CAF\xc9");

  std::tie(status, body) = CallJson(
      "olga", "PUT", "/api/v1/poll-list/2",
      {{"name", "YARD 2"}, {"address", "10.0.0.7"}, {"call_time", "18:30"}, {"selected", true}});
  ASSERT_EQ(status, 200) << body;
  EXPECT_EQ(body, json::parse(R"({"id":2,"name":"YARD 2","address":"10.0.0.7",
                                  "call_time":"18:30","selected":true})"));
  std::tie(status, body) = CallJson("olga", "DELETE", "/api/v1/poll-list/1");
  ASSERT_EQ(status, 200) << body;
  EXPECT_EQ(body, json::parse(R"({"removed":1})"));

  std::tie(status, body) = CallJson("victor", "GET", "/api/v1/poll-list");
  ASSERT_EQ(status, 200);
  EXPECT_EQ(body, json::parse(R"({"locations":[{"id":2,"name":"YARD 2","address":"10.0.0.7",
                                  "call_time":"18:30","selected":true}]})"));
  EXPECT_THAT(EventsOf("Poll list changed"),
              ElementsAre("olga added location 1 \"CAF\xc9\" (555-0100, call time 06:00, selected)",
                          "olga added location 2 \"YARD\" (no address, call time none, not "
                          "selected)",
                          "olga changed location 2 \"YARD\" (no address, call time none, not "
                          "selected) to \"YARD 2\" (10.0.0.7, call time 18:30, selected)",
                          "olga removed location 1 \"CAF\xc9\" (555-0100, call time 06:00, "
                          "selected)"));
}

TEST_F(SetupApiTest, SettingsAreChangedWithTheSetupScreensChecks) {
  auto [status, body] = CallJson("victor", "GET", "/api/v1/settings");
  ASSERT_EQ(status, 200) << body;
  EXPECT_EQ(body.at("settings").at("terminal_count"), 1);
  EXPECT_EQ(body.at("summary"), "Communications set for: Comm Port 1, Serial");
  EXPECT_EQ(body.at("choices").at("terminal_type").at(6), json::parse(R"({"value":7,
                                                                  "name":"ATS E-Series"})"));

  std::tie(status, body) = CallJson("ada", "PUT", "/api/v1/settings",
                                    {{"settings",
                                      {{"comm_port", 2},
                                       {"connection_type", "Modem"},
                                       {"begin_time", "8:00"},
                                       {"end_time", "17:00"},
                                       {"modem_init", ""},
                                       {"lan_delay_ms", 2.5},
                                       {"auto_shutdown", true},
                                       {"program_folder", body["settings"]["program_folder"]}}}});
  ASSERT_EQ(status, 200) << body;
  EXPECT_EQ(body.at("summary"),
            "Communications set for: Comm Port 2, Modem, starting at 08:00, ending at 17:00.");
  shell::CommSettings saved = shell::ReadCommSettings(Home());
  EXPECT_EQ(saved.connection_type, comm::ConnectionType::kModem);
  EXPECT_EQ(saved.modem_init, shell::kDefaultModemInit);  // empty: the default string
  EXPECT_EQ(saved.lan_delay_ms, 2.5);
  EXPECT_TRUE(saved.auto_shutdown);
  EXPECT_EQ(body.at("settings"), CallJson("victor", "GET", "/api/v1/settings").second["settings"]);
  EXPECT_THAT(EventsOf("Settings changed"),
              ElementsAre("ada: comm_port 1 -> 2, connection_type 2 -> 1, begin_time NONE -> "
                          "08:00, end_time NONE -> 17:00, lan_delay_ms 0 -> 2.5, auto_shutdown "
                          "false -> true"));
}

// Each rule file saved whole when its reader takes every line, and refused, naming the first bad
// line, when it would leave one out or read it otherwise.
TEST_F(SetupApiTest, RuleFilesAreSavedOnlyWhenTheirReaderTakesEveryLine) {
  struct Case {
    const char* name;
    const char* good;
    const char* bad;
    int bad_line;
    const char* error;
  };
  const Case cases[] = {
      {"SettingsOverride.txt", "; the site's\r\nAssignHomeDept = yes\r\neotquantity = 3\r\n",
       "eotquantity = 3\nserialportrate = 99\n", 2,
       "SettingsOverride.txt line 2: serialportrate = \"99\" is not from 300 to 19200; the "
       "default 9600 is used"},
      {"PunchTypeRules.txt", "1 = I\n2 = LO\n7 = to\n", "1 = I\n\nlunch\n", 3,
       "PunchTypeRules.txt line 3: 'lunch' is not work code = punch type"},
      {"ClockAssignments.txt", "Front, dept=wc:1-2 ; the gate\nBack, precision=true\n",
       "Front, dept=x\n", 1,
       "ClockAssignments.txt line 1: dept: 'x' is not a whole number from 0 to 999999999; the "
       "line is ignored"},
  };
  auto [status, body] = CallJson("victor", "GET", "/api/v1/rule-files");
  ASSERT_EQ(status, 200);
  EXPECT_EQ(body, json::parse(R"({"files":[{"name":"SettingsOverride.txt","exists":false},
      {"name":"PunchTypeRules.txt","exists":false},{"name":"ClockAssignments.txt","exists":false}]})"));
  for (const Case& c : cases) {
    const std::string path = std::string("/api/v1/rule-files/") + c.name;
    std::tie(status, body) = CallJson("ada", "PUT", path, {{"text", c.good}});
    EXPECT_EQ(status, 200) << c.name << ": " << body;
    EXPECT_EQ(core::ReadWholeFile(Home() / c.name), c.good);
    std::tie(status, body) = CallJson("ada", "PUT", path, {{"text", c.bad}});
    EXPECT_EQ(status, 400) << c.name;
    EXPECT_EQ(body.value("error", ""), c.error);
    EXPECT_EQ(body.value("line", 0), c.bad_line) << c.name;
    EXPECT_EQ(core::ReadWholeFile(Home() / c.name), c.good) << "unchanged";
    std::tie(status, body) = CallJson("victor", "GET", path);
    EXPECT_EQ(body, json({{"name", c.name}, {"exists", true}, {"text", c.good}}));
  }
  EXPECT_THAT(EventsOf("Rule file saved"), ElementsAre("ada: SettingsOverride.txt (3 lines)",
                                                       "ada: PunchTypeRules.txt (3 lines)",
                                                       "ada: ClockAssignments.txt (2 lines)"));
}

// Every refusal: no session, no CSRF token, a role too low, bad input and injection attempts.
// None of them changes the poll list, the parameter file or a rule file, or writes a change event.
TEST_F(SetupApiTest, RefusalsChangeNothing) {
  ASSERT_EQ(CallJson("olga", "POST", "/api/v1/poll-list", {{"name", "GATE"}}).first, 201);
  const auto rows = PollRows();
  const std::string settings = core::ReadWholeFile(shell::ParameterFilePath(Home()));
  const size_t events = Events().size();

  struct Case {
    const char* who;
    bool csrf;
    const char* method;
    const char* path;
    const char* body;
    int status;
    const char* error;
  };
  const Case cases[] = {
      {"", true, "GET", "/api/v1/poll-list", "", 401, "Log in first"},
      {"", true, "GET", "/api/v1/settings", "", 401, "Log in first"},
      {"", true, "GET", "/api/v1/rule-files/PunchTypeRules.txt", "", 401, "Log in first"},
      {"olga", false, "POST", "/api/v1/poll-list", R"({"name":"X"})", 403, "X-CSRF-Token"},
      {"olga", false, "DELETE", "/api/v1/poll-list/1", "", 403, "X-CSRF-Token"},
      {"ada", false, "PUT", "/api/v1/settings", R"({"settings":{}})", 403, "X-CSRF-Token"},
      {"ada", false, "PUT", "/api/v1/rule-files/PunchTypeRules.txt", R"({"text":""})", 403,
       "X-CSRF-Token"},
      {"victor", true, "POST", "/api/v1/poll-list", R"({"name":"X"})", 403, "role operator"},
      {"victor", true, "PUT", "/api/v1/poll-list/1",
       R"({"name":"X","address":"","call_time":null,"selected":true})", 403, "role operator"},
      {"victor", true, "DELETE", "/api/v1/poll-list/1", "", 403, "role operator"},
      {"olga", true, "PUT", "/api/v1/settings", R"({"settings":{"comm_port":2}})", 403,
       "role administrator"},
      {"olga", true, "PUT", "/api/v1/rule-files/PunchTypeRules.txt", R"({"text":""})", 403,
       "role administrator"},
      // Bad input.
      {"olga", true, "POST", "/api/v1/poll-list", R"({"address":"1"})", 400, "\"name\" must be"},
      {"olga", true, "POST", "/api/v1/poll-list", R"({"name":"  "})", 400,
       "LocationName cannot be empty."},
      {"olga", true, "POST", "/api/v1/poll-list", R"({"name":"X","call_time":"25:00"})", 400,
       "\"call_time\" \"25:00\" is not a time of day (HH:MM)."},
      {"olga", true, "POST", "/api/v1/poll-list", R"({"name":"X","call_time":"2009-10-21"})", 400,
       "is not a time of day"},
      {"olga", true, "POST", "/api/v1/poll-list", R"({"name":"X","selected":"yes"})", 400,
       "\"selected\" must be true or false."},
      {"olga", true, "POST", "/api/v1/poll-list", R"({"name":"\u2603"})", 400,
       "\"name\" holds a character that cannot be stored"},
      {"olga", true, "PUT", "/api/v1/poll-list/1", R"({"name":"X"})", 400, "\"address\" must be"},
      {"olga", true, "PUT", "/api/v1/poll-list/9",
       R"({"name":"X","address":"","call_time":null,"selected":true})", 404, "no LocationID 9"},
      {"olga", true, "PUT", "/api/v1/poll-list/99999999999999999999",
       R"({"name":"X","address":"","call_time":null,"selected":true})", 404, "no LocationID"},
      {"olga", true, "DELETE", "/api/v1/poll-list/9", "", 404, "no LocationID 9"},
      {"ada", true, "PUT", "/api/v1/settings",
       R"({"settings":{"comm_port":2,"terminal_count":97}})", 400,
       "Please enter a value between 1 and 96 for Terminal Count"},
      {"ada", true, "PUT", "/api/v1/settings", R"({"settings":{"export_format":"CSV"}})", 400,
       "Invalid value \"CSV\" for export_format"},
      {"ada", true, "PUT", "/api/v1/settings", R"({"settings":{"baud":9600}})", 400,
       "Unknown setting \"baud\""},
      {"ada", true, "PUT", "/api/v1/settings", R"({"settings":{"comm_port":[2]}})", 400,
       "must be a string, a number or true/false"},
      {"ada", true, "PUT", "/api/v1/settings", R"({"comm_port":2})", 400, "\"settings\" must be"},
      {"ada", true, "PUT", "/api/v1/rule-files/PunchTypeRules.txt", R"({"text":"1 = \u2603"})", 400,
       "\"text\" holds a character that cannot be stored"},
      {"ada", true, "PUT", "/api/v1/rule-files/PunchTypeRules.txt", R"({"text":7})", 400,
       "\"text\" must be given as a string."},
      // Injection: SQL in a name is stored as text (below), a line break cannot reach the dial
      // command, a quote cannot end a field of the parameter file, and no path reaches a file.
      {"olga", true, "POST", "/api/v1/poll-list", R"({"name":"X","address":"555\r\nATH0"})", 400,
       "LocationPhone cannot hold control characters"},
      {"olga", true, "POST", "/api/v1/poll-list",
       R"({"name":"X","call_time":"06:00'); DELETE FROM PollT; --"})", 400, "is not a time of day"},
      {"ada", true, "PUT", "/api/v1/settings", R"({"settings":{"modem_init":"ATZ\",\"9"}})", 400,
       "expected text without double quotes or line breaks"},
      {"ada", true, "PUT", "/api/v1/settings", R"({"settings":{"begin_time":"08:00,1"}})", 400,
       "Invalid value \"08:00,1\" for begin_time"},
      {"ada", true, "PUT", "/api/v1/settings", R"({"settings":{"program_folder":"/etc"}})", 400,
       "program_folder is the folder of the parameter file"},
      {"ada", true, "PUT", "/api/v1/rule-files/registry.ini", R"({"text":""})", 404,
       "No rule file \"registry.ini\""},
      {"ada", true, "PUT", "/api/v1/rule-files/..%2Fclockcomm.dta", R"({"text":""})", 404, ""},
      {"victor", true, "GET", "/api/v1/rule-files/punchtyperules.txt", "", 404, "No rule file"},
  };
  for (const Case& c : cases) {
    const std::string legend = std::string(c.who) + " " + c.method + " " + c.path + " " + c.body;
    auto res = Call(c.who, c.method, c.path, c.body, c.csrf);
    ASSERT_TRUE(res) << legend;
    EXPECT_EQ(res->status, c.status) << legend << ": " << res->body;
    const auto body = json::parse(res->body, nullptr, false);
    ASSERT_TRUE(body.is_object()) << legend;
    EXPECT_THAT(body.value("error", ""), HasSubstr(c.error)) << legend;
  }
  EXPECT_EQ(PollRows().size(), rows.size());
  EXPECT_EQ(PollRows()[0].location_name, "GATE");
  EXPECT_EQ(core::ReadWholeFile(shell::ParameterFilePath(Home())), settings);
  for (const char* file : {"SettingsOverride.txt", "PunchTypeRules.txt", "ClockAssignments.txt"}) {
    EXPECT_FALSE(std::filesystem::exists(Home() / file)) << file;
  }
  EXPECT_EQ(Events().size(), events) << "no change was logged";

  // SQL in a name is a name.
  const std::string name = "GATE'); DROP TABLE PollT; --";
  auto [status, body] = CallJson("olga", "POST", "/api/v1/poll-list", {{"name", name}});
  ASSERT_EQ(status, 201) << body;
  ASSERT_EQ(PollRows().size(), 2u);
  EXPECT_EQ(PollRows()[1].location_name, name);
}

}  // namespace
}  // namespace clockcomm::web
