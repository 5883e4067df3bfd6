// KpzToolTest.cpp - the kpz command-line tool (tools/kpz) run as a program:
// the preview and thumbnail commands on one file (outputs, names, messages,
// exit codes) on files written with the test-data builder and on the bundled
// sample, and the help. The info and rotate commands and batches have their
// own KpzTool*Test files. The paths of the tool, of the sample and of its
// generator come from tests/tools/CMakeLists.txt.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SAMPLE) && defined(KPZ_MAKE_SAMPLE)

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;

using kpztool::Listing;
using kpztool::Result;
using kpztool::RunTool;
using kpztool::Text;

class KpzTool : public testing::Test {
 protected:
  // Writes `recipe` as `name` in the scratch directory; returns its path.
  std::string Write(const std::string& name, const KpzSpec& recipe) {
    bytes = kpztest::BuildKpz(recipe, &where);
    const std::string path = dir.Write(name, bytes);
    EXPECT_FALSE(path.empty());
    return path;
  }

  Result Run(const std::vector<std::string>& args) { return RunTool(args, dir.Path(), dir.Path()); }

  // The bytes of the written file at [offset, offset + size).
  Bytes Slice(std::uint32_t offset, std::size_t size) const {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(first, first + static_cast<std::ptrdiff_t>(size));
  }

  kpztest::TempDir dir;
  Bytes bytes;
  KpzLayout where;
};

// ---- success --------------------------------------------------------------------

TEST_F(KpzTool, PreviewWritesTheScreennailNextToTheInput) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(3000, 1);
  const std::string in = Write("a.kpz", recipe);
  const Result r = Run({"preview", in});
  const std::string out = dir.Path() + "/a.preview.jpg";
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(Text(r.out), "wrote " + out + " (3000 bytes)\n");
  EXPECT_EQ(kpztest::ReadFileBytes(out), Slice(where.screennail, 3000));
  EXPECT_EQ(kpztest::ReadFileBytes(out), recipe.screennail);
}

TEST_F(KpzTool, PreviewOfABigEndianFileIsItsScreennail) {
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  recipe.screennail = kpztest::FakeJpeg(2001, 2);
  const std::string in = Write("b.kpz", recipe);
  const Result r = Run({"preview", in});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/b.preview.jpg"), Slice(where.screennail, 2001));
}

TEST_F(KpzTool, PreviewOfAnM372FileComesFromTheKmMakerNote) {
  KpzSpec recipe;
  recipe.m372 = true;
  recipe.screennail = kpztest::FakeJpeg(1234, 3);
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0);
    ifd.ReplaceRaw(kpztest::tag::kJpegLength, kpztest::kTiffLong, 1, 8);
  };
  const std::string in = Write("m.kpz", recipe);
  const Result r = Run({"preview", in, "-o", "-"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.out, recipe.screennail);
}

TEST_F(KpzTool, ThumbnailWritesTheIfd1ThumbnailNextToTheInput) {
  KpzSpec recipe;
  recipe.thumbnail = kpztest::FakeJpeg(500, 4);
  const std::string in = Write("t.kpz", recipe);
  const Result r = Run({"thumbnail", in});
  const std::string out = dir.Path() + "/t.thumb.jpg";
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "wrote " + out + " (500 bytes)\n");
  EXPECT_EQ(kpztest::ReadFileBytes(out), Slice(where.thumbnail, 500));
}

TEST_F(KpzTool, ThumbnailBeyondTheFirst64KiBIsReadFromTheFile) {
  KpzSpec recipe;
  recipe.thumbnail = kpztest::FakeJpeg(700, 5);
  recipe.thumbnailOffset = 0x12000;
  const std::string in = Write("far.kpz", recipe);
  const Result r = Run({"thumbnail", in, "-o", "-"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.out, recipe.thumbnail);
}

TEST_F(KpzTool, DashOutputWritesTheJpegToStandardOutputOnly) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(4096, 6);
  const std::string in = Write("s.kpz", recipe);
  const Result r = Run({"preview", in, "-o", "-"});
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, recipe.screennail);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"s.kpz"}));
}

TEST_F(KpzTool, OutputOptionNamesTheFileAndReplacesAnOldOne) {
  KpzSpec recipe;
  const std::string in = Write("o.kpz", recipe);
  const std::string out = dir.Path() + "/chosen.jpg";
  ASSERT_TRUE(kpztest::WriteFileBytes(out, Bytes{'o', 'l', 'd'}));
  const Result r = Run({"preview", in, "--output", out});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(kpztest::ReadFileBytes(out), recipe.screennail);
  struct stat st;
  ASSERT_EQ(::stat(out.c_str(), &st), 0);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"chosen.jpg", "o.kpz"}));
}

