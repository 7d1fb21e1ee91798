// The check of UNSAT answers: a valid refutation passes, and corrupted records
// or steps are each caught with their complaint, all of them in one run.
#include "impl/proof_checker_visitor.h"

#include <gtest/gtest.h>

#include "unit/test_support.h"

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/explanation_generators.h"
#include "impl/proof_collector.h"
#include "impl/solver.h"

namespace zelk {

namespace {

using namespace test_support;

constexpr unsigned int X = 0, Y = 1, Z = 2;

// x, y in 0..3, z in 0..1; 0: clause [x<=1, y>=2], 1: clause [x>=2, y>=2],
// 2: a constraint over (y, z) that is not a clause. The refutation learns
// 3 = [y>=2] from 1 and 0, then 4 = [z>=5] from the explanation
// [y<=1, z>=5] of 2 and 3; the initial domain of z ends it.
struct refutation_model {
  refutation_model() {
    s.add_var(at_most(3), "x");
    s.add_var(at_most(3), "y");
    s.add_var(at_most(1), "z");
    add_clause({at_most(1), at_least(2)}, {X, Y});
    add_clause({at_least(2), at_least(2)}, {X, Y});
    s.add_constraint(std::make_unique<opaque_probe>()) << Y << Z;
    s.produce_proof(true);
    collector = &dynamic_cast<proof_collector&>(s.proof_collector());
  }

  void add_clause(std::initializer_list<iset> literals, std::initializer_list<unsigned> vars) {
    constraint_connectivity_info& info =
        s.add_constraint(std::make_unique<clause_propagator>(literals));
    for (unsigned int v : vars) info << v;
  }

  // `pivot_of_first` and the sets of the explanation and of the stored learned
  // clause 3 are the places where a test can corrupt the record.
  void record(unsigned int pivot_of_first = X, iset z_literal = at_least(5),
              iset stored_learned = at_least(2)) {
    collector->record_conflict(1, s.clause_literals(1), nullptr);
    collector->record_resolution(0, s.clause_literals(0), int(pivot_of_first), nullptr);
    collector->name_conflict_clause(3);
    add_clause({stored_learned}, {Y});
    collector->record_conflict(2, {at_most(1), z_literal}, nullptr);
    collector->record_resolution(3, s.clause_literals(3), int(Y), nullptr);
    collector->name_conflict_clause(4);
    add_clause({z_literal}, {Z});
    collector->prepare_to_print();
  }

  // Complaints of a traversal, and the verdict.
  std::string check(bool& verdict) const {
    std::ostringstream os;
    proof_checker_visitor checker(*collector, &os);
    collector->traverse_proof(checker);
    verdict = checker.result();
    return os.str();
  }

