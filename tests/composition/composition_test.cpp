#include "composition/composition.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "composition/audio_lanes.h"
#include "composition/crop_frame.h"
#include "composition/video_slicing.h"
#include "model/clip.h"

namespace {

using composition::assignAudioLanes;
using composition::buildComposition;
using composition::MediaKind;
using composition::OutputFrame;
using composition::outputFrame;
using composition::placeFrame;
using composition::Placement;
using composition::Segment;
using composition::Slice;
using composition::sliceVideoTopWins;
using composition::VideoSettings;

// The video and audio stream of each file the fake lookup knows; others are gone.
const std::map<std::string, std::pair<std::optional<int>, std::optional<int>>> kFiles = {
    {"a.mov", {0, 1}},
    {"b.mov", {1, 0}},
    {"tone.wav", {std::nullopt, 0}},
    {"silent.mp4", {0, std::nullopt}},
};

std::optional<int> fakeLookup(const std::filesystem::path& file, MediaKind kind) {
    const auto found = kFiles.find(file.filename().string());
    if (found == kFiles.end()) return std::nullopt;
    return kind == MediaKind::video ? found->second.first : found->second.second;
}

// A 1080p clip, with picture unless it is the tone, filled in only where building reads it.
model::Clip clip(const std::string& file, double start, double in, double out, double rate = 1) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = std::filesystem::path("/media") / file;
    c.hasVideo = file != "tone.wav";
    c.hasAudio = true;
    c.naturalSize = c.hasVideo ? model::Size{1920, 1080} : model::Size{};
    c.inSeconds = in;
    c.outSeconds = out;
    c.startOnTimeline = start;
    c.rateMultiplier = rate;
    return c;
}

// Segments in ticks: "file@start+length:sourceStart+sourceLength", or "-@start+length" if empty.
std::string pieces(const std::vector<Segment>& segments) {
    std::string text;
    for (const Segment& s : segments) {
        text += (text.empty() ? "" : " ") + (s.source ? s.source->url.filename().string() : "-") +
                "@" + std::to_string(s.start.ticks) + "+" + std::to_string(s.duration.ticks);
        if (s.source)
            text += ":" + std::to_string(s.source->assetRange.start.ticks) + "+" +
                    std::to_string(s.source->assetRange.duration.ticks);
    }
    return text;
}

// A slow clip of unrounded start and scaled length in ticks, and a clip where it ends.
std::vector<model::Clip> afterASlowClip(double startTicks, double lengthTicks) {
    const auto slow = clip("a.mov", startTicks / 600, 0, 1, 600.0 / lengthTicks);
    return {slow, clip("b.mov", slow.timelineEnd(), 0, 1)};
}

struct Assembly {
    std::vector<model::Clip> clips;
    std::string video;  // "none" without a video track
    std::string audio;  // tracks separated by " | "
};

// Clips whose sound takes one lane, cut as their picture is.
Assembly alike(std::vector<model::Clip> clips, const std::string& pieces) {
    return {std::move(clips), pieces, pieces};
}