TEST_F(KpzTool, DefaultNameReplacesOnlyTheLastExtension) {
  KpzSpec recipe;
  const std::string in = Write("x.y.KPZ", recipe);
  EXPECT_EQ(Run({"preview", in}).exit, 0);
  EXPECT_TRUE(std::filesystem::exists(dir.Path() + "/x.y.preview.jpg"));
}

TEST_F(KpzTool, DefaultNameOfANameWithoutExtensionAppendsTheSuffix) {
  KpzSpec recipe;
  const std::string in = Write("raw", recipe);
  EXPECT_EQ(Run({"thumbnail", in}).exit, 0);
  EXPECT_TRUE(std::filesystem::exists(dir.Path() + "/raw.thumb.jpg"));
}

TEST_F(KpzTool, RelativeInputWritesNextToItRelativeToTheCurrentDirectory) {
  KpzSpec recipe;
  std::filesystem::create_directory(dir.Path() + "/sub");
  Write("sub/r.kpz", recipe);
  const Result r = Run({"preview", "sub/r.kpz"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "wrote sub/r.preview.jpg (64 bytes)\n");
  EXPECT_TRUE(std::filesystem::exists(dir.Path() + "/sub/r.preview.jpg"));
}

// ---- the bundled sample -----------------------------------------------------------

TEST_F(KpzTool, WithoutFileThePreviewOfTheBundledSampleGoesToTheCurrentDirectory) {
  const Result r = Run({"preview"});
  EXPECT_EQ(r.exit, 0) << r.err;
  const Bytes jpeg = kpztest::ReadFileBytes(dir.Path() + "/sample.preview.jpg");
  EXPECT_EQ(Text(r.out), "wrote sample.preview.jpg (" + std::to_string(jpeg.size()) + " bytes)\n");
  // What the generator encodes, byte for byte.
  const std::string made = dir.Path() + "/made";
  std::filesystem::create_directory(made);
  ASSERT_EQ(std::system((std::string(KPZ_MAKE_SAMPLE) + " " + made + "/s.kpz " + made +
                         "/p.jpg " + made + "/t.jpg").c_str()),
            0);
  EXPECT_EQ(jpeg, kpztest::ReadFileBytes(made + "/p.jpg"));
}

TEST_F(KpzTool, BundledSampleHoldsRealBaselineJpegs) {
  const Result p = Run({"preview", "-o", "-"});
  const Result t = Run({"thumbnail", "-o", "-"});
  ASSERT_EQ(p.exit, 0) << p.err;
  ASSERT_EQ(t.exit, 0) << t.err;
  for (const Bytes* j : {&p.out, &t.out}) {
    ASSERT_GT(j->size(), 100u);
    EXPECT_EQ((*j)[0], 0xFF);
    EXPECT_EQ((*j)[1], 0xD8);
    EXPECT_EQ((*j)[j->size() - 2], 0xFF);
    EXPECT_EQ((*j)[j->size() - 1], 0xD9);
  }
  // SOF0 with 120 x 160 and 24 x 32 pixels.
  const Bytes sofPreview = {0xFF, 0xC0, 0x00, 0x11, 0x08, 0x00, 0x78, 0x00, 0xA0};
  const Bytes sofThumb = {0xFF, 0xC0, 0x00, 0x11, 0x08, 0x00, 0x18, 0x00, 0x20};
  EXPECT_NE(std::search(p.out.begin(), p.out.end(), sofPreview.begin(), sofPreview.end()),
            p.out.end());
  EXPECT_NE(std::search(t.out.begin(), t.out.end(), sofThumb.begin(), sofThumb.end()),
            t.out.end());
  // The sample file holds exactly these bytes at its recorded places.
  const Bytes sample = kpztest::ReadFileBytes(KPZ_SAMPLE);
  EXPECT_NE(std::search(sample.begin(), sample.end(), p.out.begin(), p.out.end()), sample.end());
  EXPECT_NE(std::search(sample.begin(), sample.end(), t.out.begin(), t.out.end()), sample.end());
}

// ---- errors -------------------------------------------------------------------------

TEST_F(KpzTool, MissingFileIsReportedInWordsWithExit1) {
  const std::string in = dir.Path() + "/nope.kpz";
  const Result r = Run({"preview", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": file not found\n");
  EXPECT_TRUE(r.out.empty());
  EXPECT_TRUE(Listing(dir.Path()).empty());
}

TEST_F(KpzTool, FileWithoutPreviewIsReported) {
  KpzSpec recipe;
  recipe.ifd0ScreennailTags = false;
  const std::string in = Write("n.kpz", recipe);
  const Result r = Run({"preview", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": no preview stored in this file\n");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"n.kpz"}));
}

