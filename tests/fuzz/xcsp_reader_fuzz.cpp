// Fuzzing harness of the XCSP 2.1 reader: any bytes go through libxml2 and the
// reader into a recording callback, which prints every tree it gets. A bad
// document may end in an exception; a crash, a leak or a sanitizer report may not.
//
// With ZELK_FUZZ=ON (clang) libFuzzer drives this entry point; the ordinary
// build links it to fuzz_replay_main.cpp, which replays tests/fuzz/corpus/xcsp.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>

#include "unit/xcsp_recording_callback.h"
#include "xcsp/XMLParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk_test::xcsp_recording_callback callback;
  CSPXMLParser::XMLParser_libxml2<CSPXMLParser::CSPParserCallback, CSPXMLParser::DefaultASTFactory>
      parser(callback);
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  try {
    parser.parse(in);
  } catch (const std::exception&) {
    // Refusing a document is a correct answer.
  }
  return 0;
}
