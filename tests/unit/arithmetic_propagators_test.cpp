// The sum propagators against brute force on many small random instances:
// soundness, the promised pruning, UNSAT, conflicts and constraint_check, the
// explanations, simplification on fixed parameters; then the fixed cases; last,
// the soundness of combination (elimination between sums and differences, sums
// of parities, substitution from a two-parameter modular sum).
#include "impl/arithmetic_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjunction_specification.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

//==== fixed cases ===========================================================

TEST(arithmetic_propagators, simplification_on_fixed_parameters) {
  // -x >= 0 is the clause x in {0}.
  std::vector<unsigned> kept;
  EXPECT_EQ(printed(*linear_combination_ge_propagator(0, {-1}).new_unary_sum({}, 0, kept)),
            "[P0=0]");
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
  // All fixed: the full clause (true) or the empty one (false); a difference
  // from a sum with one side fixed; the gcd divides the constant rounded up
  // (2x + 4y >= 3 is x + 2y >= 2); "" where nothing simplifies.
  const linear_combination_ge_propagator sum(4, {1, 1}), even(3, {2, -2}), up(3, {2, 4}),
      down(-3, {-2, -4});
  const greater_equal_sum_propagator ge;
  const less_equal_sum_propagator le;
  for (const auto& [p, d, text, expected_kept] :
       std::vector<std::tuple<const constraint_propagator*, domain_list, std::string,
                              std::vector<unsigned>>>{
           {&sum, {iset("2"), iset("3")}, "[P0<=31]", {0}},
           {&sum, {iset("1"), iset("2")}, "[]", {}},
           {&sum, {iset("0:5"), iset("0:5")}, "", {}},
           {&ge, {iset("0:9"), iset("0:9"), iset("3")}, "diff_ge_3", {0, 1}},
           {&le, {iset("0:9"), iset("2"), iset("0:9")}, "diff_ge_minus_2", {2, 0}},
           {&even, {iset("0:9"), iset("0:9")}, "diff_ge_2", {0, 1}},
           {&up, {iset("0:9"), iset("0:9")}, "(P0+2*P1>=2)", {0, 1}},
           {&down, {iset("0:9"), iset("0:9")}, "(-P0-2*P1>=-1)", {0, 1}},
           {&ge, {iset("0:9"), iset("0:9")}, "", {}}}) {
    kept.clear();
    std::unique_ptr<constraint_propagator> q = p->intersect_with(make_view(d), kept);
    EXPECT_EQ(q ? printed(*q) : "", text) << printed(*p) << " on " << show(d);
    if (q) {
      EXPECT_EQ(kept, expected_kept) << printed(*p) << " on " << show(d);
    }
  }
}

TEST(arithmetic_propagators, edges_of_sum_mod_sum_wrap_and_the_ranges) {
  try {
    sum_mod_propagator(-2, 0);
    FAIL() << "a negative mod accepted";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "sum_mod_propagator(mod, result): mod should be positive");
  }
  EXPECT_THROW(sum_mod_propagator(0, 0), std::out_of_range);
  // 1 + 1 != 5, but sum_wrap looks only when something changed.
  struct untouched_info : constraint_explicit_info {
    using constraint_explicit_info::constraint_explicit_info;
    bool reduced_between_activations(unsigned int) const override { return false; }
  } view(3);
  view.domains() = {iset("5"), iset("1"), iset("1")};
  EXPECT_EQ(sum_wrap_propagator().propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(view.domains(), (domain_list{iset("5"), iset("1"), iset("1")}));
  // Ranges modulo 32 (31 values or more: nothing to cut), and truncated to 0..31
  // (an empty range leaves the set alone).
  typedef arithmetic_propagation_types apt;
  for (const auto& [wrapped, before, lo, hi, after] :
       std::vector<std::tuple<bool, const char*, long long, long long, const char*>>{
           {true, "0:31", 30, 33, "0,1,30,31"}, {true, "0:31", 40, 42, "8:10"},
           {true, "0:31", -2, 1, "0,1,30,31"}, {true, "3,7", 5, 36, "3,7"},
           {true, "3,7", 8, 38, "3"}, {false, "0:31", -5, 3, "0:3"},
           {false, "0:3", 40, 50, "0:3"}}) {
    iset s(before);
    if (wrapped)
      apt::intersect_wrapped(s, lo, hi);
    else
      apt::intersect_truncated(s, lo, hi);
    EXPECT_EQ(s, iset(after)) << before << " in " << lo << ".." << hi;
  }
}

