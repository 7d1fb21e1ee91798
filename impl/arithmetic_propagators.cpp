// The sum propagators: bounds filtering of the plain and weighted sums, the modular
// sum, and the exact sums on whole sets. Each class's propagate is its entry point;
// the linear combination also simplifies itself on fixed parameters (intersect_with).
// Then the non-linear family: products, quotients, remainders and powers, which
// enumerate pairs of values when the domains are small and reason on bounds when
// they are not, and the bound forms of the product and of the absolute value.
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
#include "impl/explanation_generators.h"
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

//==== approximated_arithmetic_propagator ======================================

namespace {

// r, x, y become the values of the pairs (a, b) of x and y whose value lies in r.
template <class T>
void enumerate_pairs(iset& r, iset& x, iset& y) {
  int ys[32];
  int n = 0;
  for (int b : y) ys[n++] = b;
  iset r_support, x_support, y_support;
  for (int a : x)
    for (int k = 0; k < n; ++k) {
      const long long v = T::evaluate(a, ys[k]);
      if (v < 0 || v > 31 || !r.contains(int(v))) continue;
      r_support.insert(int(v));
      x_support.insert(a);
      y_support.insert(ys[k]);
    }
  r = r_support;
  x = x_support;
  y = y_support;
}

bool any_reduced(const constraint_runtime_info& info) {
  for (unsigned int i = 0, n = info.arity(); i < n; ++i)
    if (info.reduced_between_activations(i)) return true;
  return false;
}

void copy_domains(const constraint_runtime_info& info, iset* d) {
  for (unsigned int i = 0; i < 3; ++i) d[i] = info.domain(i);
}

bool any_empty(const iset* d) { return d[0].empty() || d[1].empty() || d[2].empty(); }

void empty_all(iset* d) { d[0].clear(), d[1].clear(), d[2].clear(); }

// "(" r "== " x op y ")"
void print_ternary(std::ostream& os, const constraint_runtime_info& info, const char* relation,
                   const char* op) {
  info.print_prefix(os);
  os << "(";
  info.print_param(os, 0);
  os << relation;
  info.print_param(os, 1);
  os << op;
  info.print_param(os, 2);
  os << ")";
}

// r relation "abs(" x ")"
void print_abs(std::ostream& os, const constraint_runtime_info& info, const char* relation) {
  info.print_prefix(os);
  info.print_param(os, 0);
  os << relation;
  info.print_param(os, 1);
  os << ")";
}

// The smallest member above 0; -1 if there is none.
int smallest_positive(const iset& s) {
  const iset p = s - iset::singleton(0);
  return p.empty() ? -1 : p.min();
}

}  // namespace

template <class T>
propagation_types::result_type approximated_arithmetic_propagator<T>::propagate(
    constraint_runtime_info& info) {
  if (!any_reduced(info)) return CONSISTENT;
  iset d[3];
  copy_domains(info, d);
  const unsigned int effort = info.effort();
  while (!is_accurate(d[1], d[2], effort, info.accurate_size_pair_bound())) {
    propagate_bounds(d, info);
    if (d[0].empty()) return UNSAT;
    if (!copy_domains_to_info(d, info)) return CONSISTENT;
  }
  propagate_accurately(d[0], d[1], d[2]);
  if (d[0].empty()) return UNSAT;
  copy_domains_or_bounds_to_info(d, info);
  return CONSISTENT;
}

template <class T>
bool approximated_arithmetic_propagator<T>::conflicts(const constraint_runtime_info& info) const {
  iset d[3];
  copy_domains(info, d);
  if (any_empty(d)) return true;
  const unsigned int effort = info.effort();
  while (!is_accurate(d[1], d[2], effort, info.accurate_size_pair_bound())) {
    const iset before[3] = {d[0], d[1], d[2]};
    propagate_bounds(d, info);
    if (d[0].empty()) return true;
    if (std::equal(d, d + 3, before)) return false;
  }
  propagate_accurately(d[0], d[1], d[2]);
  return d[0].empty();
}

template <class T>
bool approximated_arithmetic_propagator<T>::constraint_check(
    const constraint_runtime_info& info) const {
  return T::evaluate(info.domain(1).min(), info.domain(2).min()) == info.domain(0).min();
}

