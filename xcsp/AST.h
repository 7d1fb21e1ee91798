// Expression trees shared by every front-end: the node classes, their evaluation
// under a VariableValuation, the four printed forms and the plain C copy
// (makeCTree). Every node owns its children; a null child is a missing argument.
#ifndef ZELK_XCSP_AST_H
#define ZELK_XCSP_AST_H

#include <cstdint>
#include <deque>
#include <iosfwd>
#include <map>
#include <string>

namespace CSPXMLParser {

// The numbering is fixed: builders and readers dispatch on it.
enum NodeType : std::int32_t {
  VAR = 0,
  CST_BOOL = 1,
  CST_INT = 2,
  LIST = 3,
  DICT = 4,
  F_NEG = 5,
  F_ABS = 6,
  F_ADD = 7,
  F_SUB = 8,
  F_MUL = 9,
  F_DIV = 10,
  F_MOD = 11,
  F_POW = 12,
  F_IF = 13,
  F_MIN = 14,
  F_MAX = 15,
  F_EQ = 16,
  F_NE = 17,
  F_GE = 18,
  F_GT = 19,
  F_LE = 20,
  F_LT = 21,
  F_NOT = 22,
  F_AND = 23,
  F_OR = 24,
  F_XOR = 25,
  F_IFF = 26,
  SYMB_NIL = 27,
  SYMB_EQ = 28,
  SYMB_NE = 29,
  SYMB_GE = 30,
  SYMB_GT = 31,
  SYMB_LE = 32,
  SYMB_LT = 33,
  DICT_KEY = 34
};

enum Syntax { TREE = 0, PREFIX = 1, INFIX = 2, POSTFIX = 3, MATHML = 4 };

// An assignment of the variables of a tree, by the id of their ASTVar.
class VariableValuation {
 public:
  virtual ~VariableValuation() {}
  virtual int getVarValue(int id) const = 0;
};

//==== Plain C copy of a tree (makeCTree) =====================================
// Every record starts with its NodeType, so a consumer reads the type through
// C_AST and then casts. Names are strdup'ed, records and arrays malloc'ed.

struct C_AST {
  NodeType type;
};

struct C_AST_VarNode {
  NodeType type;
  char* varName;
  int idVar;
};

// CST_INT and CST_BOOL (0 or 1).
struct C_AST_CstNode {
  NodeType type;
  int val;
};

struct C_AST_ListNode {
  NodeType type;
  std::int32_t size;
  C_AST** items;
};

struct C_AST_DictEntry {
  char* key;
  C_AST* value;
};

struct C_AST_DictNode {
  NodeType type;
  std::int32_t size;
  C_AST_DictEntry* entries;
};

// F_NEG to F_IFF; a missing argument is a null pointer.
struct C_AST_FxNode {
  NodeType type;
  std::int32_t nbarg;
  C_AST** args;
};

// Frees a tree made by makeCTree; null is allowed.
void C_DeleteTree(C_AST* tree);

//==== Node classes ============================================================

class AST {
 public:
  AST() = default;
  AST(const AST&) = delete;
  AST& operator=(const AST&) = delete;

  virtual ~AST();
  virtual int value(const VariableValuation& valuation) const = 0;
  virtual int nbArg() const;
  virtual AST* getArg(int i) const;
  virtual NodeType getType() const = 0;
  virtual void prefixExpression(std::ostream& out) const = 0;
  virtual void infixExpression(std::ostream& out) const = 0;
  virtual void postfixExpression(std::ostream& out) const = 0;
  virtual void mathmlExpressionRec(std::ostream& out) const = 0;
  virtual void setArg(int i, AST* child) = 0;
  virtual C_AST* makeCTree() const = 0;

  void expression(std::ostream& out, Syntax syntax) const;
  // The value under `key` of a dictionary node; std::bad_cast on other nodes.
  AST* operator[](const std::string& key) const;
};

// A symbolic constant of the parameters of a global constraint (nil, eq, ...).
class ASTSymb : public AST {
 public:
  explicit ASTSymb(NodeType type) : type(type) {}

  int value(const VariableValuation& valuation) const override;
  AST* getArg(int i) const override;
  NodeType getType() const override { return type; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;

  NodeType type;
};

class ASTVar : public AST {
 public:
  explicit ASTVar(const std::string& name, int id = -1) : name(name), id(id) {}

  int value(const VariableValuation& valuation) const override;
  NodeType getType() const override { return VAR; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;

  std::string name;
  // Symbol number in a document, formal parameter index in a predicate, or -1.
  int id;
};

class ASTInteger : public AST {
 public:
  explicit ASTInteger(int val) : val(val) {}

  int value(const VariableValuation& valuation) const override;
  NodeType getType() const override { return CST_INT; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;

  int val;
};

class ASTBoolean : public AST {
 public:
  explicit ASTBoolean(bool val) : val(val) {}

  int value(const VariableValuation& valuation) const override;
  NodeType getType() const override { return CST_BOOL; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;

  bool val;
};

class ASTList : public AST {
 public:
  ASTList() = default;
  ~ASTList() override;

