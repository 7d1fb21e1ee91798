// The learned object: level bookkeeping, relaxation, asserting levels, conversion to a clause.
#include "impl/learned_type.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "impl/arithmetic_propagators.h"
#include "impl/solver.h"

namespace zelk {
namespace {

using iset = small_model::iset;

// Three levels of history over four variables 0..3 with domains 0..3:
//   level 0: entry 0  x0 := {1:3}
//   level 1: entry 1  x1 := {2}   (decision)   entry 2  x0 := {2:3} (cause 0)
//   level 2: entry 3  x2 := {0}   (decision)   entry 4  x3 := {3}   (cause 0)
//                                              entry 5  x0 := {3}   (cause 0)
solver& with_history(solver& s) {
  for (int i = 0; i < 4; ++i) s.add_var(iset::clipped_range(0, 3));
  assignment_stack& st = s.stack();
  st.set_var_domain(0, iset::clipped_range(1, 3), 2, -1);
  st.construct_level0_domains();
  st.push_decision(1);
  st.set_var_domain(1, iset::singleton(2), 3, -1);
  st.set_var_domain(0, iset::clipped_range(2, 3), 4, 0);
  st.push_decision(2);
  st.set_var_domain(2, iset::singleton(0), 5, -1);
  st.set_var_domain(3, iset::singleton(3), 6, 0);
  st.set_var_domain(0, iset::singleton(3), 6, 0);
  return s;
}

class learned_type_test : public testing::Test {
 protected:
  solver s;
  learned_type learned{with_history(s).stack(), s};
};

TEST_F(learned_type_test, insert_and_intersect_keep_the_count_at_the_level) {
  learned.insert_literal(iset::singleton(1), 2, 3);  // at level 2
  learned.insert_literal(iset::singleton(0), 1, 1);  // level 1
  EXPECT_EQ(learned.nodes_at_level(), 1u);
  // A second insert on x1 keeps the union and the later position.
  learned.insert_literal(iset::singleton(1), 1, 4);
  EXPECT_EQ(learned.literals()[learned.node_of(1)], iset(std::string("0,1")));
  EXPECT_EQ(learned.nodes_at_level(), 2u);
  // Intersecting a variable without node changes nothing; emptying removes the node.
  EXPECT_FALSE(learned.intersect_literal(iset::singleton(0), 3, 4));
  EXPECT_FALSE(learned.intersect_literal(iset::singleton(2), 2, 3));
  EXPECT_EQ(learned.nodes_at_level(), 1u);
  EXPECT_TRUE(learned.conflict_analysis_complete());
}

TEST_F(learned_type_test, latest_node_prefers_real_entries_and_honours_exclusion) {
  learned.insert_literal(iset::singleton(0), 3, assignment_stack::NO_PREVIOUS_MODIFICATION);
  learned.insert_literal(iset::singleton(0), 1, assignment_stack::NO_PREVIOUS_MODIFICATION);
  EXPECT_EQ(learned.latest_node_index(constraint_runtime_info::NO_PARAM), 0u);
  EXPECT_EQ(learned.latest_node_index(0), 1u);
  learned.insert_literal(iset::singleton(1), 2, 3);
  EXPECT_EQ(learned.latest_node_index(constraint_runtime_info::NO_PARAM), 2u);
  EXPECT_EQ(learned.latest_node_index(2), 0u);
}

TEST_F(learned_type_test, relax_level_leaves_the_level_only) {
  // x0 in {1}: false since entry 2 (x0 became {2:3}); recorded at entry 5.
  learned.insert_literal(iset::singleton(1), 0, 5);
  learned.insert_literal(iset::singleton(1), 2, 3);  // false at its own decision
  const unsigned int x0 = learned.node_of(0), x2 = learned.node_of(2);
  // relax_level leaves level 2 for entry 2 but not x2, false at its decision.
  EXPECT_TRUE(learned.relax_level(x0, learned.literals()[x0]));
  EXPECT_EQ(learned.nodes_at_level(), 1u);
  EXPECT_FALSE(learned.relax_level(x2, learned.literals()[x2]));
}

TEST_F(learned_type_test, relaxing_the_only_node_at_the_level_moves_the_level_down) {
  learned.insert_literal(iset::singleton(1), 0, 5);  // false since entry 2
  learned.insert_literal(iset::singleton(0), 1, 1);
  const unsigned int x0 = learned.node_of(0);
  EXPECT_TRUE(learned.relax(x0, learned.literals()[x0]));
  EXPECT_EQ(learned.level(), 1u);
  EXPECT_FALSE(learned.relax(x0, learned.literals()[x0]));  // {1} held before entry 2
}

TEST_F(learned_type_test, asserting_level_leaves_out_the_latest_node) {
  learned.insert_literal(iset::singleton(0), 1, 1);        // level 1
  learned.insert_literal(iset(std::string("0:2")), 3, 4);  // the latest, level 2
  EXPECT_EQ(learned.asserting_level(), 1);
  // x0 at entry 5 is the latest: x3 decides; the opportunistic level skips both.
  learned.insert_literal(iset::singleton(1), 0, 5);
  EXPECT_EQ(learned.asserting_level(), 2);
  EXPECT_EQ(learned.opportunistic_level(), 1);
}

TEST_F(learned_type_test, a_constraint_converts_to_the_clause_of_its_explanation) {
  // -x0 - x1 >= -4, false at x0=3, x1=2; the zero coefficient's parameter leaves.
  constraint_connectivity_info& info =
      s.add_constraint(std::make_unique<linear_combination_ge_propagator>(
          -4, std::vector<int>{-1, -1, 0})) << 0u << 1u << 2u;
  std::vector<iset> explanation;
  learned.construct_from(info, *s.propagator(0), explanation,
                         learned_type::POST_LAST_MODIFICATION);
  learned.convert_to_clause();
  EXPECT_TRUE(learned.conflicts());
  std::ostringstream os;
  learned.print(os);
  EXPECT_EQ(os.str(), "[V0<=2, V1<=1]");
}

}  // namespace
}  // namespace zelk
