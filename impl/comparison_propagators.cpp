// The comparison propagators: equality, difference, reified equality, the
// conditional, element, minimum and maximum, the literal-guarded relations; and
// the combination algebra of the difference and the substitution of the equality.
#include "impl/comparison_propagators.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <ostream>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/constraint_connectivity_info.h"
#include "impl/constraint_explicit_info.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
#include "impl/interval_propagators.h"
#include "impl/neq_propagators.h"
#include "impl/sliced_runtime_info.h"

namespace zelk {

namespace {

typedef small_model::iset iset;

const iset BOOLEAN = iset::from_bits(3u);  // {0, 1}

// "minus_" and the absolute value for a negative constant.
void print_constant(std::ostream& os, long long c) {
  if (c < 0)
    os << "minus_" << -c;
  else
    os << c;
}

}  // namespace

//==== equal_propagator ==========================================================

propagation_types::result_type equal_propagator::propagate(constraint_runtime_info& info) {
  const iset x = info.domain(0);
  const iset y = info.domain(1);
  const iset both = x & y;
  if (x.subset_of(y)) {
    if (x == y) return CONSISTENT;
    if (x.empty()) return UNSAT;
    info.set_domain(1, both);
    return CONSISTENT;
  }
  if (both.empty()) return UNSAT;
  info.set_domains({0, 1}, both);
  return CONSISTENT;
}

bool equal_propagator::conflicts(const constraint_runtime_info& info) const {
  return info.domain(0).disjoint(info.domain(1));
}

bool equal_propagator::constraint_check(const constraint_runtime_info& info) const {
  return info.domain(0).min() == info.domain(1).min();
}

void equal_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "equal";
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 0);
  os << "==";
  info->print_param(os, 1);
  os << ")";
}

std::unique_ptr<constraint_propagator> equal_propagator::clone() const {
  return std::make_unique<equal_propagator>(*this);
}

std::unique_ptr<constraint_propagator> equal_propagator::new_propagator(
    const disjunction_specification& form, std::vector<unsigned int>& params) const {
  params.clear();
  const unsigned int n = form.literal_count();
  if (n == 1) {
    params = {form.literal_var(0), form.constraint_var(0), form.constraint_var(1)};
    return std::make_unique<literal_or_equal_propagator>(form.literal(0));
  }
  params.push_back(form.constraint_var(0));
  params.push_back(form.constraint_var(1));
  if (n == 0) {
    if (std::unique_ptr<constraint_propagator> owned = form.release_owned_constraint())
      return owned;
    return form.constraint() ? form.constraint()->clone() : nullptr;
  }
  auto result = std::make_unique<disjoint_propagator<equal_propagator, clause_propagation_algo>>(
      *this);
  literal_vector& literals = result->update_literals();
  for (unsigned int k = 0; k < n; ++k) {
    literals.push_back(form.literal(k));
    params.push_back(form.literal_var(k));
  }
  return result;
}

bool equal_propagator::may_combine(const constraint_propagator&) const { return true; }

std::unique_ptr<constraint_propagator> equal_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  if (pivot >= map.size() || map[pivot] > 1) return nullptr;  // the pivot isn't x or y
  const unsigned int keep = 1 - map[pivot];
  const unsigned int n = right_info.arity();
  out.resize(n);
  sliced_runtime_info slice(right_info, 0, n);
  // A throw-away run: watches are dropped with the view, and the constraint
  // queue answer keeps a long propagator from postponing itself.
  constraint_watchless_info view(slice, constraint_runtime_info::CONSTRAINT_QUEUE);
  for (unsigned int i = 0; i < n; ++i) {
    if (map[i] == keep) return nullptr;  // the partner occurs in right already
    if (i == pivot) {
      out[i] = keep;
      slice.set_domain(i, info.domain(keep));
    } else {
      out[i] = map[i];
    }
  }
  std::unique_ptr<constraint_propagator> copy = right.clone();
  if (copy->init(view) == UNSAT || copy->propagate(view) == UNSAT) {
    copy->forget_watches();
    return copy;
  }
  return nullptr;
}

//==== difference_ge_propagator ===================================================

propagation_types::result_type difference_ge_propagator::init(constraint_runtime_info& info) {
  info.allocate_watch(1, LOWER_BOUND_WATCH);
  info.allocate_watch(0, UPPER_BOUND_WATCH);
  return VALID;
}

propagation_types::result_type difference_ge_propagator::propagate(
    constraint_runtime_info& info) {
  const iset x = info.domain(0);
  const iset y = info.domain(1);
  if (x.empty() || y.empty()) return UNSAT;
  const long long c = m_constant;
  const long long max_x = x.max();
  const long long min_y = y.min();
  if (max_x - min_y < c) return UNSAT;
  if (y.max() > max_x - c) {
    const iset cut = y & iset::clipped_range(0, max_x - c);
    if (cut.empty()) return UNSAT;
    info.set_domain(1, cut);
  }
  if (x.min() < min_y + c) {
    const iset cut = x & iset::clipped_range(min_y + c, 31);
    if (cut.empty()) return UNSAT;
    info.set_domain(0, cut);
  }
  // Entailed once the least x still beats the greatest y.
  const long long new_min_x = info.domain(0).min();
  const long long new_max_y = info.domain(1).max();
  return new_min_x - new_max_y < c ? CONSISTENT : VALID;
}

bool difference_ge_propagator::conflicts(const constraint_runtime_info& info) const {
  const iset& x = info.domain(0);
  const iset& y = info.domain(1);
  if (x.empty() || y.empty()) return true;
  return (long long)x.max() - y.min() < m_constant;
}

bool difference_ge_propagator::constraint_check(const constraint_runtime_info& info) const {
  return (long long)info.domain(0).min() - info.domain(1).min() >= m_constant;
}

void difference_ge_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "diff_ge_";
    print_constant(os, m_constant);
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 0);
  os << "-";
  info->print_param(os, 1);
  os << ">=" << m_constant << ")";
}

std::unique_ptr<explanation_rule> difference_ge_propagator::rule(
    const literal_vector& explanation) const {
  const int bound =
      explanation.empty() || explanation[0].empty() ? 31 : explanation[0].min() - 1;
  return std::make_unique<diff_ge_rule>(m_constant, bound);
}

