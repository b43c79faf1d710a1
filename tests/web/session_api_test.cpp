// Logging in and out over real HTTP, and every refusal a request can meet on the way.
#include <gmock/gmock.h>

#include "db/open.h"
#include "web/api_reply.h"
#include "web/console_fixture.h"
#include "web/login_limiter.h"

namespace clockcomm::web {
namespace {
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class SessionApiTest : public ConsoleFixture {
 protected:
  void SetUp() override {
    ConsoleFixture::SetUp();
    AddOperator("alice", Role::kAdministrator);
    AddOperator("victor", Role::kViewer);
  }
};

TEST_F(SessionApiTest, LoginGivesAStrictCookieAndTheTokenThatLogoutNeeds) {
  auto res = Login("alice", "secret-alice");
  ASSERT_TRUE(res);
  ASSERT_EQ(res->status, 200);
  const std::string cookie = res->get_header_value("Set-Cookie");
  EXPECT_THAT(cookie, testing::MatchesRegex("clockcomm_session=[0-9a-f]{64}; HttpOnly; "
                                            "SameSite=Strict; Path=/"));
  const auto body = nlohmann::json::parse(res->body);
  EXPECT_EQ(body.at("name"), "alice");
  EXPECT_EQ(body.at("role"), "administrator");
  cookie_ = cookie.substr(0, cookie.find(';'));
  csrf_ = body.at("csrf_token");
  EXPECT_EQ(csrf_.size(), 64u);

  res = Send("GET", "/api/v1/session", false);
  ASSERT_EQ(res->status, 200);
  EXPECT_EQ(nlohmann::json::parse(res->body).at("csrf_token"), csrf_);

  res = Send("DELETE", "/api/v1/session");
  ASSERT_EQ(res->status, 200) << res->body;
  EXPECT_THAT(res->get_header_value("Set-Cookie"), HasSubstr("Max-Age=0"));
  EXPECT_EQ(Send("GET", "/api/v1/session")->status, 401) << "the session is gone";
  EXPECT_THAT(Events(), ElementsAre("Operator login: alice (administrator) from 127.0.0.1",
                                    "Operator logout: alice from 127.0.0.1"));
}

// A wrong password and an unknown name get the same answer; the attempt is logged either way,
// and a name that tries to change the statement is only a name that does not exist.
TEST_F(SessionApiTest, WrongPasswordAndUnknownNameLookAlike) {
  const std::string refused = R"({"error":"Wrong name or password."})";
  for (const auto& [name, password] : std::vector<std::pair<std::string, std::string>>{
           {"alice", "secret-victor"},
           {"nobody", "secret-alice"},
           {"alice' OR '1'='1", "x' OR '1'='1"},
           {"alice\"; DROP TABLE [Operators]; --", "x"},
           {std::string(5000, 'a'), "x"}}) {
    auto res = Login(name, password);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 401) << name;
    EXPECT_EQ(res->body, refused) << name;
    EXPECT_FALSE(res->has_header("Set-Cookie"));
  }
  EXPECT_EQ(console_->Operators().List().size(), 2u) << "[Operators] is intact";
  EXPECT_EQ(Events().front(), "Operator login refused: alice from 127.0.0.1");
  EXPECT_EQ(Events()[2], "Operator login refused: alice' OR '1'='1 from 127.0.0.1");
}

TEST_F(SessionApiTest, BadLoginBodiesAreRefusedWithAReason) {
  struct Case {
    std::string body;
    std::string content_type;
    int status;
    std::string error;
  };
  const Case cases[] = {
      {R"({"name":"alice","password":"secret-alice")", "application/json", 400, "not valid JSON"},
      {R"(["alice","secret-alice"])", "application/json", 400, "must be a JSON object"},
      {R"({"password":"secret-alice"})", "application/json", 400, "\"name\" must be given"},
      {R"({"name":7,"password":"secret-alice"})", "application/json", 400, "\"name\" must be"},
      {R"({"name":"alice","password":null})", "application/json", 400, "\"password\" must be"},
      {"name=alice&password=secret-alice", "application/x-www-form-urlencoded", 415,
       "must be JSON"},
      {"{\"name\":\"al\xff\",\"password\":\"x\"}", "application/json", 400, "not valid JSON"},
      {std::string(30000, '[') + std::string(30000, ']'), "application/json", 400,
       "must be a JSON object"},
      {std::string(20000, '{'), "application/json", 400, "not valid JSON"},
  };
  for (const Case& c : cases) {
    auto res = client_->Post("/api/v1/session", c.body, c.content_type);
    ASSERT_TRUE(res) << c.body;
    EXPECT_EQ(res->status, c.status) << c.body;
    EXPECT_THAT(nlohmann::json::parse(res->body).at("error").get<std::string>(), HasSubstr(c.error))
        << c.body;
  }
  auto res =
      client_->Post("/api/v1/session", std::string(kMaxRequestBody + 1, ' '), "application/json");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 413);
  EXPECT_TRUE(Events().empty()) << "no login was tried";
}

