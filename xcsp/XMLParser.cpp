// The XCSP 2.1 reader: tag actions, abridged notations, symbol tables, and the
// connection to libxml2's push parser (XMLParser_libxml2::parse at the end).
#include "xcsp/XMLParser.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>

#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace CSPXMLParser {

#define ZELK_XMLPARSER_TEMPLATE template <class Callback, class ASTFactory, class String, class AttributeList>
#define ZELK_XMLPARSER XMLParser<Callback, ASTFactory, String, AttributeList>

namespace {

[[noreturn]] void fail(const std::string& message) { throw std::runtime_error(message); }

bool isBlank(unsigned char c) { return c == ' ' || (c >= 9 && c <= 13); }
bool isLetter(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }

template <class String>
std::string toStdString(const String& s) {
  std::string result;
  s.template to<std::string>(result);
  return result;
}

std::string toLower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
  return text;
}

[[noreturn]] void missingAttribute(const char* attribute, const char* tag) {
  fail(std::string("expected attribute ") + attribute + " for tag <" + tag + ">");
}

// `shown` names the attribute in the message; a few messages have always
// dropped the plural "s" of the attribute name.
template <class AttributeList>
int intAttribute(const AttributeList& attributes, const char* name, const char* tag,
                 const char* shown = nullptr) {
  int value = 0;
  auto text = attributes[name];
  if (text.isNull() || !text.template to<int>(value)) missingAttribute(shown ? shown : name, tag);
  return value;
}

template <class AttributeList>
std::string stringAttribute(const AttributeList& attributes, const char* name, const char* tag) {
  std::string value;
  if (!attributes[name].template to<std::string>(value)) missingAttribute(name, tag);
  return value;
}

template <class String>
void requireBlank(const String& chars, const char* tag) {
  if (!chars.isWhiteSpace()) fail(std::string("<") + tag + "> tag should not have meaningful text");
}

// Appends the code points of `chars` to an owning string.
template <class String>
void appendTo(String& buffer, const String& chars) {
  for (auto it = chars.begin(); !it.atEnd(); ++it) buffer.append(*it);
}

}  // namespace

//==== Tag actions =============================================================

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::TagAction::checkParentTag(const char* name, int level) {
  TagAction* action = parser->getParentTagAction(level);
  if (action == nullptr) {
    if (name != nullptr) fail("tag has no parent but it should have one");
    return;
  }
  if (name == nullptr) fail("tag should have no parent");
  if (std::strcmp(action->getTagName(), name) != 0) fail("wrong parent for tag");
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::TagAction::makeFlat() {
  State& state = parser->stateStack.front();
  bool openedByNotation = state.openedByNotation;
  state = State();
  state.subtagAllowed = false;
  state.openedByNotation = openedByNotation;
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::TagAction::allowAbridged() {
  State& state = parser->stateStack.front();
  state.abridgedListAllowed = true;
  state.abridgedDictAllowed = true;
  state.abridgedVarAllowed = true;
  state.abridgedIntAllowed = true;
}

// Elements outside the vocabulary: skipped with their attributes and text.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::UnknownTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "(unknown)"; }
  void beginTag(const AttributeList&) override {}
  void text(const String&, bool) override {}
  void endTag() override {}
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::InstanceTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "instance"; }
  void beginTag(const AttributeList&) override { this->checkParentTag(nullptr, 1); }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override { this->parser->callback.endInstance(); }
};

// The <presentation> is what opens the instance for the callback.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::PresentationTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "presentation"; }
  void beginTag(const AttributeList& attributes) override {
    this->checkParentTag("instance", 1);
    this->makeFlat();
    std::string name;
    if (!attributes["name"].template to<std::string>(name)) name = "?";
    this->parser->callback.beginInstance(name);
  }
  void text(const String&, bool) override {}
  void endTag() override {}
};

// The section elements differ only in their names, count attribute and events.
#define ZELK_SECTION_TAG_ACTION(CLASS, TAG, COUNT, SHOWN, BEGIN, END)                       \
  ZELK_XMLPARSER_TEMPLATE                                                                    \
  class ZELK_XMLPARSER::CLASS : public TagAction {                                           \
   public:                                                                                   \
    using TagAction::TagAction;                                                              \
    const char* getTagName() override { return TAG; }                                        \
    void beginTag(const AttributeList& attributes) override {                                \
      this->checkParentTag("instance", 1);                                                   \
      this->parser->callback.BEGIN(intAttribute(attributes, COUNT, TAG, SHOWN));             \
    }                                                                                        \
    void text(const String& chars, bool) override { requireBlank(chars, TAG); }              \
    void endTag() override { this->parser->callback.END(); }                                 \
  };

ZELK_SECTION_TAG_ACTION(DomainsTagAction, "domains", "nbDomains", nullptr, beginDomainsSection,
                        endDomainsSection)
ZELK_SECTION_TAG_ACTION(VariablesTagAction, "variables", "nbVariables", nullptr,
                        beginVariablesSection, endVariablesSection)
