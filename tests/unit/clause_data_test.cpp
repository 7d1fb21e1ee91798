// Tests of self-contained clauses: the shortest right-hand-side forms, the normal
// form, the equivalence test with its fast rejection, and printing.
#include "impl/clause_data.h"

#include <gtest/gtest.h>

#include <sstream>

namespace zelk {
namespace {

using iset = small_model::iset;

iset S(std::initializer_list<int> values) {
  iset s;
  for (int v : values) s.insert(v);
  return s;
}

std::string rhs(const iset& set) {
  std::ostringstream os;
  literal_data::print_right_hand_side(os, set);
  return os.str();
}

class letter_strategy : public variable_print_strategy {
 public:
  void print(std::ostream& os, unsigned int variable) const override {
    os << char('x' + variable);
  }
};

clause_data make(std::initializer_list<literal_data> literals) {
  clause_data c;
  for (const literal_data& l : literals) c.add(l);
  return c;
}

std::string text(const clause_data& c) {
  static const letter_strategy strategy;
  std::ostringstream os;
  c.print(os, strategy);
  return os.str();
}

TEST(clause_data, right_hand_side_takes_the_shortest_exact_form) {
  const iset full = iset::full();
  EXPECT_EQ(rhs(S({5})), "=5");
  EXPECT_EQ(rhs(S({0})), "=0");
  EXPECT_EQ(rhs(S({31})), "=31");
  EXPECT_EQ(rhs(iset()), ":{}");
  EXPECT_EQ(rhs(full), "<=31");
  EXPECT_EQ(rhs(full - S({31})), "<=30");
  EXPECT_EQ(rhs(S({0, 1, 2, 3, 4})), "<=4");
  EXPECT_EQ(rhs(S({0, 1})), "<=1");
  EXPECT_EQ(rhs(full - S({0})), ">=1");
  EXPECT_EQ(rhs(S({30, 31})), ">=30");
  EXPECT_EQ(rhs(full - S({7})), "!=7");
  EXPECT_EQ(rhs(full - S({1})), "!=1");
  EXPECT_EQ(rhs(full - S({30})), "!=30");
  EXPECT_EQ(rhs(S({1, 2})), ":{1,2}");
  EXPECT_EQ(rhs(S({0, 31})), ":{0,31}");
  EXPECT_EQ(rhs(S({0, 1, 3})), ":{0,1,3}");
  EXPECT_EQ(rhs(full - S({5, 6})), ":{0:4,7:31}");
  EXPECT_EQ(rhs(full - S({0, 31})), ":{1:30}");
  EXPECT_EQ(rhs(full - S({0, 7})), ":{1:6,8:31}");
}

TEST(clause_data, literals_print_through_their_printer) {
  letter_strategy strategy;
  std::ostringstream os;
  literal_data::print(os, variable_printer(&strategy, 1), S({2, 3, 4}));
  EXPECT_EQ(os.str(), "y:{2:4}");

  EXPECT_EQ(text(clause_data()), "[]");
  EXPECT_EQ(text(make({{0, S({3})}, {2, S({1, 2})}, {1, iset()}})), "[x=3, z:{1,2}, y:{}]");
}

TEST(clause_data, canonicalize_merges_and_drops_empty_literals) {
  clause_data c = make({{0, S({1})}, {0, S({2})}, {1, iset()}});
  c.canonicalize();
  ASSERT_EQ(c.size(), 1u);
  EXPECT_EQ(c[0].variable, 0u);
  EXPECT_EQ(c[0].set, S({1, 2}));

  clause_data empty = make({{3, iset()}, {1, iset()}});
  empty.canonicalize();
  EXPECT_TRUE(empty.empty());

  clause_data mixed = make({{5, S({1})}, {2, S({4})}, {5, S({9})}, {2, iset()}, {0, S({0})},
                            {5, S({1, 3})}});
  mixed.canonicalize();
  EXPECT_EQ(text(mixed), "[x=0, z=4, " + std::string(1, char('x' + 5)) + ":{1,3,9}]");

  clause_data unsorted = make({{4, S({1})}, {1, S({2})}, {3, S({3})}});
  unsorted.sort();
  EXPECT_EQ(unsorted[0].variable, 1u);
  EXPECT_EQ(unsorted[1].variable, 3u);
  EXPECT_EQ(unsorted[2].variable, 4u);
  EXPECT_TRUE(literal_data(1, S({5})) < literal_data(2, S({1})));
  EXPECT_FALSE(literal_data(2, S({1})) < literal_data(2, S({5})));
}

TEST(clause_data, equivalent) {
  const clause_data a = make({{0, S({1})}, {1, S({2})}});
  const clause_data b = make({{1, S({2})}, {0, S({1})}, {2, iset()}});
  EXPECT_TRUE(a.equivalent(b));
  EXPECT_TRUE(b.equivalent(a));
  // Neither operand changes.
  EXPECT_EQ(b.size(), 3u);
  EXPECT_EQ(b[0].variable, 1u);

  EXPECT_FALSE(a.equivalent(make({{0, S({1})}, {1, S({2})}, {2, S({0})}})));
  EXPECT_FALSE(a.equivalent(make({{0, S({1})}, {1, S({2, 3})}})));
  EXPECT_FALSE(a.equivalent(make({{0, S({1})}, {3, S({2})}})));
  EXPECT_TRUE(a.equivalent(make({{1, S({2})}, {0, S({1})}})));
  EXPECT_TRUE(make({{0, S({1, 2})}}).equivalent(make({{0, S({2})}, {0, S({1})}})));
  EXPECT_TRUE(clause_data().equivalent(make({{0, iset()}})));
  EXPECT_FALSE(clause_data().equivalent(make({{0, S({4})}})));

  // Five literals and more: no fast rejection, the copies decide.
  clause_data five = make({{0, S({1})}, {1, S({1})}, {2, S({1})}, {3, S({1})}, {4, S({1})}});
  clause_data split = make({{4, S({1})}, {3, S({1})}, {2, S({1})}, {1, S({1})}, {0, S({1})},
                            {5, iset()}, {2, S({1})}});
  EXPECT_TRUE(five.equivalent(split));
  EXPECT_TRUE(split.equivalent(five));
  split.add(6, S({3}));
  EXPECT_FALSE(five.equivalent(split));
}

}  // namespace
}  // namespace zelk