template <class T>
void approximated_arithmetic_propagator<T>::print(std::ostream& os,
                                                  const constraint_runtime_info* info) const {
  if (!info) {
    os << long_name();
    return;
  }
  print_ternary(os, *info, "== ", short_name());
}

template <class T>
void approximated_arithmetic_propagator<T>::explain_propagation(
    unsigned int param, const small_model::iset& literal, const small_model::iset& after,
    const constraint_runtime_info& info, literal_vector& explanation) const {
  if (info.effort() == 0) {
    constraint_propagator::explain_propagation(param, literal, after, info, explanation);
    return;
  }
  const std::unique_ptr<constraint_propagator> copy = clone();
  explanation_generators::explain_propagation_tightly(*copy, param, literal, after, info,
                                                      explanation);
}

template <class T>
std::unique_ptr<constraint_propagator> approximated_arithmetic_propagator<T>::clone() const {
  return std::make_unique<T>();
}

template <class T>
void approximated_arithmetic_propagator<T>::propagate_bounds(
    small_model::iset* domains, const constraint_runtime_info& info) const {
  // The classes' reasoning reads bounds, which an empty set doesn't have.
  if (!any_empty(domains)) propagate_unisigned_bounds(domains, info);
  if (any_empty(domains)) empty_all(domains);
}

template <class T>
bool approximated_arithmetic_propagator<T>::copy_domains_to_info(
    const small_model::iset* domains, constraint_runtime_info& info) {
  bool changed = false;
  for (unsigned int i = 0; i < 3; ++i) {
    if (info.domain(i) == domains[i]) continue;
    info.set_domain(i, domains[i]);
    changed = true;
  }
  return changed;
}

template <class T>
void approximated_arithmetic_propagator<T>::copy_domains_or_bounds_to_info(
    const small_model::iset* domains, constraint_runtime_info& info) {
  const unsigned int ranges = info.max_accurate_ranges() + info.effort();
  for (unsigned int i = 0; i < 3; ++i) {
    const iset domain = info.domain(i), d = domains[i];
    if (domain == d) continue;
    if (ranges >= count_ranges_of_one(d.bits())) {
      info.set_domain(i, d);
    } else if (d.min() > domain.min() || d.max() < domain.max()) {
      info.set_domain(i, domain & iset::clipped_range(d.min(), d.max()));
    }
  }
}

//==== mul_wrap_propagator =====================================================

void mul_wrap_propagator::propagate_accurately(small_model::iset& r, small_model::iset& x,
                                               small_model::iset& y) const {
  enumerate_pairs<mul_wrap_propagator>(r, x, y);
}

void mul_wrap_propagator::propagate_unisigned_bounds(small_model::iset* d,
                                                     const constraint_runtime_info&) const {
  iset &r = d[0], &x = d[1], &y = d[2];
  intersect_wrapped(r, (long long)x.min() * y.min(), (long long)x.max() * y.max());
  if (r.empty()) return;
  if (!r.contains(0)) {
    x.erase(0);
    y.erase(0);
    if (x.empty() || y.empty()) return;
  }
  // Beyond 31 the product may wrap, and then no quotient bounds a factor.
  if ((long long)x.max() * y.max() > 31) return;
  if (!x.contains(0)) {
    intersect_wrapped(y, r.min() / x.max(), r.max() / x.min());
    if (y.empty()) return;
  }
  if (!y.contains(0)) intersect_wrapped(x, r.min() / y.max(), r.max() / y.min());
}

//==== mul_truncate_propagator =================================================

propagation_types::result_type mul_truncate_propagator::propagate(constraint_runtime_info& info) {
  if (!any_reduced(info)) return CONSISTENT;
  iset d[3];
  copy_domains(info, d);
  const unsigned int effort = info.effort(), pairs = info.accurate_size_pair_bound();
  if (!is_accurate(d[1], d[2], effort, pairs)) {
    algo(d).propagate_bounds();
    if (d[0].empty()) return UNSAT;
    if (!is_accurate(d[1], d[2], effort, pairs)) {
      copy_domains_to_info(d, info);
      return CONSISTENT;
    }
  }
  propagate_accurately(d[0], d[1], d[2]);
  if (d[0].empty()) return UNSAT;
  copy_domains_or_bounds_to_info(d, info);
  return CONSISTENT;
}

