#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <utility>

#include "cli/commands.h"
#include "cli/session.h"
#include "export/confirm_export.h"
#include "export/export_planning.h"
#include "media/project_document.h"

namespace cli {

namespace {

constexpr const char* kUsage =
    "usage: vantrell-cli export PROJECT.vantrell -o OUT [--format mp4|mov|m4a|wav]\n"
    "                           [--reencode]\n"
    "\n"
    "Exports the project to one file: a lossless, frame-exact copy of the encoded samples\n"
    "when the clips allow it, else re-encoded at the highest quality. The format is the\n"
    "extension of OUT unless --format says otherwise, and the project's first available\n"
    "format when OUT has none of the four. OUT is replaced only by a complete file.\n"
    "Shows a progress bar on a terminal and plain message lines otherwise; the last line\n"
    "is the outcome. The exit status is 0 only on success. --reencode re-encodes even\n"
    "when the samples could be copied.\n";

std::string clock(double seconds) {
    auto s = static_cast<long>(std::lround(std::max(seconds, 0.0)));
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%ld:%02ld", s / 60, s % 60);
    return buffer;
}

// Draws the export's progress as the project reports it.
class ProgressView {
  public:
    explicit ProgressView(bool terminal) : terminal_(terminal) {}

    void show(double fraction, const std::string& message) {
        if (!terminal_) {
            if (message != lastMessage_) std::cout << message << "\n" << std::flush;
            lastMessage_ = message;
            return;
        }
        constexpr int kWidth = 30;
        int filled = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * kWidth);
        std::string bar(static_cast<std::size_t>(filled), '#');
        bar.resize(kWidth, '-');
        auto elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_);
        std::string eta;
        if (fraction > 0.02 && fraction < 1)
            eta = "  " + clock(elapsed.count() / fraction * (1 - fraction)) + " left";
        char line[160];
        std::snprintf(line, sizeof line, "\r[%s] %3d%%  %-16s%-14s", bar.c_str(),
                      static_cast<int>(fraction * 100), message.c_str(), eta.c_str());
        std::cout << line << std::flush;
        drawn_ = true;
    }

    void finish(const std::string& message) {
        if (terminal_ && drawn_) std::cout << "\n";
        std::cout << message << "\n";
    }

  private:
    bool terminal_;
    bool drawn_ = false;
    std::string lastMessage_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

std::optional<model::ExportFormat> formatOfExtension(const std::filesystem::path& file) {
    auto ext = file.extension().string();
    if (ext.empty()) return std::nullopt;
    for (auto& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return model::parseExportFormat(ext.substr(1));
}

}  // namespace

int exportCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    std::optional<std::filesystem::path> project, out;
    std::optional<model::ExportFormat> format;
    bool reencode = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a == "-o" || a == "--output") {
            if (++i == args.size()) return fail("-o needs a file name");
            out = args[i];
        } else if (a == "--format") {
            if (++i == args.size()) return fail("--format needs one of mp4, mov, m4a, wav");
            format = model::parseExportFormat(args[i]);
            if (!format) return fail("unknown format '" + args[i] + "'; use mp4, mov, m4a or wav");
        } else if (a == "--reencode") {
            reencode = true;
        } else if (a.starts_with("-") && a.size() > 1) {
            return fail("unknown option '" + a + "' for export");
        } else if (!project) {
            project = a;
        } else {
            return fail("export takes one project file");
        }
    }
    if (!project || !out) {
        std::cerr << kUsage;
        return 2;
    }
    auto destination = std::filesystem::absolute(*out);
    std::error_code ec;
    if (std::filesystem::is_directory(destination, ec))
        return fail(destination.string() + " is a folder; give a file name after -o.");
    if (!std::filesystem::is_directory(destination.parent_path(), ec))
        return fail("the folder " + destination.parent_path().string() + " doesn't exist.");

    Session session;
    auto opened = media::ProjectDocument::open(*project, session.context());
    if (!opened) return fail(opened.error().message);
    auto& p = (*opened)->project();
    session.drain();  // hydration, and the renders of reversed clips

    if (!format) format = formatOfExtension(destination);
    if (!format) format = exporting::availableFormats(p).front();

    ProgressView view(::isatty(STDOUT_FILENO) != 0);
    auto observer = p.addObserver([&](model::ProjectField f) {
        // The outcome is printed once at the end, not as a progress line.
        bool progressField =
            f == model::ProjectField::exportMessage || f == model::ProjectField::exportProgress;
        const auto& message = p.exportMessage();
        bool outcome = message == "Exported" || message.starts_with("Failed");
        if (progressField && p.isExporting() && !outcome) view.show(p.exportProgress(), message);
    });
    bool succeeded = false;
    std::string outcome;
    exporting::ExportOutcome hooks;
    hooks.exported = [&](const std::filesystem::path& file) {
        succeeded = true;
        outcome = "Exported " + file.string();
    };
    hooks.failed = [&](const std::string& message) { outcome = message; };
    model::ExportSheetResult result{destination.stem().string(), *format};
    auto roads = exporting::standardRoads();
    if (reencode) roads.passthrough = roads.reencode;
    exporting::confirmExport(p, result, destination, session.executor(), std::move(roads), hooks);
    session.drain();
    p.removeObserver(observer);
    view.finish(outcome);
    return succeeded ? 0 : 1;
}

}  // namespace cli
