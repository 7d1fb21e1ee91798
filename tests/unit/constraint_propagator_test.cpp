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

}  // namespace
}  // namespace zelk
