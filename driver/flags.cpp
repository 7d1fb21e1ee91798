// Parsing of the command line, the usage text, and the transfer of the options to
// a solver.
#include "driver/flags.h"

#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include "impl/solver.h"
#include "impl/utilities.h"

namespace zelk {

//==== flags =====================================================================

void flags::apply(solver&) const {}

std::string flags::legal_args() const { return "h"; }

bool flags::parse_option(char c) {
  if (c != 'h') return false;
  help = true;
  return true;
}

void flags::usage_short(std::ostream& os) { os << "[-h]"; }

void flags::usage_long(std::ostream& os) { os << "  -h  Gives this help message\n"; }

void flags::validate_consistent() const {}

bool flags::parse(int argc, char** argv) {
  const std::string args = legal_args();
  bool ok = true;
  for (;;) {
    const int c = getopt(argc, argv, args.c_str());
    if (c < 0) break;
    if (c == '?') {
      ok = false;  // getopt has written its message
      break;
    }
    if (!parse_option(char(c))) {
      std::cerr << "Bad option -" << char(c) << "\n";
      ok = false;
      break;
    }
  }
  if (!ok || help)
    usage(std::cout, argv[0]);
  else
    validate_consistent();
  return ok;
}

void flags::usage(std::ostream& os, const char* program) {
  os << "Usage: " << program << " ";
  usage_short(os);
  os << "\n";
  usage_long(os);
}

//==== zelk_flags ==================================================================

std::string zelk_flags::legal_args() const {
  return flags::legal_args() + "DdmVGgApaJj:s:l:o:c:b:r:e:C:E:L:f:i:k:";
}

bool zelk_flags::parse_option(char c) {
  switch (c) {
    case 'h': help = true; return true;
    case 'l': report_level = int(std::strtol(optarg, nullptr, 10)); return true;
    case 's': seed = std::uint32_t(std::strtoul(optarg, nullptr, 0)); return true;
    case 'o': opportunistic_threshold = std::uint32_t(std::strtoul(optarg, nullptr, 0)); return true;
    case 'c': max_conflict_clause = std::uint32_t(std::strtoul(optarg, nullptr, 0)); return true;
    case 'f': cost_lowering_factor = std::uint32_t(std::strtoul(optarg, nullptr, 0)); return true;
    case 'i': analysis_cost_factor = std::strtod(optarg, nullptr); return true;
    case 'k': conflict_cost_factor = std::strtod(optarg, nullptr); return true;
    case 'd': all_solutions = !all_solutions; return true;
    case 'D': quiet_optimization = !quiet_optimization; return true;
    case 'b': backtrack_limit = int(std::strtoul(optarg, nullptr, 0)); return true;
    case 'r': restart_threshold = int(std::strtoul(optarg, nullptr, 0)); return true;
    case 'a': global_all_different = global_all_different <= 0 ? 1 : 0; return true;
    case 'e':
      conflicts_before_boosting_effort = int(std::strtoul(optarg, nullptr, 0));
      return true;
    case 'C':
      keep_constraints_from_conflicts = int(std::strtoul(optarg, nullptr, 0));
      return true;
    case 'E': erase_after_backtracks = int(std::strtoul(optarg, nullptr, 0)); return true;
    case 'V': validate_unsat = !validate_unsat; return true;
    case 'p': proof = !proof; return true;
    case 'G': intersect_with_ground = intersect_with_ground == 0 ? 1 : 0; return true;
    case 'j': relaxation_mode = std::uint32_t(std::strtoul(optarg, nullptr, 0)); return true;
    case 'J': relax_conflict_cause = !relax_conflict_cause; return true;
    case 'm': combine = !combine; return true;
    case 'g': check_domain_ages = !check_domain_ages; return true;
    case 'A': augment_explanations = !augment_explanations; return true;
    default: return false;
  }
}

void zelk_flags::usage_short(std::ostream& os) {
  flags::usage_short(os);
  os << " [-s seed] [-l report_level] [-o opportunistic_threshold]\n"
        "       [-c max_conflict_clause] [-b backtrack_limit] "
        "[-r restart_threshold]\n"
        "       [-C keep_constraints_from_conflicts] "
        "[-E erase_after_backtracks]\n"
        "       [-e conflicts_before_boosting_effort] "
        "[-f cost_lowering_factor]\n"
        "       [-i analysis_cost_factor] [-k conflict_cost_factor] "
        "[-a|-p|-y|-A|-g|-J|-m]\n"
        "       [file1 [file2[...]]]";
}

void zelk_flags::usage_long(std::ostream& os) {
  flags::usage_long(os);
  os << "  -p  Toggle whether a proof is to be produced (default no)\n"
        "  -V  Toggle whether to validate UNSAT using the proof mechanism "
        "(default no)\n"
        "  -G  Toggle whether to intersect conflict clause domains with "
        "ground zero\n"
        "      domains\n"
        "  -g  Toggle whether to let explainer check domain ages "
        "(default yes)\n"
        "  -A  Toggle whether to augment explanations (default yes)\n"
        "      Augmented explanations are weaker clauses than strict "
        "explanations; they\n"
        "      add freedom to the pivot if the resolution will hide it\n"
        "  -a  Toggle whether to use global all_different or not\n"
        "  -l N Set the report level to 0<=N<=4 (default 0)\n"
        "  -j N Set the relaxation mode for literals:\n"
        "       0=none, 1=level, 2=complete (default 2)\n"
        "       Where 1=level means that a literal is relaxed only if "
        "it moves\n"
        "       a literal to an earlier level.\n"
        "  -J   Toggle whether to relax the cause node of a conflicting"
        " constraint (default no)\n"
        "  -m   Toggle whether to combine general constraints into a new "
        "constraint.\n"
        "       Attempt to avoid explanation clauses (default yes)\n"
        "  -c N  Will set the maximum size of conflict clause which is "
        "still guaranteed\n"
        "        to be inserted\n"
        "  -o opportunistic_threshold\n"
        "     The minimum number of decisions to be undone below which "
        "opportunistic\n"
        "     back-jumping is not performed.\n"
        "  -b N  Maximum backtracks allowed\n"
        "  -r N>0  Number of backtracks performed before the first "
        "restart takes place\n"
        "  -r 0    Disable restarts\n"
        "  -e N    Conflicts per constraint before boosting its effort\n"
        "  -f N    Upon backtrack multiply all costs by (N-1)/N\n"
        "  -i FLOAT By how much variables in conflicts have higher costs\n"
        "           than initial cost\n"
        "  -k FLOAT In decision prefer latest conflict variables by this "
        "much\n"
        "  -C N    Clauses used in the last N conflicts are not erased "
        "during\n"
        "         old clause erasure\n"
        "  -E N   Perform clause erasure every N conflicts\n";
}

void zelk_flags::validate_consistent() const {
  if (intersect_with_ground != 0 && (validate_unsat || proof))
    throw std::runtime_error(
        "Can't work with proofs when intersect_with_ground is in effect, try the -G flag.\n"
        "Note: it will make a different runs.");
}

void zelk_flags::apply(solver& s) const {
  const unsigned int seed_in_force = random::set_seed(seed);
  std::cout << "c Seed is " << seed_in_force << std::endl;
  s.report_level = report_level;
  s.print_proof = proof;
  s.validate_unsat = validate_unsat;
  if (max_conflict_clause != 0xFFFFFFFFu) s.max_conflict_clause = max_conflict_clause;
  if (opportunistic_threshold != 0) s.opportunistic_threshold = opportunistic_threshold;
  if (restart_threshold >= 0) s.restart_threshold = unsigned(restart_threshold);
  if (backtrack_limit >= 0) s.backtrack_limit = unsigned(backtrack_limit);
  if (cost_lowering_factor != 0)
    s.stack().set_cost_scale(1.0 / (double(cost_lowering_factor) - 1.0) + 1.0);
  if (analysis_cost_factor > 0) s.analysis_cost_factor = analysis_cost_factor;
  if (conflict_cost_factor > 0) s.conflict_cost_factor = conflict_cost_factor;
  if (quiet_optimization) s.quiet_optimization = true;
  if (all_solutions) s.all_solutions = true;
  if (conflicts_before_boosting_effort >= 0)
    s.conflicts_before_boosting_effort = unsigned(conflicts_before_boosting_effort);
  if (keep_constraints_from_conflicts > 0)
    s.keep_constraints_from_conflicts = unsigned(keep_constraints_from_conflicts);
  if (erase_after_backtracks > 0) s.erase_after_backtracks = unsigned(erase_after_backtracks);
  s.produce_proof(validate_unsat || proof);
  if (intersect_with_ground >= 0) s.should_intersect_with_ground = intersect_with_ground != 0;
  s.relaxation_mode = relaxation_mode > 2 ? 2 : relaxation_mode;
  s.relax_conflict_cause = relax_conflict_cause;
  s.combine_constraints = combine;
  s.check_domain_ages = check_domain_ages;
  s.augment_explanations = augment_explanations;
}

}  // namespace zelk

//==== per_format_flags ============================================================

std::string per_format_flags::legal_args() const { return zelk_flags::legal_args() + "F:"; }

bool per_format_flags::parse_option(char c) {
  if (zelk_flags::parse_option(c)) return true;
  if (c != 'F') return false;
  const char* word = optarg;
  if (strcasecmp(word, "xcsp") == 0)
    format = XCSP;
  else if (strcasecmp(word, "opb") == 0)
    format = OPB;
  else if (strcasecmp(word, "c") == 0)
    format = C_LIKE;
  else if (strcasecmp(word, "fzn") == 0)
    format = FZN;
  else {
    std::cerr << "Unknown input format (i.e. -F) '" << word << "'. "
              << "Must be one of xcsp, c, fzn, or opb\n";
    return false;
  }
  return true;
}

void per_format_flags::usage_short(std::ostream& os) {
  zelk_flags::usage_short(os);
  os << " [-F formal]";
}

void per_format_flags::usage_long(std::ostream& os) {
  zelk_flags::usage_long(os);
  os << "  -F T   "
        "The input file format (xcsp, c, or opb) [default: xcsp]\n";
}
