// Placeholder of the OPB reader.
#include "opb/opb_context.h"

opb_solver::opb_solver(std::istream&, const std::string&, const zelk::zelk_flags& flags,
                       zelk::table_propagator_base::memory_manager&) {
  flags.apply(*this);
  throw zelk::AST_builder::unsupported("OPB input is not supported by this version of zelk");
}
