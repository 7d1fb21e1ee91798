// Propagators that sum their parameters:
//
//   greater_equal_sum_propagator     r >= x1 + ... + xn          (bounds)
//   less_equal_sum_propagator        r <= x1 + ... + xn          (bounds)
//   linear_combination_ge_propagator c1*x1 + ... + cn*xn >= constant (bounds)
//   sum_mod_propagator               all xi < mod, (x1 + ... + xn) mod mod = result
//   sum_wrap_propagator              r = (x1 + ... + xn) mod 32   (whole sets)
//   sum_truncate_propagator          r = x + y, no wrapping       (whole sets)
//   neg_propagator                   r = -x mod 32                (whole sets)
//
// and the non-linear ones, all over the values 0..31:
//
//   mul_wrap_propagator              r = x * y mod 32             (pairs, or bounds)
//   mul_truncate_propagator          r = x * y <= 31              (pairs, or bounds)
//   div_propagator                   r = x / y, 0 when y = 0      (pairs, or bounds)
//   mod_propagator                   r = x mod y, 0 when y = 0    (pairs, or bounds)
//   pow_propagator                   r = x ** y <= 31, 0 ** 0 = 0 (pairs, or bounds)
//   less_equal_mul_propagator        r <= x * y                   (domains)
//   greater_equal_mul_propagator     r >= x * y                   (domains)
//   abs_propagator, greater_equal_abs_propagator, less_equal_abs_propagator:
//                                    r = |x|, r >= |x|, r <= |x|; |x| = x here
//
// The bounds propagators reach their fixed point in one pass and allocate nothing;
// the set propagators run on the word arithmetic of impl/propagation.h.
#ifndef ZELK_IMPL_ARITHMETIC_PROPAGATORS_H
#define ZELK_IMPL_ARITHMETIC_PROPAGATORS_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/int128.h"
#include "impl/small_iset.h"

namespace zelk {

class disjunction_specification;
class sum_mod_propagator;

// Helpers of the propagators that wrap or clip their results to 0..31.
class arithmetic_propagation_types {
 public:
  // x modulo 32, the remainder truncated towards zero (negative x stay negative).
  static long long wrap(long long x) { return x % 32; }
  static long long saturate(long long x) { return x < 0 ? 0 : x > 31 ? 31 : x; }
  // Intersects set with lo..hi taken modulo 32; a range of 32 values or more
  // (hi - lo >= 31) leaves set alone.
  static void intersect_wrapped(small_model::iset& set, long long lo, long long hi);
  // Intersects set with max(lo, 0)..min(hi, 31); an empty range leaves set alone.
  static void intersect_truncated(small_model::iset& set, long long lo, long long hi);
};

// r >= x1 + ... + xn; parameters (r, x1, ..., xn).
class greater_equal_sum_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return ANY_NUMBER_OF_PARAMS; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  // r - x1 - ... - xn >= 0 with the singletons folded in; null without singletons.
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;
};

// r <= x1 + ... + xn; parameters (r, x1, ..., xn).
class less_equal_sum_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return ANY_NUMBER_OF_PARAMS; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;
};

// sum of coefficients[i] * xi >= constant; one parameter per coefficient.
//
// Slack = sum of the best bounds (max for c > 0, min for c < 0) less the constant.
// Filtering moves only the worse bound of each parameter, which the slack does
// not read, so one pass reaches the fixed point. With every |c| within
// 2147483647 / n no sum leaves 64 bits; init decides, and larger coefficients
// take the same algorithm in 128 bits.
class linear_combination_ge_propagator : public constraint_propagator {
 public:
  linear_combination_ge_propagator(int constant, std::vector<int> coefficients)
      : m_constant(constant), m_coefficients(std::move(coefficients)) {}

  unsigned int count_params() const override { return unsigned(m_coefficients.size()); }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  // The bound explanation, whatever literal and after are: every other parameter
  // beyond its best bound, or the pivot at or beyond the bound this implies.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;