std::unique_ptr<constraint_propagator> difference_ge_propagator::clone() const {
  return std::make_unique<difference_ge_propagator>(*this);
}

std::unique_ptr<constraint_propagator> difference_ge_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  if (!info.domain(0).is_singleton() && !info.domain(1).is_singleton()) return nullptr;
  const linear_combination_ge_propagator sum(m_constant, {1, -1});
  return sum.intersect_with(info, kept);
}

//==== diff_ge_rule =================================================================

std::unique_ptr<explanation_rule> difference_ge_propagator::diff_ge_rule::clone() const {
  return std::make_unique<diff_ge_rule>(*this);
}

void difference_ge_propagator::diff_ge_rule::get_explanation(
    std::vector<small_model::iset>& explanation) const {
  // x > t or y <= t - c.
  explanation.clear();
  explanation.resize(2);
  const long long t = m_bound;
  if (t < 31) explanation[0] = iset::clipped_range(t + 1, 31);
  if (t - m_constant >= 0) explanation[1] = iset::clipped_range(0, t - m_constant);
}

void difference_ge_propagator::diff_ge_rule::print(std::ostream& os,
                                                   const variable_print_strategy&,
                                                   const std::vector<unsigned int>&) const {
  os << "DIFF_GE_";
  print_constant(os, m_constant);
  os << "(" << m_bound << ")";
}

//==== difference_ge_propagator: combination =========================================

bool difference_ge_propagator::get_disjunction_specification(
    disjunction_specification& form) const {
  form.declare_literals(nullptr, 0, 0);
  form.declare_constraint(this, 0);
  return true;
}

bool difference_ge_propagator::disjoin_constraint(const disjunction_specification& left,
                                                  const disjunction_specification& right,
                                                  disjunction_specification& result) const {
  const auto* other = dynamic_cast<const difference_ge_propagator*>(right.constraint());
  if (!other) return false;
  // Positions from each base constraint on; the literal positions that follow
  // take part as well, so only like-shaped constraints count as the same.
  const unsigned int n = left.constraint_param_count() + left.literal_count();
  bool same = true;
  for (unsigned int i = 0; i < n && same; ++i)
    same = left.var_at(left.constraint_start() + i) == right.var_at(right.constraint_start() + i);
  if (!same) return disjoin_incompatible_constraint(left, right, result);
  // On the same variables the weaker difference holds in either case.
  result.append_constraint(other->constant() >= m_constant ? left : right);
  return true;
}

bool difference_ge_propagator::disjoin_incompatible_constraint(
    const disjunction_specification& left, const disjunction_specification& right,
    disjunction_specification& result) const {
  // Right's base becomes literals on its variables and left's base stays, so no
  // variable may be shared: a base variable of one side found anywhere in the
  // other would stand both in the literals and in the base of the result.
  const unsigned int n = left.constraint_param_count() + left.literal_count();
  for (unsigned int i = 0; i < n; ++i) {
    const unsigned int v = left.var_at(left.constraint_start() + i);
    if (right.find_constraint_param(v) >= 0 || right.find_literal(v) >= 0) return false;
  }
  const unsigned int m = right.constraint_param_count() + right.literal_count();
  for (unsigned int i = 0; i < m; ++i) {
    const unsigned int v = right.var_at(right.constraint_start() + i);
    if (left.find_constraint_param(v) >= 0 || left.find_literal(v) >= 0) return false;
  }
  const unsigned int count = right.constraint_param_count();
  constraint_explicit_info domains(count);
  for (unsigned int i = 0; i < count; ++i) domains.domains()[i] = right.constraint_domain(i);
  const constraint_propagator& base = *right.constraint();
  if (!base.conflicts(domains)) return false;
  // Right's base is false here: its explanation clause stands in for it.
  literal_vector explanation;
  base.explain_propagation(0, domains.domain(0), iset(), domains, explanation);
  result.clear();
  for (unsigned int i = 0; i < count && i < explanation.size(); ++i)
    result.add_literal(right.constraint_var(i), explanation[i]);
  result.append_constraint(left);
  return true;
}

bool difference_ge_propagator::combine_base_constraints(const disjunction_specification& left,
                                                        const disjunction_specification& right,
                                                        unsigned int pivot,
                                                        disjunction_specification& result) const {
  result.clear();
  const auto* other = dynamic_cast<const difference_ge_propagator*>(right.constraint());
  if (!other || left.constraint_param_count() < 2 || right.constraint_param_count() < 2)
    return false;
  const unsigned int a = left.constraint_var(0);
  const unsigned int b = left.constraint_var(1);
  const unsigned int p = right.constraint_var(0);
  const unsigned int q = right.constraint_var(1);
  if (q == a && p == b) return combine_circular_pivot(left, right, other->constant(), result);
  if (pivot == b && pivot == p) return combine_middle_pivot(left, right, other->constant(), result);
  if (pivot == a && pivot == q) return other->combine_middle_pivot(right, left, m_constant, result);
  return false;
}

bool difference_ge_propagator::combine_circular_pivot(const disjunction_specification& left,
                                                      const disjunction_specification&,
                                                      int right_constant,
                                                      disjunction_specification& result) const {
  const long long sum = (long long)m_constant + right_constant;
  // a - b >= c0 and b - a >= c1 add up to 0 >= c0 + c1: false together.
  if (sum > 0) return true;
  if (m_constant != 0 || right_constant != 0) return false;
  result.own_constraint(std::make_unique<equal_propagator>());
  result.add_constraint_param(left.constraint_var(0));
  result.add_constraint_param(left.constraint_var(1));
  return true;
}

