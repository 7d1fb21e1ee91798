// Helpers shared by the unit tests: set and clause builders, a constraint the proof
// sees only through explanations, and the one door into the solver's private steps.
#ifndef ZELK_TESTS_UNIT_TEST_SUPPORT_H
#define ZELK_TESTS_UNIT_TEST_SUPPORT_H

#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>

#include "impl/clause_data.h"
#include "impl/constraint_propagator.h"
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

}  // namespace test_support
}  // namespace zelk

#endif
