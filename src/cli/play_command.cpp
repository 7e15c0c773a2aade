#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QTimer>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/session.h"
#include "composition/frame_grab.h"
#include "composition/picture_converter.h"
#include "composition/stream_lookup.h"
#include "export/export_settings.h"
#include "media/project_document.h"
#include "preview/player.h"

namespace cli {

namespace {

constexpr const char* kUsage =
    "usage: vantrell-cli play PROJECT.vantrell [--from S] [--for S] [--json]\n"
    "       vantrell-cli play PROJECT.vantrell --at T[,T...] --snapshots DIR\n"
    "\n"
    "Plays the project with the preview's player, in real time, headless, and reports\n"
    "what it cost: frames presented and dropped, the largest lateness, audio underruns,\n"
    "the greatest drift between sound and picture, and seek latencies. It plays from\n"
    "--from (0) for --for seconds (to the end). Sound goes to the default audio device\n"
    "when there is one; without one the player runs on the system clock.\n"
    "With --at it seeks, paused, to each time and writes the picture presented as\n"
    "DIR/T.png at the composition's render size (black where there is no picture).\n";

constexpr auto kSettleTimeout = std::chrono::seconds(30);

// The newest picture the player presented.
struct LastFrame {
    std::mutex mutex;
    preview::SharedFrame picture;
};

common::Status writeSnapshot(const preview::SharedFrame& picture, model::Size size,
                             const std::filesystem::path& file) {
    const composition::PictureFormat format{AV_PIX_FMT_RGBA, static_cast<int>(size.width),
                                            static_cast<int>(size.height)};
    composition::PictureConverter converter;
    auto rgba = picture ? converter.convert(*picture, format) : composition::blackPicture(format);
    if (!rgba) return rgba.error();
    return composition::writePng(composition::rgbaImage(*rgba.value()), file);
}

std::optional<std::vector<std::pair<std::string, double>>> parseTimes(const std::string& list) {
    std::vector<std::pair<std::string, double>> times;
    std::size_t from = 0;
    while (from <= list.size()) {
        const std::size_t comma = std::min(list.find(',', from), list.size());
        const std::string text = list.substr(from, comma - from);
        const auto seconds = parseSeconds(text);
        if (!seconds) return std::nullopt;
        times.emplace_back(text, *seconds);
        from = comma + 1;
    }
    return times;
}

nlohmann::json report(const preview::PlaybackStats& stats, double playedSeconds) {
    return {{"playedSeconds", playedSeconds},
            {"framesPresented", stats.framesPresented},
            {"framesDropped", stats.framesDropped},
            {"largestLatenessSeconds", stats.largestLatenessSeconds},
            {"audioUnderruns", stats.audioUnderruns},
            {"greatestDriftSeconds", stats.greatestDriftSeconds},
            {"seekLatenciesSeconds", stats.seekLatenciesSeconds}};
}

}  // namespace

int playCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    std::optional<std::filesystem::path> project, snapshots;
    std::optional<std::vector<std::pair<std::string, double>>> at;
    double from = 0;
    std::optional<double> span;
    bool json = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a == "--from" || a == "--for") {
            const std::string option = a;
            if (++i == args.size()) return fail(option + " needs a time in seconds");
            const auto value = parseSeconds(args[i]);
            if (!value) return fail("'" + args[i] + "' is not a time in seconds");
            if (option == "--from")
                from = *value;
            else
                span = *value;
        } else if (a == "--at") {
            if (++i == args.size()) return fail("--at needs times in seconds");
            at = parseTimes(args[i]);
            if (!at) return fail("'" + args[i] + "' is not a list of times in seconds");
        } else if (a == "--snapshots") {
            if (++i == args.size()) return fail("--snapshots needs a folder");
            snapshots = args[i];
        } else if (a == "--json") {
            json = true;
        } else if (a.starts_with("-") && a.size() > 1) {
            return fail("unknown option '" + a + "' for play");
        } else if (!project) {
            project = a;
        } else {
            return fail("play takes one project file");
        }
    }
    if (!project || at.has_value() != snapshots.has_value()) {
        std::cerr << kUsage;
        return 2;
    }

    Session session;
    auto opened = media::ProjectDocument::open(*project, session.context());
    if (!opened) return fail(opened.error().message);
    model::Project& p = (*opened)->project();
    session.drain();
    if (p.clips().empty()) return fail(project->string() + " has no clips to play.");

    int argc = 1;
    char name[] = "vantrell-cli";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    const std::vector<model::Clip> clips = p.clips();
    auto built = composition::buildComposition(clips);
    LastFrame last;
    preview::Player player([&built]() -> common::Result<composition::Composition> { return built; },
                           {preview::frameRateFor(clips), preview::AudioOutput::device});
    player.setFrameSink([&last](const preview::PresentedFrame& frame) {
        std::lock_guard lock(last.mutex);
        last.picture = frame.picture;
    });

    if (at) {
        std::error_code error;
        std::filesystem::create_directories(*snapshots, error);
        if (error)
            return fail("cannot make the folder " + snapshots->string() + ": " + error.message());
        const model::Size size = exporting::uprightLargestVideoSize(clips).value_or(model::Size{});
        if (!(size.width > 0 && size.height > 0))
            return fail(project->string() + " has no picture.");
        for (const auto& [text, seconds] : *at) {
            player.seek(seconds);
            if (!player.waitUntilSettled(kSettleTimeout))
                return fail("the frame at " + text + " s took too long to decode.");
            preview::SharedFrame picture;
            {
                std::lock_guard lock(last.mutex);
                picture = last.picture;
            }
            const auto file = std::filesystem::absolute(*snapshots / (text + ".png"));
            if (auto written = writeSnapshot(picture, size, file); !written)
                return fail(written.error().message);
            if (!json) std::cout << "Wrote " << file.string() << "\n";
        }
        if (json) std::cout << report(player.stats(), 0).dump() << "\n";
        return 0;
    }

    player.seek(from);
    if (!player.waitUntilSettled(kSettleTimeout) || !player.duration())
        return fail(project->string() + " could not be loaded for playing.");
    const double until = std::min(*player.duration(), from + span.value_or(*player.duration()));
    const auto started = std::chrono::steady_clock::now();
    player.setEndCallback([&app] { app.quit(); });
    QTimer stop;
    stop.setSingleShot(true);
    QObject::connect(&stop, &QTimer::timeout, &app, [&] {
        player.pause();
        app.quit();
    });
    stop.setTimerType(Qt::PreciseTimer);
    if (until > from) {
        if (span) stop.start(std::chrono::milliseconds(std::llround((until - from) * 1000)));
        player.play();
        app.exec();
    }
    const double played =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const preview::PlaybackStats stats = player.stats();
    if (json) {
        std::cout << report(stats, played).dump() << "\n";
        return 0;
    }
    double slowestSeek = 0;
    for (double s : stats.seekLatenciesSeconds) slowestSeek = std::max(slowestSeek, s);
    std::cout << "Played " << played << " s from " << from << " s\n"
              << "frames presented: " << stats.framesPresented << "\n"
              << "frames dropped: " << stats.framesDropped << "\n"
              << "largest lateness: " << stats.largestLatenessSeconds * 1000 << " ms\n"
              << "audio underruns: " << stats.audioUnderruns << "\n"
              << "greatest audio/video drift: " << stats.greatestDriftSeconds * 1000 << " ms\n"
              << "seeks: " << stats.seekLatenciesSeconds.size() << ", slowest "
              << slowestSeek * 1000 << " ms\n";
    return 0;
}

}  // namespace cli
