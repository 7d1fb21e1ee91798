// Brute-force oracles for propagator tests: enumerate every assignment of a few
// small domains and compare a propagator's filtering, its failure and validity
// claims, its explanations and the constraints it builds by combination with what
// the plain relation says.
//
// A relation is a predicate on one value per parameter. Everything runs on a
// constraint_explicit_info, so a propagator sees exactly the domains given here.
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

// Calls f on every assignment with values[i] in sets[i], the last parameter
// moving fastest; stops as soon as f returns false and then returns false.
template <class F>
bool for_each_assignment(const domain_list& sets, F&& f) {
  for (const iset& s : sets)
    if (s.empty()) return true;
  const std::size_t n = sets.size();
  assignment values(n);
  for (std::size_t i = 0; i < n; ++i) values[i] = sets[i].min();
  for (;;) {
    if (!f(values)) return false;
    std::size_t i = n;
    for (;;) {
      if (i == 0) return true;
      --i;
      const auto next = sets[i].lower_bound(values[i] + 1);
      if (next != sets[i].end()) {
        values[i] = *next;
        break;
      }
      values[i] = sets[i].min();
    }
  }
}

// The number of assignments, as a double so that it can't overflow.
inline double space_size(const domain_list& sets) {
  double size = 1;
  for (const iset& s : sets) size *= s.size();
  return size;
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

inline std::string show(const assignment& v) {
  std::ostringstream os;
  for (std::size_t i = 0; i < v.size(); ++i) os << (i ? "," : "") << v[i];
  return os.str();
}

inline constraint_explicit_info make_view(const domain_list& d) {
  constraint_explicit_info info(unsigned(d.size()));
  info.domains() = d;
  return info;
}

// The relation that a propagator's constraint_check defines on `arity` parameters.
inline relation relation_of(const constraint_propagator& p, unsigned arity) {
  std::shared_ptr<const constraint_propagator> copy(p.clone());
  auto view = std::make_shared<constraint_explicit_info>(arity);
  return [copy, view](const assignment& v) {
    for (std::size_t i = 0; i < v.size(); ++i) view->domains()[i] = iset::singleton(v[i]);
    return copy->constraint_check(*view);
  };
}

//==== random domains ==========================================================

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

inline bool any_empty(const domain_list& d) {
  return std::any_of(d.begin(), d.end(), [](const iset& s) { return s.empty(); });
}

//==== a view that records ======================================================

// An explicit view that records the watches asked for, the queue requests and
// the reads of each parameter; the originating queue is set by the test.
class recording_info : public constraint_explicit_info {
 public:
  explicit recording_info(const domain_list& d,
                          queue_type queue = constraint_runtime_info::CONSTRAINT_QUEUE)
      : constraint_explicit_info(unsigned(d.size())), reads(d.size(), 0), m_queue(queue) {
    domains() = d;
  }
  queue_type originating_queue() const override { return m_queue; }
  void put_in_queue(queue_type queue) override { queued.push_back(queue); }
  const small_model::iset& domain(unsigned int param) const override {
    ++reads[param];
    return constraint_explicit_info::domain(param);
  }
  watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) override {
    watches.emplace_back(param, type);
    return constraint_explicit_info::allocate_watch(param, type);
  }
  watch_handle_t allocate_value_watch(unsigned int param, int value) override {
    value_watches.emplace_back(param, value);
    return constraint_explicit_info::allocate_value_watch(param, value);
  }

  std::vector<queue_type> queued;
  std::vector<std::pair<unsigned, watch_types::watch_type>> watches;
  std::vector<std::pair<unsigned, int>> value_watches;
  mutable std::vector<unsigned> reads;

 private:
  queue_type m_queue;
};

//==== propagation =============================================================

enum pruning_kind {
  DOMAIN_CONSISTENT,  // every value left has a support; UNSAT exactly without one
  SOUND_ONLY          // no supported value lost; UNSAT only without support
};

struct outcome {
  result_type result;
  domain_list after;
};

