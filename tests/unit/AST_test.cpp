// Expression trees: evaluation of random trees against an independent
// evaluator, the arithmetic edge cases, the printed forms, the C copy and
// every message a tree raises.
#include "xcsp/AST.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "random_trees.h"

namespace CSPXMLParser {
namespace {

using random_trees::evaluate;
using random_trees::outcome;

std::string print(const AST& ast, Syntax syntax) {
  std::ostringstream out;
  ast.expression(out, syntax);
  return out.str();
}

AST* num(int v) { return new ASTInteger(v); }

template <class F>
std::unique_ptr<AST> fn(AST* a, AST* b = nullptr, AST* c = nullptr) {
  std::unique_ptr<AST> f(new F);
  AST* args[] = {a, b, c};
  for (int i = 0; i < 3; ++i)
    if (i < f->nbArg()) f->setArg(i, args[i]);
  return f;
}

outcome eval(const AST& ast) { return evaluate(ast, {}); }

void expect_value(const AST& ast, int expected) {
  const outcome o = eval(ast);
  EXPECT_TRUE(o.ok) << o.error;
  EXPECT_EQ(o.value, expected);
}

void expect_error(const AST& ast, const std::string& message) {
  const outcome o = eval(ast);
  EXPECT_FALSE(o.ok) << "value " << o.value;
  EXPECT_EQ(o.error, message);
}

TEST(AST, random_trees_evaluate_as_the_independent_evaluator) {
  const unsigned seed = 20240611;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  int values_seen = 0;
  for (int round = 0; round < 3000; ++round) {
    auto t = random_trees::random_tree(rng, 5, round % 2 == 0 ? 0 : 20);
    auto ast = random_trees::build(*t);
    for (int k = 0; k < 4; ++k) {
      std::vector<int> values;
      for (int v = 0; v < random_trees::VARIABLES; ++v) values.push_back(random_trees::random_value(rng));
      const outcome want = random_trees::evaluator(values)(*t);
      const outcome got = evaluate(*ast, values);
      ASSERT_EQ(got.ok, want.ok) << print(*ast, PREFIX) << " gave " << got.error << got.value;
      ASSERT_EQ(got.value, want.value) << print(*ast, PREFIX);
      ASSERT_EQ(got.error, want.error) << print(*ast, PREFIX);
      values_seen += got.ok;
    }
  }
  // The trees are not all failures: most evaluate to a value.
  EXPECT_GT(values_seen, 6000);
}

TEST(AST, arithmetic_wraps_around_in_32_bits) {
  expect_value(*fn<FunctionAdd>(num(INT_MAX), num(1)), INT_MIN);
  expect_value(*fn<FunctionSub>(num(INT_MIN), num(1)), INT_MAX);
  expect_value(*fn<FunctionMul>(num(65536), num(65536)), 0);
  expect_value(*fn<FunctionMul>(num(INT_MIN), num(-1)), INT_MIN);
  expect_value(*fn<FunctionNeg>(num(INT_MIN)), INT_MIN);
  expect_value(*fn<FunctionAbs>(num(INT_MIN)), INT_MIN);
  // No quotient of the least integer by -1 fits: it wraps like the negation.
  expect_value(*fn<FunctionDiv>(num(INT_MIN), num(-1)), INT_MIN);
  expect_value(*fn<FunctionMod>(num(INT_MIN), num(-1)), 0);
  expect_value(*fn<FunctionDiv>(num(-7), num(2)), -3);
  expect_value(*fn<FunctionMod>(num(-7), num(2)), -1);
  expect_value(*fn<FunctionMod>(num(7), num(-2)), 1);
}

TEST(AST, pow_edge_cases) {
  expect_value(*fn<FunctionPow>(num(2), num(30)), 1073741824);
  expect_error(*fn<FunctionPow>(num(2), num(31)), "overflow in pow(x,y) computation");
  expect_error(*fn<FunctionPow>(num(0), num(0)), "pow(0,0) is undefined");
  expect_value(*fn<FunctionPow>(num(0), num(5)), 0);
  expect_value(*fn<FunctionPow>(num(-2), num(3)), -8);
  expect_value(*fn<FunctionPow>(num(-2), num(31)), INT_MIN);
  // The square computed after the last factor overflows unused.
  expect_value(*fn<FunctionPow>(num(65536), num(1)), 65536);
  expect_value(*fn<FunctionPow>(num(46341), num(1)), 46341);
  expect_error(*fn<FunctionPow>(num(46341), num(2)), "overflow in pow(x,y) computation");
  // Negative exponents end: exact for bases 1 and -1, a division by zero for
  // 0, an overflow otherwise.
  expect_value(*fn<FunctionPow>(num(1), num(-5)), 1);
  expect_value(*fn<FunctionPow>(num(1), num(INT_MIN)), 1);
  expect_value(*fn<FunctionPow>(num(-1), num(-3)), -1);
  expect_value(*fn<FunctionPow>(num(-1), num(-4)), 1);
  expect_value(*fn<FunctionPow>(num(-1), num(INT_MIN)), 1);
  expect_error(*fn<FunctionPow>(num(0), num(-1)), "divide by 0");
  expect_error(*fn<FunctionPow>(num(2), num(-1)), "overflow in pow(x,y) computation");
  expect_error(*fn<FunctionPow>(num(-3), num(INT_MIN)), "overflow in pow(x,y) computation");
}

TEST(AST, logic_evaluates_only_what_decides) {
  expect_value(*fn<FunctionIf>(num(0), fn<FunctionDiv>(num(1), num(0)).release(), num(7)), 7);
  expect_value(*fn<FunctionIf>(num(-3), num(5), fn<FunctionMod>(num(1), num(0)).release()), 5);
  expect_value(*fn<FunctionAnd>(num(0), fn<FunctionDiv>(num(1), num(0)).release()), 0);
  expect_value(*fn<FunctionOr>(num(2), fn<FunctionDiv>(num(1), num(0)).release()), 1);
  expect_value(*fn<FunctionAnd>(num(2), num(-1)), 1);
  expect_value(*fn<FunctionXor>(num(1), num(3)), 2);
  expect_value(*fn<FunctionIff>(num(1), num(3)), 0);
  expect_value(*fn<FunctionNot>(num(-4)), 0);
  // The divisor goes first, so its failure wins over the dividend's.
  expect_error(*fn<FunctionDiv>(fn<FunctionMod>(num(1), num(0)).release(),
                                fn<FunctionDiv>(num(1), num(0)).release()),
               "divide by 0");
  // A missing argument is found before any argument is evaluated.
  expect_error(*fn<FunctionAdd>(fn<FunctionDiv>(num(1), num(0)).release(), nullptr),
               "missing argument for a function");
}

TEST(AST, variables_ask_the_valuation_by_id) {
  ASTVar x("X", 2);
  EXPECT_EQ(evaluate(x, {10, 20, 30}).value, 30);
  EXPECT_EQ(x.getType(), VAR);
  auto sum = fn<FunctionAdd>(new ASTVar("A", 0), new ASTBoolean(true));
  EXPECT_EQ(evaluate(*sum, {41}).value, 42);
}

TEST(AST, printed_forms) {
  auto t = fn<FunctionAdd>(num(1), fn<FunctionNeg>(num(2)).release());
  EXPECT_EQ(print(*t, INFIX), "(1+-(2))");
  EXPECT_EQ(print(*t, POSTFIX), "1 2 neg add");
  EXPECT_EQ(print(*t, PREFIX), "add(1,neg(2))");

  auto u = fn<FunctionIf>(fn<FunctionNot>(new ASTVar("X", 3)).release(),
                          fn<FunctionPow>(num(2), new ASTBoolean(false)).release(), num(-1));
  EXPECT_EQ(print(*u, PREFIX), "if(not(X/$3),pow(2,false),-1)");
  EXPECT_EQ(print(*u, INFIX), "if(!(parm[3]),pow(2,false),-1)");
  EXPECT_EQ(print(*u, POSTFIX), "X/$3 not 2 false pow -1 if");
  EXPECT_EQ(print(*u, MATHML),
            "<math>\n"
            "  <piecewise>\n  <piece>\n"
            "  <apply>\n  <power/>\n  <cn>2</cn>\n  <false/>\n  </apply>\n"
            "  <apply>\n  <not/>\n  <ci>X</ci>\n  </apply>\n"
            "  </piece>\n  <otherwise>\n"
            "  <cn>-1</cn>\n"
            "  </otherwise>\n  </piecewise>\n"
            "</math>\n");

  // A missing argument prints as nothing, its separator stays.
  auto partial = fn<FunctionSub>(nullptr, num(4));
  EXPECT_EQ(print(*partial, PREFIX), "sub(,4)");
  EXPECT_EQ(print(*partial, INFIX), "(-4)");
  EXPECT_EQ(print(*partial, POSTFIX), " 4 sub");
  EXPECT_EQ(print(*partial, MATHML),
            "<math>\n  <apply>\n  <minus/>\n  <cn>4</cn>\n  </apply>\n</math>\n");
  // An "if" whose branches are missing still prints well-formed.
  FunctionIf bare;
  EXPECT_EQ(print(bare, MATHML),
            "<math>\n  <piecewise>\n  <piece>\n  </piece>\n  <otherwise>\n  </otherwise>\n"
            "  </piecewise>\n</math>\n");

  ASTList list;
  list.push_back(new ASTSymb(SYMB_LE));
  list.push_back(num(3));
  list.push_front(new ASTVar("Y", 0));
  ASTList inner;
  EXPECT_EQ(print(inner, PREFIX), "[ ]");
  EXPECT_EQ(print(list, PREFIX), "[ Y/$0 <= 3 ]");
  EXPECT_EQ(print(list, INFIX), "[ parm[0] <= 3 ]");
  EXPECT_EQ(list.nbArg(), 3);
  EXPECT_EQ(list.getArg(2)->getType(), CST_INT);

  ASTDict dict;
  dict.setArg("var", new ASTVar("Z", 1));
  dict.setArg("coef", fn<FunctionNeg>(num(2)).release());
  EXPECT_EQ(print(dict, PREFIX), "{ /coef neg(2) /var Z/$1 }");
  EXPECT_EQ(print(dict, INFIX), "{ /coef -(2) /var parm[1] }");
  EXPECT_EQ(print(dict, POSTFIX), "{ /coef 2 neg /var Z/$1 }");
  EXPECT_EQ(dict["var"]->getType(), VAR);
  EXPECT_EQ(dict.nbArg(), 2);

  const char* symbols[] = {"nil", "==", "!=", ">=", ">", "<=", "<"};
  for (int s = SYMB_NIL; s <= SYMB_LT; ++s) {
    ASTSymb symb{NodeType(s)};
    EXPECT_EQ(print(symb, PREFIX), symbols[s - SYMB_NIL]);
    EXPECT_EQ(print(symb, POSTFIX), symbols[s - SYMB_NIL]);
  }
}

// The C copy, read back without the classes, prints as the tree does.
std::string c_prefix(const C_AST* t) {
  if (!t) return "";
  switch (t->type) {
    case VAR: {
      auto v = reinterpret_cast<const C_AST_VarNode*>(t);
      return std::string(v->varName) + "/$" + std::to_string(v->idVar);
    }
    case CST_INT: return std::to_string(reinterpret_cast<const C_AST_CstNode*>(t)->val);
    case CST_BOOL: return reinterpret_cast<const C_AST_CstNode*>(t)->val ? "true" : "false";
    case LIST: {
      auto l = reinterpret_cast<const C_AST_ListNode*>(t);
      std::string s = "[";
      for (int i = 0; i < l->size; ++i) s += " " + c_prefix(l->items[i]);
      return s + " ]";
    }
    case DICT: {
      auto d = reinterpret_cast<const C_AST_DictNode*>(t);
      std::string s = "{";
      for (int i = 0; i < d->size; ++i) s += " /" + std::string(d->entries[i].key) + " " + c_prefix(d->entries[i].value);
      return s + " }";
    }
    case SYMB_EQ: return "==";
    default: break;
  }
  auto f = reinterpret_cast<const C_AST_FxNode*>(t);
  std::unique_ptr<AST> named(random_trees::new_function(f->type));
  std::string s = static_cast<ASTAbstractFunction*>(named.get())->prefixName + std::string("(");
  for (int i = 0; i < f->nbarg; ++i) s += (i ? "," : "") + c_prefix(f->args[i]);
  return s + ")";
}

TEST(AST, c_copy_holds_the_whole_tree) {
  std::mt19937 rng(77);
  for (int round = 0; round < 300; ++round) {
    auto t = random_trees::build(*random_trees::random_tree(rng, 4, 50));
    C_AST* c = t->makeCTree();
    EXPECT_EQ(c_prefix(c), print(*t, PREFIX));
    C_DeleteTree(c);
  }
  ASTList list;
  auto* dict = new ASTDict;
  dict->setArg("b", new ASTSymb(SYMB_EQ));
  dict->setArg("a", fn<FunctionAbs>(new ASTVar("V", 9)).release());
  list.push_back(dict);
  list.push_back(new ASTBoolean(true));
  C_AST* c = list.makeCTree();
  EXPECT_EQ(c_prefix(c), "[ { /a abs(V/$9) /b == } true ]");
  C_DeleteTree(c);
}

// A function class with a shape none of the real ones has.
class ternary_infix : public ASTAbstractFunction {
 public:
  explicit ternary_infix(int nbarg = 3) : ASTAbstractFunction(nbarg, "t", "?", nullptr, F_IF) {}
  int value(const VariableValuation&) const override { return 0; }
  ASTAbstractFunction* makeNode() const override { return new ternary_infix; }
};

TEST(AST, every_message) {
  ASTVar var("X", 0);
  ASTInteger integer(1);
  ASTBoolean boolean(true);
  ASTList list;
  ASTDict dict;
  dict.setArg("k", num(1));
  ASTDictKey key("k");
  ASTSymb symb(SYMB_NIL);
  ASTSymb odd_symb(VAR);
  FunctionAdd add;
  std::ostringstream out;
  const std::vector<int> none;
  const random_trees::vector_valuation valuation(none);

  const std::vector<std::pair<std::string, std::function<void()>>> cases = {
      {"request for an non existing child of an AST node", [&] { var.getArg(0); }},
      {"request for an non existing child of an AST node", [&] { add.getArg(2); }},
      {"request for an non existing child of an AST node", [&] { list.getArg(0); }},
      {"can't use this method to get an AST", [&] { add.expression(out, TREE); }},
      {"undefined syntax for an expressioin", [&] { add.expression(out, Syntax(5)); }},
      {"unimplemented", [&] { odd_symb.infixExpression(out); }},
      {"unimplemented", [&] { symb.expression(out, MATHML); }},
      {"unimplemented", [&] { list.expression(out, MATHML); }},
      {"unimplemented", [&] { dict.expression(out, MATHML); }},
      {"abstract method called", [&] { symb.getArg(0); }},
      {"abstract method called", [&] { symb.setArg(0, num(1)); }},
      {"abstract method called", [&] { list.setArg(0, num(1)); }},
      {"abstract method called", [&] { key.setArg(0, num(1)); }},
      {"abstract method called", [&] { key.prefixExpression(out); }},
      {"abstract method called", [&] { key.infixExpression(out); }},
      {"abstract method called", [&] { key.postfixExpression(out); }},
      {"abstract method called", [&] { key.mathmlExpressionRec(out); }},
      {"abstract method called", [&] { key.value(valuation); }},
      {"abstract method called", [&] { key.makeCTree(); }},
      {"incorrect argument number", [&] { add.setArg(2, num(1)); }},
      {"incorrect argument number", [&] { add.setArg(-1, num(1)); }},
      {"a variable cannot have any argument", [&] { var.setArg(0, num(1)); }},
      {"a constant cannot have any argument", [&] { integer.setArg(0, num(1)); }},
      {"a constant cannot have any argument", [&] { boolean.setArg(0, num(1)); }},
      {"dictionaries can't be accessed by index", [&] { dict.getArg(0); }},
      {"dictionaries can't be accessed by index", [&] { dict.setArg(0, num(1)); }},
      {"couldn't find key in dictionary", [&] { dict.getArg("nokey"); }},
      {"couldn't find key in dictionary", [&] { dict["nokey"]; }},
      {"multiple assignments to the same key in dictionary", [&] { dict.setArg("k", num(2)); }},
      {"no valuation defined for a list", [&] { list.value(valuation); }},
      {"no valuation defined for a dict", [&] { dict.value(valuation); }},
      {"no valuation defined for a symbolic constant", [&] { symb.value(valuation); }},
      {"missing argument for a function", [&] { add.value(valuation); }},
      {"divide by 0", [&] { fn<FunctionDiv>(num(1), num(0))->value(valuation); }},
      {"modulo by 0", [&] { fn<FunctionMod>(num(1), num(0))->value(valuation); }},
      {"pow(0,0) is undefined", [&] { fn<FunctionPow>(num(0), num(0))->value(valuation); }},
      {"overflow in pow(x,y) computation", [&] { fn<FunctionPow>(num(-2), num(32))->value(valuation); }},
      {"unexpected arity", [&] { ternary_infix().infixExpression(out); }},
      {"number of arguments cannot be negative", [&] { ternary_infix bad(-1); }},
  };
  for (const auto& c : cases) {
    try {
      c.second();
      ADD_FAILURE() << "no error, expected: " << c.first;
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(std::string(e.what()), c.first);
    }
  }
  // The dictionary kept its first value; the refused children were freed.
  EXPECT_EQ(dict.getArg("k")->value(valuation), 1);
  EXPECT_THROW(var["k"], std::bad_cast);
}

}  // namespace
}  // namespace CSPXMLParser
