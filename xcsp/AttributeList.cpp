// Attribute lookup on the array of a SAX start tag.
#include "xcsp/AttributeList.h"

#include <libxml/xmlstring.h>

namespace CSPXMLParser {

AttributeList::AttributeList(const Byte** attributes) : list(attributes) {
  if (list)
    while (list[2 * size]) ++size;
}

UTF8String AttributeList::operator[](const char* name) const {
  const xmlChar* wanted = reinterpret_cast<const xmlChar*>(name);
  for (int i = 0; i < size; ++i)
    if (xmlStrEqual(list[2 * i], wanted)) return getValue(i);
  return UTF8String();
}

}  // namespace CSPXMLParser
