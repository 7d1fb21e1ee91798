// The small propagators that compare parameters:
//
//   equal_propagator          x = y                                (x, y)
//   difference_ge_propagator  x - y >= c                           (x, y)
//   is_equal_propagator       b = 1 exactly when x = y, else b = 0 (b, x, y)
//   if_then_else_propagator   r = t when c = 1, r = e when c = 0   (r, c, t, e)
//   element_propagator        r = a[i - s]                         (i, a1 ... an, r)
//   max_propagator            r = max(x1 ... xn)                   (r, x1 ... xn)
//   min_propagator            r = min(x1 ... xn)                   (r, x1 ... xn)
//
// and the literal-guarded forms, a guard L tied to a relation of x and y:
//
//   literal_or_equal_propagator          L in set, or x = y        (L, x, y)
//   literal_or_difference_ge_propagator  L in set, or x - y >= c   (L, x, y)
//   literal_iff_less_than_propagator     L in set exactly when x < y
//
// (literal_or_neq_propagator lives with the disequalities.) They store the
// half-reified comparisons of a model, and the resolvents of one literal and one
// difference, without the clause half of a disjunctive propagator.
//
// The difference is the workhorse of combination: conflict analysis eliminates a
// variable between two differences (transitivity, a - b >= c0 and b - z >= c1 give
// a - z >= c0 + c1) or disjoins two of them, without falling back on clauses. The
// equality combines by substitution: it rewrites the other constraint on the
// partner variable. The algebra of the literal side of a combination is in
// impl/disjunction_specification.h.
#ifndef ZELK_IMPL_COMPARISON_PROPAGATORS_H
#define ZELK_IMPL_COMPARISON_PROPAGATORS_H

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/explanation_generators.h"
#include "impl/small_iset.h"

namespace zelk {

class disjunction_specification;

// x = y. Never VALID: the equality stays live until backtracking, so that a
// later reduction of either side reaches the other.
class equal_propagator : public tight1_constraint_propagator {
 public:
  unsigned int count_params() const override { return 2; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  std::unique_ptr<constraint_propagator> new_propagator(
      const disjunction_specification& spec, std::vector<unsigned int>& params) const override;
  // Substitution works on anything.
  bool may_combine(const constraint_propagator& other) const override;
  // `right` with the pivot replaced by its partner in the equality. Returned only
  // when the rewritten constraint fails on the domains of the two views (the
  // pivot's domain taken from the partner); null when the partner already occurs
  // in `right`.
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override;
};

// x - y >= c. Domain consistent: only max(x) bounds y and only min(y) bounds x.
class difference_ge_propagator : public tight_constraint_propagator {
 public:
  // The explanation x > t or y <= t - c, kept by the proof as two numbers.
  class diff_ge_rule : public explanation_rule {
   public:
    diff_ge_rule(int constant, int bound) : m_constant(constant), m_bound(bound) {}
    std::unique_ptr<explanation_rule> clone() const override;
    void get_explanation(std::vector<small_model::iset>& explanation) const override;
    // "DIFF_GE_" c "(" t ")", a negative c as "minus_" and its absolute value.
    void print(std::ostream& os, const variable_print_strategy& strategy,
               const std::vector<unsigned int>& variables) const override;
    int constant() const { return m_constant; }
    int bound() const { return m_bound; }

   private:
    int m_constant;
    int m_bound;
  };

  explicit difference_ge_propagator(int constant) : m_constant(constant) {}

