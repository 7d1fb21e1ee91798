// The comparison propagators against brute force on many small random
// instances (filtering, failure, validity, conflicts, constraint_check, every
// explanation and the difference's rule), the soundness of what they build by
// combination, and the fixed cases of their algorithms.
#include "impl/comparison_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

const relation equal = [](const assignment& v) { return v[0] == v[1]; };
const relation is_equal = [](const assignment& v) { return v[0] == (v[1] == v[2] ? 1 : 0); };
const relation if_then_else = [](const assignment& v) {
  return v[1] <= 1 && v[0] == (v[1] == 1 ? v[2] : v[3]);
};

//==== the propagators against brute force ====================================

TEST(comparison_propagators, equal_is_equal_and_if_then_else_against_brute_force) {
  typedef std::function<iset(std::mt19937&, int)> maker;
  const maker wide = [](std::mt19937& g, int) { return random_domain(g, 31, 10, true); };
  const maker small = [](std::mt19937& g, int) { return random_domain(g, 8, 4, true); };
  const maker result = [](std::mt19937& g, int) { return random_domain(g, 8, 5, true); };
  const maker condition = [](std::mt19937& g, int round) {  // sometimes beyond 0..1
    return round % 3 ? random_domain(g, 1, 2, true) : random_domain(g, 3, 3, true);
  };
  const equal_propagator eq;
  const is_equal_propagator reified;
  const if_then_else_propagator ite;
  for (const auto& [seed, rounds, p, rel, makers, limit, least] :
       std::vector<std::tuple<unsigned, int, const constraint_propagator*, relation,
                              std::vector<maker>, double, int>>{
           {11, 3000, &eq, equal, {wide, wide}, 1 << 20, 1000},
           {13, 3000, &reified, is_equal, {condition, small, small}, 1 << 20, 1000},
           {14, 2000, &ite, if_then_else, {result, condition, small, small}, 1 << 15, 300}}) {
    int explained = 0;
    repeat(seed, rounds, [&](std::mt19937& gen, int round, const std::string& context) {
      domain_list d;
      for (const maker& m : makers) d.push_back(m(gen, round));
      // An empty domain leaves room (X equals Y when both are empty): exactness
      // needs non-empty ones; the equality's conflicts are exact all the same.
      const bool exact = !any_empty(d);
      const checks c{.kind = exact ? DOMAIN_CONSISTENT : SOUND_ONLY,
                     .exact_conflicts = exact || p == &eq,
                     .random_literals = true,
                     .limit = limit,
                     .check_every = 20};
      const outcome out = check_instance(*p, d, rel, round, context, c, gen, explained);
      EXPECT_TRUE(p != &eq || out.result != propagation_types::VALID) << context;
    });
    EXPECT_GT(explained, least) << printed(*p);
  }
}

TEST(comparison_propagators, difference_against_brute_force) {
  int explained = 0, rules = 0, valid = 0;
  repeat(12, 4000, [&](std::mt19937& gen, int round, const std::string& where) {
    const int c = round % 10 == 0 ? int(gen() % 80) - 40 : int(gen() % 25) - 12;
    const domain_list d{random_domain(gen, 31, 12, true), random_domain(gen, 31, 12, true)};
    const std::string context = where + " c " + std::to_string(c);
    const difference_ge_propagator p(c);
    const outcome out =
        check_instance(p, d, [c](const assignment& v) { return (long long)v[0] - v[1] >= c; },
                       round, context, checks{.random_literals = true, .check_every = 20}, gen,
                       explained);
    valid += out.result == propagation_types::VALID;
    // The rule reproduces the tight explanations exactly: x > t or y <= t - c.
    // (An empty domain, which analysis never explains, gives the trivial clause.)
    const constraint_explicit_info view = make_view(d);
    const bool failure = out.result == propagation_types::UNSAT;
    for (unsigned param = 0; param < (failure ? 1 : 2) && !any_empty(d); ++param) {
      if (!failure && out.after[param] == d[param]) continue;
      domain_list explanation, again;
      const iset literal = round % 2 ? iset::full() : iset::from_bits(std::uint32_t(gen()));
      p.explain_propagation(param, literal, failure ? iset() : out.after[param], view, explanation);
      const std::unique_ptr<explanation_rule> rule = p.rule(explanation);
      ASSERT_TRUE(rule);
      rule->get_explanation(again);
      EXPECT_EQ(again, explanation) << context << " on " << show(d);
      ++rules;
    }
  });
  EXPECT_GT(explained, 2000);
  EXPECT_GT(rules, 1500);
  EXPECT_GT(valid, 200);
}

