// The disjunction machinery: the disjoint propagators against brute force of
// "base constraint or clause" (soundness, the promised commits, explanations),
// their fixed cases, the literal algebra of disjunction_specification, and the
// soundness of combinations that go through it.
#include "impl/disjunction_specification.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjoint_propagation_algo.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

template <class P = difference_ge_or_clause_propagator, class... A>
std::unique_ptr<P> disjoint(const domain_list& literals, A&&... base) {
  auto p = std::make_unique<P>(std::forward<A>(base)...);
  p->update_literals() = literals;
  return p;
}

std::unique_ptr<difference_ge_or_clause_propagator> diff_or(int c, const domain_list& literals) {
  return disjoint(literals, c);
}

//==== fixed cases of the disjoint propagation ================================

TEST(disjunction, disjoint_propagation_edges) {
  // x - y >= 3 or the clause, after init; with `untouched`, propagate must not
  // read the clause's parameters.
  const auto run = [](const domain_list& literals, const domain_list& d, result_type result,
                      const domain_list& after, bool untouched = false) {
    auto p = diff_or(3, literals);
    recording_info view(d);
    EXPECT_NE(p->init(view), propagation_types::UNSAT);  // a disjunction never fails at init
    view.reads.assign(d.size(), 0);
    EXPECT_EQ(p->propagate(view), result) << show(d);
    if (result != propagation_types::UNSAT) {
      EXPECT_EQ(view.domains(), after) << show(d);
    }
    if (untouched) {
      EXPECT_EQ(view.reads[2] + view.reads[3], 0u) << show(d);
    }
  };
  // The clause is false (P2 = 4): the reductions of the difference are
  // committed, and its result is the result.
  run({iset("1")}, {iset("0:9"), iset("5:9"), iset("4")}, propagation_types::CONSISTENT,
      {iset("8:9"), iset("5:6"), iset("4")});
  // The difference can't hold: the clause runs for real, unit here, or fails.
  const domain_list open{iset("0:3"), iset("5:9"), iset("0:5"), iset("0:5")};
  run({iset("1:2"), iset("7")}, open, propagation_types::VALID,
      {iset("0:3"), iset("5:9"), iset("1:2"), iset("0:5")});
  run({iset("7"), iset("7")}, open, propagation_types::UNSAT, {});
  // The difference holds already: VALID without a look at the clause; nothing
  // to reduce: CONSISTENT, again without the clause; the difference would
  // reduce but the clause may hold: nothing is written.
  const domain_list holds{iset("8:9"), iset("0:2"), iset("0:5"), iset("0:5")};
  run({iset("1"), iset("2")}, holds, propagation_types::VALID, holds, true);
  const domain_list idle{iset("3:9"), iset("0:6"), iset("0:5"), iset("0:5")};
  run({iset("1"), iset("2")}, idle, propagation_types::CONSISTENT, idle, true);
  const domain_list may{iset("0:9"), iset("5:9"), iset("0:5"), iset("0:5")};
  run({iset("1"), iset("2")}, may, propagation_types::CONSISTENT, may);
}

TEST(disjunction, a_clone_explains_like_the_original) {
  // A clone serves hypothetical runs: the adapter class, with the same behaviour.
  std::unique_ptr<constraint_propagator> copy = diff_or(2, {iset("1")})->clone();
  // Explanation of a failure: the difference's, then the clause's literals.
  domain_list explanation;
  copy->explain_propagation(0, iset::full(), iset(),
                            make_view({iset("0:3"), iset("5:9"), iset("0")}), explanation);
  EXPECT_EQ(explanation, (domain_list{iset("7:31"), iset("0:4"), iset("1")}));
}

//==== the literal algebra =====================================================

