// KpzShownName.h - a file name as every front end prints it on a line: the
// name itself when it is safe to show, else quoted with its control
// characters and invalid bytes escaped, so that a name can neither forge
// another line nor move the terminal's cursor.
//
// Part of the kit (kit/kpz); uses only the C++ library.
//
// The form (as `ls` quotes names, in C's escapes):
//   - A name of printable characters in valid UTF-8 that does not begin with
//     a single quote is shown unchanged: "shots/a.kpz", "été.kpz", "a\b.kpz".
//   - Any other name is shown between single quotes, with
//       \n \t \r \a \b \f \v     for those control characters,
//       \033 (and \ooo, three octal digits) for every other control character
//                                (U+0000..U+001F, U+007F), for each byte of
//                                a C1 control (U+0080..U+009F, U+2028, U+2029)
//                                and for each byte that is not valid UTF-8,
//       \\ and \'                for a backslash and a single quote.
//     "evil\nwrote x" -> 'evil\nwrote x'; "\x1b[2J.kpz" -> '\033[2J.kpz';
//     "a\xff.kpz" -> 'a\377.kpz'; "'q.kpz" -> '\'q.kpz'.
//   The shown name never holds a control character, so one event stays one
//   line. JSON output escapes on its own and does not use this.
//
//   std::string shown = KpzShownName::Of(path);
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZSHOWNNAME_H
#define KPZ_KIT_KPZ_KPZSHOWNNAME_H

#include <string>

class KpzShownName {
 public:
  // `name` (any bytes) as shown on a line; see above.
  static std::string Of(const std::string& name);

  // True when `name` is shown unchanged.
  static bool IsPlain(const std::string& name);
};

#endif  // KPZ_KIT_KPZ_KPZSHOWNNAME_H
