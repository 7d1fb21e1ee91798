// The search loop and propagation scheduling: enumeration against brute force on
// the shared random models, fixpoints, value watches, the event heap, limits,
// restarts, value saving, and no allocation in a steady search.
#include "impl/solver.h"

#include <gtest/gtest.h>

#include "impl/comparison_propagators.h"
#include "impl/neq_propagators.h"
#include "unit/random_model.h"
#include "unit/test_support.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <cstdlib>
#include <memory>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/small_iset.h"

// Counts calls of the system allocator while `g_counting` is set.
namespace {
bool g_counting = false;
unsigned long g_allocations = 0;
}  // namespace

// Out of line, so that the compiler does not pair the inlined free() with new.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (g_counting) ++g_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
[[gnu::noinline]] void* operator new[](std::size_t size) {
  if (g_counting) ++g_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete[](void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace zelk {

namespace {

using iset = small_model::iset;

// Watches one value of its only parameter and counts its activations.
class value_probe : public constraint_propagator {
 public:
  value_probe(int value, int* activations) : m_value(value), m_activations(activations) {}
  result_type init(constraint_runtime_info& info) override {
    info.allocate_value_watch(0, m_value);
    return VALID;
  }
  result_type propagate(constraint_runtime_info&) override {
    ++*m_activations;
    return CONSISTENT;
  }
  bool conflicts(const constraint_runtime_info&) const override { return false; }
  bool constraint_check(const constraint_runtime_info&) const override { return true; }
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<value_probe>(*this);
  }

 private:
  int m_value;
  int* m_activations;
};

// Records every solution that the enumeration prints.
class recording_solver : public solver {
 public:
  void print_solution(std::ostream&) const override {
    std::vector<int> values;
    for (unsigned int v = 0; v < num_variables(); ++v) {
      EXPECT_TRUE(stack().domain(v).is_singleton());
      values.push_back(stack().domain(v).min());
    }
    // A repeated solution means an exclusion clause was missed; stop the loop.
    if (!solutions.insert(values).second) throw std::runtime_error("solution repeated");
  }
  mutable std::set<std::vector<int>> solutions;
};

}  // namespace

TEST(solver, no_variables_is_sat_without_decisions) {
  solver s;
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::SAT);
  EXPECT_EQ(s.assignments(), 0u);
}

TEST(solver, empty_domain_is_unsat_without_search) {
  solver s;
  s.add_var(iset::clipped_range(0, 3));
  s.add_var(iset());
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::UNSAT);
  EXPECT_EQ(s.assignments(), 0u);
}

TEST(solver, unconstrained_variables_take_their_minima_with_the_solution_lines) {
  solver s;
  s.add_var(iset(std::string("3:5")), "x");
  s.add_var(iset(std::string("1,7")), "y");
  s.add_var(iset::singleton(9));
  std::ostringstream out;
  ASSERT_EQ(s.solve(&out), solver::SAT);
  s.print_solution(out);
  EXPECT_EQ(out.str(), "c x=3, y=1, V2=9, \nv 3 1 9 \n");
  EXPECT_EQ(s.assignments(), 2u);
}

TEST(solver, enumeration_counts_the_product_of_the_domain_sizes) {
  recording_solver s;
  s.add_var(iset(std::string("0:2")));
  s.add_var(iset(std::string("4,9")));
  s.add_var(iset(std::string("1:4")));
  s.all_solutions = true;
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::SAT_DONE);
  EXPECT_EQ(s.solutions.size(), 3u * 2u * 4u);
  // One exclusion clause per solution, besides what conflicts taught.
  EXPECT_GE(s.num_constraints(), 24u);
}

TEST(solver, enumeration_matches_brute_force_on_random_models) {
  for (unsigned int seed = 1; seed <= 300; ++seed) {
    const test_support::model m = test_support::random_model(seed, true);
    for (unsigned int restart : {16u, 0u, 1u}) {
      recording_solver s;
      m.build(s);
      s.all_solutions = true;
      s.restart_threshold = restart;
      const std::vector<std::vector<int>> all = m.solutions(s);
      const std::set<std::vector<int>> expected(all.begin(), all.end());
      std::ostringstream out;
      solver::result_type r = solver::SAT;
      ASSERT_NO_THROW(r = s.solve(&out)) << "seed " << seed << " restart " << restart;
      if (expected.empty()) {
        EXPECT_EQ(r, solver::UNSAT) << "seed " << seed;
      } else {
        EXPECT_EQ(r, solver::SAT_DONE) << "seed " << seed;
      }
      EXPECT_EQ(s.solutions, expected) << "seed " << seed << " restart " << restart;
    }
  }
}