bool mul_truncate_propagator::conflicts(const constraint_runtime_info& info) const {
  iset d[3];
  copy_domains(info, d);
  if (any_empty(d)) return true;
  const unsigned int effort = info.effort(), pairs = info.accurate_size_pair_bound();
  if (!is_accurate(d[1], d[2], effort, pairs)) {
    algo(d).propagate_bounds();
    if (d[0].empty()) return true;
    if (!is_accurate(d[1], d[2], effort, pairs)) return false;
  }
  propagate_accurately(d[0], d[1], d[2]);
  return d[0].empty();
}

void mul_truncate_propagator::propagate_accurately(small_model::iset& r, small_model::iset& x,
                                                   small_model::iset& y) const {
  enumerate_pairs<mul_truncate_propagator>(r, x, y);
}

void mul_truncate_propagator::propagate_unisigned_bounds(small_model::iset*,
                                                         const constraint_runtime_info&) const {
  throw std::runtime_error(
      "mul_truncate_propagator::propagate_unisigned_bounds() should never be called");
}

void mul_truncate_propagator::algo::propagate_bounds() {
  iset* d = m_domains;
  update_sizes();
  propagate_out();
  update_sizes();
  for (;;) {
    propagate_to_multiplicand(1);
    const unsigned int y_size = d[2].size();
    propagate_to_multiplicand(2);
    if (d[2].size() != y_size) propagate_to_multiplicand(1);
    if (!update_sizes()) break;
    propagate_out();
  }
  if (any_empty(d)) empty_all(d);
}

bool mul_truncate_propagator::algo::update_sizes() {
  bool changed = false;
  for (unsigned int i = 0; i < 3; ++i) {
    const unsigned int size = m_domains[i].size();
    changed |= size != m_sizes[i];
    m_sizes[i] = size;
  }
  return changed;
}

void mul_truncate_propagator::algo::propagate_out() {
  iset* d = m_domains;
  if (any_empty(d)) return;
  const long long lo = (long long)d[1].min() * d[2].min();
  const long long hi = std::min<long long>((long long)d[1].max() * d[2].max(), 31);
  if (hi < lo) {
    d[0].clear();
    return;
  }
  d[0] &= iset::clipped_range(lo, hi);
}

void mul_truncate_propagator::algo::propagate_to_multiplicand(unsigned int i) {
  iset* d = m_domains;
  if (any_empty(d)) return;
  // With a zero on both sides every value of parameter i has the support 0 * v.
  if (d[0].contains(0) && d[3 - i].contains(0)) return;
  iset supported;
  insert_zero_supported_multiplicand(supported, i);
  insert_positive_supported_multiplicand_bounds(supported, i);
  d[i] &= supported;
}

void mul_truncate_propagator::algo::insert_zero_supported_multiplicand(
    small_model::iset& supported, unsigned int i) const {
  if (m_domains[0].contains(0) && m_domains[i].contains(0)) supported.insert(0);
}

void mul_truncate_propagator::algo::insert_positive_supported_multiplicand_bounds(
    small_model::iset& supported, unsigned int i) const {
  const iset &r = m_domains[0], &o = m_domains[3 - i];
  const int r_low = smallest_positive(r), o_low = smallest_positive(o);
  if (r_low < 0 || o_low < 0) return;
  // v * w = p with p in r, w in o, both above 0: p / max(o) <= v <= max(r) / w.
  insert_interval(supported, (r_low + o.max() - 1) / o.max(), r.max() / o_low);
}

void mul_truncate_propagator::algo::insert_interval(small_model::iset& supported, long long lo,
                                                    long long hi) {
  supported |= iset::clipped_range(lo, hi);
}

//==== div_propagator ==========================================================

void div_propagator::explain_propagation(unsigned int param, const small_model::iset& literal,
                                         const small_model::iset& after,
                                         const constraint_runtime_info& info,
                                         literal_vector& explanation) const {
  const std::unique_ptr<constraint_propagator> copy = clone();
  explanation_generators::explain_propagation_tightly(*copy, param, literal, after, info,
                                                      explanation);
}

void div_propagator::propagate_accurately(small_model::iset& r, small_model::iset& x,
                                          small_model::iset& y) const {
  enumerate_pairs<div_propagator>(r, x, y);
}

