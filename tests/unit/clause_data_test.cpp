// Clauses: right-hand-side texts, normal form and equivalence against unions per variable.
#include "impl/clause_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>

namespace zelk {
namespace {

TEST(clause_data, right_hand_side_is_the_shortest_form_that_means_the_set) {
  std::mt19937 rng(12);
  for (unsigned i = 0; i < 20000; ++i) {  // single values, all but one, runs from 0 and to 31, any
    const std::uint32_t edge[] = {1u << i % 32, ~(1u << i % 32), ~0u >> i % 32, ~0u << i % 32, 0};
    const std::uint32_t w = i < 129 ? edge[i / 32] : rng() % 2 ? rng() & rng() : rng() | rng();
    std::ostringstream os;
    literal_data::print_right_hand_side(os, small_iset::from_bits(w));
    const std::string text = os.str(), op = text.substr(0, 2);
    const int k = op == ":{" ? 0 : std::stoi(text.substr(text[0] == '=' ? 1 : 2));
    const std::uint32_t meant = text[0] == '=' ? 1u << k : op == "<=" ? (2u << k) - 1
                                : op == ">=" ? ~((1u << k) - 1) : op == "!=" ? ~(1u << k)
                                : small_iset(text.substr(2, text.size() - 3)).bits();
    ASSERT_EQ(meant, w) << text;
    const bool short_form =  // one value, a run from 0 or to 31, or all values but one
        (w & (w - 1)) == 0 || (w & (w + 1)) == 0 || (~w & (~w + 1)) == 0 || (~w & (~w - 1)) == 0;
    ASSERT_EQ(op == ":{", w == 0 || !short_form) << text;
  }
}

TEST(clause_data, normal_form_and_equivalence_match_unions_per_variable) {
  std::mt19937 rng(3);
  auto lit = [&] { return literal_data(rng() % 5, small_iset::from_bits(rng() % 3 << rng() % 3)); };
  const auto unions = [](const clause_data& c) {
    std::map<unsigned, std::uint32_t> m;
    for (const literal_data& l : c) if (!l.set.empty()) m[l.variable] |= l.set.bits();
    return m;
  };
  for (int i = 0; i < 20000; ++i) {
    clause_data a, b;
    for (unsigned n = rng() % 8; n-- > 0;) a.add(lit());
    for (std::size_t k = a.size(); k-- > 0;) if (rng() % 5) b.add(a[k]);  // reversed, a few dropped
    for (unsigned n = rng() % 3; n-- > 0;) b.add(lit());
    clause_data normal = a;
    normal.canonicalize();
    ASSERT_EQ(unions(normal), unions(a));
    ASSERT_TRUE(normal.size() == unions(a).size() && std::is_sorted(normal.begin(), normal.end()));
    ASSERT_TRUE(a.equivalent(b) == (unions(a) == unions(b)) && b.equivalent(a) == a.equivalent(b));
  }
}

TEST(clause_data, clause_text) {
  struct : variable_print_strategy {
    void print(std::ostream& os, unsigned int v) const override { os << char('x' + v); }
  } strategy;
  clause_data c;
  std::ostringstream os;
  for (const char* item : {"0=3", "2=1,2", "1="}) c.add(item[0] - '0', small_iset(item + 2));
  c.print(os, strategy);
  EXPECT_EQ(os.str(), "[x=3, z:{1,2}, y:{}]");
}

}  // namespace
}  // namespace zelk