//==== fixed cases of the algorithms ==========================================

TEST(comparison_propagators, fixed_propagations) {
  const difference_ge_propagator minus5(-5), three(3);
  const is_equal_propagator reified;
  const if_then_else_propagator ite;
  const result_type consistent = propagation_types::CONSISTENT, valid = propagation_types::VALID;
  for (const auto& [p, d, result, after] : std::vector<
           std::tuple<const constraint_propagator*, domain_list, result_type, domain_list>>{
           // A negative constant: max(x) - c passes 31, and y keeps everything.
           {&minus5, {iset("20:31"), iset("0:31")}, consistent, {iset("20:31"), iset("0:31")}},
           // VALID straight after reducing: x >= 3 + y with y = 2 cuts x to 5..9.
           {&three, {iset("0:9"), iset("2")}, valid, {iset("5:9"), iset("2")}},
           // b fixed to 1 on equal single values stays CONSISTENT; fixed to 0 it is VALID.
           {&reified, {iset("1"), iset("4"), iset("4")}, consistent, {iset("1"), iset("4"), iset("4")}},
           {&reified, {iset("0"), iset("4"), iset("3:5")}, valid, {iset("0"), iset("4"), iset("3,5")}},
           {&reified, {iset("0:1"), iset("4"), iset("4")}, consistent, {iset("1"), iset("4"), iset("4")}},
           // Values of b outside 0..1 are dropped.
           {&reified, {iset("0:7"), iset("2"), iset("5")}, valid, {iset("0"), iset("2"), iset("5")}},
           {&ite, {iset("0:9"), iset("0:5"), iset("2:3"), iset("20")}, consistent,
            {iset("2:3"), iset("1"), iset("2:3"), iset("20")}},
           {&ite, {iset("0:9"), iset("0:5"), iset("2:3"), iset("7")}, consistent,
            {iset("2,3,7"), iset("0,1"), iset("2:3"), iset("7")}},
           {&ite, {iset("0:9"), iset("0"), iset("2:3"), iset("7")}, valid,
            {iset("7"), iset("0"), iset("2:3"), iset("7")}},
           {&ite, {iset("0:9"), iset("2:9"), iset("2:3"), iset("7")}, propagation_types::UNSAT, {}}})
    expect_propagation(*p, d, result, after);
  // Only the upper bound of x and the lower bound of y are watched.
  recording_info watched({iset("0:9"), iset("0:9")});
  EXPECT_EQ(difference_ge_propagator(3).init(watched), propagation_types::VALID);
  EXPECT_EQ(watched.watches, (decltype(watched.watches){{1, watch_types::LOWER_BOUND_WATCH},
                                                        {0, watch_types::UPPER_BOUND_WATCH}}));
  // Simplification with a fixed side is a unary bound.
  std::vector<unsigned> kept;
  EXPECT_FALSE(three.intersect_with(make_view({iset("0:9"), iset("0:9")}), kept));
  std::unique_ptr<constraint_propagator> bound =
      three.intersect_with(make_view({iset("0:9"), iset("4")}), kept);
  ASSERT_TRUE(bound);
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
  EXPECT_EQ(printed(*bound), "[P0>=7]");
}

TEST(comparison_propagators, difference_rule_edges_and_text) {
  const difference_ge_propagator p(4);
  // An empty first entry: t = 31, so x > 31 is empty and the clause is y <= 27.
  std::unique_ptr<explanation_rule> rule = p.rule({iset(), iset("0:27")});
  domain_list out{iset::full(), iset::full(), iset::full()};
  rule->get_explanation(out);
  EXPECT_EQ(out, (domain_list{iset(), iset("0:27")}));
  // t - c below 0 leaves the y entry empty.
  rule = p.rule({iset("3:31"), iset()});
  rule->get_explanation(out);
  EXPECT_EQ(out, (domain_list{iset("3:31"), iset()}));
  domain_list copied;
  rule->clone()->get_explanation(copied);
  EXPECT_EQ(copied, out);
  struct : variable_print_strategy {
    void print(std::ostream& os, unsigned int variable) const override { os << "v" << variable; }
  } strategy;
  std::ostringstream text;
  rule->print(text, strategy, {0, 1});
  text << " ";
  difference_ge_propagator(-3).rule({iset("8:31"), iset()})->print(text, strategy, {0, 1});
  EXPECT_EQ(text.str(), "DIFF_GE_4(2) DIFF_GE_minus_3(7)");
}