TEST_F(KpzTool, PreviewPastTheEndLeavesNoFileAndKeepsAnOldOne) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(1000, 7);
  recipe.screennailLengthTag = 1001;
  const std::string in = Write("p.kpz", recipe);
  const std::string out = dir.Path() + "/p.preview.jpg";
  ASSERT_TRUE(kpztest::WriteFileBytes(out, Bytes{'o', 'l', 'd'}));
  const Result r = Run({"preview", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": preview extends past the end of the file\n");
  EXPECT_EQ(kpztest::ReadFileBytes(out), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"p.kpz", "p.preview.jpg"}));
}

TEST_F(KpzTool, ForgedPreviewSizeOf4GiBIsReportedAsPastTheEnd) {
  KpzSpec recipe;
  recipe.screennailLengthTag = 0xFFFFFFFFu;
  const std::string in = Write("h.kpz", recipe);
  const Result r = Run({"preview", in, "-o", "-"});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": preview extends past the end of the file\n");
  EXPECT_TRUE(r.out.empty());
}

TEST_F(KpzTool, PreviewOffsetOf2GiBIsOutOfReach) {
  KpzSpec recipe;
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0x80000000u);
  };
  const std::string in = Write("g.kpz", recipe);
  const Result r = Run({"preview", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": preview lies beyond the first 2 GiB of the file, out of reach\n");
}

TEST_F(KpzTool, EmptyPreviewIsReportedNotWritten) {
  KpzSpec recipe;
  recipe.screennail = Bytes();
  const std::string in = Write("e.kpz", recipe);
  const Result r = Run({"preview", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": the preview stored in this file is empty (0 bytes)\n");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"e.kpz"}));
}

TEST_F(KpzTool, FileWithoutThumbnailIsReported) {
  KpzSpec recipe;
  recipe.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
  const std::string in = Write("nt.kpz", recipe);
  const Result r = Run({"thumbnail", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": no thumbnail stored in this file\n");
}

TEST_F(KpzTool, ThumbnailPastTheEndIsReported) {
  KpzSpec recipe;
  recipe.thumbnail = kpztest::FakeJpeg(100, 8);
  recipe.thumbnailOffset = 0x20000;  // the last thing in the file
  recipe.thumbnailLengthTag = 200;
  const std::string in = Write("tp.kpz", recipe);
  const Result r = Run({"thumbnail", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": thumbnail extends past the end of the file\n");
}

TEST_F(KpzTool, AThumbnailClaimingHundredsOfMegabytesIsRefusedAsTooLarge) {
  // A sparse file of 600 MB whose thumbnail claims 600 MB, all inside it.
  const std::uint32_t claimed = 600u * 1024 * 1024;
  KpzSpec recipe;
  recipe.thumbnailLengthTag = claimed;
  const std::string in = Write("huge.kpz", recipe);
  ASSERT_TRUE(kpztest::ExtendFileSparse(in, std::uint64_t{claimed} + 0x20000));
  for (const char* out : {"-", "huge.jpg"}) {
    const Result r = Run({"thumbnail", "-o", out, in});
    EXPECT_EQ(r.exit, 1) << out;
    EXPECT_TRUE(r.out.empty());
    EXPECT_EQ(r.err, "kpz: " + in +
                         ": the thumbnail stored in this file is too large (629145600 bytes; a "
                         "thumbnail is at most 262144)\n");
  }
  EXPECT_FALSE(std::filesystem::exists(dir.Path() + "/huge.jpg"));
  // Its preview is read as usual.
  const Result preview = Run({"preview", "-o", "-", in});
  EXPECT_EQ(preview.exit, 0) << preview.err;
  EXPECT_EQ(preview.out, recipe.screennail);
}

TEST_F(KpzTool, ThumbnailPastTheEndOfAShortFileIsNotTakenFromMemory) {
  KpzSpec recipe;
  recipe.thumbnail = kpztest::FakeJpeg(100, 9);
  recipe.thumbnailLengthTag = 150;  // inside the 64 KiB head copy, past the file's end
  recipe.thumbnailOffset = 0x1000;  // the last thing in the file
  const std::string in = Write("ts.kpz", recipe);
  ASSERT_LT(where.total, 0x10000u);
  const Result r = Run({"thumbnail", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": thumbnail extends past the end of the file\n");
}

TEST_F(KpzTool, TextFileIsNotAKpzFile) {
  const std::string in = dir.Write("notes.txt", Bytes(100, 'x'));
  const Result r = Run({"preview", in});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + in + ": not a KPZ raw file (no TIFF header)\n");
}

TEST_F(KpzTool, DirectoryWithoutKpzFilesLeavesNothingToDo) {
  dir.Write("notes.txt", Bytes(10, 'x'));
  const Result r = Run({"preview", dir.Path()});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: no files to work on: the directories named hold no file ending in .kpz\n");
  EXPECT_TRUE(r.out.empty());
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"notes.txt"}));
}

