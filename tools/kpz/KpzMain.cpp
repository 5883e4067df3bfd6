// KpzMain.cpp - the kpz command-line tool: takes the preview (screennail) or
// the thumbnail JPEG out of a KPZ camera raw file.
//
// Part of tools/kpz, linked with the library's static layers (not the JNI
// entry). The commands and their rules are in kHelpFooter below, which is also
// what `kpz --help` prints.
//
//   kpz preview                 # the bundled sample -> ./sample.preview.jpg
//   kpz preview a.kpz -o -      # the preview of a.kpz on standard output
//   kpz thumbnail a.kpz         # -> a.thumb.jpg next to a.kpz
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "kpz/KpzOutputFile.h"
#include "kpz/KpzPictureReader.h"

#ifndef KPZ_SAMPLE_PATH
#define KPZ_SAMPLE_PATH "samples/sample.kpz"
#endif

namespace {

const int kExitOk = 0;
const int kExitInput = 1;   // the input cannot be read or holds no such picture
const int kExitUsage = 2;   // wrong arguments
const int kExitOutput = 3;  // the output cannot be written

const char* const kHelpFooter =
    "FILE is a KPZ raw file. Without FILE the bundled sample is used:\n"
    "  " KPZ_SAMPLE_PATH "\n"
    "\n"
    "Output (-o): '-' writes the JPEG to standard output. Without -o the name is\n"
    "made from FILE's name with its extension replaced: x.kpz -> x.preview.jpg\n"
    "(preview) or x.thumb.jpg (thumbnail); a name without extension gets the\n"
    "suffix appended. It lies in FILE's directory; for the bundled sample, in\n"
    "the current directory. An existing file of that name is replaced;\n"
    "the output is never FILE itself. A file is written whole or not at all (a\n"
    "temporary file in the same directory, renamed when complete). After writing\n"
    "a file, kpz prints 'wrote <name> (<n> bytes)' on standard output.\n"
    "\n"
    "Errors are one line on standard error, 'kpz: <file>: <what went wrong>'.\n"
    "The library's own diagnostic lines (standard error) are hidden unless\n"
    "--verbose is given.\n"
    "\n"
    "Exit status: 0 written; 1 FILE cannot be read, is not a KPZ raw file, holds\n"
    "no such picture or the picture is cut off; 2 wrong arguments; 3 the output\n"
    "cannot be written.";

struct Command {
  std::string file;
  std::string output;
  bool verbose = false;
  CLI::Option* outputOption = nullptr;  // borrowed from the CLI::App, which outlives us
};

void addCommand(CLI::App& app, const char* name, const char* what, const char* defaultName,
                Command* cmd) {
  CLI::App* sub = app.add_subcommand(name, what);
  sub->add_option("FILE", cmd->file, "KPZ raw file (default: the bundled sample)");
  cmd->outputOption = sub->add_option("-o,--output", cmd->output,
                  std::string("where to write the JPEG; '-' for standard output (default: ") +
                      defaultName + ")");
  sub->add_flag("-v,--verbose", cmd->verbose, "show the library's diagnostic lines");
  sub->footer(kHelpFooter);
}

int run(KpzPictureReader::Kind kind, const Command& cmd) {
  if (cmd.outputOption->count() > 0 && cmd.output.empty()) {
    std::fprintf(stderr, "kpz: -o needs a file name, or '-' for standard output\n");
    return kExitUsage;
  }
  const bool useSample = cmd.file.empty();
  const std::string input = useSample ? std::string(KPZ_SAMPLE_PATH) : cmd.file;
  const char* suffix = kind == KpzPictureReader::Kind::Preview ? ".preview.jpg" : ".thumb.jpg";
  const std::string output =
      cmd.output.empty() ? KpzOutputFile::DefaultPath(input, suffix, useSample) : cmd.output;

  if (output != "-" && KpzOutputFile::IsSameFile(input, output)) {
    std::fprintf(stderr, "kpz: %s: the output would replace the input file\n", output.c_str());
    return kExitUsage;
  }

  std::vector<UINT8> jpeg;
  std::string why;
  if (!KpzPictureReader(cmd.verbose).Read(input, kind, &jpeg, &why)) {
    std::fprintf(stderr, "kpz: %s: %s\n", input.c_str(), why.c_str());
    return kExitInput;
  }
  if (!KpzOutputFile::Write(output, jpeg, &why)) {
    std::fprintf(stderr, "kpz: %s: %s\n", output == "-" ? "(standard output)" : output.c_str(),
                 why.c_str());
    return kExitOutput;
  }
  if (output != "-") {
    std::printf("wrote %s (%zu bytes)\n", output.c_str(), jpeg.size());
  }
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("kpz - takes the preview or the thumbnail JPEG out of a KPZ camera raw file", "kpz");
  app.require_subcommand(1);
  app.footer(kHelpFooter);
  Command preview;
  Command thumbnail;
  addCommand(app, "preview", "write the preview (the large JPEG the camera stored in the file)",
             "FILE's name with .preview.jpg", &preview);
  addCommand(app, "thumbnail", "write the thumbnail (the small JPEG of the file's IFD1)",
             "FILE's name with .thumb.jpg", &thumbnail);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);  // prints the help, or the error on standard error
    return code == 0 ? kExitOk : kExitUsage;
  }
  if (app.got_subcommand("preview")) {
    return run(KpzPictureReader::Kind::Preview, preview);
  }
  return run(KpzPictureReader::Kind::Thumbnail, thumbnail);
}
