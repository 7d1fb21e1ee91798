// A CSPParserCallback that writes every event as one line of text, trees in
// prefix form, so that tests compare what the XCSP reader reports with a
// transcript. Shared by the reader's unit tests and its fuzzing harness.
#ifndef ZELK_TESTS_UNIT_XCSP_RECORDING_CALLBACK_H
#define ZELK_TESTS_UNIT_XCSP_RECORDING_CALLBACK_H

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "xcsp/AST.h"
#include "xcsp/CSPParserCallback.h"

namespace zelk_test {

class xcsp_recording_callback : public CSPXMLParser::CSPParserCallback {
 public:
  std::vector<std::string> events;

  // All events, one a line.
  std::string transcript() const {
    std::string text;
    for (const std::string& line : events) text += line + "\n";
    return text;
  }

  void beginInstance(const std::string& name) override { record("beginInstance", name); }
  void beginDomainsSection(int nbDomains) override { record("beginDomainsSection", nbDomains); }
  void beginDomain(const std::string& name, int id, int nbValues) override {
    record("beginDomain", name, id, nbValues);
  }
  void addDomainValue(int value) override { record("addDomainValue", value); }
  void addDomainValue(int first, int last) override { record("addDomainValue", first, "..", last); }
  void endDomain() override { record("endDomain"); }
  void endDomainsSection() override { record("endDomainsSection"); }
  void beginVariablesSection(int nbVariables) override { record("beginVariablesSection", nbVariables); }
  void addVariable(const std::string& name, int id, const std::string& domainName,
                   int domainId) override {
    record("addVariable", name, id, domainName, domainId);
  }
  void endVariablesSection() override { record("endVariablesSection"); }
  void beginRelationsSection(int nbRelations) override { record("beginRelationsSection", nbRelations); }
  void beginRelation(const std::string& name, int id, int arity, int nbTuples,
                     CSPXMLParser::RelType type) override {
    record("beginRelation", name, id, arity, nbTuples, int(type));
  }
  void addRelationTuple(int arity, int* tuple) override {
    record("tuple", values(arity, tuple));
  }
  void addRelationTuple(int arity, int* tuple, int cost) override {
    record("tuple", values(arity, tuple), "cost", cost);
  }
  void endRelation() override { record("endRelation"); }
  void endRelationsSection() override { record("endRelationsSection"); }
  void beginPredicatesSection(int nbPredicates) override {
    record("beginPredicatesSection", nbPredicates);
  }
  void beginPredicate(const std::string& name, int id) override { record("beginPredicate", name, id); }
  void addFormalParameter(int position, const std::string& name, const std::string& type) override {
    record("addFormalParameter", position, name, type);
  }
  void predicateExpression(CSPXMLParser::AST* tree) override {
    std::unique_ptr<CSPXMLParser::AST> owned(tree);
    record("predicateExpression", prefix(*owned));
  }
  void predicateExpression(const std::string& expression) override {
    record("predicateExpression(text)", expression);
  }
  void endPredicate() override { record("endPredicate"); }
  void endPredicatesSection() override { record("endPredicatesSection"); }
  void beginConstraintsSection(int nbConstraints) override {
    record("beginConstraintsSection", nbConstraints);
  }
  void beginConstraint(const std::string& name, int id, int arity, const std::string& reference,
                       CSPXMLParser::CSPDefinitionType type, int referenceId,
                       const CSPXMLParser::ASTList& scope) override {
    record("beginConstraint", name, id, arity, reference, int(type), referenceId, prefix(scope));
  }
  void constraintParameters(const CSPXMLParser::ASTList& arguments) override {
    record("constraintParameters", prefix(arguments));
  }
  void endConstraint() override { record("endConstraint"); }
  void endConstraintsSection() override { record("endConstraintsSection"); }
  void endInstance() override { record("endInstance"); }

 private:
  static std::string prefix(const CSPXMLParser::AST& tree) {
    std::ostringstream out;
    tree.prefixExpression(out);
    return out.str();
  }
  static std::string values(int arity, const int* tuple) {
    std::ostringstream out;
    for (int i = 0; i < arity; ++i) out << (i ? " " : "") << tuple[i];
    return out.str();
  }
  template <class... Args>
  void record(const char* event, const Args&... args) {
    std::ostringstream out;
    out << event;
    ((out << ' ' << args), ...);
    events.push_back(out.str());
  }
};

}  // namespace zelk_test

#endif
