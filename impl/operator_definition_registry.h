// Definitions of the operators of expressions: what an operator is on constants,
// how it simplifies on variables, which direction of it each argument needs, and
// the constraints that finally stand for it. A definition is a stateless
// singleton; everything that varies lives in operator_connectivity.
#ifndef ZELK_IMPL_OPERATOR_DEFINITION_REGISTRY_H
#define ZELK_IMPL_OPERATOR_DEFINITION_REGISTRY_H

#include <optional>

#include "impl/small_iset.h"

namespace zelk {

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

}  // namespace zelk

#endif
