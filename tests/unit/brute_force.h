// Brute-force oracles for propagator tests: every assignment of a few small domains
// against a propagator's filtering, failure and validity claims, explanations and
// combinations; random instances and a recording view to drive them.
#ifndef ZELK_TESTS_UNIT_BRUTE_FORCE_H
#define ZELK_TESTS_UNIT_BRUTE_FORCE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "impl/constraint_explicit_info.h"
#include "impl/constraint_propagator.h"
#include "impl/small_iset.h"

namespace zelk {
namespace brute_force {

using small_model::iset;
typedef std::vector<iset> domain_list;
typedef std::vector<int> assignment;
typedef std::function<bool(const assignment&)> relation;
typedef propagation_types::result_type result_type;

//==== enumeration =============================================================

inline bool any_empty(const domain_list& d) {
  return std::any_of(d.begin(), d.end(), [](const iset& s) { return s.empty(); });
}

// Calls f on every assignment with values[i] in sets[i], the last parameter
// moving fastest; stops as soon as f returns false and then returns false.
template <class F>
bool for_each_assignment(const domain_list& sets, F&& f) {
  if (any_empty(sets)) return true;
  assignment values;
  for (const iset& s : sets) values.push_back(s.min());
  for (;;) {
    if (!f(values)) return false;
    for (std::size_t i = sets.size();; values[i] = sets[i].min()) {
      if (i-- == 0) return true;
      const auto next = sets[i].lower_bound(values[i] + 1);
      if (next != sets[i].end()) {
        values[i] = *next;
        break;
      }
    }
  }
}

// For each parameter, its values that belong to a solution within d.
inline domain_list supported_values(const domain_list& d, const relation& rel) {
  domain_list support(d.size());
  for_each_assignment(d, [&](const assignment& v) {
    if (rel(v))
      for (std::size_t i = 0; i < v.size(); ++i) support[i].insert(v[i]);
    return true;
  });
  return support;
}

inline bool solvable(const domain_list& d, const relation& rel) {
  return !for_each_assignment(d, [&](const assignment& v) { return !rel(v); });
}

inline std::string show(const domain_list& d) {
  std::ostringstream os;
  for (std::size_t i = 0; i < d.size(); ++i) os << (i ? " " : "") << "P" << i << "={" << d[i] << "}";
  return os.str();
}

template <class T>
std::string show(const std::vector<T>& v) {
  std::ostringstream os;
  for (std::size_t i = 0; i < v.size(); ++i) os << (i ? "," : "") << v[i];
  return os.str();
}

inline std::string printed(const constraint_propagator& p, const constraint_runtime_info* info = nullptr) {
  std::ostringstream os;
  p.print(os, info);
  return os.str();
}

// Domains written as sets between spaces, "-" for the empty one: "0:9 2,4 -".
inline domain_list sets(const std::string& text) {
  domain_list d;
  std::istringstream in(text);
  for (std::string set; in >> set;) d.push_back(set == "-" ? iset() : iset(set));
  return d;
}

inline constraint_explicit_info make_view(const domain_list& d) {
  constraint_explicit_info info(unsigned(d.size()));
  info.domains() = d;
  return info;
}

// The message of what f throws, "" if nothing.
template <class F> std::string thrown(F&& f) try { return f(), ""; } catch (const std::exception& e) { return e.what(); }

// The relation that a propagator's constraint_check defines on `arity` parameters.
inline relation relation_of(const constraint_propagator& p, unsigned arity) {
  std::shared_ptr<const constraint_propagator> copy(p.clone());
  auto view = std::make_shared<constraint_explicit_info>(arity);
  return [copy, view](const assignment& v) {
    for (std::size_t i = 0; i < v.size(); ++i) view->domains()[i] = iset::singleton(v[i]);
    return copy->constraint_check(*view);
  };
}

// Some parameter i takes a value of literals[i].
inline relation clause_relation(const domain_list& literals) {
  return [literals](const assignment& v) {
    for (std::size_t i = 0; i < v.size(); ++i)
      if (literals[i].contains(v[i])) return true;
    return false;
  };
}

// The values u + sign * w modulo 32 (u in a, w in b) that lie in `within`.
inline iset set_sum(const iset& a, const iset& b, int sign, const iset& within = iset::full()) {
  iset s;
  for (int u : a)
    for (int w : b) s.insert((u + sign * w) & 31);
  return s & within;
}

//==== random instances ========================================================

// The heaviest random campaigns run a quarter of their rounds in builds with
// assertions (the sanitizer and audit job): the Release job runs them all, and the
// first rounds already reach the memory and invariant faults that job looks for.
// Least counts asked of a campaign shrink with it, to half their share.
constexpr int campaign_rounds(int rounds) {
#ifdef NDEBUG
  return rounds;
#else
  return (rounds + 3) / 4;
#endif
}
constexpr int campaign_least(int least, int rounds) {
  return rounds == campaign_rounds(rounds) ? least : least * campaign_rounds(rounds) / rounds / 2;
}

// body(gen, round, context) for `rounds` rounds up to the first failure; the
// context names the seed and the round for replay.
template <class F>
void repeat(unsigned seed, int rounds, F&& body) {
  std::mt19937 gen(seed);
  for (int round = 0; round < rounds && !::testing::Test::HasFailure(); ++round)
    body(gen, round, "seed " + std::to_string(seed) + " round " + std::to_string(round));
}

// A set within a window lo..lo+width: single values, intervals, random subsets,
// and (when allowed) rarely the empty set.
inline iset random_domain(std::mt19937& gen, int lo_max, int width_max, bool allow_empty = false) {
  const int lo = int(gen() % unsigned(lo_max + 1));
  const int width = int(gen() % unsigned(width_max + 1));
  const iset window = iset::clipped_range(lo, lo + width);
  const unsigned kind = gen() % 60;
  if (kind == 0 && allow_empty) return iset();
  if (kind < 10) return iset::singleton(std::min(lo, 31));
  if (kind < 25) return window;
  const iset s = window & iset::from_bits(std::uint32_t(gen()));
  return s.empty() ? iset::singleton(std::min(lo, 31)) : s;
}

// Each value of `of` with probability one half; retried until non-empty when asked.
inline iset random_subset(std::mt19937& gen, const iset& of, bool non_empty = false) {
  for (;;) {
    iset s;
    for (int v : of)
      if (gen() & 1u) s.insert(v);
    if (!non_empty || !s.empty()) return s;
  }
}

// A clause of one to five parameters over a universe of at most five values in
// 0..31, with non-empty domains; a literal may hold values outside the universe,
// and may be empty.
struct clause_instance { domain_list literals, domains; };

inline clause_instance random_clause(std::mt19937& gen) {
  clause_instance r;
  const unsigned arity = 1 + gen() % 5;
  iset universe;
  switch (gen() % 3) {
    case 0: universe = iset::clipped_range(0, 1 + gen() % 4); break;
    case 1: universe = iset::clipped_range(27 + gen() % 3, 31); break;
    default:
      for (const unsigned size = 2 + gen() % 4; universe.size() < size;) universe.insert(int(gen() % 32));
  }
  for (unsigned i = 0; i < arity; ++i) {
    iset literal = random_subset(gen, universe);
    if (gen() % 4 == 0) literal.insert(int(gen() % 32));
    if (gen() % 8 == 0) literal.clear();
    r.literals.push_back(literal);
    r.domains.push_back(random_subset(gen, universe, true));
  }
  return r;
}

//==== a view that records ======================================================

// An explicit view that records the watches asked for, the live value watches (a
// release must name the parameter and value of its allocation), the queue
// requests, the reads of each parameter and the writes, which must narrow and
// never empty a domain. With `querying` it answers as a tentative slice does.
class recording_info : public constraint_explicit_info {
 public:
  explicit recording_info(const domain_list& d,
                          queue_type queue = constraint_runtime_info::CONSTRAINT_QUEUE,
                          bool querying = false)
      : constraint_explicit_info(unsigned(d.size())), reads(d.size(), 0), m_queue(queue), m_querying(querying) {
    domains() = d;
  }
  queue_type originating_queue() const override { return m_queue; }
  bool is_querying() const override { return m_querying; }
  void put_in_queue(queue_type queue) override { queued.push_back(queue); }
  const small_model::iset& read_domain(unsigned int param) const override {
    ++reads[param];
    return constraint_explicit_info::read_domain(param);
  }
  void set_domain(unsigned int param, small_model::iset set) override {
    EXPECT_TRUE(set.subset_of(constraint_explicit_info::read_domain(param))) << "a write must narrow";
    EXPECT_FALSE(set.empty()) << "a propagator returns UNSAT instead of emptying a domain";
    ++writes;
    constraint_explicit_info::set_domain(param, set);
  }
  watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) override {
    watches.emplace_back(param, type);
    return constraint_explicit_info::allocate_watch(param, type);
  }
  watch_handle_t allocate_value_watch(unsigned int param, int value) override {
    EXPECT_LT(param, arity());
    EXPECT_LE(unsigned(value), 31u);
    value_watches.emplace_back(param, value);
    m_handles.push_back(constraint_explicit_info::allocate_value_watch(param, value));
    return m_handles.back();
  }
  void deallocate_value_watch(unsigned int param, int value, watch_handle_t handle) override {
    const auto it = std::find(m_handles.begin(), m_handles.end(), handle);
    ASSERT_TRUE(it != m_handles.end()) << "release of a handle never allocated here";
    const auto k = it - m_handles.begin();
    EXPECT_EQ(value_watches[std::size_t(k)], std::make_pair(param, value));
    value_watches.erase(value_watches.begin() + k);
    m_handles.erase(it);
    constraint_explicit_info::deallocate_value_watch(param, value, handle);
  }

