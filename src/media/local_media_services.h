#pragma once

#include <list>
#include <mutex>
#include <vector>

#include "media/file_result_cache.h"
#include "model/media_services.h"

namespace media {

// The media services a project uses on real files: the FFmpeg probe, file bookmarks,
// backward renders, filmstrips, peaks and the waveform image. Probes, filmstrips and peaks
// are remembered by file identity, so a file cut into many clips is read once, and a file
// changed since is read again; the last few waveform pictures are kept by their peaks, so
// those clips share one picture too. Any thread may call any member at once.
class LocalMediaServices final : public model::MediaServices {
  public:
    LocalMediaServices();

    common::Result<model::Clip> probe(const std::filesystem::path& url,
                                      const std::optional<model::Bytes>& bookmark,
                                      const common::Uuid& id) override;
    std::optional<model::Bytes> makeBookmark(const std::filesystem::path& url) override;
    std::optional<std::filesystem::path> resolveBookmark(
        const model::Bytes& bookmark,
        const std::optional<std::filesystem::path>& projectFolder) override;
    std::optional<std::filesystem::path> renderReversed(const std::filesystem::path& url,
                                                        double fromSeconds,
                                                        double toSeconds) override;
    std::vector<model::Image> generateFilmstrip(const std::filesystem::path& url,
                                                double fullDurationSeconds) override;
    std::optional<std::vector<float>> extractPeaks(const std::filesystem::path& url,
                                                   int targetPeakCount) override;
    model::Image drawWaveform(const std::vector<float>& peaks) override;

  private:
    struct Drawn {
        std::vector<float> peaks;
        model::Image image;
    };

    FileResultCache<common::Result<model::Clip>> probes_;
    FileResultCache<std::vector<model::Image>> filmstrips_;
    FileResultCache<std::optional<std::vector<float>>> peaks_;
    std::mutex drawnMutex_;   // guards drawn_
    std::list<Drawn> drawn_;  // the last few pictures drawn, newest first
};

}  // namespace media
