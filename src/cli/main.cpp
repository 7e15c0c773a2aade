#include <csignal>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>

#include "cli/commands.h"
#include "common/version.h"

namespace {

constexpr const char* kUsage =
    "usage: vantrell-cli COMMAND [ARGS...]\n"
    "\n"
    "Trims and joins media from a shell; projects are the window's project files.\n"
    "\n"
    "options:\n"
    "  --version                          print the version and stop\n"
    "  --help                             print this help and stop\n"
    "\n"
    "commands:\n"
    "  probe FILE...                      what the media files hold, as JSON\n"
    "  new PROJECT.vantrell FILE...       import the files into a new project\n"
    "  info PROJECT.vantrell [--json]     what a project holds\n"
    "  edit PROJECT.vantrell OP...        apply editing operations and save\n"
    "  export PROJECT.vantrell -o OUT     export to mp4, mov, m4a or wav\n"
    "  frame PROJECT.vantrell --at S -o F the picture at a time, as PNG\n"
    "  peaks FILE [--count N]             the audio levels of a media file, as JSON\n"
    "  filmstrip FILE -o DIR              the timeline's frames of a media file, as PNGs\n"
    "  waveform FILE -o OUT.png           the timeline's picture of a file's audio\n"
    "  play PROJECT.vantrell [--json]     play with the preview's player and report its cost\n"
    "\n"
    "Run 'vantrell-cli COMMAND --help' for a command's options.\n";

struct Command {
    std::string_view name;
    int (*run)(const cli::Arguments&);
};

constexpr Command kCommands[] = {
    {"probe", cli::probeCommand},       {"new", cli::newCommand},
    {"info", cli::infoCommand},         {"edit", cli::editCommand},
    {"export", cli::exportCommand},     {"frame", cli::frameCommand},
    {"peaks", cli::peaksCommand},       {"filmstrip", cli::filmstripCommand},
    {"waveform", cli::waveformCommand}, {"play", cli::playCommand},
};

}  // namespace

int main(int argc, char** argv) {
    // Past a file-size limit a write then fails with EFBIG, which every writer reports and
    // cleans up after, instead of the signal killing the program with a file half written.
    std::signal(SIGXFSZ, SIG_IGN);
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0 ||
        std::strcmp(argv[1], "help") == 0) {
        std::cout << kUsage;
        return argc < 2 ? 2 : 0;
    }
    if (std::strcmp(argv[1], "--version") == 0) {
        std::cout << "vantrell-cli " << common::kVersion << "\n";
        return 0;
    }
    cli::Arguments args(argv + 2, argv + argc);
    for (const auto& command : kCommands)
        if (command.name == argv[1]) return command.run(args);
    std::cerr << "vantrell-cli: unknown command '" << argv[1] << "'\n" << kUsage;
    return 2;
}
