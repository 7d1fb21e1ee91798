// no_overlap, sub_interval and no_sub_interval. Lengths and constants meet bounds
// in 64-bit signed arithmetic: an unsigned length subtracted from a bound must be
// able to go below 0, and b + k + 1 may pass the range of int.
#include "impl/interval_propagators.h"

#include <algorithm>
#include <ostream>

#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"

namespace zelk {

typedef small_model::iset iset;

namespace {

// lo..hi added to s, both ends clipped to 0..31.
void add_range(iset& s, long long lo, long long hi) { s |= iset::clipped_range(lo, hi); }

iset hull(const iset& s) { return s.empty() ? s : iset::clipped_range(s.min(), s.max()); }

}  // namespace

//==== no_overlap_propagator =====================================================

void no_overlap_propagator::propagate(iset& first, long long length, iset& second) {
  if (first.empty() || second.empty()) {
    first.clear();
    second.clear();
    return;
  }
  const long long lo = first.min() + length, hi = second.max() - length;
  if (lo > 31 || hi < 0) {
    first.clear();
    second.clear();
    return;
  }
  first &= iset::clipped_range(0, hi);
  second &= iset::clipped_range(lo, 31);
}

propagation_types::result_type no_overlap_propagator::propagate(constraint_runtime_info& info) {
  iset x0_before = info.domain(0), x1_after = info.domain(1);
  iset x0_after = x0_before, x1_before = x1_after;
  propagate(x0_before, m_first_length, x1_after);
  propagate(x1_before, m_second_length, x0_after);
  const iset x0 = x0_before | x0_after, x1 = x1_after | x1_before;
  if (x0.empty()) return UNSAT;
  if (x0 != info.domain(0)) info.set_domain(0, x0);
  if (x1 != info.domain(1)) info.set_domain(1, x1);
  return CONSISTENT;
}

bool no_overlap_propagator::conflicts(const constraint_runtime_info& info) const {
  iset x0_before = info.domain(0), x1_after = info.domain(1);
  iset x0_after = x0_before, x1_before = x1_after;
  propagate(x0_before, m_first_length, x1_after);
  propagate(x1_before, m_second_length, x0_after);
  return x0_before.empty() && x0_after.empty();
}

bool no_overlap_propagator::constraint_check(const constraint_runtime_info& info) const {
  // Both orders: with a length of 0, two tasks at the same point may be in either.
  const long long x0 = info.domain(0).min(), x1 = info.domain(1).min();
  return x0 + m_first_length <= x1 || x1 + m_second_length <= x0;
}

void no_overlap_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "no_overlap(L0=" << m_first_length << ", L1=" << m_second_length << ")";
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 0);
  os << "+" << m_first_length << "<=";
  info->print_param(os, 1);
  os << " || ";
  info->print_param(os, 1);
  os << "+" << m_second_length << "<=";
  info->print_param(os, 0);
  os << ")";
}

// A box A x B holds no solution exactly when max(B) < min(A) + L0 and
// max(A) < min(B) + L1. Each helper moves one end of one side as far as that
// still holds.
void no_overlap_propagator::extend_first_min_for_reduction(iset& first, long long length,
                                                           const iset& second) {
  add_range(first, std::max(second.max() - length + 1, 0LL), first.min());
}

void no_overlap_propagator::extend_first_max_for_reduction(iset& first, const iset& second,
                                                           long long length) {
  add_range(first, first.max(), std::min(second.min() + length - 1, 31LL));
}

void no_overlap_propagator::extend_unsat_towards_equality(iset& a, iset& b) const {
  const long long l0 = m_first_length, l1 = m_second_length;
  long long p = std::max<long long>(b.min(), b.max() - l0 + 1);
  if (a.min() > p) add_range(a, p, a.min());
  p = std::max<long long>(a.min(), a.max() - l1 + 1);
  if (b.min() > p) add_range(b, p, b.min());
  p = std::min<long long>(b.max(), b.min() + l1 - 1);
  if (a.max() < p) add_range(a, a.max(), p);
  p = std::min<long long>(a.max(), a.min() + l0 - 1);
  if (b.max() < p) add_range(b, b.max(), p);
}

void no_overlap_propagator::explain_empty(iset a, iset b, literal_vector& explanation) const {
  extend_first_min_for_reduction(a, m_first_length, b);
  extend_first_min_for_reduction(b, m_second_length, a);
  extend_first_max_for_reduction(a, b, m_second_length);
  extend_first_max_for_reduction(b, a, m_first_length);
  explanation.assign({~a, ~b});
}

