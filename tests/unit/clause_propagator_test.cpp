// Tests of the watched-value clause: a simulated search on small random clauses
// against brute force, with narrowing, wake-ups by value watch and backtracking
// (which is where watch-invariant faults show), and the edge cases of set-up,
// printing, simplification and combination.
#include "impl/clause_propagator.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "impl/comparison_propagators.h"
#include "impl/constraint_explicit_info.h"
#include "impl/disjoint_propagation_algo.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

// The propagation from `before` against brute force; unit propagation is all a
// clause can do, and a unit clause must not stay CONSISTENT.
void check_clause(const domain_list& literals, const domain_list& before, const recording_info& view,
                  result_type r, const std::string& context) {
  check_outcome(before, {r, view.domains()}, clause_relation(literals), DOMAIN_CONSISTENT, context);
  unsigned live = 0;
  for (unsigned i = 0; i < literals.size(); ++i) live += view.domain(i).intersects(literals[i]);
  if (r == propagation_types::CONSISTENT) {
    EXPECT_GE(live, 2u) << context << ": a unit clause must not stay CONSISTENT";
  }
}

// Two distinct parameters with live value watches on values of their literals
// that are in the domains: the state a CONSISTENT clause must leave.
void check_two_live_watches(const clause_propagator& c, const recording_info& view,
                            const std::string& context) {
  const auto& w = view.value_watches;
  ASSERT_EQ(w.size(), 2u) << context;
  EXPECT_EQ(c.count_watches(), 2u) << context;
  EXPECT_NE(w[0].first, w[1].first) << context;
  for (const auto& [param, value] : w) {
    EXPECT_TRUE(view.domain(param).contains(value)) << context;
    EXPECT_TRUE(c.literals()[param].contains(value)) << context;
  }
}

// Search as the solver does it, after a first propagation checked in full:
// levels of narrowing, the clause run only when a value it watches leaves a
// domain, never again after VALID until a backtrack, backtracks that restore
// domains but not the clause's watches. At every point at which the clause is
// not run, brute force must find nothing to prune and no conflict: a missed
// wake-up is a watch fault.
void simulate_search(bool querying, unsigned first_seed, unsigned seeds) {
  for (unsigned seed = first_seed; seed < first_seed + seeds; ++seed) {
    std::mt19937 gen(seed);
    const clause_instance inst = random_clause(gen);
    const unsigned n = unsigned(inst.literals.size());
    const relation rel = clause_relation(inst.literals);
    const std::string base = "seed " + std::to_string(seed) + " literals " + show(inst.literals) +
                             " domains " + show(inst.domains) + (querying ? " querying" : "");
    recording_info view(inst.domains, constraint_runtime_info::CONSTRAINT_QUEUE, querying);
    clause_propagator c(inst.literals);
    const bool satisfiable = solvable(inst.domains, rel);
    ASSERT_EQ(c.init(view) == propagation_types::UNSAT, !satisfiable) << base;
    EXPECT_EQ(c.conflicts(view), !satisfiable) << base;
    if (!satisfiable) continue;
    EXPECT_EQ(view.writes, 0u) << "init only watches; " << base;
    EXPECT_EQ(c.count_watches(), view.value_watches.size()) << base;
    result_type r = c.propagate(view);
    check_clause(inst.literals, inst.domains, view, r, base + " level 0");
    if (!querying && r == propagation_types::CONSISTENT) check_two_live_watches(c, view, base);
    EXPECT_EQ(c.count_watches(), view.value_watches.size()) << base;

    std::vector<domain_list> trail{view.domains()};  // state at the end of each level
    bool valid = r == propagation_types::VALID;     // the solver's queue bit
    for (unsigned step = 0; step < 40; ++step) {
      std::string context = base + " step " + std::to_string(step);
      if (trail.size() > 1 && gen() % 4 == 0) {
        const std::size_t level = gen() % trail.size();
        trail.resize(level + 1);
        view.domains() = trail.back();
        valid = false;  // a backtrack clears the queue bits
        // Nothing fires on a backtrack: the state must be at a fixpoint already.
        ASSERT_EQ(view.domains(), supported_values(view.domains(), rel))
            << context << " backtrack to " << level;
        continue;
      }
      // A decision level: narrow one or two parameters.
      const domain_list before = view.domains();
      for (unsigned k = 1 + gen() % 2; k-- > 0;) {
        const unsigned p = gen() % n;
        const iset d = view.domain(p);
        if (d.size() < 2) continue;
        iset nd;
        do nd = random_subset(gen, d, true);
        while (nd == d);
        view.domains()[p] = nd;
      }
      bool woken = false;
      for (const auto& [param, value] : view.value_watches)
        woken |= before[param].contains(value) && !view.domain(param).contains(value);
      const domain_list narrowed = view.domains();
      if (woken && !valid) {
        r = c.propagate(view);
        check_clause(inst.literals, narrowed, view, r, context);
        if (!querying && r == propagation_types::CONSISTENT)
          check_two_live_watches(c, view, context);
        if (r == propagation_types::UNSAT) {
          // Conflict: back to a random earlier level, as the analysis would.
          trail.resize(gen() % trail.size() + 1);
          view.domains() = trail.back();
          valid = false;
          continue;
        }
        valid = r == propagation_types::VALID;
      } else {
        ASSERT_EQ(narrowed, supported_values(narrowed, rel))
            << context << ": conflict or unit propagation missed (woken " << woken << ", valid "
            << valid << ")";
      }
      EXPECT_LE(view.value_watches.size(), 2u) << context;
      EXPECT_EQ(c.count_watches(), view.value_watches.size()) << context;
      trail.push_back(view.domains());
    }
  }
}

