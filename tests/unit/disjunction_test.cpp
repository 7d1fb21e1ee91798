// The disjunction machinery beyond the brute-force table (propagators_test): the
// disjoint propagation, the literal algebra, combinations that go through it.
#include "impl/disjunction_specification.h"

#include <gtest/gtest.h>

#include <memory>
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

std::unique_ptr<difference_ge_or_clause_propagator> diff_or(int c, const char* literals) {
  auto p = std::make_unique<difference_ge_or_clause_propagator>(c);
  p->update_literals() = sets(literals);
  return p;
}

TEST(disjunction, disjoint_propagation_edges) {
  // x - y >= 3 or the clause (a disjunction never fails at init): the difference
  // holds already, VALID, or has nothing to reduce, CONSISTENT; both without a
  // look at the clause (the other outcomes: the brute-force table).
  const auto run = [](const char* d, result_type result) {
    auto p = diff_or(3, "1 2");
    recording_info view(sets(d));
    EXPECT_NE(p->init(view), propagation_types::UNSAT);
    view.reads.assign(view.arity(), 0);
    EXPECT_EQ(p->propagate(view), result) << d;
    EXPECT_EQ(view.domains(), sets(d)) << d;
    EXPECT_EQ(view.reads[2] + view.reads[3], 0u) << d;
  };
  run("8:9 0:2 0:5 0:5", propagation_types::VALID);
  run("3:9 0:6 0:5 0:5", propagation_types::CONSISTENT);
  // A clone explains a failure like the original: the difference's, then the literals.
  domain_list explanation;
  diff_or(2, "1")->clone()->explain_propagation(0, iset::full(), iset(), make_view(sets("0:3 5:9 0")), explanation);
  EXPECT_EQ(explanation, sets("7:31 0:4 1"));
}

//==== the literal algebra =====================================================

// The form a disjunction declares: literals (count, start, variables, sets)
// and base constraint (parameter count, variables, text).
std::string shape(const disjunction_specification& s) {
  std::ostringstream os;
  os << s.literal_count() << " from " << s.literal_start() << ":";
  for (unsigned k = 0; k < s.literal_count(); ++k) os << " v" << s.literal_var(k) << "{" << s.literal(k) << "}";
  os << " base " << s.constraint_param_count() << ":";
  for (unsigned i = 0; i < s.constraint_param_count(); ++i) os << " v" << s.constraint_var(i);
  os << " " << (s.constraint() ? printed(*s.constraint()) : "none");
  return os.str();
}

TEST(disjunction, resolution_of_literals) {
  const constraint_explicit_info three = make_view(sets("0:9 0:9 0:9")), one_view = make_view(sets("0:9"));
  const clause_propagator left{iset("1:2"), iset("0"), iset("5")}, right{iset("3"), iset("4"), iset("6")};
  const disjunction_specification l(three, left, {3, 5, 8});
  // 3 is the pivot: {1,2} and {3} meet nowhere, so it goes; 8 unites.
  disjunction_specification resolvent;
  resolvent.resolve_literals(l, disjunction_specification(three, right, {3, 6, 8}), 3);
  EXPECT_EQ(shape(resolvent), "3 from 0: v5{0} v8{5,6} v6{4} base 0: none");
  // A pivot whose sets meet stays, with the intersection.
  resolvent.resolve_literals(l, disjunction_specification(one_view, clause_propagator{iset("2:3")}, {3}), 3);
  EXPECT_EQ(shape(resolvent), "3 from 0: v3{2} v5{0} v8{5} base 0: none");
  // Everything gone: the empty clause.
  std::vector<unsigned> out{9};
  const std::unique_ptr<constraint_propagator> empty =
      disjunction_specification(one_view, clause_propagator{iset("1")}, {})
          .combine(disjunction_specification(one_view, clause_propagator{iset("2")}, {0}), 0, out);
  EXPECT_EQ(empty ? printed(*empty) + " on " + show(out) : "", "[] on ");
  // A base constraint without parameters can't hold: only the literals count.
  disjunction_specification form;
  form.add_literal(4, iset("2"));
  form.own_constraint(std::make_unique<clause_propagator>());
  form.make_constraint(out);
  EXPECT_EQ(printed(*form.make_constraint(out)) + " on " + show(out), "[P0=2] on 4");
  form.clear();
  EXPECT_EQ(shape(form), "0 from 0: base 0: none");
}

