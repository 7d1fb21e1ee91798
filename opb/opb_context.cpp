// The OPB model of one file and its translation into solver objects, and the
// constructor of opb_solver that reads a file with the generated scanner and parser.
#include "opb/opb_context.h"

#include <climits>
#include <cstdlib>
#include <iostream>
#include <new>
#include <stdexcept>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/small_iset.h"
#include "opb_parser.hpp"

// The generated reentrant scanner (opb.ll).
int zelk_opb_lex_init_extra(zelk::opb::context* extra, void** scanner);
int zelk_opb_lex_destroy(void* scanner);

namespace zelk {
namespace opb {

context::context(solver& s, std::istream& in, const std::string& file_name)
    : m_input(in), m_file_name(file_name), m_solver(s) {
  m_location = std::make_unique<yy::location>(&m_file_name);
  m_input.unsetf(std::ios::skipws);
  if (zelk_opb_lex_init_extra(this, &m_scanner) != 0) throw std::bad_alloc();
}

context::~context() {
  zelk_opb_lex_destroy(m_scanner);
  for (const conjunction_hash_entry& entry : m_conjunctions) delete entry.conj;
}

std::size_t context::read_input(char* buf, std::size_t max_size) {
  std::istream& in = m_more_input ? *m_more_input : m_input;
  if (!in.good()) return 0;
  in.read(buf, std::streamsize(max_size));
  // A read error is no end of the input: the model would lose its rest.
  if (in.bad()) {
    std::cerr << m_file_name << ": can't read the input" << std::endl;
    throw std::runtime_error(m_file_name + ": Parsing failed");
  }
  return std::size_t(in.gcount());
}

bool context::read_more(std::istream& in, const std::string& file_name) {
  // A fresh scanner: the old one has met the end of its file and keeps that state.
  void* scanner = nullptr;
  if (zelk_opb_lex_init_extra(this, &scanner) != 0) throw std::bad_alloc();
  zelk_opb_lex_destroy(m_scanner);
  m_scanner = scanner;
  m_more_input = &in;
  in.unsetf(std::ios::skipws);
  m_file_name = file_name;
  *m_location = yy::location(&m_file_name);
  yy::opb_parser parser(*this);
  if (trace_parsing()) {
    parser.set_debug_level(1);
    parser.set_debug_stream(std::cout);
  }
  return parser.parse() == 0;
}

//==== called by the grammar ========================================================

const variable& context::get_variable(char* name) {
  if (name == nullptr) throw std::bad_alloc();
  const auto found = m_variables.find(static_cast<const char*>(name));
  if (found != m_variables.end()) {
    std::free(name);
    if (m_labelled) m_variable_labels.emplace_back(&*found, m_label);
    return *found;
  }
  const variable& v = *m_variables.emplace(variable(name)).first;
  if (m_labelled) m_variable_labels.emplace_back(&v, m_label);
  return v;
}

conjunction* context::record_unique_conjunction(conjunction* c) {
  c->normalize();
  // Each labelled part has products of its own: a product variable that both parts
  // used would be shared without either file naming it.
  const conjunction_hash_entry entry{c->hash() + (m_labelled ? m_label * 0x9E3779B97F4A7C15u : 0), c};
  const auto found = m_conjunctions.find(entry);
  if (found != m_conjunctions.end()) {
    delete c;
    return found->conj;
  }
  m_conjunctions.insert(entry);
  return c;
}

void context::add_constraint(constraint* c) {
  std::unique_ptr<constraint> owned(c);
  owned->normalize(*this);
  m_constraints.push_back(std::move(owned));
  m_constraint_labels.push_back(m_label);
}

void context::set_objective(expression* e, direction d) {
  m_objective.reset(e);
  m_direction = d;
  if (m_solver.report_level >= 2) std::cout << "objective[" << *e << "].normalize()\n";
}

//==== model building ===============================================================

namespace {

// Whether the objective as read, single literals made positive and equal atoms
// merged, can be held by a variable: a maximized sum of coefficients 0 or above
// that stays within 31, or a minimized one of zeros only (it is built negated).
bool fits_as_read(const expression& e, context::direction d) {
  long long sum = 0;
  for (const expression::atom_type& atom : e.atoms()) {
    if (d == context::MINIMIZE ? atom.coefficient != 0 : atom.coefficient < 0) return false;
    sum += atom.coefficient;
  }
  return sum <= small_iset::MAX_DOMAIN;
}

}  // namespace

bool context::build_solver() {
  for (const variable& v : m_variables) v.associate(m_solver);
  m_solver.reported_variable_count = unsigned(m_variables.size());
  if (m_labelled) {
    for (const auto& [v, label] : m_variable_labels)
      m_solver.variable_labels(v->solver_variable(),
                               m_solver.variable_labels(v->solver_variable()) | label);
    for (std::size_t i = 0; i < m_constraints.size(); ++i)
      if (!apply_labelled(i)) return false;
    check_fixed_at_creation();
  } else {
    for (const std::unique_ptr<constraint>& c : m_constraints)
      if (!c->apply(*this)) return false;
  }
  if (!m_objective) return true;
  // The objective as read is posted as before wherever it fits, so that those
  // runs keep their variables and their search; the normal form takes the rest.
  expression as_read = *m_objective;
  // A term over one negative literal is worth its coefficient when the variable is
  // 0: as the negated term over the positive literal, its atom variable gets the
  // values (c, 0) instead of following the literal's own variable.
  as_read.make_single_literals_positive(*this);
  as_read.merge_repeated_atoms();
  if (!fits_as_read(as_read, m_direction)) {
    connect_normalized_objective();
    return true;
  }
  *m_objective = std::move(as_read);
  if (m_direction == MINIMIZE) return connect_minimization();
  const unsigned int v =
      m_objective->get_evaluating_variable(*this, expression::LOWER_BOUND, "max::objective");
  m_objective_variable = v;
  m_solver.objective_variable = int(v);
  m_solver.minimize = false;
  return true;
}

bool context::apply_labelled(std::size_t i) {
  const solver::label_type label = m_constraint_labels[i];
  // Products met while building belong to this constraint's part.
  struct label_guard {
    solver::label_type& current;
    solver::label_type saved;
    ~label_guard() { current = saved; }
  } guard{m_label, m_label};
  m_label = label;
  const unsigned int first = m_solver.num_constraints();
  const unsigned int known = m_solver.num_variables();
  std::vector<small_model::iset> before(known);
  for (unsigned int v = 0; v < known; ++v) before[v] = m_solver.stack().domain(v);
  if (!m_constraints[i]->apply(*this)) {
    m_unsatisfiable_label = label;
    return false;
  }
  // A narrowed initial domain would be a fact of no part: it becomes a clause of
  // this constraint's part.
  for (unsigned int v = 0; v < known; ++v) {
    const small_model::iset now = m_solver.stack().domain(v);
    if (now == before[v]) continue;
    m_solver.set_var_domain(v, before[v], -1);
    m_solver.add_constraint(std::make_unique<clause_propagator>(
        clause_propagator::literal_vector{now})) << v;
  }
  // A product or negated literal alone in an equality or at-least constraint is
  // fixed right where its variable is made, so there is no domain to restore.
  for (unsigned int v = known; v < m_solver.num_variables(); ++v)
    if (m_solver.stack().domain(v).size() == 1) m_fixed_at_creation.emplace_back(v, label);
  for (unsigned int c = first; c < m_solver.num_constraints(); ++c)
    m_solver.constraint_labels(c, label);
  return true;
}

void context::check_fixed_at_creation() const {
  // Such a variable's fact belongs to the part that fixed it; a constraint of the
  // other part on the same variable would take it for its own.
  for (unsigned int c = 0; c < m_solver.num_constraints(); ++c) {
    const solver::label_type label = m_solver.constraint_labels(c);
    for (unsigned int v : m_solver.connectivity(c).params())
      for (const auto& [fixed, part] : m_fixed_at_creation)
        if (v == fixed && label != part)
          throw std::runtime_error(m_file_name + ": a product or negated literal that one part fixes "
                                   "stands in a constraint of the other part; the parts can't be split");
  }
}

void context::connect_normalized_objective() {
  // Normalized as the left side of "e >= 0": e = e' - rhs', with every
  // coefficient of e' above 0 (c x = c + (-c) ~x).
  auto normalized = std::make_unique<expression>(*m_objective);
  int rhs = 0;
  normalized->normalize(*this, rhs);
  m_objective_constant = -rhs;
  const bool minimize = m_direction == MINIMIZE;
  const char* name = minimize ? "min::objective" : "max::objective";
  unsigned int v;
  if (normalized->empty()) {
    v = m_solver.add_var(small_model::iset::singleton(0), name);
  } else {
    // A maximized sum needs a variable at most the sum, as for ">=" constraints;
    // a minimized one is tightened downwards, so its variable is the exact sum.
    // Sums beyond 31 raise the range error of small_iset here.
    v = normalized->get_evaluating_variable(
        *this, minimize ? expression::EQUALITY : expression::LOWER_BOUND, name);
  }
  m_normalized_objective = std::move(normalized);
  m_objective_variable = v;
  m_solver.objective_variable = int(v);
  m_solver.minimize = minimize;
  m_solver.objective_offset = m_objective_constant;
}

bool context::connect_minimization() {
  // min e = -(max -e). No variable holds a value below 0, so only an objective
  // whose coefficients are all 0 gets through; build_solver sends no other here
  // (they go to connect_normalized_objective).
  m_objective->negate_coefficients();
  const unsigned int n = m_objective->get_evaluating_variable(*this, expression::LOWER_BOUND,
                                                              "max::neg::objective");
  m_objective->negate_coefficients();
  const small_model::iset negated = m_solver.stack().domain(n);
  small_model::iset domain;
  domain.insert(small_iset::value_range_type(-negated.max(), -negated.min()));
  const unsigned int v = m_solver.add_var(domain, "min::objective");
  m_solver.add_constraint(std::make_unique<neg_propagator>()) << n << v;
  m_objective_variable = v;
  m_solver.objective_variable = int(v);
  m_solver.minimize = true;
  return true;
}

//==== solutions ====================================================================

int context::evaluate_objective() const {
  // The solver's bound works on the objective variable's values: the normalized
  // sum, where there is one; the constant goes to the "o" lines only.
  if (m_normalized_objective) return m_normalized_objective->evaluate(m_solver);
  return m_objective ? m_objective->evaluate(m_solver) : 0;
}

void context::print_solution(std::ostream& out) const {
  std::cout << "v ";
  for (const variable& v : m_variables)
    out << " " << (m_solver.stack().domain(v.solver_variable()).min() == 0 ? "-" : "")
        << v.name();
  out << std::endl;
}

}  // namespace opb
}  // namespace zelk

//==== opb_solver ==================================================================

opb_solver::opb_solver(std::istream& in, const std::string& name, const zelk::zelk_flags& flags,
                       zelk::table_propagator_base::memory_manager&)
    : m_context(*this, in, name) {
  yy::opb_parser parser(m_context);
  flags.apply(*this);
  if (m_context.trace_parsing()) {
    parser.set_debug_level(1);
    parser.set_debug_stream(std::cout);
  }
  // A file that could not be opened is no empty model: say so.
  if (in.fail() && !in.eof()) {
    std::cerr << name << ": can't read the input" << std::endl;
    throw std::runtime_error(name + ": Parsing failed");
  }
  if (parser.parse() != 0) throw std::runtime_error(name + ": Parsing failed");
  if (!m_context.build_solver()) {
    // Any constraint has a variable, so variable 0 exists here; the guard only
    // keeps the answer UNSAT should that ever change.
    if (num_variables() == 0)
      add_var(zelk::small_model::iset());
    else
      set_var_domain(0, zelk::small_model::iset(), -1);
  }
}

void opb_solver::print_solution(std::ostream& out) const { m_context.print_solution(out); }

int opb_solver::evaluate_objective() const { return m_context.evaluate_objective(); }
