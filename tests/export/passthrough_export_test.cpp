#include "export/passthrough_export.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_media.h"
#include "media/media_input.h"

namespace {

namespace fs = std::filesystem;
using namespace export_media;
using exporting::Mp4Edit;
using model::ExportFormat;

constexpr std::int64_t kFrame = kFrameTicks;
constexpr std::int64_t kSamplesPerTick = kSampleRate / common::MediaTime::kTicksPerSecond;

common::Status exportTo(const composition::Composition& c, const fs::path& out,
                        ExportFormat format = ExportFormat::mp4) {
    return exporting::exportPassthrough(c, out, format, {}, {});
}

// What the output should show and sound like, stretch by stretch.
class Expected {
  public:
    void clip(const fs::path& file, std::int64_t in, std::int64_t out) {
        for (auto& frame : framesBetween(framesOf(file), in, out)) hashes_.push_back(frame.hash);
        const auto source = samplesOf(file);
        for (std::int64_t i = in * kSamplesPerTick; i < out * kSamplesPerTick; ++i)
            samples_.push_back(i < std::ssize(source) ? source[i] : 0);
    }
    void gap(std::int64_t duration) {
        samples_.resize(samples_.size() + duration * kSamplesPerTick);
    }

    const std::vector<std::string>& hashes() const { return hashes_; }
    const std::vector<std::int16_t>& samples() const { return samples_; }

  private:
    std::vector<std::string> hashes_;
    std::vector<std::int16_t> samples_;
};

// Sample by sample, allowing the one unit of rounding two decodes may differ by.
void expectSameSamples(const std::vector<std::int16_t>& actual,
                       const std::vector<std::int16_t>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    std::size_t differing = 0;
    for (std::size_t i = 0; i < actual.size(); ++i)
        if (std::abs(actual[i] - expected[i]) > 1) ++differing;
    EXPECT_EQ(differing, 0u);
}

std::int64_t fileDurationTicks(const fs::path& file) {
    auto info = trackOf(file, "vide");
    if (!info) info = trackOf(file, "soun");
    return info ? static_cast<std::int64_t>(info->movieDuration) : -1;
}

TEST(PassthroughExport, CutsAtNonKeyframesShowExactlyTheFramesFromInToOut) {
    const auto a = movieA();
    // Both cut points lie inside a group of pictures, where B-frames reorder decoding.
    const std::int64_t in = 15 * kFrame;
    const std::int64_t out = 81 * kFrame;
    const auto file = testing_support::freshDir("pass_cut") / "out.mp4";
    ASSERT_TRUE(exportTo(CompositionBuilder().clip(a, in, out).build(), file));

    Expected expected;
    expected.clip(a, in, out);
    const auto frames = framesOf(file);
    EXPECT_EQ(hashes(frames), expected.hashes());
    const auto byEdits = framesByEditList(file);
    ASSERT_EQ(hashes(byEdits), expected.hashes());
    for (std::size_t i = 0; i < byEdits.size(); ++i)
        EXPECT_NEAR(byEdits[i].seconds, i / 30.0, 1e-6) << "frame " << i;
    EXPECT_EQ(fileDurationTicks(file), out - in);
}

TEST(PassthroughExport, JoinsSeveralRangesOfOneFileFrameExactly) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_join_one") / "out.mp4";
    const auto c = CompositionBuilder()
                       .clip(a, 70 * kFrame, 95 * kFrame)
                       .clip(a, 7 * kFrame, 44 * kFrame)
                       .clip(a, 44 * kFrame, 52 * kFrame)  // continues the clip before
                       .clip(a, 101 * kFrame, 119 * kFrame)
                       .build();
    ASSERT_TRUE(exportTo(c, file));
    Expected expected;
    expected.clip(a, 70 * kFrame, 95 * kFrame);
    expected.clip(a, 7 * kFrame, 52 * kFrame);
    expected.clip(a, 101 * kFrame, 119 * kFrame);
    EXPECT_EQ(hashes(framesOf(file)), expected.hashes());
    EXPECT_EQ(hashes(framesByEditList(file)), expected.hashes());
    // A range that continues the one before in the same file shares its edit.
    EXPECT_EQ(editsOf(file, "vide").size(), 3u);
}

