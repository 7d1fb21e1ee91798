// A stand-alone view: a vector of sets with no solver behind it. Used to test a
// combined constraint against the domains of an analysis, by propagators that
// reason about hypothetical domains, and by the tests of every propagator.
#ifndef ZELK_IMPL_CONSTRAINT_EXPLICIT_INFO_H
#define ZELK_IMPL_CONSTRAINT_EXPLICIT_INFO_H

#include <vector>

#include "impl/assignment_stack.h"
#include "impl/constraint_connectivity_info.h"
#include "impl/constraint_runtime_info.h"

namespace zelk {

class constraint_explicit_info : public constraint_runtime_info {
 public:
  explicit constraint_explicit_info(unsigned int arity) : m_domains(arity) {}

  // Every parameter counts as touched.
  bool reduced_between_activations(unsigned int) const override { return true; }
  queue_type originating_queue() const override { return CONSTRAINT_QUEUE; }
  void put_in_queue(queue_type) override {}
  const small_model::iset& read_domain(unsigned int param) const override { return m_domains[param]; }
  void set_domain(unsigned int param, small_model::iset set) override {
    if (set.size() != m_domains[param].size()) m_domains[param] = set;
  }
  unsigned int arity() const override { return unsigned(m_domains.size()); }
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
  void print(std::ostream& os) const override;
  void print_prefix(std::ostream& os) const override;
  void print_param(std::ostream& os, unsigned int param) const override;

  void set_var_printer(unsigned int param, const variable_printer& printer);
  std::vector<small_model::iset>& domains() { return m_domains; }
  const std::vector<small_model::iset>& domains() const { return m_domains; }
  unsigned int count_watches() const { return m_watches.count(); }

 private:
  std::vector<small_model::iset> m_domains;
  std::vector<variable_printer> m_printers;
  local_watch_list m_watches;
};

}  // namespace zelk

#endif