TEST(comparison_propagators, print_texts) {
  constraint_explicit_info two(2), three(3), four(4);
  EXPECT_EQ(printed(equal_propagator()), "equal");
  EXPECT_EQ(printed(equal_propagator(), &two), "constraint(P0==P1)");
  EXPECT_EQ(printed(difference_ge_propagator(3)), "diff_ge_3");
  EXPECT_EQ(printed(difference_ge_propagator(-3)), "diff_ge_minus_3");
  EXPECT_EQ(printed(difference_ge_propagator(-3), &two), "constraint(P0-P1>=-3)");
  EXPECT_EQ(printed(is_equal_propagator()), "is_equal");
  EXPECT_EQ(printed(is_equal_propagator(), &three), "constraint(P0 iff P1 = P2)");
  EXPECT_EQ(printed(if_then_else_propagator()), "if_then_else");
  EXPECT_EQ(printed(if_then_else_propagator(), &four), "constraintP0=(P1 ? P2 : P3)");
}

//==== combination ==============================================================

// Two differences: the middle pivot in either orientation (transitivity), the
// circular pair, and arbitrary sharing.
TEST(comparison_propagators, difference_combinations_are_implied) {
  int built = 0, middle = 0;
  repeat(21, 600, [&](std::mt19937& gen, int round, const std::string& where) {
    const int c0 = int(gen() % 21) - 10, c1 = int(gen() % 21) - 10;
    const difference_ge_propagator left(c0), right(c1);
    std::vector<unsigned> map;
    unsigned pivot = 0;
    switch (round % 4) {
      case 0: map = {1, 2}; pivot = 0; break;           // a - p, p - z
      case 1: map = {2, 0}; pivot = 1; break;           // p - a, a - b
      case 2: map = {1, 0}; pivot = gen() % 2; break;   // a - b, b - a
      default:
        map = {gen() % 2 ? 0u : 2u, gen() % 2 ? 1u : 3u};
        if (map[0] >= 2 && map[1] >= 2) map[0] = 0;
        pivot = map[0] < 2 ? 0 : 1;
    }
    const domain_list left_domains{random_domain(gen, 31, 14), random_domain(gen, 31, 14)};
    const domain_list right_domains{random_domain(gen, 31, 14), random_domain(gen, 31, 14)};
    const std::string context = where + " c0 " + std::to_string(c0) + " c1 " + std::to_string(c1) +
                                " map " + show(map) + " pivot " + std::to_string(pivot);
    const combination c = run_combine(left, left_domains, right, right_domains, map, pivot);
    if (!c.result) return;
    ++built;
    middle += round % 4 < 2;
    // a - b >= 0 and b - a >= 0 become a = b, which keeps the pivot.
    const bool circular_equal = dynamic_cast<const equal_propagator*>(c.result.get()) != nullptr;
    check_combination(left, 2, right, 2, map, pivot, c, context, circular_equal);
  });
  EXPECT_GT(built, 100);
  EXPECT_GT(middle, 50);
}

