// The watched-value clause: set-up, propagation, watch moves, and the
// clause_propagator overrides (simplification on initial domains, combination).
#include "impl/clause_propagator.h"

#include <bit>
#include <cassert>
#include <ostream>
#include <utility>

#include "impl/clause_data.h"
#include "impl/disjunction_specification.h"
#include "impl/utilities.h"

namespace zelk {

//==== clause_propagation_algo: set-up =========================================

void clause_propagation_algo::throw_modifying_clause_at_runtime() {
  throw_runtime_error("Modifying the clause at runtime");
}

propagation_types::result_type clause_propagation_algo::init(constraint_runtime_info& info) {
  m_watches[0] = watch_info();
  m_watches[1] = watch_info();
  if (info.arity() != m_literals.size())
    throw_runtime_error("Number of variables and literals differ");
  if (m_literals.empty()) return UNSAT;

  const unsigned int n = unsigned(m_literals.size());
  const bool querying = info.querying_domain();
  if (!querying) {
    // Satisfied already: this holds for the rest of the branch, no watch needed.
    for (unsigned int i = 0; i < n; ++i) {
      if (info.domain(i).subset_of(m_literals[i])) {
        m_watches[0].param = int(i);
        return VALID;
      }
    }
  }

  int first = -1;
  int second = -1;
  for (unsigned int i = 0; i < n; ++i) {
    if (!info.domain(i).intersects(m_literals[i])) continue;
    if (first < 0) {
      first = int(i);
    } else {
      second = int(i);
      break;
    }
  }
  if (first < 0) return UNSAT;

  if (second < 0) {
    if (!querying) {
      // Unit: the propagate that follows init does the reduction.
      m_watches[0].param = first;
      return VALID;
    }
    add_watch(info, unsigned(first), 0);
    // A fallback watch on a literal that is false now, so that a querying run keeps
    // two records; an empty literal can never hold and is never watched.
    for (unsigned int q = 0; q < n; ++q) {
      if (int(q) == first || m_literals[q].empty()) continue;
      watch_info& w = m_watches[1];
      w.value = m_literals[q].min();
      w.handle = info.allocate_value_watch(q, w.value);
      w.param = int(q);
      w.variable = info.trail_variable(q);
      sync_filters();
      break;
    }
    return VALID;
  }

  add_watch(info, unsigned(first), 0);
  add_watch(info, unsigned(second), 0);
  return VALID;
}

//==== clause_propagation_algo: propagation ====================================

propagation_types::result_type clause_propagation_algo::propagate_watch_lost(
    constraint_runtime_info& info) {
  const int p0 = m_watches[0].param;
  const int p1 = m_watches[1].param;
  if (p0 < 0 && p1 < 0) return UNSAT;
  if (p0 < 0 || p1 < 0) {
    const unsigned int which = p0 >= 0 ? 0u : 1u;
    if (info.querying_domain()) return refresh_watch(info, which);
    return unit_propagate(info, unsigned(m_watches[which].param));
  }
  if (info.domain(unsigned(p0)).subset_of(m_literals[unsigned(p0)]) ||
      info.domain(unsigned(p1)).subset_of(m_literals[unsigned(p1)]))
    return VALID;

  bool valid = false;
  for (unsigned int which = 0; which < 2; ++which) {
    // Re-read: refreshing record 0 may have narrowed the parameter of record 1.
    const watch_info& w = m_watches[which];
    if (present(info.domain(unsigned(w.param)).bits(), w.value)) continue;
    const result_type r = refresh_watch(info, which);
    if (r == UNSAT) return UNSAT;
    if (r == VALID) {
      if (!info.querying_domain()) return VALID;
      valid = true;
    }
  }
  return valid ? VALID : CONSISTENT;
}

propagation_types::result_type clause_propagation_algo::refresh_watch(
    constraint_runtime_info& info, unsigned int which) {
  const unsigned int other = 1u - which;
  const unsigned int p = unsigned(m_watches[which].param);
  const int old_value = m_watches[which].value;

  if (info.domain(p).intersects(m_literals[p])) {
    // Only the watched value went; the literal still holds values.
    remove_watch(info, which);
    add_watch(info, p, old_value);
    if (m_watches[other].param >= 0) return CONSISTENT;
    return unit_propagate(info, p);
  }

  // The literal of p is false: look for another live literal, after p and round.
  const unsigned int n = unsigned(m_literals.size());
  const int skip = m_watches[other].param;
  for (unsigned int j = p + 1 == n ? 0 : p + 1; j != p; j = j + 1 == n ? 0 : j + 1) {
    if (int(j) == skip) continue;
    const small_model::iset d = info.domain(j);
    const small_model::iset m = d & m_literals[j];
    if (m.empty()) continue;
    if (m == d) return VALID;  // satisfied for good; the dead watch may stay
    remove_watch(info, which);
    add_watch(info, j, old_value);
    return CONSISTENT;
  }

  // Nothing else can hold: the other literal must.
  if (m_watches[other].param < 0) return UNSAT;
  const unsigned int q = unsigned(m_watches[other].param);
  const small_model::iset d = info.domain(q);
  const small_model::iset m = d & m_literals[q];
  if (m != d) {
    if (m.empty()) return UNSAT;
    info.set_domain(q, m);
  }
  if (!info.querying_domain()) return VALID;
  // Hypothetical reads are never undone by a backtrack, so the watch of the other
  // record must be valid on its own.
  if (!present(info.domain(q).bits(), m_watches[other].value)) change_watch(info, other, q);
  return VALID;
}

propagation_types::result_type clause_propagation_algo::unit_propagate(
    constraint_runtime_info& info, unsigned int param) {
  const small_model::iset d = info.domain(param);
  const small_model::iset& literal = m_literals[param];
  if (d.subset_of(literal)) return VALID;
  if (d.disjoint(literal)) return UNSAT;
  info.set_domain(param, d & literal);
  return VALID;
}

//==== clause_propagation_algo: watches ========================================

int clause_propagation_algo::get_best_watch_value(const constraint_runtime_info& info,
                                                  unsigned int param, int start) const {
  const std::uint32_t m = (m_literals[param] & info.domain(param)).bits();
  assert(m != 0);
  const std::uint32_t above = unsigned(start) <= 31u ? m & (0xFFFFFFFFu << unsigned(start)) : m;
  return std::countr_zero(above ? above : m);
}

void clause_propagation_algo::add_watch(constraint_runtime_info& info, unsigned int param,
                                        int start) {
  const int value = get_best_watch_value(info, param, start);
  watch_info& w = m_watches[first_free_record()];
  assert(w.param < 0);
  w.handle = info.allocate_value_watch(param, value);
  w.param = int(param);
  w.value = value;
  w.variable = info.trail_variable(param);
  sync_filters();
}

void clause_propagation_algo::sync_filters() {
  for (unsigned int which = 0; which < 2; ++which) {
    const watch_info& w = m_watches[which];
    if (w.handle.is_null()) continue;
    const watch_info& other = m_watches[1 - which];
    var_watchers_base::watcher_info_type& node = *w.handle.position();
    if (other.param >= 0) {
      node.filter_var = other.variable;
      node.filter_bits = m_literals[unsigned(other.param)].bits();
    } else {
      node.filter_var = var_watchers_base::NO_FILTER;
    }
  }
}

void clause_propagation_algo::remove_watch(constraint_runtime_info& info, unsigned int which) {
  watch_info& w = m_watches[which];
  // A record without handle (satisfied at init, or forgotten) has nothing to release.
  if (!w.handle.is_null()) {
    info.deallocate_value_watch(unsigned(w.param), w.value, w.handle);
    w.handle = watch_handle_t();
  }
  // Every removal is followed by an add_watch, which renews both filters.
  w.param = -1;
}

void clause_propagation_algo::change_watch(constraint_runtime_info& info, unsigned int which,
                                           unsigned int param) {
  const int old_value = m_watches[which].value;
  remove_watch(info, which);
  add_watch(info, param, old_value);
}

//==== clause_propagation_algo: queries ========================================

bool clause_propagation_algo::conflicts(const constraint_runtime_info& info) const {
  for (const watch_info& w : m_watches) {
    if (w.param >= 0 && info.domain(unsigned(w.param)).intersects(m_literals[unsigned(w.param)]))
      return false;
  }
  for (unsigned int i = 0; i < m_literals.size(); ++i)
    if (info.domain(i).intersects(m_literals[i])) return false;
  return true;
}

bool clause_propagation_algo::constraint_check(const constraint_runtime_info& info) const {
  for (unsigned int i = 0; i < m_literals.size(); ++i)
    if (info.domain(i).intersects(m_literals[i])) return true;
  return false;
}

void clause_propagation_algo::explain_propagation(unsigned int, const small_model::iset&,
                                                  const small_model::iset&,
                                                  const constraint_runtime_info&,
                                                  literal_vector& explanation) const {
  explanation.assign(m_literals.begin(), m_literals.end());
}

void clause_propagation_algo::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (info) {
    info->print_prefix(os);
    os << " ";
  }
  os << "[";
  for (unsigned int i = 0; i < m_literals.size(); ++i) {
    if (i) os << ", ";
    for (const watch_info& w : m_watches) {
      if (w.param != int(i)) continue;
      os << "*";
      if (!w.handle.is_null()) os << w.value << "?";
      break;
    }
    if (info)
      info->print_param(os, i);
    else
      os << "P" << i;
    literal_data::print_right_hand_side(os, m_literals[i]);
  }
  os << "]";
}

