// Helpers shared by the unit tests: set and clause builders, a constraint the proof
// sees only through explanations, and the one door into the solver's private steps.
#ifndef ZELK_TESTS_UNIT_TEST_SUPPORT_H
#define ZELK_TESTS_UNIT_TEST_SUPPORT_H

#include <initializer_list>
#include <iostream>
#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/clause_data.h"
#include "impl/clause_propagator.h"
#include "impl/constraint_propagator.h"
#include "impl/explanation_generators.h"
#include "impl/proof_collector.h"
#include "impl/solver.h"

namespace zelk {

// Drives and inspects what the solver keeps private.
struct solver_test_access {
  static bool start(solver& s) {
    s.m_searching = true;
    s.prepare_for_solve();
    return s.first_time_propagate_constraints();
  }
  static bool propagate(solver& s) { return s.propagate_constraints(); }
  static void narrow(solver& s, unsigned int var, small_model::iset set) {
    s.set_var_domain(var, set, -1);
    s.notify_modification(var, -1);
    s.tick();
  }
  static void decide(solver& s, unsigned int var) { s.restrict_variable(var, false); }
  static solver::result_type backtrack(solver& s, int level) { return s.backtrack(level, 0); }
  static std::uint64_t time(const solver& s) { return s.m_time; }
  // Empties the slot of a constraint as the erasure of learned constraints does.
  static void erase(solver& s, unsigned int constraint) { s.m_propagators[constraint].reset(); }
  static bool is_correctly_unsat(const solver& s) { return s.is_correctly_unsat(); }
};

namespace test_support {

using iset = small_model::iset;

// Sends standard output to a string while it lives: every solver prints its seed,
// and the optimisation loop prints its progress.
class captured_cout {
 public:
  captured_cout() : m_old(std::cout.rdbuf(m_sink.rdbuf())) {}
  ~captured_cout() { std::cout.rdbuf(m_old); }

 private:
  std::ostringstream m_sink;
  std::streambuf* m_old;
};

// Collects every solution of an all-solutions search, each exactly once.
class recording_solver : public solver {
 public:
  void print_solution(std::ostream&) const override {
    std::vector<int> values;
    for (unsigned int v = 0; v < std::min(num_variables(), reported_variable_count); ++v)
      values.push_back(stack().domain(v).min());
    if (!solutions.insert(values).second) throw std::runtime_error("solution repeated");
  }
  mutable std::set<std::vector<int>> solutions;
};

inline iset S(std::initializer_list<int> values) {
  iset s;
  for (int v : values) s.insert(v);
  return s;
}
inline iset at_least(int k) { return iset::clipped_range(k, 31); }
inline iset at_most(int k) { return iset::clipped_range(0, k); }

inline clause_data make(std::initializer_list<literal_data> literals) {
  clause_data c;
  for (const literal_data& l : literals) c.add(l);
  return c;
}

// The clause as written, literal order included: variable 0 is x, 1 is y, 2 is z.
inline std::string text(const clause_data& c) {
  class letters : public variable_print_strategy {
   public:
    void print(std::ostream& os, unsigned int variable) const override {
      os << char('x' + variable);
    }
  };
  std::ostringstream os;
  c.print(os, letters());
  return os.str();
}

// A constraint that is not a clause; a proof sees it only through explanations.
class opaque_probe : public constraint_propagator {
 public:
  result_type propagate(constraint_runtime_info&) override { return CONSISTENT; }
  bool conflicts(const constraint_runtime_info&) const override { return false; }
  bool constraint_check(const constraint_runtime_info&) const override { return true; }
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<opaque_probe>(*this);
  }
};


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

// x, y, w in 0..3, z in 0..1 and four model constraints:
//   0: clause [w<=2, y>=2]        1: clause [x>=2, y>=2, w=3]
//   2: opaque over (z, y, w, x)   3: opaque over (w, x, y)
// The refutation learns 4 = [y>=2] from 1, the explanation of 3 and 0, then
// 5 = [x>=5, z>=5] from the rule of 2 and 4; the initial domains of z and x end it.
// The arguments of `record` are where a test corrupts the record.
struct refutation_model {
  static constexpr unsigned int X = 0, Y = 1, Z = 2, W = 3;

  refutation_model() {
    s.add_var(at_most(3), "x");
    s.add_var(at_most(3), "y");
    s.add_var(at_most(1), "z");
    s.add_var(at_most(3), "w");
    add_clause({at_most(2), at_least(2)}, {W, Y});
    add_clause({at_least(2), at_least(2), S({3})}, {X, Y, W});
    s.add_constraint(std::make_unique<opaque_probe>()) << Z << Y << W << X;
    s.add_constraint(std::make_unique<opaque_probe>()) << W << X << Y;
    s.produce_proof(true);
    collector = &dynamic_cast<proof_collector&>(s.proof_collector());
  }

  void add_clause(std::initializer_list<iset> literals, std::initializer_list<unsigned> vars) {
    constraint_connectivity_info& info =
        s.add_constraint(std::make_unique<clause_propagator>(literals));
    for (unsigned int v : vars) info << v;
  }

  void record(unsigned int pivot_of_first = X, iset z_literal = at_least(5),
              iset stored_first = at_least(2)) {
    collector->record_conflict(1, s.clause_literals(1), nullptr);
    collector->record_resolution(3, {iset(), at_most(1), at_least(2)}, int(pivot_of_first),
                                 nullptr);
    collector->record_resolution(0, s.clause_literals(0), int(W), nullptr);
    collector->name_conflict_clause(4);
    add_clause({stored_first}, {Y});
    collector->record_conflict(2, {}, std::make_unique<fixed_rule>(std::vector<iset>{
                                          z_literal, at_most(1), iset(), at_least(5)}));
    collector->record_resolution(4, {at_least(2)}, int(Y), nullptr);
    collector->name_conflict_clause(5);
    add_clause({at_least(5), z_literal}, {X, Z});
  }

  solver s;
  proof_collector* collector = nullptr;
};

}  // namespace test_support
}  // namespace zelk

#endif
