// The comparison propagators against brute force on many small random
// instances (filtering, failure, validity, conflicts, constraint_check, every
// explanation and the difference's rule), the soundness of what they build by
// combination, and the fixed cases of their algorithms.
#include "impl/comparison_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/constraint_explicit_info.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

relation equal_relation() {
  return [](const assignment& v) { return v[0] == v[1]; };
}

relation diff_relation(int c) {
  return [c](const assignment& v) { return (long long)v[0] - v[1] >= c; };
}

relation is_equal_relation() {
  return [](const assignment& v) { return v[0] == (v[1] == v[2] ? 1 : 0); };
}

relation if_then_else_relation() {
  return [](const assignment& v) { return v[1] <= 1 && v[0] == (v[1] == 1 ? v[2] : v[3]); };
}

std::string seed_context(unsigned seed, int round) {
  return "seed " + std::to_string(seed) + " round " + std::to_string(round);
}

// Names variables "v" and the number.
class plain_print_strategy : public variable_print_strategy {
 public:
  void print(std::ostream& os, unsigned int variable) const override { os << "v" << variable; }
};

std::string text_of(const constraint_propagator& p, const constraint_runtime_info* info) {
  std::ostringstream os;
  p.print(os, info);
  return os.str();
}

//==== the propagators against brute force ====================================

