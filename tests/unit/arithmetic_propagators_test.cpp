// The sum propagators against brute force on many small random instances:
// soundness, the promised pruning, UNSAT, conflicts and constraint_check, the
// explanations, simplification on fixed parameters; then the fixed cases; last,
// the soundness of combination (elimination between sums and differences, sums
// of parities, substitution from a two-parameter modular sum).
#include "impl/arithmetic_propagators.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/constraint_explicit_info.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
#include "impl/int128.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using small_model::iset;
typedef std::vector<iset> domain_list;
typedef std::function<bool(const std::vector<int>&)> relation;
typedef propagation_types::result_type result_type;

//==== brute force ===========================================================

// Calls f on every assignment with value i in sets[i]; stops when f returns false.
template <class F>
bool for_each_assignment(const domain_list& sets, F f) {
  std::vector<int> values(sets.size());
  std::function<bool(std::size_t)> walk = [&](std::size_t i) -> bool {
    if (i == sets.size()) return f(values);
    for (int v = 0; v < 32; ++v) {
      if (!sets[i].contains(v)) continue;
      values[i] = v;
      if (!walk(i + 1)) return false;
    }
    return true;
  };
  return walk(0);
}

// For each parameter, its values that belong to a solution within the domain_list.
domain_list supported_values(const domain_list& d, const relation& rel) {
  domain_list support(d.size());
  for_each_assignment(d, [&](const std::vector<int>& v) {
    if (rel(v))
      for (std::size_t i = 0; i < v.size(); ++i) support[i].insert(v[i]);
    return true;
  });
  return support;
}

bool solvable(const domain_list& d, const relation& rel) {
  return !for_each_assignment(d, [&](const std::vector<int>& v) { return !rel(v); });
}

std::string show(const domain_list& d) {
  std::ostringstream os;
  for (std::size_t i = 0; i < d.size(); ++i)
    os << (i ? " " : "") << "P" << i << "={" << d[i] << "}";
  return os.str();
}

constraint_explicit_info make_view(const domain_list& d) {
  constraint_explicit_info info(unsigned(d.size()));
  info.domains() = d;
  return info;
}

//==== random instances ======================================================

// A set within a window lo..lo+width: single values, intervals, random subsets,
// rarely empty.
iset random_domain(std::mt19937& gen, int lo_max, int width_max) {
  const int lo = int(gen() % unsigned(lo_max + 1));
  const int width = int(gen() % unsigned(width_max + 1));
  const iset window = iset::clipped_range(lo, lo + width);
  const unsigned kind = gen() % 60;
  if (kind == 0) return iset();
  if (kind < 10) return iset::singleton(lo);
  if (kind < 22) return window;
  const iset s = window & iset::from_bits(std::uint32_t(gen()));
  return s.empty() ? iset::singleton(lo) : s;
}

//==== the checks shared by all propagators ==================================

enum pruning_kind {
  DOMAIN_CONSISTENT,  // every value left has a support, UNSAT exactly without one
  SOUND_ONLY          // no supported value lost, UNSAT only without support
};

struct outcome {
  result_type result;
  domain_list after;
};

