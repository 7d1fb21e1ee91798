// The sum propagators: bounds filtering of the plain and weighted sums, the modular
// sum, and the exact sums on whole sets. Each class's propagate is its entry point;
// the linear combination also simplifies itself on fixed parameters (intersect_with).
#include "impl/arithmetic_propagators.h"

#include <algorithm>
#include <cassert>
#include <climits>
#include <cstdlib>
#include <numeric>
#include <ostream>
#include <stdexcept>

#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/disjunction_specification.h"
#include "impl/propagation.h"

namespace zelk {

namespace {

typedef small_model::iset iset;

// Sums with more parameters than this wait on the constraint queue when a
// variable event wakes them: their pass is long, and the events of one
// propagation round usually come in bursts.
const unsigned int LONG_SUM_ARITY = 10;

[[nodiscard]] bool postpone_long_sum(constraint_runtime_info& info) {
  if (info.arity() <= LONG_SUM_ARITY ||
      info.originating_queue() != constraint_runtime_info::VARIABLE_QUEUE)
    return false;
  info.put_in_queue(constraint_runtime_info::CONSTRAINT_QUEUE);
  return true;
}

bool any_empty(const constraint_runtime_info& info) {
  for (unsigned int i = 0, n = info.arity(); i < n; ++i)
    if (info.domain(i).empty()) return true;
  return false;
}

// "(" r relation x1 " + " x2 ... ")", "0" for an empty sum.
void print_sum(std::ostream& os, const constraint_runtime_info& info, const char* relation) {
  info.print_prefix(os);
  os << "(";
  info.print_param(os, 0);
  os << relation;
  const unsigned int n = info.arity();
  if (n < 2) os << "0";
  for (unsigned int i = 1; i < n; ++i) {
    if (i > 1) os << " + ";
    info.print_param(os, i);
  }
  os << ")";
}

// The bound sums r - x1 - ... - xn >= 0 (sign 1) and -r + x1 + ... + xn >= 0
// (sign -1), simplified as a linear combination.
std::unique_ptr<constraint_propagator> intersect_sum(const constraint_runtime_info& info,
                                                     std::vector<unsigned int>& kept, int sign) {
  const unsigned int n = info.arity();
  bool any_singleton = false;
  for (unsigned int i = 0; i < n && !any_singleton; ++i)
    any_singleton = info.domain(i).is_singleton();
  if (!any_singleton) return nullptr;
  std::vector<int> coefficients(n, -sign);
  coefficients[0] = sign;
  const linear_combination_ge_propagator sum(0, std::move(coefficients));
  return sum.intersect_with(info, kept);
}

long long divide(long long a, int divisor, int128::rounding_mode mode) {
  return int128::divide_s64(a, divisor, mode);
}
int128 divide(const int128& a, int divisor, int128::rounding_mode mode) {
  return a.divide(divisor, mode);
}
long long narrow(long long a) { return a; }
long long narrow(const int128& a) { return a.as_int64(); }

bool fits_int32(long long v) { return v >= INT_MIN && v <= INT_MAX; }

}  // namespace

//==== arithmetic_propagation_types ============================================

void arithmetic_propagation_types::intersect_wrapped(small_model::iset& set, long long lo,
                                                     long long hi) {
  if (hi - lo >= 31) return;
  if (hi < lo) {
    set.clear();
    return;
  }
  // Shift both ends so that lo lands in 0..31; hi then stays below 63.
  const long long shift = lo & ~31LL;
  lo -= shift;
  hi -= shift;
  std::uint32_t mask = small_iset::range_mask(int(lo), int(hi < 31 ? hi : 31));
  if (hi > 31) mask |= small_iset::range_mask(0, int(hi - 32));
  set &= iset::from_bits(mask);
}

void arithmetic_propagation_types::intersect_truncated(small_model::iset& set, long long lo,
                                                       long long hi) {
  if (lo < 0) lo = 0;
  if (hi > 31) hi = 31;
  if (lo > hi) return;
  set &= iset::from_bits(small_iset::range_mask(int(lo), int(hi)));
}

//==== greater_equal_sum_propagator ============================================

propagation_types::result_type greater_equal_sum_propagator::init(constraint_runtime_info& info) {
  info.allocate_watch(0, UPPER_BOUND_WATCH);
  for (unsigned int i = 1, n = info.arity(); i < n; ++i) info.allocate_watch(i, LOWER_BOUND_WATCH);
  return VALID;
}

propagation_types::result_type greater_equal_sum_propagator::propagate(
    constraint_runtime_info& info) {
  if (postpone_long_sum(info)) return POSTPONE;
  if (any_empty(info)) return UNSAT;
  const unsigned int n = info.arity();
  long long s = 0;  // the least sum
  for (unsigned int i = 1; i < n; ++i) s += info.domain(i).min();
  iset r = info.domain(0);
  if (r.min() < s) {
    if (r.max() < s) return UNSAT;
    r &= iset::clipped_range(s, 31);
    info.set_domain(0, r);
  }
  const long long h = r.max();
  for (unsigned int i = 1; i < n; ++i) {
    iset x = info.domain(i);
    const long long limit = h - (s - x.min());
    if (limit < x.max()) {
      x &= iset::clipped_range(0, limit);
      if (x.empty()) return UNSAT;
      info.set_domain(i, x);
    }
  }
  return CONSISTENT;
}

bool greater_equal_sum_propagator::conflicts(const constraint_runtime_info& info) const {
  if (any_empty(info)) return true;
  long long s = 0;
  for (unsigned int i = 1, n = info.arity(); i < n; ++i) s += info.domain(i).min();
  return info.domain(0).max() < s;
}

bool greater_equal_sum_propagator::constraint_check(const constraint_runtime_info& info) const {
  long long s = 0;
  for (unsigned int i = 1, n = info.arity(); i < n; ++i) s += info.domain(i).min();
  return s <= info.domain(0).min();
}

void greater_equal_sum_propagator::print(std::ostream& os,
                                         const constraint_runtime_info* info) const {
  if (info)
    print_sum(os, *info, ">= ");
  else
    os << "ge_sum";
}

std::unique_ptr<constraint_propagator> greater_equal_sum_propagator::clone() const {
  return std::make_unique<greater_equal_sum_propagator>(*this);
}

std::unique_ptr<constraint_propagator> greater_equal_sum_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  return intersect_sum(info, kept, 1);
}

