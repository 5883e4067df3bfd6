// KpzProgressBar.cpp - drawing and clearing the kpz progress bar on a
// terminal (kit/kpz). See KpzProgressBar.h for when it shows.

#include "kpz/KpzProgressBar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

namespace {

long long msBetween(KpzClock::TimePoint from, KpzClock::TimePoint to) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(to - from).count();
}

// "12.5" files per second below 100, "125" above.
std::string rateText(double perSecond) {
  char buf[32];
  if (perSecond < 100) {
    std::snprintf(buf, sizeof buf, "%.1f/s", perSecond);
  } else if (perSecond < 1e12) {
    std::snprintf(buf, sizeof buf, "%.0f/s", perSecond);
  } else {
    return "";
  }
  return buf;
}

// "1:05 left", "2:03:05 left"; "" beyond 9999 hours.
std::string leftText(double seconds) {
  if (!(seconds >= 0) || seconds > 9999.0 * 3600) {
    return "";
  }
  const auto s = static_cast<long long>(seconds + 0.5);
  char buf[48];
  if (s >= 3600) {
    std::snprintf(buf, sizeof buf, "%lld:%02lld:%02lld left", s / 3600, s / 60 % 60, s % 60);
  } else {
    std::snprintf(buf, sizeof buf, "%lld:%02lld left", s / 60, s % 60);
  }
  return buf;
}

}  // namespace

std::string KpzProgressBar::Text(const Frame& frame, long long width) {
  const std::size_t total = frame.total;
  const std::size_t done = frame.done > total ? total : frame.done;
  const std::size_t columns = width <= 0 ? 80 : static_cast<std::size_t>(width);
  const std::string count =
      std::to_string(done) + "/" + std::to_string(total) + (frame.more ? "+" : "") + " files";
  std::string rate;
  std::string left;
  if (frame.elapsedMs > 0 && done > 0) {
    const double perSecond = static_cast<double>(done) * 1000.0 / static_cast<double>(frame.elapsedMs);
    rate = rateText(perSecond);
    if (!frame.more && done < total) {
      left = leftText(static_cast<double>(total - done) / perSecond);
    }
  }
  const std::string prefix = "kpz: [";
  // The longest tail that leaves room for a bar of 10, one column spare:
  // the time left goes first, then the rate.
  std::vector<std::string> tails;
  if (!rate.empty() && !left.empty()) {
    tails.push_back(", " + rate + ", " + left);
  }
  if (!rate.empty()) {
    tails.push_back(", " + rate);
  }
  tails.emplace_back();
  for (const std::string& tail : tails) {
    const std::size_t fixed = prefix.size() + 2 + count.size() + tail.size() + 1;  // "] ", spare
    if (columns < fixed + 10) {
      continue;
    }
    const std::size_t bar = std::min<std::size_t>(columns - fixed, 40);
    const std::size_t filled =
        total == 0 ? bar
                   : static_cast<std::size_t>(static_cast<double>(done) /
                                              static_cast<double>(total) * static_cast<double>(bar));
    return prefix + std::string(filled, '#') + std::string(bar - filled, '-') + "] " + count + tail;
  }
  const std::string bare = "kpz: " + count;
  return bare.size() + 1 <= columns ? bare : std::string();
}

std::string KpzProgressBar::Line(const Frame& frame, long long width) {
  const std::string text = Text(frame, width);
  return text.empty() ? text : "\r" + text + "\033[K";
}


KpzProgressBar::KpzProgressBar(int fd, bool enabled, const KpzClock& clock)
    : m_fd(fd),
      m_enabled(enabled),
      m_shown(false),
      m_clock(clock),
      m_start(clock.Now()),
      m_lastDraw(m_start) {}

KpzProgressBar::~KpzProgressBar() { Clear(); }

bool KpzProgressBar::IsTerminal(int fd) { return isatty(fd) == 1; }

bool KpzProgressBar::IsLong(std::size_t total, long long elapsedMs) {
  return total > kFileThreshold || elapsedMs > kTimeThresholdMs;
}

std::string KpzProgressBar::Render(std::size_t done, std::size_t total, long long width) {
  Frame frame;
  frame.done = done;
  frame.total = total;
  return Text(frame, width);
}

std::string KpzProgressBar::RenderSoFar(std::size_t done, std::size_t found, long long width) {
  Frame frame;
  frame.done = done;
  frame.total = found;
  frame.more = true;
  return Text(frame, width);
}

long long KpzProgressBar::width() const {
  winsize size{};
  if (ioctl(m_fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col;
  }
  return 80;
}

void KpzProgressBar::put(const std::string& text) const {
  if (m_fd < 0) {
    return;  // a front end that writes the bytes itself (Next, Clearing)
  }
  std::size_t done = 0;
  while (done < text.size()) {  // each pass writes at least one byte or gives up
    const ssize_t n = write(m_fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;  // the bar is a courtesy: a failed write is dropped
    }
    done += static_cast<std::size_t>(n);
  }
}

bool KpzProgressBar::due(std::size_t done, std::size_t total, bool more,
                         KpzClock::TimePoint now) const {
  if (!IsLong(total, msBetween(m_start, now))) {
    return false;
  }
  return !(m_shown && (more || done < total) && msBetween(m_lastDraw, now) < kRedrawMs);
}

std::string KpzProgressBar::draw(std::size_t done, std::size_t total, bool more,
                                 KpzClock::TimePoint now, long long width) {
  Frame frame;
  frame.done = done;
  frame.total = total;
  frame.more = more;
  frame.elapsedMs = msBetween(m_start, now);
  std::string line = Line(frame, width);
  if (line.empty()) {
    return Clearing();  // too narrow for the bar: none
  }
  m_shown = true;
  m_lastDraw = now;
  return line;
}

void KpzProgressBar::Update(std::size_t done, std::size_t total, bool more) {
  if (!m_enabled) {
    return;
  }
  const KpzClock::TimePoint now = m_clock.Now();
  if (due(done, total, more, now)) {
    put(draw(done, total, more, now, width()));  // the terminal's width asked only to draw
  }
}

std::string KpzProgressBar::Next(std::size_t done, std::size_t total, bool more,
                                 long long width) {
  if (!m_enabled) {
    return std::string();
  }
  const KpzClock::TimePoint now = m_clock.Now();
  return due(done, total, more, now) ? draw(done, total, more, now, width) : std::string();
}

std::string KpzProgressBar::Clearing() {
  if (!m_shown) {
    return std::string();
  }
  m_shown = false;
  return "\r\033[K";
}

void KpzProgressBar::Clear() { put(Clearing()); }
