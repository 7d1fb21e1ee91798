// The comparison propagators against brute force on many small random
// instances (filtering, failure, validity, conflicts, constraint_check, every
// explanation and the difference's rule), the soundness of what they build by
// combination, and the fixed cases of their algorithms.
#include "impl/comparison_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

//==== fixed cases of the algorithms ==========================================

TEST(comparison_propagators, fixed_propagations) {
  const difference_ge_propagator minus5(-5), three(3);
  const is_equal_propagator reified;
  const if_then_else_propagator ite;
  const result_type consistent = propagation_types::CONSISTENT, valid = propagation_types::VALID;
  for (const auto& [p, d, result, after] : std::vector<
           std::tuple<const constraint_propagator*, domain_list, result_type, domain_list>>{
           // A negative constant: max(x) - c passes 31, and y keeps everything.
           {&minus5, {iset("20:31"), iset("0:31")}, consistent, {iset("20:31"), iset("0:31")}},
           // VALID straight after reducing: x >= 3 + y with y = 2 cuts x to 5..9.
           {&three, {iset("0:9"), iset("2")}, valid, {iset("5:9"), iset("2")}},
           // b fixed to 1 on equal single values stays CONSISTENT; fixed to 0 it is VALID.
           {&reified, {iset("1"), iset("4"), iset("4")}, consistent, {iset("1"), iset("4"), iset("4")}},
           {&reified, {iset("0"), iset("4"), iset("3:5")}, valid, {iset("0"), iset("4"), iset("3,5")}},
           {&reified, {iset("0:1"), iset("4"), iset("4")}, consistent, {iset("1"), iset("4"), iset("4")}},
           // Values of b outside 0..1 are dropped.
           {&reified, {iset("0:7"), iset("2"), iset("5")}, valid, {iset("0"), iset("2"), iset("5")}},
           {&ite, {iset("0:9"), iset("0:5"), iset("2:3"), iset("20")}, consistent,
            {iset("2:3"), iset("1"), iset("2:3"), iset("20")}},
           {&ite, {iset("0:9"), iset("0:5"), iset("2:3"), iset("7")}, consistent,
            {iset("2,3,7"), iset("0,1"), iset("2:3"), iset("7")}},
           {&ite, {iset("0:9"), iset("0"), iset("2:3"), iset("7")}, valid,
            {iset("7"), iset("0"), iset("2:3"), iset("7")}},
           {&ite, {iset("0:9"), iset("2:9"), iset("2:3"), iset("7")}, propagation_types::UNSAT, {}}})
    expect_propagation(*p, d, result, after);
  // Simplification with a fixed side is a unary bound.
  std::vector<unsigned> kept;
  EXPECT_FALSE(three.intersect_with(make_view({iset("0:9"), iset("0:9")}), kept));
  std::unique_ptr<constraint_propagator> bound =
      three.intersect_with(make_view({iset("0:9"), iset("4")}), kept);
  ASSERT_TRUE(bound);
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
  EXPECT_EQ(printed(*bound), "[P0>=7]");
}

TEST(comparison_propagators, difference_rule_edges_and_text) {
  const difference_ge_propagator p(4);
  // An empty first entry: t = 31, so x > 31 is empty and the clause is y <= 27.
  std::unique_ptr<explanation_rule> rule = p.rule({iset(), iset("0:27")});
  domain_list out{iset::full(), iset::full(), iset::full()};
  rule->get_explanation(out);
  EXPECT_EQ(out, (domain_list{iset(), iset("0:27")}));
  // t - c below 0 leaves the y entry empty.
  rule = p.rule({iset("3:31"), iset()});
  rule->get_explanation(out);
  EXPECT_EQ(out, (domain_list{iset("3:31"), iset()}));
  domain_list copied;
  rule->clone()->get_explanation(copied);
  EXPECT_EQ(copied, out);
  struct : variable_print_strategy {
    void print(std::ostream& os, unsigned int variable) const override { os << "v" << variable; }
  } strategy;
  std::ostringstream text;
  rule->print(text, strategy, {0, 1});
  text << " ";
  difference_ge_propagator(-3).rule({iset("8:31"), iset()})->print(text, strategy, {0, 1});
  EXPECT_EQ(text.str(), "DIFF_GE_4(2) DIFF_GE_minus_3(7)");
}

//==== combination ==============================================================

