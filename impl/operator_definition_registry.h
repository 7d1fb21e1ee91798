// Definitions of the operators of expressions. For now only the vocabulary of
// which direction of a definition a use needs, shared with the OPB reader.
#ifndef ZELK_IMPL_OPERATOR_DEFINITION_REGISTRY_H
#define ZELK_IMPL_OPERATOR_DEFINITION_REGISTRY_H

namespace zelk {

// A set of bits: which direction of an operator's definition a use needs.
enum eval_type {
  eval_at_most = 1,
  eval_at_least = 2,
  eval_both_bounds = 3,
  eval_exact = 7
};

}  // namespace zelk

#endif
