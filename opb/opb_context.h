// The OPB reader: opb::context holds the model of one pseudo-Boolean file while it
// is read (variables, unique products, normalized constraints, objective) and
// turns it into solver variables, clauses and sum propagators in build_solver.
// opb_solver is the solver class of the format: its constructor reads and builds.
//
// Every value of a solver variable lies in 0..31, and so does every partial sum
// of a constraint here: coefficients summing above 31 raise the range error of
// small_iset, which ends the run.
#ifndef ZELK_OPB_OPB_CONTEXT_H
#define ZELK_OPB_OPB_CONTEXT_H

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "driver/flags.h"
#include "impl/solver.h"
#include "impl/table_propagators.h"
#include "impl/utilities.h"
#include "opb/opb_conjunction.h"
#include "opb/opb_constraint.h"
#include "opb/opb_expression.h"
#include "opb/opb_variable.h"

namespace yy {
class location;
}

namespace zelk {
namespace opb {

class context : private no_copy {
 public:
  enum direction { MAXIMIZE = 1, MINIMIZE = 2 };
  static constexpr unsigned int NO_VARIABLE = 0xFFFFFFFFu;

  // The element of the set of unique products: ordered by hash, then by product.
  struct conjunction_hash_entry {
    std::uint64_t hash;
    conjunction* conj;
    bool operator<(const conjunction_hash_entry& other) const {
      if (hash != other.hash) return hash < other.hash;
      return *conj < *other.conj;
    }
  };

  // Sets up the scanner on `in`; `file_name` goes into the locations of messages.
  context(solver& s, std::istream& in, const std::string& file_name);
  ~context();

  // ---- called by the grammar ---------------------------------------------
  // Takes over and frees `name`.
  const variable& get_variable(char* name);
  // Normalizes c and returns the one product equal to it; c is deleted if it is
  // a duplicate.
  conjunction* record_unique_conjunction(conjunction* c);
  // Takes over c and normalizes it.
  void add_constraint(constraint* c);
  // Takes over e, replacing any objective. The objective is not normalized.
  void set_objective(expression* e, direction d);

  // ---- model building ------------------------------------------------------
  // False: some constraint can't be satisfied.
  [[nodiscard]] bool build_solver();
  [[nodiscard]] bool connect_minimization();
  // The objective in normal form (positive coefficients, a constant aside), for
  // objectives the form as read can't hold; its variable holds the normalized sum.
  void connect_normalized_objective();

  // ---- solutions -------------------------------------------------------------
  int evaluate_objective() const;
  void print_solution(std::ostream& out) const;

  bool trace_parsing() const { return m_solver.report_level > 2; }
  bool trace_construction() const { return m_solver.report_level > 1; }
  bool trace_failure() const { return m_solver.report_level > 0; }

  solver& get_solver() { return m_solver; }
  const solver& get_solver() const { return m_solver; }

  // ---- scanner state -----------------------------------------------------------
  void* scanner() const { return m_scanner; }
  yy::location& location() { return *m_location; }
  const std::string& file_name() const { return m_file_name; }
  // Fills buf with up to max_size characters of the input; 0 at the end.
  std::size_t read_input(char* buf, std::size_t max_size);

  // ---- one model from several files, in labelled parts -------------------------
  // Parses one more file into this model, before build_solver: a name met again is
  // the same variable. A syntax error has its message on standard error and gives
  // false.
  [[nodiscard]] bool read_more(std::istream& in, const std::string& file_name);
  // The constraints read from now on, and the variables they name, get `label`
  // in the solver when built (solver::constraint_labels, variable_labels). While
  // labels are in use, a constraint that narrows a domain existing before it posts
  // that narrowing as a clause of its own instead, so that every fact of the model
  // stands in a labelled constraint.
  void label_from_now_on(solver::label_type label) {
    m_label = label;
    m_labelled = true;
  }
  // The label of the constraint that build_solver found unsatisfiable.
  solver::label_type unsatisfiable_label() const { return m_unsatisfiable_label; }

  // ---- the model as read ---------------------------------------------------------
  const std::set<variable, variable::less>& variables() const { return m_variables; }
  const std::set<conjunction_hash_entry>& conjunctions() const { return m_conjunctions; }
  const std::vector<std::unique_ptr<constraint>>& constraints() const { return m_constraints; }
  const expression* objective() const { return m_objective.get(); }
  direction objective_direction() const { return m_direction; }
  unsigned int objective_variable() const { return m_objective_variable; }
  // Set by connect_normalized_objective: the objective is the normalized sum
  // plus this constant.
  const expression* normalized_objective() const { return m_normalized_objective.get(); }
  int objective_constant() const { return m_objective_constant; }

 private:
  void* m_scanner = nullptr;
  std::istream& m_input;
  std::string m_file_name;
  std::unique_ptr<yy::location> m_location;
  std::set<variable, variable::less> m_variables;
  std::set<conjunction_hash_entry> m_conjunctions;
  std::vector<std::unique_ptr<constraint>> m_constraints;
  std::unique_ptr<expression> m_objective;
  direction m_direction = MAXIMIZE;
  unsigned int m_objective_variable = NO_VARIABLE;
  std::unique_ptr<expression> m_normalized_objective;
  int m_objective_constant = 0;
  solver& m_solver;
  // Labelled parts (read_more, label_from_now_on).
  std::istream* m_more_input = nullptr;
  solver::label_type m_label = 0;
  bool m_labelled = false;
  std::vector<solver::label_type> m_constraint_labels;  // parallel to m_constraints
  std::vector<std::pair<const variable*, solver::label_type>> m_variable_labels;
  solver::label_type m_unsatisfiable_label = 0;
  std::vector<std::pair<unsigned int, solver::label_type>> m_fixed_at_creation;

  bool apply_labelled(std::size_t i);
  void check_fixed_at_creation() const;
};

}  // namespace opb
}  // namespace zelk

// The solver of the OPB format: reads the file and builds the model in its
// constructor, and prints solutions as "v" lines of signed names.
class opb_solver : public zelk::solver {
 public:
  // A syntax error: the message on standard error, then std::runtime_error
  // "<name>: Parsing failed". A constraint found unsatisfiable while building
  // empties a domain, so that solve answers UNSAT at once. The memory manager
  // is not used.
  opb_solver(std::istream& in, const std::string& name, const zelk::zelk_flags& flags,
             zelk::table_propagator_base::memory_manager& memory);

  void print_solution(std::ostream& out) const override;
  int evaluate_objective() const override;

  const zelk::opb::context& context() const { return m_context; }
  zelk::opb::context& context() { return m_context; }

 private:
  zelk::opb::context m_context;
};

#endif
