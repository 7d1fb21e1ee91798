// Conflict learning on small random models, checked by brute force: answers agree
// with enumeration under every analysis option, each also with its refutations
// checked, every learned constraint is implied by the model, and every explanation
// given during analysis is implied by its constraint (explanation_tester).
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "unit/brute_force.h"
#include "unit/random_model.h"

namespace zelk {
namespace {

using namespace test_support;

struct options {
  unsigned int relaxation_mode = 2;
  bool relax_cause = false;
  bool combine = true;
  bool augment = true;
  bool ages = true;
  bool ground = true;
  unsigned int restart = 16;
  bool proof = false;  // record and check the refutation of every UNSAT answer
  unsigned int erase_after = 1u << 30;  // by default every learned constraint stays for the check
  void apply(solver& s) const {
    s.relaxation_mode = relaxation_mode;
    s.relax_conflict_cause = relax_cause;
    s.combine_constraints = combine;
    s.augment_explanations = augment;
    s.check_domain_ages = ages;
    s.should_intersect_with_ground = ground;
    s.restart_threshold = restart;
    if (proof) {
      s.should_intersect_with_ground = false;
      s.produce_proof(true);
      s.validate_unsat = true;
    }
  }
};

// Solves the model and checks the answer and every learned constraint.
std::uint64_t g_non_fallback_combines = 0;
unsigned int g_checked_refutations = 0;

void check_run(const model& m, const options& o, unsigned int seed,
               explanation_tester::report* wrap = nullptr) {
  solver s;
  m.build(s, wrap);
  o.apply(s);
  s.erase_after_backtracks = o.erase_after;
  const std::vector<std::vector<int>> expected = m.solutions(s);
  std::ostringstream out;
  solver::result_type r = solver::SAT;
  ASSERT_NO_THROW(r = s.solve(&out)) << "seed " << seed << "\n" << out.str();
  g_non_fallback_combines += s.non_fallback_combines();
  ASSERT_EQ(r, expected.empty() ? solver::UNSAT : solver::SAT)
      << "seed " << seed << " mode " << o.relaxation_mode << " combine " << o.combine;
  // A refutation that the check refused has thrown above.
  g_checked_refutations += o.proof && r == solver::UNSAT;
  if (r == solver::SAT) {
    std::vector<int> values;
    for (unsigned int v = 0; v < s.num_variables(); ++v) {
      ASSERT_TRUE(s.stack().domain(v).is_singleton()) << "seed " << seed;
      values.push_back(s.stack().domain(v).min());
    }
    for (unsigned int c = 0; c < m.items.size(); ++c)
      ASSERT_TRUE(model::holds(s, c, values)) << "seed " << seed << " constraint " << c;
  }
  for (unsigned int c = unsigned(m.items.size()); c < s.num_constraints(); ++c) {
    if (!s.propagator(c)) continue;
    for (const std::vector<int>& solution : expected) {
      if (model::holds(s, c, solution)) continue;
      std::ostringstream text;
      s.print_constraint(text, c);
      FAIL() << "seed " << seed << ": learned constraint " << text.str()
             << " excludes a solution";
    }
  }
}

TEST(learning, learned_constraints_are_implied_and_answers_agree) {
  g_non_fallback_combines = 0;
  for (unsigned int seed = 1; seed <= 400; ++seed) {
    const model m = random_model(seed);
    check_run(m, options(), seed);
    if (testing::Test::HasFatalFailure()) return;
  }
  // Combination must be exercised, not only fallen back from.
  EXPECT_GT(g_non_fallback_combines, 0u);
}

TEST(learning, every_analysis_option_gives_the_same_answers) {
  std::vector<options> variants;
  for (unsigned int mode = 0; mode <= 2; ++mode) {
    for (int flags = 0; flags < 8; ++flags) {
      options o;
      o.relaxation_mode = mode;
      o.relax_cause = flags & 1;
      o.combine = !(flags & 2);
      o.augment = !(flags & 4);
      variants.push_back(o);
    }
  }
  options no_ages;
  no_ages.ages = false;
  variants.push_back(no_ages);
  options no_ground;
  no_ground.ground = false;
  variants.push_back(no_ground);
  options no_restart;
  no_restart.restart = 0;
  variants.push_back(no_restart);
  // Each set again with its refutations checked (-G -V), and once with learned
  // constraints erased early, so that the check replays them from saved clauses.
  const std::size_t unchecked = variants.size();
  for (std::size_t i = 0; i < unchecked; ++i) {
    options checked = variants[i];
    checked.proof = true;
    variants.push_back(checked);
  }
  options erasing;
  erasing.proof = true;
  erasing.erase_after = 2;
  variants.push_back(erasing);
  g_checked_refutations = 0;
  for (unsigned int seed = 1000; seed < 1000 + brute_force::campaign_rounds(80); ++seed) {
    const model m = random_model(seed);
    for (const options& o : variants) {
      check_run(m, o, seed);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
  EXPECT_GT(g_checked_refutations, unsigned(brute_force::campaign_least(20, 80)) * (unchecked + 1));
}

TEST(learning, explanations_given_during_analysis_are_implied) {
  explanation_tester::report report;
  for (unsigned int seed = 2000; seed < 2300; ++seed) {
    const model m = random_model(seed);
    options o;
    o.combine = false;  // the wrapper hides the propagator's type from combination
    check_run(m, o, seed, &report);
    if (testing::Test::HasFatalFailure()) return;
  }
  EXPECT_GT(report.checked, 100u);
  EXPECT_EQ(report.faults, 0u) << report.first_fault;
}

// Reified comparisons, the guarded propagators among them, under each analysis
// option of the command line on its own: -m, -j 0, -j 1, -J, -A -g, and a checked
// proof; explanations checked by brute force on the way (combination off, since
// the wrapper hides the propagator's type).
TEST(learning, reified_comparisons_agree_under_every_analysis_option) {
  std::vector<options> variants(7);
  variants[1].combine = false;
  variants[2].relaxation_mode = 0;
  variants[3].relaxation_mode = 1;
  variants[4].relax_cause = true;
  variants[5].augment = false, variants[5].ages = false;
  variants[6].proof = true;
  explanation_tester::report report;
  for (unsigned int seed = 3000; seed < 3000 + brute_force::campaign_rounds(250); ++seed) {
    const model m = random_comparison_model(seed);
    for (const options& o : variants) {
      check_run(m, o, seed);
      if (testing::Test::HasFatalFailure()) return;
    }
    options wrapped;
    wrapped.combine = false;
    check_run(m, wrapped, seed, &report);
    if (testing::Test::HasFatalFailure()) return;
  }
  EXPECT_GT(report.checked, unsigned(brute_force::campaign_least(100, 250)));
  EXPECT_EQ(report.faults, 0u) << report.first_fault;
}

// Resolving a guarded difference with a difference leaves one literal and a
// difference: combination must learn guarded forms, not only clauses.
TEST(learning, combination_learns_guarded_comparisons) {
  unsigned int guarded = 0;
  for (unsigned int seed = 3000; seed < 3250; ++seed) {
    const model m = random_comparison_model(seed);
    solver s;
    m.build(s);
    options().apply(s);
    s.erase_after_backtracks = 1u << 30;
    std::ostringstream out;
    (void)s.solve(&out);
    for (unsigned int c = unsigned(m.items.size()); c < s.num_constraints(); ++c) {
      const constraint_propagator* p = s.propagator(c);
      guarded += dynamic_cast<const literal_or_difference_ge_propagator*>(p) ||
                 dynamic_cast<const literal_or_equal_propagator*>(p);
    }
  }
  EXPECT_GT(guarded, 0u);
}

TEST(learning, learning_cuts_the_search_of_a_pigeonhole) {
  // 6 pigeons into 5 holes as clauses: every analysis learns.
  const unsigned int pigeons = 6, holes = 5;
  const auto var = [&](unsigned int p, unsigned int h) { return p * holes + h; };
  solver s;
  for (unsigned int i = 0; i < pigeons * holes; ++i) s.add_var(iset::clipped_range(0, 1));
  for (unsigned int p = 0; p < pigeons; ++p) {
    std::vector<iset> lits(holes, iset::singleton(1));
    constraint_connectivity_info& info = s.add_constraint(std::make_unique<clause_propagator>(lits));
    for (unsigned int h = 0; h < holes; ++h) info << var(p, h);
  }
  for (unsigned int h = 0; h < holes; ++h)
    for (unsigned int p = 0; p < pigeons; ++p)
      for (unsigned int q = p + 1; q < pigeons; ++q)
        s.add_constraint(std::make_unique<clause_propagator>(
            std::initializer_list<iset>{iset::singleton(0), iset::singleton(0)}))
            << var(p, h) << var(q, h);
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::UNSAT);
  EXPECT_GT(s.num_constraints(), pigeons + holes * pigeons * (pigeons - 1) / 2);
}

}  // namespace
}  // namespace zelk
