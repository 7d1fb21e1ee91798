// The disjunction of a base constraint A and a clause B as one propagator:
// parameters 0 .. a_params-1 are A's, the rest are the clause's.
//
// Both halves run on querying slices of the view (impl/sliced_runtime_info.h):
// what they would write stays pending. A's reductions become real only when the
// clause can't hold; the clause propagates for real only when A can't hold. An
// undecided disjunction thus costs no change to the assignment stack.
//
// Instances: A one of equal_propagator, difference_ge_propagator,
// linear_combination_ge_propagator and no_sub_interval_propagator, B
// clause_propagation_algo. They are the results of combination
// (impl/disjunction_specification.h), whose clause literals are filled before init.
#ifndef ZELK_IMPL_DISJOINT_PROPAGATION_ALGO_H
#define ZELK_IMPL_DISJOINT_PROPAGATION_ALGO_H

#include <iosfwd>
#include <memory>
#include <sstream>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/interval_propagators.h"
#include "impl/small_iset.h"

namespace zelk {

class disjoint_propagation_algo_base {
 public:
  // The two halves print into their own buffers first, so that their texts can
  // be trimmed and joined.
  class print_buffer {
   public:
    std::ostringstream& stream_a() { return m_a; }
    std::ostringstream& stream_b() { return m_b; }
    // "(" A " || " B ")\n", each text without one trailing line end.
    void flush_to(std::ostream& os);

   private:
    std::ostringstream m_a;
    std::ostringstream m_b;
  };
};

template <class A, class B>
class disjoint_propagation_algo : public disjoint_propagation_algo_base, public propagation_types {
 public:
  typedef std::vector<small_model::iset> literal_vector;

  explicit disjoint_propagation_algo(const A& a);

  // a_params plus the clause's parameters, or all bits set when one is unknown.
  unsigned int count_params() const;
  // Sets up both halves; a disjunction never fails here.
  [[nodiscard]] result_type init(constraint_runtime_info& info);
  [[nodiscard]] result_type propagate(constraint_runtime_info& info);
  bool conflicts(const constraint_runtime_info& info) const;
  bool constraint_check(const constraint_runtime_info& info) const;
  void print(std::ostream& os, const constraint_runtime_info* info) const;
  unsigned int watched_param_index(unsigned int i) const {
    return m_a_params + m_b.watched_param_index(i);
  }
  unsigned int count_watches() const { return m_b.count_watches(); }
  void forget_watches() { m_b.forget_watches(); }
  // A's explanation of its propagation (or of its failure), followed by the
  // clause's literals: the clause is false wherever this was asked.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const;

  // A's parameter count: its own, or what the view leaves beside the clause.
  unsigned int a_count_params(const constraint_runtime_info& info) const;

  A& a() { return m_a; }
  const A& a() const { return m_a; }
  B& b() { return m_b; }
  const B& b() const { return m_b; }
  unsigned int a_params() const { return m_a_params; }

 private:
  A m_a;
  B m_b;
  // Known from A at construction when A has a fixed count, so that a propagator
  // fresh from combination can answer conflicts before init.
  unsigned int m_a_params;
};

template <class A, class B>
class disjoint_propagator : public constraint_propagator_from_algo<disjoint_propagation_algo<A, B>> {
 public:
  typedef std::vector<small_model::iset> literal_vector;

  explicit disjoint_propagator(const A& a)
      : constraint_propagator_from_algo<disjoint_propagation_algo<A, B>>(
            disjoint_propagation_algo<A, B>(a)) {}

  // The clause half, filled before init.
  literal_vector& update_literals() { return this->m_algo.b().update_literals(); }
  const literal_vector& literals() const { return this->m_algo.b().literals(); }
};

// x - y >= c, or the clause; parameters (x, y, literal variables...). It combines
// like a difference.
class difference_ge_or_clause_propagator
    : public disjoint_propagator<difference_ge_propagator, clause_propagation_algo> {
 public:
  explicit difference_ge_or_clause_propagator(int constant)
      : disjoint_propagator(difference_ge_propagator(constant)) {}

  bool get_disjunction_specification(disjunction_specification& spec) const override;
  bool may_combine(const constraint_propagator& other) const override;
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override;

  int constant() const { return m_algo.a().constant(); }
};

extern template class disjoint_propagation_algo<equal_propagator, clause_propagation_algo>;
extern template class disjoint_propagation_algo<difference_ge_propagator, clause_propagation_algo>;
extern template class disjoint_propagation_algo<linear_combination_ge_propagator,
                                                clause_propagation_algo>;
extern template class disjoint_propagation_algo<no_sub_interval_propagator,
                                                clause_propagation_algo>;

}  // namespace zelk

#endif
