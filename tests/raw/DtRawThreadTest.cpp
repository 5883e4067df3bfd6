// Separate DtRaw objects on separate threads: eight threads, each with its
// own objects, initialise over the same files (file mode) and the same
// caller buffers (buffer mode), run every query many times and compare every
// answer with what the file was built to hold; then each thread writes
// rotations back into a file of its own. The library keeps no shared mutable
// state, so the answers must match those of a single thread exactly, and a
// ThreadSanitizer build must stay silent.
//
// The library logs from every thread at once; each line is written with one
// call, so standard error must hold exactly the lines a single thread would
// write for the same work (in any order), each of them whole.
#include "raw/DtRaw.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "raw/DtRawDateTime.h"
#include "raw/DtRawFlashInfo.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;

constexpr int kThreads = 8;
constexpr int kRounds = 48;          // per thread, reading
constexpr int kWriteRounds = 8;      // per thread, writing back

// What one test file holds, as the queries must report it.
struct Expected {
  std::uint32_t snOffset = 0;
  std::uint32_t snSize = 0;
  std::uint16_t snWidth = 0;
  std::uint16_t snHeight = 0;
  std::uint32_t tnOffset = 0;
  Bytes thumbnail;
  std::uint8_t tnRotation = 0;
  std::uint8_t rotation = 0;
  std::uint16_t rawWidth = 0;
  std::uint16_t rawHeight = 0;
  short colorSpace = 0;
  short customRendered = 0;
  unsigned int focal35 = 0;
  DtRawFlashInfo flash;
  unsigned char program = 0;
  unsigned short iso = 0;
  unsigned int focalNum = 0, focalDen = 0;
  unsigned int fNum = 0, fDen = 0;
  unsigned int expNum = 0, expDen = 0;
  int biasNum = 0, biasDen = 0;
  std::string maker;
  std::string model;
  DtRawDateTime dateTime;
  unsigned short exifVersion = 0;
  unsigned short iobVersion = 0;
  std::string iobIndex;  // with its zero byte
};

struct Variant {
  Bytes bytes;  // also the caller's buffer of buffer mode, shared by every thread
  std::string path;
  Expected want;
};

DtRawDateTime DateTime(int year, int month, int day, int hour, int minute, int second) {
  DtRawDateTime d;
  d.m_year = static_cast<UINT16>(year);
  d.m_month = static_cast<UINT8>(month);
  d.m_day = static_cast<UINT8>(day);
  d.m_hour = static_cast<UINT8>(hour);
  d.m_minute = static_cast<UINT8>(minute);
  d.m_second = static_cast<UINT8>(second);
  return d;
}

DtRawFlashInfo Flash(int fired, int ret, int mode, int function, int redEye) {
  DtRawFlashInfo f;
  f.m_fired = static_cast<UINT8>(fired);
  f.m_return = static_cast<UINT8>(ret);
  f.m_mode = static_cast<UINT8>(mode);
  f.m_function = static_cast<UINT8>(function);
  f.m_redEye = static_cast<UINT8>(redEye);
  return f;
}

