// The comparison propagators' fixed cases, beyond the brute-force table (propagators_test).
#include "impl/comparison_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

TEST(comparison_propagators, fixed_propagations) {
  const difference_ge_propagator three(3);
  const auto expect = [](const constraint_propagator& p, const char* before, result_type result, const char* after) {
    constraint_explicit_info view = make_view(sets(before));
    EXPECT_EQ(p.clone()->propagate(view), result) << printed(p) << " on " << before;
    if (result != propagation_types::UNSAT) { EXPECT_EQ(view.domains(), sets(after)) << before; }
  };
  const result_type consistent = propagation_types::CONSISTENT, valid = propagation_types::VALID;
  // A negative constant: max(x) - c passes 31; VALID straight after reducing.
  expect(difference_ge_propagator(-5), "20:31 0:31", consistent, "20:31 0:31");
  expect(three, "0:9 2", valid, "5:9 2");
  // b fixed to 1 on equal values stays CONSISTENT, to 0 VALID; b outside 0..1 goes.
  expect(is_equal_propagator(), "0 4 3:5", valid, "0 4 3,5");
  expect(is_equal_propagator(), "0:1 4 4", consistent, "1 4 4");
  expect(is_equal_propagator(), "0:7 2 5", valid, "0 2 5");
  expect(if_then_else_propagator(), "0:9 0:5 2:3 20", consistent, "2:3 1 2:3 20");
  expect(if_then_else_propagator(), "0:9 0:5 2:3 7", consistent, "2,3,7 0,1 2:3 7");
  expect(if_then_else_propagator(), "0:9 0 2:3 7", valid, "7 0 2:3 7");
  expect(if_then_else_propagator(), "0:9 2:9 2:3 7", propagation_types::UNSAT, "");
  // Simplification with a fixed side is a unary bound.
  std::vector<unsigned> kept;
  EXPECT_FALSE(three.intersect_with(make_view(sets("0:9 0:9")), kept));
  const std::unique_ptr<constraint_propagator> bound = three.intersect_with(make_view(sets("0:9 4")), kept);
  EXPECT_EQ(bound ? printed(*bound) : "", "[P0>=7]");
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
}

TEST(comparison_propagators, difference_rule_edges) {
  // An empty first entry: t = 31, x > 31 is empty, the clause is y <= 27; t - c
  // below 0 leaves the y entry empty, in the rule and in its clone.
  domain_list out = sets("0:31 0:31 0:31"), copied;
  difference_ge_propagator(4).rule(sets("- 0:27"))->get_explanation(out);
  EXPECT_EQ(out, sets("- 0:27"));
  const std::unique_ptr<explanation_rule> rule = difference_ge_propagator(4).rule(sets("3:31 -"));
  rule->clone()->get_explanation(copied);
  EXPECT_EQ(copied, sets("3:31 -"));
}

TEST(comparison_propagators, difference_combination_edges) {
  const difference_ge_propagator plus2(2), minus3(-3), zero(0), one(1), three(3);
  const char* const wide = "0:31 0:31";
  const auto expect = [](const constraint_propagator& left, const constraint_propagator& right,
                         const char* left_domains, const char* right_domains, const std::vector<unsigned>& map,
                         unsigned pivot, const std::string& text, const std::vector<unsigned>& out = {}) {
    const combination c = expect_combination(
        run_combine(left, sets(left_domains), right, sets(right_domains), map, pivot), text, out);
    check_combination(left, 2, right, 2, map, pivot, c, text,
                      text == "equal" || text.find("no_sub_interval") != std::string::npos);
  };
  // a - b >= c0, b - a >= c1: false if c0 + c1 > 0, the equality if both are 0 (the
  // random table checks implication, not strength); a sum beyond 32 bits: nothing.
  expect(plus2, difference_ge_propagator(-1), wide, wide, {1, 0}, 0, "[]");
  expect(zero, zero, wide, wide, {1, 0}, 1, "equal", {0, 1});
  expect(difference_ge_propagator(INT_MAX), one, wide, wide, {1, 2}, 0, "");
  // a - p >= 2, p - z >= 3 sum up where it keeps the conflict on a <= 9, z >= 5; on
  // a <= 20 the pivot stays as the literal p in 8..18 beside a - z >= 5 and not both
  // z >= 5 and a <= 20.
  expect(plus2, three, "0:9 0:31", "0:31 5:31", {1, 2}, 0, "diff_ge_5", {0, 2});
  expect(plus2, three, "0:20 0:31", "0:31 5:31", {1, 2}, 0,
         "(([x,y-5]no_sub_interval_of [5,15]) || [P0:{8:18}])\n", {2, 0, 1});
  // The other orientation: p - a >= -3 (right), a - b >= 2 (left), pivot a.
  expect(plus2, minus3, "0:31 25:31", "0:20 0:31", {2, 0}, 1, "diff_ge_minus_1", {2, 1});
  expect(plus2, plus2, wide, wide, {0, 2}, 0, "");  // neither a middle nor a circular pivot
}

TEST(comparison_propagators, new_propagator_by_literal_count) {
  // Literals first, then the base; with literals, the disjoint class (combining like a difference
  // for the difference), and the form keeps its base, which a bare base takes over.
  const difference_ge_propagator difference(4);
  const equal_propagator equal;
  const std::tuple<const constraint_propagator*, unsigned, std::string> cases[] = {
      {&difference, 0, "diff_ge_4"}, {&difference, 2, "(diff_ge_4 || [P0:{1:3}, P1=0])\n"},
      {&equal, 0, "equal"}, {&equal, 2, "(equal || [P0:{1:3}, P1=0])\n"}};
  for (const auto& [base, count, text] : cases) {
    disjunction_specification form;
    if (count) form.add_literal(7, iset("1:3")), form.add_literal(3, iset("0"));
    form.own_constraint(base->clone());
    form.add_constraint_param(5), form.add_constraint_param(2);
    std::vector<unsigned> params{9};
    std::unique_ptr<constraint_propagator> p = base->new_propagator(form, params);
    ASSERT_TRUE(p) << text;
    EXPECT_EQ(printed(*p), text);
    EXPECT_EQ(params, (count ? std::vector<unsigned>{5, 2, 7, 3} : std::vector<unsigned>{5, 2})) << text;
    EXPECT_EQ(p->count_params(), 2 + count) << text;
    EXPECT_EQ(form.owns_constraint(), count > 0) << text;
    EXPECT_EQ(dynamic_cast<difference_ge_or_clause_propagator*>(p.get()) != nullptr, count && base == &difference);
  }
}

}  // namespace
}  // namespace zelk