TEST(disjunction, combinations_that_are_refused) {
  const constraint_explicit_info four = make_view(sets("0:9 0:9 0:9 0:9")), two = make_view(sets("0:9 0:9"));
  std::vector<unsigned> out;
  // The pivot a base parameter on one side and a literal on the other; a literal on one
  // side only; a base variable of the left among the right's literals; two clauses.
  auto left = diff_or(1, "1 2");
  const clause_propagator clause{iset("3"), iset("4")};
  EXPECT_FALSE(left->combine(four, clause, two, {1, 4}, 0, out));
  EXPECT_FALSE(left->combine(four, difference_ge_propagator(0), two, {2, 4}, 0, out));
  EXPECT_FALSE(left->combine(four, clause, two, {0, 2}, 1, out));
  EXPECT_FALSE(clause.combine(two, clause, two, {0, 1}, 0, out));
  EXPECT_FALSE(clause.may_combine(clause) || left->may_combine(linear_combination_ge_propagator(0, {1, 1})));
  EXPECT_TRUE(clause.may_combine(*left) && clause.may_combine(difference_ge_propagator(0)) &&
              left->may_combine(clause));
}

TEST(disjunction, disjoining_two_differences) {
  const difference_ge_propagator weak(2), strong(5), zero(0);
  const constraint_explicit_info wide = make_view(sets("0:31 0:31")), false_here = make_view(sets("0:3 5:9"));
  // On the same variables: the weaker of the two.
  disjunction_specification same, other, may_hold, shared;
  ASSERT_TRUE(strong.disjoin_constraint(disjunction_specification(wide, strong, {}),
                                        disjunction_specification(wide, weak, {0, 1}), same));
  EXPECT_EQ(shape(same), "0 from 0: base 2: v0 v1 diff_ge_2");
  // On other variables, the right one false on its domains: its explanation
  // clause stands in for it, the left one stays.
  const disjunction_specification l(wide, weak, {});
  ASSERT_TRUE(weak.disjoin_constraint(l, disjunction_specification(false_here, zero, {2, 3}), other));
  EXPECT_EQ(shape(other), "2 from 0: v2{5:31} v3{0:4} base 2: v0 v1 diff_ge_2");
  check_explanation(sets("0:3 5:9"), 0, iset::full(), iset(), {other.literal(0), other.literal(1)},
                    relation_of(zero, 2), "disjoined");
  // The right one may still hold, or a shared variable: no disjunction.
  EXPECT_FALSE(weak.disjoin_constraint(l, disjunction_specification(wide, zero, {2, 3}), may_hold));
  EXPECT_FALSE(weak.disjoin_constraint(l, disjunction_specification(false_here, zero, {2, 1}), shared));
}

TEST(disjunction, the_pivot_goes) {
  // x - y >= 1 or v2 in {1}; clause v2 in {2} or v3 in {4}: resolve on v2, from
  // either side (combine_other_first turns the numbering); a literal shared besides
  // the pivot comes back under the clause's number.
  const domain_list d3 = sets("0:9 0:31 0:31"), d2 = sets("0:31 0:31"), d4 = sets("0:31 0:31 0:31 0:31");
  const auto left = diff_or(1, "1"), both = diff_or(1, "1 5");
  const clause_propagator clause{iset("2"), iset("4")};
  combination c = expect_combination(run_combine(*left, d3, clause, d2, {2, 3}, 0), "literal_or_diff_ge_1",
                                     {3, 0, 1});
  check_combination(*left, 3, clause, 2, {2, 3}, 0, c, "literal pivot");
  c = expect_combination(run_combine(clause, d2, *left, d3, {2, 3, 0}, 2), "literal_or_diff_ge_1", {1, 2, 3});
  check_combination(clause, 2, *left, 3, {2, 3, 0}, 2, c, "literal pivot, clause left");
  c = expect_combination(run_combine(clause, d2, *both, d4, {2, 3, 0, 1}, 2), "literal_or_diff_ge_1",
                         {1, 2, 3});
  check_combination(clause, 2, *both, 4, {2, 3, 0, 1}, 2, c, "shared literal");
}

}  // namespace
}  // namespace zelk
