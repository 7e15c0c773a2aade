#include "model/clip.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "model/project.h"

namespace {

using model::Clip;
using model::StreamMask;

model::Image makeImage() {
    return std::make_shared<const model::ImageData>(model::ImageData{1, 1, {1, 2, 3, 4}});
}

model::Peaks makePeaks(std::vector<float> values) {
    return std::make_shared<const std::vector<float>>(std::move(values));
}

TEST(Clip, TimelineLengthIsSourceLengthOverRateWithNoRateBelowNormalSpeedOrLengthBelowZero) {
    struct Case {
        double in, out, rate, start;
        double timeline, end;
    };
    for (const Case& k : std::vector<Case>{
             {2, 8, 2, 10, 3, 13}, {5, 3, 1, 4, 0, 4}, {0, 6, 0, 0, 6, 6}, {0, 6, -0.5, 1, 6, 7}}) {
        Clip c;
        c.inSeconds = k.in;
        c.outSeconds = k.out;
        c.rateMultiplier = k.rate;
        c.startOnTimeline = k.start;
        EXPECT_DOUBLE_EQ(c.timelineLength(), k.timeline) << k.in << ".." << k.out << " x" << k.rate;
        EXPECT_DOUBLE_EQ(c.timelineEnd(), k.end) << k.in << ".." << k.out << " x" << k.rate;
    }
}

TEST(Clip, RowsFollowStreamsAndMaskAndAReversedClipPlaysItsRenderOnceItHasOne) {
    struct Case {
        bool video, audio;
        StreamMask mask;
        bool onVideo, onAudio;
    };
    for (const Case& k : std::vector<Case>{{true, true, StreamMask::videoOnly, true, false},
                                           {true, true, StreamMask::audioOnly, false, true},
                                           {false, true, StreamMask::both, false, true},
                                           {false, true, StreamMask::videoOnly, false, false}}) {
        Clip c;
        c.hasVideo = k.video;
        c.hasAudio = k.audio;
        c.streamMask = k.mask;
        EXPECT_EQ(c.isOnVideoRow(), k.onVideo) << k.video << k.audio << toString(k.mask);
        EXPECT_EQ(c.isOnAudioRow(), k.onAudio) << k.video << k.audio << toString(k.mask);
    }
    Clip c;
    c.url = "/m/a.mov";
    c.isReversed = true;
    EXPECT_EQ(c.mediaURL(), "/m/a.mov");
    c.reversedURL = "/tmp/r.mov";
    EXPECT_EQ(c.mediaURL(), "/tmp/r.mov");
}

TEST(Clip, EveryFieldTakesPartInEqualityAndHashButPeaksCompareByValue) {
    Clip base;
    base.id = common::Uuid::random();
    base.url = "/media/a.mov";
    base.bookmark = model::Bytes{1, 2, 3};
    base.linkGroupID = common::Uuid::random();
    base.reversedURL = "/tmp/vantrell-reversed-x.mov";
    base.forwardInSeconds = 1;
    base.filmstrip = {makeImage(), makeImage()};
    base.waveformPeaks = makePeaks({0.1f, 0.5f, 0.9f});
    Clip same = base;
    same.waveformPeaks = makePeaks({0.1f, 0.5f, 0.9f});
    EXPECT_EQ(base, same);
    EXPECT_EQ(std::hash<Clip>{}(base), std::hash<Clip>{}(same));

    const std::vector<std::pair<const char*, std::function<void(Clip&)>>> changes = {
        {"id", [](Clip& c) { c.id = common::Uuid::random(); }},
        {"url", [](Clip& c) { c.url = "/media/b.mov"; }},
        {"bookmark",
         [](Clip& c) {
             c.bookmark = model::Bytes{1, 2, 4};
         }},
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
        {"thumbnail", [](Clip& c) { c.thumbnail = makeImage(); }},
        {"filmstrip frame", [](Clip& c) { c.filmstrip[1] = makeImage(); }},
        {"waveform", [](Clip& c) { c.waveform = makeImage(); }},
        {"waveformPeaks value",
         [](Clip& c) {
             c.waveformPeaks = makePeaks({0.1f, 0.5f, 0.8f});
         }},
        {"waveformPeaks empty", [](Clip& c) { c.waveformPeaks = makePeaks({}); }},
        {"fingerprint", [](Clip& c) { c.fingerprint = "missing"; }},
        {"rotationDegrees", [](Clip& c) { c.rotationDegrees = 180; }},
    };
    for (const auto& [name, change] : changes) {
        Clip other = base;
        change(other);
        EXPECT_NE(base, other) << name;
        EXPECT_NE(std::hash<Clip>{}(base), std::hash<Clip>{}(other)) << name;
    }
}

TEST(Clip, APlaceholderKeepsTheRecordsFileAndEditDecisionsWithFixedMediaValues) {
    model::VantrellSnapshotClip r{
        common::Uuid::random(), "/media/Lost Clip.mov", model::Bytes{9, 8, 7}, 1.5, 4.25, 7};
    r.streamMask = StreamMask::audioOnly;
    r.linkGroupID = common::Uuid::random();
    r.rateMultiplier = 0.5;
    r.isReversed = true;
    r.forwardInSeconds = 2;
    r.forwardOutSeconds = 6;
    Clip c = Clip::missingPlaceholder(r);
    EXPECT_EQ(model::snapshotRecord(c), r);
    EXPECT_EQ(c.displayName, "Lost Clip.mov");
    EXPECT_TRUE(c.isMissing && c.hasVideo && c.hasAudio);
    EXPECT_EQ(c.fullDurationSeconds, 4.25);
    EXPECT_EQ(c.frameRate, 30.0);
    EXPECT_EQ(c.naturalSize, (model::Size{0, 0}));
    EXPECT_EQ(c.fingerprint, "missing");
    r.outSeconds = 0.005;
    EXPECT_EQ(Clip::missingPlaceholder(r).fullDurationSeconds, 0.01);

    model::VantrellSnapshotClip bare{common::Uuid::random(), "/media/a.wav", {}, 0, 3, 0};
    EXPECT_EQ(model::snapshotRecord(Clip::missingPlaceholder(bare)), bare)
        << "absent fields take their defaults";
}

}  // namespace
