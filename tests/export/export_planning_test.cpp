#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_planning.h"
#include "export/export_settings.h"
#include "model/project.h"
#include "support/model_test_support.h"

namespace {

using exporting::CropInsets;
using exporting::Framing;
using model::Clip;
using model::ExportFormat;
using model::SmallClipMode;

Clip clip(double start, double length, std::string fingerprint = "v:1635148593:1920x1080",
          bool video = true) {
    Clip c = model_test::clipAt(start, length, video);
    c.frameRate = video ? 30 : 0;
    c.fingerprint = std::move(fingerprint);
    return c;
}

Clip silent(Clip c) {
    return model_test::masked(c, model::StreamMask::videoOnly);
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

TEST(ExportPlanning, StatusLineSaysWhichRoadTheExportTakesAndWhy) {
    Clip open = probed(0, 0.5, 3.2);
    open.copyFacts.leadingPictures = 2;  // open groups showing two pictures before their key
    Clip untimed = probed(0, 0, 5);
    untimed.copyFacts.untimedPackets = true;
    Clip audioOnly = probed(0, 0, 5, 1, "pcm_s16le");
    audioOnly.hasVideo = false;
    audioOnly.copyFacts.videoCodec.clear();
    Clip vorbis = audioOnly;
    vorbis.copyFacts.audioCodec = "vorbis";
    Clip prores = probed(0, 0, 5);
    prores.copyFacts.videoCodec = "prores";
    // Silence for a gap is encoded as the source's own kind of sound, which for HE-AAC it can't.
    Clip he = probed(0, 0, 5);
    he.copyFacts.audioProfile = "HE-AAC";
    Clip lc = probed(0, 0, 5);
    lc.copyFacts.audioProfile = "LC";
    const auto at = [](Clip c, double start) {
        c.id = common::Uuid::random();
        c.startOnTimeline = start;
        return c;
    };
    const std::string overlap = "Re-encode (clips overlap)";
    struct Row {
        std::vector<Clip> clips;
        std::string mode;
        double crop = 0;
    };
    const Row rows[] = {
        {{clip(0, 61)}, "Lossless ✓"},
        {{clip(0, 61)}, "Re-encode (cropped)", 0.1},
        // Pictures may intrude by a millisecond (the top one wins); sounds that play at once
        // at all need a second audio track, whatever their order in the stack.
        {{silent(clip(0, 10)), silent(clip(9.999, 5))}, "Lossless ✓"},
        {{silent(clip(0, 10)), silent(clip(9.99, 5))}, overlap},
        {{clip(0, 10), clip(9.999, 5)}, overlap},
        {{clip(0, 10), clip(10, 5)}, "Lossless ✓"},
        {{clip(0, 10), clip(2, 1), clip(9.9995, 5)}, overlap},
        {{clip(10, 5), clip(0, 10)}, "Lossless ✓"},
        {{probed(0, 1, 3)}, "Lossless ✓"},
        {{probed(0, 0, 10)}, "Lossless ✓"},
        {{probed(0, 2, 10)}, "Lossless ✓"},  // the last group runs to the end of the file
        {{probed(0, 0.5, 3.2)}, "Smart cut ✓ · 21 of 81 frames re-encoded"},
        {{open}, "Smart cut ✓ · 23 of 81 frames re-encoded"},
        {{probed(0, 1.1, 1.9)}, "Smart cut ✓ · 24 of 24 frames re-encoded"},
        {{probed(0, 1, 3), probed(2, 3, 5)}, "Lossless ✓"},  // split and put back: no cut
        {{probed(0, 1, 3), probed(2.5, 5, 6)}, "Smart cut ✓ · 15 of 105 frames re-encoded"},
        {{probed(0, 0, 5, 1, "pcm_s16le")}, "Re-encode (MP4 can't hold pcm_s16le audio; MOV can)"},
        {{prores}, "Re-encode (MP4 can't hold prores video; MOV can)"},
        {{audioOnly}, "Re-encode (M4A can't hold pcm_s16le audio; MOV or WAV can)"},
        {{vorbis}, "Re-encode (M4A can't hold vorbis audio)"},
        {{untimed}, "Re-encode (clip.mov has packets without timestamps)"},
        {{he, at(he, 5)}, "Lossless ✓"},
        {{he, at(he, 6)},
         "Re-encode (clip.mov has HE-AAC sound, and silence for a gap can't be encoded as "
         "HE-AAC)"},
        {{lc, at(lc, 6)}, "Smart cut ✓ · 30 of 330 frames re-encoded"},
        {{clip(0, 5), clip(5, 5, "v:1752589105:1280x720"), clip(10, 5, "missing")},
         "Re-encode (2 of 3 clips differ in format)"},
        {{clip(0, 5), clip(5, 5, "v:1752589105:1280x720")}, "Re-encode (cropped)", 0.2},
    };
    for (const auto& row : rows) {
        model::Project p;
        p.setClips(row.clips);
        p.setCropInsetBottom(row.crop);
        const std::string line = exporting::statusLine(p);
        const bool copies = !row.mode.starts_with("Re-encode");
        EXPECT_EQ(line.substr(line.find(" · ", line.find(" · ") + 1) + 4), row.mode) << line;
        EXPECT_EQ(exporting::passthroughEligible(p), copies) << line;
    }
}

TEST(ExportPlanning, BeginExportPreparesTheSheetWithTheFormatsOfTheClipsOrNoneForNoClips) {
    model::Project p;
    EXPECT_EQ(exporting::statusLine(p), "Drop clips here");
    EXPECT_EQ(exporting::suggestedFilename(p), "Untitled - trimmed");
    exporting::beginExport(p);
    EXPECT_FALSE(p.exportSheet().has_value());
    auto c = clip(0, 65);
    c.displayName = "trip.2024.mov";
    p.setClips({c});
    exporting::beginExport(p);
    ASSERT_TRUE(p.exportSheet().has_value());
    EXPECT_EQ(p.exportSheet()->suggestedFilename, "trip.2024 - trimmed");
    EXPECT_EQ(p.exportSheet()->initialFormat, ExportFormat::mp4);
    EXPECT_EQ(p.exportSheet()->statusLine, "1 clip · 1:05 · Lossless ✓");
    EXPECT_TRUE(p.isPresentingSheet());
    const auto first = p.exportSheet()->id;
    exporting::beginExport(p);
    EXPECT_NE(p.exportSheet()->id, first);

    const Clip sound = clip(0, 5, "a:1633772320", false);
    p.setClips({sound});
    EXPECT_EQ(exporting::availableFormats(p),
              (std::vector<ExportFormat>{ExportFormat::m4a, ExportFormat::wav}));
    p.setClips({sound, clip(5, 5)});
    EXPECT_EQ(exporting::availableFormats(p),
              (std::vector<ExportFormat>{ExportFormat::mp4, ExportFormat::mov}));
}

Clip sized(double width, double height, double frameRate = 30, int rotation = 0) {
    Clip c = model_test::clipAt(0, 5, width > 0);
    c.frameRate = frameRate;
    c.naturalSize = {width, height};
    c.rotationDegrees = rotation;
    return c;
}

Clip soundOnly(Clip c) {
    return model_test::masked(c, model::StreamMask::audioOnly);
}

TEST(ExportSettings, FrameAndRateFollowTheVideoRow) {
    Clip missing = sized(0, 0, 120);
    missing.hasVideo = true;
    missing.isMissing = true;
    const Clip sound = sized(0, 0, 0);
    struct Row {
        std::vector<Clip> clips;
        CropInsets insets;
        std::vector<double> frame;  // width, height, left and top cut; empty: none
        double framesPerSecond;
    };
    // Rates come narrowed to a float, as the probe reports them; NTSC ones come back exact.
    const Row rows[] = {
        {{sound}, {}, {}, 30},
        {{sound}, {0.1, 0.1, 0.1, 0.1}, {}, 30},
        // The largest stored area, the earliest of equal areas, at the highest exact rate.
        {{sized(640, 480, 24), sized(1920, 1080), sized(1280, 720, 25)},
         {},
         {1920, 1080, 0, 0},
         30},
        {{sized(200, 100), sized(100, 200, 60)}, {}, {200, 100, 0, 0}, 60},
        {{sized(1920, 1080, 24), soundOnly(sized(640, 480, 60)),
          sized(640, 480, float(30000.0 / 1001)), sound},
         {},
         {1920, 1080, 0, 0},
         30000.0 / 1001},
        {{sized(640, 480, float(24000.0 / 1001))}, {}, {640, 480, 0, 0}, 24000.0 / 1001},
        {{sized(640, 480, 12.5)}, {}, {640, 480, 0, 0}, 12.5},
        {{sized(160, 120, 30, 270)}, {}, {120, 160, 0, 0}, 30},
        {{sized(160, 120, 30, 180)}, {}, {160, 120, 0, 0}, 30},
        // Insets refer to the upright frame.
        {{sized(1920, 1080, 30, 90)}, {0.25, 0.1, 0, 0}, {972, 1440, 108, 480}, 30},
        // Clips off the video row or without a size give no frame; a placeholder's nominal
        // rate counts, as it is on the video row.
        {{soundOnly(sized(3840, 2160, 60)), missing, sized(640, 360, 25)},
         {},
         {640, 360, 0, 0},
         120},
        // The crop road runs at the clips' rate when they share one, else at thirty.
        {{sized(1280, 720, 60), sized(640, 480, 60)}, {0, 0, 0, 0.5}, {1280, 360, 0, 0}, 60},
        {{sized(1280, 720, 60), sized(640, 480, 25)}, {0, 0, 0, 0.5}, {1280, 360, 0, 0}, 30},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        const auto settings =
            exporting::reencodeSettings(row.clips, SmallClipMode::fill, row.insets);
        std::vector<double> frame;
        if (settings.frame)
            frame = {settings.frame->renderWidth, settings.frame->renderHeight,
                     settings.frame->cropX, settings.frame->cropY};
        EXPECT_EQ(frame, row.frame);
        const auto& i = row.insets;
        const bool cropped = i.top + i.leading + i.trailing + i.bottom > 0 && !row.frame.empty();
        EXPECT_EQ(settings.framing, cropped ? Framing::crop : Framing::whole);
        EXPECT_EQ(settings.framesPerSecond, row.framesPerSecond);
    }
    const auto v = exporting::exportVideoSettings({sized(90, 60, 30, 90)}, SmallClipMode::fill, {});
    ASSERT_TRUE(v);
    EXPECT_EQ(v->largestSize, (model::Size{60, 90}));
    EXPECT_EQ(v->smallClipMode, SmallClipMode::fill);
}

}  // namespace
