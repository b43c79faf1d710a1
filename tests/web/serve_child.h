// `clockcomm serve` on a program folder as a child process, for the tests that drive the real
// program over HTTP: the port read from its banner, an operator's login, and its end by SIGTERM.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "test_support/child_process.h"

namespace clockcomm::test {

class ServeChild : public Child {
 public:
  // `clockcomm --home HOME serve --listen 127.0.0.1:0 ARGS...`
  ServeChild(const std::filesystem::path& home, const std::vector<std::string>& args)
      : Child(Argv(home, args)) {}

  // Waits up to 20 s for the banner; the port it names, or 0 when it never came.
  int WaitForPort() {
    const std::string banner = "Console and API on http://127.0.0.1:";
    if (!Pump({this}, Steady::now() + std::chrono::seconds(20),
              [&] { return Find(banner).has_value(); })) {
      return 0;
    }
    const std::string& text = Lines()[*Find(banner)].text;
    return std::stoi(text.substr(text.find(banner) + banner.size()));
  }

  // SIGTERM; the program must end with status 0 after printing all it has.
  void Stop() {
    Signal(SIGTERM);
    EXPECT_TRUE(Drain(Steady::now() + std::chrono::seconds(20))) << Tail();
    const int status = Wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << "\n" << Tail();
  }

 private:
  static std::vector<std::string> Argv(const std::filesystem::path& home,
                                       const std::vector<std::string>& args) {
    std::vector<std::string> argv{CLOCKCOMM_BINARY_DIR "/clockcomm",
                                  "--home",
                                  home.string(),
                                  "serve",
                                  "--listen",
                                  "127.0.0.1:0"};
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
  }
};

// An operator's session: the cookie to send, and the token every change must echo.
struct ApiLogin {
  std::string cookie, csrf;
};

// POST /api/v1/session; a failed login is a test failure and an empty session.
inline ApiLogin LogIn(httplib::Client& client, const std::string& name,
                      const std::string& password) {
  auto res =
      client.Post("/api/v1/session", nlohmann::json{{"name", name}, {"password", password}}.dump(),
                  "application/json");
  EXPECT_TRUE(res && res->status == 200) << name;
  if (!res || res->status != 200) return {};
  const std::string cookie = res->get_header_value("Set-Cookie");
  return {cookie.substr(0, cookie.find(';')), nlohmann::json::parse(res->body).at("csrf_token")};
}

}  // namespace clockcomm::test