// Runs a clone of p (init first when asked) on d and checks it against the
// supports: never a supported value lost, never an empty write, UNSAT only
// without support, VALID only when every assignment left satisfies the relation,
// and, for DOMAIN_CONSISTENT, exact pruning.
inline outcome check_propagation(const constraint_propagator& p, const domain_list& d,
                                 const relation& rel, pruning_kind kind,
                                 const std::string& context, bool run_init = false) {
  std::unique_ptr<constraint_propagator> copy = p.clone();
  constraint_explicit_info view = make_view(d);
  result_type result = propagation_types::CONSISTENT;
  if (run_init && copy->init(view) == propagation_types::UNSAT)
    result = propagation_types::UNSAT;
  else
    result = copy->propagate(view);
  const domain_list after = view.domains();
  const domain_list support = supported_values(d, rel);
  const bool supported = solvable(d, rel);
  const std::string where = context + " before " + show(d) + " after " + show(after);
  EXPECT_NE(result, propagation_types::POSTPONE) << where;
  if (result == propagation_types::UNSAT) {
    EXPECT_FALSE(supported) << "UNSAT with a support: " << where;
  } else {
    for (std::size_t i = 0; i < d.size(); ++i) {
      EXPECT_TRUE(after[i].subset_of(d[i])) << "grew P" << i << ": " << where;
      if (!d[i].empty()) {
        EXPECT_FALSE(after[i].empty()) << "wrote an empty domain: " << where;
      }
      EXPECT_TRUE(support[i].subset_of(after[i]))
          << "lost a supported value of P" << i << ": " << where;
    }
  }
  if (result == propagation_types::VALID) {
    for_each_assignment(after, [&](const assignment& v) {
      EXPECT_TRUE(rel(v)) << "VALID with a false assignment " << show(v) << ": " << where;
      return rel(v);
    });
  }
  if (kind == DOMAIN_CONSISTENT) {
    EXPECT_EQ(result == propagation_types::UNSAT, !supported) << where;
    if (result != propagation_types::UNSAT) {
      for (std::size_t i = 0; i < d.size(); ++i)
        EXPECT_EQ(after[i], support[i]) << "P" << i << " not pruned to its supports: " << where;
    }
  }
  if (p.conflicts(make_view(d))) {
    EXPECT_FALSE(supported) << "conflicts with a support: " << where;
  }
  return outcome{result, after};
}

// constraint_check on every assignment of d agrees with the relation.
inline void check_constraint_check(const constraint_propagator& p, const domain_list& d,
                                   const relation& rel, const std::string& context) {
  constraint_explicit_info view(unsigned(d.size()));
  for_each_assignment(d, [&](const assignment& v) {
    for (std::size_t i = 0; i < v.size(); ++i) view.domains()[i] = iset::singleton(v[i]);
    const bool expected = rel(v);
    EXPECT_EQ(p.constraint_check(view), expected) << context << " at " << show(v);
    return p.constraint_check(view) == expected;
  });
}

//==== explanations ============================================================

// The clause "some parameter i takes a value in clause[i]" is implied when no
// assignment outside all of its sets satisfies the relation. Gives no verdict
// (returns false) when that space is larger than `limit`.
inline bool clause_implied(const domain_list& clause, const relation& rel, bool& verdict,
                           double limit = 1 << 20) {
  domain_list outside(clause.size());
  for (std::size_t i = 0; i < clause.size(); ++i) outside[i] = ~clause[i];
  if (space_size(outside) > limit) return false;
  verdict = for_each_assignment(outside, [&](const assignment& v) { return !rel(v); });
  return true;
}

