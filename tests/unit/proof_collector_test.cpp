// Recording and replay of proofs: hand-made analyses over a small solver, the
// proof text, clause lookup by id (live, saved, explanation), the resolvent, and
// the errors of missing records.
#include "impl/proof_collector.h"

#include <gtest/gtest.h>

#include "unit/test_support.h"

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/explanation_generators.h"
#include "impl/proof_print_visitor.h"
#include "impl/solver.h"

namespace zelk {

namespace {

using namespace test_support;

// An explanation in compact form: a fixed vector of sets.
class fixed_rule : public explanation_rule {
 public:
  explicit fixed_rule(std::vector<iset> sets) : m_sets(std::move(sets)) {}
  std::unique_ptr<explanation_rule> clone() const override {
    return std::make_unique<fixed_rule>(*this);
  }
  void get_explanation(std::vector<iset>& explanation) const override { explanation = m_sets; }
  void print(std::ostream& os, const variable_print_strategy& strategy,
             const std::vector<unsigned int>& variables) const override {
    os << "fixed(";
    for (std::size_t i = 0; i < variables.size(); ++i) {
      if (i) os << ",";
      strategy.print(os, variables[i]);
    }
    os << ")";
  }

 private:
  std::vector<iset> m_sets;
};

// Variables of the refutation model.
constexpr unsigned int X = 0, Y = 1, Z = 2, W = 3;

// x, y, w in 0..3, z in 0..1 and four model constraints:
//   0: clause [w<=2, y>=2]        1: clause [x>=2, y>=2, w=3]
//   2: opaque over (z, y, w, x)   3: opaque over (w, x, y)
// The refutation fed by record_refutation learns 4 = [y>=2] from 1, the
// explanation of 3 and 0, then 5 = [x>=5, z>=5] from the rule of 2 and 4; the
// initial domains of z and x finish it.
struct refutation_model {
  refutation_model() {
    s.add_var(at_most(3), "x");
    s.add_var(at_most(3), "y");
    s.add_var(at_most(1), "z");
    s.add_var(at_most(3), "w");
    s.add_constraint(std::make_unique<clause_propagator>(
        std::initializer_list<iset>{at_most(2), at_least(2)})) << W << Y;
    s.add_constraint(std::make_unique<clause_propagator>(
        std::initializer_list<iset>{at_least(2), at_least(2), S({3})})) << X << Y << W;
    s.add_constraint(std::make_unique<opaque_probe>()) << Z << Y << W << X;
    s.add_constraint(std::make_unique<opaque_probe>()) << W << X << Y;
    s.produce_proof(true);
    collector = &dynamic_cast<proof_collector&>(s.proof_collector());
  }

  void add_learned(std::initializer_list<iset> literals, std::initializer_list<unsigned> vars) {
    constraint_connectivity_info& info =
        s.add_constraint(std::make_unique<clause_propagator>(literals));
    for (unsigned int v : vars) info << v;
  }

  void learn_first() {
    collector->record_conflict(1, s.clause_literals(1), nullptr);
    collector->record_resolution(3, {iset(), at_most(1), at_least(2)}, int(X), nullptr);
    collector->record_resolution(0, s.clause_literals(0), int(W), nullptr);
    collector->name_conflict_clause(4);
  }
  void learn_second() {
    collector->record_conflict(
        2, {}, std::make_unique<fixed_rule>(std::vector<iset>{at_least(5), at_most(1), iset(),
                                                               at_least(5)}));
    collector->record_resolution(4, {at_least(2)}, int(Y), nullptr);
    collector->name_conflict_clause(5);
  }
  void record_refutation() {
    learn_first();
    add_learned({at_least(2)}, {Y});
    learn_second();
    add_learned({at_least(5), at_least(5)}, {X, Z});
    collector->prepare_to_print();
  }

  std::string proof_text() const {
    std::ostringstream os;
    collector->print_proof(os);
    return os.str();
  }