  // The propagation in the width T (long long or int128).
  template <class T>
  [[nodiscard]] result_type const_propagate(constraint_runtime_info& info) const;
  // Narrows param given the slack of the whole constraint.
  template <class T>
  void propagate_to_argument(constraint_runtime_info& info, unsigned int param,
                             const T& slack) const;

  // ---- simplification (intersect_with) -----------------------------------
  // Folds singletons and zero coefficients into constant. Returns the number of
  // parameters left; new_coefficients and kept stay empty when nothing folded.
  unsigned int compact_coefficients(const constraint_runtime_info& info,
                                    std::vector<int>& new_coefficients, long long& constant,
                                    std::vector<unsigned int>& kept) const;
  // Divides the coefficients (new_coefficients, or this constraint's own when
  // that is empty) by their gcd, rounding the constant up.
  void normalize_coefficients(unsigned int n, std::vector<int>& new_coefficients,
                              long long& constant, std::vector<unsigned int>& kept) const;
  std::unique_ptr<constraint_propagator> new_empty_sum(long long constant,
                                                       std::vector<unsigned int>& kept) const;
  std::unique_ptr<constraint_propagator> new_unary_sum(const std::vector<int>& coefficients,
                                                       long long constant,
                                                       std::vector<unsigned int>& kept) const;
  std::unique_ptr<constraint_propagator> new_binary_sum(const std::vector<int>& coefficients,
                                                        long long constant,
                                                        std::vector<unsigned int>& kept) const;
  std::unique_ptr<constraint_propagator> new_nary_sum(const std::vector<int>& coefficients,
                                                      long long constant,
                                                      std::vector<unsigned int>& kept) const;
  // lo..hi clamped to 0..31; empty when hi < lo.
  static small_model::iset make_range(long long lo, long long hi) {
    return small_model::iset::clipped_range(lo, hi);
  }

  // ---- combination (Fourier-Motzkin elimination) ------------------------------
  bool get_disjunction_specification(disjunction_specification& form) const override;
  bool may_combine(const constraint_propagator& other) const override;
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override;
  // Adds multiples of the two base constraints (a difference or a linear
  // combination on the right) so that the coefficient of pivot cancels.
  bool combine_base_constraints(const disjunction_specification& left,
                                const disjunction_specification& right, unsigned int pivot,
                                disjunction_specification& result) const override;
  // Two sums with the same terms: the one with the smaller constant.
  bool disjoin_constraint(const disjunction_specification& left,
                          const disjunction_specification& right,
                          disjunction_specification& result) const override;
  std::unique_ptr<constraint_propagator> new_propagator(
      const disjunction_specification& form, std::vector<unsigned int>& params) const override;
  // Substitutes x = result - y, from a two-parameter sum_mod_propagator whose
  // mod is result + 1, for the pivot.
  std::unique_ptr<constraint_propagator> combine_sum_mod(const constraint_runtime_info& info,
                                                         const sum_mod_propagator& sum_mod,
                                                         const constraint_runtime_info& right_info,
                                                         const std::vector<unsigned int>& map,
                                                         unsigned int pivot,
                                                         std::vector<unsigned int>& out) const;

  // Coefficient of variable var in the base constraint of form (a difference or
  // a linear combination); 0 when var isn't a base parameter.
  static long long find_var_coefficient(unsigned int var, const disjunction_specification& form);
  // coefs[variable] += m * coefficient, constant += m * the constant of the base
  // of form; false on overflow, and then constant is left alone.
  static bool accumulate_coefficients(std::vector<long long>& coefs, long long& constant,
                                      const disjunction_specification& form, long long multiplier);
  // The sum of the non-zero coefs (indexed by variable) >= constant as the owned
  // base of result; false when it says nothing or doesn't fit 32 bits.
  static bool set_constraint_from_positional_coefficients(const std::vector<long long>& coefs,
                                                          long long constant,
                                                          disjunction_specification& result);
  // The entry of map that isn't the pivot's (left arity + 1 with a single entry).
  static unsigned int find_non_pivot(const constraint_runtime_info& info,
                                     const std::vector<unsigned int>& map, unsigned int pivot);

