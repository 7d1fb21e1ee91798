// The disequalities against brute force (filtering, failure, validity,
// conflicts, constraint_check, every explanation), the rule of x != y against
// the explanation it stands for, and the fixed cases of both algorithms.
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

relation difference_neq(long long c) {
  return [c](const assignment& v) { return (long long)v[0] - v[1] != c; };
}

//==== the propagators against brute force ====================================

TEST(neq_propagators, both_against_brute_force) {
  // Narrow windows make equal single values and the one-value cut common; the
  // extreme constants must remove nothing and overflow nowhere.
  const neq_propagator neq;
  const difference_neq_constant_propagator minus3(-3), zero(0), five(5), low(INT_MIN),
      high(INT_MAX);
  for (const auto& [seed, p, rel] :
       std::vector<std::tuple<unsigned, const constraint_propagator*, relation>>{
           {31, &neq, [](const assignment& v) { return v[0] != v[1]; }},
           {32, &minus3, difference_neq(-3)},
           {33, &zero, difference_neq(0)},
           {34, &five, difference_neq(5)},
           {35, &low, difference_neq(INT_MIN)},
           {36, &high, difference_neq(INT_MAX)}}) {
    int explained = 0, rules = 0, valid = 0, unsat = 0, consistent = 0;
    repeat(seed, 3000, [&](std::mt19937& gen, int round, const std::string& context) {
      const domain_list d = round % 2
                                ? domain_list{random_domain(gen, 9, 3, true),
                                              random_domain(gen, 9, 3, true)}
                                : domain_list{random_domain(gen, 31, 10, true),
                                              random_domain(gen, 31, 10, true)};
      // With an empty side there is no solution, yet x != y holds vacuously:
      // the promise is then only soundness.
      const bool exact = !any_empty(d);
      const checks c{.kind = exact ? DOMAIN_CONSISTENT : SOUND_ONLY,
                     .exact_conflicts = exact,
                     .random_literals = true,
                     .run_init = round % 3 == 0};
      const outcome out = check_instance(*p, d, rel, round, context, c, gen, explained);
      valid += out.result == propagation_types::VALID;
      unsat += out.result == propagation_types::UNSAT;
      consistent += out.result == propagation_types::CONSISTENT;
      EXPECT_TRUE(out.result != propagation_types::CONSISTENT ||
                  (!d[0].is_singleton() && !d[1].is_singleton()))
          << "a fixed side leaves nothing to wait for: " << context << " " << show(d);
      // The rule of x != y gives back exactly the explanation it stands for.
      if (p != &neq || !exact) return;
      const constraint_explicit_info view = make_view(d);
      const bool failure = out.result == propagation_types::UNSAT;
      for (unsigned param = 0; param < (failure ? 1u : 2u); ++param) {
        if (!failure && out.after[param] == d[param]) continue;
        domain_list explanation, again;
        p->explain_propagation(param, iset::full(), failure ? iset() : out.after[param], view,
                               explanation);
        const std::unique_ptr<explanation_rule> rule = p->rule(explanation);
        ASSERT_TRUE(rule) << context << " " << show(d);
        rule->get_explanation(again);
        EXPECT_EQ(again, explanation) << context << " on " << show(d);
        ++rules;
      }
    });
    const bool extreme = p == &low || p == &high;  // never anything to remove
    EXPECT_GT(valid, 500) << printed(*p);
    EXPECT_GT(consistent, 100) << printed(*p);
    if (!extreme) {
      EXPECT_GT(explained, 300) << printed(*p);
      EXPECT_GT(unsat, 20) << printed(*p);
    }
    if (p == &neq) {
      EXPECT_GT(rules, 300);
    }
  }
}

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

TEST(neq_propagators, both_watch_only_finalization_even_of_a_fixed_side) {
  const neq_propagator neq;
  const difference_neq_constant_propagator diff(2);
  for (const constraint_propagator* p : {(const constraint_propagator*)&neq,
                                         (const constraint_propagator*)&diff}) {
    recording_info view({iset("4"), iset("0:9")});
    EXPECT_EQ(p->clone()->init(view), propagation_types::VALID) << printed(*p);
    EXPECT_EQ(view.watches, (decltype(view.watches){{0, watch_types::FINALIZATION_WATCH},
                                                    {1, watch_types::FINALIZATION_WATCH}}))
        << printed(*p);
    EXPECT_EQ(view.writes, 0u) << printed(*p);
  }
  // Not a disequality of two variables in disguise.
  EXPECT_EQ(dynamic_cast<const neq_propagator*>(&(const constraint_propagator&)diff), nullptr);
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

TEST(neq_propagators, print_texts) {
  constraint_explicit_info two(2);
  EXPECT_EQ(printed(neq_propagator()), "neq");
  EXPECT_EQ(printed(neq_propagator(), &two), "constraint(P0!=P1)");
  EXPECT_EQ(printed(difference_neq_constant_propagator(-4)), "difference_neq_constant(-4)");
  EXPECT_EQ(printed(difference_neq_constant_propagator(3), &two), "constraint(P0-P1!=3)");
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
