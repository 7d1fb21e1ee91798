// The slice view: pending writes and their commit.
#include "impl/sliced_runtime_info.h"

#include <ostream>

namespace zelk {

void sliced_runtime_info::set_domain(unsigned int param, small_model::iset set) {
  if (set.size() == domain(param).size()) return;
  if (!m_querying) m_writable->set_domain(m_begin + param, set);
  if (m_pending_domains.size() <= param) {
    if (m_pending_domains.capacity() < m_end - m_begin) m_pending_domains.reserve(m_end - m_begin);
    m_pending_domains.resize(param + 1);
  }
  m_pending_domains[param] = set;
  m_pending[param] = true;
}

void sliced_runtime_info::commit() {
  for (unsigned int i = 0; i < m_pending.size(); ++i) {
    if (!m_pending[i]) continue;
    m_writable->set_domain(m_begin + i, m_pending_domains[i]);
    m_pending[i] = false;
  }
}

bool sliced_runtime_info::pending_commit() const {
  for (bool p : m_pending)
    if (p) return true;
  return false;
}

void sliced_runtime_info::set_querying_domain(bool value) {
  if (m_querying && !value) {
    commit();
    m_pending_domains.clear();
  }
  m_querying = value;
}

unsigned int sliced_runtime_info::latest_modified_param(unsigned int before) const {
  const unsigned int outer_before = before < arity() ? m_begin + before : NO_PARAM;
  const unsigned int r = m_outer->latest_modified_param(outer_before);
  if (int(r) < 0) return NO_PARAM;
  if (r >= m_begin && r < m_end) return r - m_begin;
  // Outside the slice: ask once more, excluding that parameter.
  const unsigned int again = m_outer->latest_modified_param(r);
  if (int(again) >= 0 && again >= m_begin && again < m_end) return again - m_begin;
  return NO_PARAM;
}

void sliced_runtime_info::print(std::ostream& os) const {
  for (unsigned int i = 0; i < arity(); ++i) {
    if (i) os << ",";
    print_param(os, i);
    os << "={" << domain(i) << "}";
  }
  os << ")";
}

}  // namespace zelk
