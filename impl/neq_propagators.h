// The disequalities, the cheapest constraints of the solver:
//
//   neq_propagator                       x != y       (x, y)
//   difference_neq_constant_propagator   x - y != c   (x, y)
//   literal_or_neq_propagator            L in set, or x != y   (L, x, y)
//
// Both wait on finalization watches only: nothing can be removed before one side
// is a single value, and then at most one value goes from the other side, after
// which the constraint is entailed. Domain consistent on non-empty domains.
#ifndef ZELK_IMPL_NEQ_PROPAGATORS_H
#define ZELK_IMPL_NEQ_PROPAGATORS_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/comparison_propagators.h"
#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/explanation_generators.h"
#include "impl/small_iset.h"

namespace zelk {

// x != y. Explained by the default generator, whose clause is always
// "x != v or y != v" for the one value v in play; the proof keeps just v.
class neq_propagator : public constraint_propagator {
 public:
  // The clause x != v or y != v.
  class neq_rule : public explanation_rule {
   public:
    explicit neq_rule(unsigned int value) : m_value(value) {}
    std::unique_ptr<explanation_rule> clone() const override;
    void get_explanation(std::vector<small_model::iset>& explanation) const override;
    // "DIFF(" v ")".
    void print(std::ostream& os, const variable_print_strategy& strategy,
               const std::vector<unsigned int>& variables) const override;
    unsigned int value() const { return m_value; }

   private:
    unsigned int m_value;
  };

  unsigned int count_params() const override { return 2; }
  // Finalization watches on both sides, fixed or not.
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  // The init of both disequalities.
  [[nodiscard]] static result_type watch_finalization_of_both(constraint_runtime_info& info);
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  // v is the one value missing from explanation[0]; null for an entry that
  // misses no value, which no explanation of this constraint has.
  std::unique_ptr<explanation_rule> rule(const literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  // Two booleans that differ are a parity constraint, x + y = 1 modulo 2, so that
  // they join the combination of sums modulo 2.
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;
};

// x - y != c. No rule: explained by the default generator. Not derived from
// neq_propagator, so that a type test for x != y never takes it for one.
class difference_neq_constant_propagator : public constraint_propagator {
 public:
  explicit difference_neq_constant_propagator(int constant) : m_constant(constant) {}

  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  int constant() const { return m_constant; }

 private:
  int m_constant;
};

// L in `literal`, or x != y: the guarded disequality of a half-reified x = y.
// Explained tightly; the explanation is always "L in literal, or x != v, or
// y != v" for the one value v in play (or, on an empty guard, "L anywhere"), and
// the proof keeps just v.
class literal_or_neq_propagator
    : public literal_or_constraint_propagator<literal_or_neq_propagator,
                                              tight_constraint_propagator> {
 public:
  class literal_or_neq_rule : public explanation_rule {
   public:
    literal_or_neq_rule(unsigned int value, small_model::iset literal, bool domain_rule)
        : m_value(value), m_literal(literal), m_domain_rule(domain_rule) {}
    std::unique_ptr<explanation_rule> clone() const override;
    void get_explanation(std::vector<small_model::iset>& explanation) const override;
    // "LIT_OR_NEQ({" literal "}," v ")", or "LIT_OR_NEQ_DOM".
    void print(std::ostream& os, const variable_print_strategy& strategy,
               const std::vector<unsigned int>& variables) const override;

   private:
    unsigned int m_value;  // meaningless with m_domain_rule
    small_model::iset m_literal;
    bool m_domain_rule;
  };

  explicit literal_or_neq_propagator(small_model::iset literal)
      : literal_or_constraint_propagator(literal) {}

  // Finalization watches, as the disequality has them; none when x and y are
  // already apart.
  [[nodiscard]] result_type init_non_literal_part(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate_non_literal_part(constraint_runtime_info& info) override;
  result_type state_of_non_literal_part(const constraint_runtime_info& info) const override;
  void print_non_literal_part(std::ostream& os, const constraint_runtime_info* info) const override;
  bool constraint_check_non_literal_part(const constraint_runtime_info& info) const override;
  std::unique_ptr<explanation_rule> rule(const literal_vector& explanation) const override;
};

extern template class literal_or_constraint_propagator<literal_or_neq_propagator,
                                                       tight_constraint_propagator>;

}  // namespace zelk

#endif