// Four files that differ in byte order, model branch, orientation, where the
// thumbnail lies (inside or beyond the 64 KiB head), whether the screennail's
// pixel size is stored, and in every value, so that an answer taken from
// another thread's object would show.
std::vector<Variant> MakeVariants(const kpztest::TempDir& dir) {
  std::vector<Variant> out;
  for (int v = 0; v < 4; ++v) {
    kpztest::KpzSpec plan;
    plan.order = (v % 2 == 0) ? DtNlLittleEndian : DtNlBigEndian;
    plan.m372 = (v == 1);
    const std::uint16_t orientations[] = {6, 3, 8, 7};
    const std::uint8_t codes[] = {1, 2, 3, 7};
    plan.orientation = orientations[v];
    plan.thumbnailOrientation = orientations[(v + 1) % 4];
    plan.screennail = kpztest::FakeJpeg(static_cast<std::size_t>(64 + 32 * v),
                                        static_cast<std::uint8_t>(0x50 + v));
    plan.thumbnail = kpztest::FakeJpeg(static_cast<std::size_t>(32 + 16 * v),
                                       static_cast<std::uint8_t>(0x20 + v));
    if (v == 2) {
      plan.thumbnailOffset = 0x11000;  // beyond the head: read from the file
    }
    plan.scnHeightWidth = std::make_pair(std::uint32_t{1080u + 10u * static_cast<unsigned>(v)},
                                         std::uint32_t{1616u + 20u * static_cast<unsigned>(v)});
    if (v == 3) {
      plan.scnHeightWidth.reset();  // no pixel size: 0 by 0, and one more log line
    }
    plan.pixelX = static_cast<std::uint16_t>(6000 + v);
    plan.pixelY = static_cast<std::uint16_t>(4000 + v);
    plan.colorSpace = static_cast<std::uint16_t>(v == 3 ? 0xFFFF : 1);
    plan.customRendered = static_cast<std::uint16_t>(v % 2);
    plan.focalLength35 = static_cast<std::uint16_t>(75 + v);
    const std::uint16_t flashes[] = {0x0010, 0x0059, 0x0020, 0x0007};
    plan.flash = flashes[v];
    plan.exposureProgram = static_cast<std::uint16_t>(0x0100 + 2 + v);  // the low byte counts
    plan.isoSpeed = static_cast<std::uint16_t>(100 << v);
    plan.focalLength = std::make_pair(std::uint32_t{500u + static_cast<unsigned>(v)}, 10u);
    plan.fNumber = std::make_pair(std::uint32_t{28u + static_cast<unsigned>(v)}, 10u);
    plan.exposureTime = (v % 2 == 0) ? std::make_pair(10u, 600u) : std::make_pair(1u, 250u);
    plan.exposureBias = std::make_pair(std::int32_t{-1 - v}, std::int32_t{3});
    plan.make = std::string("KAVI") + std::to_string(v);
    plan.model = std::string("DSLR-M10") + std::to_string(v);
    const int day = 1 + v;
    plan.dateTimeOriginal = "2010:05:0" + std::to_string(day) + " 12:34:5" + std::to_string(v);
    plan.exifVersion = std::string("023") + std::to_string(v);
    plan.iobVersion = std::string("010") + std::to_string(v);
    plan.iobIndex = std::string("R9") + std::to_string(v);

    kpztest::KpzLayout at;
    Variant variant;
    variant.bytes = kpztest::BuildKpz(plan, &at);
    variant.path = dir.Write("v" + std::to_string(v) + ".kpz", variant.bytes);

    Expected& w = variant.want;
    w.snOffset = at.screennail;
    w.snSize = static_cast<std::uint32_t>(plan.screennail.size());
    if (plan.m372) {
      w.snWidth = 640;
      w.snHeight = 480;
    } else if (plan.scnHeightWidth) {
      w.snWidth = static_cast<std::uint16_t>(plan.scnHeightWidth->second);
      w.snHeight = static_cast<std::uint16_t>(plan.scnHeightWidth->first);
    }
    w.tnOffset = at.thumbnail;
    w.thumbnail = plan.thumbnail;
    w.tnRotation = codes[(v + 1) % 4];
    w.rotation = codes[v];
    w.rawWidth = *plan.pixelX;
    w.rawHeight = *plan.pixelY;
    w.colorSpace = static_cast<short>(v == 3 ? -1 : 1);
    w.customRendered = static_cast<short>(v % 2);
    w.focal35 = *plan.focalLength35;
    const DtRawFlashInfo flashWant[] = {Flash(0, 0, 2, 0, 0), Flash(1, 0, 3, 0, 1),
                                        Flash(0, 0, 0, 1, 0), Flash(1, 3, 0, 0, 0)};
    w.flash = flashWant[v];
    w.program = static_cast<unsigned char>(2 + v);
    w.iso = static_cast<unsigned short>(100 << v);
    w.focalNum = 500u + static_cast<unsigned>(v);
    w.focalDen = 10;
    w.fNum = 28u + static_cast<unsigned>(v);
    w.fDen = 10;
    w.expNum = 1;
    w.expDen = (v % 2 == 0) ? 60u : 250u;  // 10/600 is brought to 1/60
    w.biasNum = -1 - v;
    w.biasDen = 3;
    w.maker = *plan.make;
    w.model = plan.m372 ? std::string("DSLR-M372") : *plan.model;
    w.dateTime = DateTime(2010, 5, day, 12, 34, 50 + v);
    w.exifVersion = static_cast<unsigned short>(230 + v);
    w.iobVersion = static_cast<unsigned short>(100 + v);
    w.iobIndex = std::string("R9") + std::to_string(v) + std::string(1, '\0');
    out.push_back(std::move(variant));
  }
  return out;
}