TEST(clause_propagator, search_with_backtracking_misses_no_wake_up) {
  simulate_search(false, 1, 3000);
}

TEST(clause_propagator, querying_view_search_misses_no_wake_up) {
  simulate_search(true, 1, 3000);
  simulate_search(true, 10001, 3000);
}

//==== set-up ====================================================================

TEST(clause_propagator, init_edge_cases) {
  clause_propagator empty;
  constraint_explicit_info none(0);
  EXPECT_EQ(empty.init(none), propagation_types::UNSAT);
  EXPECT_EQ(empty.propagate(none), propagation_types::UNSAT);
  EXPECT_TRUE(empty.conflicts(none));
  try {
    constraint_explicit_info three(3);
    (void)clause_propagator{iset("1"), iset("2")}.init(three);
    FAIL() << "arity mismatch accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Number of variables and literals differ");
  }
  // Unit at init: no value watch, the first propagate reduces and is VALID.
  clause_propagator unit{iset("1,2"), iset("5")};
  recording_info view({iset("0:3"), iset("6,7")});
  EXPECT_EQ(unit.init(view), propagation_types::VALID);
  EXPECT_EQ(unit.count_watches(), 0u);
  EXPECT_EQ(unit.propagate(view), propagation_types::VALID);
  EXPECT_EQ(view.domain(0), iset("1,2"));
  EXPECT_TRUE(view.value_watches.empty());
  // Satisfied at init: the first parameter within its literal, no watch.
  clause_propagator satisfied{iset("1,2"), iset("5,6")};
  recording_info held({iset("1,3"), iset("5")});
  EXPECT_EQ(satisfied.init(held), propagation_types::VALID);
  EXPECT_EQ(satisfied.count_watches(), 0u);
  EXPECT_EQ(satisfied.propagate(held), propagation_types::VALID);
  EXPECT_EQ(held.writes, 0u);
}

//==== propagation ===============================================================

