// KpzServeRun.cpp - KpzServeCommand::Run, the server's run: parse --listen
// and --ext, take the signals, raise the descriptor limit, start, answer
// until SIGINT or SIGTERM, drain, stop. Apart from the options
// (KpzServeCommand.cpp) because it alone needs the HTTP library: the program
// that serves links it, the kpz every other command runs does not.
#include <signal.h>
#include <sys/resource.h>
#include <time.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "kpz/KpzExitStatus.h"
#include "kpz/KpzQuietStderr.h"
#include "kpz/serve/KpzServe.h"
#include "kpz/serve/KpzServeCommand.h"

namespace {

// "HOST:PORT", "[V6]:PORT" or ":PORT" into its parts; false when malformed.
bool splitListen(const std::string& listen, std::string* host, unsigned* port) {
  const std::size_t colon = listen.rfind(':');
  if (colon == std::string::npos || colon + 1 == listen.size()) return false;
  std::string h = listen.substr(0, colon);
  const std::string p = listen.substr(colon + 1);
  if (h.size() >= 2 && h.front() == '[' && h.back() == ']') h = h.substr(1, h.size() - 2);
  if (h.empty()) h = "127.0.0.1";
  char* end = nullptr;
  errno = 0;
  const unsigned long n = std::strtoul(p.c_str(), &end, 10);
  if (errno != 0 || end == p.c_str() || *end != '\0' || n > 65535) return false;
  *host = h;
  *port = static_cast<unsigned>(n);
  return true;
}

}  // namespace

int KpzServeCommand::Run() {
  if (!splitListen(m_listen, &m_options.host, &m_options.port)) {
    std::fprintf(stderr, "kpz: --listen wants HOST:PORT, not '%s'\n", m_listen.c_str());
    return KpzExitCode(KpzExitStatus::Usage);
  }
  m_options.extensions.clear();
  std::stringstream list(m_extensions);
  std::string ext;
  while (std::getline(list, ext, ',')) {
    if (ext.empty()) continue;
    if (ext[0] != '.') ext = "." + ext;
    for (char& ch : ext) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    m_options.extensions.push_back(ext);
  }
  if (m_options.extensions.empty()) {
    std::fprintf(stderr, "kpz: --ext names no ending\n");
    return KpzExitCode(KpzExitStatus::Usage);
  }
  if (m_options.key.empty()) {
    if (const char* k = std::getenv("KPZ_SERVE_KEY")) m_options.key = k;
  }

  // The signals are taken by this thread alone (sigtimedwait below): every
  // thread started from here on inherits them blocked.
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  signal(SIGPIPE, SIG_IGN);  // a client gone while a picture is sent

  // Each connection and each picture sent holds a descriptor: the soft
  // limit (often 1024) is raised toward the hard one as far as the limits
  // set here need.
  struct rlimit files;
  if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
    const rlim_t want = static_cast<rlim_t>(m_options.maxConnections) * 2 + 256;
    if (files.rlim_cur < want) {
      files.rlim_cur =
          files.rlim_max == RLIM_INFINITY || files.rlim_max > want ? want : files.rlim_max;
      setrlimit(RLIMIT_NOFILE, &files);
    }
  }

  KpzQuietStderr hush(!m_verbose);
  m_options.logFd = hush.RealStderr();
  m_options.logConnections = m_verbose;
  KpzServe server(m_options);
  std::string why;
  if (!server.Start(&why)) {
    hush.Write("kpz: " + why + "\n");
    return KpzExitCode(KpzExitStatus::Input);
  }
  std::printf("kpz: serving %s on %s\n", m_options.root.c_str(), server.Url().c_str());
  std::fflush(stdout);
  const struct timespec tick = {0, 250 * 1000 * 1000};
  while (true) {  // until SIGINT or SIGTERM
    const int got = sigtimedwait(&stop, nullptr, &tick);
    if (got == SIGINT || got == SIGTERM) break;
    server.Tick();
  }
  server.Stop();
  return KpzExitCode(KpzExitStatus::Ok);
}
