// The propagator interface: defaults of the base class, the result printing, and
// combine_other_first's renumbering both ways.
#include "impl/constraint_propagator.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>

#include "impl/constraint_explicit_info.h"
#include "impl/explanation_generators.h"

namespace zelk {
namespace {

using iset = small_model::iset;

class plain : public constraint_propagator {
 public:
  result_type propagate(constraint_runtime_info&) override { return CONSISTENT; }
  bool conflicts(const constraint_runtime_info&) const override { return false; }
  bool constraint_check(const constraint_runtime_info&) const override { return true; }
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<plain>(*this);
  }
};

// A right operand that records how combine_other_first called it and answers
// with an `out` in its own left-then-right numbering.
class echo : public plain {
 public:
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator&,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override {
    seen_map = map;
    seen_pivot = pivot;
    seen_arities = {info.arity(), right_info.arity()};
    out = answer;
    return std::make_unique<plain>();
  }
  mutable std::vector<unsigned int> seen_map;
  mutable unsigned int seen_pivot = 0;
  mutable std::vector<unsigned int> seen_arities;
  std::vector<unsigned int> answer;
};

TEST(constraint_propagator, default_init_watches_every_parameter_that_is_not_fixed) {
  constraint_explicit_info info(3);
  info.domains() = {iset::singleton(3), iset(), iset::clipped_range(0, 4)};
  plain p;
  EXPECT_EQ(p.init(info), propagation_types::VALID);
  // The empty domain counts as not fixed.
  EXPECT_EQ(info.count_watches(), 2u);
  EXPECT_EQ(p.count_params(), constraint_propagator::ANY_NUMBER_OF_PARAMS);
  EXPECT_EQ(p.count_watches(), 0u);
  EXPECT_EQ(p.rule({}), nullptr);
  std::vector<unsigned int> kept{9};
  EXPECT_EQ(p.intersect_with(info, kept), nullptr);
  EXPECT_EQ(kept, std::vector<unsigned int>{9});
  EXPECT_FALSE(p.potentially_falsifying(info, 0));
  try {
    (void)p.watched_param_index(0);
    FAIL();
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "impl/constraint_propagator:41: constraint_propagator::watched_param_index\n"
                 "\t\t\t\t has no dynamic watches to work on");
  }
}

TEST(constraint_propagator, default_explanation_is_the_trivial_clause) {
  constraint_explicit_info info(2);
  info.domains() = {iset::clipped_range(0, 3), iset::full()};
  plain p;
  std::vector<iset> explanation;
  p.explain_propagation(0, iset::full(), iset::singleton(2), info, explanation);
  ASSERT_EQ(explanation.size(), 2u);
  EXPECT_EQ(explanation[0], ~iset::clipped_range(0, 3) | iset::singleton(2));
  EXPECT_TRUE(explanation[1].empty());  // the full domain takes no part
}

TEST(constraint_propagator, combine_other_first_renumbers_both_ways) {
  // Left has 3 parameters, right 2; right parameter 0 is left parameter 2 (the
  // pivot, shared by both), right parameter 1 is new (1 + 3 = 4 in the map).
  constraint_explicit_info left_info(3), right_info(2);
  plain left;
  echo right;
  // The right side answers in its own numbering: 0 (its own 0), 3 (left's 1), 1.
  right.answer = {0, 3, 1};
  std::vector<unsigned int> out;
  const std::vector<unsigned int> map{2, 4};
  std::unique_ptr<constraint_propagator> result =
      left.combine_other_first(left_info, right, right_info, map, 0, out);
  ASSERT_NE(result, nullptr);
  // The inverse map: left 0 and 1 are new to the right side (2 + i), left 2 is right 0.
  EXPECT_EQ(right.seen_map, (std::vector<unsigned int>{2, 3, 0}));
  EXPECT_EQ(right.seen_pivot, 2u);
  EXPECT_EQ(right.seen_arities, (std::vector<unsigned int>{2, 3}));
  // Back in left-then-right numbering: right 0 is left 2, 3 is left 1, right 1 is 4.
  EXPECT_EQ(out, (std::vector<unsigned int>{2, 1, 4}));
}

}  // namespace
}  // namespace zelk
