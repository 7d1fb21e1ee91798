// The disequalities x != y, x - y != c and L in set or x != y, and the proof
// rules of the first and the last.
#include "impl/neq_propagators.h"

#include <ostream>

#include "impl/arithmetic_propagators.h"

namespace zelk {

namespace {

typedef small_model::iset iset;

const iset BOOLEAN = iset::from_bits(3u);  // {0, 1}

}  // namespace

//==== neq_propagator ===========================================================

propagation_types::result_type neq_propagator::watch_finalization_of_both(
    constraint_runtime_info& info) {
  // Even a fixed side gets its watch: the constraint may first run while the
  // other side is still open, and a finalization never fires twice.
  info.allocate_watch(0, FINALIZATION_WATCH);
  info.allocate_watch(1, FINALIZATION_WATCH);
  return VALID;
}

propagation_types::result_type neq_propagator::init(constraint_runtime_info& info) {
  return watch_finalization_of_both(info);
}

propagation_types::result_type neq_propagator::propagate(constraint_runtime_info& info) {
  const iset x = info.domain(0);
  const iset y = info.domain(1);
  if (x.disjoint(y)) return VALID;  // an empty side included
  if (!x.is_singleton()) {
    if (!y.is_singleton()) return CONSISTENT;
    info.set_domain(0, x - y);
    return VALID;
  }
  if (!y.subset_of(x)) {
    info.set_domain(1, y - x);
    return VALID;
  }
  return UNSAT;  // x = y = {v}
}

bool neq_propagator::conflicts(const constraint_runtime_info& info) const {
  const iset& x = info.domain(0);
  return x.is_singleton() && info.domain(1) == x;
}

bool neq_propagator::constraint_check(const constraint_runtime_info& info) const {
  return info.domain(0) != info.domain(1);
}

void neq_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "neq";
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 0);
  os << "!=";
  info->print_param(os, 1);
  os << ")";
}

std::unique_ptr<explanation_rule> neq_propagator::rule(const literal_vector& explanation) const {
  if (explanation.empty() || explanation[0].is_full()) return nullptr;
  return std::make_unique<neq_rule>(unsigned((~explanation[0]).max()));
}

std::unique_ptr<constraint_propagator> neq_propagator::clone() const {
  return std::make_unique<neq_propagator>(*this);
}

std::unique_ptr<constraint_propagator> neq_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  if (info.domain(0) != BOOLEAN || info.domain(1) != BOOLEAN) return nullptr;
  kept = {0, 1};
  return std::make_unique<sum_mod_propagator>(2, 1);
}

//==== neq_rule ===================================================================

std::unique_ptr<explanation_rule> neq_propagator::neq_rule::clone() const {
  return std::make_unique<neq_rule>(*this);
}

void neq_propagator::neq_rule::get_explanation(
    std::vector<small_model::iset>& explanation) const {
  const iset other = ~iset::singleton(int(m_value));
  explanation.assign(2, other);
}

void neq_propagator::neq_rule::print(std::ostream& os, const variable_print_strategy&,
                                     const std::vector<unsigned int>&) const {
  os << "DIFF(" << m_value << ")";
}

//==== difference_neq_constant_propagator ==========================================

propagation_types::result_type difference_neq_constant_propagator::init(
    constraint_runtime_info& info) {
  return neq_propagator::watch_finalization_of_both(info);
}

propagation_types::result_type difference_neq_constant_propagator::propagate(
    constraint_runtime_info& info) {
  // In 64 bits: the constant may be any int. A target outside 0..31 removes
  // nothing, since the difference can no longer reach c.
  const long long c = m_constant;
  const iset x = info.domain(0);
  if (x.is_singleton()) {
    iset y = info.domain(1);
    const long long b = x.min() - c;
    if (b >= 0 && b <= 31) y.erase(int(b));
    if (y.empty()) return UNSAT;
    info.set_domain(1, y);
    return VALID;
  }
  const iset y = info.domain(1);
  if (!y.is_singleton()) return CONSISTENT;
  iset rest = x;
  const long long a = y.min() + c;
  if (a >= 0 && a <= 31) rest.erase(int(a));
  if (rest.empty()) return UNSAT;
  info.set_domain(0, rest);
  return VALID;
}