  unsigned int count_params() const override { return 2; }
  // Bound watches only: the upper bound of x and the lower bound of y are all
  // that can tighten the other side.
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<explanation_rule> rule(const literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  // With a fixed side the difference is a unary bound: simplified as x - y >= c.
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;

  // ---- combination --------------------------------------------------------
  bool get_disjunction_specification(disjunction_specification& spec) const override;
  // Either difference: the weaker one on the same variables, or else the other
  // one replaced by its explanation clause when it is false on its domains.
  bool disjoin_constraint(const disjunction_specification& left,
                          const disjunction_specification& right,
                          disjunction_specification& result) const override;
  bool disjoin_incompatible_constraint(const disjunction_specification& left,
                                       const disjunction_specification& right,
                                       disjunction_specification& result) const;
  // Eliminates pivot between this difference (the base of left) and the
  // difference at the base of right.
  bool combine_base_constraints(const disjunction_specification& left,
                                const disjunction_specification& right, unsigned int pivot,
                                disjunction_specification& result) const override;
  // a - b >= c0 and b - a >= c1 (c0 is this constant).
  bool combine_circular_pivot(const disjunction_specification& left,
                              const disjunction_specification& right, int right_constant,
                              disjunction_specification& result) const;
  // a - p >= c0 (this, the base of left) and p - z >= c1 (the base of right).
  bool combine_middle_pivot(const disjunction_specification& left,
                            const disjunction_specification& right, int right_constant,
                            disjunction_specification& result) const;
  std::unique_ptr<constraint_propagator> new_propagator(
      const disjunction_specification& spec, std::vector<unsigned int>& params) const override;
  bool may_combine(const constraint_propagator& other) const override;
  static bool may_combine_diff_ge_propagator(const constraint_propagator& other);
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override;

  int constant() const { return m_constant; }

 private:
  int m_constant;
};

// b = (x = y): b is 1 exactly when x equals y, 0 exactly when they differ.
class is_equal_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return 3; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  // b fixed to 1: x = y. Stays CONSISTENT even on equal single values.
  [[nodiscard]] static result_type propagate_equal(constraint_runtime_info& info);
  // b fixed to 0: a single value on one side leaves the other.
  [[nodiscard]] static result_type propagate_diff(constraint_runtime_info& info);
};

// r = (c ? t : e), c in 0..1.
class if_then_else_propagator : public tight_constraint_propagator {
 public:
  unsigned int count_params() const override { return 4; }
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  // c fixed to 1: r = t.
  [[nodiscard]] static result_type propagate_then(constraint_runtime_info& info);
  // c fixed to 0: r = e.
  [[nodiscard]] static result_type propagate_else(constraint_runtime_info& info);
};

// r = a[i - s]: index value s + k selects a(k+1). Index values that select no
// position, or a position beyond 0..31, are never a solution. Filters the index
// and the result, and the selected element once the index is fixed; with that,
// one pass is domain consistent.
class element_propagator : public constraint_propagator {
 public:
  explicit element_propagator(int first_index) : m_first_index(first_index) {}

  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
  // Dead positions at either end cut off; an equality once a single position
  // remains under a fixed index.
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;

  void explain_conflict(const constraint_runtime_info& info, literal_vector& explanation) const;
  void explain_index_propagation(const small_model::iset& literal, const small_model::iset& after,
                                 const constraint_runtime_info& info,
                                 literal_vector& explanation) const;
  void explain_result_propagation(const small_model::iset& literal, const small_model::iset& after,
                                  const constraint_runtime_info& info,
                                  literal_vector& explanation) const;
  void explain_equality_propagation(unsigned int param, const small_model::iset& literal,
                                    const small_model::iset& after,
                                    const constraint_runtime_info& info,
                                    literal_vector& explanation) const;

  int first_index() const { return m_first_index; }

 private:
  int m_first_index;
};

// The shared algorithm of min and max on a vector of domains, entry 0 the result,
// written for the maximum; the minimum mirrors its domains (v to 31 - v) around it.
// Domain consistent in one pass.
class min_max_propagator : public tight_constraint_propagator {
 public:
  typedef std::vector<small_model::iset> domain_vector;

