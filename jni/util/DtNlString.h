// DtNlString.h - the utility layer's owning, NUL-terminated byte string.
//
// A DtNlString owns a heap block of exactly length + 1 bytes (array new/delete);
// every change allocates a new block. `text` is null only for a string built
// from a null `const char*` (or null bytes); the default string holds "" in a
// one-byte block. Queries and edits treat a null text as "".
// Comparisons and searches are byte-wise (strcmp, strcasecmp, strncmp, strstr).
//
// Edits (SubStr, Append, Insert) write their result into `out`, or into the
// string itself when `out` is null, and return the string that received (or
// would have received) it. An edit with nothing to produce leaves `out` as it
// was.
//
//   DtNlString s("hello"), o;
//   s.SubStr(1, 3, &o);        // o == "el"
//   s.Append("!", nullptr);    // s == "hello!"
#ifndef KPZ_UTIL_DTNLSTRING_H
#define KPZ_UTIL_DTNLSTRING_H

class DtNlString {
 public:
  // LastIndexOf's `start` value that means "search from the end".
  static const int FROM_END = -2147483647;  // 0x80000001

  DtNlString();                                              // "" (one-byte block)
  DtNlString(const char* s);                                 // NOLINT: null s -> null text
  DtNlString(DtNlString const& other);
  // Takes at most 255 bytes: the size is deliberately 8 bits wide.
  DtNlString(const unsigned char* data, unsigned char size);
  DtNlString& operator=(const char* s);
  DtNlString& operator=(DtNlString const& other);
  ~DtNlString();

  // Replaces the text with a copy of `s`; a null `s` changes nothing.
  void setString(const char* s);
  // Replaces the text with `size` bytes of `data`, dropping one trailing NUL
  // if the last byte is 0; a size of 0 gives "" and reads nothing; a null
  // `data` changes nothing.
  void setString(const unsigned char* data, unsigned int size);

  // Queries; `s` must not be null. Booleans are 1 or 0.
  int Equals(const char* s) const;
  int CaseEquals(const char* s) const;
  int StartsWith(const char* s) const;
  int EndsWith(const char* s) const;
  // First index >= start where `s` occurs, or -1. A negative `start` searches
  // from 0; a `start` past the end gives -1.
  int IndexOf(const char* s, int start) const;
  // Last index <= start (or from the end with FROM_END) where `s` occurs, or -1.
  int LastIndexOf(const char* s, int start) const;

  DtNlString* SubStr(int start, DtNlString* out);
  DtNlString* SubStr(int start, int end, DtNlString* out);
  DtNlString* Append(const char* s, DtNlString* out);
  DtNlString* Insert(int index, const char* s, DtNlString* out);

  char* text;           // owned; NUL-terminated when non-null
  unsigned int length;  // characters before the terminator
};

#endif  // KPZ_UTIL_DTNLSTRING_H