TEST(PassthroughExport, JoinsTwoFilesOfOneFormatFrameExactly) {
    const auto a = movieA();
    const auto b = movieB();
    const auto file = testing_support::freshDir("pass_join_two") / "out.mp4";
    const auto c = CompositionBuilder()
                       .clip(b, 13 * kFrame, 50 * kFrame)
                       .clip(a, 31 * kFrame, 77 * kFrame)
                       .clip(b, 61 * kFrame, 89 * kFrame)
                       .build();
    ASSERT_TRUE(exportTo(c, file));
    Expected expected;
    expected.clip(b, 13 * kFrame, 50 * kFrame);
    expected.clip(a, 31 * kFrame, 77 * kFrame);
    expected.clip(b, 61 * kFrame, 89 * kFrame);
    EXPECT_EQ(hashes(framesOf(file)), expected.hashes());
    EXPECT_EQ(hashes(framesByEditList(file)), expected.hashes());
}

TEST(PassthroughExport, TransportStreamSourceIsCopiedFrameAndSampleExactly) {
    const auto ts = transportStreamA();
    const auto file = testing_support::freshDir("pass_ts") / "out.mp4";
    const auto c = CompositionBuilder()
                       .clip(ts, 15 * kFrame, 81 * kFrame)
                       .clip(ts, 100 * kFrame, 112 * kFrame)
                       .build();
    ASSERT_TRUE(exportTo(c, file));
    Expected expected;
    expected.clip(ts, 15 * kFrame, 81 * kFrame);
    expected.clip(ts, 100 * kFrame, 112 * kFrame);
    EXPECT_EQ(hashes(framesOf(file)), expected.hashes());
    expectSameSamples(samplesByEditList(file), expected.samples());
}

TEST(PassthroughExport, GapIsAnEmptyEditAndLaterFramesKeepTheirTimes) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_gap") / "out.mp4";
    const auto c = CompositionBuilder()
                       .clip(a, 10 * kFrame, 40 * kFrame)
                       .videoGap(600)
                       .audioGap(600)
                       .clip(a, 50 * kFrame, 65 * kFrame)
                       .build();
    ASSERT_TRUE(exportTo(c, file));

    const auto edits = editsOf(file, "vide");
    ASSERT_EQ(edits.size(), 3u);
    EXPECT_EQ(edits[0].duration, 30u * kFrame);
    EXPECT_EQ(edits[1], (Mp4Edit{-1, 600}));
    EXPECT_EQ(edits[2].duration, 15u * kFrame);
    const auto sound = editsOf(file, "soun");
    ASSERT_EQ(sound.size(), 3u);
    EXPECT_EQ(sound[1], (Mp4Edit{-1, 600}));
    EXPECT_EQ(fileDurationTicks(file), 45 * kFrame + 600);

    Expected expected;
    expected.clip(a, 10 * kFrame, 40 * kFrame);
    expected.gap(600);
    expected.clip(a, 50 * kFrame, 65 * kFrame);
    const auto frames = framesByEditList(file);
    ASSERT_EQ(hashes(frames), expected.hashes());
    EXPECT_NEAR(frames[29].seconds, 29 / 30.0, 1e-6);
    EXPECT_NEAR(frames[30].seconds, 30 / 30.0 + 1.0, 1e-6);
    expectSameSamples(samplesByEditList(file), expected.samples());
}

TEST(PassthroughExport, LeadingGapDelaysTheFirstClip) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_lead") / "out.mp4";
    const auto c =
        CompositionBuilder().videoGap(450).audioGap(450).clip(a, 22 * kFrame, 61 * kFrame).build();
    ASSERT_TRUE(exportTo(c, file));
    EXPECT_EQ(editsOf(file, "vide").front(), (Mp4Edit{-1, 450}));
    Expected expected;
    expected.clip(a, 22 * kFrame, 61 * kFrame);
    // A leading empty edit is one the ffmpeg tool honours too; it keeps its times with -copyts.
    const auto frames = decodedFrames(file, "-copyts");
    ASSERT_EQ(hashes(frames), expected.hashes());
    EXPECT_NEAR(frames.front().seconds, 0.75, 1e-6);
    expected = Expected();
    expected.gap(450);
    expected.clip(a, 22 * kFrame, 61 * kFrame);
    expectSameSamples(samplesByEditList(file), expected.samples());
}

