// A program folder made by the built program's own `init`, with its web console served in this
// process on a free port of 127.0.0.1, and an HTTP client that talks to it.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "core/clock.h"
#include "shell/logs.h"
#include "shell/my_static.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"
#include "web/console_server.h"

namespace clockcomm::web {

class ConsoleFixture : public ::testing::Test {
 protected:
  // The site's calendar stands at 2009-10-21 12:00; steady time is real.
  ConsoleFixture() : clock_(*core::DateTime::FromParts(2009, 10, 21, 12, 0, 0)) {}

  void SetUp() override {
    ASSERT_EQ(test::RunClockcomm(dir_.path(), "init").exit_code, 0);
    config_ = shell::MyStatic::Load(dir_.path());
    logs_ = std::make_unique<shell::Logs>(config_->Paths(), clock_);
    console_ = std::make_unique<ConsoleServer>(*config_, clock_, *logs_);
    console_->Bind({"127.0.0.1", 0});
    thread_ = std::thread([this] { console_->Run(); });
    client_ = std::make_unique<httplib::Client>("127.0.0.1", console_->Port());
  }
  void TearDown() override {
    console_->Stop();
    thread_.join();
  }

  // An operator with the password "secret-<name>".
  void AddOperator(const std::string& name, Role role) {
    console_->Operators().Add(name, role, "secret-" + name);
  }
  httplib::Result Login(const std::string& name, const std::string& password) {
    return client_->Post("/api/v1/session",
                         nlohmann::json{{"name", name}, {"password", password}}.dump(),
                         "application/json");
  }
  // Logs in as name and keeps the session's cookie and CSRF token.
  void LoginAs(const std::string& name) {
    auto res = Login(name, "secret-" + name);
    ASSERT_TRUE(res);
    ASSERT_EQ(res->status, 200) << res->body;
    const std::string cookie = res->get_header_value("Set-Cookie");
    cookie_ = cookie.substr(0, cookie.find(';'));
    csrf_ = nlohmann::json::parse(res->body).at("csrf_token");
  }
  // A request with the session's cookie, and its CSRF token when with_csrf.
  httplib::Result Send(const std::string& method, const std::string& path, bool with_csrf = true) {
    httplib::Headers headers{{"Cookie", cookie_}};
    if (with_csrf) headers.emplace("X-CSRF-Token", csrf_);
    if (method == "GET") return client_->Get(path, headers);
    if (method == "DELETE") return client_->Delete(path, headers);
    return client_->Post(path, headers, "{}", "application/json");
  }
  // The event log's rows as "type: description", in order.
  std::vector<std::string> Events() {
    std::vector<std::string> rows;
    for (const auto& e :
         logs_->GetEventLog()->Entries(clock_.Now().GetDate(), clock_.Now().GetDate())) {
      rows.push_back(e.event_type + ": " + e.description);
    }
    return rows;
  }

  test::TempDir dir_;
  core::ManualWallClock clock_;
  std::unique_ptr<shell::MyStatic> config_;
  std::unique_ptr<shell::Logs> logs_;
  std::unique_ptr<ConsoleServer> console_;
  std::thread thread_;
  std::unique_ptr<httplib::Client> client_;
  std::string cookie_;
  std::string csrf_;
};

}  // namespace clockcomm::web
