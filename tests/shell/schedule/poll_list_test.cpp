#include "shell/schedule/poll_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "db/open.h"
#include "db/schema.h"
#include "schedule_test_support.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {

using testing::Hm;

class PollListTest : public ::testing::Test {
 protected:
  PollListTest() : db_(db::Open(dir_.path() / db::kProductDatabaseFile, db::OpenMode::kCreate)) {
    db::CreateProductSchema(*db_);
  }

  test::TempDir dir_;
  std::unique_ptr<db::Database> db_;
  PollList list_{*db_};
};

// A location's terminal type reads back; a number no type has reads as none (the settings'
// type). The older poll list gaining the column is the schema's test.
TEST_F(PollListTest, TheTerminalTypeReadsBackAndAnUnknownNumberAsNone) {
  PollRow ats = testing::Row(0, "Gate", std::nullopt);
  ats.terminal_type = terminal::TerminalType::kAtsCyberSeries;
  list_.Add(ats);
  db_->Execute("INSERT INTO PollT (LocationID, LocationName, TerminalType) VALUES (9, 'Odd', 42)");
  const auto rows = list_.ReadPollRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].terminal_type, terminal::TerminalType::kAtsCyberSeries);
  EXPECT_EQ(rows[1].terminal_type, std::nullopt);
}

// An hour and minute read back, removing and removing again are the poll-list command's.
TEST_F(PollListTest, AddStoresDialTimeAsTextAndRefusesABlankNameOrAnIdInUse) {
  list_.Add(testing::Row(0, "Office", Hm(6, 5, 9)));
  EXPECT_EQ(list_.Add(testing::Row(40, "Gate", std::nullopt, false)), 40);
  auto rows = list_.ReadPollRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].dial_time_text, "06:05:09");  // as stored
  EXPECT_EQ(rows[0].dial_time, Hm(6, 5, 9));
  EXPECT_FALSE(rows[1].select_to_dial);
  EXPECT_TRUE(db_->Query("SELECT DialTime FROM PollT WHERE LocationID = 40").Field(0).IsNull());
  EXPECT_THROW(list_.Add(testing::Row(40, "Gate again", Hm(9, 0))), core::ArgumentException);
  EXPECT_THROW(list_.Add(testing::Row(0, "  ", Hm(9, 0))), core::ArgumentException);
}

TEST_F(PollListTest, DialTimesWrittenByOtherProgramsAreReadLeniently) {
  struct Case {
    db::Value stored;
    std::optional<core::TimeOfDay> time;
    bool unreadable;
  } cases[] = {
      {db::Value(), std::nullopt, false},
      {db::Value("   "), std::nullopt, false},
      {db::Value("1899-12-30 08:30:00"), Hm(8, 30), false},  // a date/time column's zero date
      {db::Value("8:30 PM"), Hm(20, 30), false},
      {db::Value("25:99"), std::nullopt, true},
      {db::Value("later"), std::nullopt, true},
  };
  int64_t id = 100;
  for (const Case& c : cases) {
    db_->Execute("INSERT INTO PollT (LocationID, LocationName, DialTime) VALUES (?, 'x', ?)",
                 {++id, c.stored});
    auto row = list_.Find(id);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->dial_time, c.time) << c.stored.AsText();
    EXPECT_EQ(row->DialTimeUnreadable(), c.unreadable) << c.stored.AsText();
  }
}

TEST_F(PollListTest, ControlCharactersInWhatIsSentOrLoggedAreRefusedNamingTheField) {
  struct Row {
    const char* legend;
    std::string PollRow::*field;
    std::string value;
    const char* message;
  };
  const Row rows[] = {
      {"CR ends the dial command", &PollRow::location_phone, "555\rATH",
       "LocationPhone cannot hold control characters (0x0D at position 4)."},
      {"DEL", &PollRow::location_phone, "555\x7f", "LocationPhone cannot hold control"},
      {"ETX ends the header", &PollRow::terminal_id, "1\x03", "TerminalID cannot hold control"},
      {"NUL", &PollRow::terminal_id, std::string("1\0", 2), "TerminalID cannot hold control"},
      {"line feed forges a log line", &PollRow::location_name, "Dock\nGate",
       "LocationName cannot hold control"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.legend);
    PollRow poll = testing::Row(0, "Dock", Hm(9, 0));
    poll.*row.field = row.value;
    EXPECT_THAT([&] { list_.Add(poll); }, ::testing::ThrowsMessage<core::ArgumentException>(
                                              ::testing::StartsWith(row.message)));
  }
  EXPECT_TRUE(list_.ReadPollRows().empty());
  // Printable text of every kind stays storable: dial modifiers, Windows-1252 letters.
  PollRow ok = testing::Row(0, "M\xFCller 2", Hm(9, 0), true, "9,,555-0199#*W");
  ok.terminal_id = "T-7 ~";
  const int64_t id = list_.Add(ok);
  EXPECT_EQ(list_.Find(id)->location_phone, "9,,555-0199#*W");
}

}  // namespace
}  // namespace clockcomm::shell