// Removes its files on scope exit. Declared after the TempDir that holds
// them, it runs first, so the directory is empty when it goes and is removed
// even where listing it fails (32-bit readdir under user-mode emulation).
class UnlinkOnExit {
 public:
  UnlinkOnExit() = default;
  ~UnlinkOnExit() {
    for (const std::string& path : m_paths) ::unlink(path.c_str());
  }
  UnlinkOnExit(const UnlinkOnExit&) = delete;
  UnlinkOnExit& operator=(const UnlinkOnExit&) = delete;
  void Add(const std::string& path) { m_paths.push_back(path); }

 private:
  std::vector<std::string> m_paths;
};

// Collects mismatches of one thread (gtest assertions stay on the main thread).
class Mismatches {
 public:
  explicit Mismatches(std::string where) : m_where(std::move(where)) {}

  template <typename T, typename U>
  void Check(const char* what, const T& got, const U& want) {
    if (got == want) return;
    std::ostringstream text;
    text << m_where << ": " << what << " is " << +got << ", expected " << +want;
    m_list.push_back(text.str());
  }
  void CheckText(const char* what, const std::string& got, const std::string& want) {
    if (got == want) return;
    m_list.push_back(m_where + ": " + what + " is \"" + got + "\", expected \"" + want + "\"");
  }
  void SetWhere(std::string where) { m_where = std::move(where); }
  const std::vector<std::string>& List() const { return m_list; }

 private:
  std::string m_where;
  std::vector<std::string> m_list;
};

