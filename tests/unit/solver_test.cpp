// The search loop and propagation scheduling: enumeration against brute force on
// the shared random models, fixpoints, value watches, limits, restarts, value
// saving, and no allocation in a steady search.
#include "impl/solver.h"

#include <gtest/gtest.h>

#include "impl/comparison_propagators.h"
#include "impl/neq_propagators.h"
#include "unit/random_model.h"
#include "unit/test_support.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "impl/clause_propagator.h"

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
[[gnu::noinline]] void* operator new[](std::size_t size) { return ::operator new(size); }
[[gnu::noinline]] void operator delete[](void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace zelk {

namespace {

using iset = small_model::iset;

// Watches one value of its only parameter and counts its activations.
class value_probe : public test_support::opaque_probe {
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

TEST(solver, trivial_models_are_answered_without_decisions) {
  solver none, empty;
  empty.add_var(iset::clipped_range(0, 3));
  empty.add_var(iset());
  std::ostringstream out;
  EXPECT_EQ(none.solve(&out), solver::SAT);
  EXPECT_EQ(empty.solve(&out), solver::UNSAT);
  EXPECT_EQ(empty.assignments(), 0u);
  // Unconstrained variables take their minima.
  solver s;
  s.add_var(iset(std::string("3:5")));
  s.add_var(iset(std::string("1,7")));
  s.add_var(iset::singleton(9));
  ASSERT_EQ(s.solve(&out), solver::SAT);
  for (unsigned int v = 0; v < 3; ++v)
    EXPECT_EQ(s.stack().domain(v), iset::singleton(std::vector<int>{3, 1, 9}[v])) << v;
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
      EXPECT_EQ(r, expected.empty() ? solver::UNSAT : solver::SAT_DONE) << "seed " << seed;
      EXPECT_EQ(s.solutions, expected) << "seed " << seed << " restart " << restart;
    }
  }
}

TEST(solver, propagation_reaches_the_arc_consistent_fixpoint_of_a_chain) {
  // x0 < x1 < x2 < x3 over 0..5: bounds filtering to a fixpoint leaves i..i+2.
  solver s;
  for (int i = 0; i < 4; ++i) s.add_var(iset::clipped_range(0, 5));
  for (unsigned int i = 0; i + 1 < 4; ++i)
    s.add_constraint(std::make_unique<difference_ge_propagator>(1)) << i + 1 << i;
  ASSERT_TRUE(solver_test_access::start(s));
  for (unsigned int i = 0; i < 4; ++i)
    EXPECT_EQ(s.stack().domain(i), iset::clipped_range(i, i + 2)) << i;
  // Narrowing the head propagates along the whole chain.
  solver_test_access::narrow(s, 0, iset::singleton(2));
  ASSERT_TRUE(solver_test_access::propagate(s));
  for (unsigned int i = 0; i < 4; ++i) EXPECT_EQ(s.stack().domain(i), iset::singleton(2 + i)) << i;
}

TEST(solver, value_watches_wake_only_when_the_watched_value_goes) {
  // Each narrowing list is propagated at once: several changes before the event
  // comes off the heap make one event, which still sees the value lost since the first.
  const auto activations = [](int value, std::initializer_list<const char*> narrowings) {
    solver s;
    s.add_var(iset::clipped_range(0, 7));
    int count = 0;
    s.add_constraint(std::make_unique<value_probe>(value, &count)) << 0u;
    EXPECT_TRUE(solver_test_access::start(s));
    count = 0;  // the first propagation runs it once
    for (const char* n : narrowings) solver_test_access::narrow(s, 0, iset(std::string(n)));
    EXPECT_TRUE(solver_test_access::propagate(s));
    return count;
  };
  EXPECT_EQ(activations(5, {"2:7"}), 0);
  EXPECT_EQ(activations(5, {"2:4,6:7"}), 1);
  EXPECT_EQ(activations(3, {"0:2,4:7", "0:2,4:6", "0,4:6"}), 1);
}

// Pigeons, pairwise different over one value fewer: unsatisfiable, found only by search.
static void pigeons(solver& s, unsigned int n) {
  for (unsigned int i = 0; i < n; ++i) s.add_var(iset::clipped_range(0, int(n) - 2));
  for (unsigned int i = 0; i < n; ++i)
    for (unsigned int j = i + 1; j < n; ++j)
      s.add_constraint(std::make_unique<neq_propagator>()) << i << j;
}

TEST(solver, backtrack_limit_zero_stops_at_the_first_conflict) {
  solver s, t;
  pigeons(s, 4);
  pigeons(t, 4);
  s.backtrack_limit = 0;
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::BACKTRACK_LIMIT);
  EXPECT_EQ(s.total_backtracks(), 1u);
  EXPECT_EQ(t.solve(&out), solver::UNSAT);
}

TEST(solver, restarts_follow_the_schedule_and_keep_the_answer) {
  for (unsigned int threshold : {2u, 0u}) {
    solver s;
    pigeons(s, 5);
    s.restart_threshold = threshold;
    std::ostringstream out;
    EXPECT_EQ(s.solve(&out), solver::UNSAT);
    EXPECT_EQ(s.restarts() > 0, threshold > 0) << threshold;
  }
}

TEST(solver, decisions_reuse_saved_values_by_thirds) {
  // Saved 10 with domain {0, 30}: 10 is not above (30 + 0) / 3, so 0.
  // Saved 10 with domain {1, 30}: (30 + 2) / 3 = 10, again the minimum.
  // Saved 25 with domain {1, 30}: above (1 + 60) / 3 = 20, so 30.
  for (auto [saved, text, expected] :
       {std::tuple<int, const char*, int>{10, "0,30", 0}, {10, "1,30", 1}, {25, "1,30", 30}}) {
    solver s;
    s.add_var(iset(std::string(text)) | iset::singleton(saved));
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
