// The propagator base class: default watches and explanation, and
// combine_other_first's renumbering both ways.
#include "impl/constraint_propagator.h"

#include <gtest/gtest.h>

#include <memory>

#include "impl/constraint_explicit_info.h"
#include "unit/test_support.h"

namespace zelk {
namespace {

using iset = small_model::iset;
using plain = test_support::opaque_probe;

// A right operand that records how combine_other_first called it and answers
// with an `out` in its own left-then-right numbering.
class echo : public plain {
 public:
  std::unique_ptr<constraint_propagator> combine(
      const constraint_runtime_info&, const constraint_propagator&, const constraint_runtime_info&,
      const std::vector<unsigned int>& map, unsigned int pivot,
      std::vector<unsigned int>& out) const override {
    seen_map = map;
    seen_pivot = pivot;
    out = answer;
    return std::make_unique<plain>();
  }
  mutable std::vector<unsigned int> seen_map;
  mutable unsigned int seen_pivot = 0;
  std::vector<unsigned int> answer;
};

TEST(constraint_propagator, defaults_watch_what_is_not_fixed_and_explain_trivially) {
  constraint_explicit_info info(3);
  info.domains() = {iset::singleton(3), iset(), iset::clipped_range(0, 4)};
  plain p;
  EXPECT_EQ(p.init(info), propagation_types::VALID);
  EXPECT_EQ(info.count_watches(), 2u);  // the empty domain counts as not fixed
  constraint_explicit_info two(2);
  two.domains() = {iset::clipped_range(0, 3), iset::full()};
  std::vector<iset> explanation;
  p.explain_propagation(0, iset::full(), iset::singleton(2), two, explanation);
  // The full domain takes no part.
  EXPECT_EQ(explanation, (std::vector<iset>{iset("2,4:31"), iset()}));
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
  ASSERT_NE(left.combine_other_first(left_info, right, right_info, map, 0, out), nullptr);
  // The inverse map: left 0 and 1 are new to the right side (2 + i), left 2 is right 0.
  EXPECT_EQ(right.seen_map, (std::vector<unsigned int>{2, 3, 0}));
  EXPECT_EQ(right.seen_pivot, 2u);
  // Back in left-then-right numbering: right 0 is left 2, 3 is left 1, right 1 is 4.
  EXPECT_EQ(out, (std::vector<unsigned int>{2, 1, 4}));
}

}  // namespace
}  // namespace zelk
