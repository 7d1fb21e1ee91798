// The functional syntax of predicates: name(arg,...,arg), integers, true,
// false and parameter names. One scan per level tracks the parenthesis depth
// and cuts the arguments of the outermost call at its commas.
#include "xcsp/ExpressionParser.h"

#include <cctype>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace CSPXMLParser {

namespace {

[[noreturn]] void fail(const char* message) { throw std::runtime_error(message); }

}  // namespace

template <class ASTFactory>
ExpressionParser<ASTFactory>::ExpressionParser() {
  functions.push_back(new FunctionNeg);
  functions.push_back(new FunctionAbs);
  functions.push_back(new FunctionAdd);
  functions.push_back(new FunctionSub);
  functions.push_back(new FunctionMul);
  functions.push_back(new FunctionDiv);
  functions.push_back(new FunctionMod);
  functions.push_back(new FunctionPow);
  functions.push_back(new FunctionIf);
  functions.push_back(new FunctionMin);
  functions.push_back(new FunctionMax);
  functions.push_back(new FunctionEQ);
  functions.push_back(new FunctionNE);
  functions.push_back(new FunctionGE);
  functions.push_back(new FunctionGT);
  functions.push_back(new FunctionLE);
  functions.push_back(new FunctionLT);
  functions.push_back(new FunctionNot);
  functions.push_back(new FunctionAnd);
  functions.push_back(new FunctionOr);
  functions.push_back(new FunctionXor);
  functions.push_back(new FunctionIff);
}

template <class ASTFactory>
ExpressionParser<ASTFactory>::~ExpressionParser() {
  for (ASTAbstractFunction* f : functions) delete f;
}

template <class ASTFactory>
AST* ExpressionParser<ASTFactory>::prefixParser(const std::string& text) {
  std::string compact;
  compact.reserve(text.size());
  for (char c : text)
    if (!std::isspace(static_cast<unsigned char>(c))) compact += c;
  return recursivePrefixParser(compact);
}

template <class ASTFactory>
ASTAbstractFunction* ExpressionParser<ASTFactory>::findPrefixFunction(const std::string& name) const {
  for (const ASTAbstractFunction* f : functions)
    if (name == f->prefixName) return f->makeNode();
  fail("unknown function symbol");
}

template <class ASTFactory>
AST* ExpressionParser<ASTFactory>::recursivePrefixParser(const std::string& f) {
  std::unique_ptr<ASTAbstractFunction> node;
  int depth = 0;
  int index = 0;
  std::size_t argStart = 0;

  for (std::size_t i = 0; i < f.size(); ++i) {
    const char c = f[i];
    if (c == '(') {
      if (depth == 0) {
        node.reset(findPrefixFunction(f.substr(0, i)));
        index = 0;
        depth = 1;
        argStart = i + 1;
      } else {
        ++depth;
      }
      continue;
    }
    if (depth == 1 && (c == ')' || c == ',')) {
      node->setArg(index, prefixParser(f.substr(argStart, i - argStart)));
      ++index;
      // setArg refuses an index past the arity before this can hold.
      if (index < 0) fail("Too many arguments");
      argStart = i + 1;
    }
    // A closing parenthesis without its opening one could otherwise be
    // balanced by a later "(" and hide the error.
    if (c == ')' && --depth < 0) fail("unbalanced parentheses");
  }
  if (depth != 0) fail("unbalanced parentheses");
  if (node) return node.release();

  // An atom. An integer is read with its sign; what follows its digits is
  // ignored. Text that starts no integer, the empty argument of "abs()"
  // included, has no value and is refused.
  if (f.empty() || !std::isalpha(static_cast<unsigned char>(f[0]))) {
    std::istringstream in(f);
    int value = 0;
    if (!(in >> value)) fail("invalid integer in expression");
    return new ASTInteger(value);
  }
  if (f == "true") return new ASTBoolean(true);
  if (f == "false") return new ASTBoolean(false);
  if (!varInfo) return ASTFactory::mkVar(f, -1);
  auto it = varInfo->find(f);
  if (it == varInfo->end()) fail("undefined variable found in expression");
  return ASTFactory::mkVar(f, it->second);
}

template class ExpressionParser<DefaultASTFactory>;

}  // namespace CSPXMLParser
