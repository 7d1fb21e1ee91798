// Placeholder of the OPB reader, replaced by the real one.
#ifndef ZELK_OPB_OPB_CONTEXT_H
#define ZELK_OPB_OPB_CONTEXT_H

#include <iosfwd>
#include <string>

#include "driver/flags.h"
#include "impl/AST_builder.h"
#include "impl/solver.h"
#include "impl/table_propagators.h"

class opb_solver : public zelk::solver {
 public:
  opb_solver(std::istream& in, const std::string& name, const zelk::zelk_flags& flags,
             zelk::table_propagator_base::memory_manager& memory);
};

#endif
