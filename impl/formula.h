// Boolean formulas over literals of solver variables: the type of an interpolant.
//
// A formula is a reference-counted handle on an immutable tree of formula_impl
// nodes (impl/formula_impl.h). The operators fold while they build: constants
// disappear, a node met twice is taken once, x && !x and x || !x collapse, and
// clauses merge, so that the formula of a long proof stays small. A formula holds
// variable numbers, not references, and may outlive the solver it was built from.
#ifndef ZELK_IMPL_FORMULA_H
#define ZELK_IMPL_FORMULA_H

#include <iosfwd>

#include "impl/clause_data.h"
#include "impl/small_iset.h"

namespace zelk {

class formula_impl;
class solver;
class variable_print_strategy;

class formula {
 public:
  // The null handle: prints "NULL", and nothing else may be asked of it.
  formula() = default;
  explicit formula(bool value);
  // The false constant for the empty clause, otherwise a clause node with a copy.
  explicit formula(const clause_data& clause);
  // The false constant for the empty set, the true constant for the full set,
  // otherwise a one-literal clause.
  formula(unsigned int variable, small_model::iset set);
  static formula construct(const literal_data& literal) {
    return formula(literal.variable, literal.set);
  }

  formula(const formula& other);
  formula(formula&& other) noexcept : m_node(other.m_node) { other.m_node = nullptr; }
  formula& operator=(const formula& other);
  formula& operator=(formula&& other) noexcept;
  ~formula();

  // Adds constraints to `s` that make the formula true.
  void constrain_solver(solver& s) const;
  // True if the present domains of `s` make the formula true.
  bool evaluate(const solver& s) const;
  void print(std::ostream& os, const variable_print_strategy& strategy) const;

  bool is_null() const { return m_node == nullptr; }
  // The constant singletons, recognised by identity: folding always yields them.
  bool is_true() const;
  bool is_false() const;
  const formula_impl* node() const { return m_node; }

  static void mark_linked(formula_impl* node);
  static void mark_unlinked(formula_impl* node);

  friend formula operator!(const formula& f);
  friend formula operator&&(const formula& a, const formula& b);
  friend formula operator||(const formula& a, const formula& b);

 private:
  // Takes a reference on `node`, which a combination may have returned with count 0.
  explicit formula(formula_impl* node);
  friend class formula_impl;
  friend class clause_formula_impl;

  formula_impl* m_node = nullptr;
};

}  // namespace zelk

#endif
