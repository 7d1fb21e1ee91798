// Random expression trees for the tree and parser tests: a plain description
// of a tree, the AST built from it, and an evaluator of the description that
// shares nothing with the AST classes. It computes exact 64-bit results and
// reduces them modulo 2^32, so it states the wrap-around and the order of
// failures without the unsigned casts of the library.
#ifndef ZELK_TESTS_UNIT_RANDOM_TREES_H
#define ZELK_TESTS_UNIT_RANDOM_TREES_H

#include <climits>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "xcsp/AST.h"

namespace random_trees {

using namespace CSPXMLParser;

struct tree {
  // CST_INT, CST_BOOL, VAR or a function type F_NEG to F_IFF.
  NodeType type = CST_INT;
  // The integer, the boolean (0 or 1) or the variable id.
  int value = 0;
  // Null entries are missing arguments.
  std::vector<std::unique_ptr<tree>> children;
};

inline int arity(NodeType t) {
  if (t == F_NEG || t == F_ABS || t == F_NOT) return 1;
  if (t == F_IF) return 3;
  return 2;
}

const int VARIABLES = 4;

// Mostly small numbers, with the extremes where arithmetic wraps.
inline int random_value(std::mt19937& rng) {
  static const int special[] = {INT_MIN, INT_MIN + 1, -65536, -46341, -2, -1, 0, 1, 2,
                                31,      46341,       65536,  INT_MAX - 1, INT_MAX};
  if (rng() % 4 == 0) return special[rng() % (sizeof special / sizeof special[0])];
  return int(rng() % 11) - 5;
}

// `missing` is the chance in 1000 that an argument is left out.
inline std::unique_ptr<tree> random_tree(std::mt19937& rng, int depth, int missing = 0) {
  auto t = std::make_unique<tree>();
  if (depth == 0 || rng() % 4 == 0) {
    switch (rng() % 3) {
      case 0: t->type = CST_INT; t->value = random_value(rng); break;
      case 1: t->type = CST_BOOL; t->value = int(rng() % 2); break;
      default: t->type = VAR; t->value = int(rng() % VARIABLES); break;
    }
    return t;
  }
  t->type = NodeType(F_NEG + int(rng() % (F_IFF - F_NEG + 1)));
  for (int i = 0; i < arity(t->type); ++i) {
    if (int(rng() % 1000) < missing)
      t->children.push_back(nullptr);
    else
      t->children.push_back(random_tree(rng, depth - 1, missing));
  }
  return t;
}

inline AST* new_function(NodeType t) {
  switch (t) {
    case F_NEG: return new FunctionNeg;
    case F_ABS: return new FunctionAbs;
    case F_ADD: return new FunctionAdd;
    case F_SUB: return new FunctionSub;
    case F_MUL: return new FunctionMul;
    case F_DIV: return new FunctionDiv;
    case F_MOD: return new FunctionMod;
    case F_POW: return new FunctionPow;
    case F_IF: return new FunctionIf;
    case F_MIN: return new FunctionMin;
    case F_MAX: return new FunctionMax;
    case F_EQ: return new FunctionEQ;
    case F_NE: return new FunctionNE;
    case F_GE: return new FunctionGE;
    case F_GT: return new FunctionGT;
    case F_LE: return new FunctionLE;
    case F_LT: return new FunctionLT;
    case F_NOT: return new FunctionNot;
    case F_AND: return new FunctionAnd;
    case F_OR: return new FunctionOr;
    case F_XOR: return new FunctionXor;
    case F_IFF: return new FunctionIff;
    default: return nullptr;
  }
}

inline std::unique_ptr<AST> build(const tree& t) {
  switch (t.type) {
    case CST_INT: return std::make_unique<ASTInteger>(t.value);
    case CST_BOOL: return std::make_unique<ASTBoolean>(t.value != 0);
    case VAR: return std::make_unique<ASTVar>("X" + std::to_string(t.value), t.value);
    default: break;
  }
  std::unique_ptr<AST> f(new_function(t.type));
  for (std::size_t i = 0; i < t.children.size(); ++i)
    if (t.children[i]) f->setArg(int(i), build(*t.children[i]).release());
  return f;
}

// A value or the message of the first failure.
struct outcome {
  bool ok = true;
  int value = 0;
  std::string error;
};

inline int reduce(std::int64_t v) {
  const std::int64_t m = 4294967296LL;
  std::int64_t r = ((v % m) + m) % m;
  if (r >= 2147483648LL) r -= m;
  return int(r);
}

inline bool in_int_range(std::int64_t v) { return v >= -2147483648LL && v <= 2147483647LL; }

class evaluator {
 public:
  explicit evaluator(const std::vector<int>& values) : m_values(values) {}