  solver s;
  proof_collector* collector = nullptr;
};

TEST(proof_checker_visitor, accepts_a_valid_refutation) {
  refutation_model m;
  m.record();
  bool verdict = false;
  EXPECT_EQ(m.check(verdict), "");
  EXPECT_TRUE(verdict);
  // The solver's own check writes to the proof stream, standard output by default.
  testing::internal::CaptureStdout();
  const bool solver_verdict = solver_test_access::is_correctly_unsat(m.s);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(solver_verdict);
}

TEST(proof_checker_visitor, catches_corrupted_records_and_lists_them_all) {
  {
    // The learned clause held by the solver is not the one its analysis derived.
    refutation_model m;
    m.record(X, at_least(5), at_least(3));
    bool verdict = true;
    EXPECT_EQ(m.check(verdict), "clause[3] has different literals than previously\n");
    EXPECT_FALSE(verdict);
  }
  {
    // A step recorded on the wrong pivot derives some other clause for 3.
    refutation_model m;
    m.record(Y);
    bool verdict = true;
    EXPECT_EQ(m.check(verdict), "clause[3] has different literals than previously\n");
    EXPECT_FALSE(verdict);
  }
  {
    // The final conflict keeps a literal that the initial domain allows.
    refutation_model m;
    m.record(X, at_least(1));
    bool verdict = true;
    EXPECT_EQ(m.check(verdict),
              "Resolution of clause[4] with initial domain of z does not empty the domain\n");
    EXPECT_FALSE(verdict);
  }
  {
    // Both at once: the check goes on after the first fault.
    refutation_model m;
    m.record(X, at_least(1), at_least(3));
    bool verdict = true;
    EXPECT_EQ(m.check(verdict),
              "clause[3] has different literals than previously\n"
              "Resolution of clause[4] with initial domain of z does not empty the domain\n");
    EXPECT_FALSE(verdict);
    testing::internal::CaptureStdout();
    const bool solver_verdict = solver_test_access::is_correctly_unsat(m.s);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(solver_verdict);
    EXPECT_NE(out.find("clause[3] has different literals than previously\n"), std::string::npos);
  }
}

TEST(proof_checker_visitor, judges_each_step_on_its_own) {
  refutation_model m;
  m.record();
  const clause_data left = make({{X, at_least(2)}, {Y, at_least(2)}});
  const clause_data right = make({{X, at_most(1)}, {Y, at_least(2)}});
  std::ostringstream os;
  proof_checker_visitor checker(*m.collector, &os);
  // Correct; the resolvent has no pivot literal, since the pivot sets do not meet.
  checker.visit_resolution(X, 1, left, 0, right, -10, make({{Y, at_least(2)}}));
  EXPECT_TRUE(checker.result());
  EXPECT_EQ(os.str(), "");
  // A premise that is not the clause the solver holds (3 is [y>=2]).
  checker.visit_resolution(Y, 3, make({{Y, at_least(3)}}), -1,
                           make({{Y, at_most(1)}, {Z, at_least(5)}}), -11,
                           make({{Z, at_least(5)}}));
  // From now on 3 means what was passed: the right clause is a change of meaning.
  checker.visit_resolution(Y, 3, make({{Y, at_least(2)}}), -1,
                           make({{Y, at_most(1)}, {Z, at_least(5)}}), -11,
                           make({{Z, at_least(5)}}));
  // Wrong result; then a step on the wrong pivot.
  checker.visit_resolution(X, 1, left, 0, right, -12, make({{Y, at_least(3)}}));
  checker.visit_resolution(Y, 1, left, 0, right, -13, make({{Y, at_least(2)}}));
  // An id that changes its meaning.
  checker.visit_initial_resolution(Y, at_most(1), -10, make({{Y, at_least(2)}}), -11,
                                   clause_data());
  // An initial step that leaves a literal which the domain does not refute, and
  // one whose result is not the rest of the clause.
  checker.visit_initial_resolution(Y, at_most(3), -12, make({{Y, at_least(3)}}), -14,
                                   clause_data());
  checker.visit_initial_resolution(Y, at_most(1), -10, make({{Y, at_least(2)}}), -15,
                                   make({{X, S({0})}}));
  EXPECT_FALSE(checker.result());
  EXPECT_EQ(os.str(),
            "clause[3] has different literals than passed by the proof algorithm\n"
            "clause[3] has different literals than previously\n"
            "Resolution between clause[1] and clause[0] gave wrong clause[-12]\n"
            "Resolution between clause[1] and clause[0] gave wrong clause[-13]\n"
            "clause[-11] has different literals than previously\n"
            "Resolution of clause[-12] with initial domain of y does not empty the domain\n"
            "Resolution of clause[-10] with initial domain of y is different than passed "
            "clause[-15]\n");
}

TEST(proof_checker_visitor, explanations_come_from_the_collector) {
  refutation_model m;
  m.record();
  std::ostringstream os;
  proof_checker_visitor checker(*m.collector, &os);
  // -1 is the explanation of 2: [y<=1, z>=5]. Met as a premise without a visit,
  // it is compared with the collector's clause.
  checker.visit_resolution(Y, -1, make({{Y, at_most(2)}, {Z, at_least(5)}}), 3,
                           make({{Y, at_least(2)}}), -20, make({{Z, at_least(5)}, {Y, S({2})}}));
  EXPECT_EQ(os.str(), "clause[-1] has different literals than passed by the proof algorithm\n");
  // A visited explanation is the collector's clause, whatever was passed before.
  os.str("");
  checker.visit_explanation(-1);
  checker.visit_resolution(Y, -1, make({{Z, at_least(5)}, {Y, at_most(1)}}), 3,
                           make({{Y, at_least(2)}}), -21, make({{Z, at_least(5)}}));
  EXPECT_EQ(os.str(), "");
}

TEST(proof_checker_visitor, clauses_with_repeated_variables) {
  solver s;
  s.add_var(at_most(3), "x");
  s.add_var(at_most(3), "y");
  s.add_var(at_most(1), "z");
  s.add_constraint(std::make_unique<clause_propagator>(
      std::initializer_list<iset>{S({1}), S({2}), S({0})})) << X << X << Y;
  s.add_constraint(std::make_unique<clause_propagator>(
      std::initializer_list<iset>{S({1, 2}), S({0})})) << X << Z;
  s.add_constraint(std::make_unique<clause_propagator>(
      std::initializer_list<iset>{at_least(5), S({3}), S({2})})) << Z << Y << Z;
  proof_collector collector(&s);
  std::ostringstream os;
  proof_checker_visitor checker(collector, &os);
  // Both pivot literals of the left side count: x in {1, 2} survives.
  checker.visit_resolution(X, 0, make({{X, S({1})}, {X, S({2})}, {Y, S({0})}}), 1,
                           make({{X, S({1, 2})}, {Z, S({0})}}), -1,
                           make({{Y, S({0})}, {Z, S({0})}, {X, S({1, 2})}}));
  EXPECT_TRUE(checker.result());
  // A resolvent that claims more than that does not pass.
  checker.visit_resolution(X, 0, make({{X, S({1})}, {X, S({2})}, {Y, S({0})}}), 1,
                           make({{X, S({1, 2})}, {Z, S({0})}}), -2,
                           make({{Y, S({0})}, {Z, S({0})}, {X, S({2})}}));
  EXPECT_EQ(os.str(), "Resolution between clause[0] and clause[1] gave wrong clause[-2]\n");
  // An initial step removes every literal of its variable.
  os.str("");
  proof_checker_visitor second(collector, &os);
  second.visit_initial_resolution(Z, at_most(1), 2,
                                  make({{Z, at_least(5)}, {Y, S({3})}, {Z, S({2})}}), -3,
                                  make({{Y, S({3})}}));
  EXPECT_TRUE(second.result());
  EXPECT_EQ(os.str(), "");
}

TEST(proof_checker_visitor, verdict_without_a_complaint_stream) {
  refutation_model m;
  m.record(X, at_least(1));
  proof_checker_visitor checker(*m.collector, nullptr);
  m.collector->traverse_proof(checker);
  EXPECT_FALSE(checker.result());
}

}  // namespace
}  // namespace zelk