bool difference_ge_propagator::combine_middle_pivot(const disjunction_specification& left,
                                                    const disjunction_specification& right,
                                                    int right_constant,
                                                    disjunction_specification& result) const {
  const long long sum = (long long)m_constant + right_constant;
  if (sum > INT_MAX) return false;
  const iset& z_domain = right.constraint_domain(1);
  const iset& a_domain = left.constraint_domain(0);
  if (z_domain.empty() || a_domain.empty()) return false;
  const long long lo = z_domain.min();
  const long long hi = a_domain.max();
  if (lo > hi - sum) {
    // The plain sum a - z >= c0 + c1 fails on these domains already.
    result.own_constraint(std::make_unique<difference_ge_propagator>(int(sum)));
    result.add_constraint_param(left.constraint_var(0));
    result.add_constraint_param(right.constraint_var(1));
    return true;
  }
  // The plain sum would lose the conflict, so the pivot stays as a literal: any
  // solution of both with p outside c1 + lo .. hi - c0 has z below lo or a above hi.
  if (sum < INT_MIN) return false;
  const long long low = std::max(lo + right_constant, 0LL);
  const long long high = std::min(hi - m_constant, 31LL);
  if (low <= high && low <= 31 && high >= 0)
    result.add_literal(left.constraint_var(1), iset::clipped_range(low, high));
  if (hi - sum > 31) return false;
  // a - z >= sum, and not both z >= lo and a <= hi.
  result.own_constraint(
      std::make_unique<no_sub_interval_propagator>(int(lo), int(hi - sum), int(sum)));
  result.add_constraint_param(right.constraint_var(1));
  result.add_constraint_param(left.constraint_var(0));
  return true;
}

std::unique_ptr<constraint_propagator> difference_ge_propagator::new_propagator(
    const disjunction_specification& form, std::vector<unsigned int>& params) const {
  params.clear();
  const unsigned int n = form.literal_count();
  if (n == 1) {
    params = {form.literal_var(0), form.constraint_var(0), form.constraint_var(1)};
    return std::make_unique<literal_or_difference_ge_propagator>(form.literal(0), m_constant);
  }
  params.push_back(form.constraint_var(0));
  params.push_back(form.constraint_var(1));
  if (n == 0) {
    if (std::unique_ptr<constraint_propagator> owned = form.release_owned_constraint())
      return owned;
    return form.constraint() ? form.constraint()->clone() : nullptr;
  }
  auto result = std::make_unique<difference_ge_or_clause_propagator>(m_constant);
  literal_vector& literals = result->update_literals();
  for (unsigned int k = 0; k < n; ++k) {
    literals.push_back(form.literal(k));
    params.push_back(form.literal_var(k));
  }
  return result;
}

bool difference_ge_propagator::may_combine(const constraint_propagator& other) const {
  return may_combine_diff_ge_propagator(other);
}

bool difference_ge_propagator::may_combine_diff_ge_propagator(const constraint_propagator& other) {
  return dynamic_cast<const difference_ge_propagator*>(&other) ||
         dynamic_cast<const literal_or_difference_ge_propagator*>(&other) ||
         dynamic_cast<const difference_ge_or_clause_propagator*>(&other) ||
         dynamic_cast<const clause_propagator*>(&other);
}

std::unique_ptr<constraint_propagator> difference_ge_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  return disjunction_specification::combine_propagators(info, *this, right, right_info, map,
                                                        pivot, out);
}

//==== is_equal_propagator ===========================================================

propagation_types::result_type is_equal_propagator::propagate(constraint_runtime_info& info) {
  iset b = info.domain(0) & BOOLEAN;
  const iset x = info.domain(1);
  const iset y = info.domain(2);
  if (x.empty())
    b.erase(1);
  else if (x.is_singleton() && x == y)
    b.erase(0);
  else if (x.disjoint(y))
    b.erase(1);
  if (b.empty()) return UNSAT;
  info.set_domain(0, b);
  if (b == iset::singleton(0)) return propagate_diff(info);
  if (b == iset::singleton(1)) return propagate_equal(info);
  return CONSISTENT;
}

propagation_types::result_type is_equal_propagator::propagate_diff(constraint_runtime_info& info) {
  const iset x = info.domain(1);
  const iset y = info.domain(2);
  if (x.is_singleton()) {
    const iset rest = y - x;
    if (rest.empty()) return UNSAT;
    info.set_domain(2, rest);
    return VALID;
  }
  if (!y.is_singleton()) return CONSISTENT;
  if (x.subset_of(y)) return UNSAT;
  info.set_domain(1, x - y);
  return VALID;
}

propagation_types::result_type is_equal_propagator::propagate_equal(
    constraint_runtime_info& info) {
  const iset x = info.domain(1);
  const iset y = info.domain(2);
  if (x == y) return CONSISTENT;
  const iset both = x & y;
  if (both.empty()) return UNSAT;
  info.set_domains({1, 2}, both);
  return CONSISTENT;
}

bool is_equal_propagator::conflicts(const constraint_runtime_info& info) const {
  const iset& b = info.domain(0);
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (b.contains(0) && b.contains(1)) return false;
  if (b.contains(0)) return x.is_singleton() && x == y;
  if (b.contains(1)) return x.disjoint(y);
  return true;
}

bool is_equal_propagator::constraint_check(const constraint_runtime_info& info) const {
  const bool equal = info.domain(1).min() == info.domain(2).min();
  return info.domain(0).min() == (equal ? 1 : 0);
}

void is_equal_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "is_equal";
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 0);
  os << " iff ";
  info->print_param(os, 1);
  os << " = ";
  info->print_param(os, 2);
  os << ")";
}

std::unique_ptr<constraint_propagator> is_equal_propagator::clone() const {
  return std::make_unique<is_equal_propagator>(*this);
}

//==== if_then_else_propagator =========================================================

propagation_types::result_type if_then_else_propagator::propagate(
    constraint_runtime_info& info) {
  // Copies: a write may move the pending sets of a sliced view.
  const iset r = info.domain(0);
  iset c = info.domain(1) & BOOLEAN;
  const iset t = info.domain(2);
  const iset e = info.domain(3);
  if (!c.is_singleton()) {
    if (t.disjoint(r)) c.erase(1);
    if (e.disjoint(r)) c.erase(0);
    if (c.empty()) return UNSAT;
  }
  info.set_domain(1, c);
  if (c.is_singleton()) return c.contains(1) ? propagate_then(info) : propagate_else(info);
  const iset reachable = (t | e) & r;
  if (reachable.empty()) return UNSAT;
  info.set_domain(0, reachable);
  return CONSISTENT;
}

namespace {

// r = branch: both become their intersection.
propagation_types::result_type propagate_branch(constraint_runtime_info& info,
                                                unsigned int branch) {
  const iset v = info.domain(branch) & info.domain(0);
  if (v.empty()) return propagation_types::UNSAT;
  info.set_domain(branch, v);
  info.set_domain(0, v);
  return v.is_singleton() ? propagation_types::VALID : propagation_types::CONSISTENT;
}

}  // namespace

