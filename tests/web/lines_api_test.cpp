// The lines of `clockcomm serve` driven over the API, as an operator at the console would: Host,
// a simulated terminal calling in on a pty (seen live on /api/v1/screen and counted on
// /api/v1/lines and on its terminal), End, and Poll now answered by the terminal.
#include <gtest/gtest.h>
#include <httplib.h>

#include <future>
#include <nlohmann/json.hpp>

#include "comm/pty_pair.h"
#include "core/clock.h"
#include "sim/zon_terminal.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"
#include "web/screen_reader.h"
#include "web/serve_child.h"

namespace clockcomm::test {
namespace {

using std::chrono::seconds;

class LinesApiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* command : {"init", "company add Acme --clock DEMODATA --dir acme",
                                "poll-list add DEMODATA --terminal-id 01"}) {
      ASSERT_EQ(RunClockcomm(dir_.path(), command).exit_code, 0) << command;
    }
    ASSERT_EQ(
        RunClockcomm(dir_.path(), "user add olga --role operator", "olga-password\n").exit_code, 0);
    ASSERT_EQ(RunClockcomm(dir_.path(), "user add vera", "vera-password\n").exit_code, 0);
    serve_ = std::make_unique<ServeChild>(dir_.path(),
                                          std::vector<std::string>{"--port", pty_.SlavePath()});
    port_ = serve_->WaitForPort();
    ASSERT_GT(port_, 0) << serve_->Tail();
    client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
  }
  void TearDown() override {
    if (serve_) serve_->Stop();
  }

  ApiLogin Login(const std::string& name) { return LogIn(*client_, name, name + "-password"); }
  httplib::Result Press(const ApiLogin& who, const std::string& button,
                        const std::string& body = "") {
    return client_->Post("/api/v1/lines/" + button,
                         {{"Cookie", who.cookie}, {"X-CSRF-Token", who.csrf}}, body,
                         "application/json");
  }
  nlohmann::json Lines(const ApiLogin& who) {
    auto res = client_->Get("/api/v1/lines", {{"Cookie", who.cookie}});
    EXPECT_TRUE(res && res->status == 200);
    return nlohmann::json::parse(res->body);
  }

  TempDir dir_;
  comm::PtyPair pty_ = comm::PtyPair::Open();
  std::unique_ptr<comm::IConnection> line_ = pty_.TakeMaster();
  std::unique_ptr<ServeChild> serve_;
  int port_ = 0;
  std::unique_ptr<httplib::Client> client_;
};