  int value(const VariableValuation& valuation) const override;
  int nbArg() const override { return int(list.size()); }
  AST* getArg(int i) const override;
  NodeType getType() const override { return LIST; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;

  // Both take ownership of `child`.
  void push_back(AST* child) { list.push_back(child); }
  void push_front(AST* child) { list.push_front(child); }
  // Deletes the children and empties the list.
  void clear();

  std::deque<AST*> list;
};

class ASTDict : public AST {
 public:
  ASTDict() = default;
  ~ASTDict() override;

  int value(const VariableValuation& valuation) const override;
  int nbArg() const override { return int(entries.size()); }
  AST* getArg(int i) const override;
  NodeType getType() const override { return DICT; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;
  virtual AST* getArg(const std::string& key) const;
  // Takes ownership of `value`, also when it raises.
  virtual void setArg(const std::string& key, AST* value);

  std::map<std::string, AST*> entries;
};

// A pending dictionary key on the reader's operand stack; never part of a tree.
class ASTDictKey : public AST {
 public:
  explicit ASTDictKey(const std::string& key) : key(key) {}

  int value(const VariableValuation& valuation) const override;
  NodeType getType() const override { return DICT_KEY; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;

  std::string key;
};

// A function of fixed arity. The names point to static strings; infixName and
// mathmlName may be null.
class ASTAbstractFunction : public AST {
 public:
  ASTAbstractFunction(int nbarg, const char* prefixName, const char* infixName,
                      const char* mathmlName, NodeType type);
  ~ASTAbstractFunction() override;

  int nbArg() const override { return nbarg; }
  AST* getArg(int i) const override;
  NodeType getType() const override { return type; }
  void prefixExpression(std::ostream& out) const override;
  void infixExpression(std::ostream& out) const override;
  void postfixExpression(std::ostream& out) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  // Takes ownership of `child`, also when it raises.
  void setArg(int i, AST* child) override;
  C_AST* makeCTree() const override;
  // A new, childless node of the same class.
  virtual ASTAbstractFunction* makeNode() const = 0;

  int nbarg;
  AST** args;
  const char* prefixName;
  const char* infixName;
  const char* mathmlName;
  NodeType type;

 protected:
  // Raises "missing argument for a function" at the first null argument.
  void checkargs() const;
};

#define ZELK_XCSP_FUNCTION_CLASS(NAME)                                   \
  class NAME : public ASTAbstractFunction {                             \
   public:                                                              \
    NAME();                                                             \
    int value(const VariableValuation& valuation) const override;       \
    ASTAbstractFunction* makeNode() const override { return new NAME; } \
  };

ZELK_XCSP_FUNCTION_CLASS(FunctionAbs)
ZELK_XCSP_FUNCTION_CLASS(FunctionAdd)
ZELK_XCSP_FUNCTION_CLASS(FunctionSub)
ZELK_XCSP_FUNCTION_CLASS(FunctionMul)
ZELK_XCSP_FUNCTION_CLASS(FunctionDiv)
ZELK_XCSP_FUNCTION_CLASS(FunctionMod)
ZELK_XCSP_FUNCTION_CLASS(FunctionPow)
ZELK_XCSP_FUNCTION_CLASS(FunctionMin)
ZELK_XCSP_FUNCTION_CLASS(FunctionMax)
ZELK_XCSP_FUNCTION_CLASS(FunctionEQ)
ZELK_XCSP_FUNCTION_CLASS(FunctionNE)
ZELK_XCSP_FUNCTION_CLASS(FunctionGE)
ZELK_XCSP_FUNCTION_CLASS(FunctionGT)
ZELK_XCSP_FUNCTION_CLASS(FunctionLE)
ZELK_XCSP_FUNCTION_CLASS(FunctionLT)
ZELK_XCSP_FUNCTION_CLASS(FunctionNot)
ZELK_XCSP_FUNCTION_CLASS(FunctionAnd)
ZELK_XCSP_FUNCTION_CLASS(FunctionOr)
ZELK_XCSP_FUNCTION_CLASS(FunctionXor)
ZELK_XCSP_FUNCTION_CLASS(FunctionIff)

#undef ZELK_XCSP_FUNCTION_CLASS

// Infix form "-(x)": the prefix name would read as a variable.
class FunctionNeg : public ASTAbstractFunction {
 public:
  FunctionNeg();
  int value(const VariableValuation& valuation) const override;
  void infixExpression(std::ostream& out) const override;
  ASTAbstractFunction* makeNode() const override { return new FunctionNeg; }
};

// MathML has no "if" element: the conditional prints as a <piecewise>.
class FunctionIf : public ASTAbstractFunction {
 public:
  FunctionIf();
  int value(const VariableValuation& valuation) const override;
  void mathmlExpressionRec(std::ostream& out) const override;
  ASTAbstractFunction* makeNode() const override { return new FunctionIf; }
};

}  // namespace CSPXMLParser

#endif