TEST(Composition, EachLaneIsATrackFromTimeZeroWithEmptyRangesBetweenItsClips) {
    const auto unscaled = clip("a.mov", 0, 0.0009, 1.0008);
    for (const auto& [clips, video, audio] : std::vector<Assembly>{
             {{}, "none", ""},
             {{clip("tone.wav", 0, 0, 2), clip("tone.wav", 1, 0, 2)},
              "none",
              "tone.wav@0+1200:0+1200 | -@0+600 tone.wav@600+1200:0+1200"},
             alike({clip("a.mov", 0, 0, 10, 2), clip("b.mov", 5, 0, 1)},
                   "a.mov@0+3000:0+6000 b.mov@3000+600:0+600"),
             {{clip("a.mov", 0, 0, 10), clip("b.mov", 5, 0, 10), clip("a.mov", 12, 0, 1)},
              "a.mov@0+3000:0+3000 b.mov@3000+4200:0+4200 a.mov@7200+600:0+600 "
              "b.mov@7800+1200:4800+1200",
              "a.mov@0+6000:0+6000 -@6000+1200 a.mov@7200+600:0+600 | "
              "-@0+3000 b.mov@3000+6000:0+6000"},
             // A vanished file or a missing kind of stream costs only its own slice.
             alike({clip("a.mov", 0, 0, 2), clip("gone.mov", 2, 0, 1), clip("b.mov", 3, 0, 1)},
                   "a.mov@0+1200:0+1200 -@1200+600 b.mov@1800+600:0+600"),
             alike({clip("gone.mov", 0, 0, 2), clip("b.mov", 3, 0, 1)},
                   "-@0+1800 b.mov@1800+600:0+600"),
             {{clip("silent.mp4", 0, 0, 1), clip("a.mov", 1, 0, 1)},
              "silent.mp4@0+600:0+600 a.mov@600+600:0+600",
              "-@0+600 a.mov@600+600:0+600"},
             // Length 857.4 rounds down, the next start 857.8 up: the run ends at 858.
             alike(afterASlowClip(0.4, 857.4), "a.mov@0+858:0+600 b.mov@858+600:0+600"),
             // Start and scaled length round up (0.6, 857.6), their sum down (858.2).
             alike(afterASlowClip(0.6, 857.6), "-@0+1 a.mov@1+857:0+600 b.mov@858+600:0+600"),
             // In 0.54 and out 600.48 round to a 599-tick range; the next start 599.94 to 600.
             alike({unscaled, clip("b.mov", unscaled.timelineEnd(), 0, 1)},
                   "a.mov@0+600:1+600 b.mov@600+600:0+600"),
         }) {
        const auto composition = buildComposition(clips, fakeLookup);
        EXPECT_EQ(composition.video ? pieces(composition.video->segments) : "none", video);
        std::string tracks;
        std::int64_t longest = composition.video ? composition.video->duration().ticks : 0;
        for (const auto& track : composition.audio) {
            EXPECT_EQ(track.kind, MediaKind::audio);
            tracks += (tracks.empty() ? "" : " | ") + pieces(track.segments);
            longest = std::max(longest, track.duration().ticks);
        }
        EXPECT_EQ(tracks, audio);
        EXPECT_EQ(composition.duration().ticks, longest);
    }
}

TEST(Composition, SegmentsCarryTheClipsStreamRotationRateAndLength) {
    auto turned = clip("a.mov", 0, 1, 3, 0.5);
    turned.rotationDegrees = 90;
    const auto composition = buildComposition(
        {turned, clip("b.mov", 4, 0, 1), clip("a.mov", 5, 0, 1, 1.00005)}, fakeLookup);
    ASSERT_TRUE(composition.video);
    const auto& video = composition.video->segments;
    ASSERT_EQ(video.size(), 3u);
    EXPECT_EQ(std::tuple(video[0].source->streamIndex, video[0].source->rotationDegrees,
                         video[0].source->rate, video[0].source->clipID, video[0].duration.ticks),
              std::tuple(0, 90, 0.5, turned.id, 2400));
    EXPECT_EQ(video[1].source->streamIndex, 1);
    EXPECT_EQ(video[2].source->rate, 1.0);
    const auto& sound = composition.audio.at(0).segments;
    ASSERT_EQ(sound.size(), 3u);
    EXPECT_EQ(std::tuple(sound[0].source->streamIndex, sound[0].source->rotationDegrees),
              std::tuple(1, 0));
    EXPECT_EQ(sound[1].source->streamIndex, 0);
}

// Slices in seconds: "file@start:sourceStart-sourceEnd", "x<rate>" unless 1; lanes by " | ".
std::string spans(const std::vector<Slice>& slices) {
    std::ostringstream text;
    for (const Slice& s : slices) {
        text << (&s == slices.data() ? "" : " ") << s.url.filename().string() << "@"
             << s.timelineStart.seconds() << ":" << s.assetRange.start.seconds() << "-"
             << s.assetRange.end().seconds();
        if (s.rate != 1) text << "x" << s.rate;
    }
    return text.str();
}

std::string spans(const std::vector<std::vector<Slice>>& lanes) {
    std::string text;
    for (const auto& lane : lanes) text += (text.empty() ? "" : " | ") + spans(lane);
    return text;
}