// Each endpoint without a session, a change without the CSRF token or with another session's,
// a role too low, and a path that does not exist.
TEST_F(SessionApiTest, RequestsWithoutTheRightSessionAreRefused) {
  struct Case {
    std::string method, path;
    int status;
    std::string error;
  };
  const Case anonymous[] = {{"GET", "/api/v1/session", 401, "Log in first"},
                            {"DELETE", "/api/v1/session", 401, "Log in first"},
                            {"GET", "/api/v1/terminals", 401, "Log in first"},
                            {"GET", "/api/v1/operators", 401, "Log in first"},
                            {"GET", "/api/v1/nothing", 404, "No such endpoint: GET"},
                            {"POST", "/api/v2/session", 404, "No such endpoint: POST"}};
  for (const Case& c : anonymous) {
    auto res = Send(c.method, c.path);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status) << c.method << " " << c.path;
    EXPECT_THAT(nlohmann::json::parse(res->body).at("error").get<std::string>(),
                HasSubstr(c.error));
  }
  cookie_ = "clockcomm_session=" + std::string(64, '0');  // a guessed session
  EXPECT_EQ(Send("GET", "/api/v1/terminals")->status, 401);

  LoginAs("alice");
  const std::string alice_csrf = csrf_;
  LoginAs("victor");
  EXPECT_EQ(Send("GET", "/api/v1/terminals", false)->status, 200) << "reading needs no token";
  auto res = Send("DELETE", "/api/v1/session", false);
  EXPECT_EQ(res->status, 403);
  EXPECT_THAT(res->body, HasSubstr("X-CSRF-Token"));
  csrf_ = alice_csrf;  // a token of another session
  EXPECT_EQ(Send("DELETE", "/api/v1/session")->status, 403);
  res = Send("GET", "/api/v1/operators");
  EXPECT_EQ(res->status, 403);
  EXPECT_THAT(res->body, HasSubstr("needs the role administrator; victor is viewer"));
  EXPECT_EQ(Send("GET", "/api/v1/session", false)->status, 200) << "still logged in";

  LoginAs("alice");
  res = Send("GET", "/api/v1/operators");
  ASSERT_EQ(res->status, 200);
  EXPECT_EQ(nlohmann::json::parse(res->body).at("operators"),
            nlohmann::json::parse(R"([{"name":"alice","role":"administrator"},
                                      {"name":"victor","role":"viewer"}])"));
}

// The command line changes the operators under a running server (another process): a new
// password or a removal ends the operator's sessions at their next request.
TEST_F(SessionApiTest, ANewPasswordOrARemovalEndsTheSession) {
  LoginAs("victor");
  const std::string victor = cookie_;
  LoginAs("alice");
  console_->Operators().SetPassword("victor", "changed");
  console_->Operators().Remove("alice");
  for (const std::string& cookie : {victor, cookie_}) {
    cookie_ = cookie;
    auto res = Send("GET", "/api/v1/terminals");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 401) << cookie;
    EXPECT_THAT(res->body, HasSubstr("The session has ended"));
  }
}

// Five failures in a minute close the door for the name and the address, even to the right
// password, and say when to come back.
TEST_F(SessionApiTest, RepeatedFailuresAreRateLimited) {
  for (int i = 0; i < kMaxLoginFailures; ++i) EXPECT_EQ(Login("alice", "guess")->status, 401);
  for (const char* name : {"alice", "victor"}) {
    auto res = Login(name, std::string("secret-") + name);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 429) << name;
    const int retry = std::stoi(res->get_header_value("Retry-After"));
    EXPECT_GE(retry, 1);
    EXPECT_LE(retry, kLoginWindow.count());
    EXPECT_THAT(res->body, HasSubstr("Too many failed logins"));
  }
  EXPECT_EQ(Events().size(), static_cast<size_t>(kMaxLoginFailures)) << "429s are not logged";
}

}  // namespace
}  // namespace clockcomm::web