void div_propagator::propagate_unisigned_bounds(small_model::iset* d,
                                                const constraint_runtime_info&) const {
  iset &r = d[0], &x = d[1], &y = d[2];
  // z: the support (r = 0, y = 0) is open, and then x is free.
  bool z = false;
  if (!r.contains(0)) {
    x.erase(0);
    y.erase(0);
    if (x.empty() || y.empty()) return;
  } else {
    z = y.contains(0);
  }
  y.erase(0);
  if (!y.empty()) {
    propagate_unisigned_bounds_division(r, x, y);
    if (!r.empty()) {
      if (!z) propagate_unisigned_bounds_dividend(r, x, y);
      // Without z the dividend step may have emptied x, and the divisor has no
      // bound to read then.
      if (z || !x.empty()) {
        propagate_unisigned_bounds_divisor(r, x, y);
        if (z) {
          r.insert(0);
          y.insert(0);
        }
        return;
      }
    }
  }
  // No pair with y above 0 is left.
  r.clear();
  y.clear();
  if (z) {
    r.insert(0);
    y.insert(0);
  } else {
    x.clear();
  }
}

void div_propagator::propagate_unisigned_bounds_division(small_model::iset& r,
                                                         const small_model::iset& x,
                                                         const small_model::iset& y) {
  intersect_truncated(r, x.min() / y.max(), x.max() / y.min());
}

void div_propagator::propagate_unisigned_bounds_dividend(const small_model::iset& r,
                                                         small_model::iset& x,
                                                         const small_model::iset& y) {
  // x = r * y + a remainder below y.
  const long long m = (long long)r.max() * y.max(), s = y.max() - 1;
  if (m >= 1) {
    intersect_truncated(x, (long long)r.min() * y.min(), m + s);
  } else {
    intersect_truncated(x, 0, s);
  }
}

void div_propagator::propagate_unisigned_bounds_divisor(const small_model::iset& r,
                                                        const small_model::iset& x,
                                                        small_model::iset& y) {
  // The divisors that give 0 with some x: those above min(x).
  iset zero_part;
  if (r.contains(0)) zero_part = y & iset::clipped_range(x.min() + 1, 31);
  const iset p = r - iset::singleton(0);
  if (p.empty()) {
    y = zero_part;
    return;
  }
  // x / y <= max(p) means y > x / (max(p) + 1); x / y >= min(p) means y <= x / min(p).
  const long long a = x.min() / (p.max() + 1), lo = a >= 1 ? a + 1 : 0;
  const long long hi = x.max() / p.min();
  if (lo <= hi) y &= iset::clipped_range(lo, hi);
  y |= zero_part;
}

//==== mod_propagator ==========================================================

void mod_propagator::explain_propagation(unsigned int param, const small_model::iset& literal,
                                         const small_model::iset& after,
                                         const constraint_runtime_info& info,
                                         literal_vector& explanation) const {
  const std::unique_ptr<constraint_propagator> copy = clone();
  explanation_generators::explain_propagation_tightly(*copy, param, literal, after, info,
                                                      explanation);
}

void mod_propagator::propagate_accurately(small_model::iset& r, small_model::iset& x,
                                          small_model::iset& y) const {
  enumerate_pairs<mod_propagator>(r, x, y);
}

void mod_propagator::propagate_unisigned_bounds(small_model::iset* d,
                                                const constraint_runtime_info&) const {
  iset &r = d[0], &x = d[1], &y = d[2];
  if (y.is_singleton()) {
    propagate_accurately(r, x, y);
  } else if (r.contains(0) && y.contains(0)) {
    // Every x has the support (r = 0, y = 0).
    const iset x_before = x;
    propagate_unisigned_bounds_base(r, x, y);
    r.insert(0);
    y.insert(0);
    x = x_before;
  } else {
    propagate_unisigned_bounds_base(r, x, y);
  }
}

void mod_propagator::propagate_unisigned_bounds_base(small_model::iset& r, small_model::iset& x,
                                                     small_model::iset& y) {
  if (!r.contains(0)) {
    x.erase(0);
    y.erase(0);
    if (x.empty() || y.empty()) return;
  }
  y.erase(0);
  if (!r.empty() && !x.empty() && !y.empty()) propagate_positive_bounds(r, x, y);
}