struct Case {
    std::vector<model::Clip> clips;  // in creation order
    std::string expected;
};

TEST(VideoSlicing, ShowsTheTopmostClipAtEveryInstant) {
    for (const auto& [clips, expected] : std::vector<Case>{
             {{clip("a", 0, 0, 10), clip("b", 4, 100, 102)}, "a@0:0-4 b@4:100-102 a@6:6-10"},
             {{clip("a", 0, 0, 20, 2), clip("b", 4, 100, 102)},
              "a@0:0-8x2 b@4:100-102 a@6:12-20x2"},
             {{clip("a", 0, 0, 10, 0), clip("b", 20, 0, 10, -2), clip("c", 4, 0, 2),
               clip("d", 24, 0, 2)},
              "a@0:0-4 c@4:0-2 a@6:6-10 b@20:0-4 d@24:0-2 b@26:6-10"},
             {{clip("inner", 4, 0, 2), clip("outer", 0, 0, 10)}, "outer@0:0-10"},
             {{clip("a", 0, 0, 10), clip("b", 8, 0, 4)}, "a@0:0-8 b@8:0-4"},
             {{clip("a", 0, 0, 10), clip("b", 4, 0, 2), clip("c", 4, 30, 32)},
              "a@0:0-4 c@4:30-32 a@6:6-10"},
             {{clip("a", 0, 0, 3), clip("b", 3, 0, 3), clip("c", 6, 0, 3), clip("d", 2, 40, 46)},
              "a@0:0-2 d@2:40-46 c@8:2-3"},
             {{clip("late", 20, 0, 1), clip("early", 0, 0, 1), clip("mid", 10, 0, 1)},
              "early@0:0-1 mid@10:0-1 late@20:0-1"},
             {{clip("a", 0, 0, 4), clip("a", 4, 4, 8)}, "a@0:0-4 a@4:4-8"},
         }) {
        EXPECT_EQ(spans(sliceVideoTopWins(clips)), expected);
    }
}

TEST(AudioLanes, EachClipSoundsWholeOnTheFirstLaneWithRoom) {
    for (const auto& [clips, expected] : std::vector<Case>{
             {{clip("a", 0, 0, 10), clip("b", 5, 0, 10), clip("c", 20, 0, 5)},
              "a@0:0-10 c@20:0-5 | b@5:0-10"},
             {{clip("a", 0, 0, 10), clip("b", 2, 0, 4), clip("c", 3, 0, 1)},
              "a@0:0-10 | b@2:0-4 | c@3:0-1"},
             // Touching, whichever was placed first.
             {{clip("b", 5, 0, 5), clip("a", 0, 0, 5)}, "b@5:0-5 a@0:0-5"},
             {{clip("a", 0, 0, 4), clip("b", 2, 0, 8), clip("d", 12, 0, 2), clip("c", 5, 0, 3)},
              "a@0:0-4 d@12:0-2 c@5:0-3 | b@2:0-8"},
             // Touching shares a lane; the retimed clip keeps its whole source range.
             {{clip("fast", 0, 0, 10, 2), clip("touching", 5, 0, 1), clip("over", 4.9, 0, 1)},
              "fast@0:0-10x2 touching@5:0-1 | over@4.9:0-1"},
             {{clip("a", 0, 0, 10, 0), clip("b", 10, 0, 4, -1), clip("c", 14, 0, 1)},
              "a@0:0-10 b@10:0-4 c@14:0-1"},
             // Two clips of length 0 at one instant do not overlap each other.
             {{clip("a", 0, 0, 10), clip("zero", 5, 3, 3), clip("other", 5, 7, 7)},
              "a@0:0-10 | zero@5:3-3 other@5:7-7"},
             {{clip("a", 0, 0, 10), clip("back", 5, 4, 3), clip("after", 5, 0, 1)},
              "a@0:0-10 | back@5:4-4 after@5:0-1"},
             {{clip("under", 2, 0, 2), clip("top", 0, 0, 10)}, "under@2:0-2 | top@0:0-10"},
         }) {
        EXPECT_EQ(spans(assignAudioLanes(clips)), expected);
    }
}

