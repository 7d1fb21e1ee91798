// Micro-benchmarks of clause propagation on stand-alone views: the wake-up whose
// watched values are all still there (the fast path), a watch that moves to
// another value of the same literal, and a watch that moves to another parameter.
// All clauses and views are built before the timed loops.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/constraint_explicit_info.h"

namespace {

using zelk::clause_propagator;
using zelk::constraint_explicit_info;
using zelk::propagation_types;
using iset = zelk::small_model::iset;

struct clause_case {
  std::unique_ptr<clause_propagator> clause;
  std::unique_ptr<constraint_explicit_info> view;
};

// Random clauses with two live watches; `count` of them, to cycle through.
std::vector<clause_case> make_live_clauses(unsigned int arity, unsigned int count) {
  std::mt19937 rng(12345);
  std::vector<clause_case> cases;
  while (cases.size() < count) {
    std::vector<iset> literals(arity);
    auto view = std::make_unique<constraint_explicit_info>(arity);
    for (unsigned int i = 0; i < arity; ++i) {
      literals[i] = iset::from_bits(std::uint32_t(rng()));
      view->domains()[i] = iset::from_bits(std::uint32_t(rng()) | 1u);
    }
    auto clause = std::make_unique<clause_propagator>(literals);
    if (clause->init(*view) == propagation_types::UNSAT) continue;
    if (clause->propagate(*view) != propagation_types::CONSISTENT) continue;
    cases.push_back({std::move(clause), std::move(view)});
  }
  return cases;
}

// Neither watched value is lost: the cost of a spurious or unrelated wake-up.
void BM_clause_propagate_watches_intact(benchmark::State& state) {
  const unsigned int arity = unsigned(state.range(0));
  std::vector<clause_case> cases = make_live_clauses(arity, 20);
  std::size_t i = 0;
  for (auto _ : state) {
    clause_case& c = cases[i];
    benchmark::DoNotOptimize(c.clause->propagate(*c.view));
    if (++i == cases.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_clause_propagate_watches_intact)->Arg(3)->Arg(8)->Arg(32);

// The watched value goes while its literal still holds other values: the watch
// moves on to the next value (release plus allocation of one watch).
void BM_clause_propagate_value_moves(benchmark::State& state) {
  const unsigned int arity = unsigned(state.range(0));
  clause_propagator clause(std::vector<iset>(arity, iset::full()));
  constraint_explicit_info view(arity);
  for (unsigned int i = 0; i < arity; ++i) view.domains()[i] = iset::full();
  // Only an unsatisfied clause moves its watches: leave one value out of each literal.
  std::vector<iset>& literals = clause.update_literals();
  for (iset& l : literals) l.erase(31);
  if (clause.init(view) == propagation_types::UNSAT) state.SkipWithError("init failed");
  for (auto _ : state) {
    const int value = clause.algo().watch(0).value;
    view.domains()[0].erase(value);
    const propagation_types::result_type r = clause.propagate(view);
    benchmark::DoNotOptimize(r);
    view.domains()[0].insert(value);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_clause_propagate_value_moves)->Arg(2)->Arg(8);

// The watched literal becomes false: the scan for a new parameter crosses the
// dead literals in between (every fourth literal is alive).
void BM_clause_propagate_parameter_moves(benchmark::State& state) {
  const unsigned int arity = unsigned(state.range(0));
  const iset live = iset::from_bits(0x3u);  // {0, 1}
  const iset dead = iset::from_bits(0x2u);  // {1}
  clause_propagator clause(std::vector<iset>(arity, iset::from_bits(0x1u)));  // each "= 0"
  constraint_explicit_info view(arity);
  for (unsigned int i = 0; i < arity; ++i) view.domains()[i] = i % 4 == 0 ? live : dead;
  if (clause.init(view) == propagation_types::UNSAT) state.SkipWithError("init failed");
  for (auto _ : state) {
    const unsigned int p = unsigned(clause.algo().watch(0).param);
    view.domains()[p] = dead;
    const propagation_types::result_type r = clause.propagate(view);
    benchmark::DoNotOptimize(r);
    view.domains()[p] = live;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_clause_propagate_parameter_moves)->Arg(16)->Arg(64)->Arg(256);

}  // namespace