bool difference_neq_constant_propagator::conflicts(const constraint_runtime_info& info) const {
  return info.domain(0).is_singleton() && info.domain(1).is_singleton() &&
         !constraint_check(info);
}

bool difference_neq_constant_propagator::constraint_check(
    const constraint_runtime_info& info) const {
  return (long long)info.domain(0).min() - info.domain(1).min() != m_constant;
}

void difference_neq_constant_propagator::print(std::ostream& os,
                                               const constraint_runtime_info* info) const {
  if (!info) {
    os << "difference_neq_constant(" << m_constant << ")";
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 0);
  os << "-";
  info->print_param(os, 1);
  os << "!=" << m_constant << ")";
}

std::unique_ptr<constraint_propagator> difference_neq_constant_propagator::clone() const {
  return std::make_unique<difference_neq_constant_propagator>(*this);
}

//==== literal_or_neq_propagator ====================================================

propagation_types::result_type literal_or_neq_propagator::init_non_literal_part(
    constraint_runtime_info& info) {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (x.disjoint(y)) return VALID;
  if (x.is_singleton() && x == y) return UNSAT;
  info.allocate_watch(1, FINALIZATION_WATCH);
  info.allocate_watch(2, FINALIZATION_WATCH);
  return VALID;
}

propagation_types::result_type literal_or_neq_propagator::propagate_non_literal_part(
    constraint_runtime_info& info) {
  const iset x = info.domain(1);
  const iset y = info.domain(2);
  if (y.is_singleton()) {
    // Not written when unchanged: a write of the same set is still a modification.
    if (x.intersects(y)) info.set_domain(1, x - y);
    return VALID;
  }
  if (x.empty()) return VALID;
  if (!x.is_singleton()) return x.intersects(y) ? CONSISTENT : VALID;
  if (y.intersects(x)) info.set_domain(2, y - x);
  return VALID;
}

propagation_types::result_type literal_or_neq_propagator::state_of_non_literal_part(
    const constraint_runtime_info& info) const {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (x.empty() || y.empty() || (x.is_singleton() && x == y)) return UNSAT;
  if (x.disjoint(y)) return VALID;
  return CONSISTENT;
}

void literal_or_neq_propagator::print_non_literal_part(std::ostream& os,
                                                       const constraint_runtime_info* info) const {
  if (!info) {
    os << "neq_propagator";
    return;
  }
  info->print_param(os, 1);
  os << "!=";
  info->print_param(os, 2);
}

bool literal_or_neq_propagator::constraint_check_non_literal_part(
    const constraint_runtime_info& info) const {
  return info.domain(1) != info.domain(2);
}

std::unique_ptr<explanation_rule> literal_or_neq_propagator::rule(
    const literal_vector& explanation) const {
  if (explanation.size() < 2) return nullptr;
  const bool domain_rule = explanation[1].empty();
  const unsigned int value = domain_rule || explanation[1].is_full()
                                 ? 0u
                                 : unsigned((~explanation[1]).max());
  return std::make_unique<literal_or_neq_rule>(value, m_literal, domain_rule);
}

//==== literal_or_neq_rule ==========================================================

std::unique_ptr<explanation_rule> literal_or_neq_propagator::literal_or_neq_rule::clone() const {
  return std::make_unique<literal_or_neq_rule>(*this);
}

void literal_or_neq_propagator::literal_or_neq_rule::get_explanation(
    std::vector<small_model::iset>& explanation) const {
  explanation.assign(3, iset());
  if (m_domain_rule) {
    explanation[0] = iset::full();
    return;
  }
  explanation[0] = m_literal;
  explanation[1] = explanation[2] = ~iset::singleton(int(m_value));
}

void literal_or_neq_propagator::literal_or_neq_rule::print(
    std::ostream& os, const variable_print_strategy&, const std::vector<unsigned int>&) const {
  if (m_domain_rule)
    os << "LIT_OR_NEQ_DOM";
  else
    os << "LIT_OR_NEQ({" << m_literal << "}," << m_value << ")";
}

}  // namespace zelk
