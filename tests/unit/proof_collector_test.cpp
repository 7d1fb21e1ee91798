// Recording and replay of proofs: the refutation text, replay of erased learned
// constraints from saved clauses, the resolvent, and refusal without a refutation.
#include "impl/proof_collector.h"

#include <gtest/gtest.h>

#include "unit/test_support.h"

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace zelk {
namespace {

using namespace test_support;
constexpr unsigned int X = refutation_model::X, Y = refutation_model::Y,
                       Z = refutation_model::Z, W = refutation_model::W;

std::string proof_text(const proof_collector& collector) {
  std::ostringstream os;
  collector.print_proof(os);
  return os.str();
}

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
  m.record();
  m.collector->prepare_to_print();
  EXPECT_EQ(proof_text(*m.collector), REFUTATION_TEXT);
  // A replay leaves no state behind: the same ids come out again.
  EXPECT_EQ(proof_text(*m.collector), REFUTATION_TEXT);
}

TEST(proof_collector, erased_learned_constraints_replay_from_saved_clauses) {
  refutation_model m;
  m.record();
  // Saved twice before erasure, out of order: the first copy of 4 counts.
  m.collector->save_clause(5, make({{X, at_least(5)}, {Z, at_least(5)}}));
  m.collector->save_clause(4, make({{Y, at_least(2)}}));
  m.collector->save_clause(4, make({{Y, at_least(3)}}));
  solver_test_access::erase(m.s, 4);
  solver_test_access::erase(m.s, 5);
  m.collector->prepare_to_print();
  EXPECT_EQ(proof_text(*m.collector), REFUTATION_TEXT);
  clause_data c;
  m.collector->get_constraint_variables(4, c);
  ASSERT_EQ(c.size(), 1u);
  EXPECT_EQ(c[0].variable, Y);
  // The sorted lookup finds the first copy, and nothing for a number never saved.
  EXPECT_EQ(m.collector->find_saved_clause(4)->second[0].set, at_least(2));
  EXPECT_EQ(m.collector->find_saved_clause(3), m.collector->saved_clauses_end());
  EXPECT_EQ(m.collector->find_saved_clause(6), m.collector->saved_clauses_end());
}

class counting_visitor : public proof_visitor {
 public:
  void visit_explanation(int id) override { explanations.push_back(id); }
  void visit_resolution(unsigned int, int, const clause_data&, int, const clause_data&, int,
                        const clause_data&) override {
    ++resolutions;
  }
  void visit_initial_resolution(unsigned int variable, const small_model::iset&, int,
                                const clause_data&, int, const clause_data& result) override {
    initial.push_back(variable);
    last_initial_result = result;
  }
  std::vector<int> explanations;
  int resolutions = 0;
  std::vector<unsigned int> initial;
  clause_data last_initial_result;
};

TEST(proof_collector, refuses_to_replay_without_a_refutation) {
  refutation_model m;
  counting_visitor v;
  const auto expect_no_record = [&] {
    EXPECT_THROW(m.collector->traverse_proof(v), std::runtime_error);
    EXPECT_THROW(proof_text(*m.collector), std::runtime_error);
  };
  expect_no_record();
  // An analysis at level 0 that gave up: entries, but no named constraint.
  m.collector->record_conflict(1, m.s.clause_literals(1), nullptr);
  expect_no_record();
  // A named analysis followed by one that named nothing.
  m.collector->record_resolution(0, m.s.clause_literals(0), int(W), nullptr);
  m.collector->name_conflict_clause(4);
  m.add_clause({at_least(2), at_least(2)}, {X, Y});
  m.collector->record_conflict(0, m.s.clause_literals(0), nullptr);
  expect_no_record();
  EXPECT_EQ(v.resolutions, 0);
}

TEST(proof_collector, initial_domains_finish_one_entry_analyses_and_repeated_variables) {
  refutation_model m;
  // 4 is learned from the explanation of 3 alone; the final analysis starts from 4.
  m.collector->record_conflict(3, {iset(), at_least(5), S({0})}, nullptr);
  m.collector->name_conflict_clause(4);
  m.add_clause({at_least(5), S({0})}, {X, Y});
  m.collector->record_conflict(4, m.s.clause_literals(4), nullptr);
  m.collector->name_conflict_clause(5);
  counting_visitor v;
  m.collector->traverse_proof(v);
  EXPECT_EQ(v.explanations, std::vector<int>{-1});
  EXPECT_EQ(v.resolutions, 0);
  // The last literal goes first.
  EXPECT_EQ(v.initial, (std::vector<unsigned int>{Y, X}));
  EXPECT_TRUE(v.last_initial_result.empty());

  // A final conflict straight from a clause that names x twice: one step for x.
  refutation_model r;
  r.add_clause({S({7}), S({9}), at_least(4)}, {X, Z, X});
  r.collector->record_conflict(4, r.s.clause_literals(4), nullptr);
  r.collector->name_conflict_clause(4);
  counting_visitor u;
  r.collector->traverse_proof(u);
  EXPECT_EQ(u.initial, (std::vector<unsigned int>{X, Z}));
}

TEST(proof_collector, long_chains_of_learned_constraints_replay_without_recursion) {
  // Each learned constraint comes from the one before: as deep as the search.
  solver s;
  const unsigned int x = s.add_var(at_most(3), "x");
  s.add_constraint(std::make_unique<clause_propagator>(std::initializer_list<iset>{S({7})})) << x;
  s.produce_proof(true);
  proof_collector& collector = dynamic_cast<proof_collector&>(s.proof_collector());
  for (unsigned int k = 1; k <= 100000; ++k) {
    collector.record_conflict(k - 1, s.clause_literals(k - 1), nullptr);
    collector.name_conflict_clause(k);
    s.add_constraint(std::make_unique<clause_propagator>(std::initializer_list<iset>{S({7})}))
        << x;
  }
  counting_visitor v;
  collector.traverse_proof(v);
  EXPECT_EQ(v.initial, std::vector<unsigned int>{x});
}

TEST(proof_collector, resolvents) {
  const auto resolve = [](const clause_data& a, const clause_data& b) {
    clause_data r;
    proof_collector::resolve(a, b, X, r);
    return text(r);
  };
  // Other literals in normal form, pivot last; pivot sets that do not meet leave nothing.
  EXPECT_EQ(resolve(make({{X, at_most(2)}, {Y, at_most(3)}}),
                    make({{X, at_least(2)}, {Z, S({0})}})),
            text(make({{Y, at_most(3)}, {Z, S({0})}, {X, S({2})}})));
  EXPECT_EQ(resolve(make({{X, S({1})}, {Y, S({5})}}), make({{X, S({2})}})), "[y=5]");
  // Pivot on one side only: nothing of the pivot survives either.
  EXPECT_EQ(resolve(make({{Y, S({5})}}), make({{X, S({2})}, {Z, S({1})}})),
            text(make({{Y, S({5})}, {Z, S({1})}})));
  // Several pivot literals on one side: their union.
  EXPECT_EQ(resolve(make({{X, S({1})}, {X, S({2})}}), make({{X, S({2, 3})}})), "[x=2]");
  // Literals of one variable from both sides merge; empty sets vanish.
  EXPECT_EQ(resolve(make({{Y, S({1})}, {Z, iset()}}), make({{Y, S({4})}, {X, S({0})}})),
            text(make({{Y, S({1, 4})}})));
  EXPECT_EQ(resolve(clause_data(), clause_data()), "[]");
}

}  // namespace
}  // namespace zelk
