#include "model/clip.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

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

Clip span(double in, double out, double rate = 1.0, double start = 0) {
    Clip c;
    c.inSeconds = in;
    c.outSeconds = out;
    c.rateMultiplier = rate;
    c.startOnTimeline = start;
    return c;
}

// Derived values.

TEST(Clip, TimelineLengthIsSourceLengthOverRate) {
    Clip c = span(2, 8, 2.0, 10);
    EXPECT_DOUBLE_EQ(c.sourceLength(), 6);
    EXPECT_DOUBLE_EQ(c.timelineLength(), 3);
    EXPECT_DOUBLE_EQ(c.timelineEnd(), 13);
}

TEST(Clip, OutBeforeInHasZeroLength) {
    Clip c = span(5, 3, 1.0, 4);
    EXPECT_EQ(c.sourceLength(), 0);
    EXPECT_EQ(c.timelineLength(), 0);
    EXPECT_EQ(c.timelineEnd(), 4);
}

TEST(Clip, RateOfZeroOrBelowCountsAsNormalSpeed) {
    for (double rate : {0.0, -1.0, -0.5}) {
        Clip c = span(0, 6, rate);
        EXPECT_EQ(c.effectiveRate(), 1.0) << rate;
        EXPECT_DOUBLE_EQ(c.timelineLength(), 6) << rate;
    }
    EXPECT_DOUBLE_EQ(span(0, 6, 0.5).timelineLength(), 12);
}

TEST(Clip, RowsFollowStreamsAndMask) {
    struct Case {
        bool video, audio;
        StreamMask mask;
        bool onVideo, onAudio;
    };
    for (const Case& k : std::vector<Case>{
             {true, true, StreamMask::both, true, true},
             {true, true, StreamMask::videoOnly, true, false},
             {true, true, StreamMask::audioOnly, false, true},
             {false, true, StreamMask::both, false, true},
             {true, false, StreamMask::both, true, false},
             {false, true, StreamMask::videoOnly, false, false},
             {false, false, StreamMask::both, false, false},
         }) {
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
    EXPECT_EQ(c.mediaURL(), "/m/a.mov");
    c.isReversed = true;
    EXPECT_EQ(c.mediaURL(), "/m/a.mov");
    c.reversedURL = "/tmp/r.mov";
    EXPECT_EQ(c.mediaURL(), "/tmp/r.mov");
    c.isReversed = false;
    EXPECT_EQ(c.mediaURL(), "/m/a.mov");
}

// Equality and hashing.

TEST(Clip, ACopyIsEqualAndHashesAlike) {
    Clip a = fullClip();
    Clip b = a;
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::hash<Clip>{}(a), std::hash<Clip>{}(b));
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

TEST(Clip, PeaksCompareElementByElementNotByIdentity) {
    Clip a = fullClip();
    Clip b = a;
    b.waveformPeaks = makePeaks({0.1f, 0.5f, 0.9f});
    ASSERT_NE(a.waveformPeaks, b.waveformPeaks);
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::hash<Clip>{}(a), std::hash<Clip>{}(b));
}

TEST(Clip, AbsentPeaksEqualOnlyAbsentPeaks) {
    Clip a = fullClip();
    a.waveformPeaks.reset();
    Clip b = a;
    EXPECT_EQ(a, b);
    b.waveformPeaks = makePeaks({});
    EXPECT_NE(a, b);
    EXPECT_NE(b, a);
}

TEST(Clip, ImagesCompareByIdentityNotByPixels) {
    Clip a = fullClip();
    Clip b = a;
    b.thumbnail = makeImage();
    ASSERT_EQ(a.thumbnail->rgba, b.thumbnail->rgba);
    EXPECT_NE(a, b);

    Clip c = a;
    c.filmstrip = {makeImage(), makeImage()};
    EXPECT_NE(a, c);
}

TEST(Clip, SignedZeroesAreEqualAndHashAlike) {
    Clip a = span(0.0, 5);
    Clip b = span(-0.0, 5);
    ASSERT_EQ(a, b);
    EXPECT_EQ(std::hash<Clip>{}(a), std::hash<Clip>{}(b));
}

TEST(Clip, TwoProbesOfOneFileUnderDifferentIdsAreUnequal) {
    Clip a = fullClip();
    Clip b = a;
    b.id = common::Uuid::random();
    EXPECT_NE(a, b);
    std::unordered_set<Clip> set{a, b, a};
    EXPECT_EQ(set.size(), 2u);
}