ZELK_SECTION_TAG_ACTION(RelationsTagAction, "relations", "nbRelations", "nbRelation",
                        beginRelationsSection, endRelationsSection)
ZELK_SECTION_TAG_ACTION(PredicatesTagAction, "predicates", "nbPredicates", "nbPredicate",
                        beginPredicatesSection, endPredicatesSection)
ZELK_SECTION_TAG_ACTION(ConstraintsTagAction, "constraints", "nbConstraints", nullptr,
                        beginConstraintsSection, endConstraintsSection)

#undef ZELK_SECTION_TAG_ACTION

// Values "1 3..5 8": single values and ranges in document order.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::DomainTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "domain"; }
  void beginTag(const AttributeList& attributes) override {
    this->checkParentTag("domains", 1);
    std::string name = stringAttribute(attributes, "name", getTagName());
    int nbValues = intAttribute(attributes, "nbValues", getTagName(), "nbValue");
    int id = this->parser->defineSymbol(name, DOMAIN);
    this->parser->callback.beginDomain(name, id, nbValues);
  }
  void text(const String& chars, bool) override {
    typename String::Tokenizer tokenizer(chars);
    for (String word = tokenizer.nextToken(); !word.isNull(); word = tokenizer.nextToken()) {
      int separator = word.find(rangeSeparator);
      if (separator != 0x7FFFFFFF) {
        int first = toInt(word.substr(0, separator));
        int last = toInt(word.substr(separator + 2));
        this->parser->callback.addDomainValue(first, last);
      } else {
        this->parser->callback.addDomainValue(toInt(word));
      }
    }
  }
  void endTag() override { this->parser->callback.endDomain(); }

 private:
  // A word such as "5.." or "x" would otherwise put an arbitrary value in the domain.
  static int toInt(const String& word) {
    int value = 0;
    if (!word.template to<int>(value)) fail("invalid integer in <domain> element");
    return value;
  }

  String rangeSeparator = String("..");
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::VariableTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "variable"; }
  void beginTag(const AttributeList& attributes) override {
    this->checkParentTag("variables", 1);
    this->makeFlat();
    std::string name = stringAttribute(attributes, "name", getTagName());
    std::string domain = stringAttribute(attributes, "domain", getTagName());
    int id = this->parser->defineSymbol(name, VARIABLE);
    int domainId = this->parser->getSymbolId(domain, DOMAIN);
    this->parser->callback.addVariable(name, id, domain, domainId);
  }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override {}
};

// Tuples "1 2|3 4", with "cost:" prefixes in a soft relation; the last "|" is optional.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::RelationTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "relation"; }
  void beginTag(const AttributeList& attributes) override {
    this->checkParentTag("relations", 1);
    this->makeFlat();
    arity = intAttribute(attributes, "arity", getTagName());
    if (arity < 1) fail("arity must be >0");
    nbTuples = intAttribute(attributes, "nbTuples", getTagName());
    std::string name = stringAttribute(attributes, "name", getTagName());
    std::string semantics = stringAttribute(attributes, "semantics", getTagName());
    RelType type;
    if (semantics == "supports") {
      type = REL_SUPPORT;
    } else if (semantics == "conflicts") {
      type = REL_CONFLICT;
    } else if (semantics == "soft") {
      type = REL_SOFT;
    } else {
      fail("unknown semantics for tag <relation>");
    }
    isSoft = type == REL_SOFT;
    defaultCost = isSoft ? intAttribute(attributes, "defaultCost", getTagName()) : 1;
    int id = this->parser->defineSymbol(name, RELATION);
    this->parser->callback.beginRelation(name, id, arity, nbTuples, type);
    // Grown value by value: an absurd arity costs no memory until the text backs it.
    tuple.clear();
    tupleLength = 0;
    tupleCount = 0;
    cost = defaultCost;
  }
  void text(const String& chars, bool) override {
    typename String::Tokenizer tokenizer(chars);
    tokenizer.addSeparator('|');
    tokenizer.addSeparator(':');
    for (String word = tokenizer.nextToken(); !word.isNull(); word = tokenizer.nextToken()) {
      if (word == String(":")) {
        if (!isSoft || tupleLength != 1) fail("unexpected colon (':') in relation");
        cost = tuple[0];
        tupleLength = 0;
      } else if (word == String("|")) {
        if (tupleLength != arity) fail("unexpected pipe ('|') in relation");
        emitTuple();
      } else {
        int value = 0;
        if (!word.template to<int>(value)) fail("failed to read integer");
        // The tuple holds exactly `arity` values: one more needs a "|" first.
        if (tupleLength == arity) fail("missing pipe ('|') in relation");
        if (std::size_t(tupleLength) < tuple.size())
          tuple[tupleLength] = value;
        else
          tuple.push_back(value);
        ++tupleLength;
      }
    }
  }
  void endTag() override {
    if (tupleLength == arity)
      emitTuple();
    else if (tupleLength != 0)
      fail("last tuple is incomplete !");
    if (tupleCount != nbTuples) fail("effective number of tuples doesn't match the announced number");
    this->parser->callback.endRelation();
  }

 private:
  void emitTuple() {
    if (isSoft)
      this->parser->callback.addRelationTuple(arity, tuple.data(), cost);
    else
      this->parser->callback.addRelationTuple(arity, tuple.data());
    ++tupleCount;
    tupleLength = 0;
  }

  int arity = 0;
  int nbTuples = 0;
  std::vector<int> tuple;
  int tupleLength = 0;
  int tupleCount = 0;
  bool isSoft = false;
  int cost = 0;
  int defaultCost = 0;
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::PredicateTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "predicate"; }
  void beginTag(const AttributeList& attributes) override {
    this->checkParentTag("predicates", 1);
    std::string name = stringAttribute(attributes, "name", getTagName());
    int id = this->parser->defineSymbol(name, PREDICATE);
    this->parser->callback.beginPredicate(name, id);
  }
  void text(const String&, bool) override {}
  void endTag() override { this->parser->callback.endPredicate(); }

  // Formal parameter name to position. Not emptied between predicates: a
  // later predicate overwrites the names it declares.
  std::map<std::string, int> parameterIds;
};

