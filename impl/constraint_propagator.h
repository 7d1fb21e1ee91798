// The base class of every constraint, and the adapter that turns a plain
// algorithm class into one.
//
// Checklist for whoever implements a propagator:
// - propagate reads with info.domain(i) and narrows with info.set_domain(i, s), s a
//   subset of the domain. It never writes an empty domain: it returns UNSAT instead
//   (the table propagator alone may write one, and then returns UNSAT in the same call).
// - VALID only when every assignment inside the domains it leaves satisfies the
//   constraint; UNSAT only when none does.
// - POSTPONE only after put_in_queue(CONSTRAINT_QUEUE), with nothing filtered.
// - No allocation in propagate: use members or function-local static buffers.
// - Watches come from the view; after forget_watches the handles are gone and must
//   not be released. A clone run on a hypothetical view must need no release either.
// - explain_propagation writes one set per parameter, forming a clause that the
//   constraint implies; for every parameter other than `param` the set misses the
//   old domain, and for `param` its part inside the old domain lies within `after`.
#ifndef ZELK_IMPL_CONSTRAINT_PROPAGATOR_H
#define ZELK_IMPL_CONSTRAINT_PROPAGATOR_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/constraint_runtime_info.h"
#include "impl/small_iset.h"
#include "impl/watch_types.h"

namespace zelk {

class explanation_rule;
class disjunction_specification;

class propagation_types {
 public:
  enum result_type { UNSAT = 0, VALID = 1, CONSISTENT = 2, POSTPONE = 3 };
};

std::ostream& operator<<(std::ostream& os, propagation_types::result_type result);

class clause_propagator;

class constraint_propagator : protected watch_types, public propagation_types {
 public:
  typedef std::vector<small_model::iset> literal_vector;
  static constexpr unsigned int ANY_NUMBER_OF_PARAMS = 0xFFFFFFFFu;

  constraint_propagator() = default;
  constraint_propagator(const constraint_propagator&) = default;
  constraint_propagator& operator=(const constraint_propagator&) = default;
  virtual ~constraint_propagator() = default;

  // The clause behind this propagator, if it is one: asked during every conflict
  // analysis, where a dynamic_cast would compare type names.
  virtual const clause_propagator* as_clause() const { return nullptr; }
  // Fixed number of parameters, or ANY_NUMBER_OF_PARAMS.
  virtual unsigned int count_params() const;
  // One-time set-up (watches). Zero (UNSAT) means the constraint is already false.
  [[nodiscard]] virtual result_type init(constraint_runtime_info& info);
  [[nodiscard]] virtual result_type propagate(constraint_runtime_info& info) = 0;
  // The domains leave the constraint unsatisfiable, as far as its own test sees.
  virtual bool conflicts(const constraint_runtime_info& info) const = 0;
  // All domains are single values: do those values satisfy the constraint?
  virtual bool constraint_check(const constraint_runtime_info& info) const = 0;
  virtual void print(std::ostream& os, const constraint_runtime_info* info) const;
  virtual unsigned int watched_param_index(unsigned int i) const;
  virtual unsigned int count_watches() const;
  virtual void forget_watches();
  virtual void explain_propagation(unsigned int param, const small_model::iset& literal,
                                   const small_model::iset& after,
                                   const constraint_runtime_info& info,
                                   literal_vector& explanation) const;
  virtual void possibly_crippling_values(unsigned int param, const small_model::iset& values,
                                         const constraint_runtime_info& info,
                                         literal_vector& out) const;
  virtual std::unique_ptr<explanation_rule> rule(const literal_vector& explanation) const;
  virtual std::unique_ptr<constraint_propagator> clone() const = 0;
  virtual std::unique_ptr<constraint_propagator> intersect_with(
      const constraint_runtime_info& info, std::vector<unsigned int>& kept) const;
  virtual bool potentially_falsifying(const constraint_runtime_info& info,
                                      unsigned int param) const;
  virtual bool get_disjunction_specification(disjunction_specification& spec) const;
  virtual bool disjoin_constraint(const disjunction_specification& left,
                                  const disjunction_specification& right,
                                  disjunction_specification& result) const;
  virtual bool combine_base_constraints(const disjunction_specification& left,
                                        const disjunction_specification& right,
                                        unsigned int pivot,
                                        disjunction_specification& result) const;
  virtual std::unique_ptr<constraint_propagator> new_propagator(
      const disjunction_specification& spec, std::vector<unsigned int>& params) const;
  virtual bool may_combine(const constraint_propagator& other) const;
  // A constraint implied by this one (left) and `right` in which the variable of
  // right parameter `pivot` no longer occurs; null if not available.
  virtual std::unique_ptr<constraint_propagator> combine(
      const constraint_runtime_info& info, const constraint_propagator& right,
      const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
      unsigned int pivot, std::vector<unsigned int>& out) const;

  // Lets `right` do the work of combine, translating the numbering both ways.
  std::unique_ptr<constraint_propagator> combine_other_first(
      const constraint_runtime_info& info, const constraint_propagator& right,
      const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
      unsigned int pivot, std::vector<unsigned int>& out) const;
};

// Explains by the tight generator: widen one parameter at a time and re-propagate.
class tight_constraint_propagator : public constraint_propagator {
 public:
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
};

// Explains by refining at most two parameters.
class tight1_constraint_propagator : public constraint_propagator {
 public:
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
};

// Wraps a plain algorithm class (no virtual functions) so that one algorithm can
// also be embedded as a member of another propagator.
template <class Algo>
class constraint_propagator_from_algo : public constraint_propagator {
 public:
  constraint_propagator_from_algo() = default;
  explicit constraint_propagator_from_algo(const Algo& algo) : m_algo(algo) {}

  unsigned int count_params() const override { return m_algo.count_params(); }
  result_type init(constraint_runtime_info& info) override { return m_algo.init(info); }
  result_type propagate(constraint_runtime_info& info) override {
    return m_algo.propagate(info);
  }
  bool conflicts(const constraint_runtime_info& info) const override {
    return m_algo.conflicts(info);
  }
  bool constraint_check(const constraint_runtime_info& info) const override {
    return m_algo.constraint_check(info);
  }
  void print(std::ostream& os, const constraint_runtime_info* info) const override {
    m_algo.print(os, info);
  }
  unsigned int watched_param_index(unsigned int i) const override {
    return m_algo.watched_param_index(i);
  }
  unsigned int count_watches() const override { return m_algo.count_watches(); }
  void forget_watches() override { m_algo.forget_watches(); }
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override {
    m_algo.explain_propagation(param, literal, after, info, explanation);
  }
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<constraint_propagator_from_algo>(*this);
  }

  Algo& algo() { return m_algo; }
  const Algo& algo() const { return m_algo; }

 protected:
  Algo m_algo;
};

}  // namespace zelk

#endif