TEST(arithmetic_propagators, explanation_of_a_bound) {
  // 2x - y + z >= 10 on x in 0..4, y in 2..5, z in 0..3 fails; whichever pivot is
  // asked (one beyond the arity means parameter 0), the bounds that fail it:
  // x >= 5, y <= 1, z >= 4 (x >= (10 + 2 - 3) / 2 rounded up).
  const linear_combination_ge_propagator p(10, {2, -1, 1});
  const constraint_explicit_info view = make_view({iset("0:4"), iset("2:5"), iset("0:3")});
  for (unsigned pivot : {0u, 7u, 1u}) {
    constraint_propagator::literal_vector explanation;
    p.explain_propagation(pivot, iset::full(), iset(), view, explanation);
    EXPECT_EQ(explanation, (domain_list{iset("5:31"), iset("0,1"), iset("4:31")})) << pivot;
  }
}

//==== combination ===========================================================

TEST(arithmetic_propagators, linear_combination_edges) {
  const domain_list two{iset("0:9"), iset("0:9")}, three(3, iset("0:9"));
  // x - y >= 1 and y - x >= 0 add up to 0 >= 1: the empty clause; with -1, 0 >= -1
  // says nothing. The multipliers come from the gcd: 3 (2x + y >= 3) + 2 (-3x + z
  // >= 0); the same sign on the pivot gives nothing.
  const linear_combination_ge_propagator x_above_y(1, {1, -1});
  expect_combination(run_combine(x_above_y, two, difference_ge_propagator(0), two, {1, 0}, 1), "[]");
  expect_combination(run_combine(linear_combination_ge_propagator(-1, {1, -1}), two,
                                 difference_ge_propagator(0), two, {1, 0}, 1), "");
  expect_combination(run_combine(linear_combination_ge_propagator(3, {2, 1}), two,
                                 linear_combination_ge_propagator(0, {-3, 1}), two, {0, 3}, 0),
                     "(3*P0+2*P1>=9)", {1, 3});
  expect_combination(run_combine(linear_combination_ge_propagator(3, {2, 1}), two,
                                 linear_combination_ge_propagator(0, {3, 1}), two, {0, 3}, 0), "");
  // Coefficients or constants beyond 32 bits.
  disjunction_specification result;
  EXPECT_FALSE(linear_combination_ge_propagator::set_constraint_from_positional_coefficients(
      {0, 1LL << 31}, 0, result));
  EXPECT_FALSE(linear_combination_ge_propagator::set_constraint_from_positional_coefficients(
      {0, 0}, 1LL << 31, result));
  expect_combination(run_combine(linear_combination_ge_propagator(INT_MAX, {INT_MAX, 1}), two,
                                 linear_combination_ge_propagator(INT_MAX, {-INT_MAX, 1}), two,
                                 {0, 2}, 0), "");
  // A constant that overflows in the sum of the two.
  const constraint_explicit_info view = make_view(three);
  const difference_ge_propagator diff(2);
  long long constant = LLONG_MAX;
  std::vector<long long> positional;
  EXPECT_FALSE(linear_combination_ge_propagator::accumulate_coefficients(
      positional, constant, disjunction_specification(view, diff, {4, 7}), 1));
  // A difference doesn't take a sum on the right, a sum takes a difference.
  EXPECT_FALSE(difference_ge_propagator(0).may_combine(x_above_y));
  EXPECT_TRUE(x_above_y.may_combine(difference_ge_propagator(0)));
  EXPECT_FALSE(x_above_y.may_combine(clause_propagator{iset("1")}));
  EXPECT_FALSE(x_above_y.may_combine(equal_propagator()));
}

