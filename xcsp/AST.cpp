// Expression trees: evaluation, printing in prefix, infix, postfix and MathML
// form, and the plain C copy. Arithmetic is on 32-bit values that wrap around;
// the wrapping is done on unsigned values so that no input is undefined.
#include "xcsp/AST.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>

namespace CSPXMLParser {

namespace {

[[noreturn]] void fail(const char* message) { throw std::runtime_error(message); }

int wrap(unsigned v) { return int(v); }
int add(int a, int b) { return wrap(unsigned(a) + unsigned(b)); }
int sub(int a, int b) { return wrap(unsigned(a) - unsigned(b)); }
int mul(int a, int b) { return wrap(unsigned(a) * unsigned(b)); }
int neg(int a) { return wrap(0u - unsigned(a)); }

// Names are static strings; a function class that lacks one prints nothing
// rather than handing a null char* to a stream.
const char* text_of(const char* name) { return name ? name : ""; }

bool fits32(std::int64_t v) { return v >= INT_MIN && v <= INT_MAX; }

template <class Record>
Record* new_record(NodeType type) {
  Record* r = static_cast<Record*>(std::malloc(sizeof(Record)));
  if (!r) throw std::bad_alloc();
  r->type = type;
  return r;
}

template <class T>
T* new_array(std::size_t n) {
  if (n == 0) return nullptr;
  T* a = static_cast<T*>(std::calloc(n, sizeof(T)));
  if (!a) throw std::bad_alloc();
  return a;
}

char* duplicate(const std::string& s) {
  char* d = static_cast<char*>(std::malloc(s.size() + 1));
  if (!d) throw std::bad_alloc();
  std::memcpy(d, s.c_str(), s.size() + 1);
  return d;
}

// A child of a node under construction, or null for a missing argument. The
// parent record is already linked, so C_DeleteTree frees it all on failure.
C_AST* copy_child(const AST* child) { return child ? child->makeCTree() : nullptr; }

}  // namespace

void C_DeleteTree(C_AST* tree) {
  if (!tree) return;
  switch (tree->type) {
    case VAR:
      std::free(reinterpret_cast<C_AST_VarNode*>(tree)->varName);
      break;
    case LIST: {
      C_AST_ListNode* l = reinterpret_cast<C_AST_ListNode*>(tree);
      for (int i = 0; i < l->size; ++i) C_DeleteTree(l->items[i]);
      std::free(l->items);
      break;
    }
    case DICT: {
      C_AST_DictNode* d = reinterpret_cast<C_AST_DictNode*>(tree);
      for (int i = 0; i < d->size; ++i) {
        std::free(d->entries[i].key);
        C_DeleteTree(d->entries[i].value);
      }
      std::free(d->entries);
      break;
    }
    default:
      if (tree->type >= F_NEG && tree->type <= F_IFF) {
        C_AST_FxNode* f = reinterpret_cast<C_AST_FxNode*>(tree);
        for (int i = 0; i < f->nbarg; ++i) C_DeleteTree(f->args[i]);
        std::free(f->args);
      }
      break;
  }
  std::free(tree);
}

//==== AST =====================================================================

AST::~AST() {}

int AST::nbArg() const { return 0; }

AST* AST::getArg(int) const { fail("request for an non existing child of an AST node"); }

void AST::expression(std::ostream& out, Syntax syntax) const {
  switch (syntax) {
    case TREE:
      fail("can't use this method to get an AST");
    case PREFIX:
      prefixExpression(out);
      break;
    case INFIX:
      infixExpression(out);
      break;
    case POSTFIX:
      postfixExpression(out);
      break;
    case MATHML:
      out << "<math>\n";
      mathmlExpressionRec(out);
      out << "</math>\n";
      break;
    default:
      fail("undefined syntax for an expressioin");
  }
}

AST* AST::operator[](const std::string& key) const {
  return dynamic_cast<const ASTDict&>(*this).getArg(key);
}

//==== ASTSymb =================================================================

int ASTSymb::value(const VariableValuation&) const {
  fail("no valuation defined for a symbolic constant");
}

AST* ASTSymb::getArg(int) const { fail("abstract method called"); }

void ASTSymb::prefixExpression(std::ostream& out) const { infixExpression(out); }

void ASTSymb::infixExpression(std::ostream& out) const {
  switch (type) {
    case SYMB_NIL: out << "nil"; break;
    case SYMB_EQ: out << "=="; break;
    case SYMB_NE: out << "!="; break;
    case SYMB_GE: out << ">="; break;
    case SYMB_GT: out << ">"; break;
    case SYMB_LE: out << "<="; break;
    case SYMB_LT: out << "<"; break;
    default: fail("unimplemented");
  }
}

void ASTSymb::postfixExpression(std::ostream& out) const { infixExpression(out); }

void ASTSymb::mathmlExpressionRec(std::ostream&) const { fail("unimplemented"); }

void ASTSymb::setArg(int, AST* child) {
  delete child;
  fail("abstract method called");
}

C_AST* ASTSymb::makeCTree() const { return new_record<C_AST>(type); }

//==== ASTVar ==================================================================

int ASTVar::value(const VariableValuation& valuation) const { return valuation.getVarValue(id); }

void ASTVar::prefixExpression(std::ostream& out) const { out << name << "/$" << id; }

void ASTVar::infixExpression(std::ostream& out) const { out << "parm[" << id << "]"; }

void ASTVar::postfixExpression(std::ostream& out) const { prefixExpression(out); }

void ASTVar::mathmlExpressionRec(std::ostream& out) const { out << "  <ci>" << name << "</ci>\n"; }

void ASTVar::setArg(int, AST* child) {
  delete child;
  fail("a variable cannot have any argument");
}

C_AST* ASTVar::makeCTree() const {
  C_AST_VarNode* r = new_record<C_AST_VarNode>(VAR);
  r->varName = nullptr;
  r->idVar = id;
  try {
    r->varName = duplicate(name);
  } catch (...) {
    std::free(r);
    throw;
  }
  return reinterpret_cast<C_AST*>(r);
}

//==== ASTInteger, ASTBoolean ==================================================

int ASTInteger::value(const VariableValuation&) const { return val; }

void ASTInteger::prefixExpression(std::ostream& out) const { out << val; }

void ASTInteger::infixExpression(std::ostream& out) const { out << val; }

void ASTInteger::postfixExpression(std::ostream& out) const { out << val; }

void ASTInteger::mathmlExpressionRec(std::ostream& out) const { out << "  <cn>" << val << "</cn>\n"; }

void ASTInteger::setArg(int, AST* child) {
  delete child;
  fail("a constant cannot have any argument");
}

C_AST* ASTInteger::makeCTree() const {
  C_AST_CstNode* r = new_record<C_AST_CstNode>(CST_INT);
  r->val = val;
  return reinterpret_cast<C_AST*>(r);
}

int ASTBoolean::value(const VariableValuation&) const { return val ? 1 : 0; }

void ASTBoolean::prefixExpression(std::ostream& out) const { out << (val ? "true" : "false"); }

void ASTBoolean::infixExpression(std::ostream& out) const { prefixExpression(out); }

void ASTBoolean::postfixExpression(std::ostream& out) const { prefixExpression(out); }

void ASTBoolean::mathmlExpressionRec(std::ostream& out) const {
  out << (val ? "  <true/>\n" : "  <false/>\n");
}

void ASTBoolean::setArg(int, AST* child) {
  delete child;
  fail("a constant cannot have any argument");
}

C_AST* ASTBoolean::makeCTree() const {
  C_AST_CstNode* r = new_record<C_AST_CstNode>(CST_BOOL);
  r->val = val ? 1 : 0;
  return reinterpret_cast<C_AST*>(r);
}

//==== ASTList =================================================================

ASTList::~ASTList() { clear(); }

void ASTList::clear() {
  for (AST* child : list) delete child;
  list.clear();
}

int ASTList::value(const VariableValuation&) const { fail("no valuation defined for a list"); }

AST* ASTList::getArg(int i) const {
  if (i < 0 || i >= nbArg()) AST::getArg(i);
  return list[std::size_t(i)];
}

void ASTList::prefixExpression(std::ostream& out) const {
  out << "[";
  for (const AST* child : list) {
    out << " ";
    if (child) child->prefixExpression(out);
  }
  out << " ]";
}

void ASTList::infixExpression(std::ostream& out) const {
  out << "[";
  for (const AST* child : list) {
    out << " ";
    if (child) child->infixExpression(out);
  }
  out << " ]";
}

void ASTList::postfixExpression(std::ostream& out) const {
  out << "[";
  for (const AST* child : list) {
    out << " ";
    if (child) child->postfixExpression(out);
  }
  out << " ]";
}

void ASTList::mathmlExpressionRec(std::ostream&) const { fail("unimplemented"); }

void ASTList::setArg(int, AST* child) {
  delete child;
  fail("abstract method called");
}

C_AST* ASTList::makeCTree() const {
  C_AST_ListNode* r = new_record<C_AST_ListNode>(LIST);
  r->size = 0;
  r->items = nullptr;
  try {
    r->items = new_array<C_AST*>(list.size());
    for (const AST* child : list) {
      r->items[r->size] = copy_child(child);
      ++r->size;
    }
  } catch (...) {
    C_DeleteTree(reinterpret_cast<C_AST*>(r));
    throw;
  }
  return reinterpret_cast<C_AST*>(r);
}

//==== ASTDict =================================================================

ASTDict::~ASTDict() {
  for (auto& entry : entries) delete entry.second;
}

int ASTDict::value(const VariableValuation&) const { fail("no valuation defined for a dict"); }

AST* ASTDict::getArg(int) const { fail("dictionaries can't be accessed by index"); }

void ASTDict::setArg(int, AST* child) {
  delete child;
  fail("dictionaries can't be accessed by index");
}

AST* ASTDict::getArg(const std::string& key) const {
  auto it = entries.find(key);
  if (it == entries.end()) fail("couldn't find key in dictionary");
  return it->second;
}

void ASTDict::setArg(const std::string& key, AST* value) {
  auto inserted = entries.emplace(key, value);
  if (!inserted.second) {
    delete value;
    fail("multiple assignments to the same key in dictionary");
  }
}

void ASTDict::prefixExpression(std::ostream& out) const {
  out << "{";
  for (const auto& entry : entries) {
    out << " /" << entry.first << " ";
    if (entry.second) entry.second->prefixExpression(out);
  }
  out << " }";
}

void ASTDict::infixExpression(std::ostream& out) const {
  out << "{";
  for (const auto& entry : entries) {
    out << " /" << entry.first << " ";
    if (entry.second) entry.second->infixExpression(out);
  }
  out << " }";
}

void ASTDict::postfixExpression(std::ostream& out) const {
  out << "{";
  for (const auto& entry : entries) {
    out << " /" << entry.first << " ";
    if (entry.second) entry.second->postfixExpression(out);
  }
  out << " }";
}

void ASTDict::mathmlExpressionRec(std::ostream&) const { fail("unimplemented"); }

C_AST* ASTDict::makeCTree() const {
  C_AST_DictNode* r = new_record<C_AST_DictNode>(DICT);
  r->size = 0;
  r->entries = nullptr;
  try {
    r->entries = new_array<C_AST_DictEntry>(entries.size());
    for (const auto& entry : entries) {
      C_AST_DictEntry& e = r->entries[r->size];
      ++r->size;
      e.key = duplicate(entry.first);
      e.value = copy_child(entry.second);
    }
  } catch (...) {
    C_DeleteTree(reinterpret_cast<C_AST*>(r));
    throw;
  }
  return reinterpret_cast<C_AST*>(r);
}

//==== ASTDictKey ==============================================================

int ASTDictKey::value(const VariableValuation&) const { fail("abstract method called"); }
void ASTDictKey::prefixExpression(std::ostream&) const { fail("abstract method called"); }
void ASTDictKey::infixExpression(std::ostream&) const { fail("abstract method called"); }
void ASTDictKey::postfixExpression(std::ostream&) const { fail("abstract method called"); }
void ASTDictKey::mathmlExpressionRec(std::ostream&) const { fail("abstract method called"); }

void ASTDictKey::setArg(int, AST* child) {
  delete child;
  fail("abstract method called");
}

C_AST* ASTDictKey::makeCTree() const { fail("abstract method called"); }

//==== ASTAbstractFunction =====================================================

ASTAbstractFunction::ASTAbstractFunction(int nbarg, const char* prefixName, const char* infixName,
                                         const char* mathmlName, NodeType type)
    : nbarg(nbarg),
      args(nullptr),
      prefixName(prefixName),
      infixName(infixName),
      mathmlName(mathmlName),
      type(type) {
  if (nbarg < 0) fail("number of arguments cannot be negative");
  if (nbarg > 0) args = new AST*[std::size_t(nbarg)]();
}

ASTAbstractFunction::~ASTAbstractFunction() {
  for (int i = 0; i < nbarg; ++i) delete args[i];
  delete[] args;
}

AST* ASTAbstractFunction::getArg(int i) const {
  if (i < 0 || i >= nbarg) AST::getArg(i);
  return args[i];
}

void ASTAbstractFunction::setArg(int i, AST* child) {
  if (i < 0 || i >= nbarg) {
    delete child;
    fail("incorrect argument number");
  }
  delete args[i];
  args[i] = child;
}

void ASTAbstractFunction::checkargs() const {
  for (int i = 0; i < nbarg; ++i)
    if (!args[i]) fail("missing argument for a function");
}

void ASTAbstractFunction::prefixExpression(std::ostream& out) const {
  out << text_of(prefixName) << "(";
  for (int i = 0; i < nbarg; ++i) {
    if (i > 0) out << ",";
    if (args[i]) args[i]->prefixExpression(out);
  }
  out << ")";
}

void ASTAbstractFunction::infixExpression(std::ostream& out) const {
  if (infixName) {
    if (nbarg == 2) {
      out << "(";
      if (args[0]) args[0]->infixExpression(out);
      out << infixName;
      if (args[1]) args[1]->infixExpression(out);
      out << ")";
    } else if (nbarg == 1) {
      out << infixName << "(";
      if (args[0]) args[0]->infixExpression(out);
      out << ")";
    } else {
      fail("unexpected arity");
    }
    return;
  }
  out << text_of(prefixName) << "(";
  for (int i = 0; i < nbarg; ++i) {
    if (i > 0) out << ",";
    if (args[i]) args[i]->infixExpression(out);
  }
  out << ")";
}

void ASTAbstractFunction::postfixExpression(std::ostream& out) const {
  for (int i = 0; i < nbarg; ++i) {
    if (i > 0) out << " ";
    if (args[i]) args[i]->postfixExpression(out);
  }
  out << " " << text_of(prefixName);
}

void ASTAbstractFunction::mathmlExpressionRec(std::ostream& out) const {
  // A function without a MathML element of its own shows its prefix name.
  out << "  <apply>\n  <" << text_of(mathmlName ? mathmlName : prefixName) << "/>\n";
  for (int i = 0; i < nbarg; ++i)
    if (args[i]) args[i]->mathmlExpressionRec(out);
  out << "  </apply>\n";
}

C_AST* ASTAbstractFunction::makeCTree() const {
  C_AST_FxNode* r = new_record<C_AST_FxNode>(type);
  r->nbarg = 0;
  r->args = nullptr;
  try {
    r->args = new_array<C_AST*>(std::size_t(nbarg));
    for (int i = 0; i < nbarg; ++i) {
      r->args[i] = copy_child(args[i]);
      ++r->nbarg;
    }
  } catch (...) {
    C_DeleteTree(reinterpret_cast<C_AST*>(r));
    throw;
  }
  return reinterpret_cast<C_AST*>(r);
}

//==== Functions ===============================================================

FunctionNeg::FunctionNeg() : ASTAbstractFunction(1, "neg", nullptr, "minus", F_NEG) {}
FunctionAbs::FunctionAbs() : ASTAbstractFunction(1, "abs", nullptr, "abs", F_ABS) {}
FunctionAdd::FunctionAdd() : ASTAbstractFunction(2, "add", "+", "plus", F_ADD) {}
FunctionSub::FunctionSub() : ASTAbstractFunction(2, "sub", "-", "minus", F_SUB) {}
FunctionMul::FunctionMul() : ASTAbstractFunction(2, "mul", "*", "times", F_MUL) {}
FunctionDiv::FunctionDiv() : ASTAbstractFunction(2, "div", "/", "quotient", F_DIV) {}
FunctionMod::FunctionMod() : ASTAbstractFunction(2, "mod", "%", "rem", F_MOD) {}
FunctionPow::FunctionPow() : ASTAbstractFunction(2, "pow", nullptr, "power", F_POW) {}
FunctionIf::FunctionIf() : ASTAbstractFunction(3, "if", nullptr, nullptr, F_IF) {}
FunctionMin::FunctionMin() : ASTAbstractFunction(2, "min", nullptr, "min", F_MIN) {}
FunctionMax::FunctionMax() : ASTAbstractFunction(2, "max", nullptr, "max", F_MAX) {}
FunctionEQ::FunctionEQ() : ASTAbstractFunction(2, "eq", "==", "eq", F_EQ) {}
FunctionNE::FunctionNE() : ASTAbstractFunction(2, "ne", "!=", "neq", F_NE) {}
FunctionGE::FunctionGE() : ASTAbstractFunction(2, "ge", ">=", "geq", F_GE) {}
FunctionGT::FunctionGT() : ASTAbstractFunction(2, "gt", ">", "gt", F_GT) {}
FunctionLE::FunctionLE() : ASTAbstractFunction(2, "le", "<=", "leq", F_LE) {}
FunctionLT::FunctionLT() : ASTAbstractFunction(2, "lt", "<", "lt", F_LT) {}
FunctionNot::FunctionNot() : ASTAbstractFunction(1, "not", "!", "not", F_NOT) {}
FunctionAnd::FunctionAnd() : ASTAbstractFunction(2, "and", "&&", "and", F_AND) {}
FunctionOr::FunctionOr() : ASTAbstractFunction(2, "or", "||", "or", F_OR) {}
FunctionXor::FunctionXor() : ASTAbstractFunction(2, "xor", "^", "xor", F_XOR) {}
FunctionIff::FunctionIff() : ASTAbstractFunction(2, "iff", "==", "equivalent", F_IFF) {}

int FunctionNeg::value(const VariableValuation& v) const {
  checkargs();
  return neg(args[0]->value(v));
}

void FunctionNeg::infixExpression(std::ostream& out) const {
  out << "-(";
  if (args[0]) args[0]->infixExpression(out);
  out << ")";
}

int FunctionAbs::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a < 0 ? neg(a) : a;
}