// One initialisation, every query, Finalize.
void ReadRound(DtRaw& raw, Variant& variant, bool bufferMode, Mismatches& m) {
  const Expected& w = variant.want;
  const int init = bufferMode ? raw.InitializeBuf(variant.bytes.data(),
                                                  static_cast<int>(variant.bytes.size()))
                              : raw.Initialize(variant.path.c_str());
  m.Check("Initialize", init, 0);
  if (init != 0) return;

  DtRawScreennailInfo sn;
  m.Check("GetScreennailInfo", raw.GetScreennailInfo(&sn), 0);
  m.Check("screennail offset", sn.m_fileOffset, w.snOffset);
  m.Check("screennail size", sn.m_size, w.snSize);
  m.Check("screennail width", sn.m_horizon, w.snWidth);
  m.Check("screennail height", sn.m_vertical, w.snHeight);

  DtRawThumbnailInfo tn;
  m.Check("GetThumbnailInfo", raw.GetThumbnailInfo(&tn), 0);
  m.Check("thumbnail offset", tn.m_fileOffset, w.tnOffset);
  m.Check("thumbnail size", tn.m_size, static_cast<std::uint32_t>(w.thumbnail.size()));
  m.Check("thumbnail compression", tn.m_compression, 6);
  m.Check("thumbnail rotation", tn.m_rotation, w.tnRotation);

  Bytes data(w.thumbnail.size() + 8, 0xEE);
  m.Check("GetThumbnailData",
          raw.GetThumbnailData(data.data(), static_cast<unsigned int>(data.size())), 0);
  m.Check("thumbnail bytes",
          Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(w.thumbnail.size())) ==
              w.thumbnail,
          true);
  m.Check("bytes past the thumbnail", data.back(), 0xEE);

  unsigned char rotation = 0xFF;
  m.Check("GetRotationInfo", raw.GetRotationInfo(&rotation), 0);
  m.Check("rotation", rotation, w.rotation);

  const char* iob = nullptr;
  int iobSize = -1;
  m.Check("GetIobIndex", raw.GetIobIndex(&iob, &iobSize), 0);
  m.CheckText("iob index",
              (iob != nullptr && iobSize > 0) ? std::string(iob, static_cast<std::size_t>(iobSize))
                                              : std::string(),
              w.iobIndex);

  unsigned short u16 = 0;
  m.Check("GetRawImageWidth", raw.GetRawImageWidth(&u16), 0);
  m.Check("raw width", u16, w.rawWidth);
  m.Check("GetRawImageHeight", raw.GetRawImageHeight(&u16), 0);
  m.Check("raw height", u16, w.rawHeight);
  short s16 = 0;
  m.Check("GetColorSpace", raw.GetColorSpace(&s16), 0);
  m.Check("color space", s16, w.colorSpace);
  m.Check("GetCustomRendered", raw.GetCustomRendered(&s16), 0);
  m.Check("custom rendered", s16, w.customRendered);

  unsigned int num = 0, den = 0;
  m.Check("Get35mmFocalLength", raw.Get35mmFocalLength(&num, &den), 0);
  m.Check("35 mm focal length", num, w.focal35);
  m.Check("35 mm focal length denominator", den, 1u);
  m.Check("GetRealFocalLength", raw.GetRealFocalLength(&num, &den), 0);
  m.Check("focal length", num, w.focalNum);
  m.Check("focal length denominator", den, w.focalDen);
  m.Check("GetFNumber", raw.GetFNumber(&num, &den), 0);
  m.Check("f-number", num, w.fNum);
  m.Check("f-number denominator", den, w.fDen);
  m.Check("GetExposureTime", raw.GetExposureTime(&num, &den), 0);
  m.Check("exposure time", num, w.expNum);
  m.Check("exposure time denominator", den, w.expDen);
  int snum = 0, sden = 0;
  m.Check("GetExposureBias", raw.GetExposureBias(&snum, &sden), 0);
  m.Check("exposure bias", snum, w.biasNum);
  m.Check("exposure bias denominator", sden, w.biasDen);

  DtRawFlashInfo flash;
  m.Check("GetFlashInfo", raw.GetFlashInfo(&flash), 0);
  m.Check("flash fired", flash.m_fired, w.flash.m_fired);
  m.Check("flash return", flash.m_return, w.flash.m_return);
  m.Check("flash mode", flash.m_mode, w.flash.m_mode);
  m.Check("flash function", flash.m_function, w.flash.m_function);
  m.Check("flash red-eye", flash.m_redEye, w.flash.m_redEye);

  unsigned char program = 0;
  m.Check("GetExposureProgram", raw.GetExposureProgram(&program), 0);
  m.Check("exposure program", program, w.program);
  m.Check("GetISOSpeed", raw.GetISOSpeed(&u16), 0);
  m.Check("iso", u16, w.iso);

  char name[32];
  m.Check("GetMakerName", raw.GetMakerName(name, sizeof name), 0);
  m.CheckText("maker", std::string(name, strnlen(name, sizeof name)), w.maker);
  m.Check("GetModelName", raw.GetModelName(name, sizeof name), 0);
  m.CheckText("model", std::string(name, strnlen(name, sizeof name)), w.model);

  DtRawDateTime dt;
  m.Check("GetOrgDateTime", raw.GetOrgDateTime(&dt), 0);
  m.Check("year", dt.m_year, w.dateTime.m_year);
  m.Check("month", dt.m_month, w.dateTime.m_month);
  m.Check("day", dt.m_day, w.dateTime.m_day);
  m.Check("hour", dt.m_hour, w.dateTime.m_hour);
  m.Check("minute", dt.m_minute, w.dateTime.m_minute);
  m.Check("second", dt.m_second, w.dateTime.m_second);

  m.Check("GetExifVersion", raw.GetExifVersion(&u16), 0);
  m.Check("exif version", u16, w.exifVersion);
  m.Check("GetIobVersion", raw.GetIobVersion(&u16), 0);
  m.Check("iob version", u16, w.iobVersion);
  unsigned char mode = 0xFF;
  m.Check("GetT593Mode", raw.GetT593Mode(&mode), 0);
  m.Check("t593 mode", mode, 0);

  raw.Finalize();
}

std::string Where(int thread, int round, int variant, bool bufferMode) {
  return "thread " + std::to_string(thread) + " round " + std::to_string(round) + " file " +
         std::to_string(variant) + (bufferMode ? " (buffer)" : " (file)");
}

