// Parser of the functional syntax of XCSP predicates, "add(X,mul(2,Y))", into
// an AST. The node factory is a template parameter so that the XML reader and
// this parser build the same kind of nodes; DefaultASTFactory is the one in use.
#ifndef ZELK_XCSP_EXPRESSIONPARSER_H
#define ZELK_XCSP_EXPRESSIONPARSER_H

#include <deque>
#include <map>
#include <string>

#include "xcsp/AST.h"

namespace CSPXMLParser {

class DefaultASTFactory {
 public:
  static ASTVar* mkVar(const std::string& name, int id) { return new ASTVar(name, id); }
  static ASTList* mkList() { return new ASTList; }
};

template <class ASTFactory>
class ExpressionParser {
 public:
  ExpressionParser();
  ~ExpressionParser();
  ExpressionParser(const ExpressionParser&) = delete;
  ExpressionParser& operator=(const ExpressionParser&) = delete;

  // Parses `text`, ignoring all white space; the caller owns the tree.
  AST* prefixParser(const std::string& text);

  // Maps formal parameter names to their index; null: words become
  // variables with id -1. The owner keeps the map alive while set.
  const std::map<std::string, int>* varInfo = nullptr;

 private:
  AST* recursivePrefixParser(const std::string& text);
  ASTAbstractFunction* findPrefixFunction(const std::string& name) const;

  // One prototype of each function class, in NodeType order.
  std::deque<ASTAbstractFunction*> functions;
};

extern template class ExpressionParser<DefaultASTFactory>;

}  // namespace CSPXMLParser

#endif