TEST(Slicing, ClipsWithoutAPictureOrSoundOnTheTimelineTakeNoPartAndCutNothing) {
    auto soundFile = clip("sound", 1, 0, 2);
    soundFile.hasVideo = false;
    auto silentFile = clip("silent", 1, 0, 2);
    silentFile.hasAudio = false;
    auto audioOnly = clip("sound", 3, 0, 2);
    audioOnly.streamMask = model::StreamMask::audioOnly;
    auto videoOnly = clip("picture", 3, 0, 2);
    videoOnly.streamMask = model::StreamMask::videoOnly;
    auto missing = clip("gone", 5, 0, 2);
    missing.isMissing = true;
    const auto zeroLength = clip("zero", 7, 1, 1);
    const auto backwards = clip("backwards", 7, 4, 3);

    EXPECT_TRUE(sliceVideoTopWins({soundFile, audioOnly, missing, zeroLength, backwards}).empty());
    EXPECT_TRUE(assignAudioLanes({silentFile, videoOnly, missing}).empty());
    EXPECT_EQ(
        spans(sliceVideoTopWins({clip("a", 0, 0, 10), soundFile, audioOnly, missing, zeroLength})),
        "a@0:0-10");
    EXPECT_EQ(spans(sliceVideoTopWins({audioOnly, videoOnly})), "picture@3:0-2");
    EXPECT_EQ(spans(assignAudioLanes({audioOnly, videoOnly})), "sound@3:0-2");
}

TEST(Slicing, ReversedClipReadsItsRenderOnceTheRenderExists) {
    auto pending = clip("a", 1, 2, 6);
    pending.isReversed = true;
    pending.forwardInSeconds = 2;
    pending.forwardOutSeconds = 6;
    EXPECT_EQ(spans(sliceVideoTopWins({pending})), "a@1:2-6");
    EXPECT_EQ(spans(assignAudioLanes({pending})), "a@1:2-6");

    auto rendered = pending;
    rendered.reversedURL = "/tmp/reversed-a";
    rendered.startOnTimeline = rendered.inSeconds = 0;
    rendered.outSeconds = 4;
    EXPECT_EQ(spans(sliceVideoTopWins({rendered})), "reversed-a@0:0-4");
    EXPECT_EQ(spans(assignAudioLanes({rendered})), "reversed-a@0:0-4");
}

TEST(VideoSlicing, EveryPieceCarriesItsClipsIdRateSizeAndRotation) {
    auto phone = clip("phone", 1, 0, 6, 1.5);
    phone.naturalSize = {1280, 720};
    phone.rotationDegrees = 90;
    const auto top = clip("top", 2, 0, 1);
    const auto slices = sliceVideoTopWins({phone, top});
    ASSERT_EQ(slices.size(), 3u);
    for (const Slice& piece : {slices[0], slices[2]})
        EXPECT_EQ(
            std::tuple(piece.clipID, piece.rate, piece.rotationDegrees, piece.sourceNaturalSize),
            std::tuple(phone.id, 1.5, 90, model::Size{1280, 720}));
    EXPECT_EQ(slices[1].clipID, top.id);
}

// Each slice in ticks: "timelineStart:sourceStart-sourceEnd".
std::string ticks(const std::vector<Slice>& slices) {
    std::string text;
    for (const Slice& s : slices)
        text += (text.empty() ? "" : " ") + std::to_string(s.timelineStart.ticks) + ":" +
                std::to_string(s.assetRange.start.ticks) + "-" +
                std::to_string(s.assetRange.end().ticks);
    return text;
}

TEST(Slicing, TimesAreRoundedToTheNearestTickOnlyAtTheEnd) {
    // In 0.48 ticks rounds to 0; 37.5 to 637.98 ticks is 38 to 638, and the source as long.
    const auto a = clip("a", 0.0625, 0.0008, 1.0016);
    EXPECT_EQ(ticks(sliceVideoTopWins({a})), "38:0-600");
    EXPECT_EQ(ticks(assignAudioLanes({a}).at(0)), "38:0-600");
    // Shorter than a tick, still a slice.
    EXPECT_EQ(ticks(sliceVideoTopWins({clip("blink", 1.0001, 2, 2.0002)})), "600:1200-1200");

    // b starts 0.54 ticks in: rounded first, a's cut would be at 3 ticks, not 1.62.
    EXPECT_EQ(ticks(sliceVideoTopWins({clip("a", 0, 0, 30, 3), clip("b", 0.0009, 0, 1)})),
              "0:0-2 1:0-600 601:1802-18000");
    // 31.5 ticks; recomputed from 0.0175 s at rate 3 it would land a hair below, at 31.
    const auto fast = clip("a", 0, 0, 0.0525, 3);
    EXPECT_EQ(ticks(sliceVideoTopWins({fast, clip("b", fast.timelineEnd(), 0, 1)})),
              "0:0-32 10:0-601");
}