void mod_propagator::propagate_positive_bounds(small_model::iset& r, small_model::iset& x,
                                               const small_model::iset& y) {
  if (x.max() < y.min()) {
    // Every x is below every y: the remainder is x itself.
    r &= x;
    x = r;
    return;
  }
  r &= iset::clipped_range(0, y.max() - 1);
  const int m = y.min();
  if (!y.is_singleton() || x.is_full() || int(x.size()) >= m) return;
  // Fewer values than the modulus: each run passes at most one multiple of it.
  iset r_support, x_support;
  for (auto it = x.begin(); it != x.end(); it.advance_range()) {
    int a = it.current_range().first;
    const int b = it.current_range().second;
    if (b % m < a % m) {
      const int t = b - b % m;
      accumulate_positive_bounds(r_support, x_support, r, a, t - 1, m);
      a = t;
    }
    accumulate_positive_bounds(r_support, x_support, r, a, b, m);
  }
  r &= r_support;
  x &= x_support;
}

void mod_propagator::accumulate_positive_bounds(small_model::iset& r_support,
                                                small_model::iset& x_support,
                                                const small_model::iset& r, int a, int b, int m) {
  const int lo = a % m, hi = b % m;
  const iset t = r & iset::clipped_range(lo, hi);
  if (t.empty()) return;
  r_support |= t;
  // The run maps a + k to lo + k; back up again by a - lo, which stays within a..b.
  x_support |= iset::from_bits(t.bits() << unsigned(a - lo));
}

//==== pow_propagator ==========================================================

void pow_propagator::propagate_accurately(small_model::iset& r, small_model::iset& x,
                                          small_model::iset& y) const {
  enumerate_pairs<pow_propagator>(r, x, y);
}

void pow_propagator::propagate_unisigned_bounds(small_model::iset* d,
                                                const constraint_runtime_info&) const {
  iset &r = d[0], &x = d[1], &y = d[2];
  const iset zero_one = iset::clipped_range(0, 1);
  if (x.subset_of(zero_one)) {
    // 0 ** y = 0 and 1 ** y = 1: the power is the base.
    r &= x;
    x = r;
    return;
  }
  if (!y.subset_of(zero_one)) return;
  iset r_support, x_support, y_support;
  if (y.contains(0) && x != iset::singleton(0) && r.contains(1)) {
    r_support.insert(1);
    x_support |= iset::full() - iset::singleton(0);
    y_support.insert(0);
  }
  if (y.contains(1) && r.intersects(x)) {
    r_support |= x;
    x_support |= r;
    y_support.insert(1);
  }
  if (x.contains(0) && r.contains(0)) {
    r_support.insert(0);
    x_support.insert(0);
    y_support = iset::full();
  }
  r &= r_support;
  x &= x_support;
  y &= y_support;
}

long long pow_propagator::evaluate(long long base, long long exponent) {
  if (base == 0) return 0;
  if (base == 1) return 1;
  if (base == 2) return 1LL << exponent;
  return nontrivial_pow(base, exponent);
}

long long pow_propagator::nontrivial_pow(long long base, long long exponent) {
  if (exponent > 4) {
    // Base 3 or more: the square of a half power of 2 or more is already beyond
    // 31, so an odd exponent needs no last factor.
    const long long h = nontrivial_pow(base, exponent / 2);
    return h >= 32 ? h : h * h;
  }
  long long product = 1;
  for (long long i = 0; i < exponent && product < 32; ++i) product *= base;
  return product;
}

template class approximated_arithmetic_propagator<mul_wrap_propagator>;
template class approximated_arithmetic_propagator<mul_truncate_propagator>;
template class approximated_arithmetic_propagator<div_propagator>;
template class approximated_arithmetic_propagator<mod_propagator>;
template class approximated_arithmetic_propagator<pow_propagator>;

//==== less_equal_mul_propagator ===============================================

propagation_types::result_type less_equal_mul_propagator::init(constraint_runtime_info& info) {
  info.allocate_watch(0, LOWER_BOUND_WATCH);
  info.allocate_watch(1, UPPER_BOUND_WATCH);
  info.allocate_watch(2, UPPER_BOUND_WATCH);
  return VALID;
}

