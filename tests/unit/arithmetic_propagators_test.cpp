// The sum propagators against brute force on many small random instances:
// soundness, the promised pruning, UNSAT, conflicts and constraint_check, the
// explanations, simplification on fixed parameters; then the fixed cases; last,
// the soundness of combination (elimination between sums and differences, sums
// of parities, substitution from a two-parameter modular sum).
#include "impl/arithmetic_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjunction_specification.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

long long tail_sum(const assignment& v) {
  long long s = 0;
  for (std::size_t i = 1; i < v.size(); ++i) s += v[i];
  return s;
}

const relation ge_sum = [](const assignment& v) { return v[0] >= tail_sum(v); };
const relation le_sum = [](const assignment& v) { return v[0] <= tail_sum(v); };
const relation sum_wrap = [](const assignment& v) { return v[0] == tail_sum(v) % 32; };
const relation sum_truncate = [](const assignment& v) { return v[0] == v[1] + v[2]; };
const relation neg = [](const assignment& v) { return v[0] == (32 - v[1]) % 32; };

relation linear_relation(std::vector<int> coefficients, int constant) {
  return [coefficients, constant](const assignment& v) {
    __int128 s = 0;
    for (std::size_t i = 0; i < v.size(); ++i) s += __int128(coefficients[i]) * v[i];
    return s >= constant;
  };
}

relation sum_mod_relation(int mod, int result) {
  return [mod, result](const assignment& v) {
    long long s = 0;
    for (int x : v) {
      if (x >= mod) return false;
      s += x;
    }
    return s % mod == result;
  };
}

// The result of intersect_with stands for the constraint under the domains: on
// every assignment within them, it holds exactly when the original holds.
void check_simplification(const constraint_propagator& p, const domain_list& d, const relation& rel,
                          const std::string& context) {
  std::vector<unsigned> kept;
  std::unique_ptr<constraint_propagator> q = p.intersect_with(make_view(d), kept);
  if (!q) return;
  for (unsigned k : kept) ASSERT_LT(k, d.size()) << context;
  for_each_assignment(d, [&](const assignment& v) {
    domain_list single;
    for (unsigned k : kept) single.push_back(iset::singleton(v[k]));
    EXPECT_EQ(q->constraint_check(make_view(single)), rel(v))
        << context << " on " << show(d) << " at values of " << show(single);
    return true;
  });
}

//==== the random runs =======================================================

TEST(arithmetic_propagators, bound_sums_against_brute_force) {
  int explained = 0;
  repeat(101, 3000, [&](std::mt19937& gen, int round, const std::string& context) {
    domain_list d{random_domain(gen, 31, 12, true)};
    for (unsigned i = 1, n = 1 + gen() % 4; i < n; ++i)
      d.push_back(random_domain(gen, 12, 6, true));
    const checks c{.explain_every = 5, .limit = 6e4};
    check_instance(greater_equal_sum_propagator(), d, ge_sum, round, "ge " + context, c, gen,
                   explained);
    check_instance(less_equal_sum_propagator(), d, le_sum, round, "le " + context, c, gen,
                   explained);
    if (round % 3 == 0) {
      check_simplification(greater_equal_sum_propagator(), d, ge_sum, "ge " + context);
      check_simplification(less_equal_sum_propagator(), d, le_sum, "le " + context);
    }
  });
  EXPECT_GT(explained, 100);
}