// Propagates a clone on the domain_list and checks it against the supports.
outcome check_propagation(const constraint_propagator& p, const domain_list& d, const relation& rel,
                          pruning_kind kind, const std::string& context) {
  std::unique_ptr<constraint_propagator> copy = p.clone();
  constraint_explicit_info view = make_view(d);
  const result_type result = copy->propagate(view);
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
      EXPECT_FALSE(after[i].empty()) << "wrote an empty domain: " << where;
      EXPECT_TRUE(support[i].subset_of(after[i]))
          << "lost a supported value of P" << i << ": " << where;
    }
  }
  if (result == propagation_types::VALID) {
    for_each_assignment(after, [&](const std::vector<int>& v) {
      EXPECT_TRUE(rel(v)) << "VALID with a false assignment: " << where;
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
  // conflicts never claims a conflict that has a support.
  if (p.conflicts(make_view(d))) {
    EXPECT_FALSE(supported) << "conflicts with a support: " << where;
  }
  return outcome{result, after};
}

// constraint_check on every assignment of the domain_list (all singletons).
void check_constraint_check(const constraint_propagator& p, const domain_list& d,
                            const relation& rel, const std::string& context) {
  for_each_assignment(d, [&](const std::vector<int>& v) {
    domain_list single(v.size());
    for (std::size_t i = 0; i < v.size(); ++i) single[i] = iset::singleton(v[i]);
    EXPECT_EQ(p.constraint_check(make_view(single)), rel(v)) << context << " at " << show(single);
    return true;
  });
}

// The clause sets[i] is implied when no solution avoids all of them. Enumerates
// the solutions outside the clause over the whole universe 0..31; returns false
// without a verdict when that space is too large.
bool clause_implied(const domain_list& clause, const relation& rel, bool& verdict) {
  domain_list outside(clause.size());
  double space = 1;
  for (std::size_t i = 0; i < clause.size(); ++i) {
    outside[i] = ~clause[i];
    space *= outside[i].size();
  }
  if (space > 60000) return false;
  verdict = for_each_assignment(outside, [&](const std::vector<int>& v) { return !rel(v); });
  return true;
}

// Every propagation (and the failure) that the propagator makes on d is explained
// by a clause that the constraint implies and that keeps to the contract: the
// other parameters' sets miss their old domain_list, the pivot's stays within after.
// Returns the number of explanations whose implication was checked.
int check_explanations(const constraint_propagator& p, const domain_list& d, const outcome& out,
                       const relation& rel, const std::string& context) {
  std::vector<std::pair<unsigned, iset>> asked;
  if (out.result == propagation_types::UNSAT) {
    asked.emplace_back(0, iset());
  } else {
    for (unsigned i = 0; i < d.size(); ++i)
      if (out.after[i] != d[i]) asked.emplace_back(i, out.after[i]);
  }
  int checked = 0;
  for (const auto& [param, after] : asked) {
    const constraint_explicit_info view = make_view(d);
    constraint_propagator::literal_vector explanation;
    p.explain_propagation(param, iset::full(), after, view, explanation);
    const std::string where = context + " explaining P" + std::to_string(param) + " on " + show(d) +
                              " gives " + show(explanation);
    EXPECT_EQ(explanation.size(), d.size()) << where;
    if (explanation.size() != d.size()) continue;
    for (unsigned i = 0; i < d.size(); ++i) {
      if (i == param)
        EXPECT_TRUE((explanation[i] & d[i]).subset_of(after)) << where;
      else
        EXPECT_TRUE(explanation[i].disjoint(d[i])) << where;
    }
    bool implied = false;
    if (clause_implied(explanation, rel, implied)) {
      ++checked;
      EXPECT_TRUE(implied) << "explanation not implied: " << where;
    }
  }
  return checked;
}

//==== relations =============================================================

relation ge_sum_relation() {
  return [](const std::vector<int>& v) {
    long long s = 0;
    for (std::size_t i = 1; i < v.size(); ++i) s += v[i];
    return v[0] >= s;
  };
}

relation le_sum_relation() {
  return [](const std::vector<int>& v) {
    long long s = 0;
    for (std::size_t i = 1; i < v.size(); ++i) s += v[i];
    return v[0] <= s;
  };
}

relation linear_relation(std::vector<int> coefficients, int constant) {
  return [coefficients, constant](const std::vector<int>& v) {
    __int128 s = 0;
    for (std::size_t i = 0; i < v.size(); ++i) s += __int128(coefficients[i]) * v[i];
    return s >= constant;
  };
}

relation sum_mod_relation(int mod, int result) {
  return [mod, result](const std::vector<int>& v) {
    long long s = 0;
    for (int x : v) {
      if (x >= mod) return false;
      s += x;
    }
    return s % mod == result;
  };
}

relation sum_wrap_relation() {
  return [](const std::vector<int>& v) {
    long long s = 0;
    for (std::size_t i = 1; i < v.size(); ++i) s += v[i];
    return v[0] == s % 32;
  };
}

relation sum_truncate_relation() {
  return [](const std::vector<int>& v) { return v[0] == v[1] + v[2]; };
}

relation neg_relation() {
  return [](const std::vector<int>& v) { return v[0] == (32 - v[1]) % 32; };
}

// The result of intersect_with stands for the constraint under the domain_list: on
// every assignment within them, it holds exactly when the original holds.
void check_simplification(const constraint_propagator& p, const domain_list& d, const relation& rel,
                          const std::string& context) {
  std::vector<unsigned> kept;
  std::unique_ptr<constraint_propagator> q = p.intersect_with(make_view(d), kept);
  if (!q) return;
  for (unsigned k : kept) ASSERT_LT(k, d.size()) << context;
  for_each_assignment(d, [&](const std::vector<int>& v) {
    domain_list single;
    for (unsigned k : kept) single.push_back(iset::singleton(v[k]));
    EXPECT_EQ(q->constraint_check(make_view(single)), rel(v))
        << context << " on " << show(d) << " at values of " << show(single);
    return true;
  });
}

//==== the random runs =======================================================

TEST(arithmetic_propagators, bound_sums_against_brute_force) {
  const unsigned seed = 101;
  std::mt19937 gen(seed);
  int explained = 0;
  for (int round = 0; round < 3000; ++round) {
    const unsigned n = 1 + gen() % 4;
    domain_list d(n);
    d[0] = random_domain(gen, 31, 12);
    for (unsigned i = 1; i < n; ++i) d[i] = random_domain(gen, 12, 6);
    const std::string context = "seed " + std::to_string(seed) + " round " + std::to_string(round);
    const greater_equal_sum_propagator ge;
    const less_equal_sum_propagator le;
    const outcome ge_out =
        check_propagation(ge, d, ge_sum_relation(), DOMAIN_CONSISTENT, "ge " + context);
    const outcome le_out =
        check_propagation(le, d, le_sum_relation(), DOMAIN_CONSISTENT, "le " + context);
    const bool ge_supported = solvable(d, ge_sum_relation());
    const bool le_supported = solvable(d, le_sum_relation());
    EXPECT_EQ(ge.conflicts(make_view(d)), !ge_supported) << context << " " << show(d);
    EXPECT_EQ(le.conflicts(make_view(d)), !le_supported) << context << " " << show(d);
    if (round % 5 == 0) {
      explained += check_explanations(ge, d, ge_out, ge_sum_relation(), "ge " + context);
      explained += check_explanations(le, d, le_out, le_sum_relation(), "le " + context);
    }
    if (round % 3 == 0) {
      check_simplification(ge, d, ge_sum_relation(), "ge " + context);
      check_simplification(le, d, le_sum_relation(), "le " + context);
    }
    if (round % 10 == 0) {
      check_constraint_check(ge, d, ge_sum_relation(), "ge " + context);
      check_constraint_check(le, d, le_sum_relation(), "le " + context);
    }
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(explained, 100);
}

// Small coefficients take the 64-bit path, large ones the 128-bit one; both must
// give the same bounds-consistent answer.
void run_linear_rounds(unsigned seed, bool wide) {
  std::mt19937 gen(seed);
  int explained = 0;
  for (int round = 0; round < 4000; ++round) {
    const unsigned n = (wide ? 2 : 1) + gen() % 3;
    std::vector<int> coefficients(n);
    domain_list d(n);
    long long target = 0;
    for (unsigned i = 0; i < n; ++i) {
      d[i] = random_domain(gen, 10, 5);
      if (wide) {
        // Beyond INT_MAX / n: the sums need more than 64 bits in the worst case.
        const int magnitude =
            INT_MAX / int(n) + 1 + int(gen() % unsigned(INT_MAX - INT_MAX / int(n)));
        coefficients[i] = gen() % 2 ? magnitude : -magnitude;
      } else {
        coefficients[i] = int(gen() % 11) - 5;
      }
      target += (long long)coefficients[i] * (d[i].empty() ? 0 : d[i].rand());
    }
    const long long noise =
        wide ? (long long)(gen() % 2000000000u) - 1000000000 : int(gen() % 11) - 5;
    const int constant = int(std::clamp<long long>(target + noise, INT_MIN, INT_MAX));
    const std::string context = std::string(wide ? "wide" : "narrow") + " seed " +
                                std::to_string(seed) + " round " + std::to_string(round);
    linear_combination_ge_propagator p(constant, coefficients);
    constraint_explicit_info init_view = make_view(d);
    ASSERT_NE(p.init(init_view), propagation_types::UNSAT);
    ASSERT_EQ(p.small_coefficients(), !wide) << context;
    const relation rel = linear_relation(coefficients, constant);
    std::ostringstream text;
    p.print(text, nullptr);
    const outcome out = check_propagation(p, d, rel, DOMAIN_CONSISTENT, context + " " + text.str());
    EXPECT_EQ(p.conflicts(make_view(d)), !solvable(d, rel))
        << context << " " << text.str() << " " << show(d);
    explained += check_explanations(p, d, out, rel, context + " " + text.str());
    check_simplification(p, d, rel, context + " " + text.str());
    if (round % 10 == 0) check_constraint_check(p, d, rel, context + " " + text.str());
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(explained, 300);
}

TEST(arithmetic_propagators, linear_combination_64_bit_against_brute_force) {
  run_linear_rounds(202, false);
}

TEST(arithmetic_propagators, linear_combination_128_bit_against_brute_force) {
  run_linear_rounds(303, true);
}

TEST(arithmetic_propagators, sum_mod_against_brute_force) {
  const unsigned seed = 404;
  std::mt19937 gen(seed);
  for (int round = 0; round < 2000; ++round) {
    const int mod = 1 + int(gen() % 5);
    const int result = int(gen() % unsigned(mod));
    const unsigned n = gen() % 5;
    domain_list d(n);
    for (unsigned i = 0; i < n; ++i) d[i] = random_domain(gen, 5, 3);
    const std::string context = "seed " + std::to_string(seed) + " round " + std::to_string(round) +
                                " mod " + std::to_string(mod) + " result " + std::to_string(result);
    const sum_mod_propagator p(mod, result);
    const relation rel = sum_mod_relation(mod, result);
    // With at most one parameter left open below mod, the propagator decides it.
    unsigned open = 0;
    bool broken = false;
    for (const iset& s : d) {
      const iset below = s & iset::clipped_range(0, mod - 1);
      broken |= below.empty();
      open += below.size() > 1;
    }
    const outcome out = check_propagation(
        p, d, rel, !broken && open <= 1 ? DOMAIN_CONSISTENT : SOUND_ONLY, context);
    if (!broken && open > 1) {
      EXPECT_EQ(out.result, propagation_types::CONSISTENT) << context;
      for (unsigned i = 0; i < n; ++i)
        EXPECT_EQ(out.after[i], d[i] & iset::clipped_range(0, mod - 1))
            << context << " " << show(d);
    }
    // conflicts sees a parameter without a value below mod, or decides the last open one.
    const bool expected_conflict = broken || (open <= 1 && !solvable(d, rel));
    EXPECT_EQ(p.conflicts(make_view(d)), expected_conflict) << context << " " << show(d);
    check_simplification(p, d, rel, context);
    if (round % 10 == 0) check_constraint_check(p, d, rel, context);
    if (::testing::Test::HasFailure()) return;
  }
}

TEST(arithmetic_propagators, sum_wrap_is_domain_consistent) {
  const unsigned seed = 505;
  std::mt19937 gen(seed);
  int explained = 0;
  for (int round = 0; round < 1500; ++round) {
    const unsigned n = 1 + gen() % 4;
    domain_list d(n);
    for (unsigned i = 0; i < n; ++i) d[i] = random_domain(gen, 31, 8);
    const std::string context = "seed " + std::to_string(seed) + " round " + std::to_string(round);
    const sum_wrap_propagator p;
    const outcome out = check_propagation(p, d, sum_wrap_relation(), DOMAIN_CONSISTENT, context);
    EXPECT_EQ(p.conflicts(make_view(d)), !solvable(d, sum_wrap_relation()))
        << context << " " << show(d);
    if (round % 5 == 0) explained += check_explanations(p, d, out, sum_wrap_relation(), context);
    if (round % 10 == 0) check_constraint_check(p, d, sum_wrap_relation(), context);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(explained, 50);
}

// The algorithm spelled out on values: bounds, then set sums modulo 32, until
// nothing changes.
void naive_truncate(iset& r, iset& x, iset& y) {
  const auto any_empty = [&] { return r.empty() || x.empty() || y.empty(); };
  const auto cut = [](iset& s, long long lo, long long hi) {
    iset keep;
    for (int v = 0; v < 32; ++v)
      if (v >= lo && v <= hi && s.contains(v)) keep.insert(v);
    s = keep;
  };
  const auto sums = [](iset a, iset b, int sign, iset out) {
    iset keep;
    for (int u = 0; u < 32; ++u)
      for (int w = 0; w < 32; ++w)
        if (a.contains(u) && b.contains(w) && out.contains((u + sign * w + 32) % 32))
          keep.insert((u + sign * w + 32) % 32);
    return keep;
  };
  for (;;) {
    if (any_empty()) return;
    const unsigned before = r.size() + x.size() + y.size();
    const long long lo = std::max(x.min() + y.min(), r.min());
    const long long hi = std::min(r.max(), x.max() + y.max());
    cut(r, lo, hi);
    if (r.empty()) return;
    cut(y, r.min() - x.max(), r.max() - x.min());
    if (y.empty()) return;
    cut(x, r.min() - y.max(), r.max() - y.min());
    if (x.empty()) return;
    r = sums(x, y, 1, r);
    y = sums(r, x, -1, y);
    x = sums(r, y, -1, x);
    if (r.size() + x.size() + y.size() == before) return;
  }
}

TEST(arithmetic_propagators, sum_truncate_against_brute_force) {
  const unsigned seed = 606;
  std::mt19937 gen(seed);
  for (int round = 0; round < 3000; ++round) {
    // Half the rounds keep x and y below 16: no sum wraps, and the set sums are exact.
    const bool low = round % 2 == 0;
    domain_list d(3);
    d[0] = random_domain(gen, 31, 10);
    d[1] = random_domain(gen, low ? 10 : 28, low ? 5 : 12);
    d[2] = random_domain(gen, low ? 10 : 28, low ? 5 : 12);
    const std::string context = "seed " + std::to_string(seed) + " round " + std::to_string(round);
    const sum_truncate_propagator p;
    const outcome out = check_propagation(p, d, sum_truncate_relation(),
                                          low ? DOMAIN_CONSISTENT : SOUND_ONLY, context);
    iset r = d[0], x = d[1], y = d[2];
    naive_truncate(r, x, y);
    const bool failed = r.empty() || x.empty() || y.empty();
    EXPECT_EQ(out.result == propagation_types::UNSAT, failed) << context << " " << show(d);
    if (!failed) {
      EXPECT_EQ(out.after, (domain_list{r, x, y})) << context << " " << show(d);
    }
    EXPECT_EQ(p.conflicts(make_view(d)), failed) << context << " " << show(d);
    if (round % 5 == 0) check_explanations(p, d, out, sum_truncate_relation(), context);
    if (round % 10 == 0) check_constraint_check(p, d, sum_truncate_relation(), context);
    if (::testing::Test::HasFailure()) return;
  }
}

TEST(arithmetic_propagators, neg_is_domain_consistent) {
  const unsigned seed = 707;
  std::mt19937 gen(seed);
  for (int round = 0; round < 2000; ++round) {
    domain_list d{random_domain(gen, 31, 20), random_domain(gen, 31, 20)};
    const std::string context = "seed " + std::to_string(seed) + " round " + std::to_string(round);
    const neg_propagator p;
    const outcome out = check_propagation(p, d, neg_relation(), DOMAIN_CONSISTENT, context);
    EXPECT_EQ(p.conflicts(make_view(d)), out.result == propagation_types::UNSAT) << context;
    if (round % 10 == 0) {
      check_explanations(p, d, out, neg_relation(), context);
      check_constraint_check(p, d, neg_relation(), context);
    }
    if (::testing::Test::HasFailure()) return;
  }
}

//==== fixed cases ===========================================================

// Records the watches asked for and the queue requests; the originating queue is
// set by the test.
class recording_info : public constraint_explicit_info {
 public:
  recording_info(const domain_list& d, queue_type queue)
      : constraint_explicit_info(unsigned(d.size())), m_queue(queue) {
    domains() = d;
  }
  queue_type originating_queue() const override { return m_queue; }
  void put_in_queue(queue_type queue) override { queued.push_back(queue); }
  watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) override {
    watches.emplace_back(param, type);
    return constraint_explicit_info::allocate_watch(param, type);
  }

  std::vector<queue_type> queued;
  std::vector<std::pair<unsigned, watch_types::watch_type>> watches;

 private:
  queue_type m_queue;
};

TEST(arithmetic_propagators, long_sums_wait_for_the_constraint_queue) {
  for (int which = 0; which < 2; ++which) {
    std::unique_ptr<constraint_propagator> p;
    if (which == 0)
      p = std::make_unique<greater_equal_sum_propagator>();
    else
      p = std::make_unique<less_equal_sum_propagator>();
    // r >= sum with r in 0..1 cuts every x to 0..1; r <= sum with r in 9..20 cuts r.
    domain_list d10(10, iset(which == 0 ? "0:3" : "0:1")), d11(11, d10[1]);
    d10[0] = d11[0] = iset(which == 0 ? "0:1" : "9:20");
    recording_info run10(d10, constraint_runtime_info::VARIABLE_QUEUE);
    EXPECT_NE(p->propagate(run10), propagation_types::POSTPONE);
    EXPECT_TRUE(run10.queued.empty());
    recording_info wait11(d11, constraint_runtime_info::VARIABLE_QUEUE);
    EXPECT_EQ(p->propagate(wait11), propagation_types::POSTPONE);
    ASSERT_EQ(wait11.queued.size(), 1u);
    EXPECT_EQ(wait11.queued[0], constraint_runtime_info::CONSTRAINT_QUEUE);
    EXPECT_EQ(wait11.domains(), d11);
    recording_info run11(d11, constraint_runtime_info::CONSTRAINT_QUEUE);
    EXPECT_NE(p->propagate(run11), propagation_types::POSTPONE);
    EXPECT_TRUE(run11.queued.empty());
    EXPECT_NE(run11.domains(), d11);
  }
}

TEST(arithmetic_propagators, watches_follow_the_direction_of_each_term) {
  const domain_list d{iset("0:9"), iset("0:9"), iset("0:9")};
  recording_info ge_view(d, constraint_runtime_info::CONSTRAINT_QUEUE);
  greater_equal_sum_propagator ge;
  EXPECT_EQ(ge.init(ge_view), propagation_types::VALID);
  EXPECT_EQ(ge_view.watches, (std::vector<std::pair<unsigned, watch_types::watch_type>>{
                                 {0, watch_types::UPPER_BOUND_WATCH},
                                 {1, watch_types::LOWER_BOUND_WATCH},
                                 {2, watch_types::LOWER_BOUND_WATCH}}));
  recording_info le_view(d, constraint_runtime_info::CONSTRAINT_QUEUE);
  less_equal_sum_propagator le;
  EXPECT_EQ(le.init(le_view), propagation_types::VALID);
  EXPECT_EQ(le_view.watches, (std::vector<std::pair<unsigned, watch_types::watch_type>>{
                                 {0, watch_types::LOWER_BOUND_WATCH},
                                 {1, watch_types::UPPER_BOUND_WATCH},
                                 {2, watch_types::UPPER_BOUND_WATCH}}));
  // A zero coefficient gets no watch and adds nothing to the slack.
  recording_info lin_view(d, constraint_runtime_info::CONSTRAINT_QUEUE);
  linear_combination_ge_propagator lin(9, {2, 0, -1});
  EXPECT_EQ(lin.init(lin_view), propagation_types::VALID);
  EXPECT_EQ(lin_view.watches,
            (std::vector<std::pair<unsigned, watch_types::watch_type>>{
                {0, watch_types::UPPER_BOUND_WATCH}, {2, watch_types::LOWER_BOUND_WATCH}}));
  EXPECT_EQ(lin.propagate(lin_view), propagation_types::CONSISTENT);
  EXPECT_EQ(lin_view.domains(), (domain_list{iset("5:9"), iset("0:9"), iset("0:9")}));
  std::vector<unsigned> kept;
  std::unique_ptr<constraint_propagator> compact = lin.intersect_with(make_view(d), kept);
  ASSERT_TRUE(compact);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 2}));
  std::ostringstream text;
  compact->print(text, nullptr);
  EXPECT_EQ(text.str(), "(2*P0-P1>=9)");
}

TEST(arithmetic_propagators, the_64_bit_path_is_chosen_by_the_coefficient_bound) {
  const domain_list d{iset("0:3"), iset("0:3")};
  constraint_explicit_info view = make_view(d);
  linear_combination_ge_propagator at_bound(0, {INT_MAX / 2, INT_MIN / 2});
  EXPECT_FALSE(at_bound.small_coefficients());  // until init
  EXPECT_EQ(at_bound.init(view), propagation_types::VALID);
  EXPECT_TRUE(at_bound.small_coefficients());
  linear_combination_ge_propagator above(0, {INT_MAX / 2 + 1, 1});
  EXPECT_EQ(above.init(view), propagation_types::VALID);
  EXPECT_FALSE(above.small_coefficients());
  linear_combination_ge_propagator below(0, {1, INT_MIN / 2 - 1});
  EXPECT_EQ(below.init(view), propagation_types::VALID);
  EXPECT_FALSE(below.small_coefficients());
  // INT_MAX * x0 - INT_MAX * x1 - INT_MAX * x2 >= INT_MAX: x0 >= 1 + x1 + x2.
  linear_combination_ge_propagator wide(INT_MAX, {INT_MAX, -INT_MAX, -INT_MAX});
  constraint_explicit_info three = make_view({iset("0:3"), iset("0:3"), iset("1:3")});
  EXPECT_EQ(wide.init(three), propagation_types::VALID);
  EXPECT_EQ(wide.propagate(three), propagation_types::CONSISTENT);
  EXPECT_EQ(three.domains(), (domain_list{iset("2:3"), iset("0:1"), iset("1:2")}));
}

TEST(arithmetic_propagators, simplification_on_fixed_parameters) {
  std::vector<int> coefficients;
  long long constant = 3;
  std::vector<unsigned> kept;
  // 2x + 4y >= 3 is x + 2y >= 2: the constant rounds up.
  const linear_combination_ge_propagator even(3, {2, 4});
  even.normalize_coefficients(2, coefficients, constant, kept);
  EXPECT_EQ(coefficients, (std::vector<int>{1, 2}));
  EXPECT_EQ(constant, 2);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 1}));
  // -2x - 4y >= -3 is -x - 2y >= -1.
  const linear_combination_ge_propagator negative(-3, {-2, -4});
  coefficients.clear();
  kept.clear();
  constant = -3;
  negative.normalize_coefficients(2, coefficients, constant, kept);
  EXPECT_EQ(constant, -1);

  // -x >= 0 is the clause x in {0}.
  const linear_combination_ge_propagator minus_x(0, {-1});
  kept.clear();
  std::unique_ptr<constraint_propagator> unary = minus_x.new_unary_sum({}, 0, kept);
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
  EXPECT_EQ(dynamic_cast<clause_propagator&>(*unary).literals(), (domain_list{iset("0")}));

  // All parameters fixed: the constraint is true (clause over parameter 0 holding
  // everything) or false (the empty clause, which init refuses).
  const linear_combination_ge_propagator sum(4, {1, 1});
  std::unique_ptr<constraint_propagator> holds =
      sum.intersect_with(make_view({iset("2"), iset("3")}), kept);
  ASSERT_TRUE(holds);
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
  EXPECT_TRUE(holds->constraint_check(make_view({iset("2")})));
  std::unique_ptr<constraint_propagator> fails =
      sum.intersect_with(make_view({iset("1"), iset("2")}), kept);
  ASSERT_TRUE(fails);
  EXPECT_TRUE(kept.empty());
  constraint_explicit_info none(0);
  EXPECT_EQ(fails->init(none), propagation_types::UNSAT);

  // Nothing fixed, gcd 1: nothing to simplify.
  EXPECT_FALSE(sum.intersect_with(make_view({iset("0:5"), iset("0:5")}), kept));
  // r >= x + y with y = 3: the difference r - x >= 3.
  const greater_equal_sum_propagator ge;
  std::unique_ptr<constraint_propagator> diff =
      ge.intersect_with(make_view({iset("0:9"), iset("0:9"), iset("3")}), kept);
  ASSERT_TRUE(diff);
  std::ostringstream text;
  diff->print(text, nullptr);
  EXPECT_EQ(text.str(), "diff_ge_3");
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 1}));
  // r <= x + y with x = 2: -r + y >= -2 turns round into y - r >= -2.
  const less_equal_sum_propagator le;
  diff = le.intersect_with(make_view({iset("0:9"), iset("2"), iset("0:9")}), kept);
  ASSERT_TRUE(diff);
  text.str("");
  diff->print(text, nullptr);
  EXPECT_EQ(text.str(), "diff_ge_minus_2");
  EXPECT_EQ(kept, (std::vector<unsigned>{2, 0}));
  // 2x - 2y >= 3 normalises to x - y >= 2.
  diff = linear_combination_ge_propagator(3, {2, -2})
             .intersect_with(make_view({iset("0:9"), iset("0:9")}), kept);
  ASSERT_TRUE(diff);
  EXPECT_EQ(dynamic_cast<difference_ge_propagator&>(*diff).constant(), 2);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 1}));
  EXPECT_FALSE(ge.intersect_with(make_view({iset("0:9"), iset("0:9")}), kept));
}

