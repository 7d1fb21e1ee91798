// UTF-8 decoding and encoding, conversions and the word splitter of the XML
// reader. Every scan stops at the end or at a NUL byte, whichever comes first.
#include "xcsp/UTF8String.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <ostream>
#include <stdexcept>

namespace CSPXMLParser {

namespace {

[[noreturn]] void invalid_character() { throw std::runtime_error("invalid UTF8 character"); }

const int NOT_FOUND = 0x7FFFFFFF;
const int FIRST_ALLOCATION = 64;

}  // namespace

//==== iterator ================================================================

int UTF8String::iterator::codeLength(Byte lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2) invalid_character();
  if (lead <= 0xDF) return 2;
  if (lead <= 0xEF) return 3;
  if (lead <= 0xF4) return 4;
  invalid_character();
}

// Overlong forms, surrogates and values above 0x10FFFF are refused through
// the range of the second byte.
int UTF8String::iterator::operator*() const {
  if (p == bound) return 0;
  const Byte lead = *p;
  const int n = codeLength(lead);
  if (n == 1) return lead;
  int code = lead & (n == 2 ? 0x1F : n == 3 ? 0x0F : 0x07);
  for (int k = 1; k < n; ++k) {
    if (bound && p + k >= bound) invalid_character();
    const Byte next = p[k];
    if (next < 0x80 || next > 0xBF) invalid_character();
    if (k == 1) {
      if ((lead == 0xE0 && next < 0xA0) || (lead == 0xED && next > 0x9F) ||
          (lead == 0xF0 && next < 0x90) || (lead == 0xF4 && next > 0x8F))
        invalid_character();
    }
    code = (code << 6) + (next & 0x3F);
  }
  return code;
}

UTF8String::iterator& UTF8String::iterator::operator++() {
  if (p == bound) return *this;
  const int n = codeLength(*p);
  p = (bound && bound - p < n) ? bound : p + n;
  return *this;
}

UTF8String::iterator UTF8String::iterator::operator++(int) {
  iterator before = *this;
  ++*this;
  return before;
}

//==== Tokenizer ===============================================================

UTF8String::Tokenizer::Tokenizer(const UTF8String& text) : pos(text.beg), end(text.stop()) {
  skipWhiteSpace();
}

bool UTF8String::Tokenizer::isSeparator(int codePoint) const {
  return std::find(separators.begin(), separators.end(), codePoint) != separators.end();
}

void UTF8String::Tokenizer::skipWhiteSpace() {
  while (pos != end && isWhiteSpace(*pos)) ++pos;
}

UTF8String UTF8String::Tokenizer::nextToken() {
  if (!hasMoreTokens()) return UTF8String();
  const Byte* start = pos;
  iterator it(pos, end);
  if (isSeparator(*it)) {
    ++it;
  } else {
    while (!it.atEnd() && !isWhiteSpace(*it.getPointer()) && !isSeparator(*it)) ++it;
  }
  pos = it.getPointer();
  UTF8String token(start, pos);
  skipWhiteSpace();
  return token;
}

//==== UTF8String ==============================================================

UTF8String::UTF8String(const UTF8String& other) : beg(other.beg), end(other.end) {}

UTF8String& UTF8String::operator=(const UTF8String& other) {
  if (this == &other) return *this;
  if (allocated != 0) {
    // A view into our own buffer keeps the buffer, with the viewed bytes
    // moved to its front; freeing it would leave the view dangling.
    if (other.beg >= beg && other.beg < beg + allocated) {
      const int n = other.byteLength();
      std::memmove(beg, other.beg, std::size_t(n));
      end = beg + n;
      return *this;
    }
    delete[] beg;
    allocated = 0;
  }
  beg = other.beg;
  end = other.end;
  return *this;
}

UTF8String::~UTF8String() {
  if (allocated != 0) delete[] beg;
}

const UTF8String::Byte* UTF8String::getEnd() const {
  if (beg && !end) end = beg + std::strlen(reinterpret_cast<const char*>(beg));
  return end;
}

const UTF8String::Byte* UTF8String::stop() const {
  if (!beg) return nullptr;
  const Byte* e = getEnd();
  const void* nul = std::memchr(beg, 0, std::size_t(e - beg));
  return nul ? static_cast<const Byte*>(nul) : e;
}

bool UTF8String::empty() const { return beg == stop(); }

int UTF8String::byteLength() const { return int(stop() - beg); }

UTF8String::iterator UTF8String::finish() const { return iterator(stop(), getEnd()); }

