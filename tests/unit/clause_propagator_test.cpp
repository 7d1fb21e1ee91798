// The watched-value clause: a simulated search against brute force, where watch
// faults show; then the edge cases of set-up, refresh and simplification.
#include "impl/clause_propagator.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

// Unit propagation from `before` as brute force does it, never CONSISTENT when unit;
// when CONSISTENT outside a query, two watched parameters, on live literal values.
void check_clause(const clause_propagator& c, const domain_list& before, const recording_info& view,
                  result_type r, bool querying, const std::string& context) {
  const domain_list& literals = c.literals();
  check_outcome(before, {r, view.domains()}, clause_relation(literals), DOMAIN_CONSISTENT, context);
  unsigned live = 0;
  for (unsigned i = 0; i < literals.size(); ++i) {
    live += view.domain(i).intersects(literals[i]);
    // Conflict analysis collects a parameter whose literal can still become false.
    const iset m = view.domain(i) & literals[i];
    EXPECT_EQ(c.potentially_falsifying(view, i), !m.empty() && m != view.domain(i)) << context;
  }
  EXPECT_FALSE(r == propagation_types::CONSISTENT && live < 2) << context << ": unit but CONSISTENT";
  EXPECT_EQ(c.count_watches(), view.value_watches.size()) << context;
  if (querying || r != propagation_types::CONSISTENT) return;
  const auto& w = view.value_watches;
  ASSERT_EQ(w.size(), 2u) << context;
  EXPECT_NE(w[0].first, w[1].first) << context;
  for (const auto& [param, value] : w)
    EXPECT_TRUE(view.domain(param).contains(value) && literals[param].contains(value)) << context;
}

// Search as the solver does it: levels of narrowing, the clause run only when a
// watched value leaves, never after VALID until a backtrack, which restores domains
// but not watches. Where the clause is not run, brute force must find nothing to
// prune and no conflict: a missed wake-up is a watch fault.
void simulate_search(bool querying, unsigned first_seed, unsigned seeds) {
  for (unsigned seed = first_seed; seed < first_seed + seeds; ++seed) {
    std::mt19937 gen(seed);
    const clause_instance inst = random_clause(gen);
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
    check_clause(c, inst.domains, view, r, querying, base + " level 0");
    std::vector<domain_list> trail{view.domains()};  // state at the end of each level
    bool valid = r == propagation_types::VALID;     // the solver's queue bit
    for (unsigned step = 0; step < 40; ++step) {
      const std::string context = base + " step " + std::to_string(step);
      // A backtrack clears the queue bits; nothing fires, the state must be at a fixpoint.
      const auto backtrack = [&] {
        trail.resize(gen() % trail.size() + 1);
        view.domains() = trail.back();
        valid = false;
      };
      if (trail.size() > 1 && gen() % 4 == 0) {
        backtrack();
        ASSERT_EQ(view.domains(), supported_values(view.domains(), rel)) << context << " backtrack";
        continue;
      }
      // A decision level: narrow one or two parameters.
      const domain_list before = view.domains();
      for (unsigned k = 1 + gen() % 2; k-- > 0;) {
        iset& d = view.domains()[gen() % inst.literals.size()];
        iset nd = d;
        while (d.size() > 1 && nd == d) nd = random_subset(gen, d, true);
        d = nd;
      }
      bool woken = false;
      for (const auto& [param, value] : view.value_watches)
        woken |= before[param].contains(value) && !view.domain(param).contains(value);
      const domain_list narrowed = view.domains();
      if (!woken || valid) {
        ASSERT_EQ(narrowed, supported_values(narrowed, rel))
            << context << ": conflict or unit propagation missed (woken " << woken << ")";
      } else {
        r = c.propagate(view);
        check_clause(c, narrowed, view, r, querying, context);
        if (r == propagation_types::UNSAT) { backtrack(); continue; }  // as the conflict analysis would
        valid = r == propagation_types::VALID;
      }
      EXPECT_LE(view.value_watches.size(), 2u) << context;
      trail.push_back(view.domains());
    }
  }
}

TEST(clause_propagator, search_with_backtracking_misses_no_wake_up) { simulate_search(false, 1, 3000); }

