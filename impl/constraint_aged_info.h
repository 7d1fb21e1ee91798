// A read-only view of a constraint as of one past moment of the search: each
// parameter shows its variable's domain right after a given modification entry.
//
// Built for explanations (a propagator replayed on the state it saw when it ran),
// for the trace, for the init of a learned constraint at an earlier moment, and
// over a learned object's view during combination and relaxation.
#ifndef ZELK_IMPL_CONSTRAINT_AGED_INFO_H
#define ZELK_IMPL_CONSTRAINT_AGED_INFO_H

#include <new>
#include <type_traits>
#include <vector>

#include "impl/assignment_stack.h"
#include "impl/constraint_runtime_info.h"

namespace zelk {

class constraint_aged_info : public constraint_runtime_info {
 public:
  class abstract_param_to_var {
   public:
    virtual ~abstract_param_to_var() = default;
    virtual unsigned int to_variable(unsigned int param) const = 0;
  };
  // Info is constraint_connectivity_info (const or not) or learned_type::info_type:
  // anything with to_variable(param).
  template <class Info>
  class concrete_param_to_var : public abstract_param_to_var {
   public:
    explicit concrete_param_to_var(Info& info) : m_info(info) {}
    unsigned int to_variable(unsigned int param) const override {
      return m_info.to_variable(param);
    }

   private:
    Info& m_info;
  };

  // The view shows the state after stack.before_propagation(entry): what a
  // propagator saw when it ran the activation that wrote `entry`. An effort of all
  // bits set takes the effort of `info`.
  template <class Info>
  constraint_aged_info(Info& info, const assignment_stack& stack, unsigned int entry,
                       unsigned int effort)
      : m_info(&info),
        m_writable(nullptr),
        m_stack(&stack),
        m_time(stack.before_propagation(entry)),
        m_effort(effort == 0xFFFFFFFFu ? info.effort() : effort) {
    static_assert(sizeof(concrete_param_to_var<Info>) <= sizeof(m_map_storage));
    m_map = new (m_map_storage) concrete_param_to_var<Info>(info);
    if constexpr (!std::is_const_v<Info>) m_writable = &info;
  }
  ~constraint_aged_info() override { m_map->~abstract_param_to_var(); }
  constraint_aged_info(const constraint_aged_info&) = delete;
  constraint_aged_info& operator=(const constraint_aged_info&) = delete;

  bool reduced_between_activations(unsigned int) const override { return false; }
  queue_type originating_queue() const override { return m_info->originating_queue(); }
  void put_in_queue(queue_type) override;
  const small_model::iset& read_domain(unsigned int param) const override;
  void set_domain(unsigned int param, small_model::iset set) override;
  unsigned int arity() const override { return m_info->arity(); }
  // Watches made through this view are the inner info's own.
  unsigned int trail_variable(unsigned int param) const override {
    return m_info->trail_variable(param);
  }
  void deallocate_watch(unsigned int param, watch_types::watch_type type,
                        watch_handle_t handle) override;
  watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) override;
  void deallocate_value_watch(unsigned int param, int value, watch_handle_t handle) override;
  watch_handle_t allocate_value_watch(unsigned int param, int value) override;
  unsigned int latest_modified_param(unsigned int before) const override;
  unsigned int effort() const override { return m_effort; }
  void print(std::ostream& os) const override;
  void print_prefix(std::ostream& os) const override { m_info->print_prefix(os); }
  void print_param(std::ostream& os, unsigned int param) const override {
    m_info->print_param(os, param);
  }

  unsigned int to_variable(unsigned int param) const { return m_map->to_variable(param); }
  unsigned int time() const { return m_time; }
  void set_use_ages(bool use_ages) { m_use_ages = use_ages; }
  bool use_ages() const { return m_use_ages; }

 private:
  // Holds the parameter map without a heap allocation per view.
  alignas(void*) unsigned char m_map_storage[2 * sizeof(void*)];
  abstract_param_to_var* m_map;
  const constraint_runtime_info* m_info;
  constraint_runtime_info* m_writable;
  const assignment_stack* m_stack;
  unsigned int m_time;
  unsigned int m_effort;
  bool m_use_ages = true;
  // domain() returns a reference: one slot per parameter keeps earlier answers valid.
  mutable std::vector<small_model::iset> m_domains;
};

}  // namespace zelk

#endif
