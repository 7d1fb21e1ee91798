// Tests of the watch-free clause: propagation against brute force, its stricter
// constraint_check, printing, the in-use flag and the default watches.
#include "impl/stateless_clause_propagator.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "impl/constraint_explicit_info.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

TEST(stateless_clause_propagator, propagation_matches_brute_force) {
  int explained = 0;
  repeat(1, 3000, [&](std::mt19937& gen, int round, const std::string& context) {
    const clause_instance inst = random_clause(gen);
    check_instance(stateless_clause_propagator(inst.literals), inst.domains,
                   clause_relation(inst.literals), round, context + " " + show(inst.literals),
                   checks{.explain_every = 0}, gen, explained);
  });
}

TEST(stateless_clause_propagator, checks_and_print) {
  stateless_clause_propagator c{iset("1,2"), iset(), iset("7")};
  // constraint_check wants a domain within its literal: with singletons, a value in it.
  constraint_explicit_info view = make_view({iset("1"), iset("0"), iset("8")});
  EXPECT_TRUE(c.constraint_check(view));
  view.domains()[0] = iset("3");
  EXPECT_FALSE(c.constraint_check(view));
  EXPECT_TRUE(c.conflicts(view));
  // Meeting is not enough for constraint_check, unlike the watched clause.
  view.domains()[0] = iset("1,3");
  EXPECT_FALSE(c.constraint_check(view));
  EXPECT_FALSE(c.conflicts(view));
  EXPECT_EQ(printed(c, &view), "stateless_clause[P0:{1,2}, P1:{}, P2:{7}]\n");
  EXPECT_EQ(printed(c), "stateless_clause[{1,2}, {}, {7}]\n");
}

TEST(stateless_clause_propagator, in_use_flag_and_default_watches) {
  stateless_clause_propagator c{iset("1"), iset("2")};
  EXPECT_FALSE(c.in_use());
  c.update_literals()[1] = iset("2,3");
  constraint_explicit_info view = make_view({iset("0,1"), iset("4")});
  EXPECT_EQ(c.init(view), propagation_types::VALID);
  EXPECT_EQ(view.count_watches(), 1u) << "a modification watch on the non-singleton only";
  EXPECT_EQ(c.propagate(view), propagation_types::VALID);
  EXPECT_EQ(view.domain(0), iset("1"));
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
