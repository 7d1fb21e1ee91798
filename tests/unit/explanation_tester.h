// explanation_tester: a test-only wrapper around any propagator that checks every
// explanation it gives against brute force over the variables' initial domains.
//
// Two properties, for each explain_propagation call:
// - the clause misses the view's domains as the contract requires (for a
//   propagation, the part of param's entry inside the old domain lies within
//   `after`, or misses the removed values asked about);
// - the clause is implied: no assignment within the initial domains that
//   satisfies the constraint falsifies it.
// Faults are counted, with a description of the first one.
#ifndef ZELK_TESTS_UNIT_EXPLANATION_TESTER_H
#define ZELK_TESTS_UNIT_EXPLANATION_TESTER_H

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "impl/constraint_explicit_info.h"
#include "impl/constraint_propagator.h"

namespace zelk {

class explanation_tester : public constraint_propagator {
 public:
  struct report {
    unsigned int checked = 0;
    unsigned int faults = 0;
    std::string first_fault;
  };

  explanation_tester(std::unique_ptr<constraint_propagator> inner,
                     std::vector<small_model::iset> initial, report* sink)
      : m_inner(std::move(inner)), m_initial(std::move(initial)), m_report(sink) {}
  explanation_tester(const explanation_tester& other)
      : constraint_propagator(other),
        m_inner(other.m_inner->clone()),
        m_initial(other.m_initial),
        m_report(other.m_report) {}

  unsigned int count_params() const override { return m_inner->count_params(); }
  result_type init(constraint_runtime_info& info) override { return m_inner->init(info); }
  result_type propagate(constraint_runtime_info& info) override {
    return m_inner->propagate(info);
  }
  bool conflicts(const constraint_runtime_info& info) const override {
    return m_inner->conflicts(info);
  }
  bool constraint_check(const constraint_runtime_info& info) const override {
    return m_inner->constraint_check(info);
  }
  void print(std::ostream& os, const constraint_runtime_info* info) const override {
    m_inner->print(os, info);
  }
  unsigned int count_watches() const override { return m_inner->count_watches(); }
  unsigned int watched_param_index(unsigned int i) const override {
    return m_inner->watched_param_index(i);
  }
  void forget_watches() override { m_inner->forget_watches(); }
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<explanation_tester>(*this);
  }
  std::unique_ptr<constraint_propagator> intersect_with(const constraint_runtime_info&,
                                                        std::vector<unsigned int>&) const override {
    return nullptr;  // keeps the wrapper in place
  }

  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override {
    m_inner->explain_propagation(param, literal, after, info, explanation);
    check(param, literal, after, info, explanation);
  }

 private:
  void fault(const std::string& text) const {
    if (m_report->faults++ == 0) m_report->first_fault = text;
  }

  void check(unsigned int param, const small_model::iset& literal, const small_model::iset& after,
             const constraint_runtime_info& info, const literal_vector& explanation) const {
    ++m_report->checked;
    const unsigned int n = info.arity();
    std::ostringstream where;
    m_inner->print(where, nullptr);
    if (explanation.size() != n) return fault("wrong explanation size in " + where.str());
    for (unsigned int i = 0; i < n; ++i) {
      if (!after.empty() && i == param) {
        const small_model::iset removed = info.domain(param) - after;
        small_model::iset asked = removed & literal;
        if (asked.empty()) asked = removed;
        if (explanation[i].intersects(asked))
          return fault("explanation keeps a removed value of the pivot in " + where.str());
        continue;
      }
      if (explanation[i].intersects(info.domain(i)))
        return fault("explanation meets a present domain in " + where.str());
    }
    // Implication by enumeration of the initial domains.
    constraint_explicit_info values(n);
    std::vector<int> current(n);
    bool ok = true;
    enumerate(0, values, explanation, ok);
    if (!ok) fault("explanation not implied by " + where.str());
  }

  void enumerate(unsigned int i, constraint_explicit_info& values,
                 const literal_vector& explanation, bool& ok) const {
    if (!ok) return;
    if (i == values.arity()) {
      if (!m_inner->constraint_check(values)) return;
      for (unsigned int k = 0; k < values.arity(); ++k)
        if (explanation[k].contains(values.domain(k).min())) return;
      ok = false;
      return;
    }
    for (int v : m_initial[i]) {
      values.domains()[i] = small_model::iset::singleton(v);
      enumerate(i + 1, values, explanation, ok);
    }
  }

  std::unique_ptr<constraint_propagator> m_inner;
  std::vector<small_model::iset> m_initial;
  report* m_report;
};

}  // namespace zelk

#endif
