// The disequalities beyond the brute-force table of propagators_test: the parity
// rewrite, and queens in the solver with every UNSAT answer proof-checked.
#include "impl/neq_propagators.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/solver.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

TEST(neq_propagators, the_parity_of_two_booleans) {
  const neq_propagator neq;
  // No value is missing: there is none to name.
  EXPECT_FALSE(neq.rule({iset::full(), iset::full()}) || neq.rule({}));
  std::vector<unsigned> kept;
  const auto parity = neq.intersect_with(make_view({iset("0:1"), iset("0:1")}), kept);
  ASSERT_TRUE(parity);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 1}));
  EXPECT_EQ(printed(*parity), printed(sum_mod_propagator(2, 1)));
  EXPECT_FALSE(neq.intersect_with(make_view({iset("0:2"), iset("0:1")}), kept) ||
               neq.intersect_with(make_view({iset("0:1"), iset("1")}), kept));
}

// n queens, one per column: x_i != x_j and x_i - x_j != +-(j - i). The proof of an
// UNSAT answer takes the clauses of x != y from their rules; with ground
// simplification, two boolean queens become a parity.
TEST(neq_propagators, queens_in_the_solver) {
  for (int n = 2; n <= 8; ++n)
    for (unsigned mode = 0; mode <= 2; ++mode)
      for (bool ground : {false, true}) {
        solver s;
        s.relaxation_mode = mode;
        s.should_intersect_with_ground = ground;
        s.produce_proof(!ground);
        s.validate_unsat = !ground;
        for (int i = 0; i < n; ++i) s.add_var(iset::clipped_range(0, n - 1));
        for (int i = 0; i < n; ++i)
          for (int j = i + 1; j < n; ++j) {
            s.add_constraint(std::make_unique<neq_propagator>()) << i << j;
            for (int gap : {j - i, i - j})
              s.add_constraint(std::make_unique<difference_neq_constant_propagator>(gap)) << i << j;
          }
        std::ostringstream out;
        const solver::result_type r = s.solve(&out);
        ASSERT_EQ(r, n == 2 || n == 3 ? solver::UNSAT : solver::SAT) << n << " queens " << mode;
        auto q = [&](int v) { return s.stack().domain(unsigned(v)).min(); };
        for (int i = 0; r == solver::SAT && i < n; ++i)
          for (int j = i + 1; j < n; ++j)
            EXPECT_TRUE(q(i) != q(j) && q(i) - q(j) != j - i && q(j) - q(i) != j - i) << n;
      }
}

}  // namespace
}  // namespace zelk