//==== clause_propagator =======================================================

std::unique_ptr<constraint_propagator> clause_propagator::clone() const {
  return std::make_unique<clause_propagator>(*this);
}

std::unique_ptr<constraint_propagator> clause_propagator::intersect_with(
    const constraint_runtime_info& info, std::vector<unsigned int>& kept) const {
  const literal_vector& own = literals();
  const std::size_t n = own.size();
  std::size_t first = 0;
  while (first < n && own[first].subset_of(info.domain(unsigned(first)))) ++first;
  if (first == n) return nullptr;

  kept.clear();
  auto copy = std::make_unique<clause_propagator>(*this);
  copy->forget_watches();  // the handles belong to this clause; lets update_literals pass
  literal_vector& lits = copy->update_literals();
  for (std::size_t i = first; i < n; ++i) lits[i] &= info.domain(unsigned(i));
  std::size_t next = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (lits[i].empty()) continue;
    std::swap(lits[next++], lits[i]);
    kept.push_back(unsigned(i));
  }
  lits.resize(next);
  return copy;
}

bool clause_propagator::potentially_falsifying(const constraint_runtime_info& info,
                                               unsigned int param) const {
  const small_model::iset d = info.domain(param);
  const small_model::iset m = d & literals()[param];
  return !m.empty() && m != d;
}

bool clause_propagator::get_disjunction_specification(disjunction_specification& form) const {
  const literal_vector& own = literals();
  form.declare_literals(own.data(), unsigned(own.size()), 0);
  form.declare_constraint(nullptr, 0);
  return true;
}

bool clause_propagator::may_combine(const constraint_propagator& other) const {
  if (other.as_clause()) return false;
  return other.may_combine(*this);
}

std::unique_ptr<constraint_propagator> clause_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  // Two clauses would hand the work back and forth for ever; they resolve instead.
  if (right.as_clause()) return nullptr;
  return combine_other_first(info, right, right_info, map, pivot, out);
}

}  // namespace zelk
