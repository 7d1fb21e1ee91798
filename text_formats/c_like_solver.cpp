// Placeholder of the C-like reader.
#include "text_formats/c_like_solver.h"

#include <ostream>

namespace zelk {

c_like_solver::c_like_solver(std::istream&, const std::string&, const zelk_flags& flags,
                       table_propagator_base::memory_manager&) {
  flags.apply(*this);
  throw AST_builder::unsupported("C-like input is not supported by this version of zelk");
}

}  // namespace zelk
