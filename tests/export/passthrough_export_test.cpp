#include "export/passthrough_export.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_media.h"

namespace {

namespace fs = std::filesystem;
using namespace export_media;
using model::ExportFormat;
using testing_support::Player;

constexpr std::int64_t kSamplesPerTick = kSampleRate / common::MediaTime::kTicksPerSecond;
constexpr std::int64_t kGap = -1;  // a range that starts here is a gap of its `out` ticks

Road passthroughAs(ExportFormat format) {
    return [format](const composition::Composition& c, const fs::path& out,
                    const exporting::ProgressCallback& progress, std::stop_token stop) {
        return exporting::exportPassthrough(c, out, format, progress, std::move(stop));
    };
}

// Sources that players get wrong; "hevcN" has keyframes N frames apart.
fs::path smartSource(const std::string& name) {
    if (name == "plain") return movieA();
    if (name == "pcm") return movieWithPcm();
    if (name == "offset")
        return testing_support::makeMediaFrom(
            "smart_offset.mp4", movieA(),
            "-itsoffset 0.5 -i " + quote(movieA().string()) + " -map 1:v -map 0:a -c copy");
    const std::string g = name.ends_with("10") ? "10" : "30";
    std::string video = kH264;
    if (name == "pyramid")
        video =
            "-c:v libx264 -preset veryfast -bf 3 -b_strategy 0 -x264-params b-pyramid=normal "
            "-sc_threshold 0 -pix_fmt yuv420p -g 30 -keyint_min 30 ";
    if (name.starts_with("hevc"))
        video =
            "-c:v libx265 -preset ultrafast -tag:v hvc1 -pix_fmt yuv420p -x265-params "
            "open-gop=1:bframes=3:scenecut=0:log-level=error:keyint=" +
            g + ":min-keyint=" + g + " ";
    if (name == "varying")
        video = "-vf \"select='not(eq(mod(n\\,7)\\,3))'\" -fps_mode vfr " + video;
    const std::string rate = name == "ntsc" ? "30000/1001" : "30";
    return makeMedia("smart_" + name + ".mp4", "-f lavfi -i testsrc2=size=160x120:rate=" + rate +
                                                   " " + kSweep + "-t 4 " + video + kAac);
}

struct Range {
    std::int64_t in = 0;  // ticks, or kGap
    std::int64_t out = 0;
    std::int64_t length() const { return in == kGap ? out : out - in; }
};

// A source frame and when it starts, or black (a gap, or before a late stream).
struct Shown {
    std::optional<std::size_t> frame;
    double seconds = 0;
};

// Each range shows first the source frame showing at its in point, from the range start.
std::vector<Shown> expectedPictures(const std::vector<Range>& ranges,
                                    const std::vector<double>& times) {
    std::vector<Shown> shown;
    double start = 0;
    for (const auto& r : ranges) {
        const double in = r.in / 600.0;
        const auto next = std::upper_bound(times.begin(), times.end(), in + 1e-6);
        const double from = next == times.begin() ? in : *(next - 1);
        if (r.in == kGap) shown.resize(shown.size() + r.out / kFrameTicks);
        for (double t = in; r.in != kGap && next == times.begin() && t < times.front() - 1e-6;
             t += 1 / 30.0)
            shown.emplace_back();
        for (std::size_t i = 0; r.in != kGap && i < times.size(); ++i)
            if (times[i] >= from - 1e-6 && times[i] < r.out / 600.0 - 1e-6)
                shown.push_back({i, start + std::max(0.0, times[i] - in)});
        start += r.length() / 600.0;
    }
    return shown;
}

// A window of `source` from `in` (ticks) is found in `sound` within `slack` of `place`.
void expectSoundAt(const std::vector<float>& sound, const std::vector<float>& source,
                   std::int64_t in, std::int64_t place, std::int64_t slack) {
    const auto window = source.begin() + in * kSamplesPerTick;
    for (std::int64_t at = std::max<std::int64_t>(place - 2048, 0);
         at <= place + 2048 && at + 256 <= std::ssize(sound); ++at) {
        if (std::equal(window, window + 256, sound.begin() + at,
                       [](float a, float b) { return std::abs(a - b) <= 1e-3f; })) {
            EXPECT_LE(std::abs(at - place), slack) << "sound from " << in;
            return;
        }
    }
    ADD_FAILURE() << "sound from " << in << " is not near sample " << place;
}

struct SmartCutCase {
    const char* name;
    std::string source;  // for smartSource
    std::vector<Range> ranges;
    int maxReencoded;
};

class SmartCut : public testing::TestWithParam<SmartCutCase> {};

// Copied frames identical, re-encoded ones few and at 45 dB.
TEST_P(SmartCut, BothPlayersShowTheComposition) {
    const auto& param = GetParam();
    const fs::path source = smartSource(param.source);
    const auto dir = testing_support::freshDir(std::string("smart_") + param.name);
    // PCM goes into a mov, placed to the sample; AAC is placed within half a coded frame.
    const bool pcm = param.source == "pcm";
    const auto file = dir / (pcm ? "out.mov" : "out.mp4");
    CompositionBuilder builder;
    for (const auto& r : param.ranges) {
        if (r.in == kGap)
            builder.gap(r.out).gap(r.out, 0);
        else
            builder.clip(source, r.in, r.out);
    }
    const auto written =
        passthroughAs(pcm ? ExportFormat::mov : ExportFormat::mp4)(builder.build(), file, {}, {});
    ASSERT_TRUE(written) << written.error().message;
    EXPECT_EQ(trackOf(file, "vide").edits.size(), 1u);
    EXPECT_EQ(trackOf(file, "soun").edits.size(), 1u);

    const auto original = testing_support::decodeVideo(source, Player::ffmpeg, dir / "source");
    ASSERT_EQ(original.error, "");
    const auto want = expectedPictures(param.ranges, original.seconds);
    const auto sourceSound = soundOf(source).samples;
    for (Player player : testing_support::kPlayers) {
        SCOPED_TRACE(testing_support::playerName(player));
        const auto shown = testing_support::decodeVideo(file, player, dir / "shown");
        ASSERT_TRUE(shown.error.empty()) << shown.error;
        ASSERT_EQ(shown.frameCount(), want.size());
        int differing = 0;
        for (std::size_t i = 0; i < want.size(); ++i) {
            if (!want[i].frame) {
                ++differing;
                EXPECT_TRUE(testing_support::looksBlack(shown.meanLuma[i])) << "frame " << i;
                continue;
            }
            EXPECT_NEAR(shown.seconds[i], want[i].seconds, 0.001) << "frame " << i;
            if (shown.hashes[i] == original.hashes[*want[i].frame]) continue;
            ++differing;
            EXPECT_GE(testing_support::psnr(shown.frame(i), original.frame(*want[i].frame)), 45.0)
                << "frame " << i;
        }
        EXPECT_LE(differing, param.maxReencoded);

        const auto sound = soundOf(file, player).samples;
        std::int64_t at = 0;
        for (const auto& r : param.ranges) {
            const std::int64_t start = at * kSamplesPerTick;
            const std::int64_t half = r.length() * kSamplesPerTick / 2;
            at += r.length();
            // A coded frame's tail and half a frame of placement may reach into a gap.
            for (std::int64_t i = start + 2048; r.in == kGap && i < start + 2 * half - 2048; ++i)
                ASSERT_LE(std::abs(sound.at(i)), 1e-4f) << "gap sample " << i;
            if (r.in != kGap)
                expectSoundAt(sound, sourceSound, r.in + r.length() / 2, start + half,
                              pcm ? 1 : 512);
        }
        EXPECT_NEAR(double(sound.size()), double(at * kSamplesPerTick), 1024.0);
    }
}

constexpr std::int64_t f(std::int64_t frames) {
    return frames * kFrameTicks;
}

INSTANTIATE_TEST_SUITE_P(
    Sources, SmartCut,
    testing::Values(
        SmartCutCase{"keyframe_cuts_copy_everything", "plain", {{f(30), f(90)}}, 0},
        SmartCutCase{"b_pyramid_join", "pyramid", {{f(10), f(100)}, {f(25), f(95)}}, 40},
        SmartCutCase{"open_gop_hevc", "hevc30", {{f(12), f(70)}, {f(35), f(95)}}, 64},
        SmartCutCase{"open_gop_hevc_short_groups",
                     "hevc10",
                     {{f(5), f(112)}, {kGap, f(6)}, {f(3), f(58)}},
                     60},
        SmartCutCase{"offset_tracks", "offset", {{f(3), f(45)}, {f(50), f(100)}}, 62},
        SmartCutCase{"variable_rate", "varying", {{f(8), f(70)}, {f(80), f(110)}}, 60},
        SmartCutCase{"ntsc_rate", "ntsc", {{f(7), f(66)}, {f(71), f(100)}}, 60},
        SmartCutCase{"pcm_in_mov", "pcm", {{f(4), f(65)}, {kGap, f(10)}, {f(25), f(90)}}, 46}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PassthroughExport, RefusesWhatCannotBeCopiedAndFailsLeavingNoFile) {
    expectFailuresLeaveNothing("smart_failures", passthroughAs(ExportFormat::mp4), 0.3);
    const auto dir = testing_support::freshDir("smart_refuse");
    struct Case {
        composition::Composition composition;
        ExportFormat format;
        std::string says;
    };
    for (const auto& c :
         std::vector<Case>{{CompositionBuilder().video(movieA(), 0, 600, 2.0).build(),
                            ExportFormat::mp4, "speed"},
                           {CompositionBuilder().clip(movieA(), 0, 600).build(), ExportFormat::wav,
                            "holds no picture"},
                           {CompositionBuilder().audio(movieWithPcm(), 1, 0, 600).build(),
                            ExportFormat::mp4, "cannot hold"}}) {
        const auto file = dir / ("out." + std::string(model::toString(c.format)));
        const auto result = exporting::exportPassthrough(c.composition, file, c.format, {}, {});
        ASSERT_FALSE(result) << c.says;
        EXPECT_NE(result.error().message.find(c.says), std::string::npos) << result.error().message;
        EXPECT_FALSE(fs::exists(file));
    }
}

// ALAC is cut on the sample like PCM: the frames a cut splits are coded again, losslessly.
TEST(PassthroughExport, AudioFormatsCopyTheirSoundPlacedRight) {
    const auto dir = testing_support::freshDir("smart_audio");
    const auto alac =
        makeMedia("export_alac.m4a", kSweep + "-t 4 -c:a alac -sample_fmt s32p -ac 1");
    struct Case {
        fs::path source;
        ExportFormat format;
        std::int64_t offBy;  // samples, in placement and in length
    };
    for (const auto& [source, format, offBy] :
         {Case{aacOnly(), ExportFormat::m4a, 1024},
          Case{makeMedia("export_pcm.wav", kSweep + "-t 4 -c:a pcm_s16le -ac 1"), ExportFormat::wav,
               0},
          Case{alac, ExportFormat::m4a, 0}}) {
        const auto file =
            dir / (source.stem().string() + "." + std::string(model::toString(format)));
        const auto c = CompositionBuilder()
                           .audio(source, 0, 33, 900)
                           .gap(300, 0)
                           .audio(source, 0, 1200, 2000)
                           .build();
        ASSERT_TRUE(exporting::exportPassthrough(c, file, format, {}, {}));
        for (Player player : testing_support::kPlayers) {
            SCOPED_TRACE(testing_support::playerName(player));
            const auto samples = soundOf(file, player).samples;
            EXPECT_NEAR(double(samples.size()), (867 + 300 + 800) * 80.0, double(offBy)) << source;
            expectSoundAt(samples, soundOf(source, player).samples, 1500, 1467 * 80, offBy / 2);
        }
    }
}

// At 12 kHz the range ends 0.72 into its twelfth 85 ms frame, which must be played whole.
TEST(PassthroughExport, BothPlayersPlayALastSoundFrameThatEndsAfterTheComposition) {
    const auto source =
        makeMedia("smart_aac_12k.m4a", kSweep + "-t 3 -ar 12000 -c:a aac -aac_pns 0 -ac 1");
    const auto file = testing_support::freshDir("smart_last_frame") / "out.m4a";
    ASSERT_TRUE(exporting::exportPassthrough(
        CompositionBuilder().audio(source, 0, 300, 900).build(), file, ExportFormat::m4a, {}, {}));
    for (Player player : testing_support::kPlayers) {
        const auto sound = testing_support::decodeAudio(file, player, 12000, 1);
        EXPECT_NEAR(double(sound.frameCount()), 12000.0, 512.0)
            << testing_support::playerName(player);
    }
}

}  // namespace
