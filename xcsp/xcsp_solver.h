// The solver of XCSP 2.1 documents: its constructor reads the document through the
// XML reader and the model loader (xcsp_callbacks.h) and applies the options. It
// keeps the default solution lines of zelk::solver; the print limit hides the
// variables that the builder adds.
#ifndef ZELK_XCSP_XCSP_SOLVER_H
#define ZELK_XCSP_XCSP_SOLVER_H

#include <iosfwd>
#include <string>

#include "driver/flags.h"
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
