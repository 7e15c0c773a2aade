#include "export/passthrough_export.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <stop_token>
#include <string>
#include <utility>
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

Road passthroughAs(ExportFormat format) {
    return [format](const composition::Composition& c, const fs::path& out,
                    const exporting::ProgressCallback& progress, std::stop_token stop) {
        return exporting::exportPassthrough(c, out, format, progress, std::move(stop));
    };
}

common::Status exportTo(const composition::Composition& c, const fs::path& out,
                        ExportFormat format = ExportFormat::mp4) {
    return exporting::exportPassthrough(c, out, format, {}, {});
}

// One stretch of the output: a range of a file, or a gap when there is no file.
struct Piece {
    fs::path file;
    std::int64_t in = 0;
    std::int64_t out = 0;
};

Piece gap(std::int64_t duration) {
    return {{}, 0, duration};
}

// What the output should show and sound like, stretch by stretch.
class Expected {
  public:
    void add(const Piece& piece) {
        if (piece.file.empty()) {
            samples_.resize(samples_.size() + piece.out * kSamplesPerTick);
            at_ += piece.out;
            return;
        }
        // Each source is decoded once, however many pieces it gives.
        auto [decoded, added] = sources_.try_emplace(piece.file);
        if (added) decoded->second = {framesOf(piece.file), samplesOf(piece.file)};
        const auto& [frames, source] = decoded->second;
        for (auto& frame : framesBetween(frames, piece.in, piece.out)) {
            hashes_.push_back(frame.hash);
            times_.push_back(double(at_ - piece.in) / 600 + frame.seconds);
        }
        for (std::int64_t i = piece.in * kSamplesPerTick; i < piece.out * kSamplesPerTick; ++i)
            samples_.push_back(i < std::ssize(source) ? source[i] : 0);
        at_ += piece.out - piece.in;
    }

    const std::vector<std::string>& hashes() const { return hashes_; }
    const std::vector<double>& times() const { return times_; }
    const std::vector<std::int16_t>& samples() const { return samples_; }
    std::int64_t duration() const { return at_; }