TEST(arithmetic_propagators, linear_disjunction_and_new_propagator) {
  const constraint_explicit_info view = make_view({iset("0:9"), iset("0:9"), iset("0:9")});
  const linear_combination_ge_propagator left(4, {2, -1, 1}), right(1, {1, 2, -1});
  // The same terms in another order: the smaller constant; other terms: nothing.
  const disjunction_specification l(view, left, {});
  disjunction_specification result;
  ASSERT_TRUE(left.disjoin_constraint(l, disjunction_specification(view, right, {2, 0, 1}), result));
  EXPECT_EQ(printed(*result.constraint()), "(2*P0-P1+P2>=1)");
  EXPECT_EQ(result.constraint_var(2), 2u);
  result.clear();
  EXPECT_FALSE(left.disjoin_constraint(l, disjunction_specification(view, right, {0, 1, 2}), result));
  // With literals the sum is joined to a clause.
  disjunction_specification form;
  form.add_literal(6, iset("3"));
  form.own_constraint(std::make_unique<linear_combination_ge_propagator>(left));
  for (unsigned v : {2u, 0u, 5u}) form.add_constraint_param(v);
  std::vector<unsigned> params;
  std::unique_ptr<constraint_propagator> p = left.new_propagator(form, params);
  ASSERT_TRUE(p);
  EXPECT_EQ(params, (std::vector<unsigned>{2, 0, 5, 6}));
  EXPECT_EQ(p->count_params(), 4u);
  EXPECT_EQ(printed(*p), "((2*P0-P1+P2>=4) || [P0=3])\n");
  // Its propagation: the disjunction tests.
  // Without literals: the base constraint itself.
  disjunction_specification bare;
  bare.own_constraint(std::make_unique<linear_combination_ge_propagator>(left));
  for (unsigned v : {1u, 2u, 3u}) bare.add_constraint_param(v);
  params.clear();
  p = left.new_propagator(bare, params);
  EXPECT_TRUE(dynamic_cast<linear_combination_ge_propagator*>(p.get()));
  EXPECT_EQ(params, (std::vector<unsigned>{1, 2, 3}));
}

TEST(arithmetic_propagators, modular_combination_edges) {
  const domain_list two(2, iset("0:2")), three(3, iset("0:2"));
  const sum_mod_propagator odd(2, 1), odd3(3, 1);
  // x + y = 1 and x + y = 0 modulo 2: nothing left but 0 = 1; x + x is 0 only
  // modulo 2; mods must agree.
  expect_combination(run_combine(odd, two, sum_mod_propagator(2, 0), two, {0, 1}, 0), "[]");
  expect_combination(run_combine(odd3, two, sum_mod_propagator(3, 0), two, {0, 2}, 0), "");
  EXPECT_FALSE(odd3.may_combine(odd));
  expect_combination(run_combine(odd3, two, sum_mod_propagator(2, 0), two, {0, 2}, 0), "");
  // An equality: the partner replaces the variable; both in the sum cancel (mod 2).
  const equal_propagator eq;
  for (const auto& [map, pivot, out] : std::vector<
           std::tuple<std::vector<unsigned>, unsigned, std::vector<unsigned>>>{
           {{1, 4}, 0, {0, 4, 2}}, {{3, 2}, 1, {0, 1, 3}}, {{0, 2}, 0, {1}}}) {
    const combination c =
        expect_combination(run_combine(odd, three, eq, two, map, pivot), "((xor vars) 2 == 1)", out);
    check_combination(odd, 3, eq, 2, map, pivot, c, "parity and equality");
  }
  expect_combination(run_combine(odd3, three, eq, two, {0, 2}, 0), "");

  // 2x + 3y >= 7 with x + z = 2 modulo 3: -2z + 3y >= 3; both in the sum: y's
  // coefficient less x's, and y's position goes; from the modular side, through
  // combine_other_first. A carry is possible when mod isn't result + 1.
  const linear_combination_ge_propagator sum(7, {2, 3});
  const sum_mod_propagator x_plus_z(3, 2);
  EXPECT_TRUE(sum.may_combine(x_plus_z));
  EXPECT_TRUE(x_plus_z.may_combine(sum));
  EXPECT_FALSE(sum_mod_propagator(4, 2).may_combine(sum));
  combination c =
      expect_combination(run_combine(sum, two, x_plus_z, two, {0, 2}, 0), "(-2*P0+3*P1>=3)", {2, 1});
  check_combination(sum, 2, x_plus_z, 2, {0, 2}, 0, c, "substitution");
  expect_combination(run_combine(sum, two, x_plus_z, two, {0, 1}, 0), "(P0>=3)", {1});
  c = expect_combination(run_combine(x_plus_z, two, sum, two, {0, 2}, 0), "(-2*P0+3*P1>=3)", {1, 2});
  check_combination(x_plus_z, 2, sum, 2, {0, 2}, 0, c, "substitution, modular left");
  expect_combination(run_combine(sum, two, sum_mod_propagator(4, 2), two, {0, 2}, 0), "");
  expect_combination(run_combine(sum, two, sum_mod_propagator(3, 2), three, {0, 2, 3}, 0), "");
}

}  // namespace
}  // namespace zelk
