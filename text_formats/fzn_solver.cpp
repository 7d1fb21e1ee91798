// Placeholder of the FlatZinc reader.
#include "text_formats/fzn_solver.h"

#include <ostream>

namespace zelk {

fzn_solver::fzn_solver(std::istream&, const std::string&, const zelk_flags& flags,
                       table_propagator_base::memory_manager&) {
  flags.apply(*this);
  throw AST_builder::unsupported("FlatZinc input is not supported by this version of zelk");
}

void fzn_solver::solve_and_print(std::ostream&) {}

}  // namespace zelk