// The form a specification declares: literals (count, start, variables, sets)
// and base constraint (parameter count, variables, text).
std::string shape(const disjunction_specification& s) {
  std::ostringstream os;
  os << s.literal_count() << " from " << s.literal_start() << ":";
  for (unsigned k = 0; k < s.literal_count(); ++k)
    os << " v" << s.literal_var(k) << "{" << s.literal(k) << "}";
  os << " base " << s.constraint_param_count() << ":";
  for (unsigned i = 0; i < s.constraint_param_count(); ++i) os << " v" << s.constraint_var(i);
  os << " " << (s.constraint() ? printed(*s.constraint()) : "none");
  return os.str();
}

TEST(disjunction, resolution_of_literals) {
  const constraint_explicit_info three = make_view(domain_list(3, iset("0:9")));
  const constraint_explicit_info one_view = make_view({iset("0:9")});
  const clause_propagator left{iset("1:2"), iset("0"), iset("5")};
  const clause_propagator right{iset("3"), iset("4"), iset("6")};
  const clause_propagator wide{iset("2:3")};
  const disjunction_specification l(three, left, {3, 5, 8});
  // 3 is the pivot: {1,2} and {3} meet nowhere, so it goes; 8 unites.
  disjunction_specification resolvent;
  resolvent.resolve_literals(l, disjunction_specification(three, right, {3, 6, 8}), 3);
  EXPECT_EQ(shape(resolvent), "3 from 0: v5{0} v8{5,6} v6{4} base 0: none");
  // A pivot whose sets meet stays, with the intersection.
  resolvent.resolve_literals(l, disjunction_specification(one_view, wide, {3}), 3);
  EXPECT_EQ(shape(resolvent), "3 from 0: v3{2} v5{0} v8{5} base 0: none");
  // Everything gone: the empty clause.
  const clause_propagator one{iset("1")}, other{iset("2")};
  std::vector<unsigned> out{9};
  std::unique_ptr<constraint_propagator> empty =
      disjunction_specification(one_view, one, {})
          .combine(disjunction_specification(one_view, other, {0}), 0, out);
  ASSERT_TRUE(empty);
  EXPECT_EQ(printed(*empty), "[]");
  EXPECT_TRUE(out.empty());
  // A base constraint without parameters can't hold: only the literals count.
  disjunction_specification form;
  form.add_literal(4, iset("2"));
  form.own_constraint(std::make_unique<clause_propagator>());
  form.make_constraint(out);
  EXPECT_EQ(printed(*form.make_constraint(out)), "[P0=2]");
  EXPECT_EQ(out, (std::vector<unsigned>{4}));
  form.clear();
  EXPECT_EQ(shape(form), "0 from 0: base 0: none");
}

TEST(disjunction, combinations_that_are_refused) {
  const constraint_explicit_info four = make_view(domain_list(4, iset("0:9")));
  const constraint_explicit_info two = make_view(domain_list(2, iset("0:9")));
  std::vector<unsigned> out;
  // The pivot is a base parameter on the left and a literal on the right.
  auto left = diff_or(1, {iset("1"), iset("2")});
  const clause_propagator clause{iset("3"), iset("4")};
  EXPECT_FALSE(left->combine(four, clause, two, {1, 4}, 0, out));
  // A literal on one side only.
  EXPECT_FALSE(left->combine(four, difference_ge_propagator(0), two, {2, 4}, 0, out));
  // A base variable of the left among the right's literals.
  EXPECT_FALSE(left->combine(four, clause, two, {0, 2}, 1, out));
  // Clauses resolve instead.
  EXPECT_FALSE(clause.combine(two, clause, two, {0, 1}, 0, out));
  EXPECT_FALSE(clause.may_combine(clause));
  EXPECT_TRUE(clause.may_combine(*left));
  EXPECT_TRUE(clause.may_combine(difference_ge_propagator(0)));
  EXPECT_TRUE(left->may_combine(clause));
  EXPECT_FALSE(left->may_combine(linear_combination_ge_propagator(0, {1, 1})));
}

