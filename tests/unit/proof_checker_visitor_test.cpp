// The check of UNSAT answers: a valid refutation passes, and corrupted records
// or steps are each caught with their complaint, all of them in one run.
#include "impl/proof_checker_visitor.h"

#include <gtest/gtest.h>

#include "unit/test_support.h"

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace zelk {
namespace {

using namespace test_support;
constexpr unsigned int X = refutation_model::X, Y = refutation_model::Y,
                       Z = refutation_model::Z, W = refutation_model::W;

TEST(proof_checker_visitor, catches_corrupted_records_and_lists_them_all) {
  const std::string stored = "clause[4] has different literals than previously\n";
  const std::string domain =
      "Resolution of clause[5] with initial domain of z does not empty the domain\n";
  struct corruption {
    unsigned int pivot_of_first;
    iset z_literal, stored_first;
    std::string complaints;
  };
  // Valid; learned clause held is not the one derived; a step on the wrong pivot;
  // a final literal that the initial domain allows; two faults at once.
  for (const corruption& c : {corruption{X, at_least(5), at_least(2), ""},
                              corruption{X, at_least(5), at_least(3), stored},
                              corruption{Y, at_least(5), at_least(2), stored},
                              corruption{X, at_least(1), at_least(2), domain},
                              corruption{X, at_least(1), at_least(3), stored + domain}}) {
    refutation_model m;
    m.record(c.pivot_of_first, c.z_literal, c.stored_first);
    // The solver's check writes its complaints to standard output by default.
    testing::internal::CaptureStdout();
    EXPECT_EQ(solver_test_access::is_correctly_unsat(m.s), c.complaints.empty());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.complaints);
    // Without a complaint stream the verdict stands.
    proof_checker_visitor quiet(*m.collector, nullptr);
    m.collector->traverse_proof(quiet);
    EXPECT_EQ(quiet.result(), c.complaints.empty());
  }
}

TEST(proof_checker_visitor, judges_each_step_on_its_own) {
  refutation_model m;
  m.record();
  // 1 is [x>=2, y>=2, w=3], -1 the explanation [y>=2, x<=1], -2 [z>=5, y<=1, x>=5].
  const clause_data one = make({{X, at_least(2)}, {Y, at_least(2)}, {W, S({3})}});
  const clause_data minus_one = make({{Y, at_least(2)}, {X, at_most(1)}});
  const clause_data y_w = make({{Y, at_least(2)}, {W, S({3})}});
  std::ostringstream os;
  proof_checker_visitor checker(*m.collector, &os);
  // Correct; the resolvent has no pivot literal, since the pivot sets do not meet.
  checker.visit_resolution(X, 1, one, -1, minus_one, -10, y_w);
  EXPECT_TRUE(checker.result());
  // A premise that is not the clause the solver holds (4 is [y>=2]); from then on
  // 4 means what was passed, so the right clause is a change of meaning.
  for (const iset& y : {at_least(3), at_least(2)})
    checker.visit_resolution(Y, 4, make({{Y, y}}), -2,
                             make({{Z, at_least(5)}, {Y, at_most(1)}, {X, at_least(5)}}), -11,
                             make({{X, at_least(5)}, {Z, at_least(5)}}));
  // Wrong result; then a step on the wrong pivot.
  checker.visit_resolution(X, 1, one, -1, minus_one, -12, make({{Y, at_least(3)}}));
  checker.visit_resolution(Y, 1, one, -1, minus_one, -13, y_w);
  // An id that changes its meaning; an initial step that leaves a literal the
  // domain allows; one whose result is not the rest of the clause.
  checker.visit_initial_resolution(W, at_most(2), -10, y_w, -11, make({{Y, at_least(2)}}));
  checker.visit_initial_resolution(Y, at_most(3), -12, make({{Y, at_least(3)}}), -14,
                                   clause_data());
  checker.visit_initial_resolution(W, at_most(2), -10, y_w, -15, make({{X, S({0})}}));
  EXPECT_FALSE(checker.result());
  EXPECT_EQ(os.str(),
            "clause[4] has different literals than passed by the proof algorithm\n"
            "clause[4] has different literals than previously\n"
            "Resolution between clause[1] and clause[-1] gave wrong clause[-12]\n"
            "Resolution between clause[1] and clause[-1] gave wrong clause[-13]\n"
            "clause[-11] has different literals than previously\n"
            "Resolution of clause[-12] with initial domain of y does not empty the domain\n"
            "Resolution of clause[-10] with initial domain of w is different than passed "
            "clause[-15]\n");
}

TEST(proof_checker_visitor, explanations_come_from_the_collector) {
  refutation_model m;
  m.record();
  std::ostringstream os;
  proof_checker_visitor checker(*m.collector, &os);
  // -2 is the explanation of 2: [z>=5, y<=1, x>=5]. Met as a premise without a
  // visit, it is compared with the collector's clause.
  const clause_data y_at_least_2 = make({{Y, at_least(2)}});
  checker.visit_resolution(Y, -2, make({{Z, at_least(5)}, {Y, at_most(2)}, {X, at_least(5)}}), 4,
                           y_at_least_2, -20,
                           make({{X, at_least(5)}, {Z, at_least(5)}, {Y, S({2})}}));
  EXPECT_EQ(os.str(), "clause[-2] has different literals than passed by the proof algorithm\n");
  // A visited explanation is the collector's clause, whatever was passed before.
  os.str("");
  checker.visit_explanation(-2);
  checker.visit_resolution(Y, -2, make({{Z, at_least(5)}, {Y, at_most(1)}, {X, at_least(5)}}), 4,
                           y_at_least_2, -21, make({{X, at_least(5)}, {Z, at_least(5)}}));
  EXPECT_EQ(os.str(), "");
}

TEST(proof_checker_visitor, clauses_with_repeated_variables) {
  refutation_model m;
  m.add_clause({S({1}), S({2}), S({0})}, {X, X, Y});       // 4
  m.add_clause({S({1, 2}), S({0})}, {X, Z});               // 5
  m.add_clause({at_least(5), S({3}), S({2})}, {Z, Y, Z});  // 6
  std::ostringstream os;
  proof_checker_visitor checker(*m.collector, &os);
  // Both pivot literals of the left side count: x in {1, 2} survives; a resolvent
  // that claims more than that does not pass.
  const clause_data left = make({{X, S({1})}, {X, S({2})}, {Y, S({0})}});
  const clause_data right = make({{X, S({1, 2})}, {Z, S({0})}});
  checker.visit_resolution(X, 4, left, 5, right, -1,
                           make({{Y, S({0})}, {Z, S({0})}, {X, S({1, 2})}}));
  EXPECT_TRUE(checker.result());
  checker.visit_resolution(X, 4, left, 5, right, -2,
                           make({{Y, S({0})}, {Z, S({0})}, {X, S({2})}}));
  EXPECT_EQ(os.str(), "Resolution between clause[4] and clause[5] gave wrong clause[-2]\n");
  // An initial step removes every literal of its variable.
  proof_checker_visitor second(*m.collector, &os);
  second.visit_initial_resolution(Z, at_most(1), 6,
                                  make({{Z, at_least(5)}, {Y, S({3})}, {Z, S({2})}}), -3,
                                  make({{Y, S({3})}}));
  EXPECT_TRUE(second.result());
}

// Resolvents live only within the analysis that made them: once it has given its
// learned clause, one taken up again is refused, not looked up in the collector.
TEST(proof_checker_visitor, a_resolvent_taken_up_after_its_analysis_is_refused) {
  refutation_model m;
  m.record();
  const clause_data one = make({{X, at_least(2)}, {Y, at_least(2)}, {W, S({3})}});
  const clause_data minus_one = make({{Y, at_least(2)}, {X, at_most(1)}});
  const clause_data y_w = make({{Y, at_least(2)}, {W, S({3})}});
  const clause_data zero = make({{W, at_most(2)}, {Y, at_least(2)}});
  const clause_data y = make({{Y, at_least(2)}});
  proof_checker_visitor checker(*m.collector, nullptr);
  checker.visit_explanation(-1);
  checker.visit_resolution(X, 1, one, -1, minus_one, -3, y_w);
  checker.visit_resolution(W, -3, y_w, 0, zero, 4, y);
  EXPECT_TRUE(checker.result());
  // The learned clause stays known; the resolvent -3 does not.
  checker.visit_resolution(W, 4, y, 0, zero, -7, y);
  EXPECT_TRUE(checker.result());
  checker.visit_resolution(W, -3, y_w, 0, zero, -8, y);
  EXPECT_FALSE(checker.result());
}

// The verdict on a resolvent, against clause_data::equivalent: the true resolvent
// in any order, its literals split or joined, with empty literals, passes; a random
// change passes exactly when it leaves an equivalent clause.
TEST(proof_checker_visitor, judges_resolvents_as_the_normal_form_does) {
  std::mt19937 rng(11);
  const auto random_set = [&] { return iset::from_bits(std::uint32_t(1 + rng() % 15)); };
  unsigned int refused = 0;
  for (int round = 0; round < 400; ++round) {
    refutation_model m;
    std::vector<iset> sets[2];
    std::vector<unsigned int> vars[2];
    clause_data premise[2];
    for (int side = 0; side < 2; ++side) {
      for (unsigned int i = 1 + rng() % 4; i > 0; --i) {
        vars[side].push_back(unsigned(rng() % 4));
        sets[side].push_back(random_set());
        premise[side].add(vars[side].back(), sets[side].back());
      }
      constraint_connectivity_info& info =
          m.s.add_constraint(std::make_unique<clause_propagator>(sets[side]));
      for (unsigned int v : vars[side]) info << v;
    }
    const unsigned int pivot = vars[0][0];
    clause_data truth;
    iset a, b;
    for (int side = 0; side < 2; ++side)
      for (const literal_data& l : premise[side]) {
        if (l.variable != pivot)
          truth.add(l);
        else
          (side == 0 ? a : b) |= l.set;
      }
    truth.add(pivot, a & b);
    for (int variant = 0; variant < 4; ++variant) {
      clause_data result;
      for (const literal_data& l : truth) {
        // Split a literal in two, or add an empty one, now and then.
        if (rng() % 3 == 0 && l.set.size() > 1) {
          result.add(l.variable, iset::from_bits(l.set.bits() & (l.set.bits() - 1)));
          result.add(l.variable, iset::from_bits(l.set.bits() & ~(l.set.bits() - 1)));
        } else {
          result.add(l);
        }
        if (rng() % 4 == 0) result.add(unsigned(rng() % 4), iset());
      }
      std::shuffle(result.literals().begin(), result.literals().end(), rng);
      if (variant > 0 && result.size() > 0) {
        literal_data& l = result[rng() % result.size()];
        if (variant == 1) l.set = iset::from_bits(l.set.bits() ^ (1u << (rng() % 4)));
        if (variant == 2) l.variable = unsigned(rng() % 4);
        if (variant == 3) result.literals().pop_back();
      }
      proof_checker_visitor checker(*m.collector, nullptr);
      checker.visit_resolution(pivot, 4, premise[0], 5, premise[1], -100, result);
      EXPECT_EQ(checker.result(), truth.equivalent(result)) << "round " << round;
      refused += checker.result() ? 0 : 1;
    }
  }
  EXPECT_GT(refused, 300u);
}

// Pigeons into one hole fewer as clauses, refuted by the solver with a proof.
void pigeonhole(solver& s, unsigned int pigeons) {
  const unsigned int holes = pigeons - 1;
  for (unsigned int i = 0; i < pigeons * holes; ++i) s.add_var(at_most(1));
  for (unsigned int p = 0; p < pigeons; ++p) {
    constraint_connectivity_info& info =
        s.add_constraint(std::make_unique<clause_propagator>(std::vector<iset>(holes, S({1}))));
    for (unsigned int h = 0; h < holes; ++h) info << p * holes + h;
  }
  for (unsigned int h = 0; h < holes; ++h)
    for (unsigned int p = 0; p < pigeons; ++p)
      for (unsigned int q = p + 1; q < pigeons; ++q)
        s.add_constraint(std::make_unique<clause_propagator>(std::vector<iset>(2, S({0}))))
            << p * holes + h << q * holes + h;
  s.should_intersect_with_ground = false;
  s.erase_after_backtracks = 0;
  s.produce_proof(true);
}

// The learned constraints that the refutation takes as premises.
class learned_premises : public proof_visitor {
 public:
  explicit learned_premises(unsigned int model_size) : m_model_size(model_size) {}
  void visit_explanation(int) override {}
  void visit_resolution(unsigned int, int left_id, const clause_data&, int right_id,
                        const clause_data&, int, const clause_data&) override {
    note(left_id), note(right_id);
  }
  void visit_initial_resolution(unsigned int, const small_model::iset&, int id,
                                const clause_data&, int, const clause_data&) override {
    note(id);
  }
  std::set<unsigned int> ids;

 private:
  void note(int id) {
    if (id >= int(m_model_size)) ids.insert(unsigned(id));
  }
  unsigned int m_model_size;
};

// A learned clause kept for the replay (saved, then erased from the solver) that is
// not what was derived must be refused, whichever literal changed and however;
// the same clause kept as derived passes.
TEST(proof_checker_visitor, refuses_a_refutation_whose_stored_clause_was_changed) {
  for (int change = 0; change < 3; ++change) {
    solver s;
    pigeonhole(s, 5);
    const unsigned int model_size = s.num_constraints();
    std::ostringstream out;
    ASSERT_EQ(s.solve(&out), solver::UNSAT);
    proof_collector& collector = dynamic_cast<proof_collector&>(s.proof_collector());
    learned_premises premises(model_size);
    collector.traverse_proof(premises);
    ASSERT_GE(premises.ids.size(), 2u);
    const unsigned int kept = *premises.ids.begin(), changed = *premises.ids.rbegin();
    clause_data clause;
    collector.get_solver_clause(kept, clause);
    collector.save_clause(kept, clause);
    solver_test_access::erase(s, kept);
    collector.prepare_to_print();
    ASSERT_TRUE(solver_test_access::is_correctly_unsat(s));

    collector.get_solver_clause(changed, clause);
    literal_data& l = clause[unsigned(change) % clause.size()];
    if (change == 0) l.set = at_most(1);  // any value of the domain: always true
    if (change == 1) l.variable = l.variable == 0 ? 1 : 0;            // another variable
    clause_data stronger;  // change 2: one literal left out
    for (std::size_t i = 0; i < clause.size(); ++i)
      if (i != 2 % clause.size()) stronger.add(clause[i]);
    collector.save_clause(changed, change == 2 ? stronger : clause);
    solver_test_access::erase(s, changed);
    collector.prepare_to_print();
    proof_checker_visitor checker(collector, nullptr);
    collector.traverse_proof(checker);
    EXPECT_FALSE(checker.result()) << "change " << change;
  }
}

}  // namespace
}  // namespace zelk
