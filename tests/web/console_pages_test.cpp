// The console's pages as a browser gets them: without a session, byte for byte the files of
// src/web/console/, each with its type and the Content-Security-Policy.
#include "web/console_pages.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "web/console_fixture.h"

namespace clockcomm::web {
namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

using ConsolePagesTest = ConsoleFixture;

TEST_F(ConsolePagesTest, EveryFileIsServedAsItIsWithItsTypeAndPolicy) {
  const fs::path folder = fs::path(CLOCKCOMM_SOURCE_DIR) / "src/web/console";
  const std::map<std::string, std::string> types = {{".html", "text/html; charset=utf-8"},
                                                    {".css", "text/css; charset=utf-8"},
                                                    {".js", "text/javascript; charset=utf-8"},
                                                    {".svg", "image/svg+xml"}};
  int served = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    ASSERT_TRUE(types.count(entry.path().extension().string())) << "a file of no known type";
    auto res = client_->Get("/" + name);  // no session
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(res->get_header_value("Content-Type"), types.at(entry.path().extension().string()));
    EXPECT_EQ(res->get_header_value("Content-Security-Policy"), kConsoleContentSecurityPolicy);
    EXPECT_EQ(res->body, ReadFile(entry.path()));
    ++served;
  }
  EXPECT_GE(served, 4);

  auto root = client_->Get("/");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->body, ReadFile(folder / "index.html"));
  // The policy allows no inline script: every script of the page is a file of its own.
  const std::regex script(R"(<script([^>]*)>([^<]*)</script>)");
  for (std::sregex_iterator it(root->body.begin(), root->body.end(), script), end; it != end;
       ++it) {
    EXPECT_NE((*it)[1].str().find("src="), std::string::npos) << it->str();
    EXPECT_EQ((*it)[2].str(), "") << it->str();
  }
}

TEST_F(ConsolePagesTest, NamesNotOfTheConsoleAreNotFound) {
  for (const char* path : {"/index.htmlx", "/appXjs", "/../CMakeLists.txt", "/console/app.js",
                           "/%2e%2e/registry.ini"}) {
    auto res = client_->Get(path);
    ASSERT_TRUE(res) << path;
    EXPECT_EQ(res->status, 404) << path;
    EXPECT_EQ(res->get_header_value("Content-Security-Policy"), "") << path;
  }
}

}  // namespace
}  // namespace clockcomm::web
