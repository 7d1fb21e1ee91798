// The symbolic form of a constraint in combination: some literals (variable in
// set) or'ed with one base constraint. Resolving two constraints on a variable
// works on this form: the literals resolve as in a clause, the base constraints
// are handed to the base constraint of the left side, which eliminates the pivot
// (combine_base_constraints) or replaces the two by one implied by their
// disjunction (disjoin_constraint), and the base constraint finally builds the
// propagator of the result (new_propagator).
//
// Positions and variables: a specification made from a propagator numbers the
// propagator's parameters as positions; `params` maps a position to a variable
// number, and a position beyond `params` stands for itself, so that an empty map
// keeps the left constraint's numbering. A result specification lists its literal
// variables first and its base variables after them.
//
// Entry point: combine_propagators, used by the combine of the propagators that
// have this form.
#ifndef ZELK_IMPL_DISJUNCTION_SPECIFICATION_H
#define ZELK_IMPL_DISJUNCTION_SPECIFICATION_H

#include <memory>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/small_iset.h"
#include "impl/utilities.h"

namespace zelk {

class disjunction_specification : private no_copy {
 public:
  typedef small_model::iset iset;
  typedef std::vector<small_model::iset> literal_vector;

  disjunction_specification() = default;
  // Describes `propagator` seen through `info`; `params` maps its positions to
  // variables (empty: the identity).
  disjunction_specification(const constraint_runtime_info& info,
                            const constraint_propagator& propagator,
                            const std::vector<unsigned int>& params);

  // left.combine(right) for two propagators in the numbering of
  // constraint_propagator::combine: null when the combination isn't available.
  static std::unique_ptr<constraint_propagator> combine_propagators(
      const constraint_runtime_info& info, const constraint_propagator& left,
      const constraint_propagator& right, const constraint_runtime_info& right_info,
      const std::vector<unsigned int>& map, unsigned int pivot, std::vector<unsigned int>& out);

  // ---- declaration, by get_disjunction_specification ----------------------
  // The literal sets live in the propagator; `start` is the position of the first.
  void declare_literals(const iset* literals, unsigned int count, unsigned int start);
  // The base constraint, with its first parameter at position `start`; the
  // parameter count follows from the propagator's.
  void declare_constraint(const constraint_propagator* constraint, unsigned int start);
  void declare_owned_constraint(std::unique_ptr<constraint_propagator> constraint,
                                unsigned int start);

  // ---- building a result ---------------------------------------------------
  // Appends a literal; literals must come before the base parameters.
  void add_literal(unsigned int variable, const iset& set);
  // Makes `constraint` the owned base, placed after the literals, with no
  // parameter yet; add_constraint_param appends them.
  void own_constraint(std::unique_ptr<constraint_propagator> constraint);
  void add_constraint_param(unsigned int variable);

  // ---- queries ------------------------------------------------------------
  const constraint_runtime_info* info() const { return m_info; }
  unsigned int var_at(unsigned int position) const {
    return position < m_params.size() ? m_params[position] : position;
  }
  unsigned int constraint_param_count() const { return m_constraint_param_count; }
  unsigned int literal_count() const { return m_literal_count; }
  unsigned int literal_start() const { return m_literal_start; }
  unsigned int constraint_start() const { return m_constraint_start; }
  const iset& literal(unsigned int k) const { return m_literals[k]; }
  unsigned int literal_var(unsigned int k) const { return var_at(m_literal_start + k); }
  unsigned int constraint_var(unsigned int i) const { return var_at(m_constraint_start + i); }
  // Domain of base parameter i in the view of the described constraint.
  const iset& constraint_domain(unsigned int i) const {
    return m_info->domain(m_constraint_start + i);
  }
  const constraint_propagator* constraint() const { return m_constraint; }
  bool owns_constraint() const { return m_owned_constraint != nullptr; }
  // Index among the literals / base parameters, or -1.
  int find_literal(unsigned int variable) const;
  int find_constraint_param(unsigned int variable) const;
  // Hands the owned base constraint to the propagator built from this
  // specification (new_propagator): the specification is spent by then.
  std::unique_ptr<constraint_propagator> release_owned_constraint() const;

  // ---- combination ----------------------------------------------------------
  // Resolves this (left) with `other` (right) on the variable `pivot`; `out`
  // receives the variables of the new propagator.
  std::unique_ptr<constraint_propagator> combine(const disjunction_specification& other,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const;
  std::unique_ptr<constraint_propagator> combine_literal_pivot(
      const disjunction_specification& other, unsigned int pivot,
      std::vector<unsigned int>& out) const;
  std::unique_ptr<constraint_propagator> combine_constraint_pivot(
      const disjunction_specification& other, unsigned int pivot,
      std::vector<unsigned int>& out) const;
  // The literals of the resolvent of left and right on pivot, in this object:
  // left's, then right's new variables; a shared variable unites its sets, the
  // pivot intersects them and disappears when that is empty.
  void resolve_literals(const disjunction_specification& left,
                        const disjunction_specification& right, unsigned int pivot);
  void append_literals(const disjunction_specification& other);
  void append_constraint(const disjunction_specification& other);
  void steal_constraint(disjunction_specification& other);
  std::unique_ptr<constraint_propagator> make_constraint(std::vector<unsigned int>& out) const;
  std::unique_ptr<constraint_propagator> new_clause(std::vector<unsigned int>& out) const;
  void clear();

 private:
  // Moves literals declared from a propagator into the own storage.
  void ensure_own_literals();
  void take_constraint_params(const disjunction_specification& other);

  const constraint_runtime_info* m_info = nullptr;
  std::vector<unsigned int> m_params;
  unsigned int m_constraint_param_count = 0;
  unsigned int m_literal_count = 0;
  unsigned int m_literal_start = 0;
  const iset* m_literals = nullptr;  // into a propagator, or m_own_literals.data()
  literal_vector m_own_literals;
  unsigned int m_constraint_start = 0;
  const constraint_propagator* m_constraint = nullptr;
  // Set when the base constraint belongs here; then m_constraint is the same.
  mutable std::unique_ptr<constraint_propagator> m_owned_constraint;
};

}  // namespace zelk

#endif
