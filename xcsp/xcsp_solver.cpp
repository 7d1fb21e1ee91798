// Placeholder of the XCSP 2.1 reader.
#include "xcsp/xcsp_solver.h"

#include <ostream>

namespace zelk {

xcsp_solver::xcsp_solver(std::istream&, const std::string&, const zelk_flags& flags,
                       table_propagator_base::memory_manager&) {
  flags.apply(*this);
  throw AST_builder::unsupported("XCSP 2.1 input is not supported by this version of zelk");
}

}  // namespace zelk
