// Explanation by re-propagation on hypothetical states.
#include "impl/explanation_generators.h"

#include <stdexcept>

namespace zelk {

namespace {

bool is_param(unsigned int p) { return int(p) >= 0; }

}  // namespace

//==== conflicting_info ======================================================

explanation_generators::conflicting_info::conflicting_info(const constraint_runtime_info& info,
                                                           unsigned int param,
                                                           const small_model::iset& set)
    : m_effort(info.effort()) {
  const unsigned int n = info.arity();
  m_domains.resize(n);
  for (unsigned int i = 0; i < n; ++i) m_domains[i] = info.domain(i);
  if (param < n) m_domains[param] = set;
  m_working = m_domains;
  m_dirty.assign(n, 0);
}

void explanation_generators::conflicting_info::put_in_queue(queue_type) {
  throw std::runtime_error(
      "impl/explanation_generators:62: In constraint_queue, other queues are unsupported");
}

void explanation_generators::conflicting_info::reread_dirty_domains() {
  for (unsigned int p : m_dirty_list) {
    m_working[p] = m_domains[p];
    m_dirty[p] = 0;
  }
  m_dirty_list.clear();
}

//==== generators ==============================================================

void explanation_generators::explain_propagation(unsigned int param, const small_model::iset&,
                                                 const small_model::iset& after,
                                                 const constraint_runtime_info& info,
                                                 literal_vector& explanation) {
  const unsigned int n = info.arity();
  explanation.resize(n);
  for (unsigned int i = 0; i < n; ++i) explanation[i] = ~info.domain(i);
  if (param < n) explanation[param] |= after;
}

void explanation_generators::explain_propagation_tightly(
    constraint_propagator& propagator, unsigned int param, const small_model::iset& literal,
    const small_model::iset& after, const constraint_runtime_info& info,
    literal_vector& explanation) {
  static std::vector<unsigned int> order;
  const unsigned int n = info.arity();
  order.clear();
  order.reserve(n);
  if (after.empty()) {
    const unsigned int a = info.latest_modified_param(constraint_runtime_info::NO_PARAM);
    if (!is_param(a)) {
      for (unsigned int i = 0; i < n; ++i) order.push_back(i);
    } else {
      const unsigned int b = info.latest_modified_param(a);
      if (is_param(b)) order.push_back(b);
      order.push_back(a);
      for (unsigned int i = 0; i < n; ++i)
        if (i != a && !(is_param(b) && i == b)) order.push_back(i);
    }
  } else {
    const unsigned int a = info.latest_modified_param(param);
    if (is_param(a)) order.push_back(a);
    for (unsigned int i = 0; i < n; ++i)
      if (i != param && !(is_param(a) && i == a)) order.push_back(i);
    if (param < n) order.push_back(param);
  }
  refined_explanation(propagator, param, literal, after, order.data(),
                      order.data() + order.size(), info, explanation);
}

void explanation_generators::refined_explanation(
    constraint_propagator& propagator, unsigned int param, const small_model::iset& literal,
    const small_model::iset& after, const unsigned int* order_begin,
    const unsigned int* order_end, const constraint_runtime_info& info,
    literal_vector& explanation) {
  // The question: why can param not take the removed values (that the learner
  // cares about)? For a conflict there is no hypothesis.
  unsigned int replaced = constraint_runtime_info::NO_PARAM;
  small_model::iset hypothesis;
  if (!after.empty()) {
    const small_model::iset removed = info.domain(param) - after;
    hypothesis = removed & literal;
    if (hypothesis.empty()) hypothesis = removed;
    replaced = param;
  }
  conflicting_info view(info, replaced, hypothesis);
  const small_model::iset full = small_model::iset::full();
  for (const unsigned int* it = order_begin; it != order_end; ++it) {
    const unsigned int p = *it;
    if (view.reference(p).is_full()) continue;
    view.reread_dirty_domains();
    view.set_domain(p, full);
    if (propagator.propagate(view) == propagation_types::UNSAT)
      view.set_domain(p, small_model::iset());
    // Values rejected with p free can join the reference: the failure stays.
    const small_model::iset w = view.domain(p);
    const small_model::iset s = view.reference(p);
    if (!s.subset_of(w)) view.reference(p) = s | ~w;
  }
  const unsigned int n = info.arity();
  explanation.resize(n);
  for (unsigned int i = 0; i < n; ++i) explanation[i] = ~view.reference(i);
}

void explanation_generators::possibly_crippling_values(constraint_propagator& propagator,
                                                       unsigned int param,
                                                       const small_model::iset& values,
                                                       const constraint_runtime_info& info,
                                                       literal_vector& out) {
  const unsigned int n = info.arity();
  conflicting_info view(info, param, param < n ? info.domain(param) - values : values);
  const small_model::iset full = small_model::iset::full();
  out.clear();
  for (unsigned int i = 0; i < n; ++i) {
    if (view.reference(i).is_full()) continue;
    view.reread_dirty_domains();
    view.set_domain(i, full);
    small_model::iset v;
    if (propagator.init(view) != propagation_types::UNSAT &&
        propagator.propagate(view) != propagation_types::UNSAT) {
      v = view.domain(i);
      if (v.is_full()) continue;
    }
    if (out.size() < i) out.resize(i, full);
    out.push_back(v);
  }
  if (param < out.size()) out[param] -= values;
}

}  // namespace zelk