TEST(clause_propagator, querying_view_search_misses_no_wake_up) {
  for (unsigned first : {1u, 10001u}) simulate_search(true, first, 3000);
}

TEST(clause_propagator, init_edge_cases) {
  clause_propagator empty;
  constraint_explicit_info none(0);
  EXPECT_TRUE(empty.init(none) == propagation_types::UNSAT && empty.propagate(none) == propagation_types::UNSAT &&
              empty.conflicts(none));
  // Unit at init: no value watch, the first propagate reduces and is VALID;
  // satisfied at init (the first parameter within its literal): no watch, no write.
  for (const bool unit : {true, false}) {
    clause_propagator c{iset("1,2"), iset(unit ? "5" : "5,6")};
    recording_info view(sets(unit ? "0:3 6,7" : "1,3 5"));
    EXPECT_EQ(c.init(view), propagation_types::VALID);
    EXPECT_EQ(c.count_watches(), 0u);
    EXPECT_EQ(c.propagate(view), propagation_types::VALID);
    EXPECT_EQ(view.domains(), sets(unit ? "1,2 6,7" : "1,3 5"));
    EXPECT_TRUE(view.value_watches.empty());
    EXPECT_EQ(view.writes, unit ? 1u : 0u);
  }
}

TEST(clause_propagator, refresh_outcomes) {
  // The woken literal is false and the other watched parameter already lies in its
  // literal: the scan (not the fast path, which would see it too) skips it, VALID
  // with no write, and the dead watch stays.
  clause_propagator d{iset("1"), iset("2,3"), iset("9")};
  recording_info skip(sets("0,1 2:4 8"));
  ASSERT_EQ(d.init(skip), propagation_types::VALID);
  ASSERT_EQ(d.propagate(skip), propagation_types::CONSISTENT);
  skip.domains() = sets("0 2,3 8");
  EXPECT_EQ(d.algo().refresh_watch(skip, 0), propagation_types::VALID);
  EXPECT_EQ(skip.writes, 0u);
  EXPECT_EQ(d.algo().watch(0).param, 0);
  // One parameter: the cyclic scan visits nothing; its literal false means UNSAT.
  for (bool querying : {false, true}) {
    clause_propagator one{iset("4,5")};
    recording_info single(sets("3:6"), constraint_runtime_info::CONSTRAINT_QUEUE, querying);
    ASSERT_EQ(one.init(single), propagation_types::VALID);
    if (querying) single.domains()[0] = iset("3,6");
    EXPECT_EQ(one.propagate(single), querying ? propagation_types::UNSAT : propagation_types::VALID);
    EXPECT_TRUE(querying || single.domain(0) == iset("4,5"));
  }
}

TEST(clause_propagator, intersect_with) {
  clause_propagator c{iset("1,2"), iset("5,6"), iset("3"), iset("0,9")};
  std::vector<unsigned> kept{42};
  const auto simplified = [&](const char* d) {
    const std::unique_ptr<constraint_propagator> p = c.intersect_with(make_view(sets(d)), kept);
    return p ? printed(*p) + " on " + show(kept) : "";
  };
  // Nothing changes: no result, kept untouched; literals cut to the domains, and the
  // empty ones go, to the empty clause if all do.
  EXPECT_EQ(simplified("1:3 5,6 3,4 0,9"), "");
  EXPECT_EQ(kept, std::vector<unsigned>{42});
  EXPECT_EQ(simplified("1,3 7 3,4 9,10"), "[P0=1, P1=3, P2=9] on 0,2,3");
  EXPECT_EQ(simplified("0 0 0 1"), "[] on ");
  // A watched clause can be simplified: the copy forgets the handles.
  recording_info live(sets("1:3 5:7 3,4 0,9,10"));
  ASSERT_EQ(c.init(live), propagation_types::VALID);
  ASSERT_EQ(c.count_watches(), 2u);
  const std::unique_ptr<constraint_propagator> p = c.intersect_with(make_view(sets("1,2 5 3,4 0,9")), kept);
  EXPECT_EQ(p ? p->count_watches() : 9u, 0u);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 1, 2, 3}));
}

}  // namespace
}  // namespace zelk
