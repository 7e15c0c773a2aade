#include "model/clip.h"

#include <functional>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "model/project.h"

namespace {

using model::Clip;
using model::StreamMask;

TEST(Clip, LengthPlaceRowsAndMediaFollowRateMaskAndRender) {
    // in, out, rate, start -> timeline length: no rate below normal, no length below zero.
    for (auto [in, out, rate, start, length] :
         {std::tuple{2., 8., 2., 10., 3.}, {5., 3., 1., 4., 0.}, {0., 6., -0.5, 1., 6.}}) {
        Clip c;
        std::tie(c.inSeconds, c.outSeconds, c.rateMultiplier, c.startOnTimeline) =
            std::tuple(in, out, rate, start);
        EXPECT_DOUBLE_EQ(c.timelineLength(), length) << in << ".." << out << " x" << rate;
        EXPECT_DOUBLE_EQ(c.timelineEnd(), start + length);
    }
    for (auto [video, audio, mask, rows] : {std::tuple{true, true, StreamMask::videoOnly, 1},
                                            {true, true, StreamMask::audioOnly, 2},
                                            {false, true, StreamMask::both, 2},
                                            {false, true, StreamMask::videoOnly, 0}}) {
        Clip c;
        std::tie(c.hasVideo, c.hasAudio, c.streamMask) = std::tuple(video, audio, mask);
        EXPECT_EQ(c.isOnVideoRow() + 2 * c.isOnAudioRow(), rows) << video << audio;
    }
    Clip c;
    c.url = "/m/a.mov";
    c.isReversed = true;
    EXPECT_EQ(c.mediaURL(), "/m/a.mov") << "reversed, but not rendered yet";
    c.reversedURL = "/tmp/r.mov";
    EXPECT_EQ(c.mediaURL(), "/tmp/r.mov");
}

TEST(Clip, EveryFieldTakesPartInEqualityAndHashButPeaksCompareByValue) {
    auto image = [] {
        return std::make_shared<const model::ImageData>(model::ImageData{1, 1, {1}});
    };
    auto peaks = [](std::vector<float> v) {
        return std::make_shared<const std::vector<float>>(std::move(v));
    };
    Clip base;
    base.id = common::Uuid::random();
    base.bookmark = model::Bytes{1, 2, 3};
    base.linkGroupID = common::Uuid::random();
    base.filmstrip = {image(), image()};
    base.waveformPeaks = peaks({0.1f, 0.5f, 0.9f});
    Clip same = base;
    same.waveformPeaks = peaks({0.1f, 0.5f, 0.9f});
    EXPECT_EQ(base, same);
    EXPECT_EQ(std::hash<Clip>{}(base), std::hash<Clip>{}(same));

    using Change = std::function<void(Clip&)>;
    const std::vector<std::pair<const char*, Change>> changes = {
        {"id", [](Clip& c) { c.id = common::Uuid::random(); }},
        {"url", [](Clip& c) { c.url = "/media/b.mov"; }},
        {"bookmark", [](Clip& c) { c.bookmark->back() = 4; }},
        {"displayName", [](Clip& c) { c.displayName = "b.mov"; }},
        {"hasVideo", [](Clip& c) { c.hasVideo = !c.hasVideo; }},
        {"hasAudio", [](Clip& c) { c.hasAudio = !c.hasAudio; }},
        {"fullDurationSeconds", [](Clip& c) { c.fullDurationSeconds = 13; }},
        {"frameRate", [](Clip& c) { c.frameRate = 30; }},
        {"naturalSize", [](Clip& c) { c.naturalSize.height = 1088; }},
        {"inSeconds", [](Clip& c) { c.inSeconds = 1.5; }},
        {"outSeconds", [](Clip& c) { c.outSeconds = 5.5; }},
        {"streamMask", [](Clip& c) { c.streamMask = StreamMask::videoOnly; }},
        {"linkGroupID", [](Clip& c) { c.linkGroupID.reset(); }},
        {"rateMultiplier", [](Clip& c) { c.rateMultiplier = 2.5; }},
        {"isReversed", [](Clip& c) { c.isReversed = !c.isReversed; }},
        {"reversedURL", [](Clip& c) { c.reversedURL = "/tmp/other.mov"; }},
        {"forwardInSeconds", [](Clip& c) { c.forwardInSeconds = 2; }},
        {"forwardOutSeconds", [](Clip& c) { c.forwardOutSeconds = 2; }},
        {"isMissing", [](Clip& c) { c.isMissing = !c.isMissing; }},
        {"startOnTimeline", [](Clip& c) { c.startOnTimeline = 4; }},
        // Images compare by identity: a new image with the same pixels differs.
        {"thumbnail", [&](Clip& c) { c.thumbnail = image(); }},
        {"filmstrip frame", [&](Clip& c) { c.filmstrip[1] = image(); }},
        {"waveform", [&](Clip& c) { c.waveform = image(); }},
        {"waveformPeaks value",
         [&](Clip& c) {
             c.waveformPeaks = peaks({0.1f, 0.5f, 0.8f});
         }},
        {"waveformPeaks empty", [&](Clip& c) { c.waveformPeaks = peaks({}); }},
        {"fingerprint", [](Clip& c) { c.fingerprint = "missing"; }},
        {"rotationDegrees", [](Clip& c) { c.rotationDegrees = 180; }},
        {"copyFacts", [](Clip& c) { c.copyFacts.keyframeSeconds.push_back(2); }},
    };
    for (const auto& [name, change] : changes) {
        Clip other = base;
        change(other);
        EXPECT_NE(base, other) << name;
        EXPECT_NE(std::hash<Clip>{}(base), std::hash<Clip>{}(other)) << name;
    }
}

TEST(Clip, APlaceholderKeepsTheRecordsFileAndEditDecisionsWithFixedMediaValues) {
    model::VantrellSnapshotClip r{common::Uuid::random(), "/media/Lost Clip.mov", {}, 1.5, 4.25, 7};
    r.streamMask = StreamMask::audioOnly;
    r.linkGroupID = common::Uuid::random();
    r.rateMultiplier = 0.5;
    r.isReversed = true;
    r.forwardOutSeconds = 6;
    Clip c = Clip::missingPlaceholder(r);
    EXPECT_EQ(model::snapshotRecord(c), r);
    EXPECT_EQ(std::tuple(c.displayName, c.isMissing, c.hasVideo, c.hasAudio, c.fullDurationSeconds,
                         c.frameRate, c.naturalSize, c.fingerprint),
              std::tuple("Lost Clip.mov", true, true, true, 4.25, 30.0, model::Size{}, "missing"));
    r.outSeconds = 0.005;
    EXPECT_EQ(Clip::missingPlaceholder(r).fullDurationSeconds, 0.01);
}

}  // namespace