// The lines of `text`, counted; a last line without its newline counts as
// "<partial>" so that a cut line shows.
std::map<std::string, int> CountLines(const std::string& text) {
  std::map<std::string, int> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      ++lines["<partial>" + text.substr(start)];
      break;
    }
    ++lines[text.substr(start, end - start + 1)];
    start = end + 1;
  }
  return lines;
}

// True when `line` has the logger's form: colour, level, [file::function:n]: text, reset.
bool IsWholeLogLine(const std::string& line) {
  const std::string reset = "\033[0m\n";
  if (line.size() < reset.size() || line.compare(line.size() - reset.size(), reset.size(), reset) != 0) {
    return false;
  }
  const bool levelOk = line.rfind("\033[0mINFO [jni/", 0) == 0 ||
                       line.rfind("\033[33mWARN [jni/", 0) == 0 ||
                       line.rfind("\033[31mERR  [jni/", 0) == 0;
  // Exactly one line end, and no colour start inside the message.
  return levelOk && line.find('\n') == line.size() - 1 &&
         line.find("\033[", 5) == line.size() - reset.size();
}

std::vector<std::string> Joined(std::vector<Mismatches>& perThread) {
  std::vector<std::string> all;
  for (const Mismatches& m : perThread) {
    all.insert(all.end(), m.List().begin(), m.List().end());
  }
  return all;
}

std::string FirstFew(const std::vector<std::string>& list) {
  std::string text;
  for (std::size_t i = 0; i < list.size() && i < 10; ++i) text += list[i] + "\n";
  return text;
}

TEST(DtRawThread, EightThreadsWithSeparateObjectsGiveTheAnswersOfOne) {
  kpztest::TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  std::vector<Variant> variants = MakeVariants(dir);
  UnlinkOnExit cleanup;
  for (const Variant& v : variants) cleanup.Add(v.path);
  for (const Variant& v : variants) ASSERT_FALSE(v.path.empty());
  const int nVariants = static_cast<int>(variants.size());

  // What one thread writes for one round of each file and mode, measured on
  // an object that has been initialised before, as the threads' objects are.
  std::map<std::pair<int, bool>, std::map<std::string, int>> oneRound;
  for (int v = 0; v < nVariants; ++v) {
    Variant& variant = variants[static_cast<std::size_t>(v)];
    for (bool buffer : {false, true}) {
      DtRaw raw;
      Mismatches m(Where(-1, 0, v, buffer));
      kpztest::CaptureStderr([&] { ReadRound(raw, variant, buffer, m); });
      const std::string again =
          kpztest::CaptureStderr([&] { ReadRound(raw, variant, buffer, m); });
      ASSERT_TRUE(m.List().empty()) << FirstFew(m.List());
      oneRound[{v, buffer}] = CountLines(again);
    }
  }

  std::vector<Mismatches> found;
  for (int t = 0; t < kThreads; ++t) found.emplace_back(Where(t, 0, 0, false));
  std::map<std::string, int> expectedLines;
  for (int t = 0; t < kThreads; ++t) {
    for (int r = 0; r < kRounds; ++r) {
      for (const auto& line : oneRound[{(t + r) % nVariants, (r + t / 2) % 2 == 1}]) {
        expectedLines[line.first] += line.second;
      }
    }
  }

  std::atomic<int> ready{0};
  const std::string err = kpztest::CaptureStderr([&] {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        DtRaw raw;  // this thread's own object, reused for every round
        ready.fetch_add(1);
        while (ready.load() < kThreads) std::this_thread::yield();
        for (int r = 0; r < kRounds; ++r) {
          const int v = (t + r) % nVariants;
          const bool buffer = (r + t / 2) % 2 == 1;
          found[static_cast<std::size_t>(t)].SetWhere(Where(t, r, v, buffer));
          ReadRound(raw, variants[static_cast<std::size_t>(v)], buffer,
                    found[static_cast<std::size_t>(t)]);
        }
      });
    }
    for (std::thread& th : threads) th.join();
  });

  const std::vector<std::string> mismatches = Joined(found);
  EXPECT_TRUE(mismatches.empty()) << mismatches.size() << " wrong answers, first:\n"
                                  << FirstFew(mismatches);
  EXPECT_EQ(CountLines(err), expectedLines);
  // The buffers were only read.
  std::vector<Variant> fresh = MakeVariants(dir);
  for (int v = 0; v < nVariants; ++v) {
    EXPECT_EQ(variants[static_cast<std::size_t>(v)].bytes, fresh[static_cast<std::size_t>(v)].bytes) << v;
  }
}

