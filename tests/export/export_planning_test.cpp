#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_planning.h"
#include "model/project.h"

namespace {

using model::Clip;
using model::ExportFormat;

Clip clip(double start, double length, std::string fingerprint = "v:1635148593:1920x1080",
          bool video = true) {
    Clip c;
    c.id = common::Uuid::random();
    c.displayName = "holiday.mov";
    c.hasVideo = video;
    c.hasAudio = true;
    c.naturalSize = video ? model::Size{1920, 1080} : model::Size{};
    c.frameRate = video ? 30 : 0;
    c.startOnTimeline = start;
    c.outSeconds = length;
    c.fullDurationSeconds = length;
    c.fingerprint = std::move(fingerprint);
    return c;
}

TEST(ExportPlanning, AnEmptyProjectOffersNothing) {
    model::Project p;
    EXPECT_FALSE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::statusLine(p), "Drop clips here");
    EXPECT_EQ(exporting::suggestedFilename(p), "Untitled - trimmed");
    exporting::beginExport(p);
    EXPECT_FALSE(p.exportSheet().has_value());
}

TEST(ExportPlanning, OneClipIsEligibleUnlessCropped) {
    model::Project p;
    p.setClips({clip(0, 61)});
    EXPECT_TRUE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::statusLine(p), "1 clip · 1:01 · Lossless ✓");
    p.setCropInsetTop(0.1);
    EXPECT_FALSE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::reEncodeReason(p), "cropped");
    EXPECT_EQ(exporting::statusLine(p), "1 clip · 1:01 · Re-encode (cropped)");
}

Clip silent(Clip c) {
    c.streamMask = model::StreamMask::videoOnly;
    return c;
}

// Pictures may intrude by a millisecond (the top one wins); sounds that play at once at all
// need a second audio track, as lane assignment decides.
TEST(ExportPlanning, OverlapsEndEligibilityAsLaneAssignmentDoes) {
    model::Project p;
    p.setClips({silent(clip(0, 10)), silent(clip(9.999, 5))});
    EXPECT_TRUE(exporting::passthroughEligible(p));
    p.setClips({silent(clip(0, 10)), silent(clip(9.99, 5))});
    EXPECT_EQ(exporting::reEncodeReason(p), "clips overlap");
    p.setClips({clip(0, 10), clip(9.999, 5)});
    EXPECT_FALSE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::reEncodeReason(p), "clips overlap");
    p.setClips({clip(0, 10), clip(10, 5)});
    EXPECT_TRUE(exporting::passthroughEligible(p));
}

// Sounds meet by their times alone, whatever their order in the stack and whoever lies between.
TEST(ExportPlanning, SoundsOverlapByTimeNotByStackOrder) {
    struct Row {
        std::vector<Clip> clips;
        bool overlap;
    };
    const std::vector<Row> rows{
        {{clip(9.9995, 5), clip(0, 10)}, true},
        {{clip(0, 10), clip(2, 1), clip(9.9995, 5)}, true},
        {{clip(10, 5), clip(0, 10)}, false},
        {{clip(0, 5), clip(0, 10)}, true},
    };
    for (const auto& row : rows) {
        model::Project p;
        p.setClips(row.clips);
        EXPECT_EQ(exporting::reEncodeReason(p) == "clips overlap", row.overlap);
    }
}

// A probed H.264 clip with AAC sound and keyframes every `gop` seconds.
Clip probed(double start, double in, double out, double gop = 1, std::string audioCodec = "aac") {
    Clip c = clip(start, 0);
    c.inSeconds = in;
    c.outSeconds = out;
    c.fullDurationSeconds = 10;
    c.copyFacts.videoCodec = "h264";
    c.copyFacts.audioCodec = std::move(audioCodec);
    for (double k = 0; k < 10; k += gop) c.copyFacts.keyframeSeconds.push_back(k);
    return c;
}

TEST(ExportPlanning, StatusLineCountsTheFramesASmartCutReencodes) {
    struct Case {
        std::vector<Clip> clips;
        std::string mode;
    };
    // Open groups whose two leading pictures show before their keyframe.
    Clip open = probed(0, 0.5, 3.2);
    open.copyFacts.leadingPictures = 2;
    const std::vector<Case> cases{
        {{probed(0, 1, 3)}, "Lossless ✓"},
        {{probed(0, 0, 10)}, "Lossless ✓"},
        {{probed(0, 2, 10)}, "Lossless ✓"},  // the last group runs to the end of the file
        {{probed(0, 0.5, 3.2)}, "Smart cut ✓ · 21 of 81 frames re-encoded"},
        {{open}, "Smart cut ✓ · 23 of 81 frames re-encoded"},
        {{probed(0, 1.1, 1.9)}, "Smart cut ✓ · 24 of 24 frames re-encoded"},
        {{probed(0, 1, 3), probed(2, 3, 5)}, "Lossless ✓"},  // split and put back: no cut
        {{probed(0, 1, 3), probed(2.5, 5, 6)}, "Smart cut ✓ · 15 of 105 frames re-encoded"},
    };
    for (const auto& c : cases) {
        model::Project p;
        p.setClips(c.clips);
        const std::string line = exporting::statusLine(p);
        const std::string mode = line.substr(line.find(" · ", line.find(" · ") + 1) + 4);
        EXPECT_EQ(mode, c.mode) << line;
    }
}