TEST_F(KpzTool, UnwritableOutputDirectoryGivesExit3) {
  KpzSpec recipe;
  const std::string in = Write("w.kpz", recipe);
  const std::string out = dir.Path() + "/missing-dir/w.jpg";
  const Result r = Run({"preview", in, "-o", out});
  EXPECT_EQ(r.exit, 3);
  EXPECT_EQ(r.err, "kpz: " + out + ": cannot create a file in " + dir.Path() +
                       "/missing-dir: " + std::strerror(ENOENT) + "\n");
}

TEST_F(KpzTool, OutputThatIsADirectoryReceivesTheOutputAsWithCp) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(700, 5);
  const std::string in = Write("d.kpz", recipe);
  std::filesystem::create_directory(dir.Path() + "/odir");
  const Result r = Run({"preview", in, "-o", "odir"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "wrote odir/d.preview.jpg (700 bytes)\n");
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/odir/d.preview.jpg"), recipe.screennail);
}

TEST_F(KpzTool, OutputNamingTheInputIsRefusedAndTheInputKept) {
  KpzSpec recipe;
  const std::string in = Write("keep.kpz", recipe);
  const Result r = Run({"preview", in, "-o", in});
  EXPECT_EQ(r.exit, 2);
  EXPECT_EQ(r.err, "kpz: " + in + ": the output would replace the input file\n");
  EXPECT_EQ(kpztest::ReadFileBytes(in), bytes);
}

// ---- diagnostics ---------------------------------------------------------------------

TEST_F(KpzTool, LibraryLinesAreHiddenWithoutVerbose) {
  const std::string in = dir.Path() + "/gone.kpz";
  const Result r = Run({"thumbnail", in});
  EXPECT_EQ(r.err, "kpz: " + in + ": file not found\n");
}

TEST_F(KpzTool, VerboseShowsTheLibraryLinesBeforeTheToolsLine) {
  // A file the library parses (a missing one never reaches it: the tool's
  // own open tells it).
  const std::string in = dir.Write("x.kpz", Bytes(100, 'x'));
  const Result r = Run({"info", "--verbose", in});
  EXPECT_EQ(r.exit, 1);
  const std::string libraryLine =
      "INFO [jni/raw/DtRawEng.cpp::Parse:106]: [DtRawEng::Parse]: Not TIFF Byteorder err!!";
  const std::string toolLine = "kpz: " + in + ": not a KPZ raw file (no TIFF header)\n";
  const size_t library = r.err.find(libraryLine);
  EXPECT_NE(library, std::string::npos) << r.err;
  EXPECT_LT(library, r.err.find(toolLine)) << r.err;
  ASSERT_GE(r.err.size(), toolLine.size());
  EXPECT_EQ(r.err.substr(r.err.size() - toolLine.size()), toolLine);
}

// ---- usage ---------------------------------------------------------------------------

TEST_F(KpzTool, HelpNamesEveryCommandTheSampleAndTheExitCodes) {
  const Result r = Run({"--help"});
  EXPECT_EQ(r.exit, 0);
  const std::string help = Text(r.out);
  for (const char* word :
       {"info", "preview", "thumbnail", "rotate", "share/kpz/sample.kpz", "samples/sample.kpz",
        "x.preview.jpg", "x.thumb.jpg", "--verbose", "Exit status", "JSON Lines",
        "KPZ-JSON.md", "share/doc/kpz/", "-o names an output",
        "DIRECTORY", "progress bar", "summary", "--dry-run", "read-only", "1/0"}) {
    EXPECT_NE(help.find(word), std::string::npos) << word << "\n" << help;
  }
  EXPECT_TRUE(std::filesystem::exists(KPZ_SAMPLE));
}

