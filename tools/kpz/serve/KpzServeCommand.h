// KpzServeCommand.h - the `serve` subcommand of the kpz tool: its options,
// its help, and its run (start, print the address, answer until SIGINT or
// SIGTERM, drain, stop).
//
// Part of the kpz tool (tools/kpz/serve). KpzMain registers it in two lines:
//
//   KpzServeCommand serve(app);                    // before app.parse
//   if (serve.Chosen()) return serve.Run();        // after it
//
// The options and help (KpzServeCommand.cpp) link with CLI11 alone; Run
// (KpzServeRun.cpp, library kpz_serve) needs the HTTP and crypto libraries,
// so only the server program (kpz-serve) links it, and kpz hands a serve
// command line to that program (KpzServeProgram) instead of calling Run.
//
// Holds the options CLI11 fills; borrowed `app` must outlive it.
#ifndef KPZ_TOOLS_KPZ_SERVE_KPZSERVECOMMAND_H
#define KPZ_TOOLS_KPZ_SERVE_KPZSERVECOMMAND_H

#include <string>
#include <vector>

#include "kpz/serve/KpzServe.h"

namespace CLI {
class App;
}

class KpzServeCommand {
 public:
  explicit KpzServeCommand(CLI::App& app);
  KpzServeCommand(const KpzServeCommand&) = delete;
  KpzServeCommand& operator=(const KpzServeCommand&) = delete;

  bool Chosen() const;
  // Runs the server; the process's exit status (0 after a clean stop, 2 for
  // wrong options, 1 when it cannot listen or ROOT cannot be opened).
  int Run();

 private:
  CLI::App* m_sub;
  KpzServe::Options m_options;
  std::string m_listen = "127.0.0.1:8080";
  std::string m_extensions = ".kpz";
  bool m_verbose = false;
};

#endif  // KPZ_TOOLS_KPZ_SERVE_KPZSERVECOMMAND_H