// Formal parameters "int X int Y" under <predicate>; effective parameters,
// in XML or abridged form, under <constraint>.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::ParametersTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "parameters"; }
  void beginTag(const AttributeList&) override {
    TagAction* parent = this->parser->getParentTagAction(1);
    if (parent == nullptr) fail("unexpected <parameters> tag");
    if (std::strcmp(parent->getTagName(), "predicate") == 0) {
      isFormal = true;
      this->parser->stateStack.front().subtagAllowed = false;
      text_.clear();
    } else if (std::strcmp(parent->getTagName(), "constraint") == 0) {
      isFormal = false;
      this->parser->operandStack.push_back(nullptr);
      this->allowAbridged();
    } else {
      fail("unexpected <parameters> tag");
    }
  }
  void text(const String& chars, bool) override {
    if (isFormal)
      appendTo(text_, chars);
    else
      requireBlank(chars, getTagName());
  }
  void endTag() override {
    if (!isFormal) {
      this->parser->operandStack.push_back(this->parser->popList());
      return;
    }
    auto* predicate = static_cast<PredicateTagAction*>(this->parser->getParentTagAction(1));
    typename String::Tokenizer tokenizer(text_);
    parameterCount = 0;
    for (String type = tokenizer.nextToken(); !type.isNull(); type = tokenizer.nextToken()) {
      String name = tokenizer.nextToken();
      if (name.isNull()) fail("missing formal parameter name after type");
      std::string nameText = toStdString(name);
      predicate->parameterIds[nameText] = parameterCount;
      this->parser->callback.addFormalParameter(parameterCount, nameText, toStdString(type));
      ++parameterCount;
    }
  }

 private:
  bool isFormal = false;
  int parameterCount = 0;
  String text_;
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::ExpressionTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "expression"; }
  void beginTag(const AttributeList&) override {
    TagAction* parent = this->parser->getParentTagAction(1);
    if (parent == nullptr) fail("unexpected <expression> tag");
    if (std::strcmp(parent->getTagName(), "predicate") == 0)
      inPredicate = true;
    else if (std::strcmp(parent->getTagName(), "constraint") == 0)
      inPredicate = false;
    else
      fail("unexpected <expression> tag");
  }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override {}

  bool inPredicate = false;
};

// The functional syntax "add(X,mul(2,Y))", the only one understood.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::FunctionalTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "functional"; }
  void beginTag(const AttributeList&) override {
    this->checkParentTag("expression", 1);
    text_.clear();
  }
  void text(const String& chars, bool) override {
    std::string piece;
    chars.template to<std::string>(piece);
    text_ += piece;
  }
  void endTag() override {
    auto* expression = dynamic_cast<ExpressionTagAction*>(this->parser->getParentTagAction(1));
    if (expression == nullptr) fail("internal error: couldn't get my parent or wasn't an <expression>");
    if (!expression->inPredicate) fail("expressions not yet suported as effective parameters");
    auto* predicate = dynamic_cast<PredicateTagAction*>(this->parser->getParentTagAction(2));
    if (predicate == nullptr) fail("internal error: couldn't get my parent or wasn't a <predicate>");
    auto& expressionParser = this->parser->exprParser;
    expressionParser.varInfo = &predicate->parameterIds;
    AST* tree = nullptr;
    try {
      tree = expressionParser.prefixParser(text_);
    } catch (...) {
      expressionParser.varInfo = nullptr;
      throw;
    }
    expressionParser.varInfo = nullptr;
    this->parser->xmitExpressionToSolver(tree);
  }

 private:
  std::string text_;
};

