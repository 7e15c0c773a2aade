#include <filesystem>
#include <iostream>
#include <vector>

#include "cli/commands.h"
#include "cli/session.h"
#include "media/project_document.h"

namespace cli {

namespace {
constexpr const char* kUsage =
    "usage: vantrell-cli new [--force] PROJECT.vantrell FILE...\n"
    "\n"
    "Imports the media files into a new project, end to end in the order given, and\n"
    "saves it. An existing project file is replaced only with --force. If any file can't\n"
    "be imported, nothing is written and the exit status is 1.\n";
}

int newCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    bool force = false;
    std::vector<std::filesystem::path> positional;
    for (const auto& a : args) {
        if (a == "--force" || a == "-f")
            force = true;
        else if (a.starts_with("-") && a.size() > 1)
            return fail("unknown option '" + a + "' for new");
        else
            positional.emplace_back(a);
    }
    if (positional.size() < 2) {
        std::cerr << kUsage;
        return 2;
    }
    auto projectFile = std::filesystem::absolute(positional.front());
    if (!force && std::filesystem::exists(projectFile))
        return fail(projectFile.string() + " already exists; use --force to replace it.");
    std::vector<std::filesystem::path> media;
    for (auto it = positional.begin() + 1; it != positional.end(); ++it)
        media.push_back(std::filesystem::absolute(*it));

    Session session;
    media::ProjectDocument document(session.context());
    document.project().importURLs(media);
    session.drain();

    auto imported = document.project().clips().size();
    if (imported != media.size())
        return fail(std::to_string(media.size() - imported) + " of " +
                    std::to_string(media.size()) +
                    " files could not be imported (see above); nothing was written.");
    if (auto saved = document.save(projectFile); !saved) return fail(saved.error().message);
    std::cout << "Saved " << projectFile.string() << " with " << imported
              << (imported == 1 ? " clip" : " clips") << ".\n";
    return 0;
}

}  // namespace cli