propagation_types::result_type if_then_else_propagator::propagate_then(
    constraint_runtime_info& info) {
  return propagate_branch(info, 2);
}

propagation_types::result_type if_then_else_propagator::propagate_else(
    constraint_runtime_info& info) {
  return propagate_branch(info, 3);
}

bool if_then_else_propagator::conflicts(const constraint_runtime_info& info) const {
  const iset& r = info.domain(0);
  const iset& c = info.domain(1);
  if (c.contains(1) && r.intersects(info.domain(2))) return false;
  if (c.contains(0) && r.intersects(info.domain(3))) return false;
  return true;
}

bool if_then_else_propagator::constraint_check(const constraint_runtime_info& info) const {
  const int c = info.domain(1).min();
  if (c > 1) return false;
  return info.domain(0).min() == info.domain(c == 1 ? 2 : 3).min();
}

void if_then_else_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "if_then_else";
    return;
  }
  info->print_prefix(os);
  info->print_param(os, 0);
  os << "=(";
  info->print_param(os, 1);
  os << " ? ";
  info->print_param(os, 2);
  os << " : ";
  info->print_param(os, 3);
  os << ")";
}

std::unique_ptr<constraint_propagator> if_then_else_propagator::clone() const {
  return std::make_unique<if_then_else_propagator>(*this);
}

//==== element_propagator ==============================================================

namespace {

// The index values that select a position (s .. s + n - 1) and that a domain can
// hold; empty when none can.
iset selectable_values(long long first_index, unsigned int arity) {
  return iset::clipped_range(first_index, first_index + (long long)arity - 3);
}

}  // namespace

propagation_types::result_type element_propagator::propagate(constraint_runtime_info& info) {
  const unsigned int arity = info.arity();
  if (arity < 3) return UNSAT;
  const unsigned int last = arity - 1;
  const iset old_index = info.domain(0);
  const iset r = info.domain(last);
  const iset selectable = selectable_values(m_first_index, arity);
  iset index = old_index & selectable;
  iset reachable;
  for (int v : old_index & selectable) {
    const iset& a = info.domain(unsigned(v - m_first_index + 1));
    if (a.intersects(r))
      reachable |= a;
    else
      index.erase(v);
  }
  if (index.empty()) return UNSAT;
  if (index != old_index) info.set_domain(0, index);
  if (!r.subset_of(reachable)) info.set_domain(last, r & reachable);
  if (index.is_singleton() && !reachable.subset_of(r)) {
    const unsigned int selected = unsigned(index.min() - m_first_index + 1);
    const iset a = info.domain(selected) & info.domain(last);
    if (a != info.domain(selected)) info.set_domain(selected, a);
  }
  return CONSISTENT;
}

bool element_propagator::conflicts(const constraint_runtime_info& info) const {
  const unsigned int arity = info.arity();
  if (arity < 3) return true;
  const iset& r = info.domain(arity - 1);
  for (int v : info.domain(0) & selectable_values(m_first_index, arity))
    if (info.domain(unsigned(v - m_first_index + 1)).intersects(r)) return false;
  return true;
}

bool element_propagator::constraint_check(const constraint_runtime_info& info) const {
  const unsigned int arity = info.arity();
  if (arity < 3) return false;
  const long long position = (long long)info.domain(0).min() - m_first_index;
  if (position < 0 || position >= (long long)arity - 2) return false;
  return info.domain(unsigned(position + 1)).min() == info.domain(arity - 1).min();
}

void element_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "element";
    return;
  }
  const unsigned int arity = info->arity();
  info->print_prefix(os);
  os << "({";
  for (unsigned int i = 1; i + 1 < arity; ++i) {
    if (i > 1) os << ", ";
    info->print_param(os, i);
  }
  os << "}[";
  info->print_param(os, 0);
  if (m_first_index > 0) os << "+" << m_first_index;
  if (m_first_index < 0) os << "-" << -(long long)m_first_index;
  os << "] == ";
  if (arity > 1) info->print_param(os, arity - 1);
  os << ")";
}

std::unique_ptr<constraint_propagator> element_propagator::clone() const {
  return std::make_unique<element_propagator>(*this);
}

std::unique_ptr<constraint_propagator> element_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  const unsigned int arity = info.arity();
  if (arity < 3) {
    kept.clear();
    return std::make_unique<clause_propagator>();
  }
  const unsigned int n = arity - 2, last = arity - 1;
  const iset& index = info.domain(0);
  const iset& r = info.domain(last);
  const auto alive = [&](unsigned int i) {
    const long long v = (long long)m_first_index + i;
    return v >= 0 && v <= 31 && index.contains(int(v)) && info.domain(i + 1).intersects(r);
  };
  unsigned int lo = 0;
  while (lo < n && !alive(lo)) ++lo;
  unsigned int hi = n;
  while (hi > lo && !alive(hi - 1)) --hi;
  if (lo == 0 && hi == n) return nullptr;
  kept.clear();
  if (hi - lo == 1 && index.is_singleton()) {
    kept = {lo + 1, last};
    return std::make_unique<equal_propagator>();
  }
  kept.push_back(0);
  for (unsigned int i = lo; i < hi; ++i) kept.push_back(i + 1);
  kept.push_back(last);
  // With no position alive the first index is never read again.
  const int first = lo < n ? int(m_first_index + (long long)lo) : m_first_index;
  return std::make_unique<element_propagator>(first);
}

void element_propagator::explain_propagation(unsigned int param, const iset& literal,
                                             const iset& after,
                                             const constraint_runtime_info& info,
                                             literal_vector& explanation) const {
  explanation.clear();
  if (after.empty())
    explain_conflict(info, explanation);
  else if (param == 0)
    explain_index_propagation(literal, after, info, explanation);
  else if (param + 1 == info.arity())
    explain_result_propagation(literal, after, info, explanation);
  else
    explain_equality_propagation(param, literal, after, info, explanation);
}

void element_propagator::explain_conflict(const constraint_runtime_info& info,
                                          literal_vector& explanation) const {
  const unsigned int arity = info.arity();
  explanation.assign(arity, iset());
  if (arity < 3) return;
  const iset selectable = selectable_values(m_first_index, arity);
  if (selectable.empty()) return;
  const iset index = info.domain(0) & selectable;
  if (index.empty()) {
    explanation[0] = selectable;
    return;
  }
  const iset r = info.domain(arity - 1);
  for (int v : index) explanation[unsigned(v - m_first_index + 1)] = r;
  explanation[arity - 1] = ~r;
  explanation[0] = selectable - index;
}