  std::vector<queue_type> queued;
  std::vector<std::pair<unsigned, watch_types::watch_type>> watches;
  std::vector<std::pair<unsigned, int>> value_watches;  // the live ones
  mutable std::vector<unsigned> reads;
  unsigned writes = 0;

 private:
  queue_type m_queue;
  bool m_querying;
  std::vector<watch_handle_t> m_handles;
};

//==== propagation =============================================================

// DOMAIN_CONSISTENT: every value left has a support, UNSAT exactly without one;
// SOUND_ONLY: no supported value lost, UNSAT only without support.
enum pruning_kind { DOMAIN_CONSISTENT, SOUND_ONLY };

struct outcome { result_type result; domain_list after; };

// A propagation from d that ended in `out`: never a supported value lost, never
// an empty write, UNSAT only without support, VALID only when every assignment
// left satisfies the relation, and, for DOMAIN_CONSISTENT, exact pruning.
inline void check_outcome(const domain_list& d, const outcome& out, const relation& rel,
                          pruning_kind kind, const std::string& context) {
  const domain_list support = supported_values(d, rel);
  const bool supported = solvable(d, rel), unsat = out.result == propagation_types::UNSAT;
  const std::string where = context + " before " + show(d) + " after " + show(out.after);
  EXPECT_NE(out.result, propagation_types::POSTPONE) << where;
  EXPECT_FALSE(unsat && supported) << "UNSAT with a support: " << where;
  if (kind == DOMAIN_CONSISTENT) { EXPECT_EQ(unsat, !supported) << where; }
  for (std::size_t i = 0; i < d.size() && !unsat; ++i) {
    EXPECT_TRUE(out.after[i].subset_of(d[i])) << "grew P" << i << ": " << where;
    EXPECT_FALSE(!d[i].empty() && out.after[i].empty()) << "wrote an empty domain: " << where;
    EXPECT_TRUE(support[i].subset_of(out.after[i])) << "lost a support of P" << i << ": " << where;
    if (kind == DOMAIN_CONSISTENT) { EXPECT_EQ(out.after[i], support[i]) << "P" << i << " " << where; }
  }
  if (out.result == propagation_types::VALID) {
    for_each_assignment(out.after, [&](const assignment& v) {
      EXPECT_TRUE(rel(v)) << "VALID with a false assignment " << show(v) << ": " << where;
      return rel(v);
    });
  }
}

//==== explanations ============================================================

// One explanation of the reduction of `param` from d[param] to `after` (empty:
// the failure): one set per parameter; the others miss their old domains; the
// pivot misses the removed values asked about; no assignment outside all of its
// sets satisfies the relation. Returns true if that was decided: the space
// outside is not larger than `limit`.
inline bool check_explanation(const domain_list& d, unsigned param, const iset& literal,
                              const iset& after, const domain_list& explanation,
                              const relation& rel, const std::string& context,
                              double limit = 1 << 20) {
  const std::string where = context + " explaining P" + std::to_string(param) +
                            (after.empty() ? " (failure)" : "") + " on " + show(d) + " gives " +
                            show(explanation);
  EXPECT_EQ(explanation.size(), d.size()) << where;
  if (explanation.size() != d.size()) return false;
  const iset removed = d[param] - after, asked = (removed & literal).empty() ? removed : removed & literal;
  for (unsigned i = 0; i < d.size(); ++i) {
    const bool pivot = !after.empty() && i == param;
    EXPECT_TRUE(explanation[i].disjoint(pivot ? asked : d[i]))
        << (pivot ? "covers a removed value" : "meets the old domain") << " of P" << i << ": " << where;
  }
  domain_list outside(d.size());
  double space = 1;
  for (std::size_t i = 0; i < d.size(); ++i) space *= (outside[i] = ~explanation[i]).size();
  if (space > limit) return false;
  EXPECT_TRUE(for_each_assignment(outside, [&](const assignment& v) { return !rel(v); }))
      << "explanation not implied: " << where;
  return true;
}

//==== everything on one instance ==============================================

struct checks {  // which checks check_instance runs, and how often
  pruning_kind kind = DOMAIN_CONSISTENT;
  bool exact_conflicts = true;   // conflicts() exactly when there is no support
  int explain_every = 1;         // explanations every so many rounds (0: never)
  bool random_literals = false;  // explanations asked with a random literal too
  double limit = 1 << 20;        // the largest space an implication is decided on
  int check_every = 10;          // constraint_check every so many rounds (0: never)
  bool run_init = false;
};

// A clone of p (init first when asked) propagates on d; conflicts only without
// support; the failure or each reduction explained; constraint_check agrees with
// the relation; as `c` asks. Adds the explanations decided to `explained`.
inline outcome check_instance(const constraint_propagator& p, const domain_list& d,
                              const relation& rel, int round, const std::string& context,
                              const checks& c, std::mt19937& gen, int& explained) {
  std::unique_ptr<constraint_propagator> copy = p.clone();
  constraint_explicit_info view = make_view(d);
  result_type result = propagation_types::UNSAT;
  if (!c.run_init || copy->init(view) != propagation_types::UNSAT) result = copy->propagate(view);
  const outcome out{result, view.domains()};
  check_outcome(d, out, rel, c.kind, context);
  const bool conflicts = p.conflicts(make_view(d)), supported = solvable(d, rel);
  EXPECT_FALSE(conflicts && supported) << "conflicts with a support: " << context << " " << show(d);
  if (c.exact_conflicts) { EXPECT_EQ(conflicts, !supported) << context << " " << show(d); }
  if (c.explain_every && round % c.explain_every == 0) {
    const constraint_explicit_info before = make_view(d);
    for (unsigned i = 0; i < d.size(); ++i) {
      if (result == propagation_types::UNSAT ? i > 0 : out.after[i] == d[i]) continue;
      const iset after = result == propagation_types::UNSAT ? iset() : out.after[i];
      std::vector<iset> literals{iset::full()};
      if (c.random_literals) literals.push_back(iset::from_bits(std::uint32_t(gen())));
      for (const iset& literal : literals) {
        constraint_propagator::literal_vector explanation;
        p.explain_propagation(i, literal, after, before, explanation);
        explained += check_explanation(d, i, literal, after, explanation, rel, context, c.limit);
      }
    }
  }
  if (c.check_every && round % c.check_every == 0) {
    constraint_explicit_info single(unsigned(d.size()));
    for_each_assignment(d, [&](const assignment& v) {
      for (std::size_t i = 0; i < v.size(); ++i) single.domains()[i] = iset::singleton(v[i]);
      EXPECT_EQ(p.constraint_check(single), rel(v)) << context << " at " << show(v);
      return p.constraint_check(single) == rel(v);
    });
  }
  return out;
}

//==== combination =============================================================

// The outcome of left.combine(right) on the given domains.
struct combination { std::unique_ptr<constraint_propagator> result; std::vector<unsigned> out; };

inline combination run_combine(const constraint_propagator& left, const domain_list& left_domains,
                               const constraint_propagator& right, const domain_list& right_domains,
                               const std::vector<unsigned>& map, unsigned pivot) {
  combination c;
  c.result = left.combine(make_view(left_domains), right, make_view(right_domains), map, pivot, c.out);
  return c;
}

// A fixed case: the text of the result ("" for none) and its variables.
inline combination expect_combination(combination c, const std::string& text,
                                      const std::vector<unsigned>& out = {}) {
  EXPECT_EQ(c.result ? printed(*c.result) : "", text);
  if (c.result) { EXPECT_EQ(c.out, out) << text; }
  return c;
}

// A non-null result of left.combine(right, map, pivot) is implied by the two
// inputs (over `universe`, or one fit for the number of variables), names every
// variable once, and (unless allowed) no longer names the pivot's variable.
// Variables in left-then-right numbering: left parameter i is i, right j is map[j].
inline void check_combination(const constraint_propagator& left, unsigned left_arity,
                              const constraint_propagator& right, unsigned right_arity,
                              const std::vector<unsigned>& map, unsigned pivot,
                              const combination& c, const std::string& context,
                              bool pivot_may_stay = false, iset universe = iset()) {
  if (!c.result) return;
  const std::string where = context + " gives " + printed(*c.result) + " on " + show(c.out);
  const unsigned count = c.result->count_params();
  EXPECT_TRUE(int(count) < 0 || count == c.out.size()) << count << " parameters: " << where;
  std::vector<unsigned> vars(c.out.begin(), c.out.end());
  std::sort(vars.begin(), vars.end());
  EXPECT_TRUE(std::adjacent_find(vars.begin(), vars.end()) == vars.end()) << "a variable twice: " << where;
  for (unsigned v : c.out)
    EXPECT_TRUE(v < left_arity || std::find(map.begin(), map.end(), v) != map.end())
        << "unknown variable " << v << ": " << where;
  EXPECT_TRUE(pivot_may_stay || std::find(c.out.begin(), c.out.end(), map[pivot]) == c.out.end())
      << "the pivot stays: " << where;
  std::vector<unsigned> left_vars(left_arity);
  for (unsigned i = 0; i < left_arity; ++i) vars.push_back(left_vars[i] = i);
  vars.insert(vars.end(), map.begin(), map.end());
  std::sort(vars.begin(), vars.end());
  vars.erase(std::unique(vars.begin(), vars.end()), vars.end());
  const std::size_t n = vars.size();
  if (universe.empty())
    universe = iset::clipped_range(0, n <= 3 ? 31 : n == 4 ? 11 : n == 5 ? 6 : n == 6 ? 4 : 3);
  const auto positions = [&](const std::vector<unsigned>& side) {
    std::vector<std::size_t> at;
    for (unsigned v : side) at.push_back(std::lower_bound(vars.begin(), vars.end(), v) - vars.begin());
    return at;
  };
  const std::vector<std::size_t> at[3] = {positions(left_vars), positions(map), positions(c.out)};
  const relation rel[3] = {relation_of(left, left_arity), relation_of(right, right_arity),
                           relation_of(*c.result, unsigned(c.out.size()))};
  const auto holds = [&](int side, const assignment& a) {
    assignment values;
    for (std::size_t k : at[side]) values.push_back(a[k]);
    return rel[side](values);
  };
  for_each_assignment(domain_list(n, universe), [&](const assignment& a) {
    if (!holds(0, a) || !holds(1, a) || holds(2, a)) return true;
    ADD_FAILURE() << "not implied at " << show(a) << " of " << show(vars) << ": " << where;
    return false;
  });
}

}  // namespace brute_force
}  // namespace zelk

#endif