TEST(PassthroughExport, InPointBetweenFramesShowsTheNextFrameAtItsOwnTime) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_between") / "out.mp4";
    const std::int64_t in = 15 * kFrame + 7;
    const std::int64_t out = 40 * kFrame + 13;
    ASSERT_TRUE(exportTo(CompositionBuilder().clip(a, in, out).build(), file));
    Expected expected;
    expected.clip(a, in, out);
    const auto frames = framesByEditList(file);
    ASSERT_EQ(hashes(frames), expected.hashes());
    ASSERT_EQ(frames.size(), 25u);  // frames 16 to 40
    EXPECT_NEAR(frames.front().seconds, double(16 * kFrame - in) / 600, 1e-6);
    EXPECT_EQ(fileDurationTicks(file), out - in);
}

TEST(PassthroughExport, RangePastTheEndOfTheSourceEndsInAnEmptyEdit) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_past_end") / "out.mp4";
    ASSERT_TRUE(exportTo(CompositionBuilder().video(a, 2100, 2700).build(), file));
    const auto edits = editsOf(file, "vide");
    ASSERT_EQ(edits.size(), 2u);
    EXPECT_EQ(edits[0].duration, 300u);
    EXPECT_EQ(edits[1], (Mp4Edit{-1, 300}));
    Expected expected;
    expected.clip(a, 2100, 2700);
    EXPECT_EQ(hashes(framesByEditList(file)), expected.hashes());
    EXPECT_EQ(fileDurationTicks(file), 600);
}

TEST(PassthroughExport, WholeFileCopiesEveryFrameAndSample) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_whole") / "out.mp4";
    ASSERT_TRUE(exportTo(CompositionBuilder().clip(a, 0, 2400).build(), file));
    EXPECT_EQ(hashes(framesOf(file)), hashes(framesOf(a)));
    EXPECT_EQ(samplesOf(file), samplesOf(a));
}

TEST(PassthroughExport, AacJoinsAreSampleExactByTheEditListAndWithinOneFrameWhenRead) {
    const auto a = movieA();
    const auto b = movieB();
    const auto file = testing_support::freshDir("pass_aac") / "out.mp4";
    // No joint falls on an AAC frame edge (1024 samples): 15 frames are 24000 samples.
    const std::vector<std::tuple<fs::path, std::int64_t, std::int64_t>> clips{
        {a, 15 * kFrame, 47 * kFrame},
        {b, 7 * kFrame, 38 * kFrame},
        {a, 47 * kFrame, 60 * kFrame},
        {a, 91 * kFrame, 113 * kFrame}};
    CompositionBuilder builder;
    Expected expected;
    for (const auto& [f, in, out] : clips) {
        builder.clip(f, in, out);
        expected.clip(f, in, out);
    }
    ASSERT_TRUE(exportTo(builder.build(), file));
    expectSameSamples(samplesByEditList(file), expected.samples());

    // The ffmpeg tool honours a later edit only to the packet, so each clip may be shifted
    // by less than one AAC frame; the first clip starts on its sample.
    const auto read = samplesOf(file);
    std::int64_t at = 0;
    bool first = true;
    for (const auto& [f, in, out] : clips) {
        const auto source = samplesOf(f);
        const std::int64_t probe = in * kSamplesPerTick + 2048;
        const std::vector<std::int16_t> window(source.begin() + probe,
                                               source.begin() + probe + 2048);
        const auto found = find(read, window, at + 2048 - 1024, at + 2048 + 1024);
        ASSERT_TRUE(found) << "clip from " << in << " ticks not found near " << at;
        if (first) {
            EXPECT_EQ(*found, at + 2048);
        }
        EXPECT_LE(std::abs(*found - (at + 2048)), 1024);
        first = false;
        at += (out - in) * kSamplesPerTick;
    }
}

TEST(PassthroughExport, QuickTimeWithPcmSoundIsFrameAndSampleExact) {
    const auto source = movieWithPcm();
    const auto file = testing_support::freshDir("pass_mov_pcm") / "out.mov";
    const auto c = CompositionBuilder()
                       .clip(source, 10 * kFrame, 40 * kFrame)
                       .videoGap(120)
                       .audioGap(120)
                       .clip(source, 55 * kFrame + 3, 80 * kFrame + 7)
                       .build();
    ASSERT_TRUE(exportTo(c, file, ExportFormat::mov));
    EXPECT_EQ(majorBrand(file), "qt  ");
    Expected expected;
    expected.clip(source, 10 * kFrame, 40 * kFrame);
    expected.gap(120);
    expected.clip(source, 55 * kFrame + 3, 80 * kFrame + 7);
    EXPECT_EQ(hashes(framesByEditList(file)), expected.hashes());
    expectSameSamples(samplesByEditList(file), expected.samples());
}