  int constant() const { return m_constant; }
  const std::vector<int>& coefficients() const { return m_coefficients; }
  bool small_coefficients() const { return m_small_coefficients; }

 private:
  int m_constant;
  std::vector<int> m_coefficients;
  // Set by init: every coefficient is small enough for the 64-bit path.
  bool m_small_coefficients = false;
};

// Every xi lies in 0..mod-1 and (x1 + ... + xn) mod mod = result; with mod 2 the
// parity (xor) constraint. Waits until one parameter is left open, then fixes it.
class sum_mod_propagator : public constraint_propagator {
 public:
  // Raises std::out_of_range unless mod is positive.
  sum_mod_propagator(int mod, int result);

  unsigned int count_params() const override { return ANY_NUMBER_OF_PARAMS; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  // The sum over the open parameters, the singletons moved into the result; null
  // when no parameter is a singleton.
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;

  // Cuts every domain to 0..mod-1; false if one is or becomes empty.
  [[nodiscard]] bool restrict_to_mod(constraint_runtime_info& info) const;

  // ---- combination ------------------------------------------------------------
  // Another sum with the same mod, an equality, or (when mod = result + 1, that
  // is x + y = result exactly for two parameters) a linear combination.
  bool may_combine(const constraint_propagator& other) const override;
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override;
  // The sum of the two sums. A parameter in both cancels (x + x = 0 modulo 2);
  // with another mod a shared parameter makes the result null.
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const sum_mod_propagator& other_sum_mod,
                                                 const std::vector<unsigned int>& map,
                                                 std::vector<unsigned int>& out) const;
  // This sum with the variable of the equality replaced by its partner.
  std::unique_ptr<constraint_propagator> combine_with_eq(const constraint_runtime_info& info,
                                                         const std::vector<unsigned int>& map,
                                                         std::vector<unsigned int>& out) const;

  int mod() const { return m_mod; }
  int result() const { return m_result; }

 private:
  int m_mod;
  int m_result;
};

