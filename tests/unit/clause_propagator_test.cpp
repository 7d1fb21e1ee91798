// Tests of the watched-value clause: brute force over small random clauses, a
// simulated search with narrowing, wake-ups by value watch and backtracking (which
// is where watch-invariant faults show), and the edge cases of set-up, printing,
// simplification and combination.
#include "impl/clause_propagator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <sstream>
#include <vector>

#include "impl/constraint_explicit_info.h"

namespace zelk {
namespace {

using iset = small_model::iset;
using literal_vector = std::vector<iset>;

iset S(std::initializer_list<int> values) {
  iset s;
  for (int v : values) s.insert(v);
  return s;
}

// A stand-alone view that remembers every value watch handed out, checks that each
// release names the parameter and value it was allocated with, and checks that
// writes only narrow and never empty a domain. With `querying` set it answers
// querying_domain() true, as a tentative slice does.
class tracking_view : public constraint_explicit_info {
 public:
  struct value_watch {
    watch_handle_t handle;
    unsigned int param;
    int value;
  };

  explicit tracking_view(unsigned int arity, bool querying = false)
      : constraint_explicit_info(arity), m_querying(querying) {}

  bool querying_domain() const override { return m_querying; }

  watch_handle_t allocate_value_watch(unsigned int param, int value) override {
    EXPECT_LT(param, arity());
    EXPECT_TRUE(unsigned(value) <= 31u);
    watch_handle_t h = constraint_explicit_info::allocate_value_watch(param, value);
    m_value_watches.push_back({h, param, value});
    return h;
  }
  void deallocate_value_watch(unsigned int param, int value, watch_handle_t handle) override {
    auto it = std::find_if(m_value_watches.begin(), m_value_watches.end(),
                           [&](const value_watch& w) { return w.handle == handle; });
    if (it == m_value_watches.end()) {
      ADD_FAILURE() << "release of a handle never allocated here";
      return;
    }
    EXPECT_EQ(it->param, param);
    EXPECT_EQ(it->value, value);
    m_value_watches.erase(it);
    constraint_explicit_info::deallocate_value_watch(param, value, handle);
  }
  void set_domain(unsigned int param, iset set) override {
    EXPECT_TRUE(set.subset_of(domain(param))) << "a write must narrow";
    EXPECT_FALSE(set.empty()) << "a propagator returns UNSAT instead of emptying a domain";
    ++m_writes;
    constraint_explicit_info::set_domain(param, set);
  }

  const std::vector<value_watch>& value_watches() const { return m_value_watches; }
  unsigned int writes() const { return m_writes; }

