// KpzProgressBar.h - the front ends' progress bar on standard error during a
// long batch.
//
// Part of the kit (kit/kpz); uses only the C and C++
// libraries. The bar is one line redrawn in place ("\r", the text, "\033[K"
// to clear the rest of the line): how far, how fast (files per second since
// the bar was made) and the time left at that rate:
//
//   kpz: [##########----------------------------] 250/1000 files, 12.5/s, 1:00 left
//
// While the files are still being found (counted ahead of the work), the
// total is the number found so far, with a '+' after it and no time left
// ("250/1000+ files, 12.5/s"). A narrow line drops the time left, then the
// rate, then the bar; a line too narrow for the count shows nothing. A width
// of 0 or less is unknown (what a terminal of 0 columns reports): 80 is
// assumed; any width above that is fine (the bar is at most 40 characters).
//
// It is drawn only when `enabled` (the tool enables it when its real standard
// error is a terminal, never otherwise) and once the run is long: more than
// kFileThreshold files, or more than kTimeThresholdMs since the bar was made.
// Redraws come at most every kRedrawMs. Clear() takes the line away before
// other output; the destructor clears it too.
//
//   KpzProgressBar bar(fd, KpzProgressBar::IsTerminal(fd));   // the steady clock
//   bar.Update(done, total);   // as often as wished
//   bar.Clear();               // before printing anything else on that terminal
//
// A front end that writes to a stream of its own (Python's sys.stderr) makes
// the bar with no descriptor (-1) and writes what Next and Clearing give:
// the same bytes at the same moments as Update and Clear would write.
//
//   KpzProgressBar bar(-1, streamIsTerminal, clock);
//   stream.write(bar.Next(done, total, more, columns));
//   stream.write(bar.Clearing());
//
// Holds the descriptor borrowed (it must stay open while the bar lives) and
// never closes it; the clock (KpzClock, the steady one by default) is
// borrowed too.
#ifndef KPZ_KIT_KPZ_KPZPROGRESSBAR_H
#define KPZ_KIT_KPZ_KPZPROGRESSBAR_H

#include <cstddef>
#include <string>

#include "kpz/KpzClock.h"

class KpzProgressBar {
 public:
  static constexpr std::size_t kFileThreshold = 50;
  static constexpr long long kTimeThresholdMs = 1000;
  static constexpr long long kRedrawMs = 100;

  KpzProgressBar(int fd, bool enabled, const KpzClock& clock = KpzClock::Steady());
  ~KpzProgressBar();
  KpzProgressBar(const KpzProgressBar&) = delete;
  KpzProgressBar& operator=(const KpzProgressBar&) = delete;

  // True when `fd` is a terminal.
  static bool IsTerminal(int fd);

  // True when a run of `total` files that has lasted `elapsedMs` is long
  // enough for a bar.
  static bool IsLong(std::size_t total, long long elapsedMs);

  // What the bar tells at one moment.
  struct Frame {
    std::size_t done = 0;
    std::size_t total = 0;     // with `more`: the number found so far
    bool more = false;         // files are still being found
    long long elapsedMs = -1;  // since the run began; below 0: unknown (no rate, no time left)
  };

  // The bar's text for `frame` on a line of `width` columns (see above; the
  // bar itself between 10 and 40 characters, one column left spare), without
  // "\r" or escapes; "" when even the count does not fit. `done` above
  // `total` counts as `total`.
  static std::string Text(const Frame& frame, long long width);

  // The bytes that draw Text(frame, width) over the line ("\r", the text,
  // "\033[K"); "" when Text is empty: nothing is drawn.
  static std::string Line(const Frame& frame, long long width);

  // Text for `done` of `total` files, no rate: Text({done, total}, width).
  static std::string Render(std::size_t done, std::size_t total, long long width);

  // The same while the files are still being found, `found` so far
  // ("250/1000+ files").
  static std::string RenderSoFar(std::size_t done, std::size_t found, long long width);

  // Draws the bar when enabled, the run is long and the last drawing is at
  // least kRedrawMs old (or `done` reached `total` and all are found). With
  // `more`, `total` is the number found so far and the bar says so
  // ("250/1000+ files").
  void Update(std::size_t done, std::size_t total, bool more = false);

  // Takes the bar off the line when it is shown.
  void Clear();

  // What Update would write now on a line of `width` columns (see Text for
  // widths), or "" when nothing is to be drawn; the bar's state moves as
  // Update moves it. For a bar made without a descriptor.
  std::string Next(std::size_t done, std::size_t total, bool more, long long width);

  // What Clear would write: "\r\033[K" when the bar is shown (then it is
  // not), else "".
  std::string Clearing();

  // True while the bar is on the line.
  bool IsShown() const { return m_shown; }

 private:
  long long width() const;
  // Writes `text` to the descriptor; nothing without one.
  void put(const std::string& text) const;
  // Whether a frame is to be drawn `now` (the run is long, the last drawing
  // old enough or the end reached).
  bool due(std::size_t done, std::size_t total, bool more, KpzClock::TimePoint now) const;
  // The bytes that draw the frame (or clear a line too narrow for it), the
  // bar's state moved.
  std::string draw(std::size_t done, std::size_t total, bool more, KpzClock::TimePoint now,
                   long long width);

  int m_fd;  // borrowed; below 0: none
  bool m_enabled;
  bool m_shown;
  const KpzClock& m_clock;  // borrowed
  KpzClock::TimePoint m_start;
  KpzClock::TimePoint m_lastDraw;
};

#endif  // KPZ_KIT_KPZ_KPZPROGRESSBAR_H