TEST(PassthroughExport, AacOnlySourcesMakeAnM4aFile) {
    const auto source = aacOnly();
    const auto file = testing_support::freshDir("pass_m4a") / "out.m4a";
    const auto c = CompositionBuilder()
                       .audio(source, 0, 180, 900)
                       .audioGap(300)
                       .audio(source, 0, 1201, 1933)
                       .build();
    ASSERT_TRUE(exportTo(c, file, ExportFormat::m4a));
    EXPECT_EQ(majorBrand(file), "M4A ");
    EXPECT_FALSE(trackOf(file, "vide"));
    Expected expected;
    expected.clip(source, 180, 900);
    expected.gap(300);
    expected.clip(source, 1201, 1933);
    expectSameSamples(samplesByEditList(file), expected.samples());
}

TEST(PassthroughExport, PcmSourcesMakeASampleExactWaveWithSilentGaps) {
    const auto source = pcmWave();
    const auto file = testing_support::freshDir("pass_wav") / "out.wav";
    const auto c = CompositionBuilder()
                       .audioGap(37)
                       .audio(source, 0, 150, 601)
                       .audioGap(240)
                       .audio(source, 0, 1200, 1741)
                       .audio(source, 0, 1741, 1800)
                       .build();
    ASSERT_TRUE(exportTo(c, file, ExportFormat::wav));
    Expected expected;
    expected.gap(37);
    expected.clip(source, 150, 601);
    expected.gap(240);
    expected.clip(source, 1200, 1800);
    EXPECT_EQ(samplesOf(file), expected.samples());
}

TEST(PassthroughExport, KeepsTheRotationOfAPhoneClip) {
    const auto file = testing_support::freshDir("pass_rotated") / "out.mp4";
    ASSERT_TRUE(exportTo(CompositionBuilder().clip(movieRotated(), 20, 1400).build(), file));
    auto input = media::openInput(file);
    ASSERT_TRUE(input) << input.error().message;
    const AVStream* video = media::firstStream(**input, AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(media::displayRotationDegrees(*video), 90);
}

TEST(PassthroughExport, ReportsProgressUpToOne) {
    const auto file = testing_support::freshDir("pass_progress") / "out.mp4";
    std::vector<double> reports;
    ASSERT_TRUE(exporting::exportPassthrough(CompositionBuilder().clip(movieA(), 0, 2400).build(),
                                             file, ExportFormat::mp4,
                                             [&](double f) { reports.push_back(f); }, {}));
    ASSERT_GE(reports.size(), 5u);
    EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
    EXPECT_GE(reports.front(), 0.0);
    EXPECT_EQ(reports.back(), 1.0);
}

struct Refusal {
    std::string name;
    composition::Composition composition;
    ExportFormat format;
    std::string reason;  // a word the message must contain
};

class PassthroughRefusal : public ::testing::TestWithParam<std::string> {};

Refusal refusal(const std::string& name) {
    const auto a = movieA();
    if (name == "Retimed")
        return {name, CompositionBuilder().video(a, 0, 600, 2.0).build(), ExportFormat::mp4, "2x"};
    if (name == "OtherParameterSets") {
        return {name,
                CompositionBuilder().video(a, 0, 600).video(movieOtherSettings(), 0, 600).build(),
                ExportFormat::mp4, "parameter sets"};
    }
    if (name == "OtherRotation") {
        return {name, CompositionBuilder().video(a, 0, 600).video(movieRotated(), 0, 600).build(),
                ExportFormat::mp4, "turned"};
    }
    if (name == "AacIntoWave")
        return {name, CompositionBuilder().audio(aacOnly(), 0, 0, 600).build(), ExportFormat::wav,
                "PCM"};
    if (name == "PictureIntoM4a")
        return {name, CompositionBuilder().clip(a, 0, 600).build(), ExportFormat::m4a, "picture"};
    if (name == "MatroskaWithoutDecodeTimes") {
        return {name, CompositionBuilder().video(matroskaA(), 300, 900).build(), ExportFormat::mp4,
                "decode time"};
    }
    if (name == "PcmIntoMp4") {
        return {name, CompositionBuilder().audio(pcmWave(), 0, 0, 600).build(), ExportFormat::mp4,
                "pcm_s16le"};
    }
    return {name,
            CompositionBuilder().audioOnLane(0, a, 1, 0, 600).audioOnLane(1, a, 1, 0, 600).build(),
            ExportFormat::mp4, "lanes"};
}

TEST_P(PassthroughRefusal, SaysWhyAndWritesNothing) {
    const Refusal r = refusal(GetParam());
    const auto file = testing_support::freshDir("pass_refuse_" + r.name) / "out";
    const auto result = exportTo(r.composition, file, r.format);
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message.find(r.reason), std::string::npos) << result.error().message;
    EXPECT_FALSE(fs::exists(file));
}

