// The live view of one constraint: its parameters are solver variables, reads give
// the present domains, writes go through solver::set_var_domain with the constraint
// as cause, and watches are the solver's watches owned by the constraint's index.
// The solver stores one per constraint, at the same index as the propagator.
//
// constraint_watchless_info wraps a live view and throws away the watches a
// propagator asks for: for learned constraints too long to keep watches, and for
// throw-away propagators.
#ifndef ZELK_IMPL_CONSTRAINT_CONNECTIVITY_INFO_H
#define ZELK_IMPL_CONSTRAINT_CONNECTIVITY_INFO_H

#include <cstdint>
#include <list>
#include <type_traits>
#include <vector>

#include "impl/constraint_runtime_info.h"
#include "impl/pool_alloc.h"

namespace zelk {

class solver;

// Watch records of views that hand out watches of their own (one zero word each),
// all from one pool. The handles die with the view.
class local_watch_list {
 public:
  local_watch_list() = default;
  local_watch_list(const local_watch_list& other) : m_count(other.m_count) {
    for (std::size_t i = 0; i < other.m_records.size(); ++i)
      m_records.push_back(var_watchers_base::watcher_info_type{0});
  }
  local_watch_list& operator=(const local_watch_list& other) {
    if (this != &other) {
      m_records.clear();
      for (std::size_t i = 0; i < other.m_records.size(); ++i)
        m_records.push_back(var_watchers_base::watcher_info_type{0});
      m_count = other.m_count;
    }
    return *this;
  }
  watch_handle_t allocate() {
    m_records.push_back(var_watchers_base::watcher_info_type{0});
    ++m_count;
    return watch_handle_t(std::prev(m_records.end()));
  }
  void deallocate(watch_handle_t handle) {
    if (handle.is_null()) var_watchers_base::throw_nonexistent_watch();
    m_records.erase(handle.position());
    --m_count;
  }
  unsigned int count() const { return m_count; }

 private:
  var_watchers_base::list_type m_records;
  unsigned int m_count = 0;
};

class constraint_connectivity_info : public constraint_runtime_info {
 public:
  constraint_connectivity_info() = default;
  constraint_connectivity_info(solver* owner, unsigned int index);

  // Appends one parameter; chains.
  constraint_connectivity_info& operator<<(unsigned int variable) {
    m_params.push_back(variable);
    return *this;
  }

  bool reduced_between_activations(unsigned int param) const override;
  queue_type originating_queue() const override;
  void put_in_queue(queue_type queue) override;
  const small_model::iset& read_domain(unsigned int param) const override;
  void set_domain(unsigned int param, small_model::iset set) override;
  unsigned int arity() const override { return unsigned(m_params.size()); }
  void deallocate_watch(unsigned int param, watch_types::watch_type type,
                        watch_handle_t handle) override;
  watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) override;
  void deallocate_value_watch(unsigned int param, int value, watch_handle_t handle) override;
  watch_handle_t allocate_value_watch(unsigned int param, int value) override;
  void print(std::ostream& os) const override;
  void print_prefix(std::ostream& os) const override;
  void print_param(std::ostream& os, unsigned int param) const override;

  unsigned int to_variable(unsigned int param) const { return m_params.at(param); }
  // Stores the activation time; if this activation modified something, notifies
  // every parameter whose variable was modified at `now`, in parameter order.
  void finalize_prev_activation(unsigned long long now);

  std::vector<unsigned int>& params() { return m_params; }
  const std::vector<unsigned int>& params() const { return m_params; }
  unsigned int constraint_index() const { return m_constraint_index; }
  unsigned int conflict_count() const { return m_conflict_count; }
  void increment_conflict_count() { ++m_conflict_count; }
  unsigned long long previous_activation_time() const { return m_previous_activation_time; }
  void clear_previous_activation_time() { m_previous_activation_time = 0; }
  bool modified_in_activation() const { return m_modified_in_activation; }
  void clear_modified() { m_modified_in_activation = false; }
  solver* owner() const { return m_solver; }

 private:
  solver* m_solver = nullptr;
  // Index and flag share a word: one info per constraint ever made stays for the
  // whole run, so the record is kept at 64 bytes.
  unsigned int m_constraint_index : 31 = 0;
  unsigned int m_modified_in_activation : 1 = 0;
  unsigned int m_conflict_count = 0;
  unsigned long long m_previous_activation_time = 0;
};
static_assert(sizeof(constraint_connectivity_info) <= 64, "one info per constraint ever made");
static_assert(std::is_nothrow_move_constructible_v<constraint_connectivity_info>);

class constraint_watchless_info : public constraint_runtime_info {
 public:
  explicit constraint_watchless_info(constraint_runtime_info& inner) : m_inner(&inner) {}
  // With an override queue: originating_queue answers `queue` until the propagator
  // puts itself in a queue.
  constraint_watchless_info(constraint_runtime_info& inner, queue_type queue)
      : m_inner(&inner), m_override(true), m_override_queue(queue) {}

  bool reduced_between_activations(unsigned int param) const override {
    return m_inner->reduced_between_activations(param);
  }
  queue_type originating_queue() const override {
    return m_override ? m_override_queue : m_inner->originating_queue();
  }
  void put_in_queue(queue_type queue) override {
    m_override = false;
    m_inner->put_in_queue(queue);
  }
  const small_model::iset& read_domain(unsigned int param) const override {
    return m_inner->domain(param);
  }
  void set_domain(unsigned int param, small_model::iset set) override {
    m_inner->set_domain(param, set);
  }
  unsigned int arity() const override { return m_inner->arity(); }
  void deallocate_watch(unsigned int, watch_types::watch_type, watch_handle_t handle) override {
    m_watches.deallocate(handle);
  }
  watch_handle_t allocate_watch(unsigned int, watch_types::watch_type) override {
    return m_watches.allocate();
  }
  void deallocate_value_watch(unsigned int, int, watch_handle_t handle) override {
    m_watches.deallocate(handle);
  }
  watch_handle_t allocate_value_watch(unsigned int, int) override { return m_watches.allocate(); }
  unsigned int latest_modified_param(unsigned int before) const override {
    return m_inner->latest_modified_param(before);
  }
  unsigned int effort() const override { return m_inner->effort(); }
  void print(std::ostream& os) const override { m_inner->print(os); }
  void print_prefix(std::ostream& os) const override { m_inner->print_prefix(os); }
  void print_param(std::ostream& os, unsigned int param) const override {
    m_inner->print_param(os, param);
  }
  unsigned int count_watches() const { return m_watches.count(); }

 private:
  constraint_runtime_info* m_inner;
  local_watch_list m_watches;
  bool m_override = false;
  queue_type m_override_queue = VARIABLE_QUEUE;
};

}  // namespace zelk

#endif
