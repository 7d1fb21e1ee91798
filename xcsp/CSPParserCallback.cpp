// Out-of-line destructor: the one place the interface's virtual table is emitted.
#include "xcsp/CSPParserCallback.h"

namespace CSPXMLParser {

CSPParserCallback::~CSPParserCallback() = default;

}  // namespace CSPXMLParser
