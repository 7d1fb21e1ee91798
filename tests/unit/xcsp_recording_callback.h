// A CSPParserCallback that writes every event as a line of text, trees in prefix form:
// the transcript that the XCSP reader's unit tests and its fuzzing harness compare.
#ifndef ZELK_TESTS_UNIT_XCSP_RECORDING_CALLBACK_H
#define ZELK_TESTS_UNIT_XCSP_RECORDING_CALLBACK_H

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "xcsp/AST.h"
#include "xcsp/CSPParserCallback.h"

namespace zelk_test {

class xcsp_recording_callback : public CSPXMLParser::CSPParserCallback {
  using AST = CSPXMLParser::AST;
  using ASTList = CSPXMLParser::ASTList;
  using text = const std::string&;
  using ints = std::vector<int>;

 public:
  // All events so far, one a line.
  std::string transcript() const { return log.str(); }

  void beginInstance(text name) override { record("beginInstance", name); }
  void beginDomainsSection(int count) override { record("beginDomainsSection", count); }
  void beginDomain(text name, int id, int count) override { record("beginDomain", name, id, count); }
  void addDomainValue(int value) override { record("addDomainValue", value); }
  void addDomainValue(int first, int last) override { record("addDomainValue", first, "..", last); }
  void endDomain() override { record("endDomain"); }
  void endDomainsSection() override { record("endDomainsSection"); }
  void beginVariablesSection(int count) override { record("beginVariablesSection", count); }
  void addVariable(text name, int id, text domain, int domainId) override {
    record("addVariable", name, id, domain, domainId);
  }
  void endVariablesSection() override { record("endVariablesSection"); }
  void beginRelationsSection(int count) override { record("beginRelationsSection", count); }
  void beginRelation(text name, int id, int arity, int count, CSPXMLParser::RelType type) override {
    record("beginRelation", name, id, arity, count, int(type));
  }
  void addRelationTuple(int n, int* t) override { record("tuple", ints(t, t + n)); }
  void addRelationTuple(int n, int* t, int cost) override { record("tuple", ints(t, t + n), "cost", cost); }
  void endRelation() override { record("endRelation"); }
  void endRelationsSection() override { record("endRelationsSection"); }
  void beginPredicatesSection(int count) override { record("beginPredicatesSection", count); }
  void beginPredicate(text name, int id) override { record("beginPredicate", name, id); }
  void addFormalParameter(int i, text name, text type) override { record("addFormalParameter", i, name, type); }
  void predicateExpression(AST* tree) override { record("predicateExpression", *std::unique_ptr<AST>(tree)); }
  void predicateExpression(text expression) override { record("predicateExpression(text)", expression); }
  void endPredicate() override { record("endPredicate"); }
  void endPredicatesSection() override { record("endPredicatesSection"); }
  void beginConstraintsSection(int count) override { record("beginConstraintsSection", count); }
  void beginConstraint(text name, int id, int arity, text reference, CSPXMLParser::CSPDefinitionType type,
                       int referenceId, const ASTList& scope) override {
    record("beginConstraint", name, id, arity, reference, int(type), referenceId, scope);
  }
  void constraintParameters(const ASTList& arguments) override { record("constraintParameters", arguments); }
  void endConstraint() override { record("endConstraint"); }
  void endConstraintsSection() override { record("endConstraintsSection"); }
  void endInstance() override { record("endInstance"); }

 private:
  template <class T> requires(!std::is_base_of_v<AST, T>) void put(const T& value) { log << ' ' << value; }
  void put(const ints& tuple) { for (int value : tuple) log << ' ' << value; }
  void put(const AST& tree) { log << ' '; tree.prefixExpression(log); }
  template <class... Args>
  void record(const char* event, const Args&... args) {
    log << event;
    (put(args), ...);
    log << '\n';
  }

  std::ostringstream log;
};

}  // namespace zelk_test

#endif
