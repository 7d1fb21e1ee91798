// The disjunction machinery beyond the brute-force tables of propagators_test:
// explanations of a clone, the literal algebra, disjoining two differences.
#include "impl/disjunction_specification.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

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

TEST(disjunction, a_clone_explains_like_the_original) {
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

}  // namespace
}  // namespace zelk
