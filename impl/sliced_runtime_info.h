// A contiguous run [begin, end) of the parameters of another view, shown as
// parameters 0..end-begin-1, with pending writes.
//
// A slice starts in the querying state: a propagator run on it sees its own
// writes, and nothing reaches the outer view until the caller commits. The two
// halves of a disjunctive propagator run this way, tentatively.
// Built over a const view, the slice must stay querying and never commit.
#ifndef ZELK_IMPL_SLICED_RUNTIME_INFO_H
#define ZELK_IMPL_SLICED_RUNTIME_INFO_H

#include <vector>

#include "impl/constraint_runtime_info.h"

namespace zelk {

class sliced_runtime_info : public constraint_runtime_info {
 public:
  sliced_runtime_info(constraint_runtime_info& outer, unsigned int begin, unsigned int end)
      : m_pending(end - begin, false), m_writable(&outer), m_outer(&outer), m_begin(begin),
        m_end(end) {}
  sliced_runtime_info(const constraint_runtime_info& outer, unsigned int begin, unsigned int end)
      : m_pending(end - begin, false), m_writable(nullptr), m_outer(&outer), m_begin(begin),
        m_end(end) {}

  bool reduced_between_activations(unsigned int param) const override {
    return m_outer->reduced_between_activations(m_begin + param) || m_pending[param];
  }
  queue_type originating_queue() const override { return m_outer->originating_queue(); }
  void put_in_queue(queue_type queue) override { m_writable->put_in_queue(queue); }
  const small_model::iset& read_domain(unsigned int param) const override {
    return m_pending[param] ? m_pending_domains[param] : m_outer->domain(m_begin + param);
  }
  void set_domain(unsigned int param, small_model::iset set) override;
  unsigned int arity() const override { return m_end - m_begin; }
  void deallocate_watch(unsigned int param, watch_types::watch_type type,
                        watch_handle_t handle) override {
    m_writable->deallocate_watch(m_begin + param, type, handle);
  }
  watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) override {
    return m_writable->allocate_watch(m_begin + param, type);
  }
  void deallocate_value_watch(unsigned int param, int value, watch_handle_t handle) override {
    m_writable->deallocate_value_watch(m_begin + param, value, handle);
  }
  watch_handle_t allocate_value_watch(unsigned int param, int value) override {
    return m_writable->allocate_value_watch(m_begin + param, value);
  }
  unsigned int latest_modified_param(unsigned int before) const override;
  unsigned int effort() const override { return m_outer->effort(); }
  bool is_querying() const override { return m_querying; }
  void print(std::ostream& os) const override;
  void print_param(std::ostream& os, unsigned int param) const override {
    m_outer->print_param(os, m_begin + param);
  }

  // Writes each pending domain to the outer view, in ascending order, and clears
  // the pending bits.
  void commit();
  bool pending_commit() const;
  void set_querying_domain(bool value);

 private:
  std::vector<bool> m_pending;
  std::vector<small_model::iset> m_pending_domains;
  constraint_runtime_info* m_writable;
  const constraint_runtime_info* m_outer;
  unsigned int m_begin;
  unsigned int m_end;
  bool m_querying = true;
};

}  // namespace zelk

#endif
