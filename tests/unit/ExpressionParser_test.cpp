// The functional predicate syntax: random trees printed in prefix form parse
// back to the same tree, with blanks anywhere; the texts the printer never
// writes; every parser message.
#include "xcsp/ExpressionParser.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>

#include "random_trees.h"

namespace CSPXMLParser {
namespace {

std::string prefix(const AST& ast) {
  std::ostringstream out;
  ast.prefixExpression(out);
  return out.str();
}

// Types, constants and variable ids, names left out.
std::string shape(const AST& a) {
  std::string s = std::to_string(a.getType());
  s += a.nbArg() ? "(" : "=" + random_trees::evaluate(a, {0, 1, 2, 3});
  for (int i = 0; i < a.nbArg(); ++i) s += shape(*a.getArg(i)) + ",";
  return s + (a.nbArg() ? ")" : "");
}

TEST(ExpressionParser, prefix_print_parses_back_to_the_same_tree) {
  std::mt19937 rng(4242);
  ExpressionParser<DefaultASTFactory> parser;
  // A variable prints as name/$id; the parser maps the whole word.
  std::map<std::string, int> parameters;
  for (int v = 0; v < random_trees::VARIABLES; ++v)
    parameters["X" + std::to_string(v) + "/$" + std::to_string(v)] = v;
  parser.varInfo = &parameters;
  for (int round = 0; round < 2000; ++round) {
    auto original = random_trees::random_tree(rng, 6);
    std::string text;
    for (char c : prefix(*original)) {
      while (round % 2 && rng() % 5 == 0) text += " \t\n\r\v\f"[rng() % 6];
      text += c;
    }
    std::unique_ptr<AST> parsed(parser.prefixParser(text));
    ASSERT_EQ(shape(*parsed), shape(*original)) << text;
  }
}

TEST(ExpressionParser, texts_the_printer_never_writes) {
  ExpressionParser<DefaultASTFactory> parser;
  const std::pair<const char*, const char*> cases[] = {
      {"+7", "7"}, {"12abc", "12"}, {"abs(3),junk", "abs(3)"}, {"Unknown", "Unknown/$-1"},
      // Too few arguments parse and leave a gap for evaluation to find.
      {"add(1)", "add(1,)"}};
  for (const auto& [text, printed] : cases) {
    std::unique_ptr<AST> t(parser.prefixParser(text));
    EXPECT_EQ(prefix(*t), printed) << text;
  }
}

TEST(ExpressionParser, every_message) {
  ExpressionParser<DefaultASTFactory> parser;
  const std::map<std::string, int> parameters = {{"X", 0}};
  parser.varInfo = &parameters;
  const std::pair<const char*, const char*> cases[] = {
      {"add(1,2,3)", "incorrect argument number"},
      {"foo(1)", "unknown function symbol"},
      {"add(1,2", "unbalanced parentheses"},
      // A stray ")" must not be balanced by a later "(".
      {"add(1,2))(", "unbalanced parentheses"},
      {"add(1,Z)", "undefined variable found in expression"},
      // An atom with no integer has no value, nor one past 32 bits.
      {"abs()", "invalid integer in expression"},
      {"99999999999", "invalid integer in expression"},
  };
  for (const auto& [text, message] : cases) {
    auto parse = [&] { return std::unique_ptr<AST>(parser.prefixParser(text))->getType(); };
    EXPECT_EQ(random_trees::outcome(parse), message) << text;
  }
}

}  // namespace
}  // namespace CSPXMLParser
