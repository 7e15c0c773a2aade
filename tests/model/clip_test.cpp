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

// A clip with every field set to something other than its default.
Clip fullClip() {
    Clip c;
    c.id = common::Uuid::random();
    c.url = "/media/a.mov";
    c.bookmark = model::Bytes{1, 2, 3};
    c.displayName = "a.mov";
    c.hasVideo = true;
    c.hasAudio = true;
    c.fullDurationSeconds = 12;
    c.frameRate = 25;
    c.naturalSize = {1920, 1080};
    c.inSeconds = 1;
    c.outSeconds = 5;
    c.streamMask = StreamMask::videoOnly;
    c.linkGroupID = common::Uuid::random();
    c.rateMultiplier = 2;
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-x.mov";
    c.forwardInSeconds = 1;
    c.forwardOutSeconds = 5;
    c.startOnTimeline = 3;
    c.thumbnail = makeImage();
    c.filmstrip = {makeImage(), makeImage()};
    c.waveform = makeImage();
    c.waveformPeaks = makePeaks({0.1f, 0.5f, 0.9f});
    c.fingerprint = "v:1635148593:1920x1080";
    c.rotationDegrees = 90;
    return c;
}

TEST(Clip, TimelineLengthIsSourceLengthOverRateWithNoRateBelowNormalSpeedOrLengthBelowZero) {
    struct Case {
        double in, out, rate, start;
        double source, timeline, end;
    };
    const std::vector<Case> cases = {
        {2, 8, 2, 10, 6, 3, 13}, {5, 3, 1, 4, 0, 0, 4},    {0, 6, 0, 0, 6, 6, 6},
        {0, 6, -1, 0, 6, 6, 6},  {0, 6, -0.5, 1, 6, 6, 7}, {0, 6, 0.5, 0, 6, 12, 12},
    };
    for (const Case& k : cases) {
        Clip c;
        c.inSeconds = k.in;
        c.outSeconds = k.out;
        c.rateMultiplier = k.rate;
        c.startOnTimeline = k.start;
        EXPECT_DOUBLE_EQ(c.sourceLength(), k.source) << k.in << ".." << k.out << " x" << k.rate;
        EXPECT_DOUBLE_EQ(c.timelineLength(), k.timeline) << k.in << ".." << k.out << " x" << k.rate;
        EXPECT_DOUBLE_EQ(c.timelineEnd(), k.end) << k.in << ".." << k.out << " x" << k.rate;
    }
}

TEST(Clip, RowsFollowStreamsAndMask) {
    struct Case {
        bool video, audio;
        StreamMask mask;
        bool onVideo, onAudio;
    };
    const StreamMask both = StreamMask::both, video = StreamMask::videoOnly,
                     audio = StreamMask::audioOnly;
    for (const Case& k : std::vector<Case>{{true, true, both, true, true},
                                           {true, true, video, true, false},
                                           {true, true, audio, false, true},
                                           {false, true, both, false, true},
                                           {true, false, both, true, false},
                                           {false, true, video, false, false},
                                           {false, false, both, false, false}}) {
        Clip c;
        c.hasVideo = k.video;
        c.hasAudio = k.audio;
        c.streamMask = k.mask;
        EXPECT_EQ(c.isOnVideoRow(), k.onVideo) << k.video << k.audio << toString(k.mask);
        EXPECT_EQ(c.isOnAudioRow(), k.onAudio) << k.video << k.audio << toString(k.mask);
    }
}

TEST(Clip, MediaURLIsTheBackwardRenderOnlyOnceAReversedClipHasOne) {
    Clip c;
    c.url = "/m/a.mov";
    c.isReversed = true;
    EXPECT_EQ(c.mediaURL(), "/m/a.mov");
    c.reversedURL = "/tmp/r.mov";
    EXPECT_EQ(c.mediaURL(), "/tmp/r.mov");
    c.isReversed = false;
    EXPECT_EQ(c.mediaURL(), "/m/a.mov");
}

// Equality and hashing.

TEST(Clip, EqualValuesHashAlikeButAbsentPeaksDifferFromNone) {
    Clip a = fullClip();
    a.inSeconds = 0.0;
    Clip b = a;
    b.inSeconds = -0.0;
    b.waveformPeaks = makePeaks({0.1f, 0.5f, 0.9f});  // peaks compare by value, not identity
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::hash<Clip>{}(a), std::hash<Clip>{}(b));

    a.waveformPeaks.reset();
    b.waveformPeaks = makePeaks({});
    EXPECT_NE(a, b);
    EXPECT_NE(b, a);
}