propagation_types::result_type less_equal_mul_propagator::propagate(
    constraint_runtime_info& info) {
  if (any_empty(info)) return UNSAT;
  iset r = info.domain(0);
  const long long m = (long long)info.domain(1).max() * info.domain(2).max();
  if (m < r.min()) return UNSAT;
  if (m < r.max()) info.set_domain(0, r & iset::clipped_range(r.min(), m));
  propagate_to_multiplicand(1, info);
  propagate_to_multiplicand(2, info);
  return CONSISTENT;
}

void less_equal_mul_propagator::propagate_to_multiplicand(unsigned int i,
                                                          constraint_runtime_info& info) {
  const int low = info.domain(0).min();
  if (low == 0) return;
  // propagate has ruled out max(o) = 0: then no product reaches min(r) > 0.
  const int t = (low - 1) / info.domain(3 - i).max();
  const iset d = info.domain(i), too_small = iset::clipped_range(0, t);
  if (d.intersects(too_small)) info.set_domain(i, d - too_small);
}

bool less_equal_mul_propagator::conflicts(const constraint_runtime_info& info) const {
  return any_empty(info) ||
         (long long)info.domain(1).max() * info.domain(2).max() < info.domain(0).min();
}

bool less_equal_mul_propagator::constraint_check(const constraint_runtime_info& info) const {
  return (long long)info.domain(1).min() * info.domain(2).min() >= info.domain(0).min();
}

void less_equal_mul_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "le_mul";
    return;
  }
  print_ternary(os, *info, "<= ", "*");
}

std::unique_ptr<constraint_propagator> less_equal_mul_propagator::clone() const {
  return std::make_unique<less_equal_mul_propagator>(*this);
}

namespace {

// r <= c * q (sign 1) or r >= c * q (sign -1) with a fixed factor c, as a linear
// constraint; null when neither factor is fixed.
std::unique_ptr<constraint_propagator> intersect_mul(const constraint_runtime_info& info,
                                                     std::vector<unsigned int>& kept, int sign) {
  unsigned int fixed = 1;
  if (!info.domain(1).is_singleton()) fixed = 2;
  if (!info.domain(fixed).is_singleton()) return nullptr;
  const int c = info.domain(fixed).min();
  const unsigned int q = 3 - fixed;
  kept.clear();
  if (info.domain(0).is_singleton()) {
    kept.push_back(q);
    return std::make_unique<linear_combination_ge_propagator>(sign * info.domain(0).min(),
                                                              std::vector<int>{sign * c});
  }
  kept.push_back(sign > 0 ? q : 0);
  kept.push_back(sign > 0 ? 0 : q);
  if (c == 1) return std::make_unique<difference_ge_propagator>(0);
  return std::make_unique<linear_combination_ge_propagator>(
      0, sign > 0 ? std::vector<int>{c, -1} : std::vector<int>{1, -c});
}

}  // namespace

std::unique_ptr<constraint_propagator> less_equal_mul_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  return intersect_mul(info, kept, 1);
}

//==== greater_equal_mul_propagator ============================================

propagation_types::result_type greater_equal_mul_propagator::init(constraint_runtime_info& info) {
  info.allocate_watch(0, UPPER_BOUND_WATCH);
  info.allocate_watch(1, LOWER_BOUND_WATCH);
  info.allocate_watch(2, LOWER_BOUND_WATCH);
  return VALID;
}

propagation_types::result_type greater_equal_mul_propagator::propagate(
    constraint_runtime_info& info) {
  if (any_empty(info)) return UNSAT;
  iset r = info.domain(0);
  const long long m = (long long)info.domain(1).min() * info.domain(2).min();
  if (m > r.max()) return UNSAT;
  if (m > r.min()) info.set_domain(0, r & iset::clipped_range(m, r.max()));
  propagate_to_multiplicand(1, info);
  propagate_to_multiplicand(2, info);
  return CONSISTENT;
}

void greater_equal_mul_propagator::propagate_to_multiplicand(unsigned int i,
                                                             constraint_runtime_info& info) {
  const iset o = info.domain(3 - i);
  // A zero factor keeps every product at 0.
  if (o.contains(0)) return;
  const int b = info.domain(0).max() / o.min() + 1;
  if (b > 31) return;
  const iset d = info.domain(i), too_large = iset::clipped_range(b, 31);
  if (d.intersects(too_large)) info.set_domain(i, d - too_large);
}

bool greater_equal_mul_propagator::conflicts(const constraint_runtime_info& info) const {
  return any_empty(info) ||
         (long long)info.domain(1).min() * info.domain(2).min() > info.domain(0).max();
}