TEST(comparison_propagators, difference_combination_edges) {
  const difference_ge_propagator plus2(2), minus1(-1), minus2(-2), minus3(-3), zero(0), one(1),
      three(3), big(INT_MAX);
  const domain_list wide(2, iset("0:31")), z5{iset("0:31"), iset("5:31")};
  const struct {
    const constraint_propagator *left, *right;
    domain_list left_domains, right_domains;
    std::vector<unsigned> map;
    unsigned pivot;
    std::string text;
    std::vector<unsigned> out;
  } cases[] = {
      // a - b >= 2 and b - a >= -1: together false, the empty clause; c0 + c1 = 0
      // with c0 not 0: no equality with an offset; both 0: the equality.
      {&plus2, &minus1, wide, wide, {1, 0}, 0, "[]", {}},
      {&plus2, &minus2, wide, wide, {1, 0}, 0, "", {}},
      {&zero, &zero, wide, wide, {1, 0}, 1, "equal", {0, 1}},
      // A sum beyond 32 bits is refused.
      {&big, &one, wide, wide, {1, 2}, 0, "", {}},
      // The plain sum keeps the conflict: a <= 9, z >= 5, a - p >= 2, p - z >= 3;
      // where it would hold on the domains (a <= 20), refused.
      {&plus2, &three, {iset("0:9"), iset("0:31")}, z5, {1, 2}, 0, "diff_ge_5", {0, 2}},
      {&plus2, &three, {iset("0:20"), iset("0:31")}, z5, {1, 2}, 0, "", {}},
      // The other orientation: p - a >= -3 (right), a - b >= 2 (left), pivot a.
      {&plus2, &minus3, {iset("0:31"), iset("25:31")}, {iset("0:20"), iset("0:31")}, {2, 0}, 1,
       "diff_ge_minus_1", {2, 1}},
      // Neither a middle nor a circular pivot.
      {&plus2, &plus2, wide, wide, {0, 2}, 0, "", {}}};
  for (const auto& k : cases) {
    const combination c = expect_combination(
        run_combine(*k.left, k.left_domains, *k.right, k.right_domains, k.map, k.pivot), k.text,
        k.out);
    check_combination(*k.left, 2, *k.right, 2, k.map, k.pivot, c, k.text, k.text == "equal");
  }
  // A difference doesn't combine with a sum from the left.
  EXPECT_FALSE(plus2.may_combine(linear_combination_ge_propagator(1, {1, 1})));
}

// The equality substitutes its partner for the pivot in any constraint, and any
// constraint hands an equality on the right to it.
TEST(comparison_propagators, equal_combinations_are_implied) {
  int built = 0, refused = 0, turned = 0;
  repeat(22, 1000, [&](std::mt19937& gen, int round, const std::string& where) {
    std::unique_ptr<constraint_propagator> other;
    unsigned arity = 3;
    switch (round % 7) {
      case 0: arity = 2; other = std::make_unique<difference_ge_propagator>(int(gen() % 13) - 6); break;
      case 1:
        other = std::make_unique<linear_combination_ge_propagator>(
            int(gen() % 21) - 5, std::vector<int>{int(gen() % 5) - 2, 2, -1});
        break;
      case 2: {
        domain_list literals;
        for (unsigned i = 0; i < arity; ++i) literals.push_back(random_domain(gen, 10, 5));
        other = std::make_unique<clause_propagator>(literals);
        break;
      }
      case 3: other = std::make_unique<is_equal_propagator>(); break;
      case 4: arity = 4; other = std::make_unique<if_then_else_propagator>(); break;
      case 5: other = std::make_unique<sum_mod_propagator>(2, int(gen() % 2)); break;
      default: arity = 2; other = std::make_unique<equal_propagator>();
    }
    domain_list other_domains, eq_domains{random_domain(gen, 10, 4), random_domain(gen, 10, 4)};
    for (unsigned i = 0; i < arity; ++i)
      other_domains.push_back(round % 7 == 5 ? random_domain(gen, 1, 1) : random_domain(gen, 10, 4));
    const unsigned shared = gen() % arity;
    const unsigned eq_side = gen() % 2;
    const bool partner_too = gen() % 8 == 0 && arity > 1;
    const unsigned partner = (shared + 1) % arity;
    const std::string context = where + " " + printed(*other);
    const iset universe = arity > 2 ? iset("0:6") : iset();
    const equal_propagator eq;
    // Equality on the left: right parameter `shared` is x (or y).
    std::vector<unsigned> map(arity);
    for (unsigned j = 0; j < arity; ++j) map[j] = j + 2;
    map[shared] = eq_side;
    if (partner_too) map[partner] = 1 - eq_side;
    combination c = run_combine(eq, eq_domains, *other, other_domains, map, shared);
    if (partner_too) {
      EXPECT_FALSE(c.result) << context;
      ++refused;
    } else if (c.result) {
      ++built;
      check_combination(eq, 2, *other, arity, map, shared, c, "eq left " + context, false, universe);
    }
    // Equality on the right, the other constraint on the left.
    if (!other->may_combine(eq)) return;
    std::vector<unsigned> back{arity + 0, arity + 1};
    back[eq_side] = shared;
    if (partner_too) back[1 - eq_side] = partner;
    c = run_combine(*other, other_domains, eq, eq_domains, back, eq_side);
    turned += c.result != nullptr;
    check_combination(*other, arity, eq, 2, back, eq_side, c, "eq right " + context, partner_too,
                      universe);
  });
  EXPECT_GT(built, 100);
  EXPECT_GT(turned, 100);
  EXPECT_GT(refused, 50);
}