  // False when the domains leave no solution; otherwise narrows them all.
  [[nodiscard]] static bool propagate_max(domain_vector& domains);
  // The result within the union of the arguments, at or above each one's minimum.
  [[nodiscard]] static bool propagate_to_max_result(domain_vector& domains);
  // Every entry, the result included, cut to 0..limit; false on an empty one.
  [[nodiscard]] static bool erase_values_above(domain_vector& domains, int limit);
  // supports[i - 1]: the values of argument i that the result may take.
  static void get_result_supports(const domain_vector& domains, domain_vector& supports);
  // The non-empty entry with the largest maximum, the last of equals; size() if none.
  static std::size_t find_index_of_max(const domain_vector& sets);
  // The largest minimum of the non-empty entries, 0 if none.
  static int find_max_lower_bound(const domain_vector& sets);
};

class max_propagator : public min_max_propagator {
 public:
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
};

class min_propagator : public min_max_propagator {
 public:
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  // Each value v to 31 - v; its own inverse.
  static small_model::iset mirror(small_model::iset set);
};

//==== literal-guarded propagators ==================================================

// L in `literal`, or the relation of x and y; parameters (L, x, y). P is the
// concrete class (for clone), Base the explanation style. The relation comes in
// through the hooks; the guard sleeps on one value watch, on a value of the
// literal still in L's domain, so that it wakes only when the literal may die.
template <class P, class Base>
class literal_or_constraint_propagator : public Base {
 public:
  typedef propagation_types::result_type result_type;
  typedef std::vector<small_model::iset> literal_vector;

  explicit literal_or_constraint_propagator(small_model::iset literal) : m_literal(literal) {}

  unsigned int count_params() const override { return 3; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  unsigned int watched_param_index(unsigned int) const override { return 0; }
  unsigned int count_watches() const override { return m_watch.is_null() ? 0 : 1; }
  void forget_watches() override { m_watch = watch_handle_t(); }
  // The tight explanation, re-propagated on a copy that holds no handle: the
  // copy's handles would name the live watch lists, which a hypothetical view
  // must never release.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<P>(static_cast<const P&>(*this));
  }

  // ---- the relation ---------------------------------------------------------
  // Default: a modification watch on each of x and y that isn't a single value.
  [[nodiscard]] virtual result_type init_non_literal_part(constraint_runtime_info& info);
  // Enforces the relation, once the literal can no longer hold.
  [[nodiscard]] virtual result_type propagate_non_literal_part(constraint_runtime_info& info) = 0;
  // The relation alone: UNSAT impossible, VALID certain, CONSISTENT open.
  virtual result_type state_of_non_literal_part(const constraint_runtime_info& info) const = 0;
  virtual void print_non_literal_part(std::ostream& os,
                                      const constraint_runtime_info* info) const = 0;
  virtual bool constraint_check_non_literal_part(const constraint_runtime_info& info) const = 0;

  const small_model::iset& literal() const { return m_literal; }
  bool holds_watch() const { return !m_watch.is_null(); }
  int watched_value() const { return m_watched_value; }

 protected:
  small_model::iset m_literal;
  watch_handle_t m_watch;  // null when no value watch is held
  int m_watched_value = 0;
};

// L in `literal` exactly when the relation holds; parameters (L, x, y). While L
// is undecided it holds one value watch inside the literal and one outside.
template <class P, class Base>
class literal_iff_constraint_propagator : public Base {
 public:
  typedef propagation_types::result_type result_type;
  typedef std::vector<small_model::iset> literal_vector;

  explicit literal_iff_constraint_propagator(small_model::iset literal) : m_literal(literal) {}

  unsigned int count_params() const override { return 3; }
  [[nodiscard]] result_type init(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  unsigned int watched_param_index(unsigned int) const override { return 0; }
  unsigned int count_watches() const override { return m_positive.handle.is_null() ? 0 : 2; }
  void forget_watches() override {
    m_positive.handle = watch_handle_t();
    m_negative.handle = watch_handle_t();
  }
  // As in the literal_or form: re-propagation on a copy without handles.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<P>(static_cast<const P&>(*this));
  }

  // The smallest value of `domain` within the literal / outside it.
  void allocate_positive_watch(constraint_runtime_info& info, small_model::iset domain);
  void allocate_negative_watch(constraint_runtime_info& info, small_model::iset domain);

