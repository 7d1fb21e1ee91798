// The arithmetic propagators in whole searches, and the combinations the random
// table of propagators_test does not draw: sums past 32 bits, sums with parities.
#include "impl/arithmetic_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjunction_specification.h"
#include "unit/brute_force.h"
#include "unit/test_support.h"

namespace zelk {
namespace {

using namespace brute_force;
using test_support::recording_solver;
typedef linear_combination_ge_propagator lin;

TEST(arithmetic_propagators, nonlinear_models_enumerate_like_brute_force) {
  // Three or four variables, one sometimes wide enough for bound reasoning, under
  // two or three of these constraints on distinct variables and a clause: the solver
  // wakes them by their watches, learns from their explanations, and must find
  // exactly the solutions that brute force finds.
  struct kind {
    std::function<std::unique_ptr<constraint_propagator>()> make;
    unsigned arity;
    std::function<bool(const assignment&)> holds;
  };
  const auto power = [](int x, int y) {
    long long p = x == 0 ? 0 : 1;
    for (int i = 0; i < y && p <= 31; ++i) p *= x;
    return p;
  };
  const kind kinds[] = {
      {[] { return std::make_unique<mul_wrap_propagator>(); }, 3, [](const assignment& v) { return v[0] == v[1] * v[2] % 32; }},
      {[] { return std::make_unique<mul_truncate_propagator>(); }, 3, [](const assignment& v) { return v[0] == v[1] * v[2]; }},
      {[] { return std::make_unique<div_propagator>(); }, 3, [](const assignment& v) { return v[0] == (v[2] ? v[1] / v[2] : 0); }},
      {[] { return std::make_unique<mod_propagator>(); }, 3, [](const assignment& v) { return v[0] == (v[2] ? v[1] % v[2] : 0); }},
      {[] { return std::make_unique<pow_propagator>(); }, 3, [power](const assignment& v) { return v[0] == power(v[1], v[2]); }},
      {[] { return std::make_unique<less_equal_mul_propagator>(); }, 3, [](const assignment& v) { return v[0] <= v[1] * v[2]; }},
      {[] { return std::make_unique<greater_equal_mul_propagator>(); }, 3, [](const assignment& v) { return v[0] >= v[1] * v[2]; }},
      {[] { return std::make_unique<abs_propagator>(); }, 2, [](const assignment& v) { return v[0] == v[1]; }},
      {[] { return std::make_unique<greater_equal_abs_propagator>(); }, 2, [](const assignment& v) { return v[0] >= v[1]; }},
      {[] { return std::make_unique<less_equal_abs_propagator>(); }, 2, [](const assignment& v) { return v[0] <= v[1]; }},
  };
  int solved = 0;
  repeat(77, 1000, [&](std::mt19937& g, int, const std::string& where) {
    const unsigned n = 3 + g() % 2;
    domain_list d(n);
    for (iset& s : d) s = random_domain(g, 4, 10);
    if (g() % 2) d[g() % n] = g() % 4 ? random_domain(g, 31, 31) : iset::full();
    recording_solver s;
    for (const iset& domain : d) s.add_var(domain);
    std::vector<std::pair<const kind*, std::vector<unsigned>>> posted;
    std::ostringstream text;
    for (unsigned c = 0, count = 2 + g() % 2; c < count; ++c) {
      const kind& k = kinds[g() % std::size(kinds)];
      std::vector<unsigned> vars;
      while (vars.size() < k.arity) {
        const unsigned v = g() % n;
        if (std::find(vars.begin(), vars.end(), v) == vars.end()) vars.push_back(v);
      }
      constraint_connectivity_info& info = s.add_constraint(k.make());
      for (unsigned v : vars) info << v;
      text << printed(*s.propagator(s.num_constraints() - 1)) << show(vars) << " ";
      posted.emplace_back(&k, vars);
    }
    const domain_list literals{random_subset(g, d[0], true), random_subset(g, d[1])};
    s.add_constraint(std::make_unique<clause_propagator>(literals)) << 0u << 1u;
    const relation clause = clause_relation(literals);
    std::set<assignment> expected;
    for_each_assignment(d, [&](const assignment& v) {
      for (const auto& [k, vars] : posted) {
        assignment args;
        for (unsigned var : vars) args.push_back(v[var]);
        if (!k->holds(args)) return true;
      }
      if (clause(assignment{v[0], v[1]})) expected.insert(v);
      return true;
    });
    s.all_solutions = true;
    std::ostringstream out;
    solver::result_type r = solver::SAT;
    ASSERT_NO_THROW(r = s.solve(&out)) << where;
    EXPECT_EQ(r, expected.empty() ? solver::UNSAT : solver::SAT_DONE) << where << " " << text.str() << show(d);
    EXPECT_EQ(s.solutions, expected) << where << " " << text.str() << show(d);
    solved += !expected.empty();
  });
  EXPECT_GE(solved, 120);
}

//==== combination ===========================================================

// A fixed combination on `universe` domains: its text, variables, and implication.
void expect_combine(const constraint_propagator& left, unsigned left_arity, const constraint_propagator& right,
                    unsigned right_arity, const std::vector<unsigned>& map, unsigned pivot, const std::string& text,
                    const std::vector<unsigned>& out = {}, const char* universe = "0:9") {
  const domain_list left_domains(left_arity, iset(universe)), right_domains(right_arity, iset(universe));
  const combination c = expect_combination(run_combine(left, left_domains, right, right_domains, map, pivot), text, out);
  check_combination(left, left_arity, right, right_arity, map, pivot, c, text);
}

TEST(arithmetic_propagators, linear_combination_edges) {
  // x - y >= 1 and y - x >= 0 add up to 0 >= 1: the empty clause, not nothing.
  const lin x_above_y(1, {1, -1});
  expect_combine(x_above_y, 2, difference_ge_propagator(0), 2, {1, 0}, 1, "[]");
  // Coefficients or constants beyond 32 bits; a constant that overflows in the sum.
  disjunction_specification result;
  EXPECT_FALSE(lin::set_constraint_from_positional_coefficients({0, 1LL << 31}, 0, result) ||
               lin::set_constraint_from_positional_coefficients({0, 0}, 1LL << 31, result));
  expect_combine(lin(INT_MAX, {INT_MAX, 1}), 2, lin(INT_MAX, {-INT_MAX, 1}), 2, {0, 2}, 0, "");
  long long constant = LLONG_MAX;
  std::vector<long long> positional;
  const constraint_explicit_info view = make_view(sets("0:9 0:9 0:9"));  // the disjunction form
  const difference_ge_propagator two(2);                                 // points at both
  EXPECT_FALSE(lin::accumulate_coefficients(positional, constant, disjunction_specification(view, two, {4, 7}), 1));
  // A difference doesn't take a sum on the right, a sum takes a difference.
  EXPECT_TRUE(!two.may_combine(x_above_y) && x_above_y.may_combine(two));
}

TEST(arithmetic_propagators, linear_disjunction_and_new_propagator) {
  const constraint_explicit_info view = make_view(sets("0:9 0:9 0:9"));
  const lin left(4, {2, -1, 1}), right(1, {1, 2, -1});
  // The same terms in another order: the smaller constant; other terms: nothing.
  const disjunction_specification l(view, left, {});
  disjunction_specification result, none;
  ASSERT_TRUE(left.disjoin_constraint(l, disjunction_specification(view, right, {2, 0, 1}), result));
  EXPECT_EQ(printed(*result.constraint()), "(2*P0-P1+P2>=1)");
  EXPECT_EQ(result.constraint_var(2), 2u);
  EXPECT_FALSE(left.disjoin_constraint(l, disjunction_specification(view, right, {0, 1, 2}), none));
  // With literals the sum is joined to a clause; without, the base itself.
  for (const bool literal : {true, false}) {
    disjunction_specification form;
    if (literal) form.add_literal(6, iset("3"));
    form.own_constraint(std::make_unique<lin>(left));
    for (unsigned v : {2u, 0u, 5u}) form.add_constraint_param(v);
    std::vector<unsigned> params;
    const std::unique_ptr<constraint_propagator> p = left.new_propagator(form, params);
    EXPECT_EQ(p ? printed(*p) : "", literal ? "((2*P0-P1+P2>=4) || [P0=3])\n" : "(2*P0-P1+P2>=4)");
    EXPECT_EQ(params, (literal ? std::vector<unsigned>{2, 0, 5, 6} : std::vector<unsigned>{2, 0, 5}));
    EXPECT_EQ(dynamic_cast<lin*>(p.get()) != nullptr, !literal);
  }
}

TEST(arithmetic_propagators, modular_combination_edges) {
  // Parities mod 2 go through the random table; mod 3 x + x does not cancel, and
  // mods must agree.
  const sum_mod_propagator odd3(3, 1);
  expect_combine(odd3, 2, sum_mod_propagator(3, 0), 2, {0, 2}, 0, "", {}, "0:2");
  EXPECT_FALSE(odd3.may_combine(sum_mod_propagator(2, 1)));
  expect_combine(odd3, 3, equal_propagator(), 2, {0, 2}, 0, "", {}, "0:2");
  // 2x + 3y >= 7 with x + z = 2 mod 3: -2z + 3y >= 3; both in the sum: y's less x's
  // coefficient; from either side; a carry is possible when mod isn't result + 1.
  const lin sum(7, {2, 3});
  const sum_mod_propagator x_plus_z(3, 2);
  EXPECT_TRUE(sum.may_combine(x_plus_z) && x_plus_z.may_combine(sum));
  EXPECT_FALSE(sum_mod_propagator(4, 2).may_combine(sum));
  expect_combine(sum, 2, x_plus_z, 2, {0, 2}, 0, "(-2*P0+3*P1>=3)", {2, 1}, "0:2");
  expect_combine(sum, 2, x_plus_z, 2, {0, 1}, 0, "(P0>=3)", {1}, "0:2");
  expect_combine(x_plus_z, 2, sum, 2, {0, 2}, 0, "(-2*P0+3*P1>=3)", {1, 2}, "0:2");
  expect_combine(sum, 2, sum_mod_propagator(4, 2), 2, {0, 2}, 0, "", {}, "0:2");
  expect_combine(sum, 2, sum_mod_propagator(3, 2), 3, {0, 2, 3}, 0, "", {}, "0:2");
}

}  // namespace
}  // namespace zelk