// Infix and postfix predicate syntaxes are reported and skipped.
#define ZELK_IGNORED_SYNTAX_TAG_ACTION(CLASS, TAG)                                       \
  ZELK_XMLPARSER_TEMPLATE                                                                 \
  class ZELK_XMLPARSER::CLASS : public TagAction {                                        \
   public:                                                                                \
    using TagAction::TagAction;                                                           \
    const char* getTagName() override { return TAG; }                                     \
    void beginTag(const AttributeList&) override {                                        \
      this->checkParentTag("expression", 1);                                              \
      text_.clear();                                                                      \
    }                                                                                     \
    void text(const String& chars, bool) override {                                       \
      std::string piece;                                                                  \
      chars.template to<std::string>(piece);                                              \
      text_ += piece;                                                                     \
    }                                                                                     \
    void endTag() override {                                                              \
      std::cout << "WARNING: ignoring " TAG " expression: " << text_ << std::endl;        \
    }                                                                                     \
                                                                                          \
   private:                                                                               \
    std::string text_;                                                                    \
  };

ZELK_IGNORED_SYNTAX_TAG_ACTION(InfixTagAction, "infix")
ZELK_IGNORED_SYNTAX_TAG_ACTION(PostfixTagAction, "postfix")

#undef ZELK_IGNORED_SYNTAX_TAG_ACTION

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::ConstraintTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "constraint"; }
  void beginTag(const AttributeList& attributes) override {
    XMLParser& p = *this->parser;
    stackDepth = int(p.operandStack.size());
    this->checkParentTag("constraints", 1);
    int arity = intAttribute(attributes, "arity", getTagName());
    std::string name = stringAttribute(attributes, "name", getTagName());
    std::string reference = stringAttribute(attributes, "reference", getTagName());
    // Global constraint names match in any case, the prefix included. A symbol
    // of the document spelt that way is still found as written.
    if (reference.size() > 7 && toLower(reference.substr(0, 7)) == "global:") {
      std::string folded = toLower(reference);
      if (p.symbols.count(folded) != 0)
        reference = folded;
      else if (p.symbols.count(reference) == 0)
        fail("symbol " + reference + " is undefined");
    }
    SymbolInfo info = p.getSymbolInfo(reference);
    if (info.dictKeys != nullptr) p.dictTagAction->keyOrder = info.dictKeys;
    auto scopeText = attributes["scope"];
    if (scopeText.isNull()) missingAttribute("scope", getTagName());
    scope.clear();
    typename String::Tokenizer tokenizer(scopeText);
    for (String word = tokenizer.nextToken(); !word.isNull(); word = tokenizer.nextToken()) {
      std::string variable = toStdString(word);
      int id = p.getSymbolId(variable, VARIABLE);
      scope.push_back(ASTFactory::mkVar(variable, id));
    }
    int id = p.defineSymbol(name, CONSTRAINT);
    p.callback.beginConstraint(name, id, arity, reference, info.type, info.id, scope);
  }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override {
    XMLParser& p = *this->parser;
    int added = int(p.operandStack.size()) - stackDepth;
    if (added == 1) {
      AST* top = p.operandStack.back();
      if (top == nullptr || top->getType() != LIST)
        fail("constraint parameters doesn't appear to be a list");
      p.operandStack.pop_back();
      std::unique_ptr<AST> arguments(top);
      p.callback.constraintParameters(static_cast<const ASTList&>(*arguments));
    } else if (added == 0) {
      // Without <parameters>, the scope is the list of arguments.
      p.callback.constraintParameters(scope);
    } else {
      fail("internal error while handling constraint parameters");
    }
    p.callback.endConstraint();
    p.dictTagAction->keyOrder = nullptr;
  }

 private:
  ASTList scope;
  int stackDepth = 0;
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::ExtensionTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "extension"; }
  void beginTag(const AttributeList&) override {}
  void text(const String&, bool) override {}
  void endTag() override {}
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::VarTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "var"; }
  void beginTag(const AttributeList& attributes) override {
    this->makeFlat();
    pushVariable(stringAttribute(attributes, "name", getTagName()));
  }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override {}

  void pushVariable(const std::string& name) {
    int id = this->parser->getSymbolId(name, VARIABLE);
    this->parser->operandStack.push_back(ASTFactory::mkVar(name, id));
  }
};

// The integer is read at the end tag: the text of one element can come in pieces.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::IntegerTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "i"; }
  void beginTag(const AttributeList&) override {
    this->makeFlat();
    text_.clear();
  }
  void text(const String& chars, bool) override { appendTo(text_, chars); }
  void endTag() override {
    int value = 0;
    if (!text_.template to<int>(value)) fail("invalid integer in <i> element");
    this->parser->operandStack.push_back(new ASTInteger(value));
  }

 private:
  String text_;
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::ListTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "list"; }
  void beginTag(const AttributeList&) override {
    this->parser->operandStack.push_back(nullptr);
    this->allowAbridged();
  }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override { this->parser->operandStack.push_back(this->parser->popList()); }
};

