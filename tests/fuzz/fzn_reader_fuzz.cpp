// Fuzzing harness of the FlatZinc reader: any bytes go through the scanner, the
// grammar and the parser context into a solver, which then searches under a small
// backtrack limit. A bad model may end in an exception (a parse failure, an
// unsupported constraint, a value out of range); a crash, a leak or a sanitizer
// report may not, nor a solution whose printed values lie outside the domains
// the model declared.
//
// With ZELK_FUZZ=ON (clang) libFuzzer drives this entry point; the ordinary
// build links it to fuzz_replay_main.cpp, which replays tests/fuzz/corpus/fzn.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>

#include "impl/table_propagators.h"
#include "text_formats/fzn_solver.h"

namespace {

// Every declared scalar variable holds a value of its declared domain once a
// solution is found (the domain in the solver can only have shrunk).
void check_solution(const zelk::fzn_solver& s) {
  for (const auto& [name, symbol] : s.context.symbols)
    for (const auto& v : symbol.values) {
      if (v.is_constant()) continue;
      if (!s.stack().domain(v.id).is_singleton()) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::table_propagator_base::memory_manager memory;  // outlives the solver below
  zelk::zelk_flags flags;
  flags.seed = 1;
  flags.backtrack_limit = 64;
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  // The reader and the search talk on the standard streams; a fuzzing run keeps them quiet.
  std::ostringstream sink;
  std::streambuf* const out = std::cout.rdbuf(sink.rdbuf());
  std::streambuf* const err = std::cerr.rdbuf(sink.rdbuf());
  try {
    zelk::fzn_solver s(in, "fuzz.fzn", flags, memory);
    if (s.solve() == zelk::solver::SAT) check_solution(s);
  } catch (const std::exception&) {
    // Refusing a model is a correct answer.
  }
  std::cout.rdbuf(out);
  std::cerr.rdbuf(err);
  return 0;
}
