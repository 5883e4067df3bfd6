// KpzServeProgram.h - where the server program is, and handing it a
// `kpz serve` command line.
//
// `kpz serve` runs in a program of its own, kpz-serve: only it links the HTTP
// library and the crypto library (with theirs: TLS, PKCS #11, big numbers),
// whose loading and relocation at every start-up would otherwise be paid by
// every run of kpz, one per file when a script calls it so. kpz parses the
// command line as ever (help, wrong options), then replaces itself by that
// program with the same arguments: same process id, same descriptors, same
// signals for whoever started it.
//
// Installed, the program is <prefix>/libexec/kpz/kpz-serve beside
// <prefix>/bin/kpz; the build tree lays them out the same way. The path
// from kpz's directory to it is fixed when kpz is built:
//
//   return KpzServeProgram::Exec(KPZ_SERVE_PROGRAM, argv);  // "../libexec/kpz/kpz-serve"
//
// Holds nothing.
#ifndef KPZ_TOOLS_KPZ_KPZSERVEPROGRAM_H
#define KPZ_TOOLS_KPZ_KPZSERVEPROGRAM_H

#include <string>

class KpzServeProgram {
 public:
  // The program at `relative` from the directory of the binary `exePath`
  // (/opt/x/bin/kpz, ../libexec/kpz/kpz-serve ->
  // /opt/x/bin/../libexec/kpz/kpz-serve). An absolute `relative` is
  // returned as it is; empty when `relative` is empty or exePath names no
  // directory.
  static std::string Beside(const std::string& exePath, const std::string& relative);

  // Replaces this process by the server program, found from the running
  // binary (/proc/self/exe), given `argv` as it is. Returns only when that
  // cannot be done: the words on standard error, and the exit status.
  static int Exec(const char* relative, char** argv);
};

#endif  // KPZ_TOOLS_KPZ_KPZSERVEPROGRAM_H