  private:
    std::map<fs::path, std::pair<std::vector<Frame>, std::vector<std::int16_t>>> sources_;
    std::vector<std::string> hashes_;
    std::vector<double> times_;
    std::vector<std::int16_t> samples_;
    std::int64_t at_ = 0;
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

// `pieces` on both tracks for a movie or as sound alone, and what they should show and
// sound like.
std::pair<composition::Composition, Expected> compose(const std::vector<Piece>& pieces,
                                                      bool movie = true) {
    CompositionBuilder builder;
    Expected expected;
    for (const Piece& piece : pieces) {
        if (piece.file.empty() && movie) builder.videoGap(piece.out);
        if (piece.file.empty()) builder.audioGap(piece.out);
        if (!piece.file.empty() && movie) builder.clip(piece.file, piece.in, piece.out);
        if (!piece.file.empty() && !movie) builder.audio(piece.file, 0, piece.in, piece.out);
        expected.add(piece);
    }
    return {builder.build(), expected};
}

// Exports `pieces`, as sound alone for m4a and wav, and checks what players show and
// sound: each range's frames at their own times by the edit list, and each range's
// samples with silence for the gaps.
fs::path exportPieces(const std::string& name, const std::vector<Piece>& pieces,
                      ExportFormat format = ExportFormat::mp4) {
    const bool movie = format == ExportFormat::mp4 || format == ExportFormat::mov;
    const auto [composition, expected] = compose(pieces, movie);
    const auto file =
        testing_support::freshDir(name) / ("out." + std::string(model::toString(format)));
    const auto result = exportTo(composition, file, format);
    EXPECT_TRUE(result) << (result ? "" : result.error().message);
    if (format == ExportFormat::wav) {
        EXPECT_EQ(samplesOf(file), expected.samples());
        return file;
    }
    EXPECT_EQ(majorBrand(file), format == ExportFormat::mp4   ? "isom"
                                : format == ExportFormat::mov ? "qt  "
                                                              : "M4A ");
    EXPECT_EQ(fileDurationTicks(file), expected.duration());
    expectSameSamples(samplesByEditList(file), expected.samples());
    if (!movie) {
        EXPECT_FALSE(trackOf(file, "vide"));
        return file;
    }
    const auto byEdits = framesByEditList(file);
    EXPECT_EQ(hashes(byEdits), expected.hashes());
    for (std::size_t i = 0; i < byEdits.size() && i < expected.times().size(); ++i)
        EXPECT_NEAR(byEdits[i].seconds, expected.times()[i], 1e-6) << "frame " << i;
    // The ffmpeg tool honours an empty edit only at the start.
    if (std::none_of(pieces.begin() + 1, pieces.end(),
                     [](const Piece& p) { return p.file.empty(); })) {
        EXPECT_EQ(hashes(framesOf(file)), expected.hashes());
    }
    return file;
}

TEST(PassthroughExport, JoinsSeveralRangesOfOneFileFrameExactly) {
    // The cut points lie inside groups of pictures, where B-frames reorder decoding.
    const auto a = movieA();
    const auto file = exportPieces("pass_join_one", {{a, 70 * kFrame, 95 * kFrame},
                                                     {a, 7 * kFrame, 44 * kFrame},
                                                     {a, 44 * kFrame, 52 * kFrame},
                                                     {a, 101 * kFrame, 119 * kFrame},
                                                     {a, 15 * kFrame + 7, 40 * kFrame + 13}});
    // A range that continues the one before in the same file shares its edit.
    EXPECT_EQ(editsOf(file, "vide").size(), 4u);
}

// The stream's picture starts a little after its sound and the copy keeps that delay, so
// its frames are held against the source by content alone.
TEST(PassthroughExport, TransportStreamSourceIsCopiedFrameAndSampleExactly) {
    const auto ts = transportStreamA();
    const auto [c, expected] =
        compose({{ts, 15 * kFrame, 81 * kFrame}, {ts, 100 * kFrame, 112 * kFrame}});
    const auto file = testing_support::freshDir("pass_ts") / "out.mp4";
    ASSERT_TRUE(exportTo(c, file));
    EXPECT_EQ(hashes(framesOf(file)), expected.hashes());
    EXPECT_EQ(hashes(framesByEditList(file)), expected.hashes());
    expectSameSamples(samplesByEditList(file), expected.samples());
}

TEST(PassthroughExport, GapsAreEmptyEditsOnBothTracks) {
    const auto a = movieA();
    const auto file = exportPieces(
        "pass_gap",
        {gap(450), {a, 10 * kFrame, 40 * kFrame}, gap(600), {a, 50 * kFrame, 65 * kFrame}});
    for (const char* track : {"vide", "soun"}) {
        const auto edits = editsOf(file, track);
        ASSERT_EQ(edits.size(), 4u);
        EXPECT_EQ(edits[0], (Mp4Edit{-1, 450}));
        EXPECT_EQ(edits[1].duration, 30u * kFrame);
        EXPECT_EQ(edits[2], (Mp4Edit{-1, 600}));
        EXPECT_EQ(edits[3].duration, 15u * kFrame);
    }
    // A leading empty edit is one the ffmpeg tool honours too; it keeps its times with -copyts.
    const auto frames = decodedFrames(file, "-copyts");
    ASSERT_FALSE(frames.empty());
    EXPECT_NEAR(frames.front().seconds, 0.75, 1e-6);
}

TEST(PassthroughExport, RangePastTheEndOfTheSourceEndsInAnEmptyEdit) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_past_end") / "out.mp4";
    ASSERT_TRUE(exportTo(CompositionBuilder().video(a, 2100, 2700).build(), file));
    const auto edits = editsOf(file, "vide");
    ASSERT_EQ(edits.size(), 2u);
    EXPECT_EQ(edits[0].duration, 300u);
    EXPECT_EQ(edits[1], (Mp4Edit{-1, 300}));
    EXPECT_EQ(hashes(framesByEditList(file)), hashes(framesBetween(framesOf(a), 2100, 2700)));
    EXPECT_EQ(fileDurationTicks(file), 600);
}

TEST(PassthroughExport, JoinsTwoFilesFrameExactlyAndAacSampleExactlyByTheEditList) {
    const auto a = movieA();
    const auto b = movieB();
    // No joint falls on an AAC frame edge (1024 samples): 15 frames are 24000 samples.
    const std::vector<Piece> pieces{{a, 15 * kFrame, 47 * kFrame},
                                    {b, 7 * kFrame, 38 * kFrame},
                                    {a, 47 * kFrame, 60 * kFrame},
                                    {a, 91 * kFrame, 113 * kFrame}};
    const auto file = exportPieces("pass_aac", pieces);

    // The ffmpeg tool honours a later edit only to the packet, so each clip may be shifted
    // by less than one AAC frame; the first clip starts on its sample.
    const auto read = samplesOf(file);
    std::int64_t at = 0;
    for (const auto& [f, in, out] : pieces) {
        const auto source = samplesOf(f);
        const std::int64_t probe = in * kSamplesPerTick + 2048;
        const std::vector<std::int16_t> window(source.begin() + probe,
                                               source.begin() + probe + 2048);
        const auto found = find(read, window, at + 2048 - 1024, at + 2048 + 1024);
        ASSERT_TRUE(found) << "clip from " << in << " ticks not found near " << at;
        if (at == 0) {
            EXPECT_EQ(*found, at + 2048);
        }
        EXPECT_LE(std::abs(*found - (at + 2048)), 1024);
        at += (out - in) * kSamplesPerTick;
    }
}

