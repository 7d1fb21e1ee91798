// The XCSP 2.1 reader is not part of this build yet: the class refuses every
// model as unsupported, so that the driver reports it and goes on with the next file.
#ifndef ZELK_XCSP_XCSP_SOLVER_H
#define ZELK_XCSP_XCSP_SOLVER_H

#include <iosfwd>
#include <string>

#include "driver/flags.h"
#include "impl/AST_builder.h"
#include "impl/solver.h"
#include "impl/table_propagators.h"

namespace zelk {

class xcsp_solver : public solver {
 public:
  xcsp_solver(std::istream& in, const std::string& name, const zelk_flags& flags,
              table_propagator_base::memory_manager& memory);
};

}  // namespace zelk

#endif
