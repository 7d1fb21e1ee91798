// The disequalities beyond the brute-force table of propagators_test: the edges of
// the algorithms, the rule's text, the parity rewrite, and queens in the solver
// with every UNSAT answer checked through its proof.
#include "impl/neq_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/solver.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

//==== fixed cases ============================================================

TEST(neq_propagators, fixed_propagations) {
  const neq_propagator neq;
  const difference_neq_constant_propagator three(3), five(5), low(INT_MIN);
  const result_type unsat = propagation_types::UNSAT, valid = propagation_types::VALID;
  for (const auto& [p, d, result, after] : std::vector<
           std::tuple<const constraint_propagator*, domain_list, result_type, domain_list>>{
           {&neq, {iset("3"), iset("3")}, unsat, {}},
           {&neq, {iset("3"), iset("3:4")}, valid, {iset("3"), iset("4")}},
           // x = 2 and c = 5 aim at y = -3: nothing to remove, yet entailed.
           {&five, {iset("2"), iset("0:9")}, valid, {iset("2"), iset("0:9")}},
           {&three, {iset("5"), iset("2")}, unsat, {}},
           {&low, {iset("0"), iset("0:31")}, valid, {iset("0"), iset("0:31")}}})
    expect_propagation(*p, d, result, after);
}

TEST(neq_propagators, two_booleans_become_a_parity) {
  const neq_propagator neq;
  std::vector<unsigned> kept;
  std::unique_ptr<constraint_propagator> parity =
      neq.intersect_with(make_view({iset("0:1"), iset("0:1")}), kept);
  ASSERT_TRUE(parity);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 1}));
  EXPECT_EQ(printed(*parity), printed(sum_mod_propagator(2, 1)));
  kept.clear();
  EXPECT_FALSE(neq.intersect_with(make_view({iset("0:2"), iset("0:1")}), kept));
  EXPECT_FALSE(neq.intersect_with(make_view({iset("0:1"), iset("1")}), kept));
  EXPECT_TRUE(kept.empty());
}

TEST(neq_propagators, rule_text_copy_and_an_entry_missing_nothing) {
  const neq_propagator neq;
  const std::unique_ptr<explanation_rule> rule = neq.rule({~iset("7"), ~iset("7")});
  ASSERT_TRUE(rule);
  domain_list out{iset::full(), iset::full(), iset::full()};
  rule->clone()->get_explanation(out);
  EXPECT_EQ(out, (domain_list{~iset("7"), ~iset("7")}));
  struct : variable_print_strategy {
    void print(std::ostream& os, unsigned int variable) const override { os << "v" << variable; }
  } strategy;
  std::ostringstream text;
  rule->print(text, strategy, {0, 1});
  EXPECT_EQ(text.str(), "DIFF(7)");
  EXPECT_FALSE(neq.rule({iset::full(), iset::full()}));
  EXPECT_FALSE(neq.rule({}));
  EXPECT_FALSE(difference_neq_constant_propagator(1).rule({~iset("7"), ~iset("6")}));
}

//==== in the solver ===========================================================

// n queens, one per column: x_i != x_j and x_i - x_j != +-(j - i). Every UNSAT
// answer is checked through its proof, which takes the clauses of x != y from
// their rules; with ground simplification, two boolean queens become a parity.
solver::result_type solve_queens(unsigned n, unsigned relaxation_mode, bool ground,
                                 std::vector<int>& values) {
  solver s;
  s.relaxation_mode = relaxation_mode;
  s.should_intersect_with_ground = ground;
  if (!ground) {
    s.produce_proof(true);
    s.validate_unsat = true;
  }
  for (unsigned i = 0; i < n; ++i) s.add_var(iset::clipped_range(0, n - 1));
  for (unsigned i = 0; i < n; ++i)
    for (unsigned j = i + 1; j < n; ++j) {
      const int gap = int(j - i);
      s.add_constraint(std::make_unique<neq_propagator>()) << i << j;
      s.add_constraint(std::make_unique<difference_neq_constant_propagator>(gap)) << i << j;
      s.add_constraint(std::make_unique<difference_neq_constant_propagator>(-gap)) << i << j;
    }
  std::ostringstream out;
  const solver::result_type r = s.solve(&out);
  values.clear();
  if (r == solver::SAT)
    for (unsigned v = 0; v < n; ++v) values.push_back(s.stack().domain(v).min());
  return r;
}

TEST(neq_propagators, queens_in_the_solver) {
  for (unsigned n = 2; n <= 8; ++n)
    for (unsigned mode = 0; mode <= 2; ++mode)
      for (bool ground : {false, true}) {
        std::vector<int> q;
        solver::result_type r = solver::UNSAT;
        ASSERT_NO_THROW(r = solve_queens(n, mode, ground, q)) << n << " queens, mode " << mode;
        EXPECT_EQ(r, n == 2 || n == 3 ? solver::UNSAT : solver::SAT) << n << " queens";
        for (std::size_t i = 0; i < q.size(); ++i)
          for (std::size_t j = i + 1; j < q.size(); ++j) {
            EXPECT_NE(q[i], q[j]) << n << " queens";
            EXPECT_NE(std::abs(q[i] - q[j]), int(j - i)) << n << " queens";
          }
      }
}

}  // namespace
}  // namespace zelk
