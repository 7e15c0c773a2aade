#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/uuid.h"
#include "model/image.h"
#include "model/snapshot.h"
#include "model/stream_mask.h"

namespace model {

struct Size {
    double width = 0;
    double height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

// What the probe found that decides how an export can copy a clip's samples: FFmpeg's codec
// names ("h264", "aac", "pcm_s16le"; empty without such a stream) and its name of the sound's
// profile ("LC", "HE-AAC"; empty when none), where the video's
// keyframes show (source seconds on the file's clock, ascending), how many leading pictures
// an open group has at most (decoded after its keyframe, shown before it), and whether some
// packets come without timestamps, which copying cannot place.
struct CopyFacts {
    std::string videoCodec;
    std::string audioCodec;
    std::string audioProfile;
    std::vector<double> keyframeSeconds;
    int leadingPictures = 0;
    bool untimedPackets = false;
    friend bool operator==(const CopyFacts&, const CopyFacts&) = default;
};

// One stretch of one media file placed on the timeline. A plain value: copies share
// only immutable images and peaks, so a history entry is a plain copy of the clip array.
// Clips are made by the media probe (a live clip) or by missingPlaceholder (a lost file).
struct Clip {
    common::Uuid id;
    std::filesystem::path url;  // the forward source file, also for a reversed clip
    std::optional<Bytes> bookmark;
    std::string displayName;
    bool hasVideo = false;
    bool hasAudio = false;
    double fullDurationSeconds = 0;
    double frameRate = 0;  // nominal rate of the first video stream; 0 without video
    Size naturalSize;      // first video stream as stored, rotation not applied
    double inSeconds = 0;
    double outSeconds = 0;
    StreamMask streamMask = StreamMask::both;
    std::optional<common::Uuid> linkGroupID;
    double rateMultiplier = 1.0;
    bool isReversed = false;
    std::optional<std::filesystem::path> reversedURL;
    std::optional<double> forwardInSeconds;
    std::optional<double> forwardOutSeconds;
    bool isMissing = false;
    double startOnTimeline = 0;
    Image thumbnail;
    std::vector<Image> filmstrip;
    Image waveform;
    Peaks waveformPeaks;
    std::string fingerprint;
    // Display rotation of the first video stream: 0, 90, 180 or 270 degrees clockwise.
    int rotationDegrees = 0;
    CopyFacts copyFacts;

    double effectiveRate() const { return rateMultiplier > 0 ? rateMultiplier : 1.0; }
    double sourceLength() const { return outSeconds - inSeconds > 0 ? outSeconds - inSeconds : 0; }
    double timelineLength() const { return sourceLength() / effectiveRate(); }
    double timelineEnd() const { return startOnTimeline + timelineLength(); }
    bool isOnVideoRow() const { return hasVideo && streamMask != StreamMask::audioOnly; }
    bool isOnAudioRow() const { return hasAudio && streamMask != StreamMask::videoOnly; }

    // The file to read: the backward render once it exists, else the source.
    const std::filesystem::path& mediaURL() const {
        return isReversed && reversedURL ? *reversedURL : url;
    }

    // The clip that stands for a saved clip whose file is gone; touches no file.
    static Clip missingPlaceholder(const VantrellSnapshotClip& record);

    friend bool operator==(const Clip& a, const Clip& b);
};

std::size_t hashValue(const Clip& clip);

}  // namespace model

template <>
struct std::hash<model::Clip> {
    std::size_t operator()(const model::Clip& c) const noexcept { return model::hashValue(c); }
};
