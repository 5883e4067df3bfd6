// KpzServeCommand.cpp - the `serve` subcommand of the kpz tool
// (tools/kpz/serve): its options and help. Run() is in KpzServeRun.cpp. See
// the header.
#include "kpz/serve/KpzServeCommand.h"

#include <CLI/CLI.hpp>

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
  m_sub->add_option("--ready-cache", o.readyBytes,
                    "bytes of small pictures (up to 64 KiB: thumbnails) kept with their headers "
                    "as the whole answer to a plain GET, sent again as they are while the file "
                    "is unchanged; a suffix KiB, MiB, GiB may follow; 0: none (default 32MiB)")
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
