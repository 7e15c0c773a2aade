#include "preview/source_player.h"

#include "media/media_input.h"

namespace preview {

common::Result<composition::Composition> sourceComposition(const std::filesystem::path& file) {
    auto input = media::openInput(file);
    if (!input) return input.error();
    const AVStream* stream = media::firstStream(*input.value(), AVMEDIA_TYPE_VIDEO);
    if (!stream) return common::Error{file.string() + " has no picture."};
    const double seconds = media::fileDurationSeconds(*input.value()) + 1.0;
    const common::MediaTime length = common::MediaTime::fromSeconds(seconds);
    composition::SegmentSource source{file,
                                      stream->index,
                                      {common::MediaTime{}, length},
                                      1.0,
                                      media::displayRotationDegrees(*stream),
                                      {}};
    composition::Composition shown;
    shown.video = composition::Track{composition::MediaKind::video,
                                     {{common::MediaTime{}, length, std::move(source)}}};
    return shown;
}

}  // namespace preview