void element_propagator::explain_index_propagation(const iset& literal, const iset& after,
                                                   const constraint_runtime_info& info,
                                                   literal_vector& explanation) const {
  const unsigned int arity = info.arity();
  explanation.assign(arity, iset());
  const iset selectable = selectable_values(m_first_index, arity);
  const iset removed = info.domain(0) - after;
  iset asked = removed & literal;
  if (asked.empty()) asked = removed;
  asked &= selectable;
  if (asked.empty()) {
    explanation[0] = selectable;
    return;
  }
  const iset r = info.domain(arity - 1);
  for (int v : asked) explanation[unsigned(v - m_first_index + 1)] = r;
  explanation[arity - 1] = ~r;
  explanation[0] = selectable - asked;
}

void element_propagator::explain_result_propagation(const iset& literal, const iset& after,
                                                    const constraint_runtime_info& info,
                                                    literal_vector& explanation) const {
  const unsigned int arity = info.arity();
  explanation.assign(arity, iset());
  const iset selectable = selectable_values(m_first_index, arity);
  const iset index = info.domain(0) & selectable;
  const iset removed = info.domain(arity - 1) - after;
  // Every removed value when none is asked about: the clause must exclude all that
  // the learner resolves on.
  iset asked = removed & literal;
  if (asked.empty()) asked = removed;
  if (asked.empty()) asked = iset::singleton(32);  // nothing removed: a misuse
  explanation[arity - 1] = ~asked;
  for (int v : index) explanation[unsigned(v - m_first_index + 1)] = asked;
  explanation[0] = selectable - index;
}

void element_propagator::explain_equality_propagation(unsigned int param, const iset& literal,
                                                      const iset& after,
                                                      const constraint_runtime_info& info,
                                                      literal_vector& explanation) const {
  const unsigned int arity = info.arity();
  explanation.assign(arity, iset());
  const iset selectable = selectable_values(m_first_index, arity);
  const iset index = info.domain(0) & selectable;
  const long long selected = (long long)m_first_index + param - 1;
  explanation[0] = selectable - index;
  if (selected >= 0 && selected <= 31) explanation[0].erase(int(selected));
  const iset removed = info.domain(param) - after;
  iset q = removed & literal;
  if (q.empty()) q = removed;
  for (int v : index)
    if (v != selected) q |= info.domain(unsigned(v - m_first_index + 1));
  iset element_entry = ~q;
  if (q.empty()) {
    explanation[arity - 1] = ~after;
    element_entry = after;
  } else {
    explanation[arity - 1] = q;
  }
  explanation[param] = element_entry;
  for (int v : index) explanation[unsigned(v - m_first_index + 1)] = element_entry;
}

//==== min_max_propagator ==============================================================

bool min_max_propagator::propagate_max(domain_vector& domains) {
  if (!propagate_to_max_result(domains)) return false;
  if (!erase_values_above(domains, domains[0].max())) return false;
  static domain_vector supports;
  get_result_supports(domains, supports);
  const std::size_t first = find_index_of_max(supports);
  const int lower_bound = find_max_lower_bound(supports);
  // A value of an argument survives when another argument can still lift the
  // result above it, or when it may be the result itself.
  const iset below_first = iset::clipped_range(0, supports[first].max());
  supports[first].clear();
  const std::size_t second = find_index_of_max(supports);
  const iset below_second =
      second < supports.size() ? iset::clipped_range(0, supports[second].max()) : iset();
  const iset as_result = domains[0] & iset::clipped_range(lower_bound, 31);
  for (std::size_t i = 1; i < domains.size(); ++i)
    domains[i] &= (i - 1 == first ? below_second : below_first) | as_result;
  return true;
}

bool min_max_propagator::propagate_to_max_result(domain_vector& domains) {
  iset all;
  int largest_min = 0;
  for (std::size_t i = 1; i < domains.size(); ++i) {
    if (domains[i].empty()) return false;
    all |= domains[i];
    largest_min = std::max(largest_min, domains[i].min());
  }
  domains[0] &= all & iset::clipped_range(largest_min, 31);
  return !domains[0].empty();
}

bool min_max_propagator::erase_values_above(domain_vector& domains, int limit) {
  const iset allowed = iset::clipped_range(0, limit);
  for (iset& d : domains) {
    if (d.empty()) return false;
    d &= allowed;
    if (d.empty()) return false;
  }
  return true;
}

void min_max_propagator::get_result_supports(const domain_vector& domains,
                                             domain_vector& supports) {
  supports.resize(domains.size() - 1);
  for (std::size_t i = 1; i < domains.size(); ++i) supports[i - 1] = domains[i] & domains[0];
}

std::size_t min_max_propagator::find_index_of_max(const domain_vector& sets) {
  std::size_t found = sets.size();
  for (std::size_t i = 0; i < sets.size(); ++i)
    if (!sets[i].empty() && (found == sets.size() || sets[i].max() >= sets[found].max()))
      found = i;
  return found;
}

int min_max_propagator::find_max_lower_bound(const domain_vector& sets) {
  int bound = 0;
  for (const iset& s : sets)
    if (!s.empty()) bound = std::max(bound, s.min());
  return bound;
}

namespace {

typedef min_max_propagator::domain_vector domain_vector;

void read_domains(const constraint_runtime_info& info, domain_vector& domains, bool mirrored) {
  domains.resize(info.arity());
  for (unsigned int i = 0; i < domains.size(); ++i)
    domains[i] = mirrored ? min_propagator::mirror(info.domain(i)) : info.domain(i);
}

propagation_types::result_type propagate_extremum(constraint_runtime_info& info,
                                                  domain_vector& domains, bool mirrored) {
  read_domains(info, domains, mirrored);
  if (!min_max_propagator::propagate_max(domains)) return propagation_types::UNSAT;
  for (unsigned int i = 0; i < domains.size(); ++i) {
    const iset d = mirrored ? min_propagator::mirror(domains[i]) : domains[i];
    if (d != info.domain(i)) info.set_domain(i, d);
  }
  return propagation_types::CONSISTENT;
}

bool extremum_conflicts(const constraint_runtime_info& info, domain_vector& domains,
                        bool mirrored) {
  read_domains(info, domains, mirrored);
  return !min_max_propagator::propagate_max(domains);
}

void print_extremum(std::ostream& os, const constraint_runtime_info* info, const char* name) {
  if (!info) {
    os << name;
    return;
  }
  info->print_prefix(os);
  info->print_param(os, 0);
  os << "=" << name << "(";
  for (unsigned int i = 1; i < info->arity(); ++i) {
    if (i > 1) os << ", ";
    info->print_param(os, i);
  }
  os << ")";
}

}  // namespace

