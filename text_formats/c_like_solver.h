// The solver of zelk's own C-like modelling language (`-F c`): declarations of
// integer variables, at most one objective, then constraints, each an expression
// that must hold. Its constructor reads the model through the c_like grammar into
// a parser_context, which hands every constraint as one tree to AST_builder.
#ifndef ZELK_TEXT_FORMATS_C_LIKE_SOLVER_H
#define ZELK_TEXT_FORMATS_C_LIKE_SOLVER_H

#include <iosfwd>
#include <string>

#include "driver/flags.h"
#include "impl/AST_builder.h"
#include "impl/solver.h"
#include "impl/table_propagators.h"
#include "text_formats/parser_context.h"

namespace zelk {

class c_like_scanner_methods : public scanner_methods {
 public:
  static const c_like_scanner_methods* get();
  void start_scanner(parser_context& context) const override;
  void destroy_scanner(parser_context& context) const override;
};

class c_like_solver : public solver {
 public:
  c_like_solver(std::istream& in, const std::string& name, const zelk_flags& flags,
                table_propagator_base::memory_manager& memory);

  // The objective's value as the propagators see it: a quotient or remainder by
  // 0 is 0 there, so it is 0 here too rather than an error after a solution.
  int evaluate_objective() const override;

  parser_context context;
};

}  // namespace zelk

#endif
