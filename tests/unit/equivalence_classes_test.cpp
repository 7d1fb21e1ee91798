// Union-find against a naive relabelling: the highest member represents its class,
// numbers never united are their own class, and a find flattens the path it walks.
#include "impl/equivalence_classes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace zelk {
namespace {

TEST(equivalence_classes, one_find_flattens_a_long_chain) {
  equivalence_classes chain;
  for (unsigned int i = 0; i < 100; ++i) chain.unite(i, i + 1);
  EXPECT_EQ(chain.find(0), 100u);
  for (unsigned int i = 0; i < 100; ++i) ASSERT_EQ(chain.parent(i), 100u) << i;
}

TEST(equivalence_classes, random_unions_match_naive_relabelling) {
  for (unsigned int seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 gen(seed);
    std::vector<unsigned int> label(70);  // the highest member of each class; 60 and up stay alone
    std::iota(label.begin(), label.end(), 0u);
    equivalence_classes classes;
    for (int step = 0; step < 100; ++step) {
      const unsigned int a = gen() % 60, b = gen() % 60;
      classes.unite(a, b);
      const unsigned int old_a = label[a], old_b = label[b];
      for (unsigned int& l : label)
        if (l == old_a || l == old_b) l = std::max(old_a, old_b);
      if (gen() % 4 != 0 && step != 99) continue;  // now and then, so that paths grow between finds
      for (unsigned int x = 0; x < label.size(); ++x) {
        ASSERT_EQ(classes.find(x), label[x]) << "x " << x;
        ASSERT_EQ(classes.parent(x), label[x]) << "x " << x;
      }
    }
  }
}

}  // namespace
}  // namespace zelk