TEST(solver, propagation_reaches_the_arc_consistent_fixpoint_of_a_chain) {
  // x0 < x1 < x2 < x3 over 0..5: bounds filtering to a fixpoint leaves i..i+2.
  solver s;
  for (int i = 0; i < 4; ++i) s.add_var(iset::clipped_range(0, 5));
  for (unsigned int i = 0; i + 1 < 4; ++i) s.add_constraint(std::make_unique<difference_ge_propagator>(1)) << i + 1 << i;
  ASSERT_TRUE(solver_test_access::start(s));
  for (unsigned int i = 0; i < 4; ++i)
    EXPECT_EQ(s.stack().domain(i), iset::clipped_range(i, i + 2)) << i;
  // Narrowing the head propagates along the whole chain.
  solver_test_access::narrow(s, 0, iset::singleton(2));
  ASSERT_TRUE(solver_test_access::propagate(s));
  for (unsigned int i = 0; i < 4; ++i) EXPECT_EQ(s.stack().domain(i), iset::singleton(2 + i)) << i;
}

TEST(solver, value_watches_wake_only_when_the_watched_value_goes) {
  solver s;
  s.add_var(iset::clipped_range(0, 7));
  int activations = 0;
  s.add_constraint(std::make_unique<value_probe>(5, &activations)) << 0u;
  ASSERT_TRUE(solver_test_access::start(s));
  const int after_start = activations;  // the first propagation runs it once
  solver_test_access::narrow(s, 0, iset(std::string("2:7")));
  ASSERT_TRUE(solver_test_access::propagate(s));
  EXPECT_EQ(activations, after_start);
  solver_test_access::narrow(s, 0, iset(std::string("2:4,6:7")));
  ASSERT_TRUE(solver_test_access::propagate(s));
  EXPECT_EQ(activations, after_start + 1);
  // Several changes before the event comes off the heap: one event, which still
  // sees the watched value lost since the first of them.
  solver s2;
  s2.add_var(iset::clipped_range(0, 7));
  int count2 = 0;
  s2.add_constraint(std::make_unique<value_probe>(3, &count2)) << 0u;
  ASSERT_TRUE(solver_test_access::start(s2));
  const int start2 = count2;
  solver_test_access::narrow(s2, 0, iset(std::string("0:2,4:7")));
  solver_test_access::narrow(s2, 0, iset(std::string("0:2,4:6")));
  solver_test_access::narrow(s2, 0, iset(std::string("0,4:6")));
  ASSERT_TRUE(solver_test_access::propagate(s2));
  EXPECT_EQ(count2, start2 + 1);
}

TEST(solver, event_heap_puts_collapsed_domains_first) {
  assignment_stack stack;
  for (int i = 0; i < 3; ++i) stack.add_var(iset::clipped_range(0, 9), nullptr, false);
  stack.set_var_domain(0, iset::clipped_range(0, 8), 2, -1);  // lost 1 of 10
  stack.set_var_domain(1, iset::singleton(4), 3, -1);         // collapsed
  stack.set_var_domain(2, iset::clipped_range(0, 4), 4, -1);  // lost half
  const solver::variable_event::comparator cmp(stack);
  const solver::variable_event e0{0, 10, 0}, e1{1, 10, 1}, e2{2, 10, 2};
  // cmp(a, b): b comes off before a.
  EXPECT_TRUE(cmp(e0, e1));
  EXPECT_TRUE(cmp(e2, e1));
  EXPECT_TRUE(cmp(e0, e2));
  EXPECT_FALSE(cmp(e1, e0));
  solver::event_heap_type heap{cmp};
  heap.push(e0);
  heap.push(e2);
  heap.push(e1);
  EXPECT_EQ(heap.top().variable, 1u);
  heap.pop();
  EXPECT_EQ(heap.top().variable, 2u);
}

TEST(solver, backtrack_limit_zero_stops_at_the_first_conflict) {
  // Four pairwise different variables over three values: unsatisfiable, found only by search.
  const auto build = [](solver& s) {
    for (int i = 0; i < 4; ++i) s.add_var(iset::clipped_range(0, 2));
    for (unsigned int i = 0; i < 4; ++i)
      for (unsigned int j = i + 1; j < 4; ++j) s.add_constraint(std::make_unique<neq_propagator>()) << i << j;
  };
  solver s, t;
  build(s);
  build(t);
  s.backtrack_limit = 0;
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::BACKTRACK_LIMIT);
  EXPECT_EQ(s.total_backtracks(), 1u);
  EXPECT_EQ(t.solve(&out), solver::UNSAT);
}

