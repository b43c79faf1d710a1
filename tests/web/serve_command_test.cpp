// `clockcomm serve --host` as an operator starts it: a simulated terminal calls in on a pty while
// the console serves, its punches show in the terminal list, and SIGTERM ends both.
#include <gtest/gtest.h>
#include <httplib.h>

#include <future>
#include <nlohmann/json.hpp>

#include "comm/pty_pair.h"
#include "core/clock.h"
#include "sim/zon_terminal.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"
#include "web/serve_child.h"

namespace clockcomm::test {
namespace {

TEST(ServeCommandTest, HostsTheLinesWhileTheConsoleShowsTheirCalls) {
  TempDir dir;
  for (const char* command : {"init", "company add Acme --clock DEMODATA --dir acme"}) {
    ASSERT_EQ(RunClockcomm(dir.path(), command).exit_code, 0) << command;
  }
  ASSERT_EQ(RunClockcomm(dir.path(), "user add desk", "desk-password\n").exit_code, 0);
  auto pty = comm::PtyPair::Open();
  auto line = pty.TakeMaster();
  ServeChild serve(dir.path(), {"--host", "--port", pty.SlavePath()});
  const int port = serve.WaitForPort();
  ASSERT_GT(port, 0) << serve.Tail();

  const std::string today = core::SystemClock().Now().GetDate().Format("yymmdd");
  sim::ZonTerminal terminal(sim::TerminalConfig{}, {"1,12,,,,,I," + today + ",0800,,,,1",
                                                    "2,12,,,,,O," + today + ",1600,,,,1"});
  EXPECT_EQ(terminal.CallIn(*line), sim::CallOutcome::kCompleted);
  // The rows go in after the terminal has its EOT; the screen says when.
  ASSERT_TRUE(Child::Pump({&serve}, Steady::now() + std::chrono::seconds(20), [&] {
    return serve.Find("Transfer for clock DEMODATA complete").has_value();
  })) << serve.Tail();

  httplib::Client client("127.0.0.1", port);
  const ApiLogin desk = LogIn(client, "desk", "desk-password");
  auto res = client.Get("/api/v1/terminals", {{"Cookie", desk.cookie}});
  ASSERT_TRUE(res);
  ASSERT_EQ(res->status, 200) << res->body;
  const auto dock = nlohmann::json::parse(res->body).at("terminals").at(0);
  EXPECT_EQ(dock.at("name"), "DEMODATA");
  EXPECT_EQ(dock.at("punches_today"), 2);
  EXPECT_FALSE(dock.at("last_contact").is_null());

  serve.Stop();
  EXPECT_TRUE(serve.Find("Console stopped")) << serve.Tail();
}

TEST(ServeCommandTest, RefusalsNameTheProblem) {
  TempDir dir;
  ASSERT_EQ(RunClockcomm(dir.path(), "init").exit_code, 0);
  httplib::Server taken;
  const int port = taken.bind_to_any_port("127.0.0.1");
  ASSERT_GT(port, 0);
  const std::string in_use = "127.0.0.1:" + std::to_string(port);
  for (const auto& [args, message] : std::vector<std::pair<std::string, std::string>>{
           {"serve --listen 127.0.0.1:http", "the port must be a number from 0 to 65535"},
           {"serve --listen " + in_use, "Cannot listen on " + in_use + ": "}}) {
    const auto result = RunClockcomm(dir.path(), args);
    EXPECT_EQ(result.exit_code, 1) << args;
    EXPECT_NE(result.err.find(message), std::string::npos) << args << ": " << result.err;
  }
  EXPECT_NE(RunClockcomm(dir.path() / "nowhere", "serve").err.find("init"), std::string::npos);
}

}  // namespace
}  // namespace clockcomm::test
