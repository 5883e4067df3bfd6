// FuzzScratchFile.h - the per-process scratch file of the file-mode fuzz
// targets: one directory and one file, set up once, removed at exit, and
// rewritten whole with each input.
#ifndef KPZ_FUZZ_FUZZSCRATCHFILE_H
#define KPZ_FUZZ_FUZZSCRATCHFILE_H

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

struct Scratch {
  std::string dir;
  std::string file;
};

inline Scratch& TheScratch() {
  static Scratch scratch;
  return scratch;
}

inline void RemoveScratch() {
  const Scratch& s = TheScratch();
  if (!s.file.empty()) {
    (void)unlink(s.file.c_str());
  }
  if (!s.dir.empty()) {
    (void)rmdir(s.dir.c_str());
  }
}

// Makes the scratch directory (in $TMPDIR, else the memory file system when
// there is one, else /tmp) and names the file in it; both go at exit. Aborts,
// naming `target`, when the directory cannot be made.
inline void SetUpScratch(const char* target) {
  const char* tmp = std::getenv("TMPDIR");
  std::string base = tmp != nullptr && *tmp != '\0' ? tmp : "";
  if (base.empty()) {
    base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  }
  std::string pattern = base + "/kpz-fuzz-XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr) {
    std::fprintf(stderr, "%s: ", target);
    std::perror("mkdtemp");
    std::abort();
  }
  TheScratch().dir = buf.data();
  TheScratch().file = TheScratch().dir + "/input.kpz";
  std::atexit(RemoveScratch);
}

// Writes `size` bytes of `data` as the whole content of `path`.
inline bool WriteWhole(const std::string& path, const std::uint8_t* data, std::size_t size) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) {
    return false;
  }
  const bool written = size == 0 || std::fwrite(data, 1, size, f) == size;
  return std::fclose(f) == 0 && written;
}

#endif  // KPZ_FUZZ_FUZZSCRATCHFILE_H
