#include "media/local_media_services.h"

#include "media/bookmark.h"
#include "media/filmstrip.h"
#include "media/probe.h"
#include "media/reverse_render.h"
#include "media/waveform.h"

namespace media {

common::Result<model::Clip> LocalMediaServices::probe(const std::filesystem::path& url,
                                                      const std::optional<model::Bytes>& bookmark,
                                                      const common::Uuid& id) {
    return probeClip(url, bookmark, id);
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
    return media::generateFilmstrip(url, fullDurationSeconds);
}

std::optional<std::vector<float>> LocalMediaServices::extractPeaks(const std::filesystem::path& url,
                                                                   int targetPeakCount) {
    return waveform::extractPeaks(url, targetPeakCount);
}

model::Image LocalMediaServices::drawWaveform(const std::vector<float>& peaks) {
    return waveform::drawWaveform(peaks);
}

}  // namespace media
