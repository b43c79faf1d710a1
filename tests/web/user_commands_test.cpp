// clockcomm user add|passwd|remove|list through the built binary, as an administrator types them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/clock.h"
#include "db/open.h"
#include "shell/event_log.h"
#include "shell/my_static.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"
#include "web/operator_store.h"

namespace clockcomm::web {
namespace {
using ::testing::HasSubstr;

TEST(UserCommandsTest, AddChangeRemoveAndTheirRefusals) {
  test::TempDir dir;
  ASSERT_EQ(test::RunClockcomm(dir.path(), "init").exit_code, 0);
  struct Step {
    std::string args, input;
    int exit_code;
    std::string message;  // on stdout when it succeeds, on stderr otherwise
  };
  const Step steps[] = {
      {"user add alice --role administrator", "first pass\nignored\n", 0,
       "Added operator alice (administrator)"},
      {"user add victor", "v-pass\r\n", 0, "Added operator victor (viewer)"},
      {"user add alice --role viewer", "x\n", 1, "Operator \"alice\" already exists."},
      {"user add bob --role root", "x\n", 1, "unknown role \"root\""},
      {"user add bob", "\n", 1, "is empty"},
      {"user add bob", "", 1, "is empty"},
      {"user add \"bob'; DROP TABLE [Operators]; --\"", "x\n", 1,
       "letters, digits, '.', '_', '-' and '@' only"},
      {"user add -- -bob", "x\n", 1, "starts with a letter or a digit"},
      {"user passwd carol", "x\n", 1, "No operator named \"carol\"."},
      {"user passwd alice", "second pass\n", 0, "Changed the password of alice"},
      {"user remove carol", "", 1, "No operator named \"carol\"."},
      {"user remove victor", "", 0, "Removed operator victor"},
      {"user list", "", 0, "Name\tRole\nalice\tadministrator\n"},
  };
  for (const Step& s : steps) {
    const auto result = test::RunClockcomm(dir.path(), s.args, s.input);
    EXPECT_EQ(result.exit_code, s.exit_code) << s.args << "\n" << result.err;
    EXPECT_THAT(s.exit_code == 0 ? result.out : result.err, HasSubstr(s.message)) << s.args;
  }

  const auto config = shell::MyStatic::Load(dir.path());
  auto db = db::Open(config->Paths().ClockwynDatabase());
  const std::string hash =
      db->Query("SELECT [Password Hash] FROM [Operators] WHERE [Name] = 'alice'").Field(0).AsText();
  EXPECT_EQ(hash.rfind("$argon2id$", 0), 0u) << hash;
  core::SystemClock clock;
  PasswordHasher hasher;
  OperatorStore operators(*db, hasher, clock);
  EXPECT_FALSE(operators.Authenticate("alice", "first pass"));
  EXPECT_TRUE(operators.Authenticate("alice", "second pass")) << "only the first line counts";
  EXPECT_FALSE(operators.Authenticate("victor", "v-pass"));

  std::vector<std::string> events;
  const auto today = clock.Now().GetDate();
  for (const auto& e :
       shell::EventLog::Open(config->Paths().EventLogDatabase())->Entries(today, today)) {
    events.push_back(e.event_type + ": " + e.description);
  }
  EXPECT_THAT(events,
              testing::ElementsAre("Operator added: alice (administrator) from the command line",
                                   "Operator added: victor (viewer) from the command line",
                                   "Operator password changed: alice from the command line",
                                   "Operator removed: victor from the command line"));
}

}  // namespace
}  // namespace clockcomm::web
