// Recording and replay of proofs: the refutation text, replay of erased learned
// constraints from saved clauses, the resolvent, and refusal without a refutation.
#include "impl/proof_collector.h"

#include <gtest/gtest.h>

#include "unit/test_support.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <random>
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

// Learned constraints are erased as they come, some cited by the next analysis and
// some not, with analyses that name nothing in between: whatever the collector
// releases and compacts on the way, the proof reads as from a collector that kept
// everything, explanation ids and sets included.
TEST(proof_collector, released_records_leave_the_proof_as_it_was) {
  refutation_model kept, released;
  for (refutation_model* m : {&kept, &released}) {
    proof_collector& c = *m->collector;
    const unsigned int first = m->s.num_constraints();
    for (unsigned int i = 0; i < 3000; ++i) {
      const unsigned int learned = first + i;
      if (i % 3 == 1) {  // named nothing
        c.record_conflict(3, {S({int(i % 4)}), at_most(1), iset()}, nullptr);
        c.record_resolution(1, m->s.clause_literals(1), int(X), nullptr);
      }
      c.record_conflict(3, {iset(), at_most(int(i % 3)), at_least(2)}, nullptr);
      // Every tenth is never erased; each one cites the last of those, and every
      // third the one just before it.
      if (i % 10 != 0)
        c.record_resolution(first + i - i % 10, m->s.clause_literals(first + i - i % 10), int(Y),
                            nullptr);
      else if (i > 0)
        c.record_resolution(learned - 10, m->s.clause_literals(learned - 10), int(Y), nullptr);
      if (i % 3 == 0 && i > 0)
        c.record_resolution(learned - 1, m->s.clause_literals(learned - 1), int(W), nullptr);
      if (i % 7 == 0)
        c.record_resolution(2, {}, int(Z),
                            std::make_unique<fixed_rule>(std::vector<iset>{
                                S({int(i % 2)}), at_most(1), iset(), at_least(int(i % 4))}));
      c.record_resolution(0, m->s.clause_literals(0), int(W), nullptr);
      c.name_conflict_clause(learned);
      m->add_clause({at_least(int(i % 4)), S({int(i % 2)})}, {Y, Z});
      const unsigned int previous = learned - 1;
      if (i == 0 || (i - 1) % 10 == 0) continue;
      if (m == &released) {
        c.forget_constraint(previous);
      } else {
        clause_data clause;
        c.get_solver_clause(previous, clause);
        c.save_clause(previous, clause);
      }
      solver_test_access::erase(m->s, previous);
    }
    c.prepare_to_print();
  }
  EXPECT_EQ(proof_text(*released.collector), proof_text(*kept.collector));
  EXPECT_EQ(kept.collector->released_count(), 0u);
  EXPECT_GT(released.collector->released_count(), 1000u);
  EXPECT_LT(released.collector->resolution_entries().size(),
            kept.collector->resolution_entries().size() / 2);
}

// Random 3-SAT over 0/1 variables, refuted with learned constraints erased every
// few backtracks. The records of an erased constraint must be released exactly
// when no kept record reaches it: every live learned constraint may be a premise
// later, and the final one is live.
TEST(proof_collector, erasure_releases_exactly_what_no_kept_record_reaches) {
  unsigned int refuted = 0, released = 0;
  for (unsigned int seed = 1; seed <= 12; ++seed) {
    std::mt19937 rng(seed);
    solver s;
    const unsigned int n = 30;
    for (unsigned int v = 0; v < n; ++v) s.add_var(at_most(1));
    for (unsigned int k = 0; k < 5 * n; ++k) {
      std::vector<iset> literals;
      std::vector<unsigned int> vars;
      while (vars.size() < 3) {
        const unsigned int v = unsigned(rng() % n);
        if (std::find(vars.begin(), vars.end(), v) != vars.end()) continue;
        vars.push_back(v);
        literals.push_back(S({int(rng() % 2)}));
      }
      constraint_connectivity_info& info =
          s.add_constraint(std::make_unique<clause_propagator>(literals));
      for (unsigned int v : vars) info << v;
    }
    s.should_intersect_with_ground = false;
    s.erase_after_backtracks = 3;
    s.keep_constraints_from_conflicts = 4;
    s.produce_proof(true);
    std::ostringstream out;
    if (s.solve(&out) != solver::UNSAT) continue;
    ++refuted;
    const proof_collector& c = dynamic_cast<const proof_collector&>(s.proof_collector());
    EXPECT_TRUE(solver_test_access::is_correctly_unsat(s)) << "seed " << seed;
    const unsigned int first = c.first_conflict_clause();
    const unsigned int named = unsigned(c.conflict_starts().size());
    const std::deque<proof_collector::resolution_entry>& entries = c.resolution_entries();
    std::vector<bool> reached(named, false);
    std::vector<unsigned int> work;
    for (unsigned int k = 0; k < named; ++k) {
      const unsigned int constraint = first + k;
      if (constraint < s.num_constraints() && s.propagator(constraint)) {
        reached[k] = true;
        work.push_back(k);
      }
    }
    while (!work.empty()) {
      const unsigned int k = work.back();
      work.pop_back();
      ASSERT_FALSE(c.is_released(first + k)) << "seed " << seed;
      for (std::size_t i = c.conflict_starts()[k];
           i < entries.size() && (i == c.conflict_starts()[k] || entries[i].second >= 0); ++i) {
        const int id = entries[i].first;
        if (id < int(first) || unsigned(id) >= first + named || reached[unsigned(id) - first])
          continue;
        reached[unsigned(id) - first] = true;
        work.push_back(unsigned(id) - first);
      }
    }
    for (unsigned int k = 0; k < named; ++k)
      EXPECT_EQ(c.is_released(first + k), !reached[k]) << "seed " << seed << " constraint " << k;
    released += c.released_count();
  }
  EXPECT_GT(refuted, 6u);
  EXPECT_GT(released, 0u);
}

// Against the normal form of clause_data::canonicalize, literal by literal: left
// sides in the shape the replay hands over (normal form but for the last literal)
// and in any shape at all, with repeated variables and empty sets.
TEST(proof_collector, resolvents_match_the_normal_form_on_random_clauses) {
  std::mt19937 rng(7);
  const auto random_literal = [&] {
    return literal_data(unsigned(rng() % 8), iset::from_bits(std::uint32_t(rng() % 16)));
  };
  for (int round = 0; round < 3000; ++round) {
    clause_data left, right;
    for (unsigned int i = rng() % 12; i > 0; --i) left.add(random_literal());
    if (round % 2 == 0) {
      left.canonicalize();
      left.add(random_literal());
    }
    for (unsigned int i = rng() % 5; i > 0; --i) right.add(random_literal());
    const unsigned int pivot = unsigned(rng() % 8);
    clause_data expected;
    iset a, b;
    for (const literal_data& l : left) {
      if (l.variable == pivot)
        a |= l.set;
      else
        expected.add(l);
    }
    for (const literal_data& l : right) {
      if (l.variable == pivot)
        b |= l.set;
      else
        expected.add(l);
    }
    expected.canonicalize();
    if (!(a & b).empty()) expected.add(pivot, a & b);
    clause_data result;
    proof_collector::resolve(left, right, pivot, result);
    ASSERT_EQ(text(result), text(expected)) << "round " << round;
  }
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
