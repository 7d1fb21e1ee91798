// Union-find: representatives are the highest member, paths get compressed, and
// random unions agree with a naive relabelling reference.
#include "impl/equivalence_classes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace zelk {
namespace {

TEST(equivalence_classes, unseen_numbers_are_their_own_class) {
  const equivalence_classes empty;
  EXPECT_EQ(empty.find(0), 0u);
  EXPECT_EQ(empty.find(42), 42u);
  equivalence_classes classes;
  classes.unite(3, 7);
  EXPECT_EQ(classes.find(1), 1u);
  EXPECT_EQ(classes.find(5), 5u);
  EXPECT_EQ(classes.find(1000), 1000u);
}

TEST(equivalence_classes, highest_number_represents_and_paths_compress) {
  equivalence_classes classes;
  classes.unite(3, 7);
  EXPECT_EQ(classes.find(3), 7u);
  EXPECT_EQ(classes.find(7), 7u);
  classes.unite(7, 9);
  EXPECT_EQ(classes.parent(3), 7u);  // not yet compressed
  EXPECT_EQ(classes.find(3), 9u);
  EXPECT_EQ(classes.parent(3), 9u);
  // The argument order does not matter, nor whether the lower one is a root.
  classes.unite(12, 3);
  EXPECT_EQ(classes.find(9), 12u);
  EXPECT_EQ(classes.find(7), 12u);
  classes.unite(1, 0);
  EXPECT_EQ(classes.find(0), 1u);
  EXPECT_EQ(classes.find(12), 12u);
  // Uniting within one class changes nothing.
  classes.unite(3, 9);
  EXPECT_EQ(classes.find(3), 12u);
  EXPECT_EQ(classes.find(1), 1u);
}

TEST(equivalence_classes, long_chain_is_flattened_by_one_find) {
  equivalence_classes classes;
  for (unsigned int i = 0; i < 100; ++i) classes.unite(i, i + 1);
  EXPECT_EQ(classes.find(0), 100u);
  for (unsigned int i = 0; i < 100; ++i) EXPECT_EQ(classes.parent(i), 100u) << i;
}

TEST(equivalence_classes, random_unions_match_naive_reference) {
  for (unsigned int seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 gen(seed);
    const unsigned int n = 60;
    std::vector<unsigned int> label(n);  // the highest member of each class
    for (unsigned int i = 0; i < n; ++i) label[i] = i;
    equivalence_classes classes;
    for (int step = 0; step < 80; ++step) {
      const unsigned int a = gen() % n, b = gen() % n;
      classes.unite(a, b);
      const unsigned int old_a = label[a], old_b = label[b];
      const unsigned int joined = std::max(old_a, old_b);
      for (unsigned int& l : label)
        if (l == old_a || l == old_b) l = joined;
      // Checking only now and then leaves some paths long between finds.
      if (gen() % 4 == 0) {
        for (unsigned int x = 0; x < n; ++x) ASSERT_EQ(classes.find(x), label[x]) << "x " << x;
      }
    }
    for (unsigned int x = 0; x < n; ++x) ASSERT_EQ(classes.find(x), label[x]) << "x " << x;
  }
}

}  // namespace
}  // namespace zelk
