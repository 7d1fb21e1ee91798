// The nodes behind formula (impl/formula.h).
//
// Nodes are immutable once built and may be shared by any number of formulas.
// m_count holds the number of formula handles and parent nodes that refer to a
// node; a combination may return a fresh node with count 0, which the handle that
// takes it then raises to 1. The constants are singletons that start at 1 and so
// are never deleted. Clause, binary and negation nodes come from pools of their
// own size.
//
// Combining dispatches twice: a.and_with(b, true) lets b have the first word
// (b.and_with(a, false), or b.and_with_clause(a) when a is a clause), so that
// constants, negations and clauses are folded whichever side they stand on.
// `try_other` false ends the dispatch at the receiver.
#ifndef ZELK_IMPL_FORMULA_IMPL_H
#define ZELK_IMPL_FORMULA_IMPL_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "impl/clause_data.h"
#include "impl/formula.h"
#include "impl/pool_alloc.h"

namespace zelk {

class clause_formula_impl;
class solver;
class variable_print_strategy;

class formula_impl {
 public:
  formula_impl() = default;
  formula_impl(const formula_impl&) = delete;
  formula_impl& operator=(const formula_impl&) = delete;
  virtual ~formula_impl() = default;

  // Adds constraints to `s` that make the formula true.
  virtual void constrain_solver(solver& s) const = 0;
  // A 0/1 variable of `s` equal to the truth of the formula; the constants take
  // the solver's singleton variables and create nothing.
  virtual unsigned int reify(solver& s) const = 0;
  virtual bool evaluate(const solver& s) const = 0;
  virtual formula_impl* make_not() = 0;
  virtual formula_impl* and_with(formula_impl* other, bool try_other) = 0;
  virtual formula_impl* or_with(formula_impl* other, bool try_other) = 0;
  // Second step of the dispatch on a clause: this and/or `clause`.
  virtual formula_impl* and_with_clause(clause_formula_impl* clause);
  virtual formula_impl* or_with_clause(clause_formula_impl* clause);
  // Precedence of the context: 0 none, 1 inside ||, 2 inside &&.
  virtual void print(std::ostream& os, const variable_print_strategy& strategy,
                     int precedence) const = 0;

  std::uint32_t m_count = 0;
  static pool_alloc<formula_impl> m_pool_base;

 protected:
  static bool is_true_var(const solver& s, unsigned int v);
  static bool is_false_var(const solver& s, unsigned int v);
  // A clause over 0/1 variables: v >= 0 stands for v in {1}, ~v for v in {0}.
  static void add_bool_clause(solver& s, const int* literals, std::size_t count);
  static void add_bool_clause(solver& s, int a, int b);
  static void add_bool_clause(solver& s, int a, int b, int c);
  static void release(formula_impl* node) { formula::mark_unlinked(node); }
};

class true_formula_impl : public formula_impl {
 public:
  static true_formula_impl* get();
  void constrain_solver(solver& s) const override;
  unsigned int reify(solver& s) const override;
  bool evaluate(const solver& s) const override;
  formula_impl* make_not() override;
  formula_impl* and_with(formula_impl* other, bool try_other) override;
  formula_impl* or_with(formula_impl* other, bool try_other) override;
  void print(std::ostream& os, const variable_print_strategy& strategy,
             int precedence) const override;

 private:
  true_formula_impl() { m_count = 1; }
};

class false_formula_impl : public formula_impl {
 public:
  static false_formula_impl* get();
  void constrain_solver(solver& s) const override;
  unsigned int reify(solver& s) const override;
  bool evaluate(const solver& s) const override;
  formula_impl* make_not() override;
  formula_impl* and_with(formula_impl* other, bool try_other) override;
  formula_impl* or_with(formula_impl* other, bool try_other) override;
  void print(std::ostream& os, const variable_print_strategy& strategy,
             int precedence) const override;

 private:
  false_formula_impl() { m_count = 1; }
};

class binary_operator_formula_impl : public formula_impl {
 public:
  binary_operator_formula_impl(formula_impl* left, formula_impl* right);
  ~binary_operator_formula_impl() override;
  formula_impl* make_not() override;
  formula_impl* and_with(formula_impl* other, bool try_other) override;
  formula_impl* or_with(formula_impl* other, bool try_other) override;
  formula_impl* left() const { return m_left; }
  formula_impl* right() const { return m_right; }

  static void* operator new(std::size_t size);
  static void operator delete(void* p, std::size_t size) noexcept;

 protected:
  formula_impl* m_left;
  formula_impl* m_right;
};

class binary_and_formula_impl : public binary_operator_formula_impl {
 public:
  using binary_operator_formula_impl::binary_operator_formula_impl;
  void constrain_solver(solver& s) const override;
  unsigned int reify(solver& s) const override;
  bool evaluate(const solver& s) const override;
  void print(std::ostream& os, const variable_print_strategy& strategy,
             int precedence) const override;
};

class binary_or_formula_impl : public binary_operator_formula_impl {
 public:
  using binary_operator_formula_impl::binary_operator_formula_impl;
  void constrain_solver(solver& s) const override;
  unsigned int reify(solver& s) const override;
  bool evaluate(const solver& s) const override;
  void print(std::ostream& os, const variable_print_strategy& strategy,
             int precedence) const override;
};

// Both derived forms are allocated from the pool of the base: they must add nothing.
static_assert(sizeof(binary_and_formula_impl) == sizeof(binary_operator_formula_impl));
static_assert(sizeof(binary_or_formula_impl) == sizeof(binary_operator_formula_impl));

class not_formula_impl : public formula_impl {
 public:
  explicit not_formula_impl(formula_impl* child);
  ~not_formula_impl() override;
  void constrain_solver(solver& s) const override;
  unsigned int reify(solver& s) const override;
  bool evaluate(const solver& s) const override;
  formula_impl* make_not() override { return m_child; }
  formula_impl* and_with(formula_impl* other, bool try_other) override;
  formula_impl* or_with(formula_impl* other, bool try_other) override;
  void print(std::ostream& os, const variable_print_strategy& strategy,
             int precedence) const override;
  formula_impl* child() const { return m_child; }

  static void* operator new(std::size_t size);
  static void operator delete(void* p, std::size_t size) noexcept;

 private:
  formula_impl* m_child;
};

// A disjunction of literals. Never empty when built through formula: the empty
// clause is the false constant there.
class clause_formula_impl : public formula_impl {
 public:
  explicit clause_formula_impl(const clause_data& clause) : m_clause(clause) {}
  explicit clause_formula_impl(clause_data&& clause) : m_clause(std::move(clause)) {}
  void constrain_solver(solver& s) const override;
  unsigned int reify(solver& s) const override;
  bool evaluate(const solver& s) const override;
  formula_impl* make_not() override;
  formula_impl* and_with(formula_impl* other, bool try_other) override;
  formula_impl* or_with(formula_impl* other, bool try_other) override;
  formula_impl* and_with_clause(clause_formula_impl* other) override;
  formula_impl* or_with_clause(clause_formula_impl* other) override;
  void print(std::ostream& os, const variable_print_strategy& strategy,
             int precedence) const override;
  const clause_data& clause() const { return m_clause; }

  // r = 0 or the clause.
  void variable_implies_clause(solver& s, unsigned int r) const;
  // Each literal implies r = 1.
  void clause_implies_variable(solver& s, unsigned int r) const;

  static void* operator new(std::size_t size);
  static void operator delete(void* p, std::size_t size) noexcept;

 private:
  clause_data m_clause;
};

}  // namespace zelk

#endif