TEST_F(KpzTool, CommandHelpNamesTheBatchOptions) {
  for (const char* command : {"info", "preview", "thumbnail"}) {
    const Result r = Run({command, "--help"});
    EXPECT_EQ(r.exit, 0);
    for (const char* option : {"-r,--recursive", "--ext", "-j,--jobs", "-v,--verbose"}) {
      EXPECT_NE(Text(r.out).find(option), std::string::npos) << command << " " << option;
    }
  }
  const Result rotate = Run({"rotate", "--help"});
  for (const char* option : {"--cw", "--ccw", "--180", "--code", "--dry-run"}) {
    EXPECT_NE(Text(rotate.out).find(option), std::string::npos) << option;
  }
}

TEST_F(KpzTool, HelpTellsWhatIsDurableWithAndWithoutSync) {
  for (const char* command : {"--help"}) {
    const Result r = Run({command});
    EXPECT_EQ(r.exit, 0);
    std::string help;  // the footer's lines joined into one
    for (const char c : Text(r.out)) {
      if (c == '\n' || c == ' ') {
        if (!help.empty() && help.back() != ' ') help += ' ';
      } else {
        help += c;
      }
    }
    for (const char* words :
         {"--sync", "Durability: a file is written whole or not at all",
          "no reader ever sees part of an output", "By default kpz does not wait for the disk",
          "may be missing or empty",
          "With --sync each output file and its directory are flushed to the disk (fsync) before "
          "kpz reports it written",
          "Standard output (-o -) is never synced"}) {
      EXPECT_NE(help.find(words), std::string::npos) << command << ": " << words << "\n" << help;
    }
  }
}

TEST_F(KpzTool, SyncWritesTheSameBytesAsTheDefault) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(5000, 3);
  const std::string in = Write("s.kpz", recipe);
  const Result plain = Run({"preview", in, "-o", "plain.jpg"});
  const Result synced = Run({"preview", "--sync", in, "-o", "synced.jpg"});
  EXPECT_EQ(plain.exit, 0);
  EXPECT_EQ(synced.exit, 0) << synced.err;
  EXPECT_EQ(Text(synced.out), "wrote synced.jpg (5000 bytes)\n");
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/synced.jpg"), recipe.screennail);
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/plain.jpg"), recipe.screennail);
}

TEST_F(KpzTool, CommandHelpShowsTheOutputOption) {
  const Result r = Run({"preview", "--help"});
  EXPECT_EQ(r.exit, 0);
  EXPECT_NE(Text(r.out).find("-o,--output"), std::string::npos) << Text(r.out);
}

TEST_F(KpzTool, MissingCommandIsAUsageError) {
  const Result r = Run({});
  EXPECT_EQ(r.exit, 2);
  EXPECT_FALSE(r.err.empty());
}

TEST_F(KpzTool, EmptyOutputNameIsAUsageError) {
  KpzSpec recipe;
  const std::string in = Write("eo.kpz", recipe);
  const Result r = Run({"preview", in, "-o", ""});
  EXPECT_EQ(r.exit, 2);
  EXPECT_EQ(r.err, "kpz: -o needs a file name, or '-' for standard output\n");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"eo.kpz"}));
}

TEST_F(KpzTool, UnknownCommandsAndOptionsAreUsageErrors) {
  EXPECT_EQ(Run({"convert"}).exit, 2);
  EXPECT_EQ(Run({"preview", "--bogus"}).exit, 2);
  EXPECT_EQ(Run({"info", "-j", "0"}).exit, 2);
  EXPECT_EQ(Run({"thumbnail", "-j", "x"}).exit, 2);
  EXPECT_EQ(Run({"rotate"}).exit, 2);  // FILE is required
  EXPECT_TRUE(Listing(dir.Path()).empty());
}

TEST_F(KpzTool, UnknownSubcommandIsToldAsSuchWithTheSubcommands) {
  const Result r = Run({"bogus", "a.kpz"});
  EXPECT_EQ(r.exit, 2);
  EXPECT_EQ(r.err,
            "kpz: bogus is not a kpz subcommand; the subcommands are info, preview, thumbnail, "
            "rotate, serve\nkpz: run 'kpz --help' for the options\n");
  const Result none = Run({});
  EXPECT_EQ(none.err,
            "kpz: a subcommand is required: info, preview, thumbnail, rotate, serve\n"
            "kpz: run 'kpz --help' for the options\n");
}