// A dictionary is written with its keys ("/coef 2 /var X", <entry key=...>) or
// as bare values in the conventional key order of its constraint.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::DictTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "dict"; }
  void beginTag(const AttributeList&) override {
    this->parser->operandStack.push_back(nullptr);
    this->allowAbridged();
  }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override {
    std::deque<AST*>& stack = this->parser->operandStack;
    auto dict = std::make_unique<ASTDict>();
    std::size_t mark = stack.size();
    int keys = 0;
    while (mark > 0 && stack[mark - 1] != nullptr) {
      --mark;
      if (stack[mark]->getType() == DICT_KEY) ++keys;
    }
    if (mark == 0) fail("internal error: lost dict mark");
    --mark;
    if (keys > 0) {
      for (;;) {
        std::unique_ptr<AST> value(stack.back());
        stack.pop_back();
        if (value == nullptr) break;
        // A key node never leaves the operand stack: "/a /b 1" leaves a without a value.
        if (value->getType() == DICT_KEY) fail("missing value in dictionary");
        if (stack.empty()) fail("internal error");
        std::unique_ptr<AST> key(stack.back());
        stack.pop_back();
        if (key == nullptr || key->getType() != DICT_KEY) fail("missing key in dictionary");
        dict->setArg(static_cast<ASTDictKey&>(*key).key, value.release());
      }
    } else {
      if (keyOrder == nullptr) fail("no conventional key order defined for this dictionary");
      std::vector<std::unique_ptr<AST>> values;
      for (std::size_t i = mark + 1; i < stack.size(); ++i) values.emplace_back(stack[i]);
      stack.resize(mark);
      if (values.size() < keyOrder->size())
        fail("not enough values in dictionary defined with conventional order");
      for (std::size_t i = 0; i < keyOrder->size(); ++i)
        if (values[i]->getType() != SYMB_NIL) dict->setArg((*keyOrder)[i], values[i].release());
    }
    stack.push_back(dict.release());
  }

  const std::vector<std::string>* keyOrder = nullptr;
};

ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::EntryTagAction : public TagAction {
 public:
  using TagAction::TagAction;
  const char* getTagName() override { return "entry"; }
  void beginTag(const AttributeList& attributes) override {
    std::string key = stringAttribute(attributes, "key", getTagName());
    this->parser->operandStack.push_back(new ASTDictKey(key));
    this->allowAbridged();
  }
  void text(const String& chars, bool) override { requireBlank(chars, getTagName()); }
  void endTag() override {}
};

// The symbolic constants nil, eq, ne, ge, gt, le, lt.
ZELK_XMLPARSER_TEMPLATE
class ZELK_XMLPARSER::SymbTagAction : public TagAction {
 public:
  SymbTagAction(XMLParser* parser, const char* name, NodeType symbol)
      : TagAction(parser), name(name), symbol(symbol) {}
  const char* getTagName() override { return name.c_str(); }
  void beginTag(const AttributeList&) override {
    this->makeFlat();
    this->parser->operandStack.push_back(new ASTSymb(symbol));
  }
  void text(const String&, bool) override { fail("<" + name + "/> tag must not have any text"); }
  void endTag() override {}

 private:
  std::string name;
  NodeType symbol;
};

//==== The parser ==============================================================

ZELK_XMLPARSER_TEMPLATE
ZELK_XMLPARSER::XMLParser(Callback& callback)
    : callback(callback),
      cumulativeKeys{"origin", "duration", "end", "height"},
      weightedSumKeys{"coef", "var"} {
  registerTagAction(new InstanceTagAction(this));
  registerTagAction(new PresentationTagAction(this));
  registerTagAction(new DomainsTagAction(this));
  registerTagAction(new DomainTagAction(this));
  registerTagAction(new VariablesTagAction(this));
  registerTagAction(new VariableTagAction(this));
  registerTagAction(new RelationsTagAction(this));
  registerTagAction(new RelationTagAction(this));
  registerTagAction(new PredicatesTagAction(this));
  registerTagAction(new PredicateTagAction(this));
  registerTagAction(new ParametersTagAction(this));
  registerTagAction(new ExpressionTagAction(this));
  registerTagAction(new FunctionalTagAction(this));
  registerTagAction(new InfixTagAction(this));
  registerTagAction(new PostfixTagAction(this));
  registerTagAction(new ConstraintsTagAction(this));
  registerTagAction(new ConstraintTagAction(this));
  registerTagAction(new ExtensionTagAction(this));
  registerTagAction(varTagAction = new VarTagAction(this));
  registerTagAction(new IntegerTagAction(this));
  registerTagAction(new ListTagAction(this));
  registerTagAction(dictTagAction = new DictTagAction(this));
  registerTagAction(new EntryTagAction(this));
  static const char* const symbolNames[] = {"nil", "eq", "ne", "ge", "gt", "le", "lt"};
  for (int i = 0; i < 7; ++i)
    registerTagAction(new SymbTagAction(this, symbolNames[i], NodeType(SYMB_NIL + i)));
  unknownTagAction = new UnknownTagAction(this);
}