TEST(disjunction, disjoining_two_differences) {
  const difference_ge_propagator weak(2), strong(5), zero(0);
  const constraint_explicit_info wide = make_view({iset("0:31"), iset("0:31")});
  const constraint_explicit_info false_here = make_view({iset("0:3"), iset("5:9")});
  // On the same variables: the weaker of the two.
  disjunction_specification result;
  ASSERT_TRUE(strong.disjoin_constraint(disjunction_specification(wide, strong, {}),
                                        disjunction_specification(wide, weak, {0, 1}), result));
  EXPECT_EQ(shape(result), "0 from 0: base 2: v0 v1 diff_ge_2");
  // On other variables, the right one false on its domains: its explanation
  // clause stands in for it, the left one stays.
  const disjunction_specification l(wide, weak, {});
  result.clear();
  ASSERT_TRUE(weak.disjoin_constraint(l, disjunction_specification(false_here, zero, {2, 3}), result));
  EXPECT_EQ(shape(result), "2 from 0: v2{5:31} v3{0:4} base 2: v0 v1 diff_ge_2");
  check_explanation({iset("0:3"), iset("5:9")}, 0, iset::full(), iset(),
                    {result.literal(0), result.literal(1)}, relation_of(zero, 2), "disjoined");
  // The right one may still hold, or a shared variable: no disjunction.
  result.clear();
  EXPECT_FALSE(weak.disjoin_constraint(l, disjunction_specification(wide, zero, {2, 3}), result));
  result.clear();
  EXPECT_FALSE(
      weak.disjoin_constraint(l, disjunction_specification(false_here, zero, {2, 1}), result));
}

// The pivot disappears where the combination promises it: a literal pivot
// whose sets don't meet, and a middle pivot.
TEST(disjunction, the_pivot_goes) {
  const domain_list domains{iset("0:9"), iset("0:31"), iset("0:31")}, wide(4, iset("0:31"));
  const domain_list two(wide.begin(), wide.begin() + 2);
  // x - y >= 1 or v2 in {1}; clause v2 in {2} or v3 in {4}: resolve on v2, from
  // either side (combine_other_first turns the numbering).
  auto left = diff_or(1, {iset("1")});
  const clause_propagator clause{iset("2"), iset("4")};
  combination c = expect_combination(run_combine(*left, domains, clause, two, {2, 3}, 0),
                                     "(diff_ge_1 || [P0=4])\n", {0, 1, 3});
  check_combination(*left, 3, clause, 2, {2, 3}, 0, c, "literal pivot");
  c = expect_combination(run_combine(clause, two, *left, domains, {2, 3, 0}, 2),
                         "(diff_ge_1 || [P0=4])\n", {2, 3, 1});
  check_combination(clause, 2, *left, 3, {2, 3, 0}, 2, c, "literal pivot, clause left");
  // A literal shared besides the pivot comes back under the clause's number.
  auto both = diff_or(1, {iset("1"), iset("5")});
  c = expect_combination(run_combine(clause, two, *both, wide, {2, 3, 0, 1}, 2),
                         "(diff_ge_1 || [P0:{4,5}])\n", {2, 3, 1});
  check_combination(clause, 2, *both, 4, {2, 3, 0, 1}, 2, c, "shared literal");
  // x - p >= 1 or v2 in {1}, p - z >= 3 or v4 in {0}: x <= 9 and z >= 6 keep the
  // conflict of x - z >= 4.
  auto right = diff_or(3, {iset("0")});
  c = expect_combination(
      run_combine(*left, domains, *right, {iset("0:31"), iset("6:31"), iset("0:31")}, {1, 3, 4}, 0),
      "(diff_ge_4 || [P0=1, P1=0])\n", {0, 3, 2, 4});
  check_combination(*left, 3, *right, 3, {1, 3, 4}, 0, c, "middle pivot");
}

}  // namespace
}  // namespace zelk