// One explanation of the reduction of `param` from d[param] to `after` (empty:
// the failure) against the contract: one set per parameter; the others miss
// their old domains; the pivot misses the removed values asked about; the
// relation implies the clause. Returns true if the implication was decided.
inline bool check_explanation(const domain_list& d, unsigned param, const iset& literal,
                              const iset& after, const domain_list& explanation,
                              const relation& rel, const std::string& context,
                              double limit = 1 << 20) {
  const std::string where =
      context + " explaining P" + std::to_string(param) + (after.empty() ? " (failure)" : "") +
      " on " + show(d) + " gives " + show(explanation);
  EXPECT_EQ(explanation.size(), d.size()) << where;
  if (explanation.size() != d.size()) return false;
  iset asked;
  if (!after.empty()) {
    const iset removed = d[param] - after;
    asked = removed & literal;
    if (asked.empty()) asked = removed;
  }
  for (unsigned i = 0; i < d.size(); ++i) {
    if (!after.empty() && i == param) {
      EXPECT_TRUE(explanation[i].disjoint(asked)) << "covers a removed value: " << where;
    } else {
      EXPECT_TRUE(explanation[i].disjoint(d[i]))
          << "meets the old domain of P" << i << ": " << where;
    }
  }
  bool implied = false;
  if (!clause_implied(explanation, rel, implied, limit)) return false;
  EXPECT_TRUE(implied) << "explanation not implied: " << where;
  return true;
}

// Asks p for the explanation of its failure, or of each reduction in `out`,
// with the full literal and, when gen is given, also with a random literal.
// Returns the number of explanations whose implication was decided (within
// `limit` assignments each).
inline int check_explanations(const constraint_propagator& p, const domain_list& d,
                              const outcome& out, const relation& rel, const std::string& context,
                              std::mt19937* gen = nullptr, double limit = 1 << 20) {
  std::vector<std::pair<unsigned, iset>> asked;
  if (out.result == propagation_types::UNSAT) {
    asked.emplace_back(0, iset());
  } else {
    for (unsigned i = 0; i < d.size(); ++i)
      if (out.after[i] != d[i]) asked.emplace_back(i, out.after[i]);
  }
  int checked = 0;
  const constraint_explicit_info view = make_view(d);
  for (const auto& [param, after] : asked) {
    std::vector<iset> literals{iset::full()};
    if (gen) literals.push_back(iset::from_bits(std::uint32_t((*gen)())));
    for (const iset& literal : literals) {
      constraint_propagator::literal_vector explanation;
      p.explain_propagation(param, literal, after, view, explanation);
      checked += check_explanation(d, param, literal, after, explanation, rel, context, limit);
    }
  }
  return checked;
}

//==== combination =============================================================

// A constraint over variables: the relation on its parameters, and the variable
// of each parameter.
struct scoped_relation {
  relation rel;
  std::vector<unsigned> vars;
};

// Every assignment of the variables of all scopes, each over `universe`, that
// satisfies every premise satisfies the conclusion. On failure `witness` names
// the assignment. `models` receives the number of assignments satisfying the
// premises, so that a vacuous check can be told apart.
inline bool implies(const std::vector<scoped_relation>& premises,
                    const scoped_relation& conclusion, const iset& universe,
                    std::string& witness, long* models = nullptr) {
  std::vector<unsigned> vars;
  const auto collect = [&](const scoped_relation& s) {
    for (unsigned v : s.vars)
      if (std::find(vars.begin(), vars.end(), v) == vars.end()) vars.push_back(v);
  };
  for (const scoped_relation& s : premises) collect(s);
  collect(conclusion);
  std::sort(vars.begin(), vars.end());
  const auto position = [&](unsigned v) {
    return unsigned(std::lower_bound(vars.begin(), vars.end(), v) - vars.begin());
  };
  // Parameter lists as positions in the enumerated assignment.
  std::vector<std::vector<unsigned>> scopes;
  for (const scoped_relation& s : premises) {
    scopes.emplace_back();
    for (unsigned v : s.vars) scopes.back().push_back(position(v));
  }
  std::vector<unsigned> conclusion_scope;
  for (unsigned v : conclusion.vars) conclusion_scope.push_back(position(v));
  long count = 0;
  assignment local;
  const bool holds = for_each_assignment(domain_list(vars.size(), universe), [&](const assignment& a) {
    for (std::size_t k = 0; k < premises.size(); ++k) {
      local.clear();
      for (unsigned p : scopes[k]) local.push_back(a[p]);
      if (!premises[k].rel(local)) return true;
    }
    ++count;
    local.clear();
    for (unsigned p : conclusion_scope) local.push_back(a[p]);
    if (conclusion.rel(local)) return true;
    std::ostringstream os;
    for (std::size_t i = 0; i < vars.size(); ++i) os << (i ? " " : "") << "v" << vars[i] << "=" << a[i];
    witness = os.str();
    return false;
  });
  if (models) *models = count;
  return holds;
}

