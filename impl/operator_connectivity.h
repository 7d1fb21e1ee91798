// The common-subexpression table of a model under construction: an operator
// applied to the same arguments has one entry and one result variable, however
// often it occurs. Nothing is posted while the model is read; at the end,
// create_all_constraints posts each entry once with every direction that its
// uses asked for, tightest operators first.
#ifndef ZELK_IMPL_OPERATOR_CONNECTIVITY_H
#define ZELK_IMPL_OPERATOR_CONNECTIVITY_H

#include <map>
#include <memory>
#include <vector>

#include "impl/equivalence_classes.h"
#include "impl/operator_definition_registry.h"
#include "impl/small_iset.h"

namespace zelk {

class solver;

class operator_connectivity {
 public:
  static constexpr unsigned int NO_VARIABLE = 0xFFFFFFFFu;

  struct operator_entry_key {
    const operator_definition* definition;
    std::vector<unsigned int> arguments;  // after canonize_order

    // Higher tightness first, so that iterating the table posts the tightest
    // operators first; then the arguments, and for equal arguments the name,
    // which tells apart definitions of one tightness.
    bool operator<(const operator_entry_key& other) const;
  };

  struct entry {
    unsigned int result;
    unsigned int eval;  // every direction asked for so far, as eval_type bits
    unsigned int owner_flag;
  };

  explicit operator_connectivity(solver& s);
  ~operator_connectivity();
  operator_connectivity(const operator_connectivity&) = delete;
  operator_connectivity& operator=(const operator_connectivity&) = delete;

  // Throws std::out_of_range for a number that is no variable.
  const small_model::iset& var_domain(unsigned int variable) const;

  // The variable of `definition` on the arguments (canonized on a copy), a new
  // entry if there is none. A new entry takes `result`, or with NO_VARIABLE a new
  // variable over `domain` named after the definition and the entry count.
  //
  // An existing entry keeps its variable, merges `eval` and `owner_flag` into its
  // own and ignores `result` and `domain`. The caller that wished for `result`
  // then holds two variables for one expression, and only the returned one is
  // defined by the entry's constraints: whenever the returned variable differs
  // from a wished-for `result`, the caller must post an equality between the
  // two, or the constraint that `result` stood for is lost. That caller is the
  // definition's symbolic_eval for the entries it records on its own account
  // (the inverse entries of a sum or a difference, the double negation), and
  // AST_builder for a result it passes down.
  unsigned int record_operator(const operator_definition& definition, eval_type eval,
                               const unsigned int* args_begin, const unsigned int* args_end,
                               unsigned int result = NO_VARIABLE,
                               small_model::iset domain = everything(),
                               unsigned int owner_flag = 0);

  // Posts every entry, in the order of the table. Called once, at the end of the
  // model.
  void create_all_constraints();

  static const small_model::iset& everything();

  solver& get_solver() const { return m_solver; }
  equivalence_classes& equivalences() { return m_equivalences; }
  const equivalence_classes& equivalences() const { return m_equivalences; }
  const std::map<operator_entry_key, entry>& entries() const { return *m_entries; }

 private:
  solver& m_solver;
  equivalence_classes m_equivalences;
  std::unique_ptr<std::map<operator_entry_key, entry>> m_entries;
};

}  // namespace zelk

#endif