propagation_types::result_type max_propagator::propagate(constraint_runtime_info& info) {
  static domain_vector domains;
  return propagate_extremum(info, domains, false);
}

bool max_propagator::conflicts(const constraint_runtime_info& info) const {
  static domain_vector domains;
  return extremum_conflicts(info, domains, false);
}

bool max_propagator::constraint_check(const constraint_runtime_info& info) const {
  int largest = 0;
  for (unsigned int i = 1; i < info.arity(); ++i) largest = std::max(largest, info.domain(i).min());
  return info.domain(0).min() == largest;
}

void max_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  print_extremum(os, info, "max");
}

std::unique_ptr<constraint_propagator> max_propagator::clone() const {
  return std::make_unique<max_propagator>(*this);
}

propagation_types::result_type min_propagator::propagate(constraint_runtime_info& info) {
  static domain_vector domains;
  return propagate_extremum(info, domains, true);
}

bool min_propagator::conflicts(const constraint_runtime_info& info) const {
  static domain_vector domains;
  return extremum_conflicts(info, domains, true);
}

bool min_propagator::constraint_check(const constraint_runtime_info& info) const {
  int smallest = 31;
  for (unsigned int i = 1; i < info.arity(); ++i) smallest = std::min(smallest, info.domain(i).min());
  return info.domain(0).min() == smallest;
}

void min_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  print_extremum(os, info, "min");
}

std::unique_ptr<constraint_propagator> min_propagator::clone() const {
  return std::make_unique<min_propagator>(*this);
}

iset min_propagator::mirror(iset set) {
  // Bit v to bit 31 - v: a reversal of the word, in five swaps.
  std::uint32_t b = set.bits();
  b = ((b >> 1) & 0x55555555u) | ((b & 0x55555555u) << 1);
  b = ((b >> 2) & 0x33333333u) | ((b & 0x33333333u) << 2);
  b = ((b >> 4) & 0x0F0F0F0Fu) | ((b & 0x0F0F0F0Fu) << 4);
  b = ((b >> 8) & 0x00FF00FFu) | ((b & 0x00FF00FFu) << 8);
  b = (b >> 16) | (b << 16);
  return iset::from_bits(b);
}

//==== literal-guarded propagators ======================================================

namespace {

// The guard with its literal, as both guarded forms print it; `closing` ends a
// literal of several values.
void print_guard(std::ostream& os, const constraint_runtime_info& info, const iset& literal,
                 const char* closing) {
  info.print_prefix(os);
  os << "(";
  info.print_param(os, 0);
  if (literal.is_singleton())
    os << "=" << literal;
  else
    os << ":{" << literal << closing;
}

// The tight explanation on a copy whose handles are forgotten.
void explain_on_watchless_copy(const constraint_propagator& p, unsigned int param,
                               const iset& literal, const iset& after,
                               const constraint_runtime_info& info,
                               constraint_propagator::literal_vector& explanation) {
  std::unique_ptr<constraint_propagator> copy = p.clone();
  copy->forget_watches();
  explanation_generators::explain_propagation_tightly(*copy, param, literal, after, info,
                                                      explanation);
}

}  // namespace

//==== literal_or_constraint_propagator ===============================================

template <class P, class Base>
propagation_types::result_type literal_or_constraint_propagator<P, Base>::init(
    constraint_runtime_info& info) {
  m_watch = watch_handle_t();
  const iset d = info.domain(0);
  // Holds for good: not even the relation needs watching.
  if (d.subset_of(m_literal)) return propagation_types::VALID;
  const iset p = d & m_literal;
  if (!p.empty()) {
    m_watched_value = p.min();
    m_watch = info.allocate_value_watch(0, m_watched_value);
  }
  const result_type r = init_non_literal_part(info);
  return !p.empty() || r != propagation_types::UNSAT ? propagation_types::VALID
                                                     : propagation_types::UNSAT;
}

template <class P, class Base>
propagation_types::result_type literal_or_constraint_propagator<P, Base>::propagate(
    constraint_runtime_info& info) {
  const iset d = info.domain(0);
  if (d.empty()) return propagation_types::UNSAT;
  if (d.subset_of(m_literal)) return propagation_types::VALID;
  const result_type s = state_of_non_literal_part(info);
  if (s == propagation_types::VALID) return propagation_types::VALID;
  const iset p = d & m_literal;
  if (p.empty()) {
    if (s == propagation_types::UNSAT) return propagation_types::UNSAT;
    return propagate_non_literal_part(info);
  }
  if (!m_watch.is_null() && !d.contains(m_watched_value)) {
    info.deallocate_value_watch(0, m_watched_value, m_watch);
    m_watched_value = p.min();
    m_watch = info.allocate_value_watch(0, m_watched_value);
  }
  if (s != propagation_types::UNSAT) return propagation_types::CONSISTENT;
  info.set_domain(0, p);
  return propagation_types::VALID;
}

template <class P, class Base>
bool literal_or_constraint_propagator<P, Base>::conflicts(
    const constraint_runtime_info& info) const {
  const iset& d = info.domain(0);
  if (d.empty()) return true;
  if (d.intersects(m_literal)) return false;
  return state_of_non_literal_part(info) == propagation_types::UNSAT;
}

template <class P, class Base>
bool literal_or_constraint_propagator<P, Base>::constraint_check(
    const constraint_runtime_info& info) const {
  if (info.domain(0).subset_of(m_literal)) return true;
  return constraint_check_non_literal_part(info);
}

template <class P, class Base>
void literal_or_constraint_propagator<P, Base>::print(std::ostream& os,
                                                      const constraint_runtime_info* info) const {
  if (!info) {
    os << "literal_or_";
    print_non_literal_part(os, nullptr);
    return;
  }
  print_guard(os, *info, m_literal, "} ");
  os << "|| ";
  print_non_literal_part(os, info);
  os << ")";
}

