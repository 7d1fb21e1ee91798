// Fuzzing harness of the XCSP 2.1 reader: any bytes go through libxml2 and the
// reader into a recording callback, which prints every tree it gets. A bad
// document may end in an exception; a crash, a leak or a sanitizer report may
// not, nor a tree that breaks what the reader promises (checked below).
//
// With ZELK_FUZZ=ON (clang) libFuzzer drives this entry point; the ordinary
// build links it to fuzz_replay_main.cpp, which replays tests/fuzz/corpus/xcsp.
#include <cstddef>
#include <cstdlib>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>

#include "unit/xcsp_recording_callback.h"
#include "xcsp/XMLParser.h"

namespace {

// Dictionary keys and list marks belong to the reader's operand stack: no
// tree handed to the callback may hold one.
void check_tree(const CSPXMLParser::AST* tree) {
  if (tree == nullptr || tree->getType() == CSPXMLParser::DICT_KEY) std::abort();
  if (tree->getType() == CSPXMLParser::DICT) {
    for (const auto& entry : static_cast<const CSPXMLParser::ASTDict*>(tree)->entries) check_tree(entry.second);
    return;
  }
  if (tree->getType() == CSPXMLParser::LIST)
    for (int i = 0; i < tree->nbArg(); ++i) check_tree(tree->getArg(i));
}

class checking_callback : public zelk_test::xcsp_recording_callback {
 public:
  void constraintParameters(const CSPXMLParser::ASTList& arguments) override {
    check_tree(&arguments);
    xcsp_recording_callback::constraintParameters(arguments);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checking_callback callback;
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
