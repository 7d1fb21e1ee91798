// The comparison propagators: equality, difference, reified equality and the
// conditional; and the combination algebra of the difference and the
// substitution of the equality.
#include "impl/comparison_propagators.h"

#include <climits>
#include <ostream>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/constraint_connectivity_info.h"
#include "impl/constraint_explicit_info.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
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
  params.push_back(form.constraint_var(0));
  params.push_back(form.constraint_var(1));
  const unsigned int n = form.literal_count();
  if (n == 0) {
    if (std::unique_ptr<constraint_propagator> owned = form.release_owned_constraint())
      return owned;
    return form.constraint() ? form.constraint()->clone() : nullptr;
  }
  // A single literal takes the clause half as well; a literal-guarded equality
  // would only save the clause's watches.
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
  // The plain sum would lose the conflict; keeping the pivot as a literal needs a
  // no-sub-interval base constraint, and without one the learner falls back on an
  // explanation clause.
  return false;
}

std::unique_ptr<constraint_propagator> difference_ge_propagator::new_propagator(
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
  // A single literal takes the clause half as well; a literal-guarded difference
  // would only save the clause's watches.
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
  // A literal-guarded difference belongs to this list as soon as it is part of
  // the library.
  return dynamic_cast<const difference_ge_propagator*>(&other) ||
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

}  // namespace zelk
