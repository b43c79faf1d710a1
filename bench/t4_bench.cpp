// The T4 duplicate filter: lookups per second against 10,000 badges of 100 punches each, beside
// the floor of such a lookup here (a hash find and a binary search over a sorted vector of the
// same size, with no bookkeeping).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <unordered_map>

#include "t4/duplicate_checker.h"

namespace clockcomm {
namespace {

constexpr int kBadges = 10'000;
constexpr int kPunchesPerBadge = 100;
const core::DateTime kStart(*core::Date::FromYmd(2024, 2, 1), core::TimeOfDay());

// A punch time of badge b: punches an hour apart, badges a second apart.
core::DateTime PunchTime(int badge, int punch) {
  return kStart.AddSeconds(int64_t{punch} * 3600 + badge % 60);
}

void BM_DuplicateCheckerLookup(benchmark::State& state) {
  t4::DuplicateChecker checker;
  for (int p = 0; p < kPunchesPerBadge; ++p) {
    for (int b = 0; b < kBadges; ++b) checker.FindDuplicate(b, PunchTime(b, p));
  }
  std::mt19937 random(7);
  std::uniform_int_distribution<int> badge(0, kBadges - 1), punch(0, kPunchesPerBadge - 1);
  int64_t duplicates = 0;
  for (auto _ : state) {
    // A punch the bulk read hands back again: found, and nothing is stored.
    const int b = badge(random);
    duplicates += checker.FindDuplicate(b, PunchTime(b, punch(random)).AddSeconds(5));
  }
  if (duplicates != state.iterations()) state.SkipWithError("a re-read punch was not found");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DuplicateCheckerLookup)->MinTime(1.0);

void BM_LimitHashAndBinarySearch(benchmark::State& state) {
  std::unordered_map<long, std::vector<int64_t>> times;
  for (int b = 0; b < kBadges; ++b) {
    for (int p = 0; p < kPunchesPerBadge; ++p) times[b].push_back(PunchTime(b, p).Seconds());
  }
  std::mt19937 random(7);
  std::uniform_int_distribution<int> badge(0, kBadges - 1), punch(0, kPunchesPerBadge - 1);
  for (auto _ : state) {
    const int b = badge(random);
    const auto& list = times.find(b)->second;
    benchmark::DoNotOptimize(
        std::lower_bound(list.begin(), list.end(), PunchTime(b, punch(random)).Seconds()));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LimitHashAndBinarySearch)->MinTime(1.0);

}  // namespace
}  // namespace clockcomm

BENCHMARK_MAIN();
