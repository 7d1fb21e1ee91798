// Expression trees: random trees evaluated against an independent evaluator,
// the decided arithmetic edge cases with every evaluation message, and the
// printed forms that are read.
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

// Infix is what the reader's messages show; prefix what the tests print.
TEST(AST, printed_forms) {
  auto t = parse("add(1,neg(2))");
  EXPECT_EQ(print(*t, PREFIX), "add(1,neg(2))");
  EXPECT_EQ(print(*t, INFIX), "(1+-(2))");
}

}  // namespace
}  // namespace CSPXMLParser