int FunctionAdd::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return add(a, args[1]->value(v));
}

int FunctionSub::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return sub(a, args[1]->value(v));
}

int FunctionMul::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return mul(a, args[1]->value(v));
}

// The least integer divided by -1 wraps around to itself, as its negation does.
int FunctionDiv::value(const VariableValuation& v) const {
  checkargs();
  const int d = args[1]->value(v);
  if (d == 0) fail("divide by 0");
  const int n = args[0]->value(v);
  if (d == -1) return neg(n);
  return n / d;
}

int FunctionMod::value(const VariableValuation& v) const {
  checkargs();
  const int d = args[1]->value(v);
  if (d == 0) fail("modulo by 0");
  const int n = args[0]->value(v);
  if (d == -1) return 0;
  return n % d;
}

// Square and multiply on 64 bits, each factor checked to fit 32 bits before it
// is used. A negative exponent is walked as its 32-bit unsigned pattern, which
// bounds the loop: bases 1 and -1 then give the exact 1/x^-y, larger bases end
// in the overflow error, and base 0 is a division by zero.
int FunctionPow::value(const VariableValuation& v) const {
  checkargs();
  const int x = args[0]->value(v);
  const int y = args[1]->value(v);
  if (x == 0 && y == 0) fail("pow(0,0) is undefined");
  if (x == 0 && y < 0) fail("divide by 0");
  std::int64_t r = 1;
  std::int64_t b = x;
  unsigned e = unsigned(y);
  while (e != 0) {
    if (!fits32(r) || !fits32(b)) fail("overflow in pow(x,y) computation");
    if (e & 1) r *= b;
    e >>= 1;
    b *= b;
  }
  if (!fits32(r)) fail("overflow in pow(x,y) computation");
  return int(r);
}