  outcome operator()(const tree& t) const {
    try {
      return {true, eval(t), ""};
    } catch (const failure& f) {
      return {false, 0, f.message};
    }
  }

 private:
  struct failure {
    std::string message;
  };

  int eval(const tree& t) const {
    switch (t.type) {
      case CST_INT: case CST_BOOL: return t.value;
      case VAR: return m_values[std::size_t(t.value)];
      default: break;
    }
    for (const auto& c : t.children)
      if (!c) throw failure{"missing argument for a function"};
    const tree& a = *t.children[0];
    auto second = [&]() { return std::int64_t(eval(*t.children[1])); };
    switch (t.type) {
      case F_NEG: return reduce(-std::int64_t(eval(a)));
      case F_ABS: { std::int64_t x = eval(a); return reduce(x < 0 ? -x : x); }
      case F_NOT: return eval(a) == 0 ? 1 : 0;
      case F_IF: return eval(a) != 0 ? eval(*t.children[1]) : eval(*t.children[2]);
      case F_AND: return eval(a) != 0 ? (second() != 0 ? 1 : 0) : 0;
      case F_OR: return eval(a) != 0 ? 1 : (second() != 0 ? 1 : 0);
      case F_DIV: case F_MOD: {
        const std::int64_t d = second();
        if (d == 0) throw failure{t.type == F_DIV ? "divide by 0" : "modulo by 0"};
        const std::int64_t n = eval(a);
        return reduce(t.type == F_DIV ? n / d : n % d);
      }
      default: break;
    }
    const std::int64_t x = eval(a);
    const std::int64_t y = second();
    switch (t.type) {
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
      case F_XOR: return int(x ^ y);
      default: throw failure{"bad tree"};
    }
  }

  // The exact power; a negative exponent gives 1/x^-y, an integer only for
  // bases 1 and -1.
  static int power(std::int64_t x, std::int64_t y) {
    const char* overflow = "overflow in pow(x,y) computation";
    if (x == 0 && y == 0) throw failure{"pow(0,0) is undefined"};
    if (x == 0) {
      if (y < 0) throw failure{"divide by 0"};
      return 0;
    }
    if (x == 1) return 1;
    if (x == -1) return y % 2 == 0 ? 1 : -1;
    if (y < 0) throw failure{overflow};
    std::int64_t r = 1;
    for (std::int64_t i = 0; i < y; ++i) {
      r *= x;
      if (!in_int_range(r)) throw failure{overflow};
    }
    return int(r);
  }

  const std::vector<int>& m_values;
};

class vector_valuation : public VariableValuation {
 public:
  explicit vector_valuation(const std::vector<int>& values) : m_values(values) {}
  int getVarValue(int id) const override { return m_values.at(std::size_t(id)); }

 private:
  const std::vector<int>& m_values;
};

inline outcome evaluate(const AST& ast, const std::vector<int>& values) {
  try {
    return {true, ast.value(vector_valuation(values)), ""};
  } catch (const std::runtime_error& e) {
    return {false, 0, e.what()};
  }
}

}  // namespace random_trees

#endif
