// The events of one XCSP 2.1 document, in document order: what the XML reader
// (XMLParser.h) tells the model loader. The reader checks the vocabulary, the
// symbol tables and the abridged notations; an implementation of this interface
// only sees well-formed sections, symbol ids and expression trees.
#ifndef ZELK_XCSP_CSPPARSERCALLBACK_H
#define ZELK_XCSP_CSPPARSERCALLBACK_H

#include <string>

namespace CSPXMLParser {

class AST;
class ASTList;

// All symbols of a document share one name space; each type numbers its own
// symbols from 0 in order of definition.
enum CSPDefinitionType {
  RELATION = 0,
  PREDICATE = 1,
  GLOBAL_CONSTRAINT = 2,
  DOMAIN = 3,
  VARIABLE = 4,
  CONSTRAINT = 5,
  UNDEF = 6
};

enum RelType { REL_CONFLICT = 0, REL_SUPPORT = 1, REL_SOFT = 2 };

// Implementations may raise any exception from any event: the reader stops the
// XML parser and passes the exception on unchanged once libxml2 has returned.
class CSPParserCallback {
 public:
  virtual ~CSPParserCallback();

  virtual void beginInstance(const std::string& name) = 0;

  virtual void beginDomainsSection(int nbDomains) = 0;
  virtual void beginDomain(const std::string& name, int id, int nbValues) = 0;
  virtual void addDomainValue(int value) = 0;
  virtual void addDomainValue(int first, int last) = 0;
  virtual void endDomain() = 0;
  virtual void endDomainsSection() = 0;

  virtual void beginVariablesSection(int nbVariables) = 0;
  virtual void addVariable(const std::string& name, int id, const std::string& domainName,
                           int domainId) = 0;
  virtual void endVariablesSection() = 0;

  virtual void beginRelationsSection(int nbRelations) = 0;
  virtual void beginRelation(const std::string& name, int id, int arity, int nbTuples,
                             RelType type) = 0;
  // The tuple array is the reader's: it is overwritten by the next tuple.
  virtual void addRelationTuple(int arity, int* tuple) = 0;
  virtual void addRelationTuple(int arity, int* tuple, int cost) = 0;
  virtual void endRelation() = 0;
  virtual void endRelationsSection() = 0;

  virtual void beginPredicatesSection(int nbPredicates) = 0;
  virtual void beginPredicate(const std::string& name, int id) = 0;
  virtual void addFormalParameter(int position, const std::string& name,
                                  const std::string& type) = 0;
  // The callee owns the tree. Variables in it carry the position of the formal parameter.
  virtual void predicateExpression(AST* tree) = 0;
  virtual void predicateExpression(const std::string& expression) = 0;
  virtual void endPredicate() = 0;
  virtual void endPredicatesSection() = 0;

  virtual void beginConstraintsSection(int nbConstraints) = 0;
  // referenceId is the symbol id of the reference within its type; for a global
  // constraint it is the fixed code of XMLParser::startDocument. The reader keeps
  // the scope and the arguments.
  virtual void beginConstraint(const std::string& name, int id, int arity,
                               const std::string& reference, CSPDefinitionType type,
                               int referenceId, const ASTList& scope) = 0;
  virtual void constraintParameters(const ASTList& arguments) = 0;
  virtual void endConstraint() = 0;
  virtual void endConstraintsSection() = 0;

  virtual void endInstance() = 0;
};

}  // namespace CSPXMLParser

#endif