TEST(solver, restarts_follow_the_schedule_and_keep_the_answer) {
  // Pigeonhole 5 into 4 with != only: many backtracks, so restarts happen.
  recording_solver s;
  const unsigned int n = 5;
  for (unsigned int i = 0; i < n; ++i) s.add_var(iset::clipped_range(0, 3));
  for (unsigned int i = 0; i < n; ++i)
    for (unsigned int j = i + 1; j < n; ++j) s.add_constraint(std::make_unique<neq_propagator>()) << i << j;
  s.restart_threshold = 2;
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::UNSAT);
  EXPECT_GT(s.restarts(), 0u);
  recording_solver t;
  for (unsigned int i = 0; i < n; ++i) t.add_var(iset::clipped_range(0, 3));
  for (unsigned int i = 0; i < n; ++i)
    for (unsigned int j = i + 1; j < n; ++j) t.add_constraint(std::make_unique<neq_propagator>()) << i << j;
  t.restart_threshold = 0;
  EXPECT_EQ(t.solve(&out), solver::UNSAT);
  EXPECT_EQ(t.restarts(), 0u);
}

TEST(solver, decisions_reuse_saved_values_by_thirds) {
  // Saved 10 with domain {0, 30}: 10 is not above (30 + 0) / 3, so 0.
  // Saved 10 with domain {1, 30}: (30 + 2) / 3 = 10, again the minimum.
  // Saved 25 with domain {1, 30}: above (1 + 60) / 3 = 20, so 30.
  for (auto [saved, text, expected] :
       {std::tuple<int, const char*, int>{10, "0,30", 0}, {10, "1,30", 1}, {25, "1,30", 30}}) {
    solver s;
    iset initial{std::string(text)};
    initial.insert(saved);
    s.add_var(initial);
    s.add_var(iset::clipped_range(0, 1));
    ASSERT_TRUE(solver_test_access::start(s));
    solver_test_access::decide(s, 1);
    solver_test_access::narrow(s, 0, iset::singleton(saved));
    s.stack().undo_level(1);  // the value held at the undone level is saved
    ASSERT_TRUE(s.stack().previously_assigned_value(0).has_value);
    solver_test_access::narrow(s, 0, iset(std::string(text)));
    solver_test_access::decide(s, 0);
    EXPECT_EQ(s.stack().domain(0), iset::singleton(expected)) << saved << " " << text;
  }
}

TEST(solver, decisions_propagation_and_backtracks_allocate_nothing_in_the_steady_state) {
  // Clauses over booleans: "at least one of each row", "at most one per column".
  solver s;
  const unsigned int rows = 6, columns = 6;
  for (unsigned int i = 0; i < rows * columns; ++i) s.add_var(iset::clipped_range(0, 1));
  for (unsigned int r = 0; r < rows; ++r) {
    constraint_connectivity_info& info = s.add_constraint(
        std::make_unique<clause_propagator>(std::vector<iset>(columns, iset::singleton(1))));
    for (unsigned int c = 0; c < columns; ++c) info << r * columns + c;
  }
  for (unsigned int c = 0; c < columns; ++c)
    for (unsigned int r = 0; r < rows; ++r)
      for (unsigned int q = r + 1; q < rows; ++q)
        s.add_constraint(std::make_unique<clause_propagator>(
            std::initializer_list<iset>{iset::singleton(0), iset::singleton(0)}))
            << r * columns + c << q * columns + c;
  s.restart_threshold = 0;
  ASSERT_TRUE(solver_test_access::start(s));
  const auto round = [&] {
    for (unsigned int v = 0; v < rows * columns; v += columns + 1) {
      if (s.stack().domain(v).is_singleton()) continue;
      solver_test_access::decide(s, v);
      ASSERT_TRUE(solver_test_access::propagate(s));
    }
    ASSERT_EQ(solver_test_access::backtrack(s, 0), solver::SAT);
    ASSERT_TRUE(solver_test_access::propagate(s));
  };
  for (int i = 0; i < 20; ++i) round();  // reach the steady state
  g_allocations = 0;
  g_counting = true;
  for (int i = 0; i < 50; ++i) round();
  g_counting = false;
  EXPECT_EQ(g_allocations, 0u);
}

}  // namespace zelk
