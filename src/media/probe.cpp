#include "media/probe.h"

#include <utility>

#include "media/copy_facts.h"
#include "media/fingerprint.h"
#include "media/media_check.h"
#include "media/media_input.h"
#include "media/thumbnail.h"

namespace media {

common::Result<model::Clip> probeClip(const std::filesystem::path& url,
                                      std::optional<model::Bytes> bookmark, common::Uuid id,
                                      ThumbnailPolicy thumbnail) {
    auto opened = openInput(url);
    if (!opened) return opened.error();
    AVFormatContext& input = *opened.value();
    if (auto recognised = checkFormatRecognised(input); !recognised) return recognised.error();

    model::Clip clip;
    clip.id = id;
    clip.url = url;
    clip.bookmark = std::move(bookmark);
    clip.displayName = url.filename().string();

    const AVStream* video = firstStream(input, AVMEDIA_TYPE_VIDEO);
    clip.hasVideo = video != nullptr;
    clip.hasAudio = firstStream(input, AVMEDIA_TYPE_AUDIO) != nullptr;
    clip.fullDurationSeconds = measuredDurationSeconds(input);
    clip.outSeconds = clip.fullDurationSeconds;
    if (video) {
        clip.frameRate = reportedFrameRate(measuredFrameRate(input, *video));
        clip.naturalSize = {displayWidth(*video), static_cast<double>(video->codecpar->height)};
        clip.rotationDegrees = displayRotationDegrees(*video);
    }
    clip.fingerprint = fingerprint(input);
    if (auto claims = checkMediaClaims(clip); !claims) return claims.error();
    if (clip.hasVideo && thumbnail == ThumbnailPolicy::make)
        clip.thumbnail = thumbnailAt(input, kThumbnailSeconds, FramePrecision::keyframe);
    // A poster proves that the video decodes; without one the file must show it holds media.
    if (!clip.thumbnail)
        if (auto decodes = decodesFirstFrame(input); !decodes) return decodes.error();
    clip.copyFacts = copyFacts(input);
    return clip;
}

}  // namespace media
