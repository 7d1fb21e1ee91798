// A cheap value type over UTF-8 bytes for the XML reader: a view of bytes held
// elsewhere (libxml2's buffers, static names), or an owning buffer grown with
// append(). A NUL byte ends the string even before `end`.
#ifndef ZELK_XCSP_UTF8STRING_H
#define ZELK_XCSP_UTF8STRING_H

#include <iosfwd>
#include <string>
#include <vector>

namespace CSPXMLParser {

class UTF8String {
 public:
  typedef unsigned char Byte;

  // Walks code points. The bound keeps decoding of a sequence cut short by
  // the end of the string from reading beyond it.
  class iterator {
   public:
    iterator() = default;
    iterator(const Byte* p, const Byte* bound) : p(p), bound(bound) {}

    // Bytes in the sequence that starts with `lead`; raises "invalid UTF8
    // character" for a byte that cannot start one.
    static int codeLength(Byte lead);

    // The code point under the iterator; the iterator stays.
    int operator*() const;
    iterator& operator++();
    iterator operator++(int);
    bool operator==(const iterator& other) const { return p == other.p; }
    bool operator!=(const iterator& other) const { return p != other.p; }
    // At the bound or on a NUL byte.
    bool atEnd() const { return p == bound || *p == 0; }
    const Byte* getPointer() const { return p; }

   private:
    const Byte* p = nullptr;
    const Byte* bound = nullptr;
  };

  // Splits a string into words at white space; each separator code point is
  // a word of its own.
  class Tokenizer {
   public:
    explicit Tokenizer(const UTF8String& text);

    void addSeparator(int codePoint) { separators.push_back(codePoint); }
    bool hasMoreTokens() const { return pos != end && *pos != 0; }
    // The next word as a view, or the null string at the end.
    UTF8String nextToken();

   private:
    bool isSeparator(int codePoint) const;
    void skipWhiteSpace();

    const Byte* pos;
    const Byte* end;
    std::vector<int> separators;
  };

  // The null string: absent, and empty.
  UTF8String() = default;
  // A view of [b, e); a null `e` means NUL-terminated.
  UTF8String(const Byte* b, const Byte* e) : beg(const_cast<Byte*>(b)), end(const_cast<Byte*>(e)) {}
  // A view of a NUL-terminated string.
  UTF8String(const char* s) : beg(reinterpret_cast<Byte*>(const_cast<char*>(s))) {}
  UTF8String(const iterator& b, const iterator& e) : UTF8String(b.getPointer(), e.getPointer()) {}
  // Copies are views of the same bytes, also of an owning string.
  UTF8String(const UTF8String& other);
  UTF8String& operator=(const UTF8String& other);
  ~UTF8String();

  bool isNull() const { return beg == nullptr; }
  bool empty() const;
  // Bytes before the end or the first NUL.
  int byteLength() const;
  iterator begin() const { return iterator(beg, getEnd()); }
  iterator finish() const;
  // Empties an owning string, keeping its buffer; a view becomes the null string.
  void clear();

  bool isWhiteSpace() const;
  static bool isWhiteSpace(int c) { return c == ' ' || (c >= 9 && c <= 13); }

  template <class T>
  bool to(T& x) const;

  bool operator<(const UTF8String& other) const;
  bool operator==(const UTF8String& other) const;
  bool operator!=(const UTF8String& other) const { return !(*this == other); }

  // Code point index of the first occurrence of `sub`, or 0x7FFFFFFF.
  int find(const UTF8String& sub) const;
  // A view of `count` code points from code point `from`, clamped to the end.
  UTF8String substr(int from, int count = 0x7FFFFFFF) const;

  // Appends one code point, turning the string into an owning one.
  void append(int codePoint);
  // Encodes `codePoint` at `p` and moves `p` past it.
  static void write(Byte*& p, int codePoint);

 private:
  friend std::ostream& operator<<(std::ostream& out, UTF8String s);

  // The end, found on first use for a NUL-terminated string.
  const Byte* getEnd() const;
  // The end or the first NUL, whichever comes first.
  const Byte* stop() const;

  Byte* beg = nullptr;
  mutable Byte* end = nullptr;
  // Size of the owned buffer; 0 for a view.
  int allocated = 0;
};

template <>
bool UTF8String::to<int>(int& x) const;
template <>
bool UTF8String::to<std::string>(std::string& s) const;

// Writes the bytes raw.
std::ostream& operator<<(std::ostream& out, UTF8String s);

}  // namespace CSPXMLParser

#endif