TEST_F(KpzTool, JobsThatAreNoNumberAreToldSo) {
  const Result r = Run({"info", "-j", "abc"});
  EXPECT_EQ(r.exit, 2);
  EXPECT_EQ(r.err,
            "kpz: --jobs: 'abc' is not a number: -j takes a number of jobs from 1 to 1024\n"
            "kpz: run 'kpz info --help' for the options\n");
  const Result zero = Run({"thumbnail", "-j", "0"});
  EXPECT_EQ(zero.err,
            "kpz: --jobs: 0 is not from 1 to 1024 (the jobs -j takes)\n"
            "kpz: run 'kpz thumbnail --help' for the options\n");
  EXPECT_TRUE(Listing(dir.Path()).empty());
}

TEST_F(KpzTool, VerboseAndQuietAreTakenBeforeTheSubcommand) {
  KpzSpec recipe;
  const std::string in = Write("vq.kpz", recipe);
  const Result v = Run({"-v", "info", in});
  EXPECT_EQ(v.exit, 0) << v.err;
  const Result q = Run({"-q", "preview", in});
  EXPECT_EQ(q.exit, 0) << q.err;
  EXPECT_EQ(Text(q.out), "");  // quiet: no 'wrote' line
  EXPECT_EQ(q.err, "");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"vq.kpz", "vq.preview.jpg"}));
}

TEST_F(KpzTool, HelpAllHoldsEverySubcommandsOptionsAndNoBuildPath) {
  // The manual page is made of --help-all (cmake/KpzInstall.cmake).
  const Result all = Run({"--help-all"});
  EXPECT_EQ(all.exit, 0);
  const std::string text = Text(all.out);
  for (const char* option : {"--json", "--skip-existing", "--upright", "--edges", "--dry-run",
                             "--code", "--sync", "--ext", "--jobs", "--quiet"}) {
    EXPECT_NE(text.find(option), std::string::npos) << option;
  }
  // Where the installed files are; never this build's own source tree.
  EXPECT_NE(text.find("<prefix>/share/doc/kpz/"), std::string::npos);
  EXPECT_EQ(text.find("docs/KPZ-JSON.md"), std::string::npos);
  const std::string source = std::string(KPZ_SAMPLE).substr(0, std::string(KPZ_SAMPLE).rfind("/samples/"));
  for (const char* arg : {"--help", "--help-all"}) {
    EXPECT_EQ(Text(Run({arg}).out).find(source), std::string::npos) << arg;
  }
}

TEST_F(KpzTool, ReadmesSummaryExampleIsWhatTheToolPrints) {
  KpzSpec recipe;
  Write("a.kpz", recipe);
  Write("b.kpz", recipe);
  ASSERT_FALSE(dir.Write("notes.txt", Bytes{'s', 'h', 'o', 'p', '\n'}).empty());
  const Result r = Run({"preview", "a.kpz", "b.kpz", "notes.txt", "-o", "out"});
  EXPECT_EQ(r.exit, 1);
  // README.md shows these lines indented by two spaces in a code block.
  std::string shown;
  for (const std::string& line : kpztool::Lines(r.err)) {
    shown += "  " + line + "\n";
  }
  const std::string source =
      std::string(KPZ_SAMPLE).substr(0, std::string(KPZ_SAMPLE).rfind("/samples/"));
  const std::string readme = Text(kpztest::ReadFileBytes(source + "/README.md"));
  ASSERT_FALSE(readme.empty());
  EXPECT_NE(readme.find("kpz preview a.kpz b.kpz notes.txt -o out"), std::string::npos);
  EXPECT_NE(readme.find("  ```\n" + shown + "  ```\n"), std::string::npos) << shown;
}

TEST_F(KpzTool, EachPictureCommandsHelpShowsItsOwnExamples) {
  const Result thumb = Run({"thumbnail", "--help"});
  EXPECT_EQ(thumb.exit, 0);
  EXPECT_NE(Text(thumb.out).find("kpz thumbnail a.kpz -o out/"), std::string::npos);
  EXPECT_EQ(Text(thumb.out).find("kpz preview"), std::string::npos) << Text(thumb.out);
  const Result preview = Run({"preview", "--help"});
  EXPECT_NE(Text(preview.out).find("kpz preview a.kpz -o out/"), std::string::npos);
  EXPECT_EQ(Text(preview.out).find("kpz thumbnail"), std::string::npos) << Text(preview.out);
}

}  // namespace

#else

TEST(KpzTool, NeedsTheToolTheSampleAndItsGenerator) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