//==== less_equal_sum_propagator ===============================================

propagation_types::result_type less_equal_sum_propagator::init(constraint_runtime_info& info) {
  info.allocate_watch(0, LOWER_BOUND_WATCH);
  for (unsigned int i = 1, n = info.arity(); i < n; ++i) info.allocate_watch(i, UPPER_BOUND_WATCH);
  return VALID;
}

propagation_types::result_type less_equal_sum_propagator::propagate(constraint_runtime_info& info) {
  if (postpone_long_sum(info)) return POSTPONE;
  if (any_empty(info)) return UNSAT;
  const unsigned int n = info.arity();
  long long s = 0;  // the greatest sum
  for (unsigned int i = 1; i < n; ++i) s += info.domain(i).max();
  iset r = info.domain(0);
  if (r.max() > s) {
    if (r.min() > s) return UNSAT;
    r &= iset::clipped_range(0, s);
    info.set_domain(0, r);
  }
  const long long l = r.min();
  for (unsigned int i = 1; i < n; ++i) {
    iset x = info.domain(i);
    const long long need = l - (s - x.max());
    if (need > x.min()) {
      x &= iset::clipped_range(need, 31);
      if (x.empty()) return UNSAT;
      info.set_domain(i, x);
    }
  }
  return CONSISTENT;
}

bool less_equal_sum_propagator::conflicts(const constraint_runtime_info& info) const {
  if (any_empty(info)) return true;
  long long s = 0;
  for (unsigned int i = 1, n = info.arity(); i < n; ++i) s += info.domain(i).max();
  return s < info.domain(0).min();
}

bool less_equal_sum_propagator::constraint_check(const constraint_runtime_info& info) const {
  long long s = 0;
  for (unsigned int i = 1, n = info.arity(); i < n; ++i) s += info.domain(i).min();
  return s >= info.domain(0).min();
}

void less_equal_sum_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (info)
    print_sum(os, *info, "<= ");
  else
    os << "le_sum";
}

std::unique_ptr<constraint_propagator> less_equal_sum_propagator::clone() const {
  return std::make_unique<less_equal_sum_propagator>(*this);
}

std::unique_ptr<constraint_propagator> less_equal_sum_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  return intersect_sum(info, kept, -1);
}

//==== linear_combination_ge_propagator ========================================

propagation_types::result_type linear_combination_ge_propagator::init(
    constraint_runtime_info& info) {
  assert(!m_coefficients.empty());
  m_small_coefficients = true;
  const int n = int(m_coefficients.size());
  const int hi = INT_MAX / n;
  const int lo = INT_MIN / n;
  for (unsigned int i = 0; i < m_coefficients.size(); ++i) {
    const int c = m_coefficients[i];
    if (c > 0) info.allocate_watch(i, UPPER_BOUND_WATCH);
    if (c < 0) info.allocate_watch(i, LOWER_BOUND_WATCH);
    if (c < lo || c > hi) m_small_coefficients = false;
  }
  return VALID;
}

propagation_types::result_type linear_combination_ge_propagator::propagate(
    constraint_runtime_info& info) {
  return m_small_coefficients ? const_propagate<long long>(info) : const_propagate<int128>(info);
}

template <class T>
propagation_types::result_type linear_combination_ge_propagator::const_propagate(
    constraint_runtime_info& info) const {
  const unsigned int n = unsigned(m_coefficients.size());
  T slack = -T(m_constant);
  for (unsigned int i = 0; i < n; ++i) {
    const iset& d = info.domain(i);
    if (d.empty()) return UNSAT;
    const int c = m_coefficients[i];
    if (c > 0)
      slack += T(c) * T(d.max());
    else if (c < 0)
      slack += T(c) * T(d.min());
  }
  if (slack < T(0)) return UNSAT;
  for (unsigned int i = 0; i < n; ++i) propagate_to_argument<T>(info, i, slack);
  return CONSISTENT;
}