 private:
  bool m_querying;
  std::vector<value_watch> m_value_watches;
  unsigned int m_writes = 0;
};

// ---- brute force ----------------------------------------------------------

struct brute_force_result {
  bool satisfiable = false;      // some assignment within the domains satisfies the clause
  bool valid = false;            // every assignment does
  std::vector<iset> supported;   // per parameter, the values that have a support
};

brute_force_result brute_force(const literal_vector& literals, const std::vector<iset>& doms) {
  const unsigned int n = unsigned(doms.size());
  brute_force_result r;
  r.supported.assign(n, iset());
  r.valid = true;
  std::vector<int> values(n);
  // Odometer over all assignments within the domains.
  std::vector<iset::iterator> it(n);
  for (unsigned int i = 0; i < n; ++i) {
    if (doms[i].empty()) {
      r.valid = true;  // no assignment at all
      return r;
    }
    it[i] = doms[i].begin();
  }
  for (;;) {
    bool sat = false;
    for (unsigned int i = 0; i < n && !sat; ++i) sat = literals[i].contains(*it[i]);
    if (sat) {
      r.satisfiable = true;
      for (unsigned int i = 0; i < n; ++i) r.supported[i].insert(*it[i]);
    } else {
      r.valid = false;
    }
    unsigned int k = 0;
    for (; k < n; ++k) {
      ++it[k];
      if (it[k] != doms[k].end()) break;
      it[k] = doms[k].begin();
    }
    if (k == n) break;
  }
  return r;
}

// The propagation result must agree with the state it leaves behind; `before` is
// the state the propagator was called on.
void check_outcome(const literal_vector& literals, const std::vector<iset>& before,
                   const tracking_view& view, propagation_types::result_type result,
                   const std::string& context) {
  const brute_force_result expect = brute_force(literals, before);
  if (!expect.satisfiable) {
    EXPECT_EQ(result, propagation_types::UNSAT) << context;
    return;
  }
  ASSERT_NE(result, propagation_types::UNSAT) << context;
  ASSERT_NE(result, propagation_types::POSTPONE) << context;
  // Exactly the unsupported values go: unit propagation is all a clause can do.
  for (unsigned int i = 0; i < before.size(); ++i)
    EXPECT_EQ(view.domain(i), expect.supported[i]) << context << " param " << i;
  const brute_force_result after = brute_force(literals, view.domains());
  if (result == propagation_types::VALID) {
    EXPECT_TRUE(after.valid) << context;
  }
  if (result == propagation_types::CONSISTENT) {
    unsigned int live = 0;
    for (unsigned int i = 0; i < literals.size(); ++i)
      live += view.domain(i).intersects(literals[i]);
    EXPECT_GE(live, 2u) << context << ": a unit clause must not stay CONSISTENT";
  }
}

// Two distinct parameters with live value watches on values of their literals
// that are in the domains: the state a CONSISTENT clause must leave.
void check_two_live_watches(const clause_propagator& c, const tracking_view& view,
                            const std::string& context) {
  ASSERT_EQ(view.value_watches().size(), 2u) << context;
  EXPECT_EQ(c.count_watches(), 2u) << context;
  const auto& w = view.value_watches();
  EXPECT_NE(w[0].param, w[1].param) << context;
  for (const auto& v : w) {
    EXPECT_TRUE(view.domain(v.param).contains(v.value)) << context;
    EXPECT_TRUE(c.literals()[v.param].contains(v.value)) << context;
  }
}

std::string describe(unsigned int seed, const literal_vector& literals,
                     const std::vector<iset>& doms) {
  std::ostringstream os;
  os << "seed " << seed << " literals";
  for (const iset& l : literals) os << " {" << l << "}";
  os << " domains";
  for (const iset& d : doms) os << " {" << d << "}";
  return os.str();
}

// A random instance over a universe of at most five values somewhere in 0..31;
// literals may hold values outside the universe, and may be empty.
struct random_instance {
  literal_vector literals;
  std::vector<iset> domains;
  iset universe;
};

iset random_subset(std::mt19937& rng, iset of) {
  iset s;
  for (int v : of)
    if (rng() & 1u) s.insert(v);
  return s;
}

iset random_nonempty_subset(std::mt19937& rng, iset of) {
  for (;;) {
    iset s = random_subset(rng, of);
    if (!s.empty()) return s;
  }
}

random_instance make_instance(std::mt19937& rng) {
  random_instance r;
  const unsigned int arity = 1 + rng() % 5;
  switch (rng() % 3) {
    case 0: r.universe = iset::clipped_range(0, 1 + rng() % 4); break;
    case 1: r.universe = iset::clipped_range(27 + rng() % 3, 31); break;
    default: {
      const unsigned int size = 2 + rng() % 4;
      while (r.universe.size() < size) r.universe.insert(int(rng() % 32));
    }
  }
  for (unsigned int i = 0; i < arity; ++i) {
    iset lit = random_subset(rng, r.universe);
    if (rng() % 4 == 0) lit.insert(int(rng() % 32));
    if (rng() % 8 == 0) lit.clear();
    r.literals.push_back(lit);
    r.domains.push_back(random_nonempty_subset(rng, r.universe));
  }
  return r;
}

// ---- brute-force tests ----------------------------------------------------

TEST(clause_propagator, first_propagation_matches_brute_force) {
  for (bool querying : {false, true}) {
    for (unsigned int seed = 1; seed <= 3000; ++seed) {
      std::mt19937 rng(seed);
      const random_instance inst = make_instance(rng);
      const std::string context =
          describe(seed, inst.literals, inst.domains) + (querying ? " querying" : "");
      tracking_view view(unsigned(inst.literals.size()), querying);
      view.domains() = inst.domains;
      clause_propagator c(inst.literals);

      const propagation_types::result_type r0 = c.init(view);
      const brute_force_result expect = brute_force(inst.literals, inst.domains);
      ASSERT_EQ(r0 == propagation_types::UNSAT, !expect.satisfiable) << context;
      EXPECT_EQ(c.conflicts(view), !expect.satisfiable) << context;
      if (r0 == propagation_types::UNSAT) continue;
      EXPECT_EQ(view.writes(), 0u) << "init only watches; " << context;
      EXPECT_EQ(c.count_watches(), unsigned(view.value_watches().size())) << context;

      const propagation_types::result_type r = c.propagate(view);
      check_outcome(inst.literals, inst.domains, view, r, context);
      if (!querying && r == propagation_types::CONSISTENT)
        check_two_live_watches(c, view, context);
      EXPECT_EQ(c.count_watches(), unsigned(view.value_watches().size())) << context;
    }
  }
}

// Search as the solver does it: levels of narrowing, the clause run only when a
// value it watches leaves a domain, never again after VALID until a backtrack,
// backtracks that restore domains but not the clause's watches. At every point at
// which the clause is not run, brute force must find nothing to prune and no
// conflict: a missed wake-up is a watch fault.
void simulate_search(bool querying, unsigned int first_seed, unsigned int seeds) {
  for (unsigned int seed = first_seed; seed < first_seed + seeds; ++seed) {
    std::mt19937 rng(seed);
    const random_instance inst = make_instance(rng);
    const unsigned int n = unsigned(inst.literals.size());
    const std::string base = describe(seed, inst.literals, inst.domains) +
                             (querying ? " querying" : "");
    tracking_view view(n, querying);
    view.domains() = inst.domains;
    clause_propagator c(inst.literals);
    if (c.init(view) == propagation_types::UNSAT) continue;
    propagation_types::result_type r = c.propagate(view);
    check_outcome(inst.literals, inst.domains, view, r, base + " level 0");
    if (r == propagation_types::UNSAT) continue;

    std::vector<std::vector<iset>> trail{view.domains()};  // state at the end of each level
    bool valid = r == propagation_types::VALID;           // the solver's queue bit
    for (unsigned int step = 0; step < 40; ++step) {
      std::ostringstream ctx;
      ctx << base << " step " << step;
      if (trail.size() > 1 && rng() % 4 == 0) {
        const std::size_t level = rng() % trail.size();
        trail.resize(level + 1);
        view.domains() = trail.back();
        valid = false;  // a backtrack clears the queue bits
        ctx << " backtrack to " << level;
        // Nothing fires on a backtrack: the state must be at a fixpoint already.
        const brute_force_result now = brute_force(inst.literals, view.domains());
        ASSERT_TRUE(now.satisfiable) << ctx.str();
        for (unsigned int i = 0; i < n; ++i)
          ASSERT_EQ(view.domain(i), now.supported[i]) << ctx.str() << " param " << i;
        continue;
      }
      // A decision level: narrow one or two parameters.
      std::vector<iset> before = view.domains();
      bool woken = false;
      for (unsigned int k = 1 + rng() % 2; k-- > 0;) {
        const unsigned int p = rng() % n;
        const iset d = view.domain(p);
        if (d.size() < 2) continue;
        iset nd;
        do nd = random_nonempty_subset(rng, d);
        while (nd == d);
        view.domains()[p] = nd;
      }
      for (const auto& w : view.value_watches())
        if (before[w.param].contains(w.value) && !view.domain(w.param).contains(w.value))
          woken = true;
      const std::vector<iset> narrowed = view.domains();
      const brute_force_result now = brute_force(inst.literals, narrowed);
      if (woken && !valid) {
        r = c.propagate(view);
        check_outcome(inst.literals, narrowed, view, r, ctx.str());
        if (!querying && r == propagation_types::CONSISTENT)
          check_two_live_watches(c, view, ctx.str());
        if (r == propagation_types::UNSAT) {
          // Conflict: back to a random earlier level, as the analysis would.
          const std::size_t level = rng() % trail.size();
          trail.resize(level + 1);
          view.domains() = trail.back();
          valid = false;
          continue;
        }
        valid = r == propagation_types::VALID;
      } else {
        ASSERT_TRUE(now.satisfiable) << ctx.str() << ": conflict missed (woken " << woken
                                     << ", valid " << valid << ")";
        for (unsigned int i = 0; i < n; ++i)
          ASSERT_EQ(narrowed[i], now.supported[i])
              << ctx.str() << ": unit propagation missed on param " << i;
      }
      EXPECT_LE(view.value_watches().size(), 2u) << ctx.str();
      EXPECT_EQ(c.count_watches(), unsigned(view.value_watches().size())) << ctx.str();
      trail.push_back(view.domains());
    }
  }
}

TEST(clause_propagator, search_with_backtracking_misses_no_wake_up) {
  simulate_search(false, 1, 3000);
}

TEST(clause_propagator, querying_view_search_misses_no_wake_up) {
  simulate_search(true, 10001, 3000);
}

// ---- set-up ---------------------------------------------------------------

TEST(clause_propagator, init_edge_cases) {
  {
    clause_propagator empty;
    constraint_explicit_info view(0);
    EXPECT_EQ(empty.init(view), propagation_types::UNSAT);
    EXPECT_EQ(empty.propagate(view), propagation_types::UNSAT);
    EXPECT_TRUE(empty.conflicts(view));
  }
  {
    clause_propagator c{S({1}), S({2})};
    constraint_explicit_info view(3);
    try {
      (void)c.init(view);
      FAIL() << "arity mismatch accepted";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "Number of variables and literals differ");
    }
  }
  {
    // Unit at init: no value watch, the first propagate reduces and is VALID.
    clause_propagator c{S({1, 2}), S({5})};
    tracking_view view(2);
    view.domains() = {S({0, 1, 2, 3}), S({6, 7})};
    EXPECT_EQ(c.init(view), propagation_types::VALID);
    EXPECT_EQ(c.count_watches(), 0u);
    EXPECT_EQ(c.algo().watch(0).param, 0);
    EXPECT_EQ(c.algo().watch(1).param, -1);
    EXPECT_EQ(c.propagate(view), propagation_types::VALID);
    EXPECT_EQ(view.domain(0), S({1, 2}));
    EXPECT_EQ(view.value_watches().size(), 0u);
  }
  {
    // Satisfied at init: the first parameter within its literal, no watch.
    clause_propagator c{S({1, 2}), S({5, 6})};
    tracking_view view(2);
    view.domains() = {S({1, 3}), S({5})};
    EXPECT_EQ(c.init(view), propagation_types::VALID);
    EXPECT_EQ(c.algo().watch(0).param, 1);
    EXPECT_EQ(c.count_watches(), 0u);
    EXPECT_EQ(c.propagate(view), propagation_types::VALID);
    EXPECT_EQ(view.writes(), 0u);
  }
}

TEST(clause_propagator, querying_view_never_watches_an_empty_literal) {
  // Only parameter 2 can hold; parameter 0 has an empty literal, so the fallback
  // watch goes to parameter 1, on the smallest value of its literal.
  clause_propagator c{iset(), S({4, 9}), S({3, 7})};
  tracking_view view(3, true);
  view.domains() = {S({0, 1}), S({1, 2}), S({3, 5, 7})};
  EXPECT_EQ(c.init(view), propagation_types::VALID);
  ASSERT_EQ(view.value_watches().size(), 2u);
  for (const auto& w : view.value_watches()) EXPECT_NE(w.param, 0u);
  EXPECT_EQ(c.algo().watch(0).param, 2);
  EXPECT_EQ(c.algo().watch(0).value, 3);
  EXPECT_EQ(c.algo().watch(1).param, 1);
  EXPECT_EQ(c.algo().watch(1).value, 4);

  EXPECT_EQ(c.propagate(view), propagation_types::VALID);
  EXPECT_EQ(view.domain(2), S({3, 7}));
  for (const auto& w : view.value_watches()) EXPECT_NE(w.param, 0u);

  // Without a second non-empty literal, one watch only.
  clause_propagator d{iset(), S({3, 7})};
  tracking_view view2(2, true);
  view2.domains() = {S({0, 1}), S({3, 5, 7})};
  EXPECT_EQ(d.init(view2), propagation_types::VALID);
  EXPECT_EQ(view2.value_watches().size(), 1u);
  EXPECT_EQ(d.propagate(view2), propagation_types::VALID);
  EXPECT_EQ(view2.domain(1), S({3, 7}));
}

TEST(clause_propagator, querying_view_repairs_the_second_watch_after_valid) {
  // Record 0 dies and the clause is satisfied by parameter 2; in a querying view
  // the run goes on and moves record 1 off its lost value as well.
  clause_propagator c{S({1}), S({2, 3}), S({4})};
  tracking_view view(3, true);
  view.domains() = {S({0, 1}), S({2, 3, 5}), S({4, 6})};
  ASSERT_EQ(c.init(view), propagation_types::VALID);
  view.domains() = {S({0}), S({3, 5}), S({4})};
  EXPECT_EQ(c.propagate(view), propagation_types::VALID);
  EXPECT_EQ(c.algo().watch(0).param, 0) << "satisfied elsewhere: the dead watch stays";
  EXPECT_EQ(c.algo().watch(1).param, 1);
  EXPECT_EQ(c.algo().watch(1).value, 3);
  EXPECT_EQ(view.writes(), 0u);

  // Unit in a querying view: the other record is moved inside the reduced domain.
  clause_propagator d{S({1, 2}), S({5})};
  tracking_view qview(2, true);
  qview.domains() = {S({1, 2, 3}), S({4, 5})};
  ASSERT_EQ(d.init(qview), propagation_types::VALID);
  qview.domains() = {S({0, 2, 3}), S({4, 5})};
  // Record 1 (on parameter 1) dies while record 0 still sits on the lost value 1.
  qview.domains()[1] = S({4});
  EXPECT_EQ(d.algo().refresh_watch(qview, 1), propagation_types::VALID);
  EXPECT_EQ(qview.domain(0), S({2}));
  EXPECT_EQ(d.algo().watch(0).param, 0);
  EXPECT_EQ(d.algo().watch(0).value, 2);
}

// ---- propagation ----------------------------------------------------------

TEST(clause_propagator, refresh_outcomes) {
  {
    // The last live literal gets reduced: VALID, not CONSISTENT.
    clause_propagator c{S({1}), S({2}), S({3, 4})};
    tracking_view view(3);
    view.domains() = {S({0, 1}), S({0, 2}), S({3, 5})};
    ASSERT_EQ(c.init(view), propagation_types::VALID);
    ASSERT_EQ(c.propagate(view), propagation_types::CONSISTENT);
    view.domains()[0] = S({0});  // kills watch 0; parameter 2 takes over
    EXPECT_EQ(c.propagate(view), propagation_types::CONSISTENT);
    check_two_live_watches(c, view, "moved");
    view.domains()[1] = S({0});
    EXPECT_EQ(c.propagate(view), propagation_types::VALID);
    EXPECT_EQ(view.domain(2), S({3}));
  }
  {
    // The woken literal is false and the other watched parameter already lies in
    // its literal: the scan skips it and the answer is VALID with no write.
    clause_propagator c{S({1}), S({2, 3}), S({9})};
    tracking_view view(3);
    view.domains() = {S({0, 1}), S({2, 3, 4}), S({8})};
    ASSERT_EQ(c.init(view), propagation_types::VALID);
    ASSERT_EQ(c.propagate(view), propagation_types::CONSISTENT);
    view.domains()[1] = S({2, 3});
    view.domains()[0] = S({0});
    // The fast path would see the satisfied parameter too; go through refresh.
    EXPECT_EQ(c.algo().watch(0).param, 0);
    EXPECT_EQ(c.algo().refresh_watch(view, 0), propagation_types::VALID);
    EXPECT_EQ(view.writes(), 0u);
    EXPECT_EQ(c.algo().watch(0).param, 0) << "the dead watch stays";
  }
  {
    // One parameter: the cyclic scan visits nothing; its literal false means UNSAT.
    clause_propagator c{S({4, 5})};
    tracking_view view(1);
    view.domains() = {S({3, 4, 5, 6})};
    ASSERT_EQ(c.init(view), propagation_types::VALID);
    EXPECT_EQ(c.propagate(view), propagation_types::VALID);
    EXPECT_EQ(view.domain(0), S({4, 5}));
    clause_propagator d{S({4, 5})};
    tracking_view qview(1, true);
    qview.domains() = {S({3, 4, 5, 6})};
    ASSERT_EQ(d.init(qview), propagation_types::VALID);
    qview.domains()[0] = S({3, 6});
    EXPECT_EQ(d.propagate(qview), propagation_types::UNSAT);
  }
}

TEST(clause_propagator, watch_values_wrap_round_from_the_old_value) {
  clause_propagator c{S({2, 5, 9, 31}), S({0, 1})};
  tracking_view view(2);
  view.domains() = {S({2, 5, 9, 30, 31}), S({0, 1, 2})};
  ASSERT_EQ(c.init(view), propagation_types::VALID);
  const clause_propagation_algo& a = c.algo();
  EXPECT_EQ(a.get_best_watch_value(view, 0, 0), 2);
  EXPECT_EQ(a.get_best_watch_value(view, 0, 6), 9);
  EXPECT_EQ(a.get_best_watch_value(view, 0, 31), 31);
  EXPECT_EQ(a.get_best_watch_value(view, 0, 10), 31);
  EXPECT_EQ(a.get_best_watch_value(view, 1, 2), 0);  // wraps
  EXPECT_EQ(a.get_best_watch_value(view, 0, -1), 2);
  EXPECT_EQ(a.get_best_watch_value(view, 0, 40), 2);

  ASSERT_EQ(a.watch(0).value, 2);
  view.domains()[0] = S({5, 9, 30, 31});
  ASSERT_EQ(c.propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(a.watch(0).value, 5);
  view.domains()[0] = S({9, 30, 31});
  ASSERT_EQ(c.propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(a.watch(0).value, 9);
  view.domains()[0] = S({30, 31});
  ASSERT_EQ(c.propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(a.watch(0).value, 31);
}

TEST(clause_propagator, literals_frozen_while_watches_are_held) {
  clause_propagator c{S({1}), S({2})};
  c.update_literals()[0] = S({1, 3});  // fine before init
  tracking_view view(2);
  view.domains() = {S({1, 3, 4}), S({2, 5})};
  ASSERT_EQ(c.init(view), propagation_types::VALID);
  try {
    c.update_literals();
    FAIL() << "update while watching";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Modifying the clause at runtime");
  }
  c.forget_watches();
  EXPECT_EQ(c.count_watches(), 0u);
  EXPECT_EQ(c.watched_param_index(0), 0u);
  EXPECT_EQ(c.watched_param_index(1), 1u);
  EXPECT_NO_THROW(c.update_literals());
  // Forgotten watches are never released: the propagation that follows only
  // allocates (the tracking view would flag a release of an unknown handle).
  constraint_explicit_info fresh(2);
  fresh.domains() = {S({4}), S({2, 5})};
  EXPECT_EQ(c.propagate(fresh), propagation_types::VALID);
  EXPECT_EQ(fresh.domain(1), S({2}));
}

// ---- queries, printing, explanation --------------------------------------

TEST(clause_propagator, queries_print_and_explain) {
  clause_propagator c{S({1, 2}), S({5, 6}), iset(), iset::full()};
  constraint_explicit_info view(4);
  view.domains() = {S({0, 1, 2, 3}), S({4, 5, 6, 7}), S({0}), S({3, 4})};
  EXPECT_EQ(c.count_params(), 4u);
  EXPECT_TRUE(c.constraint_check(view));
  EXPECT_FALSE(c.conflicts(view));
  EXPECT_TRUE(c.potentially_falsifying(view, 0));
  EXPECT_FALSE(c.potentially_falsifying(view, 2));  // empty intersection
  EXPECT_FALSE(c.potentially_falsifying(view, 3));  // the whole domain
  {
    std::ostringstream os;
    c.print(os, nullptr);
    EXPECT_EQ(os.str(), "[P0:{1,2}, P1:{5,6}, P2:{}, P3<=31]");
  }
  ASSERT_EQ(c.init(view), propagation_types::VALID);  // satisfied by parameter 3
  {
    std::ostringstream os;
    c.print(os, &view);
    EXPECT_EQ(os.str(), "constraint [P0:{1,2}, P1:{5,6}, P2:{}, *P3<=31]");
  }
  clause_propagator d{S({1, 2}), S({5, 6}), S({0}), S({31})};
  view.domains()[2] = S({1, 2});
  ASSERT_EQ(d.init(view), propagation_types::VALID);
  {
    std::ostringstream os;
    d.print(os, &view);
    EXPECT_EQ(os.str(), "constraint [*1?P0:{1,2}, *5?P1:{5,6}, P2=0, P3=31]");
  }
  literal_vector explanation{S({7}), S({7})};
  d.explain_propagation(1, iset::full(), S({5}), view, explanation);
  EXPECT_EQ(explanation, d.literals());
  std::unique_ptr<constraint_propagator> copy = d.clone();
  ASSERT_TRUE(dynamic_cast<clause_propagator*>(copy.get()));
  EXPECT_EQ(static_cast<clause_propagator&>(*copy).literals(), d.literals());

  view.domains() = {S({0, 3}), S({4}), S({1}), S({30})};
  EXPECT_TRUE(d.conflicts(view));
  EXPECT_FALSE(d.constraint_check(view));
}

// ---- simplification on initial domains -----------------------------------

TEST(clause_propagator, intersect_with) {
  clause_propagator c{S({1, 2}), S({5, 6}), S({3}), S({0, 9})};
  constraint_explicit_info view(4);
  view.domains() = {S({1, 2, 3}), S({5, 6}), S({3, 4}), S({0, 9})};
  std::vector<unsigned int> kept{42};
  EXPECT_EQ(c.intersect_with(view, kept), nullptr);
  EXPECT_EQ(kept, std::vector<unsigned int>{42}) << "kept untouched when nothing changes";

  view.domains() = {S({1, 3}), S({7}), S({3, 4}), S({9, 10})};
  std::unique_ptr<constraint_propagator> p = c.intersect_with(view, kept);
  ASSERT_TRUE(p);
  auto& simplified = dynamic_cast<clause_propagator&>(*p);
  EXPECT_EQ(simplified.literals(), (literal_vector{S({1}), S({3}), S({9})}));
  EXPECT_EQ(kept, (std::vector<unsigned int>{0, 2, 3}));

  // A clause that loses every literal is empty, and its init reports UNSAT.
  view.domains() = {S({0}), S({0}), S({0}), S({1})};
  p = c.intersect_with(view, kept);
  ASSERT_TRUE(p);
  EXPECT_TRUE(kept.empty());
  constraint_explicit_info none(0);
  EXPECT_EQ(p->init(none), propagation_types::UNSAT);

  // A watched clause can be simplified: the copy forgets the handles.
  tracking_view live(4);
  live.domains() = {S({1, 2, 3}), S({5, 6, 7}), S({3, 4}), S({0, 9, 10})};
  ASSERT_EQ(c.init(live), propagation_types::VALID);
  ASSERT_EQ(c.count_watches(), 2u);
  view.domains() = {S({1, 2}), S({5}), S({3, 4}), S({0, 9})};
  p = c.intersect_with(view, kept);
  ASSERT_TRUE(p);
  EXPECT_EQ(p->count_watches(), 0u);
  EXPECT_EQ(kept, (std::vector<unsigned int>{0, 1, 2, 3}));
}

// ---- combination ----------------------------------------------------------

// A stand-in for a constraint that knows how to combine with a clause.
class combining_propagator : public constraint_propagator {
 public:
  result_type propagate(constraint_runtime_info&) override { return CONSISTENT; }
  bool conflicts(const constraint_runtime_info&) const override { return false; }
  bool constraint_check(const constraint_runtime_info&) const override { return true; }
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<combining_propagator>(*this);
  }
  bool may_combine(const constraint_propagator& other) const override {
    return dynamic_cast<const clause_propagator*>(&other) != nullptr;
  }
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info&,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info&,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override {
    seen_right = &right;
    seen_map = map;
    seen_pivot = pivot;
    out = {1, 2};  // own parameter 1, and the clause's parameter 0 (2 - own arity 2)
    return clone();
  }
  mutable const constraint_propagator* seen_right = nullptr;
  mutable std::vector<unsigned int> seen_map;
  mutable unsigned int seen_pivot = 0;
};

TEST(clause_propagator, combination_goes_through_the_other_constraint) {
  clause_propagator a{S({1}), S({2})};
  clause_propagator b{S({3}), S({4})};
  combining_propagator other;
  EXPECT_FALSE(a.may_combine(b));
  EXPECT_TRUE(a.may_combine(other));

  constraint_explicit_info a_info(2);
  constraint_explicit_info b_info(2);
  std::vector<unsigned int> out;
  EXPECT_EQ(a.combine(a_info, b, b_info, {1, 3}, 0, out), nullptr);
  EXPECT_TRUE(out.empty());

  // The clause (left, 2 params) and the other (right, 2 params) share one variable:
  // right 0 is left 1, right 1 is new (1 + left arity); pivot is right 0.
  std::vector<unsigned int> map{1, 3};
  std::unique_ptr<constraint_propagator> r = a.combine(a_info, other, b_info, map, 0, out);
  ASSERT_TRUE(r);
  EXPECT_EQ(other.seen_right, &a);
  EXPECT_EQ(other.seen_map, (std::vector<unsigned int>{2, 0}));
  EXPECT_EQ(other.seen_pivot, 1u);
  // Back in the clause's numbering: the other's parameter 1 is right 1, that is 3;
  // the clause's parameter 0 stays 0.
  EXPECT_EQ(out, (std::vector<unsigned int>{3, 0}));
}

}  // namespace
}  // namespace zelk
