// KpzSample.h - where the bundled sample KPZ file is, for kpz run without FILE.
//
// Installed, the tool is <prefix>/bin/kpz and the sample
// <prefix>/share/kpz/sample.kpz, found from the running binary's own path so
// that an installed tree can be moved. In the build tree no such file lies
// beside the binary, and the sample of the source tree is used instead.
//
//   const std::string sample = KpzSample::Path(KPZ_SAMPLE_PATH);
//
// Holds nothing; Path() may be called from any thread.
#ifndef KPZ_TOOLS_KPZ_KPZSAMPLE_H
#define KPZ_TOOLS_KPZ_KPZSAMPLE_H

#include <string>

class KpzSample {
 public:
  // <prefix>/share/kpz/sample.kpz when the running binary is <prefix>/bin/kpz
  // and that file can be read; `fallback` otherwise.
  static std::string Path(const char* fallback);

  // The installed sample's path for the binary at `exePath`
  // (/opt/x/bin/kpz -> /opt/x/share/kpz/sample.kpz); empty when the binary
  // does not lie in a directory named bin.
  static std::string BesideBinary(const std::string& exePath);
};

#endif  // KPZ_TOOLS_KPZ_KPZSAMPLE_H
