// KpzInterrupt.cpp - SIGINT and SIGTERM caught for a kpz run (tools/kpz).
// See KpzInterrupt.h.

#include "kpz/KpzInterrupt.h"

#include <atomic>
#include <cstdio>

namespace {

// Written by the signal handler, read by the run: the one piece of state a
// handler may share. Lock-free on every target (checked below).
std::atomic<int> g_caught{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler needs a lock-free flag");

extern "C" void onSignal(int signal) { g_caught.store(signal); }

}  // namespace

KpzInterrupt::KpzInterrupt() : m_oldInt(), m_oldTerm() {
  struct sigaction action = {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  // Reset to the default by the first signal: a second one ends the run.
  // No SA_RESTART: a worker waiting on a FIFO's reader is woken.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, &m_oldInt);
  sigaction(SIGTERM, &action, &m_oldTerm);
}

KpzInterrupt::~KpzInterrupt() {
  if (g_caught.load() == 0) {
    sigaction(SIGINT, &m_oldInt, nullptr);
    sigaction(SIGTERM, &m_oldTerm, nullptr);
  }
}

int KpzInterrupt::Caught() { return g_caught.load(); }

std::string KpzInterrupt::Name(int signal) {
  return signal == SIGINT ? "SIGINT" : signal == SIGTERM ? "SIGTERM" : "signal " + std::to_string(signal);
}

void KpzInterrupt::EndBySignal() {
  const int signal = g_caught.load();
  if (signal == 0) {
    return;
  }
  std::fflush(stdout);
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  raise(signal);
}
