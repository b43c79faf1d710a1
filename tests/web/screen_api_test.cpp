// The live screen and the lines of a console that runs no lines, over real HTTP: the backlog and
// Last-Event-ID, the bound on open screens, a stop that does not wait for open screens, and the
// buttons refused with 409.
#include <gtest/gtest.h>

#include "web/console_fixture.h"
#include "web/lines_api.h"
#include "web/screen_reader.h"

namespace clockcomm::web {
namespace {

using std::chrono::seconds;

TEST_F(ConsoleFixture, ScreenSendsTheBacklogThenWhatIsNewResumesAfterLastEventIdAndEndsAtLogout) {
  AddOperator("victor", Role::kViewer);
  LoginAs("victor");
  for (int i = 1; i <= 205; ++i) console_->Screen().Line("line " + std::to_string(i));
  console_->Screen().Status("Waiting for next event, press End to Quit.");

  // A new screen: the last 200 lines (6 to 205), then the status.
  ScreenReader fresh(console_->Port(), {{"Cookie", cookie_}});
  ASSERT_TRUE(fresh.WaitFor("press End to Quit.")) << fresh.Text();
  const std::string text = fresh.Text();
  EXPECT_EQ(fresh.ContentType(), "text/event-stream");
  EXPECT_EQ(text.find("\"line 5\""), std::string::npos);
  EXPECT_EQ(text.find("id: 6\nevent: line\ndata: {\"line\":\"line 6\",\"seq\":6,"
                      "\"time\":\"2009-10-21 12:00:00\"}\n\n"),
            0u)
      << text;
  EXPECT_NE(text.find("event: status\ndata: {\"status\":\"Waiting for next event, press End to "
                      "Quit.\"}\n\n"),
            std::string::npos);

  // A reconnecting screen gets only what it has not seen; then the new lines as they come, text
  // of the terminals as UTF-8.
  ScreenReader resumed(console_->Port(), {{"Cookie", cookie_}, {"Last-Event-ID", "204"}});
  ASSERT_TRUE(resumed.WaitFor("\"line 205\""));
  console_->Screen().Line("CAF\xc9 called");
  ASSERT_TRUE(resumed.WaitFor("CAF\u00c9 called")) << resumed.Text();
  EXPECT_EQ(resumed.Text().find("\"line 204\""), std::string::npos);
  ASSERT_TRUE(fresh.WaitFor("CAF\u00c9 called"));

  // Logging out ends the screens that session opened.
  ASSERT_EQ(Send("DELETE", "/api/v1/session")->status, 200);
  EXPECT_TRUE(fresh.WaitForEnd(seconds(5)));
  EXPECT_TRUE(resumed.WaitForEnd(seconds(5)));
}

// Open screens are bounded, so that they never hold every request thread; and stopping the
// server ends them at once instead of waiting for them.
TEST_F(ConsoleFixture, OpenScreensAreBoundedAndEndWhenTheServerStops) {
  AddOperator("victor", Role::kViewer);
  LoginAs("victor");
  console_->Screen().Line("hello");
  std::vector<std::unique_ptr<ScreenReader>> open;
  for (int i = 0; i < kMaxScreenStreams; ++i) {
    open.push_back(
        std::make_unique<ScreenReader>(console_->Port(), httplib::Headers{{"Cookie", cookie_}}));
    ASSERT_TRUE(open.back()->WaitFor("hello"));
  }
  ScreenReader one_more(console_->Port(), {{"Cookie", cookie_}});
  ASSERT_TRUE(one_more.WaitForEnd(seconds(10)));
  EXPECT_EQ(one_more.Status(), 503);
  EXPECT_EQ(Send("GET", "/api/v1/session")->status, 200) << "requests are still answered";

  const auto before = std::chrono::steady_clock::now();
  console_->Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - before, seconds(3));
  for (auto& reader : open) EXPECT_TRUE(reader->WaitForEnd(seconds(5)));
}

// Without lines the console shows none, says it cannot drive them, and refuses the buttons; the
// gate comes first (no session, no token, a viewer).
TEST_F(ConsoleFixture, ButtonsOfAServerWithoutLines) {
  AddOperator("olga", Role::kOperator);
  AddOperator("victor", Role::kViewer);
  LoginAs("victor");
  auto res = Send("GET", "/api/v1/lines");
  ASSERT_EQ(res->status, 200);
  EXPECT_EQ(res->body, R"({"controllable":false,"lines":[]})");
  EXPECT_EQ(Send("POST", "/api/v1/lines/host")->status, 403);
  LoginAs("olga");
  EXPECT_EQ(Send("POST", "/api/v1/lines/end", false)->status, 403);
  for (const char* button : {"host", "poll", "end"}) {
    res = Send("POST", std::string("/api/v1/lines/") + button);
    EXPECT_EQ(res->status, 409) << button;
    EXPECT_NE(res->body.find("runs no lines"), std::string::npos) << res->body;
  }
  cookie_.clear();
  EXPECT_EQ(Send("GET", "/api/v1/screen")->status, 401);
}

}  // namespace
}  // namespace clockcomm::web