void UTF8String::clear() {
  if (allocated != 0) {
    end = beg;
  } else {
    beg = nullptr;
    end = nullptr;
  }
}

bool UTF8String::isWhiteSpace() const {
  const Byte* e = stop();
  for (const Byte* p = beg; p != e; ++p)
    if (!isWhiteSpace(*p)) return false;
  return true;
}

// Digits accumulate without overflow check, as unsigned so that the
// wrap-around is defined.
template <>
bool UTF8String::to<int>(int& x) const {
  const Byte* p = beg;
  const Byte* e = stop();
  while (p != e && isWhiteSpace(*p)) ++p;
  if (p == e) return false;
  bool negative = false;
  if (*p == '+' || *p == '-') {
    negative = *p == '-';
    ++p;
  }
  unsigned value = 0;
  while (p != e && *p >= '0' && *p <= '9') {
    value = value * 10u + unsigned(*p - '0');
    ++p;
  }
  x = int(negative ? 0u - value : value);
  while (p != e && isWhiteSpace(*p)) ++p;
  return p == e;
}

template <>
bool UTF8String::to<std::string>(std::string& s) const {
  s.clear();
  if (isNull()) return false;
  s.assign(reinterpret_cast<const char*>(beg), std::size_t(byteLength()));
  return true;
}

bool UTF8String::operator<(const UTF8String& other) const {
  const Byte* a = beg;
  const Byte* b = other.beg;
  return std::lexicographical_compare(a, stop(), b, other.stop());
}

bool UTF8String::operator==(const UTF8String& other) const {
  const Byte* a = beg;
  const Byte* b = other.beg;
  return std::equal(a, stop(), b, other.stop());
}

int UTF8String::find(const UTF8String& sub) const {
  const Byte* e = stop();
  const Byte* s = sub.beg;
  const int n = sub.byteLength();
  iterator it = begin();
  for (int index = 0;; ++index) {
    const Byte* p = it.getPointer();
    if (e - p >= n && std::equal(s, s + n, p)) return index;
    if (p == e) return NOT_FOUND;
    ++it;
  }
}

UTF8String UTF8String::substr(int from, int count) const {
  if (isNull()) return UTF8String();
  const Byte* e = stop();
  iterator first(beg, e);
  for (int i = 0; i < from && first.getPointer() != e; ++i) ++first;
  iterator last = first;
  for (int i = 0; i < count && last.getPointer() != e; ++i) ++last;
  return UTF8String(first, last);
}

// Reallocation leaves room for the longest code point. The first buffer of a
// string that was a view must hold what the view held, which may be more than
// the first allocation.
void UTF8String::append(int codePoint) {
  const int length = int(allocated != 0 ? end - beg : stop() - beg);
  if (allocated - length < 4) {
    long size = allocated != 0 ? 2L * allocated : FIRST_ALLOCATION;
    while (size - length < 4) size *= 2;
    if (size > INT_MAX) throw std::length_error("UTF8String too long");
    Byte* buffer = new Byte[std::size_t(size)];
    if (length > 0) std::memcpy(buffer, beg, std::size_t(length));
    if (allocated != 0) delete[] beg;
    beg = buffer;
    end = buffer + length;
    allocated = int(size);
  }
  write(end, codePoint);
}

void UTF8String::write(Byte*& p, int codePoint) {
  const unsigned c = unsigned(codePoint);
  if (c < 0x80) {
    *p++ = Byte(c);
  } else if (c < 0x800) {
    *p++ = Byte(0xC0 | (c >> 6));
    *p++ = Byte(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    if (c >= 0xD800 && c <= 0xDFFF) invalid_character();
    *p++ = Byte(0xE0 | (c >> 12));
    *p++ = Byte(0x80 | ((c >> 6) & 0x3F));
    *p++ = Byte(0x80 | (c & 0x3F));
  } else if (c <= 0x10FFFF) {
    *p++ = Byte(0xF0 | (c >> 18));
    *p++ = Byte(0x80 | ((c >> 12) & 0x3F));
    *p++ = Byte(0x80 | ((c >> 6) & 0x3F));
    *p++ = Byte(0x80 | (c & 0x3F));
  } else {
    invalid_character();
  }
}

std::ostream& operator<<(std::ostream& out, UTF8String s) {
  if (!s.isNull()) out.write(reinterpret_cast<const char*>(s.beg), s.byteLength());
  return out;
}

}  // namespace CSPXMLParser