void no_overlap_propagator::explain_propagation(unsigned int param, const iset& literal,
                                                const iset& after,
                                                const constraint_runtime_info& info,
                                                literal_vector& explanation) const {
  iset a = hull(info.domain(0)), b = hull(info.domain(1));
  if (a.empty() || b.empty()) {
    // An empty side fails by itself.
    explanation.assign({~info.domain(0), ~info.domain(1)});
    if (!after.empty()) explanation[param] |= after;
    return;
  }
  if (after.empty()) {
    // Conflicts depend on the bounds only, so the hulls fail as well.
    extend_unsat_towards_equality(a, b);
    explain_empty(a, b, explanation);
    return;
  }
  const iset removed = info.domain(param) - after, asked = removed & literal;
  // The removed values form one interval between the two orders: its hull (or the
  // asked part's) against the other side's hull holds no solution. A literal that
  // asks about none of them gets all of them, so that no removed value stays in
  // the clause.
  (param == 0 ? a : b) = hull(asked.empty() ? removed : asked);
  if (param == 0) {
    extend_first_min_for_reduction(b, m_second_length, a);
    extend_first_max_for_reduction(b, a, m_first_length);
  } else {
    extend_first_min_for_reduction(a, m_first_length, b);
    extend_first_max_for_reduction(a, b, m_second_length);
  }
  explain_empty(a, b, explanation);
}

std::unique_ptr<constraint_propagator> no_overlap_propagator::clone() const {
  return std::make_unique<no_overlap_propagator>(*this);
}

//==== sub_interval_propagator ====================================================

bool sub_interval_propagator::can_be_satisfied(const iset& x, const iset& y) const {
  if (x.empty() || y.empty()) return false;
  if (x.max() > y.min()) return true;
  if (x.max() < m_a) return false;
  return y.min() <= m_b;
}

bool sub_interval_propagator::can_be_falsified(const iset& x, const iset& y) const {
  if (x.empty() || y.empty()) return false;
  if (x.min() > y.max()) return false;
  if (x.min() < m_a) return true;
  return m_b < y.max();
}

propagation_types::result_type sub_interval_propagator::init(constraint_runtime_info& info) {
  const iset &x = info.domain(0), &y = info.domain(1);
  if (!can_be_satisfied(x, y)) return UNSAT;
  if (can_be_falsified(x, y)) {
    // Only a lower x's top or a higher y's bottom can cut anything.
    info.allocate_watch(0, UPPER_BOUND_WATCH);
    info.allocate_watch(1, LOWER_BOUND_WATCH);
  }
  return VALID;
}

propagation_types::result_type sub_interval_propagator::propagate(constraint_runtime_info& info) {
  const iset x = info.domain(0), y = info.domain(1);
  if (!can_be_satisfied(x, y)) return UNSAT;
  long long lo = x.max(), hi = y.min();
  if (m_a <= x.max() && y.min() <= m_b) lo = m_a, hi = m_b;
  if (y.min() < lo) lo = y.min() + 1;
  lo = std::max<long long>(x.min(), lo);
  if (x.max() > hi) hi = x.max() - 1;
  hi = std::min<long long>(y.max(), hi);
  return update_domains(info, lo, hi);
}

propagation_types::result_type sub_interval_propagator::update_domains(
    constraint_runtime_info& info, long long lo, long long hi) const {
  iset x = info.domain(0), y = info.domain(1);
  if (y.max() > hi) info.set_domain(1, y &= iset::clipped_range(0, hi));
  if (x.min() < lo) info.set_domain(0, x &= iset::clipped_range(lo, 31));
  return can_be_falsified(x, y) ? CONSISTENT : VALID;
}

bool sub_interval_propagator::conflicts(const constraint_runtime_info& info) const {
  return !can_be_satisfied(info.domain(0), info.domain(1));
}

bool sub_interval_propagator::constraint_check(const constraint_runtime_info& info) const {
  return can_be_satisfied(info.domain(0), info.domain(1));
}

void sub_interval_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "sub_interval";
    return;
  }
  info->print_prefix(os);
  os << "([";
  info->print_param(os, 0);
  os << ",";
  info->print_param(os, 1);
  os << "] sub_interval_of [" << m_a << "," << m_b << "])";
}

