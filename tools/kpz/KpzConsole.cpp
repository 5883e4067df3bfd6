// KpzConsole.cpp - standard output, the real standard error and the progress
// bar of one kpz run (tools/kpz). See KpzConsole.h.

#include "kpz/KpzConsole.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

KpzConsole::KpzConsole(bool verbose)
    : m_hush(!verbose),
      m_bar(m_hush.RealStderr(), KpzProgressBar::IsTerminal(m_hush.RealStderr())),
      m_outIsTerminal(KpzProgressBar::IsTerminal(STDOUT_FILENO)) {}

bool KpzConsole::Out(const std::string& text, std::string* why) {
  if (m_outIsTerminal) {
    m_bar.Clear();  // a line on the terminal goes where the bar was
  }
  std::size_t done = 0;
  int err = 0;
  if (std::fflush(stdout) != 0) {  // nothing is meant to be there; if it was, it goes first
    err = errno;
  }
  while (err == 0 && done < text.size()) {  // each pass writes at least a byte or stops
    const ssize_t n = write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      err = n < 0 ? errno : EIO;  // 0 bytes for a non-empty write: nothing more will go
      break;
    }
    done += static_cast<std::size_t>(n);
  }
  if (err == 0) {
    return true;
  }
  if (why != nullptr) {
    *why = std::string("cannot write to standard output: ") + std::strerror(err);
  }
  return false;
}

bool KpzConsole::Err(const std::string& text) {
  m_bar.Clear();
  if (text.empty()) {
    return true;
  }
  return m_hush.Write(text);
}

void KpzConsole::Progress(std::size_t done, std::size_t total, bool more) {
  if (total > 1 && !m_quiet) {
    m_bar.Update(done, total, more);
  }
}

void KpzConsole::EndProgress() { m_bar.Clear(); }