  solver s;
  proof_collector* collector = nullptr;
};

const char* const REFUTATION_TEXT =
    "constraint[3] (w,x,y)\n"
    "consequent: [-1] [y>=2, x<=1]\n"
    "\n"
    "resolve[x] [1] [x>=2, y>=2, w=3] with [-1] [y>=2, x<=1]\n"
    "consequent: [-3] [y>=2, w=3]\n"
    "\n"
    "resolve[w] [-3] [y>=2, w=3] with [0] [w<=2, y>=2]\n"
    "consequent: [4] [y>=2]\n"
    "\n"
    "rule fixed(z,y,w,x): constraint[2] (z,y,w,x)\n"
    "consequent: [-2] [z>=5, y<=1, x>=5]\n"
    "\n"
    "resolve[y] [-2] [z>=5, y<=1, x>=5] with [4] [y>=2]\n"
    "consequent: [5] [x>=5, z>=5]\n"
    "\n"
    "resolve[z] [5] [x>=5, z>=5] with initial domain (z:{0,1})\n"
    "consequent: [-4] [x>=5]\n"
    "\n"
    "resolve[x] [-4] [x>=5] with initial domain (x:{0:3})\n"
    "consequent: [-5] []\n"
    "\n";

TEST(proof_collector, prints_the_refutation_with_prerequisites_first) {
  refutation_model m;
  m.record_refutation();
  EXPECT_EQ(m.proof_text(), REFUTATION_TEXT);
  // A replay leaves no state behind: the same ids come out again.
  EXPECT_EQ(m.proof_text(), REFUTATION_TEXT);
}

TEST(proof_collector, erased_learned_constraints_replay_from_saved_clauses) {
  refutation_model m;
  solver& s = m.s;
  proof_collector* const collector = m.collector;
  m.learn_first();
  m.add_learned({at_least(2)}, {Y});
  m.learn_second();
  m.add_learned({at_least(5), at_least(5)}, {X, Z});
  // Saved twice before erasure, out of order: the first copy of 4 counts.
  collector->save_clause(5, make({{X, at_least(5)}, {Z, at_least(5)}}));
  collector->save_clause(4, make({{Y, at_least(2)}}));
  collector->save_clause(4, make({{Y, at_least(3)}}));
  solver_test_access::erase(s, 4);
  solver_test_access::erase(s, 5);
  collector->prepare_to_print();
  EXPECT_EQ(m.proof_text(), REFUTATION_TEXT);
  clause_data c;
  collector->get_constraint_variables(4, c);
  EXPECT_EQ(c.size(), 1u);
  EXPECT_EQ(c[0].variable, Y);
  EXPECT_TRUE(c[0].set.empty());
}

TEST(proof_collector, explanation_clauses_drop_empty_sets_from_the_back) {
  refutation_model m;
  proof_collector* const collector = m.collector;
  // Params (z, y, w, x); the empty entries of z and w are filled by the last
  // literal at each removal.
  collector->record_conflict(2, {iset(), S({1}), iset(), S({2})}, nullptr);
  clause_data c;
  collector->get_clause(-1, c);
  std::ostringstream os;
  collector->print_clause(os, -1, c);
  EXPECT_EQ(os.str(), "[-1] [x=2, y=1]");
  // A rule takes precedence over the sets passed with it.
  collector->record_resolution(3, {S({1}), S({1}), S({1})},
                               0, std::make_unique<fixed_rule>(std::vector<iset>{
                                      iset(), iset(), at_most(1)}));
  collector->get_clause(-2, c);
  EXPECT_TRUE(c.equivalent(make({{Y, at_most(1)}})));
  EXPECT_EQ(c.size(), 1u);
}

class counting_visitor : public proof_visitor {
 public:
  void visit_explanation(int id) override { explanations.push_back(id); }
  void visit_resolution(unsigned int, int left_id, const clause_data&, int right_id,
                        const clause_data&, int result_id, const clause_data&) override {
    resolutions.push_back({left_id, right_id, result_id});
  }
  void visit_initial_resolution(unsigned int variable, const small_model::iset&, int,
                                const clause_data&, int, const clause_data& result) override {
    initial.push_back(variable);
    last_initial_result = result;
  }
  std::vector<int> explanations;
  std::vector<std::vector<int>> resolutions;
  std::vector<unsigned int> initial;
  clause_data last_initial_result;
};

TEST(proof_collector, missing_refutation_records_raise) {
  refutation_model m;
  solver& s = m.s;
  proof_collector* const collector = m.collector;
  counting_visitor v;
  auto expect_no_record = [&]() {
    try {
      collector->traverse_proof(v);
      FAIL() << "no error";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "No unsatisfiability record available");
    }
    try {
      m.proof_text();
      FAIL() << "no error";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "No unsatisfiability record available");
    }
  };
  // Nothing recorded.
  expect_no_record();
  // An analysis at level 0 that gave up: entries, but no named constraint.
  collector->record_conflict(1, s.clause_literals(1), nullptr);
  expect_no_record();
  // A named analysis followed by one that named nothing: the last record is not
  // a refutation.
  collector->record_resolution(0, s.clause_literals(0), int(W), nullptr);
  collector->name_conflict_clause(4);
  m.add_learned({at_least(2), at_least(2)}, {X, Y});
  collector->record_conflict(0, s.clause_literals(0), nullptr);
  expect_no_record();
  EXPECT_TRUE(v.resolutions.empty());
}

