// `clockcomm serve` on a site of T4 terminals: its one line is the T4 host, driven over the API.
// Host collects a simulated terminal's punches into the company database once each, End stops
// it, Poll now polls the T4 clock list, and the terminals tell the punches their clocks still hold.
#include <gtest/gtest.h>
#include <httplib.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "core/clock.h"
#include "sim/t4_terminal_sim.h"
#include "t4/net/t4_time_code.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"
#include "web/screen_reader.h"
#include "web/serve_child.h"

namespace clockcomm::test {
namespace {

using std::chrono::seconds;

t4::net::T4Record Punch(int badge, int hour, int minute) {
  t4::net::T4Record record;
  record.user_id = std::to_string(badge);
  record.verify = 1;
  record.time = t4::net::EncodeTimeCode(core::DateTime(core::SystemClock().Now().GetDate(),
                                                       *core::TimeOfDay::FromHms(hour, minute, 0)));
  return record;
}

class T4LinesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // DEMODATA holds two punches in its log; SPARE, of no company, keeps its one.
    demodata_.Punch(Punch(12, 7, 55));
    demodata_.Punch(Punch(13, 7, 56));
    spare_.Punch(Punch(14, 7, 57));
    demodata_.Listen("127.0.0.1", 0);
    spare_.Listen("127.0.0.1", 0);
    for (const std::string& command : std::vector<std::string>{
             "init", "settings set terminal_type=2 connection_type=LAN",
             "company add Acme --clock DEMODATA --dir acme",
             "t4 clocks add DEMODATA --address 127.0.0.1:" + std::to_string(demodata_.Port()),
             "t4 clocks add SPARE --address 127.0.0.1:" + std::to_string(spare_.Port())}) {
      ASSERT_EQ(RunClockcomm(dir_.path(), command).exit_code, 0) << command;
    }
    ASSERT_EQ(
        RunClockcomm(dir_.path(), "user add olga --role operator", "olga-password\n").exit_code, 0);
    serve_ = std::make_unique<ServeChild>(dir_.path(), std::vector<std::string>{});
    port_ = serve_->WaitForPort();
    ASSERT_GT(port_, 0) << serve_->Tail();
    client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
    olga_ = LogIn(*client_, "olga", "olga-password");
    ASSERT_FALSE(olga_.cookie.empty());
  }
  void TearDown() override {
    if (serve_) serve_->Stop();
  }

  httplib::Result Press(const std::string& button, const std::string& body = "") {
    return client_->Post("/api/v1/lines/" + button,
                         {{"Cookie", olga_.cookie}, {"X-CSRF-Token", olga_.csrf}}, body,
                         "application/json");
  }
  nlohmann::json Get(const std::string& path) {
    auto res = client_->Get(path, {{"Cookie", olga_.cookie}});
    EXPECT_TRUE(res && res->status == 200) << path;
    return res ? nlohmann::json::parse(res->body) : nlohmann::json();
  }
  nlohmann::json T4Line() { return Get("/api/v1/lines").at("lines").at(0); }
  int64_t StoredRows() {
    const std::string day = core::SystemClock().Now().GetDate().Format("yyyy-mm-dd");
    return Get("/api/v1/punches?company=Acme&from=" + day + "&to=" + day).at("total");
  }
  // Waits, woken by the screen's news, until done holds or 20 s pass.
  bool Until(web::ScreenReader& screen, const std::function<bool()>& done) {
    for (const auto until = Steady::now() + seconds(20); Steady::now() < until;) {
      if (done()) return true;
      screen.WaitForNews(std::chrono::milliseconds(200));
    }
    return done();
  }

  core::SystemClock clock_;
  sim::T4TerminalSim demodata_{sim::T4SimConfig{}, clock_};
  sim::T4TerminalSim spare_{sim::T4SimConfig{}, clock_};
  TempDir dir_;
  std::unique_ptr<ServeChild> serve_;
  int port_ = 0;
  std::unique_ptr<httplib::Client> client_;
  ApiLogin olga_;
};

TEST_F(T4LinesTest, HostEndAndPollTheT4ClockList) {
  auto lines = Get("/api/v1/lines");
  EXPECT_EQ(lines.at("controllable"), true);
  ASSERT_EQ(lines.at("lines").size(), 1u);
  EXPECT_EQ(lines.at("lines").at(0).at("kind"), "t4");
  EXPECT_EQ(lines.at("lines").at(0).at("name"), "T4 host (2 clocks)");
  EXPECT_EQ(lines.at("lines").at(0).at("state"), "stopped");

  web::ScreenReader screen(port_, {{"Cookie", olga_.cookie}});
  auto res = Press("host");
  ASSERT_EQ(res->status, 200) << res->body;
  EXPECT_EQ(nlohmann::json::parse(res->body).at("lines").at(0).at("mode"), "host");
  EXPECT_EQ(Press("poll")->status, 409) << "one run at a time";
  // The log's punches are read, and one made meanwhile is pushed in real time.
  ASSERT_TRUE(Until(screen, [&] { return T4Line().at("punches") == 2; })) << serve_->Tail();
  EXPECT_EQ(T4Line().at("state"), "hosting");
  ASSERT_TRUE(demodata_.Punch(Punch(12, 12, 0)));
  ASSERT_TRUE(Until(screen, [&] { return T4Line().at("punches") == 3; })) << serve_->Tail();
  EXPECT_EQ(StoredRows(), 3);
  // Connected clocks are heard from now, though a T4 clock's events name no clock.
  int seen = 0;
  const auto hosting = Get("/api/v1/terminals");
  for (const auto& t : hosting.at("terminals")) {
    if (t.at("name") != "DEMODATA") continue;
    ++seen;
    EXPECT_EQ(t.at("connected"), true) << t;
    EXPECT_EQ(t.at("offline"), false) << t;
  }
  EXPECT_EQ(seen, 1) << hosting;

  res = Press("end");
  ASSERT_EQ(res->status, 200) << res->body;
  EXPECT_EQ(nlohmann::json::parse(res->body).at("lines").at(0).at("state"), "stopped");

  // Poll now: the punch made while no host listened is read from the log, the others not again.
  ASSERT_TRUE(demodata_.Punch(Punch(13, 16, 0)));
  res = Press("poll", R"({"locations":[1]})");
  EXPECT_EQ(res->status, 409);
  EXPECT_NE(res->body.find("every clock of the T4 clock list"), std::string::npos) << res->body;
  ASSERT_EQ(Press("poll")->status, 200);
  ASSERT_TRUE(Until(screen, [&] { return T4Line().at("mode") == "idle"; })) << serve_->Tail();
  EXPECT_EQ(T4Line().at("punches"), 4);
  EXPECT_EQ(StoredRows(), 4);
  EXPECT_EQ(demodata_.RecordCount(), 0u);

  // What each clock still holds: SPARE's punch has no company to go to.
  const auto terminals = Get("/api/v1/terminals");
  std::map<std::string, nlohmann::json> waiting;
  for (const auto& t : terminals.at("terminals")) {
    waiting[t.at("name").get<std::string>()] = t.at("punches_waiting");
  }
  EXPECT_EQ(waiting["DEMODATA"], 0) << terminals;
  EXPECT_EQ(waiting["SPARE"], 1) << terminals;
}

}  // namespace
}  // namespace clockcomm::test