TEST(DtRawThread, EightThreadsWriteRotationsBackIntoTheirOwnFiles) {
  kpztest::TempDir dir;
  ASSERT_FALSE(dir.Path().empty());
  std::vector<Variant> variants = MakeVariants(dir);
  UnlinkOnExit cleanup;
  for (const Variant& v : variants) cleanup.Add(v.path);
  const int nVariants = static_cast<int>(variants.size());
  std::vector<std::string> paths;
  std::vector<long long> mtimes;
  for (int t = 0; t < kThreads; ++t) {
    const Variant& v = variants[static_cast<std::size_t>(t % nVariants)];
    paths.push_back(dir.Write("t" + std::to_string(t) + ".kpz", v.bytes));
    cleanup.Add(paths.back());
    ASSERT_FALSE(paths.back().empty());
    struct stat st {};
    ASSERT_EQ(::stat(paths.back().c_str(), &st), 0);
    mtimes.push_back(static_cast<long long>(st.st_mtime));
  }

  std::vector<Mismatches> found;
  for (int t = 0; t < kThreads; ++t) found.emplace_back(Where(t, 0, t % nVariants, false));
  std::atomic<int> ready{0};
  const std::string err = kpztest::CaptureStderr([&] {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        Mismatches& m = found[static_cast<std::size_t>(t)];
        const std::string& path = paths[static_cast<std::size_t>(t)];
        DtRaw raw;
        ready.fetch_add(1);
        while (ready.load() < kThreads) std::this_thread::yield();
        for (int r = 0; r < kWriteRounds; ++r) {
          m.SetWhere(Where(t, r, t % nVariants, false));
          const unsigned char code = static_cast<unsigned char>((t + r) % 8);
          m.Check("Initialize", raw.Initialize(path.c_str()), 0);
          m.Check("SetRotationInfo", raw.SetRotationInfo(code), 0);
          m.Check("Update", raw.Update(nullptr), 0);
          unsigned char rotation = 0xFF;
          m.Check("GetRotationInfo after Update", raw.GetRotationInfo(&rotation), 0);
          m.Check("rotation after Update", rotation, code);
          raw.Finalize();
          // A fresh read of the file sees the new orientation in IFD0 and IFD1.
          m.Check("Initialize again", raw.Initialize(path.c_str()), 0);
          m.Check("GetRotationInfo", raw.GetRotationInfo(&rotation), 0);
          m.Check("rotation", rotation, code);
          DtRawThumbnailInfo tn;
          m.Check("GetThumbnailInfo", raw.GetThumbnailInfo(&tn), 0);
          m.Check("thumbnail rotation", tn.m_rotation, code);
          raw.Finalize();
        }
      });
    }
    for (std::thread& th : threads) th.join();
  });

  const std::vector<std::string> mismatches = Joined(found);
  EXPECT_TRUE(mismatches.empty()) << mismatches.size() << " wrong answers, first:\n"
                                  << FirstFew(mismatches);
  // Every line whole; one "Update OK" per write.
  int updates = 0;
  for (const auto& line : CountLines(err)) {
    EXPECT_TRUE(IsWholeLogLine(line.first)) << line.first;
    if (line.first.find("]: Raw: Update OK.\033[0m") != std::string::npos) updates += line.second;
  }
  EXPECT_EQ(updates, kThreads * kWriteRounds);
  // Each write set the file's times back.
  for (int t = 0; t < kThreads; ++t) {
    struct stat st {};
    ASSERT_EQ(::stat(paths[static_cast<std::size_t>(t)].c_str(), &st), 0);
    EXPECT_EQ(static_cast<long long>(st.st_mtime), mtimes[static_cast<std::size_t>(t)]) << t;
  }
}

}  // namespace