TEST(proof_collector, one_entry_analysis_takes_the_clause_of_its_entry) {
  refutation_model m;
  solver& s = m.s;
  proof_collector* const collector = m.collector;
  // 4 is learned from the explanation of 3 alone; the final analysis starts from 4.
  collector->record_conflict(3, {iset(), at_least(5), S({0})}, nullptr);
  collector->name_conflict_clause(4);
  m.add_learned({at_least(5), S({0})}, {X, Y});
  collector->record_conflict(4, s.clause_literals(4), nullptr);
  collector->name_conflict_clause(5);
  counting_visitor v;
  collector->traverse_proof(v);
  EXPECT_EQ(v.explanations, std::vector<int>{-1});
  EXPECT_TRUE(v.resolutions.empty());
  // Only the final conflict meets the initial domains; the last literal goes first.
  EXPECT_EQ(v.initial, (std::vector<unsigned int>{Y, X}));
  EXPECT_TRUE(v.last_initial_result.empty());
}

TEST(proof_collector, initial_step_removes_every_literal_of_its_variable) {
  refutation_model m;
  solver& s = m.s;
  proof_collector* const collector = m.collector;
  // A final conflict straight from a clause that names x twice.
  m.add_learned({S({7}), S({9}), at_least(4)}, {X, Z, X});
  collector->record_conflict(4, s.clause_literals(4), nullptr);
  collector->name_conflict_clause(4);
  counting_visitor v;
  collector->traverse_proof(v);
  EXPECT_EQ(v.initial, (std::vector<unsigned int>{X, Z}));
}

TEST(proof_collector, long_chains_of_learned_constraints_replay_without_recursion) {
  // Each learned constraint comes from the one before: as deep as the search.
  solver s;
  const unsigned int x = s.add_var(at_most(3), "x");
  const unsigned int length = 100000;
  s.add_constraint(std::make_unique<clause_propagator>(std::initializer_list<iset>{S({7})})) << x;
  s.produce_proof(true);
  proof_collector& collector = dynamic_cast<proof_collector&>(s.proof_collector());
  for (unsigned int k = 1; k <= length; ++k) {
    collector.record_conflict(k - 1, s.clause_literals(k - 1), nullptr);
    collector.name_conflict_clause(k);
    s.add_constraint(std::make_unique<clause_propagator>(std::initializer_list<iset>{S({7})}))
        << x;
  }
  counting_visitor v;
  collector.traverse_proof(v);
  EXPECT_EQ(v.initial, std::vector<unsigned int>{x});
}

TEST(proof_collector, resolve_edge_cases) {
  const unsigned int x = 0, y = 1, z = 2;
  clause_data r;
  // The shape of a resolvent: other literals in normal form, pivot last.
  proof_collector::resolve(make({{x, at_most(2)}, {y, at_most(3)}}),
                           make({{x, at_least(2)}, {z, S({0})}}), x, r);
  EXPECT_EQ(text(r), text(make({{y, at_most(3)}, {z, S({0})}, {x, S({2})}})));
  // Pivot sets that do not meet: no pivot literal.
  proof_collector::resolve(make({{x, S({1})}, {y, S({5})}}), make({{x, S({2})}}), x, r);
  EXPECT_TRUE(r.equivalent(make({{y, S({5})}})));
  EXPECT_EQ(r.size(), 1u);
  // Pivot on one side only: nothing of the pivot survives either.
  proof_collector::resolve(make({{y, S({5})}}), make({{x, S({2})}, {z, S({1})}}), x, r);
  EXPECT_EQ(text(r), text(make({{y, S({5})}, {z, S({1})}})));
  // Several pivot literals on one side: their union.
  proof_collector::resolve(make({{x, S({1})}, {x, S({2})}}), make({{x, S({2, 3})}}), x, r);
  EXPECT_EQ(text(r), text(make({{x, S({2})}})));
  // Literals of one variable from both sides merge; empty sets vanish.
  proof_collector::resolve(make({{y, S({1})}, {z, iset()}}), make({{y, S({4})}, {x, S({0})}}), x,
                           r);
  EXPECT_EQ(text(r), text(make({{y, S({1, 4})}})));
  // Both empty: the empty clause.
  proof_collector::resolve(clause_data(), clause_data(), x, r);
  EXPECT_TRUE(r.empty());
}

}  // namespace
}  // namespace zelk