template <class P, class Base>
void literal_or_constraint_propagator<P, Base>::explain_propagation(
    unsigned int param, const iset& literal, const iset& after,
    const constraint_runtime_info& info, literal_vector& explanation) const {
  explain_on_watchless_copy(*this, param, literal, after, info, explanation);
}

template <class P, class Base>
propagation_types::result_type literal_or_constraint_propagator<P, Base>::init_non_literal_part(
    constraint_runtime_info& info) {
  for (unsigned int i = 1; i < info.arity(); ++i)
    if (!info.domain(i).is_singleton()) info.allocate_watch(i, watch_types::MODIFICATION_WATCH);
  return propagation_types::VALID;
}

//==== literal_iff_constraint_propagator ==============================================

template <class P, class Base>
propagation_types::result_type literal_iff_constraint_propagator<P, Base>::init(
    constraint_runtime_info& info) {
  m_positive.handle = watch_handle_t();
  m_negative.handle = watch_handle_t();
  const iset d = info.domain(0);
  const iset p = d & m_literal;
  const bool a = !p.empty() && init_non_literal_part(info);
  const bool b = d != p && init_neg_non_literal_part(info);
  if (a && b) {
    allocate_positive_watch(info, d);
    allocate_negative_watch(info, d);
  }
  return a || b ? propagation_types::VALID : propagation_types::UNSAT;
}

template <class P, class Base>
propagation_types::result_type literal_iff_constraint_propagator<P, Base>::propagate(
    constraint_runtime_info& info) {
  const iset d = info.domain(0);
  if (d.empty()) return propagation_types::UNSAT;
  const result_type s = state_of_non_literal_part(info);
  const iset p = d & m_literal;
  if (s == propagation_types::VALID) {
    if (p == d) return propagation_types::VALID;
    if (p.empty()) return propagation_types::UNSAT;
    info.set_domain(0, p);
    return propagation_types::VALID;
  }
  if (s == propagation_types::UNSAT) {
    if (p.empty()) return propagation_types::VALID;
    if (p == d) return propagation_types::UNSAT;
    info.set_domain(0, d - m_literal);
    return propagation_types::VALID;
  }
  if (p == d) return propagate_non_literal_part(info);
  if (p.empty()) return propagate_neg_non_literal_part(info);
  if (!info.reduced_between_activations(0)) return propagation_types::CONSISTENT;
  // Only held watches move: after forget_watches the handles are null and name no
  // list at all.
  if (!m_positive.handle.is_null() && !d.contains(m_positive.value)) {
    info.deallocate_value_watch(0, m_positive.value, m_positive.handle);
    allocate_positive_watch(info, d);
  }
  if (!m_negative.handle.is_null() && !d.contains(m_negative.value)) {
    info.deallocate_value_watch(0, m_negative.value, m_negative.handle);
    allocate_negative_watch(info, d);
  }
  return propagation_types::CONSISTENT;
}

template <class P, class Base>
bool literal_iff_constraint_propagator<P, Base>::conflicts(
    const constraint_runtime_info& info) const {
  const iset& d = info.domain(0);
  if (d.subset_of(m_literal)) return state_of_non_literal_part(info) == propagation_types::UNSAT;
  if (d.disjoint(m_literal)) return state_of_non_literal_part(info) == propagation_types::VALID;
  return false;
}

template <class P, class Base>
bool literal_iff_constraint_propagator<P, Base>::constraint_check(
    const constraint_runtime_info& info) const {
  return constraint_check_non_literal_part(info) == info.domain(0).subset_of(m_literal);
}

template <class P, class Base>
void literal_iff_constraint_propagator<P, Base>::print(std::ostream& os,
                                                       const constraint_runtime_info* info) const {
  if (!info) {
    os << "literal_iff_";
    print_non_literal_part(os, nullptr);
    return;
  }
  print_guard(os, *info, m_literal, "}");
  os << " iff ";
  print_non_literal_part(os, info);
  os << ")";
}

template <class P, class Base>
void literal_iff_constraint_propagator<P, Base>::explain_propagation(
    unsigned int param, const iset& literal, const iset& after,
    const constraint_runtime_info& info, literal_vector& explanation) const {
  explain_on_watchless_copy(*this, param, literal, after, info, explanation);
}

template <class P, class Base>
void literal_iff_constraint_propagator<P, Base>::allocate_positive_watch(
    constraint_runtime_info& info, iset domain) {
  m_positive.value = (domain & m_literal).min();
  m_positive.handle = info.allocate_value_watch(0, m_positive.value);
}

template <class P, class Base>
void literal_iff_constraint_propagator<P, Base>::allocate_negative_watch(
    constraint_runtime_info& info, iset domain) {
  m_negative.value = (domain - m_literal).min();
  m_negative.handle = info.allocate_value_watch(0, m_negative.value);
}

template class literal_or_constraint_propagator<literal_or_equal_propagator,
                                                tight_constraint_propagator>;
template class literal_or_constraint_propagator<literal_or_difference_ge_propagator,
                                                tight_constraint_propagator>;
template class literal_or_constraint_propagator<literal_or_neq_propagator,
                                                tight_constraint_propagator>;
template class literal_iff_constraint_propagator<literal_iff_less_than_propagator,
                                                 tight_constraint_propagator>;

//==== literal_or_equal_propagator ======================================================

propagation_types::result_type literal_or_equal_propagator::propagate_non_literal_part(
    constraint_runtime_info& info) {
  info.set_domains({1, 2}, info.domain(1) & info.domain(2));
  return CONSISTENT;
}

propagation_types::result_type literal_or_equal_propagator::state_of_non_literal_part(
    const constraint_runtime_info& info) const {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (x.disjoint(y)) return UNSAT;  // an empty side included
  if (x.is_singleton() && y.is_singleton()) return VALID;
  return CONSISTENT;
}

void literal_or_equal_propagator::print_non_literal_part(
    std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "equal_propagator";
    return;
  }
  info->print_param(os, 1);
  os << "==";
  info->print_param(os, 2);
}

bool literal_or_equal_propagator::constraint_check_non_literal_part(
    const constraint_runtime_info& info) const {
  return info.domain(1) == info.domain(2);
}