TEST(comparison_propagators, equal_against_brute_force) {
  const unsigned seed = 11;
  std::mt19937 gen(seed);
  int explained = 0;
  for (int round = 0; round < 3000; ++round) {
    const domain_list d{random_domain(gen, 31, 10, true), random_domain(gen, 31, 10, true)};
    const std::string context = seed_context(seed, round);
    const equal_propagator p;
    // Two empty domains are left alone (X equals Y), so exactness needs non-empty ones.
    const outcome out = check_propagation(p, d, equal_relation(),
                                          any_empty(d) ? SOUND_ONLY : DOMAIN_CONSISTENT, context);
    EXPECT_NE(out.result, propagation_types::VALID) << context;
    EXPECT_EQ(p.conflicts(make_view(d)), !solvable(d, equal_relation())) << context << show(d);
    explained += check_explanations(p, d, out, equal_relation(), context, &gen);
    if (round % 20 == 0) check_constraint_check(p, d, equal_relation(), context);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(explained, 1000);
}

TEST(comparison_propagators, difference_against_brute_force) {
  const unsigned seed = 12;
  std::mt19937 gen(seed);
  int explained = 0, rules = 0, valid = 0;
  for (int round = 0; round < 4000; ++round) {
    const int c = round % 10 == 0 ? int(gen() % 80) - 40 : int(gen() % 25) - 12;
    const domain_list d{random_domain(gen, 31, 12, true), random_domain(gen, 31, 12, true)};
    const std::string context = seed_context(seed, round) + " c " + std::to_string(c);
    const difference_ge_propagator p(c);
    const relation rel = diff_relation(c);
    const outcome out = check_propagation(p, d, rel, DOMAIN_CONSISTENT, context);
    valid += out.result == propagation_types::VALID;
    EXPECT_EQ(p.conflicts(make_view(d)), !solvable(d, rel)) << context << show(d);
    explained += check_explanations(p, d, out, rel, context, &gen);
    // The rule reproduces the tight explanations exactly: x > t or y <= t - c.
    // (An empty domain, which analysis never explains, gives the trivial clause.)
    const constraint_explicit_info view = make_view(d);
    for (unsigned param = 0; param < 2 && !any_empty(d); ++param) {
      const bool failure = out.result == propagation_types::UNSAT;
      if (!failure && out.after[param] == d[param]) continue;
      if (failure && param == 1) continue;
      constraint_propagator::literal_vector explanation, again;
      const iset literal = round % 2 ? iset::full() : iset::from_bits(std::uint32_t(gen()));
      p.explain_propagation(param, literal, failure ? iset() : out.after[param], view, explanation);
      const std::unique_ptr<explanation_rule> rule = p.rule(explanation);
      ASSERT_TRUE(rule);
      rule->get_explanation(again);
      EXPECT_EQ(again, explanation) << context << " on " << show(d);
      ++rules;
    }
    if (round % 20 == 0) check_constraint_check(p, d, rel, context);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(explained, 2000);
  EXPECT_GT(rules, 1500);
  EXPECT_GT(valid, 200);
}

TEST(comparison_propagators, is_equal_against_brute_force) {
  const unsigned seed = 13;
  std::mt19937 gen(seed);
  int explained = 0;
  for (int round = 0; round < 3000; ++round) {
    const domain_list d{round % 3 ? random_domain(gen, 1, 2, true) : random_domain(gen, 3, 3, true),
                        random_domain(gen, 8, 4, true), random_domain(gen, 8, 4, true)};
    const std::string context = seed_context(seed, round);
    const is_equal_propagator p;
    const relation rel = is_equal_relation();
    const bool exact = !any_empty(d);
    const outcome out = check_propagation(p, d, rel, exact ? DOMAIN_CONSISTENT : SOUND_ONLY, context);
    if (exact) {
      EXPECT_EQ(p.conflicts(make_view(d)), !solvable(d, rel)) << context << show(d);
    }
    explained += check_explanations(p, d, out, rel, context, &gen);
    if (round % 20 == 0) check_constraint_check(p, d, rel, context);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(explained, 1000);
}

TEST(comparison_propagators, if_then_else_against_brute_force) {
  const unsigned seed = 14;
  std::mt19937 gen(seed);
  int explained = 0;
  for (int round = 0; round < 2000; ++round) {
    const domain_list d{random_domain(gen, 8, 5, true),
                        round % 3 ? random_domain(gen, 1, 2, true) : random_domain(gen, 3, 3, true),
                        random_domain(gen, 8, 4, true), random_domain(gen, 8, 4, true)};
    const std::string context = seed_context(seed, round);
    const if_then_else_propagator p;
    const relation rel = if_then_else_relation();
    const bool exact = !any_empty(d);
    const outcome out = check_propagation(p, d, rel, exact ? DOMAIN_CONSISTENT : SOUND_ONLY, context);
    if (exact) {
      EXPECT_EQ(p.conflicts(make_view(d)), !solvable(d, rel)) << context << show(d);
    }
    explained += check_explanations(p, d, out, rel, context, &gen, 1 << 15);
    if (round % 20 == 0) check_constraint_check(p, d, rel, context);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(explained, 300);
}

//==== fixed cases of the algorithms ==========================================

TEST(comparison_propagators, difference_bounds_and_watches) {
  // A negative constant: max(x) - c passes 31, and y keeps everything.
  difference_ge_propagator minus(-5);
  constraint_explicit_info view = make_view({iset("20:31"), iset("0:31")});
  EXPECT_EQ(minus.propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(view.domain(1), iset("0:31"));
  // VALID straight after reducing: x >= 3 + y with y in 0..2 cuts x to 3..; with
  // x in 0..9 and y <= 9 - 3 the least x 5 beats the greatest y 2.
  difference_ge_propagator three(3);
  constraint_explicit_info cut = make_view({iset("0:9"), iset("2")});
  EXPECT_EQ(three.propagate(cut), propagation_types::VALID);
  EXPECT_EQ(cut.domains(), (domain_list{iset("5:9"), iset("2")}));
  // Only the upper bound of x and the lower bound of y are watched.
  recording_info watched({iset("0:9"), iset("0:9")});
  EXPECT_EQ(three.init(watched), propagation_types::VALID);
  EXPECT_EQ(watched.watches, (std::vector<std::pair<unsigned, watch_types::watch_type>>{
                                 {1, watch_types::LOWER_BOUND_WATCH},
                                 {0, watch_types::UPPER_BOUND_WATCH}}));
  // Simplification with a fixed side is a unary bound.
  std::vector<unsigned> kept;
  EXPECT_FALSE(three.intersect_with(make_view({iset("0:9"), iset("0:9")}), kept));
  std::unique_ptr<constraint_propagator> bound =
      three.intersect_with(make_view({iset("0:9"), iset("4")}), kept);
  ASSERT_TRUE(bound);
  EXPECT_EQ(kept, (std::vector<unsigned>{0}));
  EXPECT_EQ(dynamic_cast<clause_propagator&>(*bound).literals(), (domain_list{iset("7:31")}));
}

TEST(comparison_propagators, difference_rule_edges_and_text) {
  const difference_ge_propagator p(4);
  // An empty first entry: t = 31, so x > 31 is empty and the clause is y <= 27.
  std::unique_ptr<explanation_rule> rule = p.rule({iset(), iset("0:27")});
  std::vector<iset> out{iset::full(), iset::full(), iset::full()};
  rule->get_explanation(out);
  EXPECT_EQ(out, (domain_list{iset(), iset("0:27")}));
  // t - c below 0 leaves the y entry empty.
  rule = p.rule({iset("3:31"), iset()});
  rule->get_explanation(out);
  EXPECT_EQ(out, (domain_list{iset("3:31"), iset()}));
  std::unique_ptr<explanation_rule> copy = rule->clone();
  std::vector<iset> copied;
  copy->get_explanation(copied);
  EXPECT_EQ(copied, out);
  const plain_print_strategy strategy;
  std::ostringstream text;
  rule->print(text, strategy, {0, 1});
  EXPECT_EQ(text.str(), "DIFF_GE_4(2)");
  text.str("");
  difference_ge_propagator(-3).rule({iset("8:31"), iset()})->print(text, strategy, {0, 1});
  EXPECT_EQ(text.str(), "DIFF_GE_minus_3(7)");
}

TEST(comparison_propagators, reified_and_conditional_edges) {
  // b fixed to 1 on equal single values stays CONSISTENT; fixed to 0 it is VALID.
  is_equal_propagator is_equal;
  constraint_explicit_info same = make_view({iset("1"), iset("4"), iset("4")});
  EXPECT_EQ(is_equal.propagate(same), propagation_types::CONSISTENT);
  constraint_explicit_info differ = make_view({iset("0"), iset("4"), iset("3:5")});
  EXPECT_EQ(is_equal.propagate(differ), propagation_types::VALID);
  EXPECT_EQ(differ.domain(2), iset("3,5"));
  constraint_explicit_info forced = make_view({iset("0:1"), iset("4"), iset("4")});
  EXPECT_EQ(is_equal.propagate(forced), propagation_types::CONSISTENT);
  EXPECT_EQ(forced.domain(0), iset("1"));
  // Values of b and c outside 0..1 are dropped.
  constraint_explicit_info wide = make_view({iset("0:7"), iset("2"), iset("5")});
  EXPECT_EQ(is_equal.propagate(wide), propagation_types::VALID);
  EXPECT_EQ(wide.domain(0), iset("0"));
  if_then_else_propagator ite;
  constraint_explicit_info cond = make_view({iset("0:9"), iset("0:5"), iset("2:3"), iset("20")});
  EXPECT_EQ(ite.propagate(cond), propagation_types::CONSISTENT);
  EXPECT_EQ(cond.domains(), (domain_list{iset("2:3"), iset("1"), iset("2:3"), iset("20")}));
  constraint_explicit_info open = make_view({iset("0:9"), iset("0:5"), iset("2:3"), iset("7")});
  EXPECT_EQ(ite.propagate(open), propagation_types::CONSISTENT);
  EXPECT_EQ(open.domains(), (domain_list{iset("2,3,7"), iset("0,1"), iset("2:3"), iset("7")}));
  constraint_explicit_info fixed = make_view({iset("0:9"), iset("0"), iset("2:3"), iset("7")});
  EXPECT_EQ(ite.propagate(fixed), propagation_types::VALID);
  EXPECT_EQ(fixed.domain(0), iset("7"));
  constraint_explicit_info beyond = make_view({iset("0:9"), iset("2:9"), iset("2:3"), iset("7")});
  EXPECT_EQ(ite.propagate(beyond), propagation_types::UNSAT);
}

TEST(comparison_propagators, print_texts) {
  constraint_explicit_info two(2), three(3), four(4);
  EXPECT_EQ(text_of(equal_propagator(), nullptr), "equal");
  EXPECT_EQ(text_of(equal_propagator(), &two), "constraint(P0==P1)");
  EXPECT_EQ(text_of(difference_ge_propagator(3), nullptr), "diff_ge_3");
  EXPECT_EQ(text_of(difference_ge_propagator(-3), nullptr), "diff_ge_minus_3");
  EXPECT_EQ(text_of(difference_ge_propagator(-3), &two), "constraint(P0-P1>=-3)");
  EXPECT_EQ(text_of(is_equal_propagator(), nullptr), "is_equal");
  EXPECT_EQ(text_of(is_equal_propagator(), &three), "constraint(P0 iff P1 = P2)");
  EXPECT_EQ(text_of(if_then_else_propagator(), nullptr), "if_then_else");
  EXPECT_EQ(text_of(if_then_else_propagator(), &four), "constraintP0=(P1 ? P2 : P3)");
}

//==== combination ==============================================================

// Two differences: the middle pivot in either orientation (transitivity), the
// circular pair, and arbitrary sharing.
TEST(comparison_propagators, difference_combinations_are_implied) {
  const unsigned seed = 21;
  std::mt19937 gen(seed);
  int built = 0, middle = 0;
  for (int round = 0; round < 600; ++round) {
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
    const std::string context = seed_context(seed, round) + " c0 " + std::to_string(c0) +
                                " c1 " + std::to_string(c1) + " map " +
                                show(assignment(map.begin(), map.end())) + " pivot " +
                                std::to_string(pivot);
    const combination c = run_combine(left, left_domains, right, right_domains, map, pivot);
    if (!c.result) continue;
    ++built;
    middle += round % 4 < 2;
    // a - b >= 0 and b - a >= 0 become a = b, which keeps the pivot.
    const bool circular_equal = dynamic_cast<const equal_propagator*>(c.result.get()) != nullptr;
    check_combination(left, 2, right, 2, map, pivot, c, context, circular_equal);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(built, 100);
  EXPECT_GT(middle, 50);
}

TEST(comparison_propagators, difference_combination_edges) {
  const domain_list wide{iset("0:31"), iset("0:31")};
  const difference_ge_propagator plus2(2), minus2(-2), minus3(-3), zero(0);
  // a - b >= 2 and b - a >= -1: together false, the empty clause.
  combination c = run_combine(plus2, wide, difference_ge_propagator(-1), wide, {1, 0}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_TRUE(c.out.empty());
  constraint_explicit_info none(0);
  EXPECT_EQ(c.result->init(none), propagation_types::UNSAT);
  // c0 + c1 = 0 with c0 not 0: no equality with an offset.
  EXPECT_FALSE(run_combine(plus2, wide, minus2, wide, {1, 0}, 0).result);
  // Both 0: the equality.
  c = run_combine(zero, wide, zero, wide, {1, 0}, 1);
  ASSERT_TRUE(c.result);
  EXPECT_TRUE(dynamic_cast<equal_propagator*>(c.result.get()));
  EXPECT_EQ(c.out, (std::vector<unsigned>{0, 1}));
  // A sum beyond 32 bits is refused.
  EXPECT_FALSE(run_combine(difference_ge_propagator(INT_MAX), wide, difference_ge_propagator(1),
                           wide, {1, 2}, 0)
                   .result);
  // The plain sum keeps the conflict: a <= 9, z >= 5, a - p >= 2, p - z >= 3.
  c = run_combine(plus2, {iset("0:9"), iset("0:31")}, difference_ge_propagator(3),
                  {iset("0:31"), iset("5:31")}, {1, 2}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(text_of(*c.result, nullptr), "diff_ge_5");
  EXPECT_EQ(c.out, (std::vector<unsigned>{0, 2}));
  // Here the plain sum would hold on the domains (a <= 20): refused.
  EXPECT_FALSE(run_combine(plus2, {iset("0:20"), iset("0:31")}, difference_ge_propagator(3),
                           {iset("0:31"), iset("5:31")}, {1, 2}, 0)
                   .result);
  // The other orientation: p - a >= -3 (right), a - b >= 2 (left), pivot a.
  c = run_combine(plus2, {iset("0:31"), iset("25:31")}, minus3, {iset("0:20"), iset("0:31")},
                  {2, 0}, 1);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(text_of(*c.result, nullptr), "diff_ge_minus_1");
  EXPECT_EQ(c.out, (std::vector<unsigned>{2, 1}));
  // Neither a middle nor a circular pivot.
  EXPECT_FALSE(run_combine(plus2, wide, plus2, wide, {0, 2}, 0).result);
  // A difference doesn't combine with a sum from the left.
  EXPECT_FALSE(plus2.may_combine(linear_combination_ge_propagator(1, {1, 1})));
}

// The equality substitutes its partner for the pivot in any constraint, and any
// constraint hands an equality on the right to it.
TEST(comparison_propagators, equal_combinations_are_implied) {
  const unsigned seed = 22;
  std::mt19937 gen(seed);
  int built = 0, refused = 0, turned = 0;
  const iset universe = iset::clipped_range(0, 6);
  for (int round = 0; round < 1000; ++round) {
    std::unique_ptr<constraint_propagator> other;
    unsigned arity = 2;
    switch (round % 7) {
      case 0: other = std::make_unique<difference_ge_propagator>(int(gen() % 13) - 6); break;
      case 1:
        arity = 3;
        other = std::make_unique<linear_combination_ge_propagator>(
            int(gen() % 21) - 5, std::vector<int>{int(gen() % 5) - 2, 2, -1});
        break;
      case 2: {
        arity = 3;
        domain_list literals;
        for (unsigned i = 0; i < arity; ++i) literals.push_back(random_domain(gen, 10, 5));
        other = std::make_unique<clause_propagator>(literals);
        break;
      }
      case 3: arity = 3; other = std::make_unique<is_equal_propagator>(); break;
      case 4: arity = 4; other = std::make_unique<if_then_else_propagator>(); break;
      case 5: arity = 3; other = std::make_unique<sum_mod_propagator>(2, int(gen() % 2)); break;
      default: other = std::make_unique<equal_propagator>();
    }
    domain_list other_domains, eq_domains{random_domain(gen, 10, 4), random_domain(gen, 10, 4)};
    for (unsigned i = 0; i < arity; ++i)
      other_domains.push_back(round % 7 == 5 ? random_domain(gen, 1, 1) : random_domain(gen, 10, 4));
    const unsigned shared = gen() % arity;
    const unsigned eq_side = gen() % 2;
    const bool partner_too = gen() % 8 == 0 && arity > 1;
    const unsigned partner = (shared + 1) % arity;
    const std::string context = seed_context(seed, round) + " " + text_of(*other, nullptr);
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
      check_combination(eq, 2, *other, arity, map, shared, c, "eq left " + context, false,
                        arity > 2 ? universe : iset());
    }
    // Equality on the right, the other constraint on the left.
    if (!other->may_combine(eq)) continue;
    std::vector<unsigned> back{arity + 0, arity + 1};
    back[eq_side] = shared;
    if (partner_too) back[1 - eq_side] = partner;
    c = run_combine(*other, other_domains, eq, eq_domains, back, eq_side);
    if (c.result) {
      ++turned;
      check_combination(*other, arity, eq, 2, back, eq_side, c, "eq right " + context,
                        partner_too, arity > 2 ? universe : iset());
    }
    if (::testing::Test::HasFailure()) return;
  }
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
  combination c = run_combine(is_equal, {iset("0"), iset("3"), iset("0:9")}, eq,
                              {iset("0:9"), iset("3")}, {2, 4}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{0, 1, 4}));
  EXPECT_TRUE(dynamic_cast<is_equal_propagator*>(c.result.get()));
  // The partner already in the left constraint: null.
  EXPECT_FALSE(run_combine(is_equal, {iset("0"), iset("3"), iset("0:9")}, eq,
                           {iset("0:9"), iset("3")}, {2, 1}, 0)
                   .result);
}

TEST(comparison_propagators, new_propagator_by_literal_count) {
  // Through specifications of results: literals first, then the base.
  const difference_ge_propagator diff(4);
  disjunction_specification bare;
  bare.own_constraint(std::make_unique<difference_ge_propagator>(4));
  bare.add_constraint_param(5);
  bare.add_constraint_param(2);
  std::vector<unsigned> params{9};
  std::unique_ptr<constraint_propagator> p = diff.new_propagator(bare, params);
  ASSERT_TRUE(p);
  EXPECT_EQ(params, (std::vector<unsigned>{5, 2}));
  EXPECT_EQ(text_of(*p, nullptr), "diff_ge_4");
  EXPECT_FALSE(bare.owns_constraint());  // taken over

  for (unsigned count = 1; count <= 2; ++count) {
    disjunction_specification form;
    form.add_literal(7, iset("1:3"));
    if (count == 2) form.add_literal(3, iset("0"));
    form.own_constraint(std::make_unique<difference_ge_propagator>(4));
    form.add_constraint_param(5);
    form.add_constraint_param(2);
    p = diff.new_propagator(form, params);
    auto* disjoint = dynamic_cast<difference_ge_or_clause_propagator*>(p.get());
    ASSERT_TRUE(disjoint);
    EXPECT_EQ(disjoint->constant(), 4);
    if (count == 1) {
      EXPECT_EQ(params, (std::vector<unsigned>{5, 2, 7}));
      EXPECT_EQ(disjoint->literals(), (domain_list{iset("1:3")}));
    } else {
      EXPECT_EQ(params, (std::vector<unsigned>{5, 2, 7, 3}));
      EXPECT_EQ(disjoint->literals(), (domain_list{iset("1:3"), iset("0")}));
    }
    EXPECT_EQ(disjoint->count_params(), 2 + count);
  }

  disjunction_specification eq_spec;
  eq_spec.add_literal(4, iset("2"));
  eq_spec.own_constraint(std::make_unique<equal_propagator>());
  eq_spec.add_constraint_param(0);
  eq_spec.add_constraint_param(1);
  p = equal_propagator().new_propagator(eq_spec, params);
  ASSERT_TRUE((dynamic_cast<disjoint_propagator<equal_propagator, clause_propagation_algo>*>(p.get())));
  EXPECT_EQ(params, (std::vector<unsigned>{0, 1, 4}));
  EXPECT_EQ(text_of(*p, nullptr), "(equal || [P0=2])\n");
}

}  // namespace
}  // namespace zelk