TEST(clause_propagator, refresh_outcomes) {
  // The last live literal gets reduced: VALID, not CONSISTENT.
  clause_propagator c{iset("1"), iset("2"), iset("3,4")};
  recording_info view({iset("0,1"), iset("0,2"), iset("3,5")});
  ASSERT_EQ(c.init(view), propagation_types::VALID);
  ASSERT_EQ(c.propagate(view), propagation_types::CONSISTENT);
  view.domains()[0] = iset("0");  // kills watch 0; parameter 2 takes over
  EXPECT_EQ(c.propagate(view), propagation_types::CONSISTENT);
  check_two_live_watches(c, view, "moved");
  view.domains()[1] = iset("0");
  EXPECT_EQ(c.propagate(view), propagation_types::VALID);
  EXPECT_EQ(view.domain(2), iset("3"));

  // The woken literal is false and the other watched parameter already lies in
  // its literal: the scan skips it and the answer is VALID with no write.
  clause_propagator d{iset("1"), iset("2,3"), iset("9")};
  recording_info skip({iset("0,1"), iset("2:4"), iset("8")});
  ASSERT_EQ(d.init(skip), propagation_types::VALID);
  ASSERT_EQ(d.propagate(skip), propagation_types::CONSISTENT);
  skip.domains() = {iset("0"), iset("2,3"), iset("8")};
  // The fast path would see the satisfied parameter too; go through refresh.
  EXPECT_EQ(d.algo().watch(0).param, 0);
  EXPECT_EQ(d.algo().refresh_watch(skip, 0), propagation_types::VALID);
  EXPECT_EQ(skip.writes, 0u);
  EXPECT_EQ(d.algo().watch(0).param, 0) << "the dead watch stays";

  // One parameter: the cyclic scan visits nothing; its literal false means UNSAT.
  for (bool querying : {false, true}) {
    clause_propagator one{iset("4,5")};
    recording_info single({iset("3:6")}, constraint_runtime_info::CONSTRAINT_QUEUE, querying);
    ASSERT_EQ(one.init(single), propagation_types::VALID);
    if (querying) single.domains()[0] = iset("3,6");
    EXPECT_EQ(one.propagate(single), querying ? propagation_types::UNSAT : propagation_types::VALID);
    if (!querying) {
      EXPECT_EQ(single.domain(0), iset("4,5"));
    }
  }
}

//==== queries, printing, explanation, simplification ============================

TEST(clause_propagator, intersect_with) {
  clause_propagator c{iset("1,2"), iset("5,6"), iset("3"), iset("0,9")};
  std::vector<unsigned> kept{42};
  EXPECT_FALSE(
      c.intersect_with(make_view({iset("1:3"), iset("5,6"), iset("3,4"), iset("0,9")}), kept));
  EXPECT_EQ(kept, std::vector<unsigned>{42}) << "kept untouched when nothing changes";
  std::unique_ptr<constraint_propagator> p =
      c.intersect_with(make_view({iset("1,3"), iset("7"), iset("3,4"), iset("9,10")}), kept);
  ASSERT_TRUE(p);
  EXPECT_EQ(dynamic_cast<clause_propagator&>(*p).literals(),
            (domain_list{iset("1"), iset("3"), iset("9")}));
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 2, 3}));
  // A clause that loses every literal is empty.
  p = c.intersect_with(make_view({iset("0"), iset("0"), iset("0"), iset("1")}), kept);
  ASSERT_TRUE(p);
  EXPECT_EQ(printed(*p), "[]");
  EXPECT_TRUE(kept.empty());
  // A watched clause can be simplified: the copy forgets the handles.
  recording_info live({iset("1:3"), iset("5:7"), iset("3,4"), iset("0,9,10")});
  ASSERT_EQ(c.init(live), propagation_types::VALID);
  ASSERT_EQ(c.count_watches(), 2u);
  p = c.intersect_with(make_view({iset("1,2"), iset("5"), iset("3,4"), iset("0,9")}), kept);
  ASSERT_TRUE(p);
  EXPECT_EQ(p->count_watches(), 0u);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 1, 2, 3}));
}

//==== combination ===============================================================

// Two clauses resolve instead of combining; with another constraint the clause
// hands the work over (combine_other_first: see the disjunction tests).
TEST(clause_propagator, combination_goes_through_the_other_constraint) {
  const clause_propagator a{iset("1"), iset("2")}, b{iset("3"), iset("4")};
  EXPECT_FALSE(a.may_combine(b));
  EXPECT_TRUE(a.may_combine(difference_ge_propagator(0)));
  const domain_list two(2, iset("0:9"));
  expect_combination(run_combine(a, two, b, two, {1, 3}, 0), "");
  const auto both = std::make_unique<difference_ge_or_clause_propagator>(1);
  both->update_literals() = {iset("1,5")};
  const combination c = expect_combination(run_combine(a, two, *both, domain_list(3, iset("0:9")),
                                                       {2, 3, 1}, 2),
                                           "(diff_ge_1 || [P0=1])\n", {2, 3, 0});
  check_combination(a, 2, *both, 3, {2, 3, 1}, 2, c, "clause left");
}

}  // namespace
}  // namespace zelk