// r = (x1 + ... + xn) mod 32; parameters (r, x1, ..., xn). Domain consistent: one
// pass down a chain of partial sums and back up.
class sum_wrap_propagator : public tight1_constraint_propagator,
                            private arithmetic_propagation_types {
 public:
  unsigned int count_params() const override { return ANY_NUMBER_OF_PARAMS; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  // Narrows sums, the possible values of x1 + ... + xk, and writes x1..xk.
  // False when no sum is left.
  [[nodiscard]] static bool propagate(constraint_runtime_info& info, small_model::iset& sums,
                                      unsigned int k);
};

// r = x + y without wrapping; parameters (r, x, y).
class sum_truncate_propagator : public tight1_constraint_propagator,
                                private arithmetic_propagation_types {
 public:
  unsigned int count_params() const override { return 3; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  // Bounds and set sums until nothing changes or a set is empty.
  static void propagate(small_model::iset& r, small_model::iset& x, small_model::iset& y);
  static void propagate_bounds(small_model::iset& r, small_model::iset& x, small_model::iset& y);
};

// r = -x mod 32; parameters (r, x).
class neg_propagator : public constraint_propagator {
 public:
  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
};

//==== non-linear arithmetic ====================================================

// r = x op y, parameters (r, x, y), T the concrete class. When the domains of x and
// y give few enough pairs the pairs are enumerated and the three domains become
// exactly the supported values; otherwise the class's bound reasoning runs on a
// local copy until it changes nothing or the pairs become few enough. A result
// with more runs than the tuning bound allows is written by its bounds only, so
// that a domain doesn't fragment into many small holes. Effort enlarges both bounds.
template <class T>
class approximated_arithmetic_propagator : public constraint_propagator,
                                           protected arithmetic_propagation_types {
 public:
  unsigned int count_params() const override { return 3; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  // The trivial clause at effort 0; above it, the tight generator.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  // Reduces r, x and y to the values that appear in a pair (x, y) whose result is in r.
  virtual void propagate_accurately(small_model::iset& r, small_model::iset& x,
                                    small_model::iset& y) const = 0;
  // The class's reasoning on bounds over domains[0..2] = r, x, y; sound, not exact.
  // The sets are never empty on entry.
  virtual void propagate_unisigned_bounds(small_model::iset* domains,
                                          const constraint_runtime_info& info) const = 0;
  virtual const char* short_name() const = 0;
  virtual const char* long_name() const = 0;

  // Few enough pairs to enumerate; never with a full set, at any effort.
  static bool is_accurate(const small_model::iset& x, const small_model::iset& y,
                          unsigned int effort, unsigned int pair_bound) {
    if (x.is_full() || y.is_full()) return false;
    return (unsigned long long)x.size() * y.size() <= 10ULL * effort + pair_bound;
  }
  // propagate_unisigned_bounds, then all three empty if one is, so that a failure
  // reads the same from every parameter.
  void propagate_bounds(small_model::iset* domains, const constraint_runtime_info& info) const;
  // Writes every domain that differs from its set; true if one did.
  static bool copy_domains_to_info(const small_model::iset* domains,
                                   constraint_runtime_info& info);
  // As copy_domains_to_info, but a set with too many runs only narrows the bounds.
  static void copy_domains_or_bounds_to_info(const small_model::iset* domains,
                                             constraint_runtime_info& info);
};

// r = x * y modulo 32.
class mul_wrap_propagator : public approximated_arithmetic_propagator<mul_wrap_propagator> {
 public:
  void propagate_accurately(small_model::iset& r, small_model::iset& x,
                            small_model::iset& y) const override;
  void propagate_unisigned_bounds(small_model::iset* domains,
                                  const constraint_runtime_info& info) const override;
  const char* short_name() const override { return "*"; }
  const char* long_name() const override { return "mul"; }
  static long long evaluate(long long x, long long y) { return x * y % 32; }
};

// r = x * y, and x * y is at most 31. Its bound reasoning is a fixed point of its
// own (algo), run once per activation.
class mul_truncate_propagator
    : public approximated_arithmetic_propagator<mul_truncate_propagator> {
 public:
  // One bound pass over r, x, y.
  struct algo {
    explicit algo(small_model::iset* domains) : m_domains(domains) {}
    // Products to r and quotients to x and y until nothing changes; all three
    // empty if one is.
    void propagate_bounds();
    // True if a size differs from the stored one; stores the sizes.
    bool update_sizes();
    // r within the products of the bounds of x and y, cut at 31.
    void propagate_out();
    // Parameter i (1 for x, 2 for y) within the values that times a value of the
    // other one give a value of r.
    void propagate_to_multiplicand(unsigned int i);
    void insert_zero_supported_multiplicand(small_model::iset& supported, unsigned int i) const;
    void insert_positive_supported_multiplicand_bounds(small_model::iset& supported,
                                                       unsigned int i) const;
    static void insert_interval(small_model::iset& supported, long long lo, long long hi);

    small_model::iset* m_domains;
    unsigned int m_sizes[3] = {0, 0, 0};
  };

  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  void propagate_accurately(small_model::iset& r, small_model::iset& x,
                            small_model::iset& y) const override;
  // Never called: algo takes its place. Raises std::runtime_error.
  void propagate_unisigned_bounds(small_model::iset* domains,
                                  const constraint_runtime_info& info) const override;
  const char* short_name() const override { return "*"; }
  const char* long_name() const override { return "mul"; }
  static long long evaluate(long long x, long long y) { return x * y; }
};

// r = x / y rounded down; y = 0 gives r = 0.
class div_propagator : public approximated_arithmetic_propagator<div_propagator> {
 public:
  // The tight generator at every effort.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  void propagate_accurately(small_model::iset& r, small_model::iset& x,
                            small_model::iset& y) const override;
  void propagate_unisigned_bounds(small_model::iset* domains,
                                  const constraint_runtime_info& info) const override;
  const char* short_name() const override { return "/"; }
  const char* long_name() const override { return "div"; }
  static long long evaluate(long long x, long long y) { return y == 0 ? 0 : x / y; }

  // The three steps of the bound reasoning, on a divisor y without 0.
  static void propagate_unisigned_bounds_division(small_model::iset& r, const small_model::iset& x,
                                                  const small_model::iset& y);
  static void propagate_unisigned_bounds_dividend(const small_model::iset& r, small_model::iset& x,
                                                  const small_model::iset& y);
  static void propagate_unisigned_bounds_divisor(const small_model::iset& r,
                                                 const small_model::iset& x, small_model::iset& y);
};

// r = x mod y; y = 0 gives r = 0.
class mod_propagator : public approximated_arithmetic_propagator<mod_propagator> {
 public:
  // The tight generator at every effort.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  void propagate_accurately(small_model::iset& r, small_model::iset& x,
                            small_model::iset& y) const override;
  void propagate_unisigned_bounds(small_model::iset* domains,
                                  const constraint_runtime_info& info) const override;
  const char* short_name() const override { return "%"; }
  const char* long_name() const override { return "mod"; }
  static long long evaluate(long long x, long long y) { return y == 0 ? 0 : x % y; }

  // The reasoning without the support (r = 0, y = 0).
  static void propagate_unisigned_bounds_base(small_model::iset& r, small_model::iset& x,
                                              small_model::iset& y);
  // r, x and y non-empty, y without 0.
  static void propagate_positive_bounds(small_model::iset& r, small_model::iset& x,
                                        const small_model::iset& y);
  // The remainders of the run a..b of x modulo m (a run that passes no multiple of
  // m) that lie in r, and the values of x that give them.
  static void accumulate_positive_bounds(small_model::iset& r_support,
                                         small_model::iset& x_support,
                                         const small_model::iset& r, int a, int b, int m);
};

// r = base ** exponent, and the result is at most 31; 0 ** 0 is 0.
class pow_propagator : public approximated_arithmetic_propagator<pow_propagator> {
 public:
  void propagate_accurately(small_model::iset& r, small_model::iset& x,
                            small_model::iset& y) const override;
  // Exact when x lies in {0, 1} or y does; nothing otherwise.
  void propagate_unisigned_bounds(small_model::iset* domains,
                                  const constraint_runtime_info& info) const override;
  const char* short_name() const override { return "**"; }
  const char* long_name() const override { return "pow"; }
  // The power, or some value of 32 or more when it exceeds 31. Exponents up to 31.
  static long long evaluate(long long base, long long exponent);
  // Base 3 or more.
  static long long nontrivial_pow(long long base, long long exponent);
};

// r <= x * y, parameters (r, x, y). Domain consistent.
class less_equal_mul_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return 3; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  // With x or y fixed, a linear constraint; null otherwise.
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;

  // Removes the values of parameter i too small to reach min(r).
  static void propagate_to_multiplicand(unsigned int i, constraint_runtime_info& info);
};

// r >= x * y, parameters (r, x, y). Domain consistent.
class greater_equal_mul_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return 3; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;

  // Removes the values of parameter i too large to stay within max(r).
  static void propagate_to_multiplicand(unsigned int i, constraint_runtime_info& info);
};

// r = |x|, parameters (r, x); on values 0..31 that is r = x.
class abs_propagator : public tight1_constraint_propagator {
 public:
  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
};

// r >= |x|, parameters (r, x).
class greater_equal_abs_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
};

// r <= |x|, parameters (r, x).
class less_equal_abs_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
};

extern template class approximated_arithmetic_propagator<mul_wrap_propagator>;
extern template class approximated_arithmetic_propagator<mul_truncate_propagator>;
extern template class approximated_arithmetic_propagator<div_propagator>;
extern template class approximated_arithmetic_propagator<mod_propagator>;
extern template class approximated_arithmetic_propagator<pow_propagator>;

}  // namespace zelk

#endif