TEST(arithmetic_propagators, sum_mod_fixes_the_last_open_parameter) {
  const sum_mod_propagator parity(2, 1);
  constraint_explicit_info view = make_view({iset("1"), iset("0:5"), iset("0")});
  sum_mod_propagator p = parity;
  EXPECT_EQ(p.propagate(view), propagation_types::VALID);
  EXPECT_EQ(view.domains(), (domain_list{iset("1"), iset("0"), iset("0")}));
  // The single values move into the result; the result stays within 0..mod-1.
  std::vector<unsigned> kept;
  std::unique_ptr<constraint_propagator> rest = sum_mod_propagator(3, 0).intersect_with(
      make_view({iset("2"), iset("0:2"), iset("0:2")}), kept);
  ASSERT_TRUE(rest);
  EXPECT_EQ(kept, (std::vector<unsigned>{1, 2}));
  EXPECT_EQ(dynamic_cast<sum_mod_propagator&>(*rest).result(), 1);
  EXPECT_THROW(sum_mod_propagator(0, 0), std::out_of_range);
  std::string message;
  try {
    sum_mod_propagator(-2, 0);
  } catch (const std::out_of_range& e) {
    message = e.what();
  }
  EXPECT_EQ(message, "sum_mod_propagator(mod, result): mod should be positive");
}

