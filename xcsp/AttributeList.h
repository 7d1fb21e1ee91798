// A view of the attributes of a start tag as libxml2's SAX interface hands
// them over: a null-terminated array of name, value, name, value pointers.
#ifndef ZELK_XCSP_ATTRIBUTELIST_H
#define ZELK_XCSP_ATTRIBUTELIST_H

#include "xcsp/UTF8String.h"

namespace CSPXMLParser {

class AttributeList {
 public:
  typedef unsigned char Byte;  // libxml2's xmlChar

  // No attributes.
  AttributeList() = default;
  // `attributes` may be null; the array must outlive the view.
  explicit AttributeList(const Byte** attributes);

  int getSize() const { return size; }
  UTF8String getName(int i) const { return UTF8String(list[2 * i], nullptr); }
  UTF8String getValue(int i) const { return UTF8String(list[2 * i + 1], nullptr); }

  // The value of the first attribute called `name`, or the null string.
  UTF8String operator[](const char* name) const;

 private:
  int size = 0;
  const Byte** list = nullptr;
};

}  // namespace CSPXMLParser

#endif