INSTANTIATE_TEST_SUITE_P(PassthroughExport, PassthroughRefusal,
                         ::testing::Values("Retimed", "OtherParameterSets", "OtherRotation",
                                           "AacIntoWave", "PictureIntoM4a", "PcmIntoMp4",
                                           "MatroskaWithoutDecodeTimes", "TwoAudioLanes"));

TEST(PassthroughExport, SourcesWithOtherX264SettingsReallyHaveOtherParameterSets) {
    auto a = media::openInput(movieA());
    auto other = media::openInput(movieOtherSettings());
    ASSERT_TRUE(a && other);
    const AVCodecParameters& p = *(*a)->streams[0]->codecpar;
    const AVCodecParameters& q = *(*other)->streams[0]->codecpar;
    EXPECT_EQ(p.codec_id, q.codec_id);
    EXPECT_EQ(p.width, q.width);
    EXPECT_FALSE(p.extradata_size == q.extradata_size &&
                 std::equal(p.extradata, p.extradata + p.extradata_size, q.extradata));
}

TEST(PassthroughExport, CancellingLeavesNoFile) {
    const auto file = testing_support::freshDir("pass_cancel") / "out.mp4";
    std::stop_source stop;
    bool reported = false;
    const auto result = exporting::exportPassthrough(
        CompositionBuilder().clip(movieA(), 0, 2400).build(), file, ExportFormat::mp4,
        [&](double) {
            reported = true;
            stop.request_stop();
        },
        stop.get_token());
    ASSERT_FALSE(result);
    EXPECT_TRUE(reported);
    EXPECT_NE(result.error().message.find("cancelled"), std::string::npos);
    EXPECT_FALSE(fs::exists(file));
}

TEST(PassthroughExport, CancellingAWaveLeavesNoFile) {
    const auto file = testing_support::freshDir("pass_cancel_wav") / "out.wav";
    std::stop_source stop;
    const auto result = exporting::exportPassthrough(
        CompositionBuilder().audio(pcmWave(), 0, 0, 2400).build(), file, ExportFormat::wav,
        [&](double) { stop.request_stop(); }, stop.get_token());
    ASSERT_FALSE(result);
    EXPECT_FALSE(fs::exists(file));
}

TEST(PassthroughExport, VanishedSourceFailsAndLeavesNoFile) {
    const auto dir = testing_support::freshDir("pass_vanished");
    const auto gone = dir / "gone.mp4";
    fs::copy_file(movieA(), gone);
    const auto c = CompositionBuilder().clip(movieA(), 0, 600).clip(gone, 0, 600).build();
    fs::remove(gone);
    const auto file = dir / "out.mp4";
    const auto result = exportTo(c, file);
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message.find(gone.string()), std::string::npos)
        << result.error().message;
    EXPECT_FALSE(fs::exists(file));
}

TEST(PassthroughExport, MovieBoxStandsBeforeTheMediaData) {
    const auto file = testing_support::freshDir("pass_faststart") / "out.mp4";
    ASSERT_TRUE(exportTo(CompositionBuilder().clip(movieA(), 0, 2400).build(), file));
    std::vector<std::string> order;
    for (const auto& box : boxesOf(file)) {
        if (box.type == exporting::fourCC("moov")) order.push_back("moov");
        if (box.type == exporting::fourCC("mdat")) order.push_back("mdat");
    }
    EXPECT_EQ(order, (std::vector<std::string>{"moov", "mdat"}));
}

}  // namespace
