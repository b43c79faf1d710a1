// Punches into a company database in batches, on SQLite and on a real PostgreSQL server: each once
// however batches overlap, however many programs write at once, wherever one dies.
#include "records/punch_batch.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <vector>

#include "db/open.h"
#include "db/schema.h"
#include "records/transfer_fixture.h"
#include "test_support/backends.h"
#include "test_support/kill_child.h"

namespace clockcomm::records {
namespace {
using namespace std::chrono_literals;
using test_support::D;
using test_support::RowsText;
using test_support::T;

// Punch n: dates three years apart in turn, so a batch's keys lie in distant minutes; every
// tenth a tips punch with an amount; one job number holds a tab and a backslash.
TcdRecord Punch(int n) {
  const bool tips = n % 10 == 0;
  return TcdRecord("9", n, 100 + n % 50, {}, n == 7 ? "A\tB\\C" : "J", "", "", tips ? "T" : "I",
                   D(2009, 10, 20).AddDays((n % 3) * 1100), T(n / 60 % 24, n % 60), {}, {},
                   tips ? std::optional<float>(12.3f) : std::nullopt, "");
}

// Puts the punches, batch by batch, one transaction each; returns the counts summed.
PunchBatch::Result Put(const std::string& location, const std::vector<int>& punches, int batch) {
  auto db = db::Open(location);
  PunchKeys keys(*db);
  TcdDbWriter writer(*db);
  PunchBatch pending(*db, keys, writer);
  PunchBatch::Result sum;
  const auto write = [&] {
    db::Transaction transaction(*db);
    const auto result = pending.Write();
    transaction.Commit();
    sum.written += result.written;
    sum.already_present += result.already_present;
  };
  for (int n : punches) {
    const TcdRecord punch = Punch(n);
    pending.Add(PunchKeys::KeyOf("Front", punch), punch);
    if (static_cast<int>(pending.Size()) == batch) write();
  }
  if (pending.Size() > 0) write();
  return sum;
}

std::vector<int> Range(int from, int to) {
  std::vector<int> v;
  for (int n = from; n <= to; ++n) v.push_back(n);
  return v;
}

class PunchBatchTest : public ::testing::TestWithParam<test::Backend> {
 protected:
  void SetUp() override {
    location_ = GetParam().empty(dir_);
    auto db = db::Open(location_, db::OpenMode::kCreate);
    db::CreateCompanySchema(*db);
    PunchKeys keys(*db);
  }
  // Rows, distinct punches, lowest and highest ID, and punch keys.
  std::string Summary() {
    auto db = db::Open(location_);
    return RowsText(*db,
                    "SELECT COUNT(*), COUNT(DISTINCT Punch), MIN(ID), MAX(ID), "
                    "(SELECT COUNT(*) FROM [Punch Keys]) FROM [Clock Data Table]")[0];
  }

  test::TempDir dir_;
  std::string location_;
};

// Batches that overlap each other and themselves: each punch once, the IDs one run from 1, the
// amount in its column, text exactly as it was; and the table numbers its next row after them.
TEST_P(PunchBatchTest, EachPunchOnceWithIdsInOneRun) {
  const auto first = Put(location_, Range(1, 30), 8);
  EXPECT_EQ(first.written, 30);
  std::vector<int> again = Range(20, 45);
  again.push_back(40);  // twice in one batch
  const auto second = Put(location_, again, 7);
  EXPECT_EQ(second.written, 15);
  EXPECT_EQ(second.already_present, 12);
  EXPECT_EQ(Summary(), "45|45|1|45|45");

  auto db = db::Open(location_);
  EXPECT_EQ(RowsText(*db,
                     "SELECT [Punch Type], Tips, Quantity, JobNumber, [Date In], [Time In] "
                     "FROM [Clock Data Table] WHERE Punch IN (7, 10) ORDER BY Punch"),
            (std::vector<std::string>{"I|-|-|A\tB\\C|2012-10-24|00:07:00",
                                      "T|12.3|-|J|2012-10-24|00:10:00"}));
  db->Execute("INSERT INTO [Clock Data Table] (Punch) VALUES (999)");
  EXPECT_EQ(db->Query("SELECT ID FROM [Clock Data Table] WHERE Punch = 999").Field(0).AsInt(), 46)
      << "the table's own numbering goes on after the reserved IDs";
}

// Two programs put overlapping punches into one database at the same moment: every punch once.
TEST_P(PunchBatchTest, TwoWritersAtOnceEachPunchOnce) {
  const auto writer = [&](int from, int to) {
    const pid_t pid = ::fork();
    if (pid == 0) {
      try {
        Put(location_, Range(from, to), 50);
        ::_exit(0);
      } catch (const std::exception& e) {
        std::fprintf(stderr, "writer %d-%d: %s\n", from, to, e.what());
        ::_exit(1);
      }
    }
    return pid;
  };
  const pid_t a = writer(1, 1500);
  const pid_t b = writer(501, 2000);
  for (pid_t pid : {a, b}) {
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  EXPECT_EQ(Summary(), "2000|2000|1|2000|2000");
}

// A writer killed at moments spread over its work, again and again: what it committed stays whole
// (each row with its key), and a last run puts in exactly what was missing.
TEST_P(PunchBatchTest, KilledAnywhereThenRunAgainEachPunchOnce) {
  const std::vector<int> punches = Range(1, 3000);
  int kills = 0;
  for (std::chrono::microseconds after = 300us; after < 2s; after = after * 3 / 2) {
    const int status = test::RunChildKilledAfter(
        [&] {
          Put(location_, punches, 200);
          return 0;
        },
        after);
    if (!WIFSIGNALED(status)) break;
    ++kills;
    auto db = db::Open(location_);
    const auto counts = db->Query(
                              "SELECT COUNT(*), (SELECT COUNT(*) FROM [Punch Keys] k JOIN [Clock "
                              "Data Table] c ON c.ID = k.ClockDataID) FROM [Clock Data Table]")
                            .Rows()[0];
    EXPECT_EQ(counts[0], counts[1]) << "a row without its key, or a key without its row";
  }
  EXPECT_GT(kills, 0);
  const auto last = Put(location_, punches, 200);
  EXPECT_EQ(last.written + last.already_present, 3000);
  EXPECT_EQ(Summary().substr(0, 10), "3000|3000|");
}

INSTANTIATE_TEST_SUITE_P(Backends, PunchBatchTest,
                         ::testing::Values(test::kSqlite, test::kPostgres), test::BackendName);

}  // namespace
}  // namespace clockcomm::records