template <class T>
void linear_combination_ge_propagator::propagate_to_argument(constraint_runtime_info& info,
                                                             unsigned int param,
                                                             const T& slack) const {
  const iset d = info.domain(param);
  if (d.is_singleton()) return;
  const int c = m_coefficients[param];
  if (c < 0) {
    // rest: the best the other parameters can do. c * x + rest >= 0 bounds x by
    // rest / -c rounded down, which is -(rest / c rounded up).
    const T rest = slack - T(c) * T(d.min());
    if (T(c) * T(d.max()) + rest >= T(0)) return;
    const T upper = -divide(rest, c, int128::ROUND_UP);
    if (upper >= T(31)) return;
    info.set_domain(param, d & iset::clipped_range(0, narrow(upper)));
  } else if (c > 0) {
    // x >= -rest / c rounded up, which is -(rest / c rounded down).
    const T rest = slack - T(c) * T(d.max());
    if (rest >= T(0) || T(c) * T(d.min()) + rest >= T(0)) return;
    const T lower = -divide(rest, c, int128::ROUND_DOWN);
    if (lower <= T(0)) return;
    info.set_domain(param, d & iset::clipped_range(narrow(lower), 31));
  }
}

template propagation_types::result_type
linear_combination_ge_propagator::const_propagate<long long>(constraint_runtime_info&) const;
template propagation_types::result_type linear_combination_ge_propagator::const_propagate<int128>(
    constraint_runtime_info&) const;
template void linear_combination_ge_propagator::propagate_to_argument<long long>(
    constraint_runtime_info&, unsigned int, const long long&) const;
template void linear_combination_ge_propagator::propagate_to_argument<int128>(
    constraint_runtime_info&, unsigned int, const int128&) const;

bool linear_combination_ge_propagator::conflicts(const constraint_runtime_info& info) const {
  int128 best = 0;
  for (unsigned int i = 0; i < m_coefficients.size(); ++i) {
    const iset& d = info.domain(i);
    if (d.empty()) return true;
    const int c = m_coefficients[i];
    if (c != 0) best += int128(c) * int128(c > 0 ? d.max() : d.min());
  }
  return best < int128(m_constant);
}

bool linear_combination_ge_propagator::constraint_check(const constraint_runtime_info& info) const {
  int128 sum = 0;
  for (unsigned int i = 0; i < m_coefficients.size(); ++i)
    sum += int128(m_coefficients[i]) * int128(info.domain(i).min());
  return sum >= int128(m_constant);
}

void linear_combination_ge_propagator::print(std::ostream& os,
                                             const constraint_runtime_info* info) const {
  if (info) info->print_prefix(os);
  os << "(";
  for (unsigned int i = 0; i < m_coefficients.size(); ++i) {
    const long long c = m_coefficients[i];
    if (c < 0)
      os << "-";
    else if (i > 0)
      os << "+";
    if (std::llabs(c) != 1) os << std::llabs(c) << "*";
    if (info)
      info->print_param(os, i);
    else
      os << "P" << i;
  }
  os << ">=" << m_constant << ")";
}

