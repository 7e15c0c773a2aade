#include "model/project.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "model/peak_count.h"

// Enrichment results are caches: the composition doesn't read them and the project file
// doesn't save them. So they are written in place, without history, token or didChange,
// and a history entry taken meanwhile keeps the clip without them.

namespace model {

namespace {

struct WaveformResult {
    Image image;
    Peaks peaks;
};

}  // namespace

void Project::enrichAssetsAsync(const common::Uuid& id) {
    const Clip* c = clip(id);
    if (!c) return;
    std::filesystem::path url = c->url;
    double seconds = c->fullDurationSeconds;

    // A relink keeps the id but not the file: pictures of the old file must not land on it.
    auto stillShows = [this, id, url] {
        const Clip* now = clip(id);
        return now && now->url == url;
    };

    // The two tasks run side by side, and neither waits for the other. Both give way to
    // the rest of the program: a window opening a project asks for every clip's pictures at
    // once, and its preview and its own thread come first.
    constexpr auto kGivingWay = common::Priority::utility;
    if (c->hasVideo) {
        auto makeFilmstrip = [media = context_.media, url, seconds] {
            return media->generateFilmstrip(url, seconds);
        };
        runMediaTask(
            makeFilmstrip,
            [this, id, stillShows](std::vector<Image> frames) {
                // A failed filmstrip leaves the clip as it stood: without pictures.
                if (frames.empty() || !stillShows()) return;
                updateClip(id, [&](Clip& w) { w.filmstrip = std::move(frames); });
            },
            kGivingWay);
    }
    if (c->hasAudio) {
        runMediaTask(
            [media = context_.media, url, seconds]() -> std::optional<WaveformResult> {
                auto peaks = media->extractPeaks(url, peakCountFor(seconds));
                if (!peaks) return std::nullopt;
                auto shared = std::make_shared<const std::vector<float>>(std::move(*peaks));
                // Drawn here too, so the owning thread only stores the result.
                return WaveformResult{media->drawWaveform(*shared), shared};
            },
            [this, id, stillShows](std::optional<WaveformResult> result) {
                if (!result || !stillShows()) return;
                // An image that could not be drawn stays absent; the peaks are kept all the same.
                updateClip(id, [&](Clip& w) {
                    w.waveform = std::move(result->image);
                    w.waveformPeaks = std::move(result->peaks);
                });
            },
            kGivingWay);
    }
}

}  // namespace model
