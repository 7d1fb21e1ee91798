// The defaults of the operator definitions.
#include "impl/operator_definition_registry.h"

namespace zelk {

std::optional<int> operator_definition::reverse_eval(small_model::iset, unsigned int) const {
  return std::nullopt;
}

eval_type operator_definition::arg_eval_type(const operator_connectivity&, eval_type,
                                             unsigned int, const unsigned int*,
                                             const unsigned int*, unsigned int) const {
  return eval_exact;
}

void operator_definition::canonize_order(const operator_connectivity&, unsigned int*,
                                         unsigned int*) const {}

}  // namespace zelk