TEST(ExportPlanning, EveryReasonTheCopyWouldMeetIsKnownBeforehand) {
    struct Case {
        Clip clip;
        std::string reason;
    };
    Clip untimed = probed(0, 0, 5);
    untimed.copyFacts.untimedPackets = true;
    Clip audioOnly = probed(0, 0, 5, 1, "pcm_s16le");
    audioOnly.hasVideo = false;
    audioOnly.copyFacts.videoCodec.clear();
    Clip vorbis = audioOnly;
    vorbis.copyFacts.audioCodec = "vorbis";
    Clip prores = probed(0, 0, 5);
    prores.copyFacts.videoCodec = "prores";
    const std::vector<Case> cases{
        {probed(0, 0, 5, 1, "pcm_s16le"), "MP4 can't hold pcm_s16le audio; MOV can"},
        {prores, "MP4 can't hold prores video; MOV can"},
        {audioOnly, "M4A can't hold pcm_s16le audio; MOV or WAV can"},
        {vorbis, "M4A can't hold vorbis audio"},
        {untimed, "holiday.mov has packets without timestamps"},
    };
    for (const auto& c : cases) {
        model::Project p;
        p.setClips({c.clip});
        EXPECT_FALSE(exporting::passthroughEligible(p)) << c.reason;
        EXPECT_EQ(exporting::reEncodeReason(p), c.reason);
    }
}

// Silence for a gap is encoded as the source's own kind of sound, which for HE-AAC it can't.
TEST(ExportPlanning, HighEfficiencyAacWithAGapInTheSoundIsReencoded) {
    Clip first = probed(0, 0, 5);
    first.copyFacts.audioProfile = "HE-AAC";
    Clip butted = first;
    butted.id = common::Uuid::random();
    butted.startOnTimeline = 5;
    Clip apart = butted;
    apart.startOnTimeline = 6;
    model::Project p;
    p.setClips({first, butted});
    EXPECT_TRUE(exporting::passthroughEligible(p));
    p.setClips({first, apart});
    EXPECT_FALSE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::reEncodeReason(p),
              "holiday.mov has HE-AAC sound, and silence for a gap can't be encoded as HE-AAC");
    first.copyFacts.audioProfile = "LC";
    apart.copyFacts.audioProfile = "LC";
    p.setClips({first, apart});
    EXPECT_TRUE(exporting::passthroughEligible(p));
}

TEST(ExportPlanning, DifferingFormatsAreCountedUnlessAnEarlierReasonWins) {
    model::Project p;
    p.setClips({clip(0, 5), clip(5, 5, "v:1752589105:1280x720"), clip(10, 5, "missing")});
    EXPECT_EQ(exporting::reEncodeReason(p), "2 of 3 clips differ in format");
    EXPECT_EQ(exporting::statusLine(p),
              "3 clips · 0:15 · Re-encode (2 of 3 clips differ in format)");
    p.setCropInsetBottom(0.2);
    EXPECT_EQ(exporting::reEncodeReason(p), "cropped");
}

TEST(ExportPlanning, FormatsFollowWhetherAnyClipHasVideo) {
    model::Project audio;
    audio.setClips({clip(0, 5, "a:1633772320", false)});
    EXPECT_EQ(exporting::availableFormats(audio),
              (std::vector<ExportFormat>{ExportFormat::m4a, ExportFormat::wav}));
    model::Project mixed;
    mixed.setClips({clip(0, 5, "a:1633772320", false), clip(5, 5)});
    EXPECT_EQ(exporting::availableFormats(mixed),
              (std::vector<ExportFormat>{ExportFormat::mp4, ExportFormat::mov}));
}

TEST(ExportPlanning, BeginExportPreparesTheSheet) {
    model::Project p;
    auto c = clip(0, 5);
    c.displayName = "trip.2024.mov";
    p.setClips({c});
    exporting::beginExport(p);
    ASSERT_TRUE(p.exportSheet().has_value());
    EXPECT_EQ(p.exportSheet()->suggestedFilename, "trip.2024 - trimmed");
    EXPECT_EQ(p.exportSheet()->initialFormat, ExportFormat::mp4);
    EXPECT_EQ(p.exportSheet()->statusLine, "1 clip · 0:05 · Lossless ✓");
    EXPECT_TRUE(p.isPresentingSheet());
    auto first = p.exportSheet()->id;
    exporting::beginExport(p);
    EXPECT_NE(p.exportSheet()->id, first);
}

}  // namespace
