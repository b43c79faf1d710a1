#include "t4/host/t4_clock_list.h"

#include <gtest/gtest.h>

#include "core/errors.h"
#include "db/open.h"
#include "db/schema.h"
#include "test_support/temp_dir.h"

namespace clockcomm::t4 {
namespace {

class T4ClockListTest : public ::testing::Test {
 protected:
  T4ClockListTest() : db_(db::Open(dir_.path() / db::kProductDatabaseFile, db::OpenMode::kCreate)) {
    db::CreateProductSchema(*db_);
  }
  static T4ClockEntry Clock(std::string name, std::string address = "10.0.0.9", int device = 1,
                            std::string transport = "tcp") {
    return {0, std::move(name), std::move(address), device, std::move(transport)};
  }

  test::TempDir dir_;
  std::unique_ptr<db::Database> db_;
  T4ClockList list_{*db_};
};

// Whatever a bad entry holds, it is refused naming the field, and nothing is stored.
TEST_F(T4ClockListTest, ABadEntryIsRefusedNamingItsField) {
  list_.Add(Clock("Lobby"));
  const std::pair<T4ClockEntry, const char*> bad[] = {
      {Clock(" "), "name"},
      {Clock("Lobby", "10.0.0.9:4370"), "address"},  // the same terminal as Lobby's
      {Clock("Dock", "10.0.0.9"), "address"},
      {Clock("Do\nck"), "name"},
      {Clock("Dock", ""), "address"},
      {Clock("Dock", "10.0.0.9:70000"), ""},
      {Clock("Dock", "10.0.0.20", 0), "device_number"},
      {Clock("Dock", "10.0.0.20", 256), "device_number"},
      {Clock("Dock", "10.0.0.20", 1, "serial"), "transport"},
  };
  for (const auto& [entry, field] : bad) {
    SCOPED_TRACE(entry.name + " " + entry.address);
    try {
      list_.Add(entry);
      ADD_FAILURE() << "accepted";
    } catch (const core::ArgumentException& e) {
      if (*field == '\0') continue;  // the connection's own port check
      EXPECT_EQ(e.ParamName(), field) << e.what();
    }
  }
  ASSERT_EQ(list_.ReadClocks().size(), 1u);
}

// A clock reads back as written and is found by its id or its name, the id telling apart clocks
// of one name; removing it takes its waiting tasks with it, not another's.
TEST_F(T4ClockListTest, ClocksAndTasksRoundTripAndGoTogether) {
  T4ClockEntry lobby = {0, "Lobby", "clock7.local:4371", 3, "udp", 1234};
  lobby.id = list_.Add(lobby);
  const int64_t dock = list_.Add(Clock("Dock"));
  const int64_t second_dock = list_.Add(Clock("DOCK", "10.0.0.10"));
  EXPECT_EQ(list_.Resolve("lobby"), lobby);
  EXPECT_EQ(list_.Resolve(std::to_string(second_dock)).address, "10.0.0.10");
  EXPECT_THROW(list_.Resolve("Dock"), core::ArgumentException);
  EXPECT_THROW(list_.Resolve("Yard"), core::ItemNotFoundException);

  list_.AddTask({0, lobby.id, kAddUser, "1042"});
  list_.AddTask({0, lobby.id, kLoadAllUsers, ""});
  list_.AddTask({0, dock, kReloadUser, "7"});
  EXPECT_THROW(list_.AddTask({0, dock, "Format Disk", ""}), core::ArgumentException);
  EXPECT_THROW(list_.AddTask({0, dock, kRemoveUser, ""}), core::ArgumentException);
  const auto tasks = list_.ReadTasks(lobby.id);
  ASSERT_EQ(tasks.size(), 2u);
  list_.RemoveTask(tasks[0].task_id);
  EXPECT_EQ(list_.ReadTasks(lobby.id).at(0).task, kLoadAllUsers);

  list_.Remove(lobby.id);
  EXPECT_THROW(list_.Resolve("Lobby"), core::ItemNotFoundException);
  EXPECT_EQ(db_->Query("SELECT COUNT(*) FROM ClockTasks").Field(0).AsInt(), 1);
  EXPECT_EQ(list_.ReadClocks().size(), 2u);
}

}  // namespace
}  // namespace clockcomm::t4
