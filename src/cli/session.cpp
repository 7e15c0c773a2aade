#include "cli/session.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "media/local_media_services.h"
#include "media/probe.h"

namespace cli {

namespace {

// The media layer of real files without pictures: the probe makes no thumbnail and
// enrichment finds nothing at once.
class MediaWithoutPictures final : public model::MediaServices {
  public:
    common::Result<model::Clip> probe(const std::filesystem::path& url,
                                      const std::optional<model::Bytes>& bookmark,
                                      const common::Uuid& id) override {
        return media::probeClip(url, bookmark, id, media::ThumbnailPolicy::skip);
    }
    std::optional<model::Bytes> makeBookmark(const std::filesystem::path& url) override {
        return local_.makeBookmark(url);
    }
    std::optional<std::filesystem::path> resolveBookmark(
        const model::Bytes& bookmark,
        const std::optional<std::filesystem::path>& projectFolder) override {
        return local_.resolveBookmark(bookmark, projectFolder);
    }
    std::optional<std::filesystem::path> renderReversed(const std::filesystem::path& url,
                                                        double fromSeconds,
                                                        double toSeconds) override {
        return local_.renderReversed(url, fromSeconds, toSeconds);
    }
    std::vector<model::Image> generateFilmstrip(const std::filesystem::path&, double) override {
        return {};
    }
    std::optional<std::vector<float>> extractPeaks(const std::filesystem::path&, int) override {
        return std::nullopt;
    }
    model::Image drawWaveform(const std::vector<float>&) override { return nullptr; }

  private:
    media::LocalMediaServices local_;
};

}  // namespace

Session::Session(Pictures pictures) {
    if (pictures == Pictures::make)
        media_ = std::make_shared<media::LocalMediaServices>();
    else
        media_ = std::make_shared<MediaWithoutPictures>();
}

}  // namespace cli
