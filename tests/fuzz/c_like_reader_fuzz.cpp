// Fuzzing harness of the C-like reader: any bytes go through the scanner, the
// grammar and the builder into a solver. A bad model may end in an exception (a
// syntax error, a refused expression, a set written in reverse); a crash, a leak
// or a sanitizer report may not. A model that is read must have declared the
// variables it reports, and a satisfiable answer within a few backtracks must
// give each declared variable one value.
//
// With ZELK_FUZZ=ON (clang) libFuzzer drives this entry point; the ordinary
// build links it to fuzz_replay_main.cpp, which replays tests/fuzz/corpus/c_like.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>

#include "driver/flags.h"
#include "impl/table_propagators.h"
#include "text_formats/c_like_solver.h"

namespace {

// The reader's messages go to the standard streams; a replay of the corpus
// needn't show them.
class silenced {
 public:
  silenced() : m_out(std::cout.rdbuf(m_sink.rdbuf())), m_err(std::cerr.rdbuf(m_sink.rdbuf())) {}
  ~silenced() {
    std::cout.rdbuf(m_out);
    std::cerr.rdbuf(m_err);
  }

 private:
  std::ostringstream m_sink;
  std::streambuf* m_out;
  std::streambuf* m_err;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static zelk::table_propagator_base::memory_manager memory;
  zelk::zelk_flags flags;
  flags.seed = 1;
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  silenced quiet;
  try {
    zelk::c_like_solver s(in, "fuzz.c", flags, memory);
    if (s.reported_variable_count > s.num_variables()) std::abort();
    s.backtrack_limit = 20;
    if (s.solve(nullptr) == zelk::solver::SAT)
      for (unsigned int v = 0; v < s.reported_variable_count; ++v)
        if (!s.stack().domain(v).is_singleton()) std::abort();
  } catch (const std::exception&) {
    // Refusing a model is a correct answer.
  }
  return 0;
}