TEST(Clip, CopiesShareImagesAndPeaksInsteadOfDuplicatingThem) {
    Clip a = fullClip();
    Clip b = a;
    EXPECT_EQ(a.thumbnail.get(), b.thumbnail.get());
    EXPECT_EQ(a.waveformPeaks.get(), b.waveformPeaks.get());
    EXPECT_EQ(a.filmstrip[0].get(), b.filmstrip[0].get());
}

// The placeholder for a lost file.

model::VantrellSnapshotClip fullRecord() {
    model::VantrellSnapshotClip r;
    r.id = common::Uuid::random();
    r.url = "/media/Lost Clip.mov";
    r.bookmark = model::Bytes{9, 8, 7};
    r.inSeconds = 1.5;
    r.outSeconds = 4.25;
    r.startOnTimeline = 7;
    r.streamMask = StreamMask::audioOnly;
    r.linkGroupID = common::Uuid::random();
    r.rateMultiplier = 0.5;
    r.isReversed = true;
    r.forwardInSeconds = 2;
    r.forwardOutSeconds = 6;
    return r;
}

TEST(Clip, PlaceholderKeepsTheRecordsFileAndEditDecisions) {
    const auto r = fullRecord();
    Clip c = Clip::missingPlaceholder(r);
    EXPECT_EQ(c.id, r.id);
    EXPECT_EQ(c.url, r.url);
    EXPECT_EQ(c.bookmark, r.bookmark);
    EXPECT_EQ(c.displayName, "Lost Clip.mov");
    EXPECT_EQ(c.inSeconds, 1.5);
    EXPECT_EQ(c.outSeconds, 4.25);
    EXPECT_EQ(c.startOnTimeline, 7);
    EXPECT_EQ(c.streamMask, StreamMask::audioOnly);
    EXPECT_EQ(c.linkGroupID, r.linkGroupID);
    EXPECT_EQ(c.rateMultiplier, 0.5);
    EXPECT_TRUE(c.isReversed);
    EXPECT_EQ(c.forwardInSeconds, 2);
    EXPECT_EQ(c.forwardOutSeconds, 6);
}

TEST(Clip, PlaceholderStandsInWithFixedMediaValues) {
    Clip c = Clip::missingPlaceholder(fullRecord());
    EXPECT_TRUE(c.isMissing);
    EXPECT_TRUE(c.hasVideo);
    EXPECT_TRUE(c.hasAudio);
    EXPECT_EQ(c.fullDurationSeconds, 4.25);
    EXPECT_EQ(c.frameRate, 30.0);
    EXPECT_EQ(c.naturalSize, (model::Size{0, 0}));
    EXPECT_EQ(c.fingerprint, "missing");
    EXPECT_FALSE(c.reversedURL);
    EXPECT_FALSE(c.thumbnail);
    EXPECT_TRUE(c.filmstrip.empty());
    EXPECT_FALSE(c.waveform);
    EXPECT_FALSE(c.waveformPeaks);
}

TEST(Clip, PlaceholderOfAZeroLengthRecordLastsOneHundredthOfASecond) {
    auto r = fullRecord();
    r.outSeconds = 0;
    EXPECT_EQ(Clip::missingPlaceholder(r).fullDurationSeconds, 0.01);
    r.outSeconds = 0.005;
    EXPECT_EQ(Clip::missingPlaceholder(r).fullDurationSeconds, 0.01);
}

TEST(Clip, PlaceholderFillsAbsentRecordFieldsWithDefaults) {
    model::VantrellSnapshotClip r;
    r.id = common::Uuid::random();
    r.url = "/media/a.wav";
    r.outSeconds = 3;
    Clip c = Clip::missingPlaceholder(r);
    EXPECT_EQ(c.streamMask, StreamMask::both);
    EXPECT_EQ(c.rateMultiplier, 1.0);
    EXPECT_FALSE(c.isReversed);
    EXPECT_FALSE(c.bookmark);
    EXPECT_FALSE(c.linkGroupID);
    EXPECT_FALSE(c.forwardInSeconds);
    // Whatever the lost file held, the placeholder stands on both rows.
    EXPECT_TRUE(c.isOnVideoRow());
    EXPECT_TRUE(c.isOnAudioRow());
}

}  // namespace
