// Tables and tuple sets: the compressed cover against the tuples it stands for,
// the sharing of the node pool between tables and between solvers of one run, the
// rejection of bad values, and whole searches over random tables against brute
// force. Propagation itself goes through the brute-force table of propagators_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/constraint_explicit_info.h"
#include "impl/solver.h"
#include "impl/table_propagators.h"
#include "impl/tuple_set.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;
typedef std::vector<std::vector<int>> tuple_list;
typedef table_propagator_base::memory_manager memory_manager;

tuple_list random_tuples(std::mt19937& g, unsigned width, unsigned count, int base, int span) {
  tuple_list tuples(count, std::vector<int>(width));
  for (std::vector<int>& t : tuples)
    for (int& v : t) v = base + int(g() % unsigned(span));
  return tuples;
}

tuple_list sorted_unique(tuple_list tuples) {
  std::sort(tuples.begin(), tuples.end());
  tuples.erase(std::unique(tuples.begin(), tuples.end()), tuples.end());
  return tuples;
}

//==== tuple_set ================================================================

// The rows are Cartesian products; counting each tuple once over all rows proves
// that they cover exactly the given tuples and do not overlap.
void expect_exact_cover(const tuple_set& set, const tuple_list& tuples, const std::string& where) {
  std::multiset<std::vector<int>> covered;
  for (const tuple_set::row_type& row : set.rows) {
    ASSERT_EQ(row.size(), tuples.front().size()) << where;
    for_each_assignment(row, [&](const assignment& v) { return covered.insert(v), true; });
  }
  EXPECT_EQ(covered, std::multiset<std::vector<int>>(tuples.begin(), tuples.end())) << where;
}

TEST(tuple_set, covers_exactly_the_inserted_tuples) {
  repeat(3, 1500, [](std::mt19937& g, int round, const std::string& where) {
    const unsigned width = 1 + g() % 4;
    const int span = 2 + int(g() % 4);
    // Dense rounds leave whole products to merge, sparse ones scattered tuples.
    tuple_list tuples = sorted_unique(random_tuples(g, width, 1 + g() % (round % 2 ? 60u : 12u),
                                                    int(g() % 28), span));
    tuple_set set;
    set.insert(tuples);
    expect_exact_cover(set, tuples, where);
    EXPECT_LE(set.rows.size(), tuples.size()) << where;
  });
}

TEST(tuple_set, merges_a_full_square_keeps_degenerate_widths_refuses_bad_values) {
  // The cover is what keeps big tables small: a full product is one row.
  tuple_set square;
  square.insert({{0, 0}, {0, 1}, {1, 0}, {1, 1}});
  EXPECT_EQ(square.rows, (std::vector<tuple_set::row_type>{sets("0:1 0:1")}));
  tuple_set empty_width;
  empty_width.insert({{}, {}});
  EXPECT_EQ(empty_width.rows, (std::vector<tuple_set::row_type>{{}}));

  tuple_set nothing;
  nothing.insert({});
  EXPECT_TRUE(nothing.rows.empty());
  for (int bad : {32, -1}) {
    tuple_set set;
    EXPECT_ANY_THROW(set.insert({{0, 1}, {0, bad}})) << bad;
    EXPECT_ANY_THROW(set.push_back({bad})) << bad;
  }
}

// std::sort needs a strict weak order; a violation is undefined behaviour that
// only shows on some inputs.
TEST(tuple_set, order_ignoring_column_is_a_strict_weak_order) {
  repeat(5, 300, [](std::mt19937& g, int, const std::string& where) {
    std::vector<tuple_set::row_type> rows(8);
    for (tuple_set::row_type& row : rows) {
      row.resize(1 + g() % 3);
      for (iset& s : row) s = iset::from_bits(std::uint32_t(g()) & 0x7u);
    }
    const tuple_set::order_ignoring_column less(g() % 3);
    for (const auto& a : rows) {
      EXPECT_FALSE(less(a, a)) << where;
      for (const auto& b : rows) {
        EXPECT_FALSE(less(a, b) && less(b, a)) << where;
        for (const auto& c : rows) {
          if (less(a, b) && less(b, c)) { EXPECT_TRUE(less(a, c)) << where; }
          // Incomparability is transitive too.
          if (!less(a, b) && !less(b, a) && !less(b, c) && !less(c, b)) {
            EXPECT_TRUE(!less(a, c) && !less(c, a)) << where;
          }
        }
      }
    }
  });
}

//==== pool =====================================================================

// Domains of the table's arity, and the values each keeps by brute force.
void expect_propagates_like_brute_force(const constraint_propagator& p, const tuple_list& tuples,
                                        std::mt19937& g, const std::string& where) {
  const relation listed = [&](const assignment& v) {
    return std::find(tuples.begin(), tuples.end(), v) != tuples.end();
  };
  for (int k = 0; k < 20; ++k) {
    domain_list d(tuples.front().size());
    for (iset& s : d) s = random_domain(g, 6, 5);
    std::unique_ptr<constraint_propagator> copy = p.clone();
    constraint_explicit_info view = make_view(d);
    const propagation_types::result_type result = copy->propagate(view);
    check_outcome(d, {result, view.domains()}, listed, DOMAIN_CONSISTENT, where);
  }
}