int FunctionIf::value(const VariableValuation& v) const {
  checkargs();
  return args[0]->value(v) != 0 ? args[1]->value(v) : args[2]->value(v);
}

void FunctionIf::mathmlExpressionRec(std::ostream& out) const {
  out << "  <piecewise>\n  <piece>\n";
  if (args[1]) args[1]->mathmlExpressionRec(out);
  if (args[0]) args[0]->mathmlExpressionRec(out);
  out << "  </piece>\n  <otherwise>\n";
  if (args[2]) args[2]->mathmlExpressionRec(out);
  out << "  </otherwise>\n  </piecewise>\n";
}

int FunctionMin::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  const int b = args[1]->value(v);
  return a < b ? a : b;
}

int FunctionMax::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  const int b = args[1]->value(v);
  return a > b ? a : b;
}

int FunctionEQ::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a == args[1]->value(v);
}

int FunctionNE::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a != args[1]->value(v);
}

int FunctionGE::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a >= args[1]->value(v);
}

int FunctionGT::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a > args[1]->value(v);
}

int FunctionLE::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a <= args[1]->value(v);
}

int FunctionLT::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a < args[1]->value(v);
}

int FunctionNot::value(const VariableValuation& v) const {
  checkargs();
  return args[0]->value(v) == 0;
}

int FunctionAnd::value(const VariableValuation& v) const {
  checkargs();
  return args[0]->value(v) != 0 && args[1]->value(v) != 0;
}

int FunctionOr::value(const VariableValuation& v) const {
  checkargs();
  return args[0]->value(v) != 0 || args[1]->value(v) != 0;
}

int FunctionXor::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a ^ args[1]->value(v);
}

int FunctionIff::value(const VariableValuation& v) const {
  checkargs();
  const int a = args[0]->value(v);
  return a == args[1]->value(v);
}

}  // namespace CSPXMLParser
