// Table constraints. For now only the process-wide memory manager that the
// driver creates once and hands to every solver, so that all files of one run
// share the tuple storage.
#ifndef ZELK_IMPL_TABLE_PROPAGATORS_H
#define ZELK_IMPL_TABLE_PROPAGATORS_H

namespace zelk {

class table_propagator_base {
 public:
  class memory_manager {
   public:
    memory_manager() = default;
    memory_manager(const memory_manager&) = delete;
    memory_manager& operator=(const memory_manager&) = delete;
  };
};

}  // namespace zelk

#endif
