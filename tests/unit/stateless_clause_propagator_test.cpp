// Tests of the watch-free clause: propagation against brute force, its stricter
// constraint_check, printing, the in-use flag and the default watches.
#include "impl/stateless_clause_propagator.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "impl/constraint_explicit_info.h"

namespace zelk {
namespace {

using iset = small_model::iset;

iset S(std::initializer_list<int> values) {
  iset s;
  for (int v : values) s.insert(v);
  return s;
}

iset random_subset(std::mt19937& rng, iset of) {
  iset s;
  for (int v : of)
    if (rng() & 1u) s.insert(v);
  return s;
}

// Supported values per parameter, and whether every assignment satisfies the clause.
void brute_force(const std::vector<iset>& literals, const std::vector<iset>& doms,
                 std::vector<iset>& supported, bool& valid) {
  const unsigned int n = unsigned(doms.size());
  supported.assign(n, iset());
  valid = true;
  std::vector<iset::iterator> it(n);
  for (unsigned int i = 0; i < n; ++i) it[i] = doms[i].begin();
  for (;;) {
    bool sat = false;
    for (unsigned int i = 0; i < n && !sat; ++i) sat = literals[i].contains(*it[i]);
    valid = valid && sat;
    if (sat)
      for (unsigned int i = 0; i < n; ++i) supported[i].insert(*it[i]);
    unsigned int k = 0;
    for (; k < n; ++k) {
      if (++it[k] != doms[k].end()) break;
      it[k] = doms[k].begin();
    }
    if (k == n) break;
  }
}

TEST(stateless_clause_propagator, propagation_matches_brute_force) {
  for (unsigned int seed = 1; seed <= 3000; ++seed) {
    std::mt19937 rng(seed);
    const unsigned int n = 1 + rng() % 4;
    // Five consecutive values somewhere in 0..31.
    const iset universe = iset::from_bits(0x1Fu << (rng() % 28));
    std::vector<iset> literals(n), doms(n);
    for (unsigned int i = 0; i < n; ++i) {
      literals[i] = random_subset(rng, universe | S({int(rng() % 32)}));
      do doms[i] = random_subset(rng, universe);
      while (doms[i].empty());
    }
    std::ostringstream ctx;
    ctx << "seed " << seed;
    std::vector<iset> supported;
    bool valid;
    brute_force(literals, doms, supported, valid);

    stateless_clause_propagator c(literals);
    constraint_explicit_info view(n);
    view.domains() = doms;
    const bool satisfiable = !supported[0].empty();
    EXPECT_EQ(c.conflicts(view), !satisfiable) << ctx.str();
    const propagation_types::result_type r = c.propagate(view);
    EXPECT_TRUE(c.in_use());
    if (!satisfiable) {
      EXPECT_EQ(r, propagation_types::UNSAT) << ctx.str();
      continue;
    }
    ASSERT_NE(r, propagation_types::UNSAT) << ctx.str();
    for (unsigned int i = 0; i < n; ++i) EXPECT_EQ(view.domain(i), supported[i]) << ctx.str();
    brute_force(literals, view.domains(), supported, valid);
    if (r == propagation_types::VALID) {
      EXPECT_TRUE(valid) << ctx.str();
    }
  }
}

TEST(stateless_clause_propagator, checks_and_print) {
  stateless_clause_propagator c{S({1, 2}), iset(), S({7})};
  constraint_explicit_info view(3);
  // constraint_check wants a domain within its literal: with singletons, a value in it.
  view.domains() = {S({1}), S({0}), S({8})};
  EXPECT_TRUE(c.constraint_check(view));
  view.domains() = {S({3}), S({0}), S({8})};
  EXPECT_FALSE(c.constraint_check(view));
  EXPECT_TRUE(c.conflicts(view));
  // Meeting is not enough for constraint_check, unlike the watched clause.
  view.domains() = {S({1, 3}), S({0}), S({8})};
  EXPECT_FALSE(c.constraint_check(view));
  EXPECT_FALSE(c.conflicts(view));

  std::ostringstream with, without;
  c.print(with, &view);
  c.print(without, nullptr);
  EXPECT_EQ(with.str(), "stateless_clause[P0:{1,2}, P1:{}, P2:{7}]\n");
  EXPECT_EQ(without.str(), "stateless_clause[{1,2}, {}, {7}]\n");
}

TEST(stateless_clause_propagator, in_use_flag_and_default_watches) {
  stateless_clause_propagator c{S({1}), S({2})};
  EXPECT_FALSE(c.in_use());
  c.update_literals()[1] = S({2, 3});
  constraint_explicit_info view(2);
  view.domains() = {S({0, 1}), S({4})};
  EXPECT_EQ(c.init(view), propagation_types::VALID);
  EXPECT_EQ(view.count_watches(), 1u) << "a modification watch on the non-singleton only";
  EXPECT_EQ(c.propagate(view), propagation_types::VALID);
  EXPECT_EQ(view.domain(0), S({1}));
  EXPECT_TRUE(c.in_use());
  try {
    c.update_literals();
    FAIL() << "update while in use";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Modifying the clause at runtime");
  }
  std::unique_ptr<constraint_propagator> copy = c.clone();
  auto& fresh = dynamic_cast<stateless_clause_propagator&>(*copy);
  EXPECT_FALSE(fresh.in_use());
  EXPECT_EQ(fresh.literals(), c.literals());
  EXPECT_NO_THROW(fresh.update_literals());
}

}  // namespace
}  // namespace zelk
