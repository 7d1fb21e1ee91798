// The watch-free clause: its stricter constraint_check and its in-use flag (its
// propagation goes through the brute-force table of propagators_test).
#include "impl/stateless_clause_propagator.h"

#include <gtest/gtest.h>

#include "impl/constraint_explicit_info.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

TEST(stateless_clause_propagator, constraint_check_wants_a_domain_within_its_literal) {
  stateless_clause_propagator c{iset("1,2"), iset(), iset("7")};
  constraint_explicit_info view = make_view({iset("1"), iset("0"), iset("8")});
  EXPECT_TRUE(c.constraint_check(view));
  view.domains()[0] = iset("3");
  EXPECT_FALSE(c.constraint_check(view));
  EXPECT_TRUE(c.conflicts(view));
  // Meeting is not enough, unlike the watched clause.
  view.domains()[0] = iset("1,3");
  EXPECT_FALSE(c.constraint_check(view));
  EXPECT_FALSE(c.conflicts(view));
}

TEST(stateless_clause_propagator, literals_frozen_once_in_use_but_not_in_a_clone) {
  stateless_clause_propagator c{iset("1"), iset("2")};
  c.update_literals()[1] = iset("2,3");
  constraint_explicit_info view = make_view({iset("0,1"), iset("4")});
  EXPECT_EQ(c.init(view), propagation_types::VALID);
  EXPECT_EQ(c.propagate(view), propagation_types::VALID);
  EXPECT_EQ(view.domain(0), iset("1"));
  EXPECT_THROW(c.update_literals(), std::runtime_error);
  std::unique_ptr<constraint_propagator> copy = c.clone();
  auto& fresh = dynamic_cast<stateless_clause_propagator&>(*copy);
  EXPECT_EQ(fresh.literals(), c.literals());
  EXPECT_NO_THROW(fresh.update_literals());
}

}  // namespace
}  // namespace zelk