TEST_F(LinesApiTest, HostACallEndAndPollNowFromTheConsole) {
  const ApiLogin olga = Login("olga");
  auto lines = Lines(olga);
  EXPECT_EQ(lines.at("controllable"), true);
  ASSERT_EQ(lines.at("lines").size(), 1u);
  EXPECT_EQ(lines.at("lines").at(0).at("id"), "main");
  EXPECT_EQ(lines.at("lines").at(0).at("mode"), "idle");

  web::ScreenReader screen(port_, {{"Cookie", olga.cookie}});
  auto res = Press(olga, "host");
  ASSERT_TRUE(res);
  ASSERT_EQ(res->status, 200) << res->body;
  EXPECT_EQ(nlohmann::json::parse(res->body).at("lines").at(0).at("mode"), "host");
  EXPECT_EQ(Press(olga, "host")->status, 409) << "already hosting";
  EXPECT_EQ(Press(olga, "poll")->status, 409) << "one run at a time";
  ASSERT_TRUE(screen.WaitFor("Waiting for next event")) << screen.Text() << serve_->Tail();

  const std::string today = core::SystemClock().Now().GetDate().Format("yymmdd");
  sim::TerminalConfig config;
  config.faults.corrupt_packet = 1;  // one packet refused and sent again: counted as bad input
  sim::ZonTerminal terminal(
      config, {"1,12,,,,,I," + today + ",0800,,,,1", "2,12,,,,,O," + today + ",1600,,,,1"});
  EXPECT_EQ(terminal.CallIn(*line_), sim::CallOutcome::kCompleted);
  ASSERT_TRUE(screen.WaitFor("Transfer for clock DEMODATA complete"))
      << screen.Text() << serve_->Tail();
  EXPECT_EQ(screen.ContentType(), "text/event-stream");
  EXPECT_NE(screen.Text().find("event: line\ndata: {\"line\":"), std::string::npos)
      << screen.Text();

  // The counters are updated once the call's rows are in, after its last screen line.
  nlohmann::json main;
  for (const auto until = Steady::now() + seconds(20); Steady::now() < until;) {
    main = Lines(olga).at("lines").at(0);
    if (main.at("calls") == 1) break;
    screen.WaitForNews(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(main.at("calls"), 1);
  EXPECT_EQ(main.at("good_calls"), 1);
  EXPECT_EQ(main.at("punches"), 2);
  EXPECT_EQ(main.at("bad_input").at("bad_block_check"), 1);
  EXPECT_EQ(main.at("in_call"), false);

  res = client_->Get("/api/v1/terminals/demodata", {{"Cookie", olga.cookie}});
  ASSERT_EQ(res->status, 200) << res->body;
  const auto dock = nlohmann::json::parse(res->body);
  EXPECT_EQ(dock.at("name"), "DEMODATA");
  EXPECT_EQ(dock.at("bad_input").at("bad_block_check"), 1);
  EXPECT_EQ(dock.at("offline"), false);
  const auto& calls = dock.at("recent_calls");
  EXPECT_TRUE(std::any_of(calls.begin(), calls.end(), [](const auto& e) {
    return e.at("type") == "End of call";
  })) << calls;

  res = Press(olga, "end");
  ASSERT_EQ(res->status, 200) << res->body;
  EXPECT_EQ(nlohmann::json::parse(res->body).at("lines").at(0).at("mode"), "idle");
  EXPECT_EQ(Press(olga, "end")->status, 409) << "nothing to end";

  // Poll now: the settings' line calls the poll list's location, and the terminal answers.
  sim::ZonTerminal polled(sim::TerminalConfig{}, {"3,12,,,,,I," + today + ",0900,,,,1"});
  auto answered = std::async(std::launch::async, [&] {
    return polled.AnswerPoll(*line_, sim::LineKind::kDirect, Steady::now() + seconds(20));
  });
  EXPECT_EQ(Press(olga, "poll", R"({"locations":[99]})")->status, 404);
  res = Press(olga, "poll", R"({"locations":[1]})");
  ASSERT_EQ(res->status, 200) << res->body;
  EXPECT_EQ(answered.get(), sim::CallOutcome::kCompleted) << serve_->Tail();
  ASSERT_TRUE(screen.WaitFor("Polling DEMODATA")) << screen.Text();

  // An operator's presses are in the event log under the operator's name.
  const std::string day = core::SystemClock().Now().GetDate().Format("yyyy-mm-dd");
  const auto log = RunClockcomm(dir_.path(), "log show --from " + day + " --to " + day);
  for (const char* pressed : {"Host by olga", "End by olga", "Poll now (locations 1) by olga"}) {
    EXPECT_NE(log.out.find(pressed), std::string::npos) << pressed << "\n" << log.out;
  }
  // The stream ends with the server.
  serve_->Signal(SIGTERM);
  EXPECT_TRUE(screen.WaitForEnd(seconds(10)));
}

// A viewer sees the lines but may not press a button; every refusal leaves the lines idle.
TEST_F(LinesApiTest, ButtonsRefusedToViewersAndBadRequests) {
  const ApiLogin vera = Login("vera");
  const ApiLogin olga = Login("olga");
  struct Case {
    const char* legend;
    ApiLogin who;
    bool csrf;
    std::string button, body;
    int status;
  };
  for (const Case& c : std::vector<Case>{
           {"viewer", vera, true, "host", "", 403},
           {"no session", {"", ""}, true, "end", "", 401},
           {"no CSRF token", olga, false, "host", "", 403},
           {"not JSON", olga, true, "poll", "locations=1", 400},
           {"not a list", olga, true, "poll", R"({"locations":"1"})", 400},
           {"injection", olga, true, "poll", R"({"locations":["1; DROP TABLE PollT"]})", 400},
           {"not an id", olga, true, "poll", R"({"locations":[0]})", 400},
       }) {
    httplib::Headers headers{{"Cookie", c.who.cookie}};
    if (c.csrf) headers.emplace("X-CSRF-Token", c.who.csrf);
    auto res = client_->Post("/api/v1/lines/" + c.button, headers, c.body, "application/json");
    ASSERT_TRUE(res) << c.legend;
    EXPECT_EQ(res->status, c.status) << c.legend << ": " << res->body;
    EXPECT_TRUE(nlohmann::json::parse(res->body).contains("error")) << c.legend;
  }
  EXPECT_EQ(Lines(vera).at("lines").at(0).at("mode"), "idle");
  EXPECT_EQ(RunClockcomm(dir_.path(), "poll-list list").out.find("DEMODATA") != std::string::npos,
            true);
}

}  // namespace
}  // namespace clockcomm::test