TEST(Clip, EveryFieldTakesPartInEquality) {
    const Clip base = fullClip();
    const std::vector<std::pair<const char*, std::function<void(Clip&)>>> changes = {
        {"id", [](Clip& c) { c.id = common::Uuid::random(); }},
        {"url", [](Clip& c) { c.url = "/media/b.mov"; }},
        {"bookmark",
         [](Clip& c) {
             c.bookmark = model::Bytes{1, 2, 4};
         }},
        {"bookmark absent", [](Clip& c) { c.bookmark.reset(); }},
        {"displayName", [](Clip& c) { c.displayName = "b.mov"; }},
        {"hasVideo", [](Clip& c) { c.hasVideo = false; }},
        {"hasAudio", [](Clip& c) { c.hasAudio = false; }},
        {"fullDurationSeconds", [](Clip& c) { c.fullDurationSeconds = 13; }},
        {"frameRate", [](Clip& c) { c.frameRate = 30; }},
        {"naturalSize", [](Clip& c) { c.naturalSize.height = 1088; }},
        {"inSeconds", [](Clip& c) { c.inSeconds = 1.5; }},
        {"outSeconds", [](Clip& c) { c.outSeconds = 5.5; }},
        {"streamMask", [](Clip& c) { c.streamMask = StreamMask::both; }},
        {"linkGroupID", [](Clip& c) { c.linkGroupID = common::Uuid::random(); }},
        {"linkGroupID absent", [](Clip& c) { c.linkGroupID.reset(); }},
        {"rateMultiplier", [](Clip& c) { c.rateMultiplier = 2.5; }},
        {"isReversed", [](Clip& c) { c.isReversed = false; }},
        {"reversedURL", [](Clip& c) { c.reversedURL = "/tmp/other.mov"; }},
        {"reversedURL absent", [](Clip& c) { c.reversedURL.reset(); }},
        {"forwardInSeconds", [](Clip& c) { c.forwardInSeconds = 2; }},
        {"forwardOutSeconds absent", [](Clip& c) { c.forwardOutSeconds.reset(); }},
        {"isMissing", [](Clip& c) { c.isMissing = true; }},
        {"startOnTimeline", [](Clip& c) { c.startOnTimeline = 4; }},
        // Images compare by identity: a new image with the same pixels differs.
        {"thumbnail", [](Clip& c) { c.thumbnail = makeImage(); }},
        {"thumbnail absent", [](Clip& c) { c.thumbnail.reset(); }},
        {"filmstrip frame", [](Clip& c) { c.filmstrip[1] = makeImage(); }},
        {"filmstrip length", [](Clip& c) { c.filmstrip.pop_back(); }},
        {"waveform", [](Clip& c) { c.waveform = makeImage(); }},
        {"waveformPeaks value",
         [](Clip& c) {
             c.waveformPeaks = makePeaks({0.1f, 0.5f, 0.8f});
         }},
        {"waveformPeaks length",
         [](Clip& c) {
             c.waveformPeaks = makePeaks({0.1f, 0.5f});
         }},
        {"waveformPeaks absent", [](Clip& c) { c.waveformPeaks.reset(); }},
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

// The placeholder for a lost file.

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
    EXPECT_TRUE(c.isMissing);
    EXPECT_TRUE(c.hasVideo && c.hasAudio);
    EXPECT_EQ(c.fullDurationSeconds, 4.25);
    EXPECT_EQ(c.frameRate, 30.0);
    EXPECT_EQ(c.naturalSize, (model::Size{0, 0}));
    EXPECT_EQ(c.fingerprint, "missing");
    EXPECT_FALSE(c.reversedURL || c.thumbnail || c.waveform || c.waveformPeaks);
    EXPECT_TRUE(c.filmstrip.empty());

    for (double out : {0.0, 0.005}) {
        r.outSeconds = out;
        EXPECT_EQ(Clip::missingPlaceholder(r).fullDurationSeconds, 0.01) << out;
    }

    model::VantrellSnapshotClip bare{common::Uuid::random(), "/media/a.wav", {}, 0, 3, 0};
    c = Clip::missingPlaceholder(bare);
    EXPECT_EQ(c.streamMask, StreamMask::both);
    EXPECT_EQ(c.rateMultiplier, 1.0);
    EXPECT_EQ(model::snapshotRecord(c), bare) << "absent fields take their defaults";
    EXPECT_TRUE(c.isOnVideoRow() && c.isOnAudioRow()) << "whatever the lost file held";
}

}  // namespace
