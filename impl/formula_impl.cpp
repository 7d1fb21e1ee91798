// The nodes of formulas: folding on combination, evaluation, printing, and the
// translation into solver constraints (reify / constrain_solver).
#include "impl/formula_impl.h"

#include <algorithm>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <vector>

#include "impl/clause_propagator.h"
#include "impl/solver.h"

namespace zelk {

pool_alloc<formula_impl> formula_impl::m_pool_base;

namespace {

pool_alloc<binary_operator_formula_impl> binary_pool;
pool_alloc<not_formula_impl> not_pool;
pool_alloc<clause_formula_impl> clause_pool;

const small_model::iset& checked_domain(const solver& s, unsigned int v) {
  if (v >= s.num_variables()) throw std::out_of_range("Out of range while calling formula domain");
  return s.stack().domain(v);
}

const small_model::iset boolean_domain = small_model::iset::clipped_range(0, 1);

}  // namespace

//==== shared helpers ==================================================================

formula_impl* formula_impl::and_with_clause(clause_formula_impl* clause) {
  return clause->and_with(this, false);
}

formula_impl* formula_impl::or_with_clause(clause_formula_impl* clause) {
  return clause->or_with(this, false);
}

bool formula_impl::is_true_var(const solver& s, unsigned int v) {
  return checked_domain(s, v) == small_model::iset::singleton(1);
}

bool formula_impl::is_false_var(const solver& s, unsigned int v) {
  return checked_domain(s, v) == small_model::iset::singleton(0);
}

void formula_impl::add_bool_clause(solver& s, const int* literals, std::size_t count) {
  clause_propagator::literal_vector sets;
  sets.reserve(count);
  for (std::size_t i = 0; i < count; ++i)
    sets.push_back(small_model::iset::singleton(literals[i] >= 0 ? 1 : 0));
  constraint_connectivity_info& info =
      s.add_constraint(std::make_unique<clause_propagator>(std::move(sets)));
  for (std::size_t i = 0; i < count; ++i)
    info << unsigned(literals[i] >= 0 ? literals[i] : ~literals[i]);
}

void formula_impl::add_bool_clause(solver& s, int a, int b) {
  const int literals[] = {a, b};
  add_bool_clause(s, literals, 2);
}

void formula_impl::add_bool_clause(solver& s, int a, int b, int c) {
  const int literals[] = {a, b, c};
  add_bool_clause(s, literals, 3);
}

//==== constants ========================================================================

true_formula_impl* true_formula_impl::get() {
  static true_formula_impl instance;
  return &instance;
}

void true_formula_impl::constrain_solver(solver&) const {}
unsigned int true_formula_impl::reify(solver& s) const { return s.singleton_var(1); }
bool true_formula_impl::evaluate(const solver&) const { return true; }
formula_impl* true_formula_impl::make_not() { return false_formula_impl::get(); }
formula_impl* true_formula_impl::and_with(formula_impl* other, bool) { return other; }
formula_impl* true_formula_impl::or_with(formula_impl*, bool) { return this; }
void true_formula_impl::print(std::ostream& os, const variable_print_strategy&, int) const {
  os << "true";
}

false_formula_impl* false_formula_impl::get() {
  static false_formula_impl instance;
  return &instance;
}

void false_formula_impl::constrain_solver(solver& s) const {
  // The one-literal clause "constant 0 is 1", which no value satisfies.
  const int literal = int(s.singleton_var(0));
  add_bool_clause(s, &literal, 1);
}
unsigned int false_formula_impl::reify(solver& s) const { return s.singleton_var(0); }
bool false_formula_impl::evaluate(const solver&) const { return false; }
formula_impl* false_formula_impl::make_not() { return true_formula_impl::get(); }
formula_impl* false_formula_impl::and_with(formula_impl*, bool) { return this; }
formula_impl* false_formula_impl::or_with(formula_impl* other, bool) { return other; }
void false_formula_impl::print(std::ostream& os, const variable_print_strategy&, int) const {
  os << "false";
}

//==== binary forms ======================================================================

binary_operator_formula_impl::binary_operator_formula_impl(formula_impl* left,
                                                           formula_impl* right)
    : m_left(left), m_right(right) {
  formula::mark_linked(m_left);
  formula::mark_linked(m_right);
}

binary_operator_formula_impl::~binary_operator_formula_impl() {
  release(m_left);
  release(m_right);
}

void* binary_operator_formula_impl::operator new(std::size_t size) {
  if (size != sizeof(binary_operator_formula_impl)) throw std::bad_alloc();
  return binary_pool.allocate(1);
}

void binary_operator_formula_impl::operator delete(void* p, std::size_t) noexcept {
  binary_pool.deallocate(static_cast<binary_operator_formula_impl*>(p), 1);
}

formula_impl* binary_operator_formula_impl::make_not() { return new not_formula_impl(this); }

formula_impl* binary_operator_formula_impl::and_with(formula_impl* other, bool try_other) {
  if (other == this) return this;
  if (try_other) return other->and_with(this, false);
  return new binary_and_formula_impl(this, other);
}

formula_impl* binary_operator_formula_impl::or_with(formula_impl* other, bool try_other) {
  if (other == this) return this;
  if (try_other) return other->or_with(this, false);
  return new binary_or_formula_impl(this, other);
}

void binary_and_formula_impl::constrain_solver(solver& s) const {
  m_left->constrain_solver(s);
  m_right->constrain_solver(s);
}

unsigned int binary_and_formula_impl::reify(solver& s) const {
  const unsigned int a = m_left->reify(s);
  if (is_false_var(s, a)) return s.singleton_var(0);
  const unsigned int b = m_right->reify(s);
  if (is_false_var(s, b)) return s.singleton_var(0);
  if (is_true_var(s, a)) return b;
  if (is_true_var(s, b)) return a;
  const unsigned int r = s.add_var(boolean_domain);
  add_bool_clause(s, ~int(r), int(a));
  add_bool_clause(s, ~int(r), int(b));
  add_bool_clause(s, ~int(a), ~int(b), int(r));
  return r;
}

bool binary_and_formula_impl::evaluate(const solver& s) const {
  return m_left->evaluate(s) && m_right->evaluate(s);
}

void binary_and_formula_impl::print(std::ostream& os, const variable_print_strategy& strategy,
                                    int precedence) const {
  if (precedence > 2) os << "(";
  m_left->print(os, strategy, 2);
  os << "&&";
  m_right->print(os, strategy, 2);
  if (precedence > 2) os << ")";
}

void binary_or_formula_impl::constrain_solver(solver& s) const {
  const unsigned int a = m_left->reify(s);
  if (is_true_var(s, a)) return;
  if (is_false_var(s, a)) {
    m_right->constrain_solver(s);
    return;
  }
  const unsigned int b = m_right->reify(s);
  if (!is_true_var(s, b)) {
    const int literals[] = {int(a), int(b)};
    add_bool_clause(s, literals, 2);
  }
}

unsigned int binary_or_formula_impl::reify(solver& s) const {
  const unsigned int a = m_left->reify(s);
  if (is_true_var(s, a)) return a;
  const unsigned int b = m_right->reify(s);
  if (is_false_var(s, a)) return b;
  if (is_true_var(s, b)) return b;
  if (is_false_var(s, b)) return a;
  const unsigned int r = s.add_var(boolean_domain);
  add_bool_clause(s, ~int(r), int(a), int(b));
  add_bool_clause(s, ~int(a), int(r));
  add_bool_clause(s, ~int(b), int(r));
  return r;
}

bool binary_or_formula_impl::evaluate(const solver& s) const {
  return m_left->evaluate(s) || m_right->evaluate(s);
}

void binary_or_formula_impl::print(std::ostream& os, const variable_print_strategy& strategy,
                                   int precedence) const {
  if (precedence > 1) os << "(";
  m_left->print(os, strategy, 1);
  os << "||";
  m_right->print(os, strategy, 1);
  if (precedence > 1) os << ")";
}

//==== negation ============================================================================

not_formula_impl::not_formula_impl(formula_impl* child) : m_child(child) {
  formula::mark_linked(m_child);
}

not_formula_impl::~not_formula_impl() { release(m_child); }

void* not_formula_impl::operator new(std::size_t size) {
  if (size != sizeof(not_formula_impl)) throw std::bad_alloc();
  return not_pool.allocate(1);
}

void not_formula_impl::operator delete(void* p, std::size_t) noexcept {
  not_pool.deallocate(static_cast<not_formula_impl*>(p), 1);
}

void not_formula_impl::constrain_solver(solver& s) const {
  const unsigned int v = m_child->reify(s);
  const small_model::iset domain = checked_domain(s, v);
  if (!domain.contains(0)) {
    const int literal = ~int(v);
    add_bool_clause(s, &literal, 1);
  } else if (domain.size() > 1) {
    s.set_var_domain(v, small_model::iset::singleton(0), -1);
  }
}

unsigned int not_formula_impl::reify(solver& s) const {
  const unsigned int a = m_child->reify(s);
  if (is_true_var(s, a)) return s.singleton_var(0);
  if (is_false_var(s, a)) return s.singleton_var(1);
  const unsigned int r = s.add_var(boolean_domain);
  add_bool_clause(s, int(r), int(a));
  add_bool_clause(s, ~int(r), ~int(a));
  return r;
}

bool not_formula_impl::evaluate(const solver& s) const { return !m_child->evaluate(s); }

formula_impl* not_formula_impl::and_with(formula_impl* other, bool try_other) {
  if (other == m_child) return false_formula_impl::get();
  if (other == this) return this;
  if (try_other) return other->and_with(this, false);
  return new binary_and_formula_impl(this, other);
}

formula_impl* not_formula_impl::or_with(formula_impl* other, bool try_other) {
  if (other == m_child) return true_formula_impl::get();
  if (other == this) return this;
  if (try_other) return other->or_with(this, false);
  return new binary_or_formula_impl(this, other);
}

void not_formula_impl::print(std::ostream& os, const variable_print_strategy& strategy,
                             int) const {
  os << "not(";
  m_child->print(os, strategy, 0);
  os << ")";
}

//==== clauses ================================================================================

void* clause_formula_impl::operator new(std::size_t size) {
  if (size != sizeof(clause_formula_impl)) throw std::bad_alloc();
  return clause_pool.allocate(1);
}

void clause_formula_impl::operator delete(void* p, std::size_t) noexcept {
  clause_pool.deallocate(static_cast<clause_formula_impl*>(p), 1);
}

void clause_formula_impl::constrain_solver(solver& s) const {
  if (m_clause.empty())
    throw std::runtime_error("clause_formula_impl::constrain_solver emptyclauses should be handled upstream");
  clause_propagator::literal_vector sets;
  sets.reserve(m_clause.size());
  for (const literal_data& l : m_clause) sets.push_back(l.set);
  constraint_connectivity_info& info =
      s.add_constraint(std::make_unique<clause_propagator>(std::move(sets)));
  for (const literal_data& l : m_clause) info << l.variable;
}

unsigned int clause_formula_impl::reify(solver& s) const {
  const unsigned int r = s.add_var(boolean_domain);
  variable_implies_clause(s, r);
  clause_implies_variable(s, r);
  return r;
}

void clause_formula_impl::variable_implies_clause(solver& s, unsigned int r) const {
  clause_propagator::literal_vector sets;
  sets.reserve(m_clause.size() + 1);
  sets.push_back(small_model::iset::singleton(0));
  for (const literal_data& l : m_clause) sets.push_back(l.set);
  constraint_connectivity_info& info =
      s.add_constraint(std::make_unique<clause_propagator>(std::move(sets)));
  info << r;
  for (const literal_data& l : m_clause) info << l.variable;
}

void clause_formula_impl::clause_implies_variable(solver& s, unsigned int r) const {
  for (const literal_data& l : m_clause)
    s.add_constraint(std::make_unique<clause_propagator>(
        clause_propagator::literal_vector{~l.set, small_model::iset::singleton(1)}))
        << l.variable << r;
}

bool clause_formula_impl::evaluate(const solver& s) const {
  for (const literal_data& l : m_clause)
    if (checked_domain(s, l.variable).subset_of(l.set)) return true;
  return false;
}

formula_impl* clause_formula_impl::make_not() {
  if (m_clause.empty())
    throw std::runtime_error("clause_formula_impl::make_not empty clauses should be handled upstream");
  // Built through the folding operators: a full-set literal makes its complement
  // the false constant (and the whole negation false) instead of an empty-set
  // literal, and an empty-set literal drops out as true.
  formula result(true);
  for (const literal_data& l : m_clause) {
    result = result && formula(l.variable, ~l.set);
    if (result.is_false()) break;
  }
  // Hand the node over without its handle's reference: the caller's handle takes it.
  formula_impl* node = result.m_node;
  result.m_node = nullptr;
  --node->m_count;
  return node;
}

formula_impl* clause_formula_impl::and_with(formula_impl* other, bool try_other) {
  if (other == this) return this;
  if (try_other) return other->and_with_clause(this);
  // Two clauses passing the turn back and forth would never end: the clause step
  // decides, with this clause on the left.
  if (clause_formula_impl* c = dynamic_cast<clause_formula_impl*>(other))
    return c->and_with_clause(this);
  return other->and_with(this, false);
}

formula_impl* clause_formula_impl::or_with(formula_impl* other, bool try_other) {
  if (other == this) return this;
  if (try_other) return other->or_with_clause(this);
  if (clause_formula_impl* c = dynamic_cast<clause_formula_impl*>(other))
    return c->or_with_clause(this);
  return other->or_with(this, false);
}

formula_impl* clause_formula_impl::and_with_clause(clause_formula_impl* other) {
  const clause_data& mine = m_clause;
  const clause_data& theirs = other->m_clause;
  if (mine.size() == 1 && theirs.size() == 1 && mine[0].variable == theirs[0].variable) {
    const small_model::iset s = mine[0].set & theirs[0].set;
    if (s.empty()) return false_formula_impl::get();
    if (s == mine[0].set) return this;
    if (s == theirs[0].set) return other;
    clause_data one;
    one.add(mine[0].variable, s);
    return new clause_formula_impl(std::move(one));
  }
  return new binary_and_formula_impl(other, this);
}

formula_impl* clause_formula_impl::or_with_clause(clause_formula_impl* other) {
  // The copy that is sorted and searched is always that of the shorter clause.
  if (other->m_clause.size() > m_clause.size()) return other->or_with_clause(this);
  clause_data merged(other->m_clause);
  merged.sort();
  const std::size_t searched = merged.size();
  for (const literal_data& l : m_clause) {
    clause_data::literal_vector& entries = merged.literals();
    const auto end = entries.begin() + std::ptrdiff_t(searched);
    const auto it = std::lower_bound(entries.begin(), end, l);
    if (it == end || it->variable != l.variable) {
      merged.add(l);
      continue;
    }
    it->set |= l.set;
    if (it->set.is_full()) return true_formula_impl::get();
  }
  if (m_clause.equivalent(merged)) return this;
  if (other->m_clause.equivalent(merged)) return other;
  return new clause_formula_impl(std::move(merged));
}

void clause_formula_impl::print(std::ostream& os, const variable_print_strategy& strategy,
                                int) const {
  m_clause.print(os, strategy);
}

}  // namespace zelk
