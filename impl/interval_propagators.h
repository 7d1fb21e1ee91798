// Binary constraints on intervals with variable ends:
//
//   no_overlap_propagator(L0, L1)         x0 + L0 <= x1, or x1 + L1 <= x0    (x0, x1)
//   sub_interval_propagator(a, b)         x > y, or a <= x and y <= b         (x, y)
//   no_sub_interval_propagator(a, b, k)   x <= y - k, and x < a or y - k > b  (x, y)
//
// The first keeps two tasks of fixed lengths apart; the other two tie the interval
// x..y to the fixed interval a..b (an empty interval lies inside anything). The last
// is also the base constraint that combining x - p >= c0 with p - z >= c1 keeps
// when the plain sum would lose the conflict (see difference_ge_propagator), and may
// then be joined to a clause (impl/disjoint_propagation_algo.h).
//
// All three are domain consistent: each order of no_overlap is a bound on either
// side, and each side of the other two is bounded from one end only.
#ifndef ZELK_IMPL_INTERVAL_PROPAGATORS_H
#define ZELK_IMPL_INTERVAL_PROPAGATORS_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/small_iset.h"

namespace zelk {

// Explains with the widest boxes of the two parameters that still hold no
// solution, found from the bounds alone.
class no_overlap_propagator : public constraint_propagator {
 public:
  no_overlap_propagator(unsigned int first_length, unsigned int second_length)
      : m_first_length(first_length), m_second_length(second_length) {}

  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

 private:
  // Cuts the two sets to the order in which `first` ends before `second` starts.
  static void propagate(small_model::iset& first, long long length, small_model::iset& second);
  void extend_unsat_towards_equality(small_model::iset& a, small_model::iset& b) const;
  void explain_empty(small_model::iset a, small_model::iset b, literal_vector& explanation) const;
  static void extend_first_min_for_reduction(small_model::iset& first, long long length,
                                             const small_model::iset& second);
  static void extend_first_max_for_reduction(small_model::iset& first,
                                             const small_model::iset& second, long long length);

  unsigned int m_first_length;
  unsigned int m_second_length;
};

class sub_interval_propagator : public tight_constraint_propagator {
 public:
  sub_interval_propagator(int a, int b) : m_a(a), m_b(b) {}

  unsigned int count_params() const override { return 2; }
  // Bound watches only where the constraint can still be falsified.
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

 private:
  result_type update_domains(constraint_runtime_info& info, long long lo, long long hi) const;
  bool can_be_satisfied(const small_model::iset& x, const small_model::iset& y) const;
  bool can_be_falsified(const small_model::iset& x, const small_model::iset& y) const;

  int m_a, m_b;
};

class no_sub_interval_propagator : public tight_constraint_propagator {
 public:
  no_sub_interval_propagator(int a, int b, int k) : m_a(a), m_b(b), m_k(k) {}

  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  // The base constraint alone, or joined to the literals of `form` as a clause.
  std::unique_ptr<constraint_propagator> new_propagator(
      const disjunction_specification& form, std::vector<unsigned int>& params) const override;

  int a() const { return m_a; }
  int b() const { return m_b; }
  int k() const { return m_k; }

 private:
  bool can_be_satisfied(const small_model::iset& x, const small_model::iset& y) const;
  bool can_be_falsified(const small_model::iset& x, const small_model::iset& y) const;

  int m_a, m_b, m_k;
};

}  // namespace zelk

#endif
