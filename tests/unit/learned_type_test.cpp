// The learned object: incremental level bookkeeping, positions and relaxation,
// asserting levels, and the renumbering of a combination with a clause.
#include "impl/learned_type.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/solver.h"

namespace zelk {
namespace {

using iset = small_model::iset;
const unsigned int NO_PREV = assignment_stack::NO_PREVIOUS_MODIFICATION;

// Three levels of history over four variables 0..3 with domains 0..3:
//   level 0: entry 0  x0 := {1:3}
//   level 1: entry 1  x1 := {2}   (decision)   entry 2  x0 := {2:3} (cause 0)
//   level 2: entry 3  x2 := {0}   (decision)   entry 4  x3 := {3}   (cause 0)
//                                              entry 5  x0 := {3}   (cause 0)
struct fixture {
  solver s;
  fixture() {
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
  }
};

TEST(learned_type, insert_and_intersect_keep_the_count_at_the_level) {
  fixture f;
  learned_type learned(f.s.stack(), f.s);
  EXPECT_EQ(learned.level(), 2u);
  learned.insert_literal(iset::singleton(1), 2, 3);  // at level 2
  learned.insert_literal(iset::singleton(0), 1, 1);  // level 1
  EXPECT_EQ(learned.nodes_at_level(), 1u);
  // A second insert on x1 keeps the union and the later position.
  learned.insert_literal(iset::singleton(1), 1, 4);
  EXPECT_EQ(learned.literals()[learned.node_of(1)], iset(std::string("0,1")));
  EXPECT_EQ(learned.nodes()[learned.node_of(1)].modification, 4u);
  EXPECT_EQ(learned.nodes_at_level(), 2u);
  // NO_PREVIOUS_MODIFICATION never wins.
  learned.insert_literal(iset::singleton(3), 1, NO_PREV);
  EXPECT_EQ(learned.nodes()[learned.node_of(1)].modification, 4u);
  // Intersecting a variable without node changes nothing.
  EXPECT_FALSE(learned.intersect_literal(iset::singleton(0), 3, 4));
  EXPECT_EQ(learned.nodes().size(), 2u);
  // Emptying a literal removes its node and the count follows.
  EXPECT_FALSE(learned.intersect_literal(iset::singleton(2), 2, 3));
  EXPECT_EQ(learned.nodes().size(), 1u);
  EXPECT_EQ(learned.nodes_at_level(), 1u);
  EXPECT_EQ(learned.node_of(2), constraint_runtime_info::NO_PARAM);
  // The stale index entry of x2 points at a node that now holds x1: not taken.
  EXPECT_TRUE(learned.audit());
  // One node: asserting level 0; analysis complete at the level.
  EXPECT_EQ(learned.asserting_level(), 0);
  EXPECT_TRUE(learned.conflict_analysis_complete());
}

TEST(learned_type, latest_node_prefers_real_entries_and_honours_exclusion) {
  fixture f;
  learned_type learned(f.s.stack(), f.s);
  learned.insert_literal(iset::singleton(0), 3, NO_PREV);
  learned.insert_literal(iset::singleton(0), 1, NO_PREV);
  EXPECT_EQ(learned.latest_node_index(constraint_runtime_info::NO_PARAM), 0u);
  EXPECT_EQ(learned.latest_node_index(0), 1u);
  learned.insert_literal(iset::singleton(1), 2, 3);
  EXPECT_EQ(learned.latest_node_index(constraint_runtime_info::NO_PARAM), 2u);
  EXPECT_EQ(learned.latest_node_index(2), 0u);
}

TEST(learned_type, relaxation_moves_positions_back_and_the_level_down) {
  fixture f;
  learned_type learned(f.s.stack(), f.s);
  // x0 in {1}: false since entry 2 (x0 became {2:3}); recorded at entry 5.
  learned.insert_literal(iset::singleton(1), 0, 5);
  learned.insert_literal(iset::singleton(0), 1, 1);
  EXPECT_EQ(learned.level(), 2u);
  EXPECT_EQ(learned.nodes_at_level(), 1u);
  const unsigned int x0 = learned.node_of(0);
  // Moving the only node at level 2 makes the level that of the next latest node.
  EXPECT_TRUE(learned.relax(x0, learned.literals()[x0]));
  EXPECT_EQ(learned.nodes()[x0].modification, 2u);
  EXPECT_EQ(learned.level(), 1u);
  EXPECT_EQ(learned.nodes_at_level(), 2u);
  // It cannot move further: {1} was still possible before entry 2.
  EXPECT_FALSE(learned.relax(x0, learned.literals()[x0]));
  // A literal false from the start goes to NO_PREVIOUS_MODIFICATION.
  learned.insert_literal(iset::singleton(0), 3, 4);
  const unsigned int x3 = learned.node_of(3);
  learned.relax(x3, iset::singleton(7));
  EXPECT_EQ(learned.nodes()[x3].modification, NO_PREV);
}

TEST(learned_type, relax_level_only_leaves_the_level) {
  fixture f;
  learned_type learned(f.s.stack(), f.s);
  learned.insert_literal(iset::singleton(1), 0, 5);   // false since entry 2 (level 1)
  learned.insert_literal(iset::singleton(1), 2, 3);   // level 2
  const unsigned int x0 = learned.node_of(0);
  const unsigned int x2 = learned.node_of(2);
  EXPECT_EQ(learned.nodes_at_level(), 2u);
  // relax_before with the level's decision as limit: leaves level 2 for entry 2.
  EXPECT_TRUE(learned.relax_level(x0, learned.literals()[x0]));
  EXPECT_EQ(learned.nodes()[x0].modification, 2u);
  EXPECT_EQ(learned.nodes_at_level(), 1u);
  // x2's literal {1} became false at its own decision: it stays.
  EXPECT_FALSE(learned.relax_level(x2, learned.literals()[x2]));
  // A node below the level is not moved by relax_level.
  EXPECT_FALSE(learned.relax_level(x0, iset::singleton(9)));
}

TEST(learned_type, asserting_level_leaves_out_the_latest_node) {
  fixture f;
  learned_type learned(f.s.stack(), f.s);
  learned.insert_literal(iset::singleton(0), 1, 1);             // level 1
  learned.insert_literal(iset(std::string("0:2")), 3, 4);       // the latest, level 2
  EXPECT_EQ(learned.asserting_level(), 1);
  // x0 in {1} recorded at entry 5 becomes the latest; x3 (level 2) now decides,
  // while the opportunistic level leaves out the two latest.
  learned.insert_literal(iset::singleton(1), 0, 5);
  EXPECT_EQ(learned.asserting_level(), 2);
  EXPECT_EQ(learned.opportunistic_level(), 1);
}

TEST(learned_type, a_constraint_converts_to_the_clause_of_its_explanation) {
  fixture f;
  // x0 + x1 <= ... as a linear constraint: -x0 - x1 >= -4, false at x0=3, x1=2.
  constraint_connectivity_info& info =
      f.s.add_constraint(std::make_unique<linear_combination_ge_propagator>(
          -4, std::vector<int>{-1, -1, 0}))
      << 0u << 1u << 2u;
  learned_type learned(f.s.stack(), f.s);
  std::vector<iset> explanation;
  learned.construct_from(info, *f.s.propagator(0), explanation,
                         learned_type::POST_LAST_MODIFICATION);
  ASSERT_TRUE(learned.constraint());
  EXPECT_TRUE(learned.conflicts());
  learned.convert_to_clause();
  // The zero coefficient's parameter leaves the clause.
  EXPECT_EQ(learned.constraint(), nullptr);
  EXPECT_EQ(learned.nodes().size(), 2u);
  EXPECT_TRUE(learned.conflicts());
  std::ostringstream os;
  learned.print(os);
  EXPECT_EQ(os.str(), "[V0<=2, V1<=1]");
}

}  // namespace
}  // namespace zelk
