// KpzProgressBar.cpp - drawing and clearing the kpz progress bar on a
// terminal (kit/kpz). See KpzProgressBar.h for when it shows.

#include "kpz/KpzProgressBar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace {

long long msBetween(KpzClock::TimePoint from, KpzClock::TimePoint to) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(to - from).count();
}

// The bar's text; with `more`, a '+' after the total (found so far).
std::string render(std::size_t done, std::size_t total, unsigned int width, bool more) {
  if (done > total) {
    done = total;
  }
  const std::string count =
      " " + std::to_string(done) + "/" + std::to_string(total) + (more ? "+" : "") + " files";
  const std::string prefix = "kpz: [";
  const std::size_t fixed = prefix.size() + 1 + count.size() + 1;  // "]" and a spare column
  std::size_t bar = width > fixed ? width - fixed : 0;
  if (bar > 40) {
    bar = 40;
  }
  if (bar < 10) {
    bar = 10;
  }
  const std::size_t filled = total == 0 ? bar : done * bar / total;
  return prefix + std::string(filled, '#') + std::string(bar - filled, '-') + "]" + count;
}

}  // namespace

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

std::string KpzProgressBar::Render(std::size_t done, std::size_t total, unsigned int width) {
  return render(done, total, width, false);
}

std::string KpzProgressBar::RenderSoFar(std::size_t done, std::size_t found, unsigned int width) {
  return render(done, found, width, true);
}

unsigned int KpzProgressBar::width() const {
  winsize size{};
  if (ioctl(m_fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col;
  }
  return 80;
}

void KpzProgressBar::put(const std::string& text) const {
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

void KpzProgressBar::Update(std::size_t done, std::size_t total, bool more) {
  if (!m_enabled) {
    return;
  }
  const KpzClock::TimePoint now = m_clock.Now();
  if (!IsLong(total, msBetween(m_start, now))) {
    return;
  }
  if (m_shown && (more || done < total) && msBetween(m_lastDraw, now) < kRedrawMs) {
    return;
  }
  put("\r" + render(done, total, width(), more) + "\033[K");
  m_shown = true;
  m_lastDraw = now;
}

void KpzProgressBar::Clear() {
  if (!m_shown) {
    return;
  }
  put("\r\033[K");
  m_shown = false;
}