TEST(comparison_propagators, base_class_combination_defaults) {
  const equal_propagator eq;
  const is_equal_propagator is_equal;
  const if_then_else_propagator ite;
  EXPECT_TRUE(is_equal.may_combine(eq));
  EXPECT_FALSE(is_equal.may_combine(ite));
  EXPECT_FALSE(is_equal.may_combine(difference_ge_propagator(0)));
  // With anything but an equality on the right, null and `out` untouched.
  std::vector<unsigned> out{7, 7};
  const constraint_explicit_info three = make_view({iset("0:1"), iset("0:5"), iset("0:5")});
  const constraint_explicit_info four = make_view(domain_list(4, iset("0:5")));
  EXPECT_FALSE(is_equal.combine(three, ite, four, {4, 5, 6, 7}, 0, out));
  EXPECT_EQ(out, (std::vector<unsigned>{7, 7}));
  // b iff (x = y) with y = w and x = w fixed the same: b must be 1, so b = 0 fails.
  // combine_other_first translates back: y (left 2) becomes w (right 1, number 4);
  // x and b keep their left numbers.
  const domain_list left{iset("0"), iset("3"), iset("0:9")}, right{iset("0:9"), iset("3")};
  expect_combination(run_combine(is_equal, left, eq, right, {2, 4}, 0), "is_equal", {0, 1, 4});
  // The partner already in the left constraint: null.
  expect_combination(run_combine(is_equal, left, eq, right, {2, 1}, 0), "");
}

TEST(comparison_propagators, new_propagator_by_literal_count) {
  // Through specifications of results: literals first, then the base; with
  // literals, the class that combines like a difference.
  const std::vector<std::pair<std::vector<unsigned>, std::string>> expected{
      {{5, 2}, "diff_ge_4"},
      {{5, 2, 7}, "(diff_ge_4 || [P0:{1:3}])\n"},
      {{5, 2, 7, 3}, "(diff_ge_4 || [P0:{1:3}, P1=0])\n"}};
  std::vector<unsigned> params{9};
  for (unsigned count = 0; count <= 2; ++count) {
    disjunction_specification form;
    if (count >= 1) form.add_literal(7, iset("1:3"));
    if (count == 2) form.add_literal(3, iset("0"));
    form.own_constraint(std::make_unique<difference_ge_propagator>(4));
    form.add_constraint_param(5);
    form.add_constraint_param(2);
    std::unique_ptr<constraint_propagator> p = difference_ge_propagator(4).new_propagator(form, params);
    ASSERT_TRUE(p);
    EXPECT_EQ(params, expected[count].first);
    EXPECT_EQ(printed(*p), expected[count].second);
    EXPECT_EQ(p->count_params(), 2 + count);
    EXPECT_EQ(dynamic_cast<difference_ge_or_clause_propagator*>(p.get()) != nullptr, count > 0);
    EXPECT_EQ(form.owns_constraint(), count > 0);  // taken over by a bare base
  }
  disjunction_specification eq_spec;
  eq_spec.add_literal(4, iset("2"));
  eq_spec.own_constraint(std::make_unique<equal_propagator>());
  eq_spec.add_constraint_param(0);
  eq_spec.add_constraint_param(1);
  std::unique_ptr<constraint_propagator> p = equal_propagator().new_propagator(eq_spec, params);
  ASSERT_TRUE((dynamic_cast<disjoint_propagator<equal_propagator, clause_propagation_algo>*>(p.get())));
  EXPECT_EQ(params, (std::vector<unsigned>{0, 1, 4}));
  EXPECT_EQ(printed(*p), "(equal || [P0=2])\n");
}

}  // namespace
}  // namespace zelk
