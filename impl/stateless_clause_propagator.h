// A clause without watches: woken by the default modification watches of every
// non-singleton parameter, it scans all literals on each run. Simple and robust,
// for places where a watched clause's bookkeeping does not pay; the model layer
// builds clause_propagator instead.
#ifndef ZELK_IMPL_STATELESS_CLAUSE_PROPAGATOR_H
#define ZELK_IMPL_STATELESS_CLAUSE_PROPAGATOR_H

#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/small_iset.h"

namespace zelk {

class stateless_clause_propagator : public constraint_propagator {
 public:
  stateless_clause_propagator() = default;
  stateless_clause_propagator(std::initializer_list<small_model::iset> literals)
      : m_literals(literals) {}
  explicit stateless_clause_propagator(literal_vector literals)
      : m_literals(std::move(literals)) {}
  // A copy is a fresh clause: not yet in use.
  stateless_clause_propagator(const stateless_clause_propagator& other)
      : constraint_propagator(other), m_literals(other.m_literals) {}
  stateless_clause_propagator& operator=(const stateless_clause_propagator& other) {
    m_literals = other.m_literals;
    m_in_use = false;
    return *this;
  }

  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  // No literal meets its domain.
  bool conflicts(const constraint_runtime_info& info) const override;
  // Some parameter's domain lies wholly within its literal.
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  const literal_vector& literals() const { return m_literals; }
  // Refused ("Modifying the clause at runtime") once propagate has run.
  literal_vector& update_literals() {
    if (m_in_use) throw_modifying_clause_at_runtime();
    return m_literals;
  }
  bool in_use() const { return m_in_use; }
  [[noreturn]] static void throw_modifying_clause_at_runtime();

 private:
  literal_vector m_literals;
  bool m_in_use = false;  // set by propagate
};

}  // namespace zelk

#endif
