// The functional predicate syntax: random trees printed in prefix form parse
// back to the same tree, with blanks anywhere; the shapes of single texts;
// every parser message.
#include "xcsp/ExpressionParser.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "random_trees.h"

namespace CSPXMLParser {
namespace {

std::string prefix(const AST& ast) {
  std::ostringstream out;
  ast.prefixExpression(out);
  return out.str();
}

std::string infix(const AST& ast) {
  std::ostringstream out;
  ast.infixExpression(out);
  return out.str();
}

// Same shape, types and constants; variables by id only.
void expect_same_tree(const AST& a, const AST& b) {
  ASSERT_EQ(a.getType(), b.getType()) << prefix(a) << " vs " << prefix(b);
  ASSERT_EQ(a.nbArg(), b.nbArg());
  switch (a.getType()) {
    case VAR: EXPECT_EQ(static_cast<const ASTVar&>(a).id, static_cast<const ASTVar&>(b).id); return;
    case CST_INT: EXPECT_EQ(static_cast<const ASTInteger&>(a).val, static_cast<const ASTInteger&>(b).val); return;
    case CST_BOOL: EXPECT_EQ(static_cast<const ASTBoolean&>(a).val, static_cast<const ASTBoolean&>(b).val); return;
    default: break;
  }
  for (int i = 0; i < a.nbArg(); ++i) expect_same_tree(*a.getArg(i), *b.getArg(i));
}

std::string scatter_blanks(const std::string& text, std::mt19937& rng) {
  static const char blanks[] = " \t\n\r\v\f";
  std::string s;
  for (char c : text) {
    while (rng() % 5 == 0) s += blanks[rng() % 6];
    s += c;
  }
  return s + " ";
}

TEST(ExpressionParser, prefix_print_parses_back_to_the_same_tree) {
  const unsigned seed = 4242;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  ExpressionParser<DefaultASTFactory> parser;
  // A variable prints as name/$id; the parser maps the whole word.
  std::map<std::string, int> parameters;
  for (int v = 0; v < random_trees::VARIABLES; ++v)
    parameters["X" + std::to_string(v) + "/$" + std::to_string(v)] = v;
  for (int round = 0; round < 2000; ++round) {
    auto t = random_trees::random_tree(rng, 6);
    auto original = random_trees::build(*t);
    const std::string text = prefix(*original);
    parser.varInfo = &parameters;
    std::unique_ptr<AST> parsed(parser.prefixParser(round % 2 ? scatter_blanks(text, rng) : text));
    parser.varInfo = nullptr;
    expect_same_tree(*original, *parsed);
    EXPECT_EQ(infix(*parsed), infix(*original));
    if (HasFailure()) FAIL() << text;
  }
}

TEST(ExpressionParser, text_shapes) {
  ExpressionParser<DefaultASTFactory> parser;
  const std::map<std::string, int> parameters = {{"X", 0}, {"Y", 1}};
  parser.varInfo = &parameters;
  std::unique_ptr<AST> t(parser.prefixParser("add( 1 , mul(2,X) )"));
  ASSERT_EQ(t->getType(), F_ADD);
  EXPECT_EQ(t->getArg(0)->getType(), CST_INT);
  ASSERT_EQ(t->getArg(1)->getType(), F_MUL);
  EXPECT_EQ(static_cast<ASTVar*>(t->getArg(1)->getArg(1))->id, 0);
  EXPECT_EQ(static_cast<ASTVar*>(t->getArg(1)->getArg(1))->name, "X");
  // Blanks inside a number or a word make no difference.
  t.reset(parser.prefixParser("a d d(1 2, mul(2, Y ))"));
  EXPECT_EQ(prefix(*t), "add(12,mul(2,Y/$1))");

  parser.varInfo = nullptr;
  t.reset(parser.prefixParser("-5"));
  ASSERT_EQ(t->getType(), CST_INT);
  EXPECT_EQ(static_cast<ASTInteger*>(t.get())->val, -5);
  t.reset(parser.prefixParser("neg(5)"));
  EXPECT_EQ(prefix(*t), "neg(5)");
  t.reset(parser.prefixParser("+7"));
  EXPECT_EQ(prefix(*t), "7");
  t.reset(parser.prefixParser("-2147483648"));
  EXPECT_EQ(static_cast<ASTInteger*>(t.get())->val, INT_MIN);
  // What follows the digits of a number is ignored, as is text after the call.
  t.reset(parser.prefixParser("12abc"));
  EXPECT_EQ(prefix(*t), "12");
  t.reset(parser.prefixParser("abs(3),junk"));
  EXPECT_EQ(prefix(*t), "abs(3)");
  t.reset(parser.prefixParser("and(true,false)"));
  EXPECT_EQ(prefix(*t), "and(true,false)");
  t.reset(parser.prefixParser("Unknown"));
  EXPECT_EQ(prefix(*t), "Unknown/$-1");
  // Too few arguments parse; evaluation finds the gap.
  t.reset(parser.prefixParser("add(1)"));
  const std::vector<int> none;
  EXPECT_EQ(random_trees::evaluate(*t, none).error, "missing argument for a function");
  parser.varInfo = &parameters;
  t.reset(parser.prefixParser("if(eq(X,1),div(4,2),pow(2,3))"));
  EXPECT_EQ(random_trees::evaluate(*t, {1}).value, 2);
  EXPECT_EQ(random_trees::evaluate(*t, {0}).value, 8);
}

TEST(ExpressionParser, every_message) {
  ExpressionParser<DefaultASTFactory> parser;
  const std::map<std::string, int> parameters = {{"X", 0}};
  const std::pair<const char*, const char*> cases[] = {
      {"add(1,2,3)", "incorrect argument number"},
      {"foo(1)", "unknown function symbol"},
      {"add(1,2", "unbalanced parentheses"},
      {"add(1,2))", "unbalanced parentheses"},
      {"add(1,2))(", "unbalanced parentheses"},
      {"1)", "unbalanced parentheses"},
      {"add(1,Z)", "undefined variable found in expression"},
      {"add(1,2)(3)", "unknown function symbol"},
      // An atom with no integer and no word has no value.
      {"", "invalid integer in expression"},
      {"abs()", "invalid integer in expression"},
      {"add(1,)", "invalid integer in expression"},
      {"-", "invalid integer in expression"},
      {"_X", "invalid integer in expression"},
      {"99999999999", "invalid integer in expression"},
  };
  for (const auto& c : cases) {
    parser.varInfo = &parameters;
    try {
      std::unique_ptr<AST> t(parser.prefixParser(c.first));
      ADD_FAILURE() << c.first << " parsed as " << prefix(*t);
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(std::string(e.what()), c.second) << c.first;
    }
  }
}

}  // namespace
}  // namespace CSPXMLParser
