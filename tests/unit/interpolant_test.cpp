// Craig interpolants of random unsatisfiable models split into two parts A and B,
// each checked by enumeration of every assignment: A implies the interpolant, the
// interpolant contradicts B, and its value does not depend on any variable that
// the two parts don't share. Then the edge cases: one part alone, no proof, no
// refutation, and learned constraints that the refutation did not derive.
#include "impl/proof_interpolant_visitor.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "impl/formula.h"
#include "unit/random_model.h"
#include "unit/test_support.h"

namespace zelk {
namespace {

using namespace test_support;

#if defined(__SANITIZE_ADDRESS__)
constexpr unsigned int SEEDS = 60;  // a sanitizer build runs many times slower
#else
constexpr unsigned int SEEDS = 500;
#endif

// Which part each item of the model is in: 1 for A, 2 for B.
std::vector<solver::label_type> random_split(const model& m, unsigned int seed) {
  std::srand(seed * 7919u);
  std::vector<solver::label_type> parts(m.items.size());
  const int mode = std::rand() % 10;
  for (solver::label_type& p : parts)
    p = mode == 0 ? 1 : mode == 1 ? 2 : solver::label_type(1 + std::rand() % 2);
  return parts;
}

void build_labelled(const model& m, const std::vector<solver::label_type>& parts, solver& s) {
  m.build(s);
  for (unsigned int c = 0; c < parts.size(); ++c) s.constraint_labels(c, parts[c]);
  s.should_intersect_with_ground = false;
  s.produce_proof(true);
  s.validate_unsat = true;
}

struct outcome {
  unsigned int unsat = 0;
  unsigned int constant = 0;  // interpolants true or false
};

// Checks by enumeration that `interpolant` is one between the parts of `m` built in `s`.
void verify(const model& m, const std::vector<solver::label_type>& parts, const solver& s,
            const formula& interpolant, const std::string& what) {
  const unsigned int n = unsigned(m.domains.size());
  std::vector<bool> in_a(n, false), in_b(n, false);
  for (unsigned int c = 0; c < parts.size(); ++c)
    for (unsigned int v : m.items[c].vars) (parts[c] == 1 ? in_a : in_b)[v] = true;
  // Values are read through a second solver whose domains are the assignment.
  solver fixed;
  for (unsigned int v = 0; v < n; ++v) fixed.add_var(iset::singleton(m.domains[v].min()));
  const auto value_at = [&](const std::vector<int>& values) {
    for (unsigned int v = 0; v < n; ++v) fixed.set_var_domain(v, iset::singleton(values[v]), -1);
    return interpolant.evaluate(fixed);
  };
  std::ostringstream shown;
  interpolant.print(shown, s.stack().print_strategy());

  std::vector<int> values(n);
  std::function<void(unsigned int)> rec = [&](unsigned int i) {
    if (testing::Test::HasFatalFailure()) return;
    if (i < n) {
      for (int v : m.domains[i]) {
        values[i] = v;
        rec(i + 1);
      }
      return;
    }
    bool a = true, b = true;
    for (unsigned int c = 0; c < parts.size(); ++c)
      if (!model::holds(s, c, values)) (parts[c] == 1 ? a : b) = false;
    const bool value = value_at(values);
    ASSERT_FALSE(a && !value) << what << ": a model of A falsifies " << shown.str();
    ASSERT_FALSE(b && value) << what << ": a model of B satisfies " << shown.str();
    for (unsigned int v = 0; v < n; ++v) {
      if (in_a[v] && in_b[v]) continue;
      const int saved = values[v];
      for (int other : m.domains[v]) {
        values[v] = other;
        const bool changed = value_at(values) != value;
        values[v] = saved;
        ASSERT_FALSE(changed) << what << ": " << shown.str() << " depends on variable " << v
                              << ", which A and B do not share";
      }
    }
  };
  rec(0);
}

// Solves the labelled model; on UNSAT checks its interpolant.
void check_interpolant(const model& m, const std::vector<solver::label_type>& parts,
                       const std::string& what, outcome& counts) {
  solver s;
  build_labelled(m, parts, s);
  std::ostringstream out;
  solver::result_type r = solver::SAT;
  ASSERT_NO_THROW(r = s.solve(&out)) << what;
  if (r != solver::UNSAT) return;
  ++counts.unsat;
  formula interpolant;
  ASSERT_NO_THROW(interpolant = s.get_interpolant()) << what;
  ASSERT_FALSE(interpolant.is_null()) << what;
  if (interpolant.is_true() || interpolant.is_false()) ++counts.constant;
  verify(m, parts, s, interpolant, what);
}

TEST(interpolant, random_splits_of_unsatisfiable_models_hold_by_enumeration) {
  outcome counts;
  for (unsigned int seed = 1; seed <= SEEDS; ++seed) {
    const model m = seed % 3 == 0 ? random_comparison_model(seed) : random_model(seed, seed % 3 == 1);
    check_interpolant(m, random_split(m, seed), "seed " + std::to_string(seed), counts);
    if (testing::Test::HasFatalFailure()) return;
  }
  // The campaign must reach refutations and interpolants that are no constant.
  EXPECT_GT(counts.unsat, SEEDS / 6);
  EXPECT_GT(counts.unsat, counts.constant);
}

// Two parts over x, y, z: A says x = y and y < 2 (z local to A), B says x >= 2
// (with its own w). The shared variable is x alone.
struct two_parts {
  model m;
  two_parts() {
    m.domains = {S({0, 1, 2, 3}), S({0, 1, 2, 3}), S({0, 1}), S({0, 1})};
    model::item eq;  // x - y >= 0 and y - x >= 0
    eq.kind = model::item::DIFF_GE;
    eq.vars = {0, 1};
    m.items.push_back(eq);
    eq.vars = {1, 0};
    m.items.push_back(eq);
    model::item small;  // y in {0, 1} or z = 1, and z = 0
    small.kind = model::item::CLAUSE;
    small.vars = {1, 2};
    small.literals = {S({0, 1}), S({1})};
    m.items.push_back(small);
    small.vars = {2};
    small.literals = {S({0})};
    m.items.push_back(small);
    model::item big;  // x >= 2, or w = 0 and w = 1
    big.kind = model::item::CLAUSE;
    big.vars = {0, 3};
    big.literals = {at_least(2), S({0})};
    m.items.push_back(big);
    big.vars = {3};
    big.literals = {S({1})};
    m.items.push_back(big);
  }
};

TEST(interpolant, one_part_alone_gives_a_constant) {
  const two_parts t;
  outcome counts;
  // The split of the example: the interpolant is about x alone.
  check_interpolant(t.m, {1, 1, 1, 1, 2, 2}, "example", counts);
  EXPECT_EQ(counts.unsat, 1u);
  // Everything in B: true. Everything in A, no variable seen by B: false.
  for (solver::label_type part : {solver::label_type(2), solver::label_type(1)}) {
    solver s;
    build_labelled(t.m, std::vector<solver::label_type>(t.m.items.size(), part), s);
    std::ostringstream out;
    ASSERT_EQ(s.solve(&out), solver::UNSAT);
    const formula f = s.get_interpolant();
    EXPECT_TRUE(part == 2 ? f.is_true() : f.is_false());
  }
  // Only A labelled, B left at 0: still B, and its variables still count as seen by B.
  check_interpolant(t.m, {1, 1, 1, 1, 0, 0}, "B unlabelled", counts);
  EXPECT_EQ(counts.unsat, 2u);
}

TEST(interpolant, a_part_refuted_by_its_initial_domains_alone) {
  // A: x + y >= 7 on x, y in 0..3 has no solution; B: a clause on x.
  model m;
  m.domains = {at_most(3), at_most(3)};
  model::item sum;
  sum.kind = model::item::LINEAR;
  sum.vars = {0, 1};
  sum.coefficients = {1, 1};
  sum.constant = 7;
  m.items.push_back(sum);
  model::item clause;
  clause.kind = model::item::CLAUSE;
  clause.vars = {0};
  clause.literals = {S({1, 2})};
  m.items.push_back(clause);
  outcome counts;
  check_interpolant(m, {1, 2}, "A alone", counts);
  check_interpolant(m, {2, 1}, "B alone", counts);
  EXPECT_EQ(counts.unsat, 2u);
}

TEST(interpolant, needs_a_recorded_refutation) {
  const two_parts t;
  {
    solver s;
    t.m.build(s);
    std::ostringstream out;
    ASSERT_EQ(s.solve(&out), solver::UNSAT);
    EXPECT_THROW(s.get_interpolant(), std::runtime_error);  // no proof asked for
  }
  {
    // A satisfiable model: nothing refuted, nothing to interpolate.
    model m = t.m;
    m.items.pop_back();
    solver s;
    build_labelled(m, {1, 1, 1, 1, 2}, s);
    std::ostringstream out;
    ASSERT_EQ(s.solve(&out), solver::SAT);
    EXPECT_THROW(s.get_interpolant(), std::runtime_error);
  }
}

TEST(interpolant, learned_constraints_outside_the_refutation_are_no_hypotheses) {
  // A first solve without a proof learns, by combination, general constraints of
  // its own. They stay in the solver, and a second solve with a proof sees them as
  // constraints it did not derive: whether A or B implies them is unknown. The
  // interpolant must then be refused, or, where the refutation did not use them,
  // still hold by enumeration.
  unsigned int refused = 0, general = 0;
  for (unsigned int seed = 1; seed <= SEEDS / 2; ++seed) {
    const model m = random_comparison_model(seed);
    const std::vector<solver::label_type> parts = random_split(m, seed);
    solver s;
    m.build(s);
    for (unsigned int c = 0; c < parts.size(); ++c) s.constraint_labels(c, parts[c]);
    s.erase_after_backtracks = 0;
    std::ostringstream out;
    if (s.solve(&out) != solver::UNSAT) continue;
    for (unsigned int c = unsigned(m.items.size()); c < s.num_constraints(); ++c) {
      if (!s.propagator(c)) continue;
      EXPECT_EQ(s.constraint_labels(c), solver::LEARNED_LABEL);
      general += s.is_clause(c) ? 0 : 1;
    }
    s.should_intersect_with_ground = false;
    s.produce_proof(true);
    if (s.solve(&out) != solver::UNSAT) continue;
    formula f;
    try {
      f = s.get_interpolant();
    } catch (const std::runtime_error&) {
      ++refused;
      continue;
    }
    verify(m, parts, s, f, "seed " + std::to_string(seed));
    if (testing::Test::HasFatalFailure()) return;
  }
  EXPECT_GT(general, 0u);
  EXPECT_GT(refused, 0u);
}

TEST(interpolant, the_trace_follows_every_step_at_report_level_2) {
  const two_parts t;
  std::string traces[2];
  std::string shown[2];
  for (int level : {0, 2}) {
    solver s;
    build_labelled(t.m, {1, 1, 1, 1, 2, 2}, s);
    s.report_level = level;
    std::ostringstream out;
    testing::internal::CaptureStdout();
    const solver::result_type r = s.solve(&out);
    const std::string solving = testing::internal::GetCapturedStdout();
    ASSERT_EQ(r, solver::UNSAT);
    testing::internal::CaptureStdout();
    const formula f = s.get_interpolant();
    traces[level / 2] = testing::internal::GetCapturedStdout();
    std::ostringstream text;
    f.print(text, s.stack().print_strategy());
    shown[level / 2] = text.str();
  }
  EXPECT_EQ(traces[0], "");
  EXPECT_EQ(shown[0], shown[1]);
  // The last formula of the trace is the interpolant.
  const std::string& trace = traces[1];
  EXPECT_NE(trace.find("HypC-A ("), std::string::npos) << trace;
  EXPECT_NE(trace.find("Res-"), std::string::npos) << trace;
  const std::size_t last = trace.rfind("---> ");
  ASSERT_NE(last, std::string::npos);
  EXPECT_NE(trace.find(shown[1], last), std::string::npos) << trace;
}

}  // namespace
}  // namespace zelk
