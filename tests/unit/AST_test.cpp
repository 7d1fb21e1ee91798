// Expression trees: random trees evaluated against an independent evaluator,
// the decided arithmetic edge cases with every evaluation message, one printed
// form per syntax, and the C copy.
#include "xcsp/AST.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "random_trees.h"
#include "xcsp/ExpressionParser.h"

namespace CSPXMLParser {
namespace {

namespace rt = random_trees;
using rt::evaluate;

std::string print(const AST& ast, Syntax syntax) {
  std::ostringstream out;
  ast.expression(out, syntax);
  return out.str();
}

std::unique_ptr<AST> parse(const std::string& text) {
  ExpressionParser<DefaultASTFactory> parser;
  return std::unique_ptr<AST>(parser.prefixParser(text));
}

TEST(AST, random_trees_evaluate_as_the_independent_evaluator) {
  std::mt19937 rng(20240611);
  int values_seen = 0;
  for (int round = 0; round < 3000; ++round) {
    auto ast = rt::random_tree(rng, 5, round % 2 == 0 ? 0 : 20);
    // Every syntax prints a tree with missing arguments.
    for (Syntax s : {PREFIX, INFIX, POSTFIX, MATHML}) print(*ast, s);
    for (int k = 0; k < 4; ++k) {
      std::vector<int> values;
      for (int v = 0; v < rt::VARIABLES; ++v) values.push_back(rt::random_value(rng));
      const std::string want = rt::outcome([&] { return rt::eval(*ast, values); });
      ASSERT_EQ(evaluate(*ast, values), want) << print(*ast, PREFIX);
      values_seen += want.find_first_not_of("-0123456789") == std::string::npos;
    }
  }
  // Most trees evaluate to a value rather than fail.
  EXPECT_GT(values_seen, 6000);
}

TEST(AST, edge_cases_and_every_message) {
  const std::string overflow = "overflow in pow(x,y) computation";
  // Each text evaluates to the number or fails with the message.
  const std::pair<const char*, std::string> cases[] = {
      // Wrap-around in 32 bits. No quotient of the least integer by -1 fits:
      // it wraps as the negation does.
      {"add(2147483647,1)", "-2147483648"}, {"mul(65536,65536)", "0"},
      {"abs(-2147483648)", "-2147483648"}, {"div(-2147483648,-1)", "-2147483648"},
      {"mod(-2147483648,-1)", "0"}, {"mod(-7,2)", "-1"}, {"mod(7,-2)", "1"},
      {"pow(2,30)", "1073741824"}, {"pow(2,31)", overflow}, {"pow(-2,31)", "-2147483648"},
      {"pow(0,0)", "pow(0,0) is undefined"}, {"pow(46341,2)", overflow},
      // The square computed after the last factor overflows unused.
      {"pow(65536,1)", "65536"},
      // Negative exponents end: exact for bases 1 and -1, a division by zero
      // for 0, an overflow otherwise.
      {"pow(1,-2147483648)", "1"}, {"pow(-1,-3)", "-1"}, {"pow(-1,-2147483648)", "1"},
      {"pow(0,-1)", "divide by 0"}, {"pow(2,-1)", overflow}, {"pow(-3,-2147483648)", overflow},
      // Only what decides is evaluated, the divisor first; a missing argument
      // is found before any argument is evaluated.
      {"if(0,div(1,0),7)", "7"}, {"or(2,mod(1,0))", "1"}, {"xor(1,3)", "2"},
      {"div(mod(1,0),div(1,0))", "divide by 0"}, {"mod(div(1,0),mod(1,0))", "modulo by 0"},
      {"add(div(1,0))", "missing argument for a function"}};
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(evaluate(*parse(text), {}), expected) << text;

  ASTDict dict;
  dict.setArg("k", new ASTInteger(1));
  EXPECT_EQ(rt::outcome([&] { dict.setArg("k", new ASTInteger(2)); return 0; }),
            "multiple assignments to the same key in dictionary");
  EXPECT_EQ(rt::outcome([&] { return dict["none"] != nullptr; }),
            "couldn't find key in dictionary");
  EXPECT_EQ(evaluate(*dict["k"], {}), "1");
}

TEST(AST, one_printed_form_per_syntax) {
  auto t = parse("add(1,neg(2))");
  EXPECT_EQ(print(*t, PREFIX), "add(1,neg(2))");
  EXPECT_EQ(print(*t, INFIX), "(1+-(2))");
  EXPECT_EQ(print(*t, POSTFIX), "1 2 neg add");
  // "if" has no MathML element of its own; a missing branch prints as nothing.
  auto u = parse("if(not(X),pow(2,false),-1)");
  u->setArg(2, nullptr);
  EXPECT_EQ(print(*u, MATHML),
            "<math>\n  <piecewise>\n  <piece>\n"
            "  <apply>\n  <power/>\n  <cn>2</cn>\n  <false/>\n  </apply>\n"
            "  <apply>\n  <not/>\n  <ci>X</ci>\n  </apply>\n"
            "  </piece>\n  <otherwise>\n  </otherwise>\n  </piecewise>\n</math>\n");
}

// The C copy, read back without the classes, prints as the tree does.
std::string c_prefix(const C_AST* t) {
  if (!t) return "";
  std::string s;
  switch (t->type) {
    case VAR: {
      auto v = reinterpret_cast<const C_AST_VarNode*>(t);
      return v->varName + ("/$" + std::to_string(v->idVar));
    }
    case CST_INT: return std::to_string(reinterpret_cast<const C_AST_CstNode*>(t)->val);
    case CST_BOOL: return reinterpret_cast<const C_AST_CstNode*>(t)->val ? "true" : "false";
    case SYMB_EQ: return "==";
    case LIST: {
      auto l = reinterpret_cast<const C_AST_ListNode*>(t);
      for (int i = 0; i < l->size; ++i) s += " " + c_prefix(l->items[i]);
      return "[" + s + " ]";
    }
    case DICT: {
      auto d = reinterpret_cast<const C_AST_DictNode*>(t);
      for (int i = 0; i < d->size; ++i)
        s += " /" + std::string(d->entries[i].key) + " " + c_prefix(d->entries[i].value);
      return "{" + s + " }";
    }
    default: break;
  }
  auto f = reinterpret_cast<const C_AST_FxNode*>(t);
  for (int i = 0; i < f->nbarg; ++i) s += (i ? "," : "") + c_prefix(f->args[i]);
  return rt::prototype(f->type).prefixName + ("(" + s + ")");
}

TEST(AST, c_copy_holds_the_whole_tree) {
  std::mt19937 rng(77);
  for (int round = 0; round < 300; ++round) {
    auto t = rt::random_tree(rng, 4, 50);
    C_AST* c = t->makeCTree();
    EXPECT_EQ(c_prefix(c), print(*t, PREFIX));
    C_DeleteTree(c);
  }
  ASTList list;
  auto* dict = new ASTDict;
  dict->setArg("b", new ASTSymb(SYMB_EQ));
  dict->setArg("a", parse("abs(V)").release());
  list.push_back(dict);
  list.push_back(new ASTBoolean(true));
  C_AST* c = list.makeCTree();
  EXPECT_EQ(c_prefix(c), "[ { /a abs(V/$-1) /b == } true ]");
  EXPECT_EQ(print(list, PREFIX), c_prefix(c));
  C_DeleteTree(c);
}

}  // namespace
}  // namespace CSPXMLParser