bool greater_equal_mul_propagator::constraint_check(const constraint_runtime_info& info) const {
  return (long long)info.domain(1).min() * info.domain(2).min() <= info.domain(0).min();
}

void greater_equal_mul_propagator::print(std::ostream& os,
                                         const constraint_runtime_info* info) const {
  if (!info) {
    os << "le_mul";
    return;
  }
  print_ternary(os, *info, ">= ", "*");
}

std::unique_ptr<constraint_propagator> greater_equal_mul_propagator::clone() const {
  return std::make_unique<greater_equal_mul_propagator>(*this);
}

std::unique_ptr<constraint_propagator> greater_equal_mul_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  return intersect_mul(info, kept, -1);
}

//==== abs_propagator ==========================================================

propagation_types::result_type abs_propagator::propagate(constraint_runtime_info& info) {
  const iset r = info.domain(0), x = info.domain(1);
  if (r == x) return CONSISTENT;
  const iset s = r & x;
  if (s.empty()) return UNSAT;
  info.set_domain(0, s);
  info.set_domain(1, s);
  return CONSISTENT;
}

bool abs_propagator::conflicts(const constraint_runtime_info& info) const {
  return info.domain(0).disjoint(info.domain(1));
}

bool abs_propagator::constraint_check(const constraint_runtime_info& info) const {
  return info.domain(0).min() == info.domain(1).min();
}

void abs_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "abs";
    return;
  }
  print_abs(os, *info, "== abs(");
}

std::unique_ptr<constraint_propagator> abs_propagator::clone() const {
  return std::make_unique<abs_propagator>(*this);
}

//==== greater_equal_abs_propagator ============================================

propagation_types::result_type greater_equal_abs_propagator::propagate(
    constraint_runtime_info& info) {
  if (any_empty(info)) return UNSAT;
  const iset r = info.domain(0), x = info.domain(1);
  const int m = x.min();
  if (m > r.min()) {
    if (m > r.max()) return UNSAT;
    info.set_domain(0, r & iset::clipped_range(m, 31));
  }
  if (x.max() > r.max()) info.set_domain(1, x & iset::clipped_range(0, r.max()));
  return CONSISTENT;
}

bool greater_equal_abs_propagator::conflicts(const constraint_runtime_info& info) const {
  return any_empty(info) || info.domain(1).min() > info.domain(0).max();
}

bool greater_equal_abs_propagator::constraint_check(const constraint_runtime_info& info) const {
  return info.domain(0).min() >= info.domain(1).min();
}

void greater_equal_abs_propagator::print(std::ostream& os,
                                         const constraint_runtime_info* info) const {
  if (!info) {
    os << "greater_equal_abs";
    return;
  }
  print_abs(os, *info, ">= abs(");
}

std::unique_ptr<constraint_propagator> greater_equal_abs_propagator::clone() const {
  return std::make_unique<greater_equal_abs_propagator>(*this);
}

//==== less_equal_abs_propagator ===============================================

propagation_types::result_type less_equal_abs_propagator::propagate(
    constraint_runtime_info& info) {
  if (any_empty(info)) return UNSAT;
  const iset r = info.domain(0), x = info.domain(1);
  const int a = x.max(), l = r.min();
  if (r.max() > a) {
    const iset cut = r & iset::clipped_range(0, a);
    if (cut.empty()) return UNSAT;
    info.set_domain(0, cut);
  }
  if (l == 0) return CONSISTENT;
  const iset too_small = iset::clipped_range(0, l - 1);
  if (x.intersects(too_small)) info.set_domain(1, x - too_small);
  return CONSISTENT;
}

bool less_equal_abs_propagator::conflicts(const constraint_runtime_info& info) const {
  return any_empty(info) || info.domain(0).min() > info.domain(1).max();
}

bool less_equal_abs_propagator::constraint_check(const constraint_runtime_info& info) const {
  return info.domain(0).min() <= info.domain(1).min();
}

void less_equal_abs_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "less_equal_abs";
    return;
  }
  print_abs(os, *info, "<= abs(");
}

std::unique_ptr<constraint_propagator> less_equal_abs_propagator::clone() const {
  return std::make_unique<less_equal_abs_propagator>(*this);
}

}  // namespace zelk
