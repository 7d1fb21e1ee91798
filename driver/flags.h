// The option frame: three classes, each extending the one before, parse the command
// line with getopt. zelk::flags knows only help, zelk::zelk_flags all the search
// options, per_format_flags adds the choice of input format.
//
// Option values stay here; they reach a solver only when a format's constructor
// calls apply().
#ifndef ZELK_DRIVER_FLAGS_H
#define ZELK_DRIVER_FLAGS_H

#include <cstdint>
#include <iosfwd>
#include <string>

namespace zelk {

class solver;

class flags {
 public:
  virtual ~flags() = default;
  virtual void apply(solver& s) const;
  virtual std::string legal_args() const;
  virtual bool parse_option(char c);
  virtual void usage_short(std::ostream& os);
  virtual void usage_long(std::ostream& os);
  virtual void validate_consistent() const;

  // False on a bad option (a message on standard error, usage on standard output).
  bool parse(int argc, char** argv);
  void usage(std::ostream& os, const char* program);

  bool help = false;
};

class zelk_flags : public flags {
 public:
  void apply(solver& s) const override;
  std::string legal_args() const override;
  bool parse_option(char c) override;
  void usage_short(std::ostream& os) override;
  void usage_long(std::ostream& os) override;
  void validate_consistent() const override;

  int report_level = 0;
  std::uint32_t seed = 0;
  std::uint32_t opportunistic_threshold = 0;           // 0: not set
  std::uint32_t max_conflict_clause = 0xFFFFFFFFu;     // all ones: not set
  std::uint32_t cost_lowering_factor = 0;              // 0: not set
  double analysis_cost_factor = -1.0;                  // not above 0: not set
  double conflict_cost_factor = -1.0;                  // not above 0: not set
  bool all_solutions = false;
  bool quiet_optimization = false;
  int backtrack_limit = 1000000000;
  int restart_threshold = -1;
  // Read by the formats as "not 0": -1 (default) and one -a mean on, two -a off.
  int global_all_different = -1;
  int conflicts_before_boosting_effort = -1;
  int keep_constraints_from_conflicts = -1;
  int erase_after_backtracks = -1;
  bool validate_unsat = false;
  bool proof = false;
  // -1 not set; the first -G gives 0, a second 1.
  int intersect_with_ground = -1;
  std::uint32_t relaxation_mode = 2;
  bool relax_conflict_cause = false;
  bool combine = true;
  bool check_domain_ages = true;
  bool augment_explanations = true;
};

}  // namespace zelk

// Adds the input format (-F) to the search options.
class per_format_flags : public zelk::zelk_flags {
 public:
  enum input_format : std::uint32_t { XCSP = 0, OPB = 1, FZN = 2, C_LIKE = 3 };

  std::string legal_args() const override;
  bool parse_option(char c) override;
  void usage_short(std::ostream& os) override;
  void usage_long(std::ostream& os) override;

  std::uint32_t format = XCSP;
};

#endif