TEST(arithmetic_propagators, sum_wrap_skips_untouched_parameters) {
  class untouched_info : public constraint_explicit_info {
   public:
    using constraint_explicit_info::constraint_explicit_info;
    bool reduced_between_activations(unsigned int) const override { return false; }
  };
  untouched_info view(3);
  view.domains() = {iset("5"), iset("1"), iset("1")};  // 1 + 1 != 5, but nothing changed
  sum_wrap_propagator p;
  EXPECT_EQ(p.propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(view.domains(), (domain_list{iset("5"), iset("1"), iset("1")}));
}

TEST(arithmetic_propagators, neg_of_zero_and_one) {
  neg_propagator p;
  constraint_explicit_info zero = make_view({iset::full(), iset("0")});
  EXPECT_EQ(p.propagate(zero), propagation_types::CONSISTENT);
  EXPECT_EQ(zero.domain(0), iset("0"));
  constraint_explicit_info one = make_view({iset::full(), iset("1")});
  EXPECT_EQ(p.propagate(one), propagation_types::CONSISTENT);
  EXPECT_EQ(one.domain(0), iset("31"));
}

TEST(arithmetic_propagators, wrapped_and_truncated_intersections) {
  typedef arithmetic_propagation_types apt;
  iset s = iset::full();
  apt::intersect_wrapped(s, 30, 33);  // 30, 31, 0, 1
  EXPECT_EQ(s, iset("0,1,30,31"));
  s = iset::full();
  apt::intersect_wrapped(s, 40, 42);  // 8..10
  EXPECT_EQ(s, iset("8:10"));
  s = iset::full();
  apt::intersect_wrapped(s, -2, 1);
  EXPECT_EQ(s, iset("0,1,30,31"));
  s = iset("3,7");
  apt::intersect_wrapped(s, 5, 36);  // hi - lo = 31: every value, nothing to cut
  EXPECT_EQ(s, iset("3,7"));
  apt::intersect_wrapped(s, 8, 38);  // 31 values: 8..31 and 0..6
  EXPECT_EQ(s, iset("3"));
  s = iset("0:31");
  apt::intersect_truncated(s, -5, 3);
  EXPECT_EQ(s, iset("0:3"));
  apt::intersect_truncated(s, 40, 50);  // empty range: left alone
  EXPECT_EQ(s, iset("0:3"));
  EXPECT_EQ(apt::wrap(-33), -1);
  EXPECT_EQ(apt::wrap(65), 1);
  EXPECT_EQ(apt::saturate(-4), 0);
  EXPECT_EQ(apt::saturate(40), 31);
}

TEST(arithmetic_propagators, print_texts) {
  const auto text = [](const constraint_propagator& p, const constraint_runtime_info* info) {
    std::ostringstream os;
    p.print(os, info);
    return os.str();
  };
  constraint_explicit_info one(1), two(2), three(3);
  EXPECT_EQ(text(greater_equal_sum_propagator(), nullptr), "ge_sum");
  EXPECT_EQ(text(greater_equal_sum_propagator(), &three), "constraint(P0>= P1 + P2)");
  EXPECT_EQ(text(greater_equal_sum_propagator(), &one), "constraint(P0>= 0)");
  EXPECT_EQ(text(less_equal_sum_propagator(), nullptr), "le_sum");
  EXPECT_EQ(text(less_equal_sum_propagator(), &three), "constraint(P0<= P1 + P2)");
  EXPECT_EQ(text(sum_wrap_propagator(), nullptr), "sum_wrap");
  EXPECT_EQ(text(sum_wrap_propagator(), &three), "constraint(P0== P1 + P2)");
  EXPECT_EQ(text(sum_truncate_propagator(), nullptr), "sum_truncate");
  EXPECT_EQ(text(sum_truncate_propagator(), &three), "constraint(P1+<trunc> P2==P0)");
  EXPECT_EQ(text(neg_propagator(), nullptr), "negate");
  EXPECT_EQ(text(neg_propagator(), &two), "constraint(P0== -P1)");
  EXPECT_EQ(text(linear_combination_ge_propagator(-4, {-1, 2, 1, -3}), nullptr),
            "(-P0+2*P1+P2-3*P3>=-4)");
  EXPECT_EQ(text(linear_combination_ge_propagator(7, {3, -1, 0}), &three),
            "constraint(3*P0-P1+0*P2>=7)");
  EXPECT_EQ(text(sum_mod_propagator(2, 1), nullptr), "((xor vars) 2 == 1)");
  EXPECT_EQ(text(sum_mod_propagator(3, 2), nullptr), "((sum vars) mod 3 == 2)");
  EXPECT_EQ(text(sum_mod_propagator(2, 0), &two),
            "constraint((xor(P0,P1)  == 0) && (P0,P1 in [0..1]))");
  EXPECT_EQ(text(sum_mod_propagator(3, 2), &two),
            "constraint((P0+P1) mod 3 == 2) && (P0,P1 in [0..2]))");
}

TEST(arithmetic_propagators, explanation_of_a_bound) {
  // 2x - y + z >= 10 on x in 0..4, y in 2..5, z in 0..3: slack 8 + 3 - 2 - 10 < 0
  // is false; x >= (10 + 2 - 3) / 2 rounded up = 5: UNSAT.
  const linear_combination_ge_propagator p(10, {2, -1, 1});
  const constraint_explicit_info view = make_view({iset("0:4"), iset("2:5"), iset("0:3")});
  constraint_propagator::literal_vector explanation;
  p.explain_propagation(0, iset::full(), iset(), view, explanation);
  EXPECT_EQ(explanation, (domain_list{iset("5:31"), iset("0,1"), iset("4:31")}));
  // A parameter index beyond the arity makes parameter 0 the pivot.
  p.explain_propagation(7, iset::full(), iset(), view, explanation);
  EXPECT_EQ(explanation, (domain_list{iset("5:31"), iset("0,1"), iset("4:31")}));
  // Pivot y: -y >= 10 - 8 - 3 = -1, so y <= 1.
  p.explain_propagation(1, iset::full(), iset(), view, explanation);
  EXPECT_EQ(explanation, (domain_list{iset("5:31"), iset("0,1"), iset("4:31")}));
}

//==== combination ===========================================================

namespace bf = brute_force;

std::string printed(const constraint_propagator& p) {
  std::ostringstream os;
  p.print(os, nullptr);
  return os.str();
}

// Two sums, or a sum and a difference on the right, sharing one or two
// variables: Fourier-Motzkin elimination of the pivot.
TEST(arithmetic_propagators, linear_combinations_are_implied) {
  const unsigned seed = 808;
  std::mt19937 gen(seed);
  int built = 0, refused = 0, cancelled = 0;
  for (int round = 0; round < 700; ++round) {
    const unsigned nl = 2 + gen() % 2;
    std::vector<int> lc(nl);
    for (int& c : lc) c = int(gen() % 7) - 3;
    const linear_combination_ge_propagator left(int(gen() % 15) - 6, lc);
    std::unique_ptr<constraint_propagator> right;
    unsigned nr = 2;
    if (gen() % 3 == 0) {
      right = std::make_unique<difference_ge_propagator>(int(gen() % 13) - 6);
    } else {
      nr = 2 + gen() % 2;
      std::vector<int> rc(nr);
      for (int& c : rc) c = int(gen() % 7) - 3;
      right = std::make_unique<linear_combination_ge_propagator>(int(gen() % 15) - 6, rc);
    }
    std::vector<unsigned> map(nr);
    for (unsigned j = 0; j < nr; ++j) map[j] = nl + j;
    const unsigned pivot = gen() % nr;
    map[pivot] = gen() % nl;
    if (gen() % 3 == 0) {  // a second shared variable
      const unsigned j = (pivot + 1) % nr, i = (map[pivot] + 1) % nl;
      map[j] = i;
    }
    bf::domain_list ld, rd;
    for (unsigned i = 0; i < nl; ++i) ld.push_back(bf::random_domain(gen, 12, 8));
    for (unsigned j = 0; j < nr; ++j) rd.push_back(bf::random_domain(gen, 12, 8));
    const std::string context = "seed " + std::to_string(seed) + " round " +
                                std::to_string(round) + " " + printed(left) + " with " +
                                printed(*right) + " map " +
                                bf::show(bf::assignment(map.begin(), map.end())) + " pivot " +
                                std::to_string(pivot);
    ASSERT_TRUE(left.may_combine(*right));
    const bf::combination c = bf::run_combine(left, ld, *right, rd, map, pivot);
    // The pivot's coefficients, the difference's being 1 and -1.
    const long long a = lc[map[pivot]];
    long long b = pivot == 0 ? 1 : -1;
    if (const auto* sum = dynamic_cast<const linear_combination_ge_propagator*>(right.get()))
      b = sum->coefficients()[pivot];
    if ((a >= 0) == (b >= 0)) {
      EXPECT_FALSE(c.result) << "same sign: " << context;
      ++refused;
      continue;
    }
    if (!c.result) {
      ++cancelled;  // 0 >= constant <= 0 says nothing
      continue;
    }
    ++built;
    bf::check_combination(left, nl, *right, nr, map, pivot, c, context);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(built, 200);
  EXPECT_GT(refused, 100);
}

TEST(arithmetic_propagators, linear_combination_edges) {
  const bf::domain_list two{iset("0:9"), iset("0:9")}, three(3, iset("0:9"));
  // x - y >= 1 and y - x >= 0 add up to 0 >= 1: the empty clause.
  const linear_combination_ge_propagator x_above_y(1, {1, -1});
  bf::combination c =
      bf::run_combine(x_above_y, two, difference_ge_propagator(0), two, {1, 0}, 1);
  ASSERT_TRUE(c.result);
  EXPECT_TRUE(c.out.empty());
  constraint_explicit_info nothing(0);
  EXPECT_EQ(c.result->init(nothing), propagation_types::UNSAT);
  // x - y >= -1 and y - x >= 0: 0 >= -1 says nothing.
  EXPECT_FALSE(bf::run_combine(linear_combination_ge_propagator(-1, {1, -1}), two,
                               difference_ge_propagator(0), two, {1, 0}, 1)
                   .result);
  // The multipliers come from the gcd: 3 (2x + y >= 3) + 2 (-3x + z >= 0).
  c = bf::run_combine(linear_combination_ge_propagator(3, {2, 1}), two,
                      linear_combination_ge_propagator(0, {-3, 1}), two, {0, 3}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(printed(*c.result), "(3*P0+2*P1>=9)");
  EXPECT_EQ(c.out, (std::vector<unsigned>{1, 3}));
  // Same sign on the pivot: nothing.
  EXPECT_FALSE(bf::run_combine(linear_combination_ge_propagator(3, {2, 1}), two,
                               linear_combination_ge_propagator(0, {3, 1}), two, {0, 3}, 0)
                   .result);
  // Coefficients or constants beyond 32 bits.
  std::vector<long long> coefs{0, 1LL << 31};
  disjunction_specification result;
  EXPECT_FALSE(linear_combination_ge_propagator::set_constraint_from_positional_coefficients(
      coefs, 0, result));
  coefs = {0, 0};
  EXPECT_FALSE(linear_combination_ge_propagator::set_constraint_from_positional_coefficients(
      coefs, 1LL << 31, result));
  EXPECT_FALSE(bf::run_combine(linear_combination_ge_propagator(INT_MAX, {INT_MAX, 1}), two,
                               linear_combination_ge_propagator(INT_MAX, {-INT_MAX, 1}), two,
                               {0, 2}, 0)
                   .result);
  // The coefficient of a variable in either kind of base constraint.
  const constraint_explicit_info view = make_view(three);
  const difference_ge_propagator diff(2);
  const disjunction_specification diff_spec(view, diff, {4, 7});
  EXPECT_EQ(linear_combination_ge_propagator::find_var_coefficient(4, diff_spec), 1);
  EXPECT_EQ(linear_combination_ge_propagator::find_var_coefficient(7, diff_spec), -1);
  EXPECT_EQ(linear_combination_ge_propagator::find_var_coefficient(5, diff_spec), 0);
  long long constant = LLONG_MAX;
  std::vector<long long> positional;
  EXPECT_FALSE(linear_combination_ge_propagator::accumulate_coefficients(positional, constant,
                                                                         diff_spec, 1));
  EXPECT_EQ(constant, LLONG_MAX);
  positional.clear();
  constant = 1;
  EXPECT_TRUE(linear_combination_ge_propagator::accumulate_coefficients(positional, constant,
                                                                        diff_spec, 3));
  EXPECT_EQ(constant, 7);
  EXPECT_EQ(positional, (std::vector<long long>{0, 0, 0, 0, 3, 0, 0, -3}));
  // A difference doesn't take a sum on the right, a sum takes a difference.
  EXPECT_FALSE(difference_ge_propagator(0).may_combine(x_above_y));
  EXPECT_TRUE(x_above_y.may_combine(difference_ge_propagator(0)));
  EXPECT_FALSE(x_above_y.may_combine(clause_propagator{iset("1")}));
  EXPECT_FALSE(x_above_y.may_combine(equal_propagator()));
}

TEST(arithmetic_propagators, linear_disjunction_and_new_propagator) {
  const constraint_explicit_info view = make_view({iset("0:9"), iset("0:9"), iset("0:9")});
  const linear_combination_ge_propagator left(4, {2, -1, 1}), right(1, {1, 2, -1});
  // The same terms in another order: the smaller constant.
  const disjunction_specification l(view, left, {});
  const disjunction_specification r(view, right, {2, 0, 1});
  disjunction_specification result;
  ASSERT_TRUE(left.disjoin_constraint(l, r, result));
  EXPECT_EQ(printed(*result.constraint()), "(2*P0-P1+P2>=1)");
  EXPECT_EQ(result.constraint_var(2), 2u);
  // Other terms: nothing.
  const disjunction_specification other(view, right, {0, 1, 2});
  result.clear();
  EXPECT_FALSE(left.disjoin_constraint(l, other, result));
  // With literals the sum is joined to a clause.
  disjunction_specification form;
  form.add_literal(6, iset("3"));
  form.own_constraint(std::make_unique<linear_combination_ge_propagator>(left));
  form.add_constraint_param(2);
  form.add_constraint_param(0);
  form.add_constraint_param(5);
  std::vector<unsigned> params;
  std::unique_ptr<constraint_propagator> p = left.new_propagator(form, params);
  ASSERT_TRUE(p);
  EXPECT_EQ(params, (std::vector<unsigned>{2, 0, 5, 6}));
  EXPECT_EQ(p->count_params(), 4u);
  EXPECT_EQ(printed(*p), "((2*P0-P1+P2>=4) || [P0=3])\n");
  // Sum or v6 = 3, on brute force.
  const bf::relation rel = [](const bf::assignment& v) {
    return 2 * v[0] - v[1] + v[2] >= 4 || v[3] == 3;
  };
  const bf::domain_list d{iset("0:2"), iset("3:9"), iset("0:1"), iset("2:4")};
  const bf::outcome out = bf::check_propagation(*p, d, rel, bf::SOUND_ONLY, "linear or clause", true);
  EXPECT_EQ(out.after[3], iset("3"));  // the sum can't hold: the clause is unit
  bf::check_explanations(*p, d, out, rel, "linear or clause");
  bf::check_constraint_check(*p, d, rel, "linear or clause");
  // Without literals: the base constraint itself.
  disjunction_specification bare;
  bare.own_constraint(std::make_unique<linear_combination_ge_propagator>(left));
  for (unsigned v : {1u, 2u, 3u}) bare.add_constraint_param(v);
  params.clear();
  p = left.new_propagator(bare, params);
  EXPECT_TRUE(dynamic_cast<linear_combination_ge_propagator*>(p.get()));
  EXPECT_EQ(params, (std::vector<unsigned>{1, 2, 3}));
}

// Parities with shared variables: the sum of the two, shared variables cancel.
TEST(arithmetic_propagators, parity_combinations_are_implied) {
  const unsigned seed = 909;
  std::mt19937 gen(seed);
  int built = 0;
  for (int round = 0; round < 800; ++round) {
    const unsigned nl = 1 + gen() % 3, nr = 1 + gen() % 3;
    const sum_mod_propagator left(2, int(gen() % 2)), right(2, int(gen() % 2));
    std::vector<unsigned> map(nr);
    for (unsigned j = 0; j < nr; ++j) map[j] = nl + j;
    const unsigned pivot = gen() % nr;
    map[pivot] = gen() % nl;
    for (unsigned j = 0; j < nr; ++j) {
      const unsigned i = gen() % nl;
      if (j != pivot && gen() % 2 && std::find(map.begin(), map.end(), i) == map.end()) map[j] = i;
    }
    const bf::domain_list ld(nl, iset("0:1")), rd(nr, iset("0:1"));
    const std::string context = "seed " + std::to_string(seed) + " round " +
                                std::to_string(round) + " map " +
                                bf::show(bf::assignment(map.begin(), map.end()));
    ASSERT_TRUE(left.may_combine(right));
    const bf::combination c = bf::run_combine(left, ld, right, rd, map, pivot);
    ASSERT_TRUE(c.result) << context;
    ++built;
    bf::check_combination(left, nl, right, nr, map, pivot, c, context, false,
                          iset::clipped_range(0, 2));
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_EQ(built, 800);
}

TEST(arithmetic_propagators, modular_combination_edges) {
  const bf::domain_list two(2, iset("0:2")), three(3, iset("0:2"));
  // x + y = 1 and x + y = 0 modulo 2: nothing left but 0 = 1.
  bf::combination c =
      bf::run_combine(sum_mod_propagator(2, 1), two, sum_mod_propagator(2, 0), two, {0, 1}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_TRUE(c.out.empty());
  EXPECT_TRUE(dynamic_cast<clause_propagator*>(c.result.get()));
  // x + x is 0 only modulo 2.
  EXPECT_FALSE(
      bf::run_combine(sum_mod_propagator(3, 1), two, sum_mod_propagator(3, 0), two, {0, 2}, 0)
          .result);
  EXPECT_FALSE(sum_mod_propagator(3, 1).may_combine(sum_mod_propagator(2, 1)));
  EXPECT_FALSE(
      bf::run_combine(sum_mod_propagator(3, 1), two, sum_mod_propagator(2, 0), two, {0, 2}, 0)
          .result);
  // An equality: the partner replaces the variable; both in the sum cancel (mod 2).
  const equal_propagator eq;
  c = bf::run_combine(sum_mod_propagator(2, 1), three, eq, two, {1, 4}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{0, 4, 2}));
  bf::check_combination(sum_mod_propagator(2, 1), 3, eq, 2, {1, 4}, 0, c, "parity and equality");
  c = bf::run_combine(sum_mod_propagator(2, 1), three, eq, two, {3, 2}, 1);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{0, 1, 3}));
  c = bf::run_combine(sum_mod_propagator(2, 1), three, eq, two, {0, 2}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{1}));
  bf::check_combination(sum_mod_propagator(2, 1), 3, eq, 2, {0, 2}, 0, c, "both in the parity");
  EXPECT_FALSE(bf::run_combine(sum_mod_propagator(3, 1), three, eq, two, {0, 2}, 0).result);

  // 2x + 3y >= 7 with x + z = 2 modulo 3: -2z + 3y >= 3.
  const linear_combination_ge_propagator sum(7, {2, 3});
  const sum_mod_propagator x_plus_z(3, 2);
  EXPECT_TRUE(sum.may_combine(x_plus_z));
  EXPECT_TRUE(x_plus_z.may_combine(sum));
  EXPECT_FALSE(sum_mod_propagator(4, 2).may_combine(sum));
  c = bf::run_combine(sum, two, x_plus_z, two, {0, 2}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(printed(*c.result), "(-2*P0+3*P1>=3)");
  EXPECT_EQ(c.out, (std::vector<unsigned>{2, 1}));
  bf::check_combination(sum, 2, x_plus_z, 2, {0, 2}, 0, c, "substitution");
  // Both in the sum: y's coefficient less x's, and y's position goes.
  c = bf::run_combine(sum, two, x_plus_z, two, {0, 1}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(printed(*c.result), "(P0>=3)");
  EXPECT_EQ(c.out, (std::vector<unsigned>{1}));
  // From the modular side, through combine_other_first.
  c = bf::run_combine(x_plus_z, two, sum, two, {0, 2}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{1, 2}));
  bf::check_combination(x_plus_z, 2, sum, 2, {0, 2}, 0, c, "substitution, modular left");
  // A carry is possible when mod isn't result + 1.
  EXPECT_FALSE(bf::run_combine(sum, two, sum_mod_propagator(4, 2), two, {0, 2}, 0).result);
  EXPECT_FALSE(bf::run_combine(sum, two, sum_mod_propagator(3, 2), three, {0, 2, 3}, 0).result);
}

}  // namespace
}  // namespace zelk
