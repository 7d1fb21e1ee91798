// The XCSP 2.1 reader: turns the SAX events of an XML document into calls on a
// CSPParserCallback, with expressions and constraint parameters as AST trees.
//
// XMLParser knows the vocabulary (one TagAction per element name), the abridged
// notations of constraint parameters ("[ X 3 ]", "{ /coef 2 /var X }"), the
// symbol tables and every syntax message. XMLParser_libxml2 feeds it from
// libxml2's push parser; its parse(std::istream&) is the entry point.
//
// Errors are exceptions. libxml2 is C, so none may unwind through its frames:
// each SAX handler catches, stops libxml2 and keeps the exception, which parse()
// raises again, with its type unchanged, once libxml2 has returned.
#ifndef ZELK_XCSP_XMLPARSER_H
#define ZELK_XCSP_XMLPARSER_H

#include <cstdint>
#include <deque>
#include <exception>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "xcsp/AST.h"
#include "xcsp/AttributeList.h"
#include "xcsp/CSPParserCallback.h"
#include "xcsp/ExpressionParser.h"
#include "xcsp/UTF8String.h"

struct _xmlParserCtxt;

namespace CSPXMLParser {

template <class Callback, class ASTFactory, class String, class AttributeList>
class XMLParser {
 public:
  // The behaviour of one element name. One instance per name lives as long as
  // the parser, so per-element fields are reset by beginTag and an element may
  // not nest in itself (list and dict keep their state on the operand stack).
  class TagAction {
   public:
    explicit TagAction(XMLParser* parser) : parser(parser) {}
    virtual ~TagAction() = default;
    TagAction(const TagAction&) = delete;
    TagAction& operator=(const TagAction&) = delete;

    virtual const char* getTagName() = 0;
    virtual void beginTag(const AttributeList& attributes) = 0;
    // `last` tells that no more text of this run follows.
    virtual void text(const String& chars, bool last) = 0;
    virtual void endTag() = 0;

    // Raises unless the action `level` steps up the stack is called `name`
    // (null: there must be none).
    void checkParentTag(const char* name, int level);

   protected:
    // The element holds neither elements nor abridged forms.
    void makeFlat();
    // Brackets, dictionary keys, variables and integers may be abridged in the content.
    void allowAbridged();

    XMLParser* parser;
  };

  // What the content of an open element may hold.
  struct State {
    bool abridgedListAllowed = false;
    bool abridgedDictAllowed = false;
    bool abridgedVarAllowed = false;
    bool abridgedIntAllowed = false;
    bool subtagAllowed = true;
    // Opened by "[" or "{" rather than by a start tag: only the matching
    // bracket may close it.
    bool openedByNotation = false;
  };

  struct SymbolInfo {
    CSPDefinitionType type = UNDEF;
    int id = 0;
    // Conventional key order of the dictionaries in this constraint's parameters.
    const std::vector<std::string>* dictKeys = nullptr;
  };

  explicit XMLParser(Callback& callback);
  virtual ~XMLParser();
  XMLParser(const XMLParser&) = delete;
  XMLParser& operator=(const XMLParser&) = delete;

  //==== SAX events ==============================================================
  void startDocument();
  void startElement(const String& name, const AttributeList& attributes);
  void endElement(const String& name);
  // One piece of character data; libxml2 may cut text anywhere between two pieces.
  void characters(const String& chars);

  //==== Symbol tables ===========================================================
  // Returns the number of the new symbol within its type.
  int defineSymbol(const std::string& name, CSPDefinitionType type);
  // `UNDEF` accepts a symbol of any type.
  int getSymbolId(const std::string& name, CSPDefinitionType type);
  const SymbolInfo& getSymbolInfo(const std::string& name);

  // The action `level` steps from the innermost open element (0), or null.
  TagAction* getParentTagAction(int level);
  // Hands a predicate expression to the callback in the preferred syntax.
  void xmitExpressionToSolver(AST* tree);

 protected:
  class UnknownTagAction;
  class InstanceTagAction;
  class PresentationTagAction;
  class DomainsTagAction;
  class DomainTagAction;
  class VariablesTagAction;
  class VariableTagAction;
  class RelationsTagAction;
  class RelationTagAction;
  class PredicatesTagAction;
  class PredicateTagAction;
  class ParametersTagAction;
  class ExpressionTagAction;
  class FunctionalTagAction;
  class InfixTagAction;
  class PostfixTagAction;
  class ConstraintsTagAction;
  class ConstraintTagAction;
  class ExtensionTagAction;
  class VarTagAction;
  class IntegerTagAction;
  class ListTagAction;
  class DictTagAction;
  class EntryTagAction;
  class SymbTagAction;

  void registerTagAction(TagAction* action);
  // Scans a run of text for the abridged forms, turning them into the actions
  // of the elements they stand for; plain text goes to the innermost action.
  void handleAbridgedNotation(const String& chars, bool last);
  void openElement(const char* name);
  void closeElement();
  // Pops the operands above the nearest mark, and the mark, into a new list.
  ASTList* popList();
  void clearOperands();

  Callback& callback;
  Syntax preferredExpressionRepresentation = TREE;
  ExpressionParser<ASTFactory> exprParser;
  std::map<std::string, SymbolInfo> symbols;
  std::uint32_t symbolCount[UNDEF] = {};
  std::map<String, TagAction*> tagActions;  // owns the actions
  std::deque<TagAction*> actionStack;       // innermost element at the front
  std::deque<State> stateStack;             // in step with actionStack
  // A word whose end has not been seen yet: it may go on in the next piece.
  String textBuffer;
  VarTagAction* varTagAction = nullptr;
  DictTagAction* dictTagAction = nullptr;
  UnknownTagAction* unknownTagAction = nullptr;
  // Grows at the back; a null entry is the mark that opens a list, a
  // dictionary or constraint parameters. Owns the nodes.
  std::deque<AST*> operandStack;
  std::vector<std::string> cumulativeKeys;
  std::vector<std::string> weightedSumKeys;
};

// The reader on libxml2's push parser. The parser object is the SAX user data.
template <class Callback, class ASTFactory>
class XMLParser_libxml2 : public XMLParser<Callback, ASTFactory, UTF8String, AttributeList> {
  typedef XMLParser<Callback, ASTFactory, UTF8String, AttributeList> Base;

 public:
  explicit XMLParser_libxml2(Callback& callback) : Base(callback) {}

  // Reads the whole document and returns 0; an empty input makes no callback.
  // An exception raised by the reader or the callback is raised again here,
  // after "Exception at line N" on standard output for a std::runtime_error.
  int parse(std::istream& in);

 private:
  static void startDocument(void* user);
  static void endDocument(void* user);
  static void startElement(void* user, const unsigned char* name, const unsigned char** attributes);
  static void endElement(void* user, const unsigned char* name);
  static void characters(void* user, const unsigned char* chars, int length);
  static void comment(void* user, const unsigned char* value);

  // Runs one event unless an earlier one failed; an exception stops libxml2
  // and is kept for parse().
  template <class Event>
  static void guarded(void* user, Event&& event);
  void raisePending();

  _xmlParserCtxt* context = nullptr;
  std::exception_ptr pending;
  int pendingLine = 0;
};

extern template class XMLParser<CSPParserCallback, DefaultASTFactory, UTF8String, AttributeList>;
extern template class XMLParser_libxml2<CSPParserCallback, DefaultASTFactory>;

}  // namespace CSPXMLParser

#endif