TEST(PassthroughExport, EachFormatOfItsOwnSourcesIsFrameAndSampleExact) {
    const auto pcmMovie = movieWithPcm();
    exportPieces("pass_mov_pcm",
                 {{pcmMovie, 10 * kFrame, 40 * kFrame},
                  gap(120),
                  {pcmMovie, 55 * kFrame + 3, 80 * kFrame + 7}},
                 ExportFormat::mov);
    exportPieces("pass_m4a", {{aacOnly(), 180, 900}, gap(300), {aacOnly(), 1201, 1933}},
                 ExportFormat::m4a);
    exportPieces("pass_wav",
                 {gap(37),
                  {pcmWave(), 150, 601},
                  gap(240),
                  {pcmWave(), 1200, 1741},
                  {pcmWave(), 1741, 1800}},
                 ExportFormat::wav);
}

TEST(PassthroughExport, WholeFileCopiesEveryFrameAndSampleMovieBoxFirstReportingProgress) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("pass_whole") / "out.mp4";
    std::vector<double> reports;
    ASSERT_TRUE(passthroughAs(ExportFormat::mp4)(CompositionBuilder().clip(a, 0, 2400).build(),
                                                 file, [&](double f) { reports.push_back(f); },
                                                 {}));
    EXPECT_EQ(hashes(framesOf(file)), hashes(framesOf(a)));
    EXPECT_EQ(samplesOf(file), samplesOf(a));
    const auto types = topLevelTypes(file);
    EXPECT_LT(std::find(types.begin(), types.end(), "moov"),
              std::find(types.begin(), types.end(), "mdat"));
    ASSERT_GE(reports.size(), 5u);
    EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
    EXPECT_GE(reports.front(), 0.0);
    EXPECT_EQ(reports.back(), 1.0);
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

TEST(PassthroughExport, RefusesWhatCantComeOutExactSayingWhyAndWritingNothing) {
    // The sources with other x264 settings really have other parameter sets.
    auto a = media::openInput(movieA());
    auto other = media::openInput(movieOtherSettings());
    ASSERT_TRUE(a && other);
    const AVCodecParameters& p = *(*a)->streams[0]->codecpar;
    const AVCodecParameters& q = *(*other)->streams[0]->codecpar;
    ASSERT_EQ(p.codec_id, q.codec_id);
    ASSERT_EQ(p.width, q.width);
    ASSERT_FALSE(p.extradata_size == q.extradata_size &&
                 std::equal(p.extradata, p.extradata + p.extradata_size, q.extradata));

    struct Refusal {
        composition::Composition composition;
        ExportFormat format;
        std::string reason;  // a word the message must contain
    };
    const auto m = movieA();
    using Build = CompositionBuilder;
    const auto dir = testing_support::freshDir("pass_refuse");
    for (const auto& [c, format, reason] : {
             Refusal{Build().video(m, 0, 600, 2.0).build(), ExportFormat::mp4, "2x"},
             Refusal{Build().video(m, 0, 600).video(movieOtherSettings(), 0, 600).build(),
                     ExportFormat::mp4, "parameter sets"},
             Refusal{Build().video(m, 0, 600).video(movieRotated(), 0, 600).build(),
                     ExportFormat::mp4, "turned"},
             Refusal{Build().audio(aacOnly(), 0, 0, 600).build(), ExportFormat::wav, "PCM"},
             Refusal{Build().clip(m, 0, 600).build(), ExportFormat::m4a, "picture"},
             Refusal{Build().audio(pcmWave(), 0, 0, 600).build(), ExportFormat::mp4, "pcm_s16le"},
             Refusal{Build().video(matroskaA(), 300, 900).build(), ExportFormat::mp4,
                     "decode time"},
             Refusal{Build().audioOnLane(0, m, 1, 0, 600).audioOnLane(1, m, 1, 0, 600).build(),
                     ExportFormat::mp4, "lanes"},
         }) {
        const auto result = exportTo(c, dir / "out", format);
        ASSERT_FALSE(result) << reason;
        EXPECT_NE(result.error().message.find(reason), std::string::npos) << result.error().message;
        EXPECT_FALSE(fs::exists(dir / "out")) << reason;
    }
}

TEST(PassthroughExport, CancellingOrAVanishedSourceLeavesNoFile) {
    const auto dir = testing_support::freshDir("pass_cancel");
    expectCancellingLeavesNothing(passthroughAs(ExportFormat::mp4),
                                  CompositionBuilder().clip(movieA(), 0, 2400).build(),
                                  dir / "out.mp4");
    expectCancellingLeavesNothing(passthroughAs(ExportFormat::wav),
                                  CompositionBuilder().audio(pcmWave(), 0, 0, 2400).build(),
                                  dir / "out.wav");
    expectVanishedSourceFails("pass_vanished", passthroughAs(ExportFormat::mp4));
}

}  // namespace