ZELK_XMLPARSER_TEMPLATE
ZELK_XMLPARSER::~XMLParser() {
  clearOperands();
  for (auto& entry : tagActions) delete entry.second;
  delete unknownTagAction;
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::registerTagAction(TagAction* action) {
  std::unique_ptr<TagAction> owned(action);
  tagActions[String(action->getTagName())] = action;
  owned.release();
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::clearOperands() {
  for (AST* node : operandStack) delete node;
  operandStack.clear();
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::startDocument() {
  clearOperands();
  stateStack.clear();
  actionStack.clear();
  textBuffer.clear();
  symbols.clear();
  // Fixed codes for the callback, not numbers from symbolCount.
  symbols["global:alldifferent"] = SymbolInfo{GLOBAL_CONSTRAINT, 0, nullptr};
  symbols["global:cumulative"] = SymbolInfo{GLOBAL_CONSTRAINT, 4, &cumulativeKeys};
  symbols["global:weightedsum"] = SymbolInfo{GLOBAL_CONSTRAINT, 5, &weightedSumKeys};
  symbols["global:element"] = SymbolInfo{GLOBAL_CONSTRAINT, 6, nullptr};
  for (auto& count : symbolCount) count = 0;
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::startElement(const String& name, const AttributeList& attributes) {
  if (!textBuffer.empty()) {
    handleAbridgedNotation(textBuffer, true);
    textBuffer.clear();
  }
  if (!stateStack.empty() && !stateStack.front().subtagAllowed)
    fail("this element must not contain any element");
  TagAction* action = unknownTagAction;
  auto found = tagActions.find(name);
  if (found != tagActions.end())
    action = found->second;
  else
    std::cerr << "WARNING: unknown tag <" << name << "> will be ignored" << std::endl;
  stateStack.push_front(State());
  actionStack.push_front(action);
  action->beginTag(attributes);
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::endElement(const String& name) {
  if (!textBuffer.empty()) {
    handleAbridgedNotation(textBuffer, true);
    textBuffer.clear();
  }
  // libxml2 balances the tags; only a bracket left open can break the nesting.
  if (actionStack.empty()) fail("internal error: end tag without start tag");
  if (stateStack.front().openedByNotation) {
    bool list = std::strcmp(actionStack.front()->getTagName(), "list") == 0;
    std::ostringstream message;
    message << "missing '" << (list ? ']' : '}') << "' before </" << name << ">";
    fail(message.str());
  }
  auto found = tagActions.find(name);
  if (found != tagActions.end()) found->second->endTag();
  actionStack.pop_front();
  stateStack.pop_front();
}

// The notation handler must never see part of a word: everything after the
// last white space of a piece waits in textBuffer until its end has been seen,
// which may take any number of pieces.
ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::characters(const String& chars) {
  typedef unsigned char Byte;
  const Byte* begin = chars.begin().getPointer();
  const Byte* end = chars.finish().getPointer();
  if (actionStack.empty()) {
    if (!chars.isWhiteSpace()) fail("Text found outside any tag");
    return;
  }
  if (!textBuffer.empty()) {
    const Byte* wordEnd = begin;
    while (wordEnd != end && !isBlank(*wordEnd)) ++wordEnd;
    appendTo(textBuffer, String(begin, wordEnd));
    if (wordEnd == end) return;
    const Byte* blankEnd = wordEnd;
    while (blankEnd != end && isBlank(*blankEnd)) ++blankEnd;
    appendTo(textBuffer, String(wordEnd, blankEnd));
    handleAbridgedNotation(textBuffer, false);
    textBuffer.clear();
    begin = blankEnd;
  }
  // Backwards to the last white space, over whole code points.
  const Byte* cut = end;
  while (cut != begin && !isBlank(cut[-1])) {
    const Byte* lead = cut - 1;
    while (lead != begin && (*lead & 0xC0) == 0x80) --lead;
    if ((*lead & 0xC0) == 0x80) fail("invalid UTF8 sequence");
    if (String::iterator::codeLength(*lead) != int(cut - lead)) fail("invalid UTF8 sequence");
    cut = lead;
  }
  appendTo(textBuffer, String(cut, end));
  if (cut != begin) handleAbridgedNotation(String(begin, cut), false);
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::openElement(const char* name) {
  TagAction* action = tagActions.find(String(name))->second;
  State state;
  state.openedByNotation = true;
  stateStack.push_front(state);
  actionStack.push_front(action);
  action->beginTag(AttributeList());
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::closeElement() {
  actionStack.front()->endTag();
  actionStack.pop_front();
  stateStack.pop_front();
}

// All the abridged forms are ASCII, and no byte of a multi-byte UTF-8 sequence
// is, so the scan goes byte by byte.
ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::handleAbridgedNotation(const String& chars, bool last) {
  typedef unsigned char Byte;
  const Byte* pos = chars.begin().getPointer();
  const Byte* end = chars.finish().getPointer();
  const Byte* pending = pos;
  auto flush = [&] {
    if (pending != pos) actionStack.front()->text(String(pending, pos), true);
  };
  // The bracket must close an element that the matching bracket opened.
  auto closeBracket = [&](const char* tag, const char* message) {
    if (!stateStack.front().openedByNotation || std::strcmp(actionStack.front()->getTagName(), tag) != 0)
      fail(message);
    closeElement();
  };
  for (;;) {
    while (pos != end && isBlank(*pos)) ++pos;
    if (pos == end) break;
    if (stateStack.empty()) fail("Text found outside any tag");
    const State state = stateStack.front();
    Byte c = *pos;
    if (c == '[' && state.abridgedListAllowed) {
      flush();
      openElement("list");
      pending = ++pos;
    } else if (c == ']' && state.abridgedListAllowed) {
      flush();
      closeBracket("list", "unmatched ']'");
      pending = ++pos;
    } else if (c == '{' && state.abridgedDictAllowed) {
      flush();
      openElement("dict");
      pending = ++pos;
    } else if (c == '}' && state.abridgedDictAllowed) {
      flush();
      closeBracket("dict", "unmatched '}'");
      pending = ++pos;
    } else if (c == '/' && state.abridgedDictAllowed) {
      flush();
      const Byte* key = ++pos;
      while (pos != end && isLetter(*pos)) ++pos;
      operandStack.push_back(new ASTDictKey(std::string(key, pos)));
      pending = pos;
    } else if ((c == '_' || isLetter(c)) && state.abridgedVarAllowed) {
      flush();
      const Byte* identifier = pos;
      while (pos != end && (*pos == '_' || isLetter(*pos) || isDigit(*pos))) ++pos;
      varTagAction->pushVariable(std::string(identifier, pos));
      pending = pos;
    } else if ((isDigit(c) || c == '+' || c == '-') && state.abridgedIntAllowed) {
      flush();
      const Byte* number = pos++;
      while (pos != end && isDigit(*pos)) ++pos;
      openElement("i");
      actionStack.front()->text(String(number, pos), true);
      closeElement();
      pending = pos;
    } else {
      while (pos != end && !isBlank(*pos)) ++pos;
    }
  }
  if (pending != end) actionStack.front()->text(String(pending, end), last);
}

ZELK_XMLPARSER_TEMPLATE
ASTList* ZELK_XMLPARSER::popList() {
  std::unique_ptr<ASTList> list(ASTFactory::mkList());
  for (;;) {
    if (operandStack.empty()) fail("internal error: lost list mark");
    AST* node = operandStack.back();
    operandStack.pop_back();
    if (node == nullptr) break;
    list->push_front(node);
    // "/key" or <entry> outside a dictionary: the node must not reach a tree.
    if (node->getType() == DICT_KEY) fail("dictionary key outside a dictionary");
  }
  return list.release();
}

ZELK_XMLPARSER_TEMPLATE
int ZELK_XMLPARSER::defineSymbol(const std::string& name, CSPDefinitionType type) {
  if (type == UNDEF) fail("Cannot register a symbol without a type");
  if (type > UNDEF) fail("internal error: illegal CSPDefinitionType");
  SymbolInfo& info = symbols[name];
  if (info.type != UNDEF) fail("symbol " + name + " is defined twice");
  info.type = type;
  info.id = int(symbolCount[type]++);
  return info.id;
}

ZELK_XMLPARSER_TEMPLATE
int ZELK_XMLPARSER::getSymbolId(const std::string& name, CSPDefinitionType type) {
  const SymbolInfo& info = getSymbolInfo(name);
  if (type != UNDEF && info.type != type) fail("symbol " + name + " doesn't have the expected type");
  return info.id;
}

ZELK_XMLPARSER_TEMPLATE
const typename ZELK_XMLPARSER::SymbolInfo& ZELK_XMLPARSER::getSymbolInfo(const std::string& name) {
  auto found = symbols.find(name);
  if (found == symbols.end() || found->second.type == UNDEF) fail("symbol " + name + " is undefined");
  return found->second;
}

ZELK_XMLPARSER_TEMPLATE
typename ZELK_XMLPARSER::TagAction* ZELK_XMLPARSER::getParentTagAction(int level) {
  if (level < 0 || std::size_t(level) >= actionStack.size()) return nullptr;
  return actionStack[level];
}

ZELK_XMLPARSER_TEMPLATE
void ZELK_XMLPARSER::xmitExpressionToSolver(AST* tree) {
  if (preferredExpressionRepresentation == TREE) {
    callback.predicateExpression(tree);
    return;
  }
  std::unique_ptr<AST> owned(tree);
  std::ostringstream text;
  owned->expression(text, preferredExpressionRepresentation);
  callback.predicateExpression(text.str());
}

#undef ZELK_XMLPARSER
#undef ZELK_XMLPARSER_TEMPLATE

//==== libxml2 =================================================================

template <class Callback, class ASTFactory>
template <class Event>
void XMLParser_libxml2<Callback, ASTFactory>::guarded(void* user, Event&& event) {
  auto* self = static_cast<XMLParser_libxml2*>(user);
  if (self->pending) return;
  try {
    event(*self);
  } catch (...) {
    self->pending = std::current_exception();
    if (self->context != nullptr) {
      self->pendingLine = xmlSAX2GetLineNumber(self->context);
      xmlStopParser(self->context);
    }
  }
}

template <class Callback, class ASTFactory>
void XMLParser_libxml2<Callback, ASTFactory>::startDocument(void* user) {
  guarded(user, [](XMLParser_libxml2& self) { self.Base::startDocument(); });
}

template <class Callback, class ASTFactory>
void XMLParser_libxml2<Callback, ASTFactory>::endDocument(void*) {}

template <class Callback, class ASTFactory>
void XMLParser_libxml2<Callback, ASTFactory>::startElement(void* user, const unsigned char* name,
                                                           const unsigned char** attributes) {
  guarded(user, [&](XMLParser_libxml2& self) {
    self.Base::startElement(UTF8String(name, nullptr), AttributeList(attributes));
  });
}

template <class Callback, class ASTFactory>
void XMLParser_libxml2<Callback, ASTFactory>::endElement(void* user, const unsigned char* name) {
  guarded(user, [&](XMLParser_libxml2& self) { self.Base::endElement(UTF8String(name, nullptr)); });
}

template <class Callback, class ASTFactory>
void XMLParser_libxml2<Callback, ASTFactory>::characters(void* user, const unsigned char* chars,
                                                         int length) {
  guarded(user, [&](XMLParser_libxml2& self) {
    self.Base::characters(UTF8String(chars, chars + length));
  });
}

template <class Callback, class ASTFactory>
void XMLParser_libxml2<Callback, ASTFactory>::comment(void*, const unsigned char*) {}

template <class Callback, class ASTFactory>
void XMLParser_libxml2<Callback, ASTFactory>::raisePending() {
  std::exception_ptr error = std::exchange(pending, nullptr);
  try {
    std::rethrow_exception(error);
  } catch (const std::runtime_error&) {
    std::cout << "Exception at line " << pendingLine << std::endl;
    throw;
  }
}

namespace {

// For entity declarations libxml2 builds a document of its own even for a SAX
// user ("expat compatibility"); freeing it is the caller's job.
struct context_deleter {
  void operator()(xmlParserCtxtPtr context) const {
    if (context->myDoc != nullptr) xmlFreeDoc(context->myDoc);
    xmlFreeParserCtxt(context);
  }
};

}  // namespace

template <class Callback, class ASTFactory>
int XMLParser_libxml2<Callback, ASTFactory>::parse(std::istream& in) {
  constexpr int bufferSize = 4096;
  std::unique_ptr<char[]> buffer(new char[bufferSize]);

  xmlSAXHandler handler;
  std::memset(&handler, 0, sizeof handler);
  xmlSAXVersion(&handler, 1);
  handler.startDocument = &startDocument;
  handler.endDocument = &endDocument;
  handler.startElement = &startElement;
  handler.endElement = &endElement;
  handler.characters = &characters;
  handler.comment = &comment;
  // libxml2's own handlers take the user data for their parser context, which
  // here it is not: a document type declaration, an entity reference or a
  // processing instruction would make them write into this object. Without a
  // handler libxml2 skips the event; CDATA falls back on `characters`.
  handler.internalSubset = nullptr;
  handler.externalSubset = nullptr;
  handler.isStandalone = nullptr;
  handler.hasInternalSubset = nullptr;
  handler.hasExternalSubset = nullptr;
  handler.resolveEntity = nullptr;
  handler.getEntity = nullptr;
  handler.getParameterEntity = nullptr;
  handler.entityDecl = nullptr;
  handler.notationDecl = nullptr;
  handler.attributeDecl = nullptr;
  handler.elementDecl = nullptr;
  handler.unparsedEntityDecl = nullptr;
  handler.setDocumentLocator = nullptr;
  handler.reference = nullptr;
  handler.processingInstruction = nullptr;
  handler.cdataBlock = nullptr;
  handler.ignorableWhitespace = &characters;
  xmlSubstituteEntitiesDefault(1);

  in.read(buffer.get(), bufferSize);
  int count = int(in.gcount());
  if (count == 0) return 0;

  std::unique_ptr<xmlParserCtxt, context_deleter> owned(
      xmlCreatePushParserCtxt(&handler, this, buffer.get(), count, nullptr));
  if (owned == nullptr) throw std::bad_alloc();
  context = owned.get();
  struct forget_context {
    _xmlParserCtxt*& context;
    ~forget_context() { context = nullptr; }
  } forget{context};

  while (in.good()) {
    in.read(buffer.get(), bufferSize);
    count = int(in.gcount());
    if (count > 0) xmlParseChunk(context, buffer.get(), count, 0);
    if (pending) raisePending();
  }
  xmlParseChunk(context, buffer.get(), 0, 1);
  if (pending) raisePending();
  owned.reset();
  xmlCleanupParser();
  return 0;
}

template class XMLParser<CSPParserCallback, DefaultASTFactory, UTF8String, AttributeList>;
template class XMLParser_libxml2<CSPParserCallback, DefaultASTFactory>;

}  // namespace CSPXMLParser
