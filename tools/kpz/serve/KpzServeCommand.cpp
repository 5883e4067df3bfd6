// KpzServeCommand.cpp - the `serve` subcommand of the kpz tool
// (tools/kpz/serve). See the header.
#include "kpz/serve/KpzServeCommand.h"

#include <signal.h>
#include <sys/resource.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "kpz/KpzQuietStderr.h"
#include "kpz/KpzExitStatus.h"

namespace {

const char kServeFooter[] =
    "Routes, for a file ROOT/PATH whose name ends in one of --ext:\n"
    "  /preview/PATH     the preview JPEG (the bytes 'kpz preview' writes)\n"
    "  /thumbnail/PATH   the thumbnail JPEG ('kpz thumbnail')\n"
    "                    ?upright=1 on either: turned as --upright turns it\n"
    "  /info/PATH        the metadata as 'kpz info --json' prints it\n"
    "  /  /browse/DIR/   the gallery page of ROOT or of ROOT/DIR\n"
    "  /list/DIR         a folder's entries as JSON, in pages (?after=NAME&limit=N)\n"
    "  /metrics          counters in Prometheus' text format\n"
    "  /healthz          'ok'\n"
    "GET and HEAD only (405 otherwise). Pictures carry ETag and Last-Modified (from\n"
    "the file's device, inode, size and modification time), answer If-None-Match\n"
    "and If-Modified-Since with 304 and a Range with 206 (416 past the end).\n"
    "A path that is not there, leads out of ROOT (.., a symbolic link out), is not\n"
    "a regular file (a folder, pipe, device or socket) or does not end in --ext is\n"
    "answered 404, the same for all. A file that is not a KPZ raw file or lacks the\n"
    "picture is answered 422 with kpz's words. Past --max-connections or\n"
    "--max-requests: 503 with Retry-After. A URL longer than --max-url: 414;\n"
    "headers larger than --max-headers: 431.\n"
    "\n"
    "Signed URLs: with --key (or the environment variable KPZ_SERVE_KEY, which\n"
    "'ps' does not show), every route but /metrics, /healthz and the page's script\n"
    "and style needs ?sig=HEX, the HMAC-SHA256 under the key of 'ROUTE/PATH'\n"
    "(preview/a/b.kpz, thumbnail/..., info/...; 'browse/DIR' for /browse/DIR/ and\n"
    "/list/DIR, 'browse/' for /). Without a valid one: 403. The page passes its\n"
    "signature on and the listing signs what it lists. See docs/SERVE.md.\n"
    "\n"
    "It listens on 127.0.0.1 unless --listen says otherwise; TLS is left to a\n"
    "reverse proxy in front (docs/SERVE.md). The first line on standard output is\n"
    "'kpz: serving ROOT on http://HOST:PORT/' (with port 0, the port it got).\n"
    "SIGINT or SIGTERM stops it: no new connection is taken, idle ones are closed,\n"
    "answers under way get up to --drain seconds.\n"
    "\n"
    "  kpz serve samples/                          # http://127.0.0.1:8080/\n"
    "  kpz serve --listen 0.0.0.0:8000 /srv/photos";

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

KpzServeCommand::KpzServeCommand(CLI::App& app) {
  m_sub = app.add_subcommand("serve", "serve previews, thumbnails and metadata over HTTP, with a "
                                      "gallery page");
  m_sub->footer(kServeFooter);
  KpzServe::Options& o = m_options;
  m_sub->add_option("ROOT", o.root, "the folder whose KPZ files are served")->required();
  m_sub->add_option("--listen", m_listen,
                    "HOST:PORT to listen on (default 127.0.0.1:8080; port 0: any free port)");
  m_sub->add_option("--cache-control", o.cacheControl,
                    "Cache-Control of pictures and metadata (default 'no-cache': kept, asked "
                    "again with If-None-Match)");
  m_sub->add_option("--ext", m_extensions,
                    "the name endings served, comma-separated, any case (default .kpz)");
  m_sub->add_option("--key", o.key,
                    "sign URLs: an HMAC key (default: the environment variable KPZ_SERVE_KEY; "
                    "none: unsigned)");
  m_sub->add_option("--threads", o.threads, "threads answering requests (default: one per CPU)");
  m_sub->add_option("--max-connections", o.maxConnections,
                    "open connections; past them 503 and closed (default 2048)");
  m_sub->add_option("--max-requests", o.maxRequests,
                    "requests answered at once; past them 503 (default 256)");
  m_sub->add_option("--timeout", o.timeoutSeconds,
                    "seconds a connection may stay idle, and may take to send a request's head: "
                    "slower clients are cut off (default 10)")
      ->check(CLI::Range(1u, 3600u));
  m_sub->add_option("--request-time", o.requestSeconds,
                    "seconds one response may take to send whole (default 300)")
      ->check(CLI::Range(1u, 86400u));
  m_sub->add_option("--max-url", o.maxUrlBytes, "bytes of a URL; longer: 414 (default 4096)")
      ->check(CLI::Range(64u, 65536u));
  m_sub->add_option("--max-headers", o.maxHeaderBytes,
                    "bytes of a request's headers; more: 431 (default 8192)")
      ->check(CLI::Range(256u, 65536u));
  m_sub->add_option("--cache-entries", o.cacheEntries,
                    "files whose pictures' places are kept, by device, inode, size and "
                    "modification time (default 8192, ~1 KB each)")
      ->check(CLI::Range(1u, 10000000u));
  m_sub->add_option("--turned-cache", o.turnedCacheBytes,
                    "bytes of pictures turned upright (?upright=1) kept for the next request, "
                    "the least recently used dropped first; a suffix KiB, MiB, GiB (or KB, MB, "
                    "GB: also 1024-based) may follow; 0: none (default 64MiB)")
      ->transform(CLI::AsSizeValue(false));
  m_sub->add_option("--list-limit", o.listLimit,
                    "most entries in one page of /list (default 1000)")
      ->check(CLI::Range(1u, 100000u));
  m_sub->add_option("--drain", o.drainSeconds,
                    "seconds answers under way get once SIGINT or SIGTERM came (default 5)")
      ->check(CLI::Range(0u, 600u));
  m_sub->add_flag("-v,--verbose", m_verbose,
                  "show the library's diagnostic lines, and the HTTP library's line for every "
                  "client gone or cut");
}

bool KpzServeCommand::Chosen() const { return m_sub->parsed(); }

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
      files.rlim_cur = files.rlim_max == RLIM_INFINITY || files.rlim_max > want ? want
                                                                              : files.rlim_max;
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