void linear_combination_ge_propagator::explain_propagation(unsigned int param,
                                                           const small_model::iset&,
                                                           const small_model::iset&,
                                                           const constraint_runtime_info& info,
                                                           literal_vector& explanation) const {
  const unsigned int n = unsigned(m_coefficients.size());
  explanation.resize(n);
  if (n == 0) return;
  const unsigned int pivot = param < n ? param : 0;
  // rhs: what the pivot's term must reach when every other parameter stays
  // within its bounds.
  int128 rhs = m_constant;
  bool trivial = false;
  for (unsigned int i = 0; i < n; ++i) {
    if (i == pivot) continue;
    const iset& d = info.domain(i);
    const int c = m_coefficients[i];
    if (d.empty()) {
      // No old state to explain: a full set makes the clause hold by itself.
      explanation[i] = iset::full();
      trivial = true;
    } else if (c == 0) {
      explanation[i] = iset();
    } else if (c < 0) {
      explanation[i] = make_range(0, d.min() - 1);
      rhs -= int128(c) * int128(d.min());
    } else {
      explanation[i] = make_range(d.max() + 1, 31);
      rhs -= int128(c) * int128(d.max());
    }
  }
  // The values v of the pivot with c * v >= rhs.
  const auto clamp = [](const int128& q) -> long long {
    return q < int128(-1) ? -1 : q > int128(32) ? 32 : q.as_int64();
  };
  const int c = m_coefficients[pivot];
  if (trivial)
    explanation[pivot] = iset();
  else if (c > 0)
    explanation[pivot] = make_range(clamp(rhs.divide(c, int128::ROUND_UP)), 31);
  else if (c < 0)
    explanation[pivot] = make_range(0, clamp(rhs.divide(c, int128::ROUND_DOWN)));
  else
    explanation[pivot] = rhs <= int128(0) ? iset::full() : iset();
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::clone() const {
  return std::make_unique<linear_combination_ge_propagator>(*this);
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  if (m_coefficients.empty()) return nullptr;
  std::vector<int> coefficients;
  long long constant = m_constant;
  const unsigned int n = compact_coefficients(info, coefficients, constant, kept);
  if (coefficients.empty() && n != 0) return nullptr;
  switch (n) {
    case 0: return new_empty_sum(constant, kept);
    case 1: return new_unary_sum(coefficients, constant, kept);
    case 2: return new_binary_sum(coefficients, constant, kept);
    default: return new_nary_sum(coefficients, constant, kept);
  }
}

unsigned int linear_combination_ge_propagator::compact_coefficients(
    const constraint_runtime_info& info, std::vector<int>& new_coefficients, long long& constant,
    std::vector<unsigned int>& kept) const {
  new_coefficients.clear();
  kept.clear();
  const unsigned int n = unsigned(m_coefficients.size());
  int128 folded = constant;
  bool any_folded = false;
  for (unsigned int i = 0; i < n; ++i) {
    const int c = m_coefficients[i];
    const iset& d = info.domain(i);
    if (c == 0 || d.is_singleton()) {
      if (!any_folded) {
        any_folded = true;
        new_coefficients.assign(m_coefficients.begin(), m_coefficients.begin() + i);
        for (unsigned int j = 0; j < i; ++j) kept.push_back(j);
      }
      if (c != 0) folded -= int128(c) * int128(d.min());
    } else if (any_folded) {
      new_coefficients.push_back(c);
      kept.push_back(i);
    }
  }
  unsigned int count = n;
  if (any_folded) {
    if (folded.fits_int64()) {
      constant = folded.as_int64();
      count = unsigned(new_coefficients.size());
    } else {
      new_coefficients.clear();
      kept.clear();
    }
  }
  normalize_coefficients(count, new_coefficients, constant, kept);
  return count;
}

void linear_combination_ge_propagator::normalize_coefficients(
    unsigned int n, std::vector<int>& new_coefficients, long long& constant,
    std::vector<unsigned int>& kept) const {
  if (n == 0) return;
  const std::vector<int>& source = new_coefficients.empty() ? m_coefficients : new_coefficients;
  long long g = 0;
  for (const int c : source) {
    g = std::gcd(g, std::llabs(c));
    if (g == 1) return;
  }
  if (g == 0) return;  // only zero coefficients: nothing to divide
  if (new_coefficients.empty()) new_coefficients = m_coefficients;
  for (int& c : new_coefficients) c = int(c / g);
  constant = constant > 0 ? (constant - 1) / g + 1 : constant / g;
  if (kept.empty())
    for (unsigned int i = 0; i < n; ++i) kept.push_back(i);
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::new_empty_sum(
    long long constant, std::vector<unsigned int>& kept) const {
  if (constant < 1) {
    kept.assign(1, 0);
    return std::make_unique<clause_propagator>(literal_vector{iset::full()});
  }
  kept.clear();
  return std::make_unique<clause_propagator>();
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::new_unary_sum(
    const std::vector<int>& coefficients, long long constant,
    std::vector<unsigned int>& kept) const {
  int c;
  if (coefficients.empty()) {
    kept.assign(1, 0);
    c = m_coefficients[0];
  } else {
    c = coefficients[0];
  }
  assert(c == 1 || c == -1);
  iset literal;
  if (c > 0)
    literal = constant <= 0 ? iset::full() : constant > 31 ? iset() : make_range(constant, 31);
  else
    literal = constant > 0 ? iset() : constant < -30 ? iset::full() : make_range(0, -constant);
  return std::make_unique<clause_propagator>(literal_vector{literal});
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::new_binary_sum(
    const std::vector<int>& coefficients, long long constant,
    std::vector<unsigned int>& kept) const {
  if (!fits_int32(constant)) return nullptr;
  // x - y >= constant is a difference, which filters the same with less work and
  // combines without clauses.
  const std::vector<int>& c = coefficients.empty() ? m_coefficients : coefficients;
  if (c.size() == 2 && c[0] == -c[1] && (c[0] == 1 || c[0] == -1)) {
    if (kept.empty()) kept = {0, 1};
    if (c[0] == -1) std::swap(kept[0], kept[1]);  // -x + y is y - x
    return std::make_unique<difference_ge_propagator>(int(constant));
  }
  return new_nary_sum(coefficients, constant, kept);
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::new_nary_sum(
    const std::vector<int>& coefficients, long long constant,
    std::vector<unsigned int>& kept) const {
  if (kept.empty() || !fits_int32(constant)) return nullptr;
  return std::make_unique<linear_combination_ge_propagator>(int(constant), coefficients);
}

//==== linear_combination_ge_propagator: combination ============================

bool linear_combination_ge_propagator::get_disjunction_specification(
    disjunction_specification& form) const {
  form.declare_constraint(this, 0);
  return true;
}

bool linear_combination_ge_propagator::may_combine(const constraint_propagator& other) const {
  if (dynamic_cast<const linear_combination_ge_propagator*>(&other) ||
      dynamic_cast<const difference_ge_propagator*>(&other))
    return true;
  if (dynamic_cast<const sum_mod_propagator*>(&other)) return other.may_combine(*this);
  return false;
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  if (const auto* sum_mod = dynamic_cast<const sum_mod_propagator*>(&right))
    return combine_sum_mod(info, *sum_mod, right_info, map, pivot, out);
  return disjunction_specification::combine_propagators(info, *this, right, right_info, map,
                                                        pivot, out);
}

long long linear_combination_ge_propagator::find_var_coefficient(
    unsigned int var, const disjunction_specification& form) {
  const int position = form.find_constraint_param(var);
  if (position < 0) return 0;
  if (dynamic_cast<const difference_ge_propagator*>(form.constraint()))
    return position == 0 ? 1 : -1;
  if (const auto* sum = dynamic_cast<const linear_combination_ge_propagator*>(form.constraint()))
    return sum->m_coefficients[unsigned(position)];
  return 0;
}

bool linear_combination_ge_propagator::accumulate_coefficients(
    std::vector<long long>& coefs, long long& constant, const disjunction_specification& form,
    long long multiplier) {
  const auto add = [&](unsigned int var, long long coefficient) {
    if (coefs.size() <= var) coefs.resize(var + 1, 0);
    long long term;
    return !__builtin_mul_overflow(coefficient, multiplier, &term) &&
           !__builtin_add_overflow(coefs[var], term, &coefs[var]);
  };
  long long base_constant;
  if (const auto* diff = dynamic_cast<const difference_ge_propagator*>(form.constraint())) {
    if (!add(form.constraint_var(0), 1) || !add(form.constraint_var(1), -1)) return false;
    base_constant = diff->constant();
  } else if (const auto* sum =
                 dynamic_cast<const linear_combination_ge_propagator*>(form.constraint())) {
    for (unsigned int i = 0; i < sum->m_coefficients.size(); ++i)
      if (!add(form.constraint_var(i), sum->m_coefficients[i])) return false;
    base_constant = sum->m_constant;
  } else {
    return false;
  }
  long long term, total;
  if (__builtin_mul_overflow(base_constant, multiplier, &term) ||
      __builtin_add_overflow(constant, term, &total))
    return false;
  constant = total;
  return true;
}

bool linear_combination_ge_propagator::set_constraint_from_positional_coefficients(
    const std::vector<long long>& coefs, long long constant, disjunction_specification& result) {
  if (!fits_int32(constant)) return false;
  std::vector<int> coefficients;
  std::vector<unsigned int> variables;
  for (unsigned int v = 0; v < coefs.size(); ++v) {
    if (coefs[v] == 0) continue;
    if (!fits_int32(coefs[v])) return false;
    coefficients.push_back(int(coefs[v]));
    variables.push_back(v);
  }
  if (variables.empty()) {
    // 0 >= constant: false for a positive constant, otherwise nothing was learned.
    if (constant <= 0) return false;
    result.own_constraint(std::make_unique<clause_propagator>());
    return true;
  }
  result.own_constraint(
      std::make_unique<linear_combination_ge_propagator>(int(constant), std::move(coefficients)));
  for (const unsigned int v : variables) result.add_constraint_param(v);
  return true;
}

bool linear_combination_ge_propagator::combine_base_constraints(
    const disjunction_specification& left, const disjunction_specification& right,
    unsigned int pivot, disjunction_specification& result) const {
  const long long a = find_var_coefficient(pivot, left);
  const long long b = find_var_coefficient(pivot, right);
  if (!((a >= 0 && b < 0) || (a < 0 && b >= 0))) return false;
  // |b|/g times left plus |a|/g times right: the pivot's terms cancel.
  const long long g = std::gcd(std::llabs(a), std::llabs(b));
  std::vector<long long> coefs;
  long long constant = 0;
  if (!accumulate_coefficients(coefs, constant, left, std::llabs(b) / g)) return false;
  if (!accumulate_coefficients(coefs, constant, right, std::llabs(a) / g)) return false;
  return set_constraint_from_positional_coefficients(coefs, constant, result);
}

bool linear_combination_ge_propagator::disjoin_constraint(const disjunction_specification& left,
                                                          const disjunction_specification& right,
                                                          disjunction_specification& result) const {
  const auto* other = dynamic_cast<const linear_combination_ge_propagator*>(right.constraint());
  if (!other || other->m_coefficients.size() != m_coefficients.size()) return false;
  // The same terms on both sides: either sum is at least the smaller constant.
  for (unsigned int j = 0; j < other->m_coefficients.size(); ++j) {
    const int i = left.find_constraint_param(right.constraint_var(j));
    if (i < 0 || m_coefficients[unsigned(i)] != other->m_coefficients[j]) return false;
  }
  result.own_constraint(std::make_unique<linear_combination_ge_propagator>(
      std::min(m_constant, other->m_constant), m_coefficients));
  for (unsigned int i = 0; i < m_coefficients.size(); ++i)
    result.add_constraint_param(left.constraint_var(i));
  return true;
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::new_propagator(
    const disjunction_specification& form, std::vector<unsigned int>& params) const {
  for (unsigned int i = 0; i < form.constraint_param_count(); ++i)
    params.push_back(form.constraint_var(i));
  const unsigned int n = form.literal_count();
  if (n == 0) {
    if (std::unique_ptr<constraint_propagator> owned = form.release_owned_constraint())
      return owned;
    return form.constraint() ? form.constraint()->clone() : nullptr;
  }
  auto result =
      std::make_unique<disjoint_propagator<linear_combination_ge_propagator, clause_propagation_algo>>(
          *this);
  literal_vector& literals = result->update_literals();
  for (unsigned int k = 0; k < n; ++k) {
    literals.push_back(form.literal(k));
    params.push_back(form.literal_var(k));
  }
  return result;
}

unsigned int linear_combination_ge_propagator::find_non_pivot(const constraint_runtime_info& info,
                                                              const std::vector<unsigned int>& map,
                                                              unsigned int pivot) {
  if (map.size() < 2) return info.arity() + 1;
  return map[pivot == 0 ? 1 : 0];
}

std::unique_ptr<constraint_propagator> linear_combination_ge_propagator::combine_sum_mod(
    const constraint_runtime_info& info, const sum_mod_propagator& sum_mod,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  // x + y = result holds exactly only when the mod leaves no room for a carry.
  if (right_info.arity() != 2 || pivot >= map.size() || sum_mod.mod() != sum_mod.result() + 1)
    return nullptr;
  const unsigned int n = unsigned(m_coefficients.size());
  const unsigned int p = map[pivot];
  if (p >= n) return nullptr;
  const unsigned int q = find_non_pivot(info, map, pivot);
  // c * x_p = c * result - c * x_q.
  const long long c = m_coefficients[p];
  const long long constant = m_constant - (long long)sum_mod.result() * c;
  const long long coefficient = q < n ? m_coefficients[q] - c : -c;
  if (!fits_int32(coefficient) || !fits_int32(constant)) return nullptr;
  std::vector<int> coefficients = m_coefficients;
  coefficients[p] = int(coefficient);
  out.resize(n);
  std::iota(out.begin(), out.end(), 0u);
  out[p] = q;
  if (q < n) {
    coefficients.erase(coefficients.begin() + q);
    out.erase(out.begin() + q);
  }
  return std::make_unique<linear_combination_ge_propagator>(int(constant), std::move(coefficients));
}

//==== sum_mod_propagator ======================================================

sum_mod_propagator::sum_mod_propagator(int mod, int result) : m_mod(mod), m_result(result) {
  if (mod <= 0) throw std::out_of_range("sum_mod_propagator(mod, result): mod should be positive");
}

bool sum_mod_propagator::restrict_to_mod(constraint_runtime_info& info) const {
  const iset allowed = iset::clipped_range(0, m_mod - 1LL);
  for (unsigned int i = 0, n = info.arity(); i < n; ++i) {
    const iset d = info.domain(i) & allowed;
    if (d.empty()) return false;
    info.set_domain(i, d);
  }
  return true;
}

propagation_types::result_type sum_mod_propagator::propagate(constraint_runtime_info& info) {
  if (!restrict_to_mod(info)) return UNSAT;
  // acc - (the value of the open parameter) is a multiple of mod in a solution.
  long long acc = m_result;
  unsigned int open = constraint_runtime_info::NO_PARAM;
  for (unsigned int i = 0, n = info.arity(); i < n; ++i) {
    const iset& d = info.domain(i);
    if (d.is_singleton()) {
      acc += m_mod - d.min();
    } else {
      if (open != constraint_runtime_info::NO_PARAM) return CONSISTENT;
      open = i;
    }
  }
  const long long v = (acc % m_mod + m_mod) % m_mod;
  if (open == constraint_runtime_info::NO_PARAM) return v == 0 ? VALID : UNSAT;
  if (!info.domain(open).contains(int(v))) return UNSAT;
  info.set_domain(open, iset::singleton(int(v)));
  return VALID;
}

bool sum_mod_propagator::conflicts(const constraint_runtime_info& info) const {
  const iset allowed = iset::clipped_range(0, m_mod - 1LL);
  long long acc = m_result;
  unsigned int open_count = 0;
  iset open;
  for (unsigned int i = 0, n = info.arity(); i < n; ++i) {
    const iset& d = info.domain(i);
    if (d.empty() || d.min() >= m_mod) return true;
    const iset below = d & allowed;
    if (below.is_singleton()) {
      acc += m_mod - below.min();
    } else {
      ++open_count;
      open = below;
    }
  }
  if (open_count > 1) return false;
  const long long v = (acc % m_mod + m_mod) % m_mod;
  return open_count == 0 ? v != 0 : !open.contains(int(v));
}

bool sum_mod_propagator::constraint_check(const constraint_runtime_info& info) const {
  long long sum = 0;
  for (unsigned int i = 0, n = info.arity(); i < n; ++i) {
    const int v = info.domain(i).min();
    if (v >= m_mod) return false;
    sum += v;
  }
  // Congruence rather than equality, so that a result outside 0..mod-1 is read
  // the same way as propagate reads it.
  return (sum - m_result) % m_mod == 0;
}

void sum_mod_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    if (m_mod == 2)
      os << "((xor vars) " << 2 << " == " << m_result << ")";
    else
      os << "((sum vars) mod " << m_mod << " == " << m_result << ")";
    return;
  }
  const unsigned int n = info->arity();
  const auto names = [&](const char* separator) {
    for (unsigned int i = 0; i < n; ++i) {
      if (i) os << separator;
      info->print_param(os, i);
    }
  };
  info->print_prefix(os);
  if (m_mod == 2) {
    os << "((xor(";
    names(",");
    os << ")  == " << m_result << ") && (";
  } else {
    os << "((";
    names("+");
    os << ") mod " << m_mod << " == " << m_result << ") && (";
  }
  names(",");
  os << " in [0.." << m_mod - 1 << "]))";
}

std::unique_ptr<constraint_propagator> sum_mod_propagator::clone() const {
  return std::make_unique<sum_mod_propagator>(*this);
}

std::unique_ptr<constraint_propagator> sum_mod_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  kept.clear();
  long long result = m_result;
  bool folded = false;
  for (unsigned int i = 0, n = info.arity(); i < n; ++i) {
    const iset& d = info.domain(i);
    // A single value at or above mod stays: it is what makes the constraint false.
    if (d.is_singleton() && d.min() < m_mod) {
      result -= d.min();
      folded = true;
    } else {
      kept.push_back(i);
    }
  }
  if (!folded) return nullptr;
  result = (result % m_mod + m_mod) % m_mod;
  return std::make_unique<sum_mod_propagator>(m_mod, int(result));
}

bool sum_mod_propagator::may_combine(const constraint_propagator& other) const {
  if (const auto* sum = dynamic_cast<const sum_mod_propagator*>(&other))
    return sum->m_mod == m_mod;
  if (dynamic_cast<const equal_propagator*>(&other)) return true;
  if (dynamic_cast<const linear_combination_ge_propagator*>(&other))
    return m_mod == m_result + 1;
  return false;
}

std::unique_ptr<constraint_propagator> sum_mod_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  if (const auto* sum = dynamic_cast<const sum_mod_propagator*>(&right))
    return combine(info, *sum, map, out);
  if (dynamic_cast<const equal_propagator*>(&right)) return combine_with_eq(info, map, out);
  if (dynamic_cast<const linear_combination_ge_propagator*>(&right))
    return combine_other_first(info, right, right_info, map, pivot, out);
  return nullptr;
}

std::unique_ptr<constraint_propagator> sum_mod_propagator::combine(
    const constraint_runtime_info& info, const sum_mod_propagator& other_sum_mod,
    const std::vector<unsigned int>& map, std::vector<unsigned int>& out) const {
  if (other_sum_mod.m_mod != m_mod) return nullptr;
  const unsigned int n = info.arity();
  out.resize(n);
  std::iota(out.begin(), out.end(), 0u);
  for (const unsigned int e : map) {
    if (e >= n) {
      out.push_back(e);
      continue;
    }
    // x + x is 0 only modulo 2.
    if (m_mod != 2) return nullptr;
    out.erase(std::find(out.begin(), out.end(), e));
  }
  const long long result = (((long long)m_result + other_sum_mod.m_result) % m_mod + m_mod) % m_mod;
  if (out.empty() && result != 0) return std::make_unique<clause_propagator>();
  return std::make_unique<sum_mod_propagator>(m_mod, int(result));
}

std::unique_ptr<constraint_propagator> sum_mod_propagator::combine_with_eq(
    const constraint_runtime_info& info, const std::vector<unsigned int>& map,
    std::vector<unsigned int>& out) const {
  if (map.size() != 2) return nullptr;
  const unsigned int n = info.arity();
  if (map[0] < n && map[1] < n) {
    // x = y within one sum: x + y = 2x, which is 0 only modulo 2.
    if (m_mod != 2) return nullptr;
    out.clear();
    for (unsigned int i = 0; i < n; ++i)
      if (i != map[0] && i != map[1]) out.push_back(i);
    return std::make_unique<sum_mod_propagator>(m_mod, m_result);
  }
  out.resize(n);
  for (unsigned int i = 0; i < n; ++i) out[i] = i == map[0] ? n + 1 : i == map[1] ? n : i;
  return std::make_unique<sum_mod_propagator>(m_mod, m_result);
}

//==== sum_wrap_propagator =====================================================

propagation_types::result_type sum_wrap_propagator::propagate(constraint_runtime_info& info) {
  const unsigned int n = info.arity();
  bool touched = false;
  for (unsigned int i = n; i-- > 0 && !touched;) touched = info.reduced_between_activations(i);
  if (!touched) return CONSISTENT;
  if (n == 1) {  // the empty sum: r = 0
    if (!info.domain(0).contains(0)) return UNSAT;
    info.set_domain(0, iset::singleton(0));
    return VALID;
  }
  if (n == 2) {  // r = x1
    const iset both = info.domain(0) & info.domain(1);
    if (both.empty()) return UNSAT;
    info.set_domain(0, both);
    info.set_domain(1, both);
    return CONSISTENT;
  }
  iset sums = info.domain(0);
  if (!propagate(info, sums, n - 1)) return UNSAT;
  info.set_domain(0, sums);
  return CONSISTENT;
}

// Going down, each level passes the sums x1 + ... + x(k-1) that the sums of its
// own level still allow; coming back up, xk keeps the values that connect an
// allowed partial sum below with an allowed sum here. Since every parameter
// occurs once, the set sums are exact and one descent and ascent leave each
// parameter with exactly its supported values.
bool sum_wrap_propagator::propagate(constraint_runtime_info& info, small_model::iset& sums,
                                    unsigned int k) {
  assert(k >= 2);
  if (k == 2) {
    iset a = info.domain(1);
    iset b = info.domain(2);
    propagation::plus(a, b, sums);
    if (sums.empty()) return false;
    propagation::minus(sums, a, b);
    propagation::minus(sums, b, a);
    info.set_domain(1, a);
    info.set_domain(2, b);
    return true;
  }
  iset last = info.domain(k);
  iset partial = iset::full();
  propagation::minus(sums, last, partial);
  if (!propagate(info, partial, k - 1)) return false;
  propagation::minus(sums, partial, last);
  info.set_domain(k, last);
  propagation::plus(last, partial, sums);
  return true;
}

bool sum_wrap_propagator::conflicts(const constraint_runtime_info& info) const {
  // The chain of propagate fails exactly when r meets no value of the set sum
  // x1 + ... + xn, which is computed here directly, without a view to write to.
  const unsigned int n = info.arity();
  if (n == 0) return false;
  iset reach = iset::singleton(0);
  for (unsigned int i = 1; i < n; ++i) {
    iset next = iset::full();
    propagation::plus(reach, info.domain(i), next);
    if (next.empty()) return true;
    reach = next;
  }
  return !reach.intersects(info.domain(0));
}

bool sum_wrap_propagator::constraint_check(const constraint_runtime_info& info) const {
  long long s = 0;
  for (unsigned int i = 1, n = info.arity(); i < n; ++i) s += info.domain(i).min();
  return wrap(s) == info.domain(0).min();
}

void sum_wrap_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (info)
    print_sum(os, *info, "== ");
  else
    os << "sum_wrap";
}

std::unique_ptr<constraint_propagator> sum_wrap_propagator::clone() const {
  return std::make_unique<sum_wrap_propagator>(*this);
}

//==== sum_truncate_propagator =================================================

propagation_types::result_type sum_truncate_propagator::propagate(constraint_runtime_info& info) {
  iset r = info.domain(0), x = info.domain(1), y = info.domain(2);
  propagate(r, x, y);
  if (r.empty() || x.empty() || y.empty()) return UNSAT;
  info.set_domain(0, r);
  info.set_domain(1, x);
  info.set_domain(2, y);
  return CONSISTENT;
}

void sum_truncate_propagator::propagate(small_model::iset& r, small_model::iset& x,
                                        small_model::iset& y) {
  // Sets only shrink, so an unchanged total size means that nothing changed.
  unsigned int size = r.size() + x.size() + y.size();
  for (;;) {
    if (r.empty() || x.empty() || y.empty()) return;
    propagate_bounds(r, x, y);
    // The sums wrap modulo 32; the bounds above keep them to the sums without wrap.
    propagation::plus(x, y, r);
    propagation::minus(r, x, y);
    propagation::minus(r, y, x);
    const unsigned int new_size = r.size() + x.size() + y.size();
    if (new_size == size) return;
    size = new_size;
  }
}

void sum_truncate_propagator::propagate_bounds(small_model::iset& r, small_model::iset& x,
                                               small_model::iset& y) {
  if (r.empty() || x.empty() || y.empty()) return;
  long long lo = std::max(x.min() + y.min(), r.min());
  long long hi = std::min(r.max(), x.max() + y.max());
  if (lo > hi) {
    r.clear();
    x.clear();
    y.clear();
    return;
  }
  r &= iset::clipped_range(lo, hi);
  if (r.empty()) {
    x.clear();
    y.clear();
    return;
  }
  // An empty y or x ends the work: the caller sees it and fails.
  y &= iset::clipped_range(std::max<long long>(r.min() - x.max(), y.min()),
                           std::min<long long>(y.max(), r.max() - x.min()));
  if (y.empty()) return;
  x &= iset::clipped_range(std::max<long long>(r.min() - y.max(), x.min()),
                           std::min<long long>(x.max(), r.max() - y.min()));
}

bool sum_truncate_propagator::conflicts(const constraint_runtime_info& info) const {
  iset r = info.domain(0), x = info.domain(1), y = info.domain(2);
  propagate(r, x, y);
  return r.empty() || x.empty() || y.empty();
}

bool sum_truncate_propagator::constraint_check(const constraint_runtime_info& info) const {
  return info.domain(1).min() + info.domain(2).min() == info.domain(0).min();
}

void sum_truncate_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "sum_truncate";
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 1);
  os << "+<trunc> ";
  info->print_param(os, 2);
  os << "==";
  info->print_param(os, 0);
  os << ")";
}

std::unique_ptr<constraint_propagator> sum_truncate_propagator::clone() const {
  return std::make_unique<sum_truncate_propagator>(*this);
}

//==== neg_propagator ==========================================================

propagation_types::result_type neg_propagator::propagate(constraint_runtime_info& info) {
  iset r = info.domain(0), x = info.domain(1);
  const iset r_before = r;
  propagation::neg(x, r);
  if (r.empty()) return UNSAT;
  propagation::neg(r_before, x);
  info.set_domain(0, r);
  info.set_domain(1, x);
  return CONSISTENT;
}

bool neg_propagator::conflicts(const constraint_runtime_info& info) const {
  return !info.domain(0).intersects(propagation::negated(info.domain(1)));
}

bool neg_propagator::constraint_check(const constraint_runtime_info& info) const {
  return info.domain(0).min() == (32 - info.domain(1).min()) % 32;
}

void neg_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "negate";
    return;
  }
  info->print_prefix(os);
  os << "(";
  info->print_param(os, 0);
  os << "== -";
  info->print_param(os, 1);
  os << ")";
}

std::unique_ptr<constraint_propagator> neg_propagator::clone() const {
  return std::make_unique<neg_propagator>(*this);
}

}  // namespace zelk
