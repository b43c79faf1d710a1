// A machine's limit measured earlier in the same run (its best repetition), so that a figure is
// printed beside it and as a share of it.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>

namespace clockcomm::bench {

class Limit {
 public:
  void Record(double per_second) { best_ = std::max(best_, per_second); }
  // Adds the limit and the figure's share of it to the benchmark's counters.
  void Report(benchmark::State& state, double per_second) const {
    if (best_ <= 0) return;
    state.counters["limit_per_s"] = best_;
    state.counters["of_limit"] = per_second / best_;
  }

 private:
  double best_ = 0;
};

}  // namespace clockcomm::bench
