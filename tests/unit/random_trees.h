// Random expression trees for the tree and parser tests, and an evaluator that
// reads a tree's shape and computes its value on its own: exact 64-bit results
// reduced modulo 2^32, so that it states the wrap-around and the order of
// failures without the unsigned casts of the library.
#ifndef ZELK_TESTS_UNIT_RANDOM_TREES_H
#define ZELK_TESTS_UNIT_RANDOM_TREES_H

#include <climits>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "xcsp/AST.h"

namespace random_trees {

using namespace CSPXMLParser;

// A childless node of each function class, by NodeType; alive for the whole run.
inline const ASTAbstractFunction& prototype(int type) {
  static const ASTAbstractFunction* const all[] = {
      new FunctionNeg, new FunctionAbs, new FunctionAdd, new FunctionSub, new FunctionMul,
      new FunctionDiv, new FunctionMod, new FunctionPow, new FunctionIf,  new FunctionMin,
      new FunctionMax, new FunctionEQ,  new FunctionNE,  new FunctionGE,  new FunctionGT,
      new FunctionLE,  new FunctionLT,  new FunctionNot, new FunctionAnd, new FunctionOr,
      new FunctionXor, new FunctionIff};
  return *all[type - F_NEG];
}

const int VARIABLES = 4;

// Mostly small numbers, with the extremes where arithmetic wraps.
inline int random_value(std::mt19937& rng) {
  static const int special[] = {INT_MIN, INT_MIN + 1, -65536, -46341, -2, -1, 0, 1, 2,
                                31,      46341,       65536,  INT_MAX - 1, INT_MAX};
  if (rng() % 4 == 0) return special[rng() % 14];
  return int(rng() % 11) - 5;
}

// `missing` is the chance in 1000 that an argument is left out.
inline std::unique_ptr<AST> random_tree(std::mt19937& rng, int depth, int missing = 0) {
  if (depth == 0 || rng() % 4 == 0) {
    const unsigned kind = rng() % 3;
    if (kind == 0) return std::make_unique<ASTInteger>(random_value(rng));
    if (kind == 1) return std::make_unique<ASTBoolean>(rng() % 2 != 0);
    const int id = int(rng() % VARIABLES);
    return std::make_unique<ASTVar>("X" + std::to_string(id), id);
  }
  const int type = F_NEG + int(rng() % (F_IFF - F_NEG + 1));
  std::unique_ptr<AST> f(prototype(type).makeNode());
  if (f->getType() != type) throw std::logic_error("a function node of the wrong class");
  for (int i = 0; i < f->nbArg(); ++i)
    if (int(rng() % 1000) >= missing) f->setArg(i, random_tree(rng, depth - 1, missing).release());
  return f;
}

// The value as text, or the message of the first failure.
template <class F>
std::string outcome(F&& f) try {
  return std::to_string(f());
} catch (const std::runtime_error& e) {
  return e.what();
}

inline int reduce(std::int64_t v) { return std::int32_t(std::uint32_t(v)); }

// Exact: a negative exponent gives 1/x^-y, an integer only for bases 1 and -1.
inline int power(std::int64_t x, std::int64_t y) {
  if (x == 0 && y <= 0) throw std::runtime_error(y == 0 ? "pow(0,0) is undefined" : "divide by 0");
  if (x == 0 || x == 1) return int(x);
  if (x == -1) return y % 2 == 0 ? 1 : -1;
  std::int64_t r = 1;
  for (std::int64_t i = 0; i < y && r >= INT_MIN && r <= INT_MAX; ++i) r *= x;
  if (y < 0 || r < INT_MIN || r > INT_MAX)
    throw std::runtime_error("overflow in pow(x,y) computation");
  return int(r);
}

inline int eval(const AST& t, const std::vector<int>& values) {
  switch (t.getType()) {
    case CST_INT: return static_cast<const ASTInteger&>(t).val;
    case CST_BOOL: return static_cast<const ASTBoolean&>(t).val;
    case VAR: return values[std::size_t(static_cast<const ASTVar&>(t).id)];
    default: break;
  }
  for (int i = 0; i < t.nbArg(); ++i)
    if (!t.getArg(i)) throw std::runtime_error("missing argument for a function");
  auto arg = [&](int i) { return std::int64_t(eval(*t.getArg(i), values)); };
  switch (t.getType()) {  // the lazy ones, and the divisor before the dividend
    case F_IF: return int(arg(0) != 0 ? arg(1) : arg(2));
    case F_AND: return arg(0) != 0 && arg(1) != 0;
    case F_OR: return arg(0) != 0 || arg(1) != 0;
    case F_DIV: case F_MOD: {
      const std::int64_t d = arg(1);
      if (d == 0) throw std::runtime_error(t.getType() == F_DIV ? "divide by 0" : "modulo by 0");
      return reduce(t.getType() == F_DIV ? arg(0) / d : arg(0) % d);
    }
    default: break;
  }
  const std::int64_t x = arg(0), y = t.nbArg() > 1 ? arg(1) : 0;
  switch (t.getType()) {
    case F_NEG: return reduce(-x);
    case F_ABS: return reduce(x < 0 ? -x : x);
    case F_NOT: return x == 0;
    case F_ADD: return reduce(x + y);
    case F_SUB: return reduce(x - y);
    case F_MUL: return reduce(x * y);
    case F_POW: return power(x, y);
    case F_MIN: return int(x < y ? x : y);
    case F_MAX: return int(x > y ? x : y);
    case F_EQ: case F_IFF: return x == y;
    case F_NE: return x != y;
    case F_GE: return x >= y;
    case F_GT: return x > y;
    case F_LE: return x <= y;
    case F_LT: return x < y;
    default: return int(x ^ y);
  }
}

inline std::string evaluate(const AST& ast, const std::vector<int>& values) {
  struct valuation : VariableValuation {
    const std::vector<int>* values = nullptr;
    int getVarValue(int id) const override { return values->at(std::size_t(id)); }
  } v;
  v.values = &values;
  return outcome([&] { return ast.value(v); });
}

}  // namespace random_trees

#endif
