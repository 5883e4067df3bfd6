// KpzConsole.cpp - standard output, the real standard error and the progress
// bar of one kpz run (tools/kpz). See KpzConsole.h.

#include "kpz/KpzConsole.h"

#include <cstdio>

KpzConsole::KpzConsole(bool verbose)
    : m_hush(!verbose), m_bar(m_hush.RealStderr(), KpzProgressBar::IsTerminal(m_hush.RealStderr())) {}

bool KpzConsole::Out(const std::string& text) {
  m_bar.Clear();
  if (text.empty()) {
    return true;
  }
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
         std::fflush(stdout) == 0;
}

bool KpzConsole::Err(const std::string& text) {
  m_bar.Clear();
  if (text.empty()) {
    return true;
  }
  return m_hush.Write(text);
}

void KpzConsole::Progress(std::size_t done, std::size_t total, bool more) {
  if (total > 1) {
    m_bar.Update(done, total, more);
  }
}

void KpzConsole::EndProgress() { m_bar.Clear(); }
