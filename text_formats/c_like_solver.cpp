// The C-like reader: the model is built while the grammar reduces its rules
// (c_like.yy), and this class only wires the parser to its context and gives the
// objective's value back to the optimisation loop.
#include "text_formats/c_like_solver.h"

#include <iostream>
#include <memory>
#include <stdexcept>
#include <vector>

#include "c_like_parser.hpp"
#include "xcsp/AST.h"

namespace zelk {

namespace xml = CSPXMLParser;

namespace {

class solution_values : public xml::VariableValuation {
 public:
  explicit solution_values(const solver& s) : m_solver(s) {}
  int getVarValue(int id) const override { return m_solver.stack().domain(unsigned(id)).min(); }

 private:
  const solver& m_solver;
};

// Evaluates a tree with the propagators' reading of the partial operators: a
// quotient or remainder by 0 is 0, and 0 to the power 0 is 0. Only the branch of
// a conditional that is taken counts.
int value_of(const xml::AST& ast, const xml::VariableValuation& values) {
  const int type = ast.getType();
  if (type == xml::F_IF)
    return value_of(*ast.getArg(value_of(*ast.getArg(0), values) != 0 ? 1 : 2), values);
  const auto* function = dynamic_cast<const xml::ASTAbstractFunction*>(&ast);
  if (function == nullptr) return ast.value(values);
  std::vector<int> arguments;
  for (int i = 0; i < function->nbArg(); ++i) arguments.push_back(value_of(*function->getArg(i), values));
  if ((type == xml::F_DIV || type == xml::F_MOD) && arguments[1] == 0) return 0;
  if (type == xml::F_POW && arguments[0] == 0 && arguments[1] == 0) return 0;
  // The operator's own arithmetic, on its arguments as constants.
  std::unique_ptr<xml::ASTAbstractFunction> constant_node(function->makeNode());
  for (int i = 0; i < function->nbArg(); ++i)
    constant_node->setArg(i, new xml::ASTInteger(arguments[std::size_t(i)]));
  return constant_node->value(values);
}

}  // namespace

c_like_solver::c_like_solver(std::istream& in, const std::string& name, const zelk_flags& flags,
                             table_propagator_base::memory_manager& memory)
    : context(*this, c_like_scanner_methods::get(), &memory, &in, name) {
  context.detect_all_different = flags.global_all_different != 0;
  // A file that could not be opened is no empty model.
  if (in.fail() && !in.eof()) {
    std::cerr << name << ": can't read the input" << std::endl;
    throw std::runtime_error(name + ": Parsing failed");
  }
  yy::c_like_parser parser(context);
  flags.apply(*this);
  parser.set_debug_stream(std::cout);
  if (parser.parse() != 0) throw std::runtime_error(name + ": Parsing failed");
  if (!context.create_constraints(std::cout)) throw std::runtime_error(name + ": Parsing failed");
}

int c_like_solver::evaluate_objective() const {
  return value_of(*context.objective_expression, solution_values(*this));
}

}  // namespace zelk