std::unique_ptr<constraint_propagator> sub_interval_propagator::clone() const {
  return std::make_unique<sub_interval_propagator>(*this);
}

//==== no_sub_interval_propagator ==================================================

bool no_sub_interval_propagator::can_be_satisfied(const iset& x, const iset& y) const {
  if (x.empty() || y.empty()) return false;
  const long long top = (long long)y.max() - m_k;
  if (x.min() > top) return false;
  if (x.min() < m_a) return true;
  return m_b < top;
}

bool no_sub_interval_propagator::can_be_falsified(const iset& x, const iset& y) const {
  if (x.empty() || y.empty()) return false;
  const long long bottom = (long long)y.min() - m_k;
  if (x.max() > bottom) return true;
  if (m_a > x.max()) return false;
  return bottom <= m_b;
}

propagation_types::result_type no_sub_interval_propagator::init(constraint_runtime_info& info) {
  const iset &x = info.domain(0), &y = info.domain(1);
  if (!can_be_satisfied(x, y)) return UNSAT;
  if (can_be_falsified(x, y)) {
    info.allocate_watch(0, LOWER_BOUND_WATCH);
    info.allocate_watch(1, UPPER_BOUND_WATCH);
  }
  return VALID;
}

propagation_types::result_type no_sub_interval_propagator::propagate(
    constraint_runtime_info& info) {
  iset x = info.domain(0), y = info.domain(1);
  if (!can_be_satisfied(x, y)) return UNSAT;
  const long long k = m_k, a = m_a, b = m_b;
  long long hi = std::min<long long>(x.max(), y.max() - k);
  long long lo = std::max<long long>(x.min() + k, y.min());
  // x can no longer be below a, so y - k must pass b.
  if (x.min() >= a && b + k >= lo) lo = b + k + 1;
  // y - k can no longer pass b, so x must be below a.
  if (y.max() <= b + k && a <= hi) hi = a - 1;
  if (y.min() != lo) info.set_domain(1, y &= iset::clipped_range(lo, 31));
  if (x.max() != hi) info.set_domain(0, x &= iset::clipped_range(0, hi));
  return can_be_falsified(x, y) ? CONSISTENT : VALID;
}

bool no_sub_interval_propagator::conflicts(const constraint_runtime_info& info) const {
  return !can_be_satisfied(info.domain(0), info.domain(1));
}

bool no_sub_interval_propagator::constraint_check(const constraint_runtime_info& info) const {
  return can_be_satisfied(info.domain(0), info.domain(1));
}

void no_sub_interval_propagator::print(std::ostream& os,
                                       const constraint_runtime_info* info) const {
  if (!info) {
    os << "(";
    if (m_k > 0) os << "[x,y-" << m_k << "]";
    if (m_k < 0) os << "[x,y+" << -(long long)m_k << "]";
    os << "no_sub_interval_of [" << m_a << "," << m_b << "])";
    return;
  }
  info->print_prefix(os);
  os << "([";
  info->print_param(os, 0);
  os << ",";
  info->print_param(os, 1);
  if (m_k > 0) os << "-" << m_k;
  if (m_k < 0) os << "+" << -(long long)m_k;
  os << "] no_sub_interval_of [" << m_a << "," << m_b << "])";
}

std::unique_ptr<constraint_propagator> no_sub_interval_propagator::clone() const {
  return std::make_unique<no_sub_interval_propagator>(*this);
}

std::unique_ptr<constraint_propagator> no_sub_interval_propagator::new_propagator(
    const disjunction_specification& form, std::vector<unsigned int>& params) const {
  params.clear();
  params.push_back(form.constraint_var(0));
  params.push_back(form.constraint_var(1));
  const unsigned int n = form.literal_count();
  if (n == 0) {
    if (std::unique_ptr<constraint_propagator> owned = form.release_owned_constraint())
      return owned;
    return form.constraint() ? form.constraint()->clone() : nullptr;
  }
  auto result = std::make_unique<disjoint_propagator<no_sub_interval_propagator, clause_propagation_algo>>(
      no_sub_interval_propagator(m_a, m_b, m_k));
  literal_vector& literals = result->update_literals();
  for (unsigned int i = 0; i < n; ++i) {
    literals.push_back(form.literal(i));
    params.push_back(form.literal_var(i));
  }
  return result;
}

}  // namespace zelk