TEST(Slicing, OverlapShorterThanATickStillCutsOrNeedsAnotherLane) {
    // Both round to tick 600 yet overlap: a is cut at 1800.18 source ticks, not 1800.54.
    EXPECT_EQ(ticks(sliceVideoTopWins({clip("a", 0, 0, 3.0009, 3), clip("b", 1.0001, 5, 6)})),
              "0:0-1800 600:3000-3600");
    EXPECT_EQ(spans(assignAudioLanes(
                  {clip("a", 0, 0, 1.0003), clip("b", 1.0001, 0, 1), clip("c", 1.0003, 0, 1)})),
              "a@0:0-1 c@1:0-1 | b@1:0-1");
}

VideoSettings settings(double width, double height, double top, double leading, double trailing,
                       double bottom) {
    return {{}, top, leading, trailing, bottom, {width, height}};
}

TEST(CropFrame, InsetsGiveTheOutputFrameRoundingHalvesUpAndNeverForcingItEven) {
    for (const auto& [s, frame] : {
             std::pair{settings(1920, 1080, 0.25, 0.1, 0, 0), OutputFrame{1728, 810, 192, 270}},
             {settings(1001, 1001, 0.25, 0.25, 0.25, 0.25), OutputFrame{501, 501, 250.25, 250.25}},
             {settings(160, 120, 0.1, 0.1, 0.26875, 0.425), OutputFrame{101, 57, 16, 12}},
             {settings(1280, 720, 0, 0, 0, 0), OutputFrame{1280, 720, 0, 0}},
             {settings(1000, 1000, 0.1, 0, 0, 0.3), OutputFrame{1000, 600, 0, 100}},
         }) {
        OutputFrame expected = frame;
        expected.largestWidth = s.largestSize.width;
        expected.largestHeight = s.largestSize.height;
        EXPECT_EQ(outputFrame(s), expected) << expected.renderWidth << "x" << expected.renderHeight;
    }
}

// Within a pixel of the largest size counts as it.
TEST(CropFrame, PlacesTheLargestSizeByTheCropAndFitsAnyOther) {
    const auto cropped = settings(1920, 1080, 0.25, 0.1, 0, 0);
    struct Case {
        VideoSettings settings;
        double width, height;
        Placement expected;
    };
    for (const auto& c : {
             Case{cropped, 1920, 1080, {1, -192, -270}},
             Case{cropped, 1920.6, 1079.4, {1, -192, -270}},
             Case{settings(1000, 1000, 0.1, 0, 0, 0.3), 1000, 1000, {1, 0, -100}},
             Case{cropped, 640, 480, {1.6875, 324, 0}},
             Case{cropped, 1919, 1080, {810.0 / 1080, (1728 - 1919 * 0.75) / 2, 0}},
             // Wider but smaller in area: reduced.
             Case{settings(1920, 1080, 0, 0, 0, 0), 2400, 400, {0.8, 0, (1080 - 320) / 2.0}},
             // Fitted into 1536x864: the height limits, bars left and right.
             Case{settings(1920, 1080, 0.1, 0.1, 0.1, 0.1), 160, 120, {7.2, 192, 0}},
         }) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        const Placement p = placeFrame(outputFrame(c.settings), c.width, c.height);
        EXPECT_DOUBLE_EQ(p.scale, c.expected.scale);
        EXPECT_DOUBLE_EQ(p.x, c.expected.x);
        EXPECT_DOUBLE_EQ(p.y, c.expected.y);
    }
}

}  // namespace
