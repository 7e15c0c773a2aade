#include "media/local_media_services.h"

#include "media/bookmark.h"
#include "media/filmstrip.h"
#include "media/probe.h"
#include "media/reverse_render.h"
#include "media/waveform.h"

namespace media {

namespace {

// Enough for the clips of a few large projects; the images are shared with the clips
// that show them, so while a project is open its entries cost little beyond it.
constexpr std::size_t kMaxFiles = 1024;
constexpr std::size_t kMaxProbeBytes = 64u << 20;
constexpr std::size_t kMaxFilmstripBytes = 96u << 20;
constexpr std::size_t kMaxPeaksBytes = 64u << 20;
// Waveform pictures are 1600 × 60 whatever the file: a few hundred kilobytes each.
constexpr std::size_t kMaxPicturesKept = 16;

std::size_t imageBytes(const model::Image& image) {
    return image ? sizeof(model::ImageData) + image->rgba.size() : 0;
}

std::size_t probeBytes(const common::Result<model::Clip>& probed) {
    const model::Clip& clip = probed.value();
    return sizeof(clip) + imageBytes(clip.thumbnail) +
           clip.copyFacts.keyframeSeconds.size() * sizeof(double) + clip.fingerprint.size() +
           clip.displayName.size() + clip.url.native().size();
}

std::size_t filmstripBytes(const std::vector<model::Image>& frames) {
    std::size_t bytes = sizeof(frames);
    for (const auto& frame : frames) bytes += imageBytes(frame);
    return bytes;
}

std::size_t peaksBytes(const std::optional<std::vector<float>>& peaks) {
    return sizeof(peaks) + (peaks ? peaks->size() * sizeof(float) : 0);
}

// `read()` through `cache`, keyed by what `url` is now. What a file that changed during the
// read yielded is not kept, since it may mix the old contents with the new.
template <typename Value, typename Read, typename Keep>
Value readRemembered(FileResultCache<Value>& cache, const std::filesystem::path& url,
                     double parameter, Read read, Keep keep) {
    auto file = fileIdentity(url);
    // Nothing there to key on; the read fails with its own message.
    if (!file) return read();
    return cache.get({*file, parameter}, read,
                     [&](const Value& value) { return keep(value) && fileIdentity(url) == file; });
}

}  // namespace

LocalMediaServices::LocalMediaServices()
    : probes_(kMaxFiles, kMaxProbeBytes, probeBytes),
      filmstrips_(kMaxFiles, kMaxFilmstripBytes, filmstripBytes),
      peaks_(kMaxFiles, kMaxPeaksBytes, peaksBytes) {}

common::Result<model::Clip> LocalMediaServices::probe(const std::filesystem::path& url,
                                                      const std::optional<model::Bytes>& bookmark,
                                                      const common::Uuid& id) {
    // A failure is not kept: the file may be complete by the next look.
    auto probed = readRemembered(
        probes_, url, 0, [&] { return probeClip(url, bookmark, id); },
        [](const common::Result<model::Clip>& r) { return r.ok(); });
    if (probed) {
        probed.value().id = id;
        probed.value().bookmark = bookmark;
    }
    return probed;
}

std::optional<model::Bytes> LocalMediaServices::makeBookmark(const std::filesystem::path& url) {
    return media::makeBookmark(url);
}

std::optional<std::filesystem::path> LocalMediaServices::resolveBookmark(
    const model::Bytes& bookmark, const std::optional<std::filesystem::path>& projectFolder) {
    return media::resolveBookmark(bookmark, projectFolder);
}

std::optional<std::filesystem::path> LocalMediaServices::renderReversed(
    const std::filesystem::path& url, double fromSeconds, double toSeconds) {
    return renderReversedMedia(url, fromSeconds, toSeconds);
}

std::vector<model::Image> LocalMediaServices::generateFilmstrip(const std::filesystem::path& url,
                                                                double fullDurationSeconds) {
    return readRemembered(
        filmstrips_, url, fullDurationSeconds,
        [&] { return media::generateFilmstrip(url, fullDurationSeconds); },
        [](const std::vector<model::Image>& frames) { return !frames.empty(); });
}

std::optional<std::vector<float>> LocalMediaServices::extractPeaks(const std::filesystem::path& url,
                                                                   int targetPeakCount) {
    return readRemembered(
        peaks_, url, targetPeakCount, [&] { return waveform::extractPeaks(url, targetPeakCount); },
        [](const std::optional<std::vector<float>>& peaks) { return peaks.has_value(); });
}

model::Image LocalMediaServices::drawWaveform(const std::vector<float>& peaks) {
    // Drawn under the lock: clips of one file ask for the same picture at once, and a
    // drawing takes a few milliseconds, less than the peaks it follows.
    std::lock_guard lock(drawnMutex_);
    for (auto it = drawn_.begin(); it != drawn_.end(); ++it) {
        if (it->peaks != peaks) continue;
        drawn_.splice(drawn_.begin(), drawn_, it);
        return it->image;
    }
    auto image = waveform::drawWaveform(peaks);
    drawn_.push_front({peaks, image});
    if (drawn_.size() > kMaxPicturesKept) drawn_.pop_back();
    return image;
}

}  // namespace media
