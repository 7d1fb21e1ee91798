// Micro-benchmarks of propagation::plus, the set sum under sum_wrap and
// sum_truncate: random words, arithmetic progressions, intervals, with `out` full
// (every sum needed) or a few values (the early exit). A plain loop over the
// members of one operand is timed beside it as the reference. All operands are
// built before the timed loops, and each loop cycles through 64 of them.
#include <benchmark/benchmark.h>

#include <bit>
#include <cstdint>
#include <random>
#include <vector>

#include "impl/propagation.h"

namespace {

using iset = zelk::small_model::iset;

struct operands {
  iset a, b, out;
};

enum shape { RANDOM = 0, STRIDED = 1, INTERVAL = 2 };

iset make_set(std::mt19937& rng, shape kind) {
  switch (kind) {
    case STRIDED: {
      const int stride = 2 + int(rng() % 6);
      const int first = int(rng() % unsigned(stride));
      iset s;
      for (int v = first; v <= 31; v += stride) s.insert(v);
      return s;
    }
    case INTERVAL: {
      const int lo = int(rng() % 24);
      return iset::clipped_range(lo, lo + int(rng() % 8));
    }
    default: return iset::from_bits(std::uint32_t(rng()));
  }
}

std::vector<operands> make_operands(shape kind, bool full_out) {
  std::mt19937 rng(4242);
  std::vector<operands> cases;
  while (cases.size() < 64) {
    operands c{make_set(rng, kind), make_set(rng, kind),
               full_out ? iset::full()
                        : iset::from_bits(std::uint32_t(rng()) & std::uint32_t(rng()) &
                                          std::uint32_t(rng()))};
    if (c.a.empty() || c.b.empty()) continue;
    cases.push_back(c);
  }
  return cases;
}

// range(0): the shape of the operands; range(1): 1 for a full out.
void BM_plus(benchmark::State& state) {
  const std::vector<operands> cases = make_operands(shape(state.range(0)), state.range(1) != 0);
  std::size_t i = 0;
  for (auto _ : state) {
    const operands& c = cases[i++ & 63];
    iset out = c.out;
    zelk::propagation::plus(c.a, c.b, out);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_plus)->ArgsProduct({{RANDOM, STRIDED, INTERVAL}, {0, 1}});

// The reference: b rotated by every member of a.
void BM_plus_member_loop(benchmark::State& state) {
  const std::vector<operands> cases = make_operands(shape(state.range(0)), state.range(1) != 0);
  std::size_t i = 0;
  for (auto _ : state) {
    const operands& c = cases[i++ & 63];
    std::uint32_t reached = 0;
    for (std::uint32_t rest = c.a.bits(); rest != 0; rest &= rest - 1)
      reached |= std::rotl(c.b.bits(), std::countr_zero(rest));
    iset out = c.out & iset::from_bits(reached);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_plus_member_loop)->ArgsProduct({{RANDOM, STRIDED, INTERVAL}, {0, 1}});

}  // namespace
