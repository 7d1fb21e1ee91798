// Definitions of the operators of expressions: what an operator is on constants,
// how it simplifies on variables, which direction of it each argument needs, and
// the constraints that finally stand for it. A definition is a stateless
// singleton; everything that varies lives in operator_connectivity.
#ifndef ZELK_IMPL_OPERATOR_DEFINITION_REGISTRY_H
#define ZELK_IMPL_OPERATOR_DEFINITION_REGISTRY_H

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "impl/small_iset.h"

namespace zelk {

class constraint_propagator;
class operator_connectivity;
class solver;

// A set of bits: which direction of an operator's definition a use needs, for
// the variable r that stands for an expression e.
enum eval_type {
  eval_at_most = 1,      // r <= e; for booleans, r implies e
  eval_at_least = 2,     // r >= e; e implies r
  eval_both_bounds = 3,  // both, each by a one-sided constraint of its own
  eval_exact = 7         // r = e as one exact constraint
};

class operator_definition {
 public:
  virtual ~operator_definition() = default;

  // The operator on constant arguments.
  virtual int eval(const int* args_begin, const int* args_end) const = 0;
  // The variable that stands for the operator on these argument variables;
  // `result` is a wished-for result variable, or all bits set for none.
  // Simplifies where it can and otherwise records an entry in `connectivity`;
  // a wished-for result that loses to an older entry must be tied to the
  // entry's variable (see operator_connectivity::record_operator).
  virtual unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                                     const unsigned int* args_begin,
                                     const unsigned int* args_end, unsigned int result) const = 0;
  // The value of argument `arg_index` that follows from the result's domain, if any.
  virtual std::optional<int> reverse_eval(small_model::iset result_domain,
                                          unsigned int arg_index) const;
  // The direction argument `arg_index` needs when the result needs `eval`;
  // args_begin may be null, and `result` all bits set when unknown.
  virtual eval_type arg_eval_type(const operator_connectivity& connectivity, eval_type eval,
                                  unsigned int arg_index, const unsigned int* args_begin,
                                  const unsigned int* args_end, unsigned int result) const;
  // A commutative operator puts its arguments in a standard order, in place, so
  // that x*y and y*x are one entry.
  virtual void canonize_order(const operator_connectivity& connectivity,
                              unsigned int* args_begin, unsigned int* args_end) const;
  // Posts the constraints that `eval` requires of result = op(arguments).
  virtual void create_constraints(solver& s, eval_type eval, unsigned int owner_flag,
                                  unsigned int result, const unsigned int* args_begin,
                                  const unsigned int* args_end) const = 0;
  // The stem of the names of auxiliary variables.
  virtual const char* name() const = 0;
  // The posting priority of an entry: a tighter one is posted first.
  virtual double tightness() const = 0;
};

// An operator whose arguments can be swapped for another one: a > b is b < a.
class reversed_definition : public operator_definition {
 public:
  // The definition with the two arguments swapped.
  virtual const operator_definition& reversed_op() const = 0;

  int eval(const int* args_begin, const int* args_end) const override;
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args_begin, const unsigned int* args_end,
                             unsigned int result) const override;
  eval_type arg_eval_type(const operator_connectivity& connectivity, eval_type eval,
                          unsigned int arg_index, const unsigned int* args_begin,
                          const unsigned int* args_end, unsigned int result) const override;
  void create_constraints(solver& s, eval_type eval, unsigned int owner_flag,
                          unsigned int result, const unsigned int* args_begin,
                          const unsigned int* args_end) const override;
  double tightness() const override { return reversed_op().tightness(); }
};

// An operator posted as one propagator on (result, arguments...), whatever the
// direction asked for.
template <class Propagator>
class direct_operator_definition : public operator_definition {
 public:
  void create_constraints(solver& s, eval_type, unsigned int, unsigned int result,
                          const unsigned int* args_begin,
                          const unsigned int* args_end) const override;
};

// The definitions, by expression node number and by predicate name.
class operator_definition_registry {
 public:
  static const operator_definition_registry& get();

  // Null when the node is no operator of the registry.
  const operator_definition* find(int node_type) const;
  const operator_definition* find_predicate(const std::string& name) const;

  operator_definition_registry(const operator_definition_registry&) = delete;
  operator_definition_registry& operator=(const operator_definition_registry&) = delete;

 private:
  operator_definition_registry();

  std::vector<std::pair<int, std::unique_ptr<operator_definition>>> m_by_type;
  std::vector<std::pair<std::string, std::unique_ptr<operator_definition>>> m_by_name;
};

// 1 becomes 2, 2 becomes 1, anything else stays.
eval_type swap_eval(eval_type eval);

// Adds `propagator` on `params`. A variable that occurs twice is replaced, from its
// second place on, by a new variable tied to it by an equality: propagators
// assume distinct parameters.
void add_constraint_on_distinct(solver& s, std::unique_ptr<constraint_propagator> propagator,
                                std::vector<unsigned int> params);

// The half-reified comparisons "r in literal, or ...", as literal-guarded
// propagators on (r, a, b).
void post_literal_or_difference_ge(solver& s, small_model::iset literal, int constant,
                                   unsigned int r, unsigned int a, unsigned int b);
void post_literal_or_equal(solver& s, small_model::iset literal, unsigned int r, unsigned int a,
                           unsigned int b);

template <class Propagator>
void direct_operator_definition<Propagator>::create_constraints(
    solver& s, eval_type, unsigned int, unsigned int result, const unsigned int* args_begin,
    const unsigned int* args_end) const {
  std::vector<unsigned int> params{result};
  params.insert(params.end(), args_begin, args_end);
  add_constraint_on_distinct(s, std::make_unique<Propagator>(), std::move(params));
}

}  // namespace zelk

#endif
