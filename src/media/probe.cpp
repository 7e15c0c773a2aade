#include "media/probe.h"

#include <algorithm>
#include <utility>

#include "media/fingerprint.h"
#include "media/media_input.h"
#include "media/thumbnail.h"

namespace media {

namespace {

// The longest track, as the platform reports a file's length. Matroska and WebM
// seldom store per-track lengths, so a track without one counts as the whole file.
double durationSeconds(const AVFormatContext& input) {
    const double container =
        input.duration != AV_NOPTS_VALUE ? static_cast<double>(input.duration) / AV_TIME_BASE : 0;
    double longest = 0;
    bool anyTrack = false;
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream* stream = input.streams[i];
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) continue;
        anyTrack = true;
        const double seconds = stream->duration != AV_NOPTS_VALUE && stream->duration > 0
                                   ? stream->duration * av_q2d(stream->time_base)
                                   : container;
        longest = std::max(longest, seconds);
    }
    return anyTrack ? longest : container;
}

// Frames per second as a 32-bit float widened to double, which is how the platform
// reports a track's nominal rate; 0 when the stream gives none.
double nominalFrameRate(const AVStream& stream) {
    AVRational rate = stream.avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) rate = stream.r_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) return 0;
    return static_cast<float>(av_q2d(rate));
}

}  // namespace

common::Result<model::Clip> probeClip(const std::filesystem::path& url,
                                      std::optional<model::Bytes> bookmark, common::Uuid id,
                                      ThumbnailPolicy thumbnail) {
    auto opened = openInput(url);
    if (!opened) return opened.error();
    AVFormatContext& input = *opened.value();

    model::Clip clip;
    clip.id = id;
    clip.url = url;
    clip.bookmark = std::move(bookmark);
    clip.displayName = url.filename().string();

    const AVStream* video = firstStream(input, AVMEDIA_TYPE_VIDEO);
    clip.hasVideo = video != nullptr;
    clip.hasAudio = firstStream(input, AVMEDIA_TYPE_AUDIO) != nullptr;
    clip.fullDurationSeconds = durationSeconds(input);
    clip.outSeconds = clip.fullDurationSeconds;
    if (video) {
        clip.frameRate = nominalFrameRate(*video);
        clip.naturalSize = {static_cast<double>(video->codecpar->width),
                            static_cast<double>(video->codecpar->height)};
        clip.rotationDegrees = displayRotationDegrees(*video);
    }
    clip.fingerprint = fingerprint(input);
    if (clip.hasVideo && thumbnail == ThumbnailPolicy::make)
        clip.thumbnail = thumbnailAt(input, kThumbnailSeconds);
    return clip;
}

}  // namespace media