TEST(table_pool, a_collection_spares_the_tables_still_held) {
  std::mt19937 g(11);
  memory_manager memory;
  const tuple_list tuples = random_tuples(g, 3, 20, 0, 5);
  tuple_list shuffled = tuples;
  std::shuffle(shuffled.begin(), shuffled.end(), g);
  auto first = std::make_unique<support_table_propagator>(memory, tuples);
  auto second = std::make_unique<support_table_propagator>(memory, shuffled);
  // The second table holds the same roots: releasing the first must keep them.
  first.reset();
  memory.garbage_collect();
  expect_propagates_like_brute_force(*second, tuples, g, "survivor");
  // An assignment releases the old table and shares the new one.
  support_table_propagator other(memory, {{7, 7, 7}});
  other = *second;
  other = other;
  second.reset();
  memory.garbage_collect();
  expect_propagates_like_brute_force(other, tuples, g, "assigned");
}

// Each "file" builds tables and clones them into a solver, solves, and goes; the
// collection that the release of the last roots triggers empties the pool.
TEST(table_pool, solvers_in_sequence_leave_an_empty_pool) {
  std::mt19937 g(23);
  memory_manager memory;
  for (int file = 0; file < 3; ++file) {
    {
      solver s;
      for (int i = 0; i < 4; ++i) s.add_var(iset::clipped_range(0, 4));
      const support_table_propagator prototype(memory, random_tuples(g, 2, 12, 0, 5));
      for (unsigned i = 0; i + 1 < 4; ++i) s.add_constraint(prototype.clone()) << i << i + 1;
      std::ostringstream out;
      s.solve(&out);
      EXPECT_GT(memory.node_count(), 0u);
    }
    EXPECT_EQ(memory.node_count(), 0u) << file;
    EXPECT_EQ(memory.root_count(), 0u) << file;
  }
}

//==== degenerate tables ========================================================

TEST(support_table, a_table_without_tuples_accepts_any_arity_and_nothing) {
  memory_manager memory;
  support_table_propagator none(memory, {});
  for (const domain_list& d : {sets("0:3"), sets("1 2 3")}) {
    EXPECT_TRUE(none.conflicts(make_view(d)));
    EXPECT_FALSE(none.constraint_check(make_view(d)));
    auto copy = none.clone();
    constraint_explicit_info view = make_view(d);
    EXPECT_EQ(copy->propagate(view), propagation_types::UNSAT);
  }
  EXPECT_FALSE(none.conflicts(make_view({})));
}

// The leaf {5} is the last level of the diagram of column 0 under (0, 0), where
// it stands for column 2 and fails, and of the diagram of column 2 under (3, 1),
// where it stands for column 1 and is the only support of x2 = 3. A failure
// remembered across diagrams would lose that value.
TEST(support_table, a_node_shared_by_two_diagrams_is_searched_in_each) {
  memory_manager memory;
  support_table_propagator p(memory, {{0, 0, 5}, {1, 5, 3}, {1, 5, 2}});
  constraint_explicit_info view = make_view(sets("0:1 0,5 2:3"));
  EXPECT_EQ(p.propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(view.domains(), sets("1 5 2:3"));
}

//==== whole searches ===========================================================

// Several random tables over shared variables in one solver: the answer agrees
// with brute force, and every solution lies in every table. Learning explains
// table propagations by the default clauses, so a wrong reduction or conflict
// shows as a wrong answer.
TEST(support_table, searches_agree_with_brute_force) {
  memory_manager memory;
  int satisfiable = 0, unsatisfiable = 0;
  repeat(29, 300, [&](std::mt19937& g, int, const std::string& where) {
    const unsigned n = 3 + g() % 3;
    domain_list d(n);
    for (iset& s : d) s = random_domain(g, 1, 4);
    struct table { tuple_list tuples; std::vector<unsigned> scope; };
    std::vector<table> tables(2 + g() % 2);
    solver s;
    for (const iset& domain : d) s.add_var(domain);
    for (table& t : tables) {
      const unsigned width = 2 + g() % 2;
      for (unsigned i = 0; i < width; ++i) t.scope.push_back(unsigned(g() % n));
      t.tuples = random_tuples(g, width, width == 2 ? 8 + g() % 12 : 25 + g() % 40, 0, 5);
      auto& connection = s.add_constraint(std::make_unique<support_table_propagator>(memory, t.tuples));
      for (unsigned v : t.scope) connection << v;
    }
    const relation all_hold = [&](const assignment& v) {
      for (const table& t : tables) {
        std::vector<int> projected;
        for (unsigned i : t.scope) projected.push_back(v[i]);
        if (std::find(t.tuples.begin(), t.tuples.end(), projected) == t.tuples.end()) return false;
      }
      return true;
    };
    std::ostringstream out;
    const solver::result_type result = s.solve(&out);
    ASSERT_EQ(result == solver::SAT, solvable(d, all_hold)) << where;
    ++(result == solver::SAT ? satisfiable : unsatisfiable);
    if (result != solver::SAT) return;
    assignment v;
    for (unsigned i = 0; i < n; ++i) {
      ASSERT_TRUE(s.stack().domain(i).is_singleton()) << where;
      v.push_back(s.stack().domain(i).min());
    }
    EXPECT_TRUE(all_hold(v)) << where << " " << show(v);
  });
  // Both answers, in fair numbers, or the test proves little.
  EXPECT_GE(satisfiable, 60) << unsatisfiable;
  EXPECT_GE(unsatisfiable, 60) << satisfiable;
}

}  // namespace
}  // namespace zelk
