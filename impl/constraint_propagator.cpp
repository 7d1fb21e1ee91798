// Defaults of the propagator interface and the two tight explanation bases.
#include "impl/constraint_propagator.h"

#include <ostream>
#include <stdexcept>

#include "impl/comparison_propagators.h"
#include "impl/explanation_generators.h"

namespace zelk {

std::ostream& operator<<(std::ostream& os, propagation_types::result_type result) {
  switch (result) {
    case propagation_types::UNSAT: return os << "UNSAT";
    case propagation_types::VALID: return os << "VALID";
    case propagation_types::CONSISTENT: return os << "CONSISTENT";
    case propagation_types::POSTPONE: return os << "POSTPONE";
  }
  return os << "unknown result_type(" << int(result);
}

unsigned int constraint_propagator::count_params() const { return ANY_NUMBER_OF_PARAMS; }

propagation_types::result_type constraint_propagator::init(constraint_runtime_info& info) {
  const unsigned int n = info.arity();
  for (unsigned int i = 0; i < n; ++i)
    if (!info.domain(i).is_singleton()) info.allocate_watch(i, MODIFICATION_WATCH);
  return VALID;
}

void constraint_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (info) info->print(os);
}

unsigned int constraint_propagator::watched_param_index(unsigned int) const {
  throw std::runtime_error(
      "impl/constraint_propagator:41: constraint_propagator::watched_param_index\n"
      "\t\t\t\t has no dynamic watches to work on");
}

unsigned int constraint_propagator::count_watches() const { return 0; }

void constraint_propagator::forget_watches() {}

void constraint_propagator::explain_propagation(unsigned int param,
                                                const small_model::iset& literal,
                                                const small_model::iset& after,
                                                const constraint_runtime_info& info,
                                                literal_vector& explanation) const {
  explanation_generators::explain_propagation(param, literal, after, info, explanation);
}

void constraint_propagator::possibly_crippling_values(unsigned int param,
                                                      const small_model::iset& values,
                                                      const constraint_runtime_info& info,
                                                      literal_vector& out) const {
  std::unique_ptr<constraint_propagator> copy = clone();
  explanation_generators::possibly_crippling_values(*copy, param, values, info, out);
}

std::unique_ptr<explanation_rule> constraint_propagator::rule(const literal_vector&) const {
  return nullptr;
}

std::unique_ptr<constraint_propagator> constraint_propagator::intersect_with(
    const constraint_runtime_info&, std::vector<unsigned int>&) const {
  return nullptr;
}

bool constraint_propagator::potentially_falsifying(const constraint_runtime_info&,
                                                   unsigned int) const {
  return false;
}

bool constraint_propagator::get_disjunction_specification(disjunction_specification&) const {
  return false;
}

bool constraint_propagator::disjoin_constraint(const disjunction_specification&,
                                               const disjunction_specification&,
                                               disjunction_specification&) const {
  return false;
}

bool constraint_propagator::combine_base_constraints(const disjunction_specification&,
                                                     const disjunction_specification&,
                                                     unsigned int,
                                                     disjunction_specification&) const {
  return false;
}

std::unique_ptr<constraint_propagator> constraint_propagator::new_propagator(
    const disjunction_specification&, std::vector<unsigned int>&) const {
  return nullptr;
}

// Any constraint can take an equality by substitution, which the equality does.
bool constraint_propagator::may_combine(const constraint_propagator& other) const {
  return dynamic_cast<const equal_propagator*>(&other) != nullptr;
}

std::unique_ptr<constraint_propagator> constraint_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  if (!dynamic_cast<const equal_propagator*>(&right)) return nullptr;
  return combine_other_first(info, right, right_info, map, pivot, out);
}

std::unique_ptr<constraint_propagator> constraint_propagator::combine_other_first(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  const unsigned int nl = info.arity();
  const unsigned int nr = right_info.arity();
  // Not a static buffer: `right` may come back here through its own combine.
  std::vector<unsigned int> inverse(nl);
  for (unsigned int i = 0; i < nl; ++i) inverse[i] = nr + i;
  for (unsigned int j = 0; j < map.size(); ++j)
    if (map[j] < nl) inverse[map[j]] = j;
  std::unique_ptr<constraint_propagator> result =
      right.combine(right_info, *this, info, inverse, map[pivot], out);
  if (result) {
    for (unsigned int& e : out) e = e >= nr ? e - nr : map[e];
  }
  return result;
}

//==== tight explanations ====================================================

void tight_constraint_propagator::explain_propagation(unsigned int param,
                                                      const small_model::iset& literal,
                                                      const small_model::iset& after,
                                                      const constraint_runtime_info& info,
                                                      literal_vector& explanation) const {
  std::unique_ptr<constraint_propagator> copy = clone();
  explanation_generators::explain_propagation_tightly(*copy, param, literal, after, info,
                                                      explanation);
}

void tight1_constraint_propagator::explain_propagation(unsigned int param,
                                                       const small_model::iset& literal,
                                                       const small_model::iset& after,
                                                       const constraint_runtime_info& info,
                                                       literal_vector& explanation) const {
  std::unique_ptr<constraint_propagator> copy = clone();
  unsigned int order[2];
  unsigned int count = 0;
  const auto none = [](unsigned int p) { return int(p) < 0; };
  if (!after.empty()) {
    const unsigned int a = info.latest_modified_param(param);
    if (!none(a)) order[count++] = a;
    order[count++] = param;
  } else {
    const unsigned int a = info.latest_modified_param(constraint_runtime_info::NO_PARAM);
    const unsigned int b = none(a) ? constraint_runtime_info::NO_PARAM
                                   : info.latest_modified_param(a);
    if (!none(b)) order[count++] = b;
    if (!none(a)) order[count++] = a;
    if (count == 0) order[count++] = 0;
  }
  explanation_generators::refined_explanation(*copy, param, literal, after, order,
                                              order + count, info, explanation);
}

}  // namespace zelk