TEST(comparison_propagators, difference_combination_edges) {
  const difference_ge_propagator plus2(2), minus1(-1), minus2(-2), minus3(-3), zero(0), one(1),
      three(3), big(INT_MAX);
  const domain_list wide(2, iset("0:31")), z5{iset("0:31"), iset("5:31")};
  const struct {
    const constraint_propagator *left, *right;
    domain_list left_domains, right_domains;
    std::vector<unsigned> map;
    unsigned pivot;
    std::string text;
    std::vector<unsigned> out;
  } cases[] = {
      // a - b >= 2 and b - a >= -1: together false, the empty clause; c0 + c1 = 0
      // with c0 not 0: no equality with an offset; both 0: the equality.
      {&plus2, &minus1, wide, wide, {1, 0}, 0, "[]", {}},
      {&plus2, &minus2, wide, wide, {1, 0}, 0, "", {}},
      {&zero, &zero, wide, wide, {1, 0}, 1, "equal", {0, 1}},
      // A sum beyond 32 bits is refused.
      {&big, &one, wide, wide, {1, 2}, 0, "", {}},
      // The plain sum keeps the conflict: a <= 9, z >= 5, a - p >= 2, p - z >= 3;
      // where it would hold on the domains (a <= 20), refused.
      {&plus2, &three, {iset("0:9"), iset("0:31")}, z5, {1, 2}, 0, "diff_ge_5", {0, 2}},
      {&plus2, &three, {iset("0:20"), iset("0:31")}, z5, {1, 2}, 0, "", {}},
      // The other orientation: p - a >= -3 (right), a - b >= 2 (left), pivot a.
      {&plus2, &minus3, {iset("0:31"), iset("25:31")}, {iset("0:20"), iset("0:31")}, {2, 0}, 1,
       "diff_ge_minus_1", {2, 1}},
      // Neither a middle nor a circular pivot.
      {&plus2, &plus2, wide, wide, {0, 2}, 0, "", {}}};
  for (const auto& k : cases) {
    const combination c = expect_combination(
        run_combine(*k.left, k.left_domains, *k.right, k.right_domains, k.map, k.pivot), k.text,
        k.out);
    check_combination(*k.left, 2, *k.right, 2, k.map, k.pivot, c, k.text, k.text == "equal");
  }
  // A difference doesn't combine with a sum from the left.
  EXPECT_FALSE(plus2.may_combine(linear_combination_ge_propagator(1, {1, 1})));
}

TEST(comparison_propagators, new_propagator_by_literal_count) {
  // Through specifications of results: literals first, then the base; with
  // literals, the class that combines like a difference.
  const std::vector<std::pair<std::vector<unsigned>, std::string>> expected{
      {{5, 2}, "diff_ge_4"},
      {{5, 2, 7}, "(diff_ge_4 || [P0:{1:3}])\n"},
      {{5, 2, 7, 3}, "(diff_ge_4 || [P0:{1:3}, P1=0])\n"}};
  std::vector<unsigned> params{9};
  for (unsigned count = 0; count <= 2; ++count) {
    disjunction_specification form;
    if (count >= 1) form.add_literal(7, iset("1:3"));
    if (count == 2) form.add_literal(3, iset("0"));
    form.own_constraint(std::make_unique<difference_ge_propagator>(4));
    form.add_constraint_param(5);
    form.add_constraint_param(2);
    std::unique_ptr<constraint_propagator> p = difference_ge_propagator(4).new_propagator(form, params);
    ASSERT_TRUE(p);
    EXPECT_EQ(params, expected[count].first);
    EXPECT_EQ(printed(*p), expected[count].second);
    EXPECT_EQ(p->count_params(), 2 + count);
    EXPECT_EQ(dynamic_cast<difference_ge_or_clause_propagator*>(p.get()) != nullptr, count > 0);
    EXPECT_EQ(form.owns_constraint(), count > 0);  // taken over by a bare base
  }
  disjunction_specification eq_spec;
  eq_spec.add_literal(4, iset("2"));
  eq_spec.own_constraint(std::make_unique<equal_propagator>());
  eq_spec.add_constraint_param(0);
  eq_spec.add_constraint_param(1);
  std::unique_ptr<constraint_propagator> p = equal_propagator().new_propagator(eq_spec, params);
  ASSERT_TRUE((dynamic_cast<disjoint_propagator<equal_propagator, clause_propagation_algo>*>(p.get())));
  EXPECT_EQ(params, (std::vector<unsigned>{0, 1, 4}));
  EXPECT_EQ(printed(*p), "(equal || [P0=2])\n");
}

}  // namespace
}  // namespace zelk
