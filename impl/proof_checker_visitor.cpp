// Independent check of each step of a replayed refutation. The resolvent is
// computed here anew, not through proof_collector::resolve, so that a fault in
// the collector's resolution cannot hide itself.
#include "impl/proof_checker_visitor.h"

#include <algorithm>
#include <ostream>

#include "impl/solver.h"

namespace zelk {

namespace {

// The same literals in the same order. The common case: the replay hands on the
// very clause it stored.
bool same_literals(const clause_data& a, const clause_data& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].variable != b[i].variable || a[i].set != b[i].set) return false;
  return true;
}

}  // namespace

bool proof_checker_visitor::agree(const clause_data& a, const clause_data& b) {
  if (same_literals(a, b)) return true;
  // Two clauses are one when every variable has the same union of sets on both
  // sides (the normal form merges a variable's literals and drops empty ones).
  // By variable, in one pass over each: no copy, no sort.
  const auto note = [this](const literal_data& l, bool left) {
    if (l.variable >= m_unions.size()) m_unions.resize(std::size_t(l.variable) + 1);
    variable_union& u = m_unions[l.variable];
    if (!u.touched) {
      u.touched = true;
      m_touched.push_back(l.variable);
    }
    (left ? u.left : u.right) |= l.set;
  };
  for (const literal_data& l : a) note(l, true);
  for (const literal_data& l : b) note(l, false);
  bool same = true;
  for (unsigned int v : m_touched) {
    if (m_unions[v].left != m_unions[v].right) same = false;
    m_unions[v] = variable_union();
  }
  m_touched.clear();
  return same;
}

std::ostream* proof_checker_visitor::complain() {
  m_result = false;
  return m_complaints;
}

const clause_data* proof_checker_visitor::find_known(int id) {
  if (id < 0) {
    const std::unordered_map<int, clause_data>::const_iterator it = m_chain.find(id);
    return it == m_chain.end() ? nullptr : &it->second;
  }
  const std::size_t i = unsigned(id);
  if (i >= m_known.size() || m_known[i] == UNKNOWN) return nullptr;
  if (m_known[i] == STORED) return &m_stored.find(unsigned(id))->second;
  m_collector->get_clause(id, m_recorded);
  return &m_recorded;
}

void proof_checker_visitor::mark(int id, unsigned char state) {
  const std::size_t i = unsigned(id);
  if (i >= m_known.size()) m_known.resize(std::max(i + 1, 2 * m_known.size()), UNKNOWN);
  m_known[i] = state;
}

void proof_checker_visitor::store(int id, const clause_data& clause) {
  if (id < 0) {
    m_chain.insert_or_assign(id, clause);
    return;
  }
  m_stored.insert_or_assign(unsigned(id), clause);
  mark(id, STORED);
}

void proof_checker_visitor::learn(int id, const clause_data& clause) {
  // A learned clause as the collector holds it, which is the common case, is not
  // copied: a later premise is compared with the collector's clause, the same one.
  if (id >= 0 && m_collector->has_clause(unsigned(id))) {
    m_collector->get_clause(id, m_recorded);
    if (agree(m_recorded, clause)) {
      m_stored.erase(unsigned(id));
      mark(id, AS_RECORDED);
      return;
    }
  }
  store(id, clause);
}

void proof_checker_visitor::retire_chain() {
  for (const auto& [id, clause] : m_chain) {
    if (m_collector->is_explanation_clause(id)) continue;
    m_retired_low = std::min(m_retired_low, id);
    m_retired_high = std::max(m_retired_high, id);
  }
  m_chain.clear();
}

void proof_checker_visitor::visit_clause(int id, const clause_data& clause, bool must_match) {
  if (const clause_data* known = find_known(id)) {
    if (!agree(*known, clause)) {
      if (std::ostream* os = complain())
        *os << "clause[" << id << "] " << "has different literals than previously\n";
    }
    return;
  }
  if (!m_collector->is_explanation_clause(id) && is_retired(id)) {
    // Its meaning is gone with its chain: no later step may take it up again.
    if (std::ostream* os = complain())
      *os << "clause[" << id << "] " << "has different literals than previously\n";
    store(id, clause);
    return;
  }
  if (!m_collector->is_explanation_clause(id) && !must_match) {
    learn(id, clause);
    return;
  }
  clause_data recorded;
  m_collector->get_clause(id, recorded);
  if (!agree(recorded, clause)) {
    if (std::ostream* os = complain())
      *os << "clause[" << id << "] " << "has different literals than passed by "
          << "the proof algorithm\n";
  }
  store(id, clause);
}

void proof_checker_visitor::visit_explanation(int id) {
  clause_data clause;
  m_collector->get_clause(id, clause);
  store(id, clause);
}

void proof_checker_visitor::visit_resolution(unsigned int pivot, int left_id,
                                             const clause_data& left, int right_id,
                                             const clause_data& right, int result_id,
                                             const clause_data& result) {
  visit_clause(left_id, left, true);
  visit_clause(right_id, right, true);
  visit_clause(result_id, result, false);
  // (pivot in A or P) and (pivot in B or Q) give (pivot in A and B, or P, or Q),
  // where A and B are the unions of all pivot literals of each side.
  clause_data& expected = m_expected;
  expected.clear();
  small_model::iset a;
  small_model::iset b;
  for (const literal_data& l : left) {
    if (l.variable == pivot)
      a |= l.set;
    else
      expected.add(l);
  }
  for (const literal_data& l : right) {
    if (l.variable == pivot)
      b |= l.set;
    else
      expected.add(l);
  }
  expected.add(pivot, a & b);
  if (!agree(expected, result)) {
    if (std::ostream* os = complain())
      *os << "Resolution between clause[" << left_id << "] and clause[" << right_id
          << "] gave wrong clause[" << result_id << "]\n";
  }
  if (result_id >= 0) retire_chain();
}

void proof_checker_visitor::visit_initial_resolution(unsigned int variable,
                                                     const small_model::iset& initial, int id,
                                                     const clause_data& clause, int result_id,
                                                     const clause_data& result) {
  visit_clause(id, clause, true);
  visit_clause(result_id, result, false);
  // Variables are named as in the proof text, so that a complaint can be found there.
  const variable_print_strategy& names = m_collector->get_solver().stack().print_strategy();
  clause_data rest(clause);
  clause_data::literal_vector& literals = rest.literals();
  for (std::size_t i = literals.size(); i-- > 0;) {
    if (literals[i].variable != variable) continue;
    if (!(literals[i].set & initial).empty()) {
      if (std::ostream* os = complain()) {
        *os << "Resolution of clause[" << id << "] with initial domain of ";
        names.print(*os, variable);
        *os << " does not empty the domain\n";
      }
    }
    literals.erase(literals.begin() + std::ptrdiff_t(i));
  }
  if (!agree(rest, result)) {
    if (std::ostream* os = complain()) {
      *os << "Resolution of clause[" << id << "] with initial domain of ";
      names.print(*os, variable);
      *os << " is different than passed clause[" << result_id << "]\n";
    }
  }
}

}  // namespace zelk
