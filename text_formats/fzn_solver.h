// The FlatZinc reader is not part of this build yet: the class refuses every
// model as unsupported, so that the driver reports it and goes on with the next file.
#ifndef ZELK_TEXT_FORMATS_FZN_SOLVER_H
#define ZELK_TEXT_FORMATS_FZN_SOLVER_H

#include <iosfwd>
#include <string>

#include "driver/flags.h"
#include "impl/AST_builder.h"
#include "impl/solver.h"
#include "impl/table_propagators.h"

namespace zelk {

class fzn_solver : public solver {
 public:
  fzn_solver(std::istream& in, const std::string& name, const zelk_flags& flags,
              table_propagator_base::memory_manager& memory);
  // Runs the search and prints in the FlatZinc output convention.
  void solve_and_print(std::ostream& out);
};

}  // namespace zelk

#endif