// Small coefficients take the 64-bit path, large ones the 128-bit one; both must
// give the same bounds-consistent answer.
void run_linear_rounds(unsigned seed, bool wide) {
  int explained = 0;
  repeat(seed, 4000, [&](std::mt19937& gen, int round, const std::string& where) {
    const unsigned n = (wide ? 2 : 1) + gen() % 3;
    std::vector<int> coefficients(n);
    domain_list d(n);
    long long target = 0;
    for (unsigned i = 0; i < n; ++i) {
      d[i] = random_domain(gen, 10, 5, true);
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
    linear_combination_ge_propagator p(constant, coefficients);
    constraint_explicit_info init_view = make_view(d);
    ASSERT_NE(p.init(init_view), propagation_types::UNSAT);
    const std::string context = where + " " + printed(p);
    ASSERT_EQ(p.small_coefficients(), !wide) << context;
    const relation rel = linear_relation(coefficients, constant);
    check_instance(p, d, rel, round, context, checks{.limit = 6e4}, gen, explained);
    check_simplification(p, d, rel, context);
  });
  EXPECT_GT(explained, 300);
}

TEST(arithmetic_propagators, linear_combination_64_bit_against_brute_force) {
  run_linear_rounds(202, false);
}

TEST(arithmetic_propagators, linear_combination_128_bit_against_brute_force) {
  run_linear_rounds(303, true);
}

TEST(arithmetic_propagators, sum_mod_against_brute_force) {
  int explained = 0;
  repeat(404, 2000, [&](std::mt19937& gen, int round, const std::string& where) {
    const int mod = 1 + int(gen() % 5);
    const int result = int(gen() % unsigned(mod));
    const unsigned n = gen() % 5;
    domain_list d(n);
    for (unsigned i = 0; i < n; ++i) d[i] = random_domain(gen, 5, 3, true);
    const std::string context =
        where + " mod " + std::to_string(mod) + " result " + std::to_string(result);
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
    const checks c{.kind = !broken && open <= 1 ? DOMAIN_CONSISTENT : SOUND_ONLY,
                   .exact_conflicts = false,
                   .explain_every = 0};
    const outcome out = check_instance(p, d, rel, round, context, c, gen, explained);
    if (!broken && open > 1) {
      EXPECT_EQ(out.result, propagation_types::CONSISTENT) << context;
      for (unsigned i = 0; i < n; ++i)
        EXPECT_EQ(out.after[i], d[i] & iset::clipped_range(0, mod - 1)) << context << show(d);
    }
    // conflicts sees a parameter without a value below mod, or decides the last open one.
    const bool expected_conflict = broken || (open <= 1 && !solvable(d, rel));
    EXPECT_EQ(p.conflicts(make_view(d)), expected_conflict) << context << " " << show(d);
    check_simplification(p, d, rel, context);
  });
}

TEST(arithmetic_propagators, sum_wrap_and_neg_are_domain_consistent) {
  int explained = 0;
  repeat(505, 1500, [&](std::mt19937& gen, int round, const std::string& context) {
    domain_list d(1 + gen() % 4);
    for (iset& s : d) s = random_domain(gen, 31, 8, true);
    check_instance(sum_wrap_propagator(), d, sum_wrap, round, context,
                   checks{.explain_every = 5, .limit = 6e4}, gen, explained);
  });
  EXPECT_GT(explained, 50);
  repeat(707, 2000, [&](std::mt19937& gen, int round, const std::string& context) {
    const domain_list d{random_domain(gen, 31, 20, true), random_domain(gen, 31, 20, true)};
    check_instance(neg_propagator(), d, neg, round, context,
                   checks{.explain_every = 10, .limit = 6e4}, gen, explained);
  });
}

// The algorithm spelled out on values: bounds, then set sums modulo 32, until
// nothing changes.
void naive_truncate(iset& r, iset& x, iset& y) {
  while (!r.empty() && !x.empty() && !y.empty()) {
    const unsigned before = r.size() + x.size() + y.size();
    r &= iset::clipped_range(x.min() + y.min(), x.max() + y.max());
    if (r.empty()) return;
    y &= iset::clipped_range(r.min() - x.max(), r.max() - x.min());
    if (y.empty()) return;
    x &= iset::clipped_range(r.min() - y.max(), r.max() - y.min());
    if (x.empty()) return;
    r = set_sum(x, y, 1, r);
    y = set_sum(r, x, -1, y);
    x = set_sum(r, y, -1, x);
    if (r.size() + x.size() + y.size() == before) return;
  }
}

TEST(arithmetic_propagators, sum_truncate_against_brute_force) {
  int explained = 0;
  repeat(606, 3000, [&](std::mt19937& gen, int round, const std::string& context) {
    // Half the rounds keep x and y below 16: no sum wraps, and the set sums are exact.
    const bool low = round % 2 == 0;
    const domain_list d{random_domain(gen, 31, 10, true),
                        random_domain(gen, low ? 10 : 28, low ? 5 : 12, true),
                        random_domain(gen, low ? 10 : 28, low ? 5 : 12, true)};
    const sum_truncate_propagator p;
    const checks c{.kind = low ? DOMAIN_CONSISTENT : SOUND_ONLY,
                   .exact_conflicts = false,
                   .explain_every = 5,
                   .limit = 6e4};
    const outcome out = check_instance(p, d, sum_truncate, round, context, c, gen, explained);
    iset r = d[0], x = d[1], y = d[2];
    naive_truncate(r, x, y);
    const bool failed = r.empty() || x.empty() || y.empty();
    EXPECT_EQ(out.result == propagation_types::UNSAT, failed) << context << " " << show(d);
    if (!failed) {
      EXPECT_EQ(out.after, (domain_list{r, x, y})) << context << " " << show(d);
    }
    EXPECT_EQ(p.conflicts(make_view(d)), failed) << context << " " << show(d);
  });
}

//==== fixed cases ===========================================================

TEST(arithmetic_propagators, long_sums_wait_for_the_constraint_queue) {
  // r >= sum with r in 0..1 cuts every x to 0..1; r <= sum with r in 9..20 cuts r.
  const greater_equal_sum_propagator ge;
  const less_equal_sum_propagator le;
  const struct {
    const constraint_propagator* p;
    const char *r, *x;
  } cases[] = {{&ge, "0:1", "0:3"}, {&le, "9:20", "0:1"}};
  for (const auto& [p, r, x] : cases)
    for (unsigned n : {10u, 11u})
      for (auto queue : {constraint_runtime_info::VARIABLE_QUEUE,
                         constraint_runtime_info::CONSTRAINT_QUEUE}) {
        domain_list d(n, iset(x));
        d[0] = iset(r);
        recording_info view(d, queue);
        const bool wait = n > 10 && queue == constraint_runtime_info::VARIABLE_QUEUE;
        EXPECT_EQ(p->clone()->propagate(view) == propagation_types::POSTPONE, wait);
        EXPECT_EQ(view.queued.size(), wait ? 1u : 0u);
        if (wait) {
          EXPECT_EQ(view.queued[0], constraint_runtime_info::CONSTRAINT_QUEUE);
        }
        EXPECT_EQ(view.domains() == d, wait) << printed(*p) << " arity " << n;
      }
}

TEST(arithmetic_propagators, watches_follow_the_direction_of_each_term) {
  const auto lower = watch_types::LOWER_BOUND_WATCH, upper = watch_types::UPPER_BOUND_WATCH;
  const domain_list d(3, iset("0:9"));
  greater_equal_sum_propagator ge;
  less_equal_sum_propagator le;
  linear_combination_ge_propagator lin(9, {2, 0, -1});  // a zero coefficient gets no watch
  for (auto& [p, expected] :
       std::vector<std::pair<constraint_propagator*, decltype(recording_info::watches)>>{
           {&ge, {{0, upper}, {1, lower}, {2, lower}}},
           {&le, {{0, lower}, {1, upper}, {2, upper}}},
           {&lin, {{0, upper}, {2, lower}}}}) {
    recording_info view(d);
    EXPECT_EQ(p->init(view), propagation_types::VALID);
    EXPECT_EQ(view.watches, expected) << printed(*p);
  }
  // ... and goes from the compact form.
  std::vector<unsigned> kept;
  std::unique_ptr<constraint_propagator> compact = lin.intersect_with(make_view(d), kept);
  ASSERT_TRUE(compact);
  EXPECT_EQ(kept, (std::vector<unsigned>{0, 2}));
  EXPECT_EQ(printed(*compact), "(2*P0-P1>=9)");
}

TEST(arithmetic_propagators, the_64_bit_path_is_chosen_by_the_coefficient_bound) {
  constraint_explicit_info view = make_view({iset("0:3"), iset("0:3")});
  for (const auto& [coefficients, small] : std::vector<std::pair<std::vector<int>, bool>>{
           {{INT_MAX / 2, INT_MIN / 2}, true},
           {{INT_MAX / 2 + 1, 1}, false},
           {{1, INT_MIN / 2 - 1}, false}}) {
    linear_combination_ge_propagator p(0, coefficients);
    EXPECT_FALSE(p.small_coefficients());  // until init
    EXPECT_EQ(p.init(view), propagation_types::VALID);
    EXPECT_EQ(p.small_coefficients(), small) << printed(p);
  }
  // INT_MAX * x0 - INT_MAX * x1 - INT_MAX * x2 >= INT_MAX: x0 >= 1 + x1 + x2.
  linear_combination_ge_propagator wide(INT_MAX, {INT_MAX, -INT_MAX, -INT_MAX});
  constraint_explicit_info three = make_view({iset("0:3"), iset("0:3"), iset("1:3")});
  EXPECT_EQ(wide.init(three), propagation_types::VALID);
  EXPECT_EQ(wide.propagate(three), propagation_types::CONSISTENT);
  EXPECT_EQ(three.domains(), (domain_list{iset("2:3"), iset("0:1"), iset("1:2")}));
}

TEST(arithmetic_propagators, simplification_on_fixed_parameters) {
  // -x >= 0 is the clause x in {0}.
  std::vector<unsigned> kept;
  EXPECT_EQ(printed(*linear_combination_ge_propagator(0, {-1}).new_unary_sum({}, 0, kept)),
            "[P0=0]");
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
  // All fixed: the full clause (true) or the empty one (false); a difference
  // from a sum with one side fixed; the gcd divides the constant rounded up
  // (2x + 4y >= 3 is x + 2y >= 2); "" where nothing simplifies.
  const linear_combination_ge_propagator sum(4, {1, 1}), even(3, {2, -2}), up(3, {2, 4}),
      down(-3, {-2, -4});
  const greater_equal_sum_propagator ge;
  const less_equal_sum_propagator le;
  for (const auto& [p, d, text, expected_kept] :
       std::vector<std::tuple<const constraint_propagator*, domain_list, std::string,
                              std::vector<unsigned>>>{
           {&sum, {iset("2"), iset("3")}, "[P0<=31]", {0}},
           {&sum, {iset("1"), iset("2")}, "[]", {}},
           {&sum, {iset("0:5"), iset("0:5")}, "", {}},
           {&ge, {iset("0:9"), iset("0:9"), iset("3")}, "diff_ge_3", {0, 1}},
           {&le, {iset("0:9"), iset("2"), iset("0:9")}, "diff_ge_minus_2", {2, 0}},
           {&even, {iset("0:9"), iset("0:9")}, "diff_ge_2", {0, 1}},
           {&up, {iset("0:9"), iset("0:9")}, "(P0+2*P1>=2)", {0, 1}},
           {&down, {iset("0:9"), iset("0:9")}, "(-P0-2*P1>=-1)", {0, 1}},
           {&ge, {iset("0:9"), iset("0:9")}, "", {}}}) {
    kept.clear();
    std::unique_ptr<constraint_propagator> q = p->intersect_with(make_view(d), kept);
    EXPECT_EQ(q ? printed(*q) : "", text) << printed(*p) << " on " << show(d);
    if (q) {
      EXPECT_EQ(kept, expected_kept) << printed(*p) << " on " << show(d);
    }
  }
}

TEST(arithmetic_propagators, edges_of_sum_mod_sum_wrap_and_the_ranges) {
  try {
    sum_mod_propagator(-2, 0);
    FAIL() << "a negative mod accepted";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "sum_mod_propagator(mod, result): mod should be positive");
  }
  EXPECT_THROW(sum_mod_propagator(0, 0), std::out_of_range);
  // 1 + 1 != 5, but sum_wrap looks only when something changed.
  struct untouched_info : constraint_explicit_info {
    using constraint_explicit_info::constraint_explicit_info;
    bool reduced_between_activations(unsigned int) const override { return false; }
  } view(3);
  view.domains() = {iset("5"), iset("1"), iset("1")};
  EXPECT_EQ(sum_wrap_propagator().propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(view.domains(), (domain_list{iset("5"), iset("1"), iset("1")}));
  // Ranges modulo 32 (31 values or more: nothing to cut), and truncated to 0..31
  // (an empty range leaves the set alone).
  typedef arithmetic_propagation_types apt;
  for (const auto& [wrapped, before, lo, hi, after] :
       std::vector<std::tuple<bool, const char*, long long, long long, const char*>>{
           {true, "0:31", 30, 33, "0,1,30,31"}, {true, "0:31", 40, 42, "8:10"},
           {true, "0:31", -2, 1, "0,1,30,31"}, {true, "3,7", 5, 36, "3,7"},
           {true, "3,7", 8, 38, "3"}, {false, "0:31", -5, 3, "0:3"},
           {false, "0:3", 40, 50, "0:3"}}) {
    iset s(before);
    if (wrapped)
      apt::intersect_wrapped(s, lo, hi);
    else
      apt::intersect_truncated(s, lo, hi);
    EXPECT_EQ(s, iset(after)) << before << " in " << lo << ".." << hi;
  }
}

TEST(arithmetic_propagators, print_texts) {
  constraint_explicit_info one(1), two(2), three(3);
  EXPECT_EQ(printed(greater_equal_sum_propagator()), "ge_sum");
  EXPECT_EQ(printed(greater_equal_sum_propagator(), &three), "constraint(P0>= P1 + P2)");
  EXPECT_EQ(printed(greater_equal_sum_propagator(), &one), "constraint(P0>= 0)");
  EXPECT_EQ(printed(less_equal_sum_propagator()), "le_sum");
  EXPECT_EQ(printed(less_equal_sum_propagator(), &three), "constraint(P0<= P1 + P2)");
  EXPECT_EQ(printed(sum_wrap_propagator()), "sum_wrap");
  EXPECT_EQ(printed(sum_wrap_propagator(), &three), "constraint(P0== P1 + P2)");
  EXPECT_EQ(printed(sum_truncate_propagator()), "sum_truncate");
  EXPECT_EQ(printed(sum_truncate_propagator(), &three), "constraint(P1+<trunc> P2==P0)");
  EXPECT_EQ(printed(neg_propagator()), "negate");
  EXPECT_EQ(printed(neg_propagator(), &two), "constraint(P0== -P1)");
  EXPECT_EQ(printed(linear_combination_ge_propagator(-4, {-1, 2, 1, -3})),
            "(-P0+2*P1+P2-3*P3>=-4)");
  EXPECT_EQ(printed(linear_combination_ge_propagator(7, {3, -1, 0}), &three),
            "constraint(3*P0-P1+0*P2>=7)");
  EXPECT_EQ(printed(sum_mod_propagator(2, 1)), "((xor vars) 2 == 1)");
  EXPECT_EQ(printed(sum_mod_propagator(3, 2)), "((sum vars) mod 3 == 2)");
  EXPECT_EQ(printed(sum_mod_propagator(2, 0), &two),
            "constraint((xor(P0,P1)  == 0) && (P0,P1 in [0..1]))");
  EXPECT_EQ(printed(sum_mod_propagator(3, 2), &two),
            "constraint((P0+P1) mod 3 == 2) && (P0,P1 in [0..2]))");
}

TEST(arithmetic_propagators, explanation_of_a_bound) {
  // 2x - y + z >= 10 on x in 0..4, y in 2..5, z in 0..3 fails; whichever pivot is
  // asked (one beyond the arity means parameter 0), the bounds that fail it:
  // x >= 5, y <= 1, z >= 4 (x >= (10 + 2 - 3) / 2 rounded up).
  const linear_combination_ge_propagator p(10, {2, -1, 1});
  const constraint_explicit_info view = make_view({iset("0:4"), iset("2:5"), iset("0:3")});
  for (unsigned pivot : {0u, 7u, 1u}) {
    constraint_propagator::literal_vector explanation;
    p.explain_propagation(pivot, iset::full(), iset(), view, explanation);
    EXPECT_EQ(explanation, (domain_list{iset("5:31"), iset("0,1"), iset("4:31")})) << pivot;
  }
}

//==== combination ===========================================================

// Two sums, or a sum and a difference on the right, sharing one or two
// variables: Fourier-Motzkin elimination of the pivot.
TEST(arithmetic_propagators, linear_combinations_are_implied) {
  int built = 0, refused = 0;
  repeat(808, 700, [&](std::mt19937& gen, int, const std::string& where) {
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
    if (gen() % 3 == 0) map[(pivot + 1) % nr] = (map[pivot] + 1) % nl;  // a second shared one
    domain_list ld, rd;
    for (unsigned i = 0; i < nl; ++i) ld.push_back(random_domain(gen, 12, 8));
    for (unsigned j = 0; j < nr; ++j) rd.push_back(random_domain(gen, 12, 8));
    const std::string context = where + " " + printed(left) + " with " + printed(*right) +
                                " map " + show(map) + " pivot " + std::to_string(pivot);
    ASSERT_TRUE(left.may_combine(*right));
    const combination c = run_combine(left, ld, *right, rd, map, pivot);
    // The pivot's coefficients, the difference's being 1 and -1.
    const long long a = lc[map[pivot]];
    long long b = pivot == 0 ? 1 : -1;
    if (const auto* sum = dynamic_cast<const linear_combination_ge_propagator*>(right.get()))
      b = sum->coefficients()[pivot];
    if ((a >= 0) == (b >= 0)) {
      EXPECT_FALSE(c.result) << "same sign: " << context;
      ++refused;
    } else if (c.result) {  // else 0 >= constant <= 0 says nothing
      ++built;
      check_combination(left, nl, *right, nr, map, pivot, c, context);
    }
  });
  EXPECT_GT(built, 200);
  EXPECT_GT(refused, 100);
}

TEST(arithmetic_propagators, linear_combination_edges) {
  const domain_list two{iset("0:9"), iset("0:9")}, three(3, iset("0:9"));
  // x - y >= 1 and y - x >= 0 add up to 0 >= 1: the empty clause; with -1, 0 >= -1
  // says nothing. The multipliers come from the gcd: 3 (2x + y >= 3) + 2 (-3x + z
  // >= 0); the same sign on the pivot gives nothing.
  const linear_combination_ge_propagator x_above_y(1, {1, -1});
  expect_combination(run_combine(x_above_y, two, difference_ge_propagator(0), two, {1, 0}, 1), "[]");
  expect_combination(run_combine(linear_combination_ge_propagator(-1, {1, -1}), two,
                                 difference_ge_propagator(0), two, {1, 0}, 1), "");
  expect_combination(run_combine(linear_combination_ge_propagator(3, {2, 1}), two,
                                 linear_combination_ge_propagator(0, {-3, 1}), two, {0, 3}, 0),
                     "(3*P0+2*P1>=9)", {1, 3});
  expect_combination(run_combine(linear_combination_ge_propagator(3, {2, 1}), two,
                                 linear_combination_ge_propagator(0, {3, 1}), two, {0, 3}, 0), "");
  // Coefficients or constants beyond 32 bits.
  disjunction_specification result;
  EXPECT_FALSE(linear_combination_ge_propagator::set_constraint_from_positional_coefficients(
      {0, 1LL << 31}, 0, result));
  EXPECT_FALSE(linear_combination_ge_propagator::set_constraint_from_positional_coefficients(
      {0, 0}, 1LL << 31, result));
  expect_combination(run_combine(linear_combination_ge_propagator(INT_MAX, {INT_MAX, 1}), two,
                                 linear_combination_ge_propagator(INT_MAX, {-INT_MAX, 1}), two,
                                 {0, 2}, 0), "");
  // A constant that overflows in the sum of the two.
  const constraint_explicit_info view = make_view(three);
  const difference_ge_propagator diff(2);
  long long constant = LLONG_MAX;
  std::vector<long long> positional;
  EXPECT_FALSE(linear_combination_ge_propagator::accumulate_coefficients(
      positional, constant, disjunction_specification(view, diff, {4, 7}), 1));
  // A difference doesn't take a sum on the right, a sum takes a difference.
  EXPECT_FALSE(difference_ge_propagator(0).may_combine(x_above_y));
  EXPECT_TRUE(x_above_y.may_combine(difference_ge_propagator(0)));
  EXPECT_FALSE(x_above_y.may_combine(clause_propagator{iset("1")}));
  EXPECT_FALSE(x_above_y.may_combine(equal_propagator()));
}

TEST(arithmetic_propagators, linear_disjunction_and_new_propagator) {
  const constraint_explicit_info view = make_view({iset("0:9"), iset("0:9"), iset("0:9")});
  const linear_combination_ge_propagator left(4, {2, -1, 1}), right(1, {1, 2, -1});
  // The same terms in another order: the smaller constant; other terms: nothing.
  const disjunction_specification l(view, left, {});
  disjunction_specification result;
  ASSERT_TRUE(left.disjoin_constraint(l, disjunction_specification(view, right, {2, 0, 1}), result));
  EXPECT_EQ(printed(*result.constraint()), "(2*P0-P1+P2>=1)");
  EXPECT_EQ(result.constraint_var(2), 2u);
  result.clear();
  EXPECT_FALSE(left.disjoin_constraint(l, disjunction_specification(view, right, {0, 1, 2}), result));
  // With literals the sum is joined to a clause.
  disjunction_specification form;
  form.add_literal(6, iset("3"));
  form.own_constraint(std::make_unique<linear_combination_ge_propagator>(left));
  for (unsigned v : {2u, 0u, 5u}) form.add_constraint_param(v);
  std::vector<unsigned> params;
  std::unique_ptr<constraint_propagator> p = left.new_propagator(form, params);
  ASSERT_TRUE(p);
  EXPECT_EQ(params, (std::vector<unsigned>{2, 0, 5, 6}));
  EXPECT_EQ(p->count_params(), 4u);
  EXPECT_EQ(printed(*p), "((2*P0-P1+P2>=4) || [P0=3])\n");
  // Its propagation: the disjunction tests.
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
  int built = 0;
  repeat(909, 800, [&](std::mt19937& gen, int, const std::string& where) {
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
    const std::string context = where + " map " + show(map);
    ASSERT_TRUE(left.may_combine(right));
    const combination c =
        run_combine(left, domain_list(nl, iset("0:1")), right, domain_list(nr, iset("0:1")), map,
                    pivot);
    ASSERT_TRUE(c.result) << context;
    ++built;
    check_combination(left, nl, right, nr, map, pivot, c, context, false, iset("0:2"));
  });
  EXPECT_EQ(built, 800);
}

TEST(arithmetic_propagators, modular_combination_edges) {
  const domain_list two(2, iset("0:2")), three(3, iset("0:2"));
  const sum_mod_propagator odd(2, 1), odd3(3, 1);
  // x + y = 1 and x + y = 0 modulo 2: nothing left but 0 = 1; x + x is 0 only
  // modulo 2; mods must agree.
  expect_combination(run_combine(odd, two, sum_mod_propagator(2, 0), two, {0, 1}, 0), "[]");
  expect_combination(run_combine(odd3, two, sum_mod_propagator(3, 0), two, {0, 2}, 0), "");
  EXPECT_FALSE(odd3.may_combine(odd));
  expect_combination(run_combine(odd3, two, sum_mod_propagator(2, 0), two, {0, 2}, 0), "");
  // An equality: the partner replaces the variable; both in the sum cancel (mod 2).
  const equal_propagator eq;
  for (const auto& [map, pivot, out] : std::vector<
           std::tuple<std::vector<unsigned>, unsigned, std::vector<unsigned>>>{
           {{1, 4}, 0, {0, 4, 2}}, {{3, 2}, 1, {0, 1, 3}}, {{0, 2}, 0, {1}}}) {
    const combination c =
        expect_combination(run_combine(odd, three, eq, two, map, pivot), "((xor vars) 2 == 1)", out);
    check_combination(odd, 3, eq, 2, map, pivot, c, "parity and equality");
  }
  expect_combination(run_combine(odd3, three, eq, two, {0, 2}, 0), "");

  // 2x + 3y >= 7 with x + z = 2 modulo 3: -2z + 3y >= 3; both in the sum: y's
  // coefficient less x's, and y's position goes; from the modular side, through
  // combine_other_first. A carry is possible when mod isn't result + 1.
  const linear_combination_ge_propagator sum(7, {2, 3});
  const sum_mod_propagator x_plus_z(3, 2);
  EXPECT_TRUE(sum.may_combine(x_plus_z));
  EXPECT_TRUE(x_plus_z.may_combine(sum));
  EXPECT_FALSE(sum_mod_propagator(4, 2).may_combine(sum));
  combination c =
      expect_combination(run_combine(sum, two, x_plus_z, two, {0, 2}, 0), "(-2*P0+3*P1>=3)", {2, 1});
  check_combination(sum, 2, x_plus_z, 2, {0, 2}, 0, c, "substitution");
  expect_combination(run_combine(sum, two, x_plus_z, two, {0, 1}, 0), "(P0>=3)", {1});
  c = expect_combination(run_combine(x_plus_z, two, sum, two, {0, 2}, 0), "(-2*P0+3*P1>=3)", {1, 2});
  check_combination(x_plus_z, 2, sum, 2, {0, 2}, 0, c, "substitution, modular left");
  expect_combination(run_combine(sum, two, sum_mod_propagator(4, 2), two, {0, 2}, 0), "");
  expect_combination(run_combine(sum, two, sum_mod_propagator(3, 2), three, {0, 2, 3}, 0), "");
}

}  // namespace
}  // namespace zelk