//==== literal_or_difference_ge_propagator ==============================================

propagation_types::result_type literal_or_difference_ge_propagator::init_non_literal_part(
    constraint_runtime_info& info) {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (x.empty() || y.empty() || (long long)x.max() - y.min() < m_constant) return UNSAT;
  info.allocate_watch(2, LOWER_BOUND_WATCH);
  info.allocate_watch(1, UPPER_BOUND_WATCH);
  return VALID;
}

propagation_types::result_type literal_or_difference_ge_propagator::propagate_non_literal_part(
    constraint_runtime_info& info) {
  const long long c = m_constant;
  iset x = info.domain(1);
  iset y = info.domain(2);
  if (x.empty() || y.empty() || x.max() - c < y.min()) return UNSAT;
  if (y.max() > x.max() - c) {
    y &= iset::clipped_range(0, x.max() - c);
    if (y.empty()) return UNSAT;
    info.set_domain(2, y);
  }
  if (x.min() < y.min() + c) {
    x &= iset::clipped_range(y.min() + c, 31);
    if (x.empty()) return UNSAT;
    info.set_domain(1, x);
  }
  return x.min() - y.max() < c ? CONSISTENT : VALID;
}

propagation_types::result_type literal_or_difference_ge_propagator::state_of_non_literal_part(
    const constraint_runtime_info& info) const {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  const long long c = m_constant;
  if (x.empty() || y.empty() || x.max() - y.min() < c) return UNSAT;
  if (x.min() - y.max() < c) return CONSISTENT;
  return VALID;
}

void literal_or_difference_ge_propagator::print_non_literal_part(
    std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "diff_ge_";
    print_constant(os, m_constant);
    return;
  }
  info->print_param(os, 1);
  os << "-";
  info->print_param(os, 2);
  os << ">=" << m_constant;
}

bool literal_or_difference_ge_propagator::constraint_check_non_literal_part(
    const constraint_runtime_info& info) const {
  return (long long)info.domain(1).min() - info.domain(2).min() >= m_constant;
}

std::unique_ptr<constraint_propagator> literal_or_difference_ge_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  const iset d = info.domain(0);
  if (!m_literal.empty() && d.subset_of(m_literal)) {
    kept = {0};
    return std::make_unique<clause_propagator>(literal_vector{iset::full()});
  }
  const sliced_runtime_info relation(info, 1, info.arity());
  std::unique_ptr<constraint_propagator> r =
      difference_ge_propagator(m_constant).intersect_with(relation, kept);
  if (!d.intersects(m_literal)) {
    // The guard is dead: what is left is the difference.
    if (!r) {
      kept = {1, 2};
      return std::make_unique<difference_ge_propagator>(m_constant);
    }
    for (unsigned int& k : kept) ++k;
    return r;
  }
  if (!r) return nullptr;
  auto* clause = dynamic_cast<clause_propagator*>(r.get());
  if (!clause) return nullptr;
  literal_vector& literals = clause->update_literals();
  literals.insert(literals.begin(), m_literal);
  for (unsigned int& k : kept) ++k;
  kept.insert(kept.begin(), 0);
  return r;
}

bool literal_or_difference_ge_propagator::get_disjunction_specification(
    disjunction_specification& form) const {
  form.declare_literals(&m_literal, 1, 0);
  form.declare_owned_constraint(std::make_unique<difference_ge_propagator>(m_constant), 1);
  return true;
}

bool literal_or_difference_ge_propagator::may_combine(const constraint_propagator& other) const {
  return difference_ge_propagator::may_combine_diff_ge_propagator(other);
}

std::unique_ptr<constraint_propagator> literal_or_difference_ge_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  return disjunction_specification::combine_propagators(info, *this, right, right_info, map,
                                                        pivot, out);
}

//==== literal_iff_less_than_propagator ==================================================

bool literal_iff_less_than_propagator::init_non_literal_part(constraint_runtime_info& info) {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (x.empty() || y.empty() || x.min() >= y.max()) return false;
  info.allocate_watch(1, LOWER_BOUND_WATCH);
  info.allocate_watch(2, UPPER_BOUND_WATCH);
  return true;
}

bool literal_iff_less_than_propagator::init_neg_non_literal_part(constraint_runtime_info& info) {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (x.empty() || y.empty() || x.max() < y.min()) return false;
  info.allocate_watch(1, UPPER_BOUND_WATCH);
  info.allocate_watch(2, LOWER_BOUND_WATCH);
  return true;
}

propagation_types::result_type literal_iff_less_than_propagator::propagate_non_literal_part(
    constraint_runtime_info& info) {
  iset x = info.domain(1);
  iset y = info.domain(2);
  if (x.max() >= y.max()) {
    x -= iset::clipped_range(y.max(), 31);
    info.set_domain(1, x);
  }
  if (x.min() >= y.min()) {
    y -= iset::clipped_range(0, x.min());
    info.set_domain(2, y);
  }
  return x.max() < y.min() ? VALID : CONSISTENT;
}

propagation_types::result_type literal_iff_less_than_propagator::propagate_neg_non_literal_part(
    constraint_runtime_info& info) {
  iset x = info.domain(1);
  iset y = info.domain(2);
  if (x.min() < y.min()) {
    x &= iset::clipped_range(y.min(), 31);
    info.set_domain(1, x);
  }
  if (x.max() < y.max()) {
    y &= iset::clipped_range(0, x.max());
    info.set_domain(2, y);
  }
  return x.min() < y.max() ? CONSISTENT : VALID;
}

propagation_types::result_type literal_iff_less_than_propagator::state_of_non_literal_part(
    const constraint_runtime_info& info) const {
  const iset& x = info.domain(1);
  const iset& y = info.domain(2);
  if (x.empty() || y.empty()) return UNSAT;
  if (x.max() < y.min()) return VALID;
  if (x.min() < y.max()) return CONSISTENT;
  return UNSAT;
}

void literal_iff_less_than_propagator::print_non_literal_part(
    std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "less_than_propagator";
    return;
  }
  info->print_param(os, 1);
  os << "<";
  info->print_param(os, 2);
}

bool literal_iff_less_than_propagator::constraint_check_non_literal_part(
    const constraint_runtime_info& info) const {
  return info.domain(1).min() < info.domain(2).min();
}

}  // namespace zelk
