#include "xcsp/xcsp_solver.h"

#include <libxml/xmlversion.h>

#include <iostream>
#include <stdexcept>

#include "xcsp/XMLParser.h"
#include "xcsp/xcsp_callbacks.h"

namespace zelk {

xcsp_solver::xcsp_solver(std::istream& in, const std::string& name, const zelk_flags& flags,
                         table_propagator_base::memory_manager& memory) {
  xcsp_callbacks callbacks(*this, memory);
  callbacks.set_detect_all_diff(flags.global_all_different != 0);
  CSPXMLParser::XMLParser_libxml2<CSPXMLParser::CSPParserCallback, CSPXMLParser::DefaultASTFactory>
      parser(callbacks);
  xmlCheckVersion(20901);  // libxml2 2.9.1, the oldest version this reader is built for
  // A file that could not be opened is no empty document, which would be satisfiable.
  if (in.fail() && !in.eof()) {
    std::cerr << name << ": can't read the input" << std::endl;
    throw std::runtime_error(name + ": Parsing failed");
  }
  parser.parse(in);
  flags.apply(*this);
}

}  // namespace zelk