  // ---- the relation ---------------------------------------------------------
  // Watches for the relation / its negation; false when it can't hold.
  [[nodiscard]] virtual bool init_non_literal_part(constraint_runtime_info& info) = 0;
  [[nodiscard]] virtual bool init_neg_non_literal_part(constraint_runtime_info& info) = 0;
  // Enforce the relation / its negation.
  [[nodiscard]] virtual result_type propagate_non_literal_part(constraint_runtime_info& info) = 0;
  [[nodiscard]] virtual result_type propagate_neg_non_literal_part(
      constraint_runtime_info& info) = 0;
  virtual result_type state_of_non_literal_part(const constraint_runtime_info& info) const = 0;
  virtual void print_non_literal_part(std::ostream& os,
                                      const constraint_runtime_info* info) const = 0;
  virtual bool constraint_check_non_literal_part(const constraint_runtime_info& info) const = 0;

  const small_model::iset& literal() const { return m_literal; }

 protected:
  struct value_watch {
    watch_handle_t handle;  // null when none is held
    int value = 0;
  };
  small_model::iset m_literal;
  value_watch m_positive;  // on a value inside the literal
  value_watch m_negative;  // on a value outside it
};

// L in `literal`, or x = y.
class literal_or_equal_propagator
    : public literal_or_constraint_propagator<literal_or_equal_propagator,
                                              tight_constraint_propagator> {
 public:
  explicit literal_or_equal_propagator(small_model::iset literal)
      : literal_or_constraint_propagator(literal) {}

  [[nodiscard]] result_type propagate_non_literal_part(constraint_runtime_info& info) override;
  result_type state_of_non_literal_part(const constraint_runtime_info& info) const override;
  void print_non_literal_part(std::ostream& os, const constraint_runtime_info* info) const override;
  bool constraint_check_non_literal_part(const constraint_runtime_info& info) const override;
};

// L in `literal`, or x - y >= c. Combines like a difference.
class literal_or_difference_ge_propagator
    : public literal_or_constraint_propagator<literal_or_difference_ge_propagator,
                                              tight_constraint_propagator> {
 public:
  literal_or_difference_ge_propagator(small_model::iset literal, int constant)
      : literal_or_constraint_propagator(literal), m_constant(constant) {}

  // Bound watches, as the difference has them.
  [[nodiscard]] result_type init_non_literal_part(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate_non_literal_part(constraint_runtime_info& info) override;
  result_type state_of_non_literal_part(const constraint_runtime_info& info) const override;
  void print_non_literal_part(std::ostream& os, const constraint_runtime_info* info) const override;
  bool constraint_check_non_literal_part(const constraint_runtime_info& info) const override;

  // Under a guard fixed inside the literal: always true. Otherwise the
  // difference's own simplification, with the live literal put first.
  std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const override;
  // One literal at position 0 and an owned difference from position 1.
  bool get_disjunction_specification(disjunction_specification& spec) const override;
  bool may_combine(const constraint_propagator& other) const override;
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override;

  int constant() const { return m_constant; }

 private:
  int m_constant;
};

// L in `literal` exactly when x < y.
class literal_iff_less_than_propagator
    : public literal_iff_constraint_propagator<literal_iff_less_than_propagator,
                                               tight_constraint_propagator> {
 public:
  explicit literal_iff_less_than_propagator(small_model::iset literal)
      : literal_iff_constraint_propagator(literal) {}

  [[nodiscard]] bool init_non_literal_part(constraint_runtime_info& info) override;
  [[nodiscard]] bool init_neg_non_literal_part(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate_non_literal_part(constraint_runtime_info& info) override;
  [[nodiscard]] result_type propagate_neg_non_literal_part(constraint_runtime_info& info) override;
  result_type state_of_non_literal_part(const constraint_runtime_info& info) const override;
  void print_non_literal_part(std::ostream& os, const constraint_runtime_info* info) const override;
  bool constraint_check_non_literal_part(const constraint_runtime_info& info) const override;
};

extern template class literal_or_constraint_propagator<literal_or_equal_propagator,
                                                       tight_constraint_propagator>;
extern template class literal_or_constraint_propagator<literal_or_difference_ge_propagator,
                                                       tight_constraint_propagator>;
extern template class literal_iff_constraint_propagator<literal_iff_less_than_propagator,
                                                        tight_constraint_propagator>;

}  // namespace zelk

#endif