// A universe small enough to enumerate `count` variables.
inline iset universe_for(std::size_t count) {
  if (count <= 3) return iset::full();
  if (count == 4) return iset::clipped_range(0, 11);
  if (count == 5) return iset::clipped_range(0, 6);
  if (count == 6) return iset::clipped_range(0, 4);
  return iset::clipped_range(0, 3);
}

// The outcome of left.combine(right) on the given domains.
struct combination {
  std::unique_ptr<constraint_propagator> result;
  std::vector<unsigned> out;
};

inline combination run_combine(const constraint_propagator& left, const domain_list& left_domains,
                               const constraint_propagator& right,
                               const domain_list& right_domains, const std::vector<unsigned>& map,
                               unsigned pivot) {
  const constraint_explicit_info left_view = make_view(left_domains);
  const constraint_explicit_info right_view = make_view(right_domains);
  combination c;
  c.result = left.combine(left_view, right, right_view, map, pivot, c.out);
  return c;
}

// A non-null result of left.combine(right, map, pivot) is implied by the two
// inputs (checked over `universe`, or a universe fit for the number of
// variables), names every variable once, and (unless allowed) no longer names
// the pivot's variable. Variables in left-then-right numbering: left parameter i
// is i, right parameter j is map[j].
inline void check_combination(const constraint_propagator& left, unsigned left_arity,
                              const constraint_propagator& right, unsigned right_arity,
                              const std::vector<unsigned>& map, unsigned pivot,
                              const combination& c, const std::string& context,
                              bool pivot_may_stay = false, iset universe = iset()) {
  if (!c.result) return;
  std::ostringstream text;
  c.result->print(text, nullptr);
  const std::string where = context + " gives " + text.str() + " on " + show(assignment(c.out.begin(), c.out.end()));
  const unsigned count = c.result->count_params();
  if (int(count) >= 0) {
    EXPECT_EQ(count, c.out.size()) << where;
  }
  std::vector<unsigned> sorted = c.out;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_TRUE(std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end())
      << "a variable twice: " << where;
  for (unsigned v : c.out) {
    const bool known = v < left_arity || std::find(map.begin(), map.end(), v) != map.end();
    EXPECT_TRUE(known) << "unknown variable " << v << ": " << where;
  }
  if (!pivot_may_stay) {
    EXPECT_TRUE(std::find(c.out.begin(), c.out.end(), map[pivot]) == c.out.end())
        << "the pivot stays: " << where;
  }
  std::vector<unsigned> left_vars(left_arity);
  for (unsigned i = 0; i < left_arity; ++i) left_vars[i] = i;
  const std::vector<scoped_relation> premises{{relation_of(left, left_arity), left_vars},
                                              {relation_of(right, right_arity), map}};
  const scoped_relation conclusion{relation_of(*c.result, unsigned(c.out.size())), c.out};
  if (universe.empty()) {
    std::vector<unsigned> all = left_vars;
    all.insert(all.end(), map.begin(), map.end());
    std::sort(all.begin(), all.end());
    universe = universe_for(std::unique(all.begin(), all.end()) - all.begin());
  }
  std::string witness;
  EXPECT_TRUE(implies(premises, conclusion, universe, witness))
      << "not implied at " << witness << ": " << where;
}

}  // namespace brute_force
}  // namespace zelk

#endif
