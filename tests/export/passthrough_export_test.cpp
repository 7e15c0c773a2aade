#include "export/passthrough_export.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_media.h"
#include "export/export_planning.h"
#include "media/probe.h"
#include "model/project.h"
#include "support/player_decode.h"

namespace {

namespace fs = std::filesystem;
using namespace export_media;
using model::ExportFormat;
using testing_support::Player;

constexpr std::int64_t kFrame = kFrameTicks;
constexpr std::int64_t kSamplesPerTick = kSampleRate / common::MediaTime::kTicksPerSecond;

Road passthroughAs(ExportFormat format) {
    return [format](const composition::Composition& c, const fs::path& out,
                    const exporting::ProgressCallback& progress, std::stop_token stop) {
        return exporting::exportPassthrough(c, out, format, progress, std::move(stop));
    };
}

// Media for each kind of source that players get wrong. All 160x120, keyframes 1 s apart
// unless `groupFrames` says otherwise: with short groups a range spans groups that are
// neither read nor re-encoded.
std::string groupsNamed(int groupFrames) {
    return groupFrames == 30 ? "" : "_g" + std::to_string(groupFrames);
}
fs::path bPyramidIn(int groupFrames) {
    const std::string g = std::to_string(groupFrames);
    return makeMedia("smart_pyramid" + groupsNamed(groupFrames) + ".mp4",
                     picture("testsrc2") + kSweep +
                         "-t 4 -c:v libx264 -preset veryfast -bf 3 "
                         "-b_strategy 0 -x264-params b-pyramid=normal -g " +
                         g + " -keyint_min " + g +
                         " -sc_threshold 0 -pix_fmt yuv420p -c:a aac -aac_pns 0 -b:a 128k -ac 1");
}
fs::path openGopHevcIn(int groupFrames) {
    const std::string g = std::to_string(groupFrames);
    return makeMedia("smart_hevc" + groupsNamed(groupFrames) + ".mp4",
                     picture("testsrc2") + kSweep +
                         "-t 4 -c:v libx265 -preset ultrafast -tag:v hvc1 -x265-params keyint=" +
                         g + ":min-keyint=" + g +
                         ":open-gop=1:bframes=3:scenecut=0:log-level=error -pix_fmt yuv420p "
                         "-c:a aac -aac_pns 0 -ac 1");
}
fs::path bPyramid() {
    return bPyramidIn(30);
}
fs::path openGopHevc() {
    return openGopHevcIn(30);
}
fs::path offsetTracks() {
    return makeMediaFrom(
        "smart_offset.mp4", movieA(),
        "-itsoffset 0.5 -i " + quote(movieA().string()) + " -map 1:v -map 0:a -c copy");
}
fs::path variableRate() {
    return makeMedia("smart_vfr.mp4", picture("testsrc2") + kSweep +
                                          "-t 4 -vf \"select='not(eq(mod(n\\,7)\\,3))'\" "
                                          "-fps_mode vfr " +
                                          h264() + "-c:a aac -ac 1");
}
fs::path ntscRate() {
    return makeMedia("smart_2997.mp4", "-f lavfi -i testsrc2=size=160x120:rate=30000/1001 " +
                                           kSweep + "-t 4 " + h264() + "-c:a aac -ac 1");
}

// One stretch of the composition: a range of a file (ticks), or a gap without a file.
struct Piece {
    fs::path file;
    std::int64_t in = 0;
    std::int64_t out = 0;
};

Piece gap(std::int64_t duration) {
    return {{}, 0, duration};
}

composition::Composition compose(const std::vector<Piece>& pieces, bool withAudio) {
    CompositionBuilder builder;
    for (const auto& p : pieces) {
        if (p.file.empty()) {
            builder.videoGap(p.out);
            if (withAudio) builder.audioGap(p.out);
        } else {
            builder.video(p.file, p.in, p.out);
            if (withAudio) builder.audio(p.file, 1, p.in, p.out);
        }
    }
    return builder.build();
}

// Where a window of samples recurs in `samples` between `from` and `to`, or none.
std::optional<std::int64_t> findSound(const std::vector<float>& samples,
                                      const std::vector<float>& window, std::int64_t from,
                                      std::int64_t to) {
    for (std::int64_t at = std::max<std::int64_t>(from, 0);
         at <= to && at + std::ssize(window) <= std::ssize(samples); ++at) {
        bool same = true;
        for (std::size_t i = 0; i < window.size() && same; ++i)
            same = std::abs(samples[at + i] - window[i]) <= 1e-3f;
        if (same) return at;
    }
    return std::nullopt;
}

std::vector<float> soundOf(const fs::path& file, Player player = Player::ffmpeg) {
    return testing_support::decodeAudio(file, player, kSampleRate, 1).samples;
}

// What the composition should show, picture by picture: a source frame (the one showing
// at the in point first, from the range start), or black for a gap and before a stream that
// starts late; and when a source frame appears.
struct Picture {
    std::optional<std::pair<fs::path, std::size_t>> source;  // none: black
    double seconds = 0;
};

class Expected {
  public:
    explicit Expected(fs::path workDir) : workDir_(std::move(workDir)) {}

    void add(const Piece& piece) {
        const double start = start_;
        start_ += (piece.out - piece.in) / 600.0;
        if (piece.file.empty()) {
            for (std::int64_t t = 0; t < piece.out; t += kFrame) pictures_.push_back({});
            return;
        }
        const auto& video = decoded(piece.file);
        const auto& seconds = video.seconds;
        const double in = piece.in / 600.0;
        double shownFrom = -1;
        for (double t : seconds)
            if (t <= in + 1e-6) shownFrom = std::max(shownFrom, t);
        if (shownFrom < 0) {
            shownFrom = in;
            for (double t = in; !seconds.empty() && t < seconds.front() - 1e-6; t += 1 / 30.0)
                pictures_.push_back({});
        }
        for (std::size_t i = 0; i < seconds.size(); ++i) {
            if (seconds[i] >= shownFrom - 1e-6 && seconds[i] < piece.out / 600.0 - 1e-6)
                pictures_.push_back(
                    {std::pair{piece.file, i}, start + std::max(0.0, seconds[i] - in)});
        }
    }
    const std::vector<Picture>& pictures() const { return pictures_; }
    const testing_support::DecodedVideo& decoded(const fs::path& file) {
        auto [source, added] = sources_.try_emplace(file);
        if (added) {
            source->second = testing_support::decodeVideo(
                file, Player::ffmpeg, workDir_ / ("source" + std::to_string(sources_.size())));
        }
        return source->second;
    }

  private:
    fs::path workDir_;
    std::map<fs::path, testing_support::DecodedVideo> sources_;
    std::vector<Picture> pictures_;
    double start_ = 0;
};

// The frames the status line says a smart cut of `pieces` re-encodes, from probed clips.
std::size_t statusLineCount(const std::vector<Piece>& pieces) {
    std::vector<model::Clip> clips;
    double at = 0;
    for (const auto& p : pieces) {
        if (!p.file.empty()) {
            auto clip = media::probeClip(p.file, std::nullopt, common::Uuid::random(),
                                         media::ThumbnailPolicy::skip);
            EXPECT_TRUE(clip) << p.file;
            if (!clip) return 0;
            clip->inSeconds = p.in / 600.0;
            clip->outSeconds = p.out / 600.0;
            clip->startOnTimeline = at;
            clips.push_back(std::move(clip).value());
        }
        at += (p.out - p.in) / 600.0;
    }
    model::Project project;
    project.setClips(clips);
    return static_cast<std::size_t>(exporting::smartCutFrames(project).reencoded);
}

// Both players show the composition: the right number of frames at their times, copied
// frames identical to the source's, re-encoded ones (as many as the status line says, no more
// than `maxReencoded`) at 45 dB or better, gaps black; and each range's sound within half a
// coded frame of its place, gaps silent.
void expectPlayersShow(const fs::path& file, const std::vector<Piece>& pieces,
                       std::size_t maxReencoded, std::int64_t halfFrameSamples, bool countExact) {
    const std::size_t counted = statusLineCount(pieces);
    const fs::path work = file.parent_path();
    Expected expected(work);
    for (const auto& p : pieces) expected.add(p);
    for (Player player : testing_support::kPlayers) {
        SCOPED_TRACE(testing_support::playerName(player));
        const auto shown = testing_support::decodeVideo(file, player, work / "shown");
        ASSERT_TRUE(shown.error.empty()) << shown.error;
        const auto& want = expected.pictures();
        ASSERT_EQ(shown.frameCount(), want.size());
        std::size_t differing = 0;
        for (std::size_t i = 0; i < want.size(); ++i) {
            if (!want[i].source) {
                ++differing;
                EXPECT_TRUE(testing_support::looksBlack(shown.meanLuma[i])) << "frame " << i;
                continue;
            }
            const auto& [source, index] = *want[i].source;
            EXPECT_NEAR(shown.seconds[i], want[i].seconds, 0.001) << "frame " << i;
            const auto& original = expected.decoded(source);
            if (shown.hashes[i] == original.hashes[index]) continue;
            ++differing;
            EXPECT_GE(testing_support::psnr(shown.frame(i), original.frame(index)), 45.0)
                << "frame " << i;
        }
        EXPECT_LE(differing, maxReencoded);
        if (countExact) {
            EXPECT_EQ(differing, counted);
        }

        const auto sound = soundOf(file, player);
        std::int64_t at = 0;
        for (const auto& p : pieces) {
            const std::int64_t length = (p.out - p.in) * kSamplesPerTick;
            const std::int64_t start = at * kSamplesPerTick;
            at += p.out - p.in;
            if (p.file.empty()) {
                // A coded frame's tail and half a frame of placement may reach into a gap.
                for (std::int64_t i = start + 2048; i < start + length - 2048; ++i)
                    ASSERT_LE(std::abs(sound.at(i)), 1e-4f) << "gap sample " << i;
                continue;
            }
            const auto source = soundOf(p.file);
            const std::int64_t middle = p.in * kSamplesPerTick + length / 2;
            const std::vector<float> window(source.begin() + middle, source.begin() + middle + 256);
            const std::int64_t place = start + length / 2;
            const auto found = findSound(sound, window, place - 2048, place + 2048);
            ASSERT_TRUE(found) << "sound of " << p.file << " from " << p.in;
            EXPECT_LE(std::abs(*found - place), halfFrameSamples) << p.file << " from " << p.in;
        }
        EXPECT_NEAR(double(sound.size()), double(at * kSamplesPerTick), 1024.0);
    }
}

struct SmartCutCase {
    const char* name;
    std::function<fs::path()> source;
    std::vector<std::pair<std::int64_t, std::int64_t>> ranges;  // ticks; (0, d) is a gap of d
    std::size_t maxReencoded;
    ExportFormat format = ExportFormat::mp4;
    std::int64_t halfFrameSamples = 512;
    // The status line counts frames at the clip's average rate, exact but for varying rates.
    bool countExact = true;
};

class SmartCut : public testing::TestWithParam<SmartCutCase> {};

TEST_P(SmartCut, BothPlayersShowTheComposition) {
    const auto& param = GetParam();
    const fs::path source = param.source();
    std::vector<Piece> pieces;
    for (const auto& [in, out] : param.ranges)
        pieces.push_back(in == 0 && out < 0 ? gap(-out) : Piece{source, in, out});
    const auto dir = testing_support::freshDir(std::string("smart_") + param.name);
    const auto file = dir / (std::string("out.") + std::string(model::toString(param.format)));
    const auto written = passthroughAs(param.format)(compose(pieces, true), file, {}, {});
    ASSERT_TRUE(written) << written.error().message;
    const auto video = trackOf(file, "vide");
    ASSERT_TRUE(video);
    EXPECT_EQ(video->edits.size(), 1u);
    EXPECT_EQ(editsOf(file, "soun").size(), 1u);
    expectPlayersShow(file, pieces, param.maxReencoded, param.halfFrameSamples, param.countExact);
}

// Ranges in frames of 1/30 s; a gap is written (0, -duration).
constexpr std::int64_t f(std::int64_t frames) {
    return frames * kFrame;
}

INSTANTIATE_TEST_SUITE_P(
    Sources, SmartCut,
    testing::Values(
        SmartCutCase{"keyframe_cuts_copy_everything", movieA, {{f(30), f(90)}}, 0},
        SmartCutCase{"b_pyramid_join", bPyramid, {{f(10), f(100)}, {f(25), f(95)}}, 40},
        SmartCutCase{"b_pyramid_gap", bPyramid, {{f(5), f(65)}, {0, -f(15)}, {f(28), f(95)}}, 52},
        SmartCutCase{"open_gop_hevc", openGopHevc, {{f(12), f(70)}, {f(35), f(95)}}, 64},
        SmartCutCase{"b_pyramid_short_groups",
                     [] { return bPyramidIn(10); },
                     {{f(5), f(112)}, {f(3), f(58)}},
                     40},
        SmartCutCase{"open_gop_hevc_short_groups",
                     [] { return openGopHevcIn(10); },
                     {{f(5), f(112)}, {0, -f(6)}, {f(3), f(58)}},
                     60},
        SmartCutCase{"offset_tracks", offsetTracks, {{f(3), f(45)}, {f(50), f(100)}}, 62},
        SmartCutCase{"variable_rate",
                     variableRate,
                     {{f(8), f(70)}, {f(80), f(110)}},
                     60,
                     ExportFormat::mp4,
                     512,
                     false},
        SmartCutCase{"ntsc_rate", ntscRate, {{f(7), f(66)}, {f(71), f(100)}}, 60},
        SmartCutCase{"pcm_in_mov",
                     movieWithPcm,
                     {{f(4), f(65)}, {0, -f(10)}, {f(25), f(90)}},
                     46,
                     ExportFormat::mov,
                     1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PassthroughExport, RefusesWhatCannotBeCopiedSayingWhyAndWritingNothing) {
    const auto dir = testing_support::freshDir("smart_refuse");
    struct Case {
        composition::Composition composition;
        ExportFormat format;
        std::string says;
    };
    const std::vector<Case> cases{
        {CompositionBuilder().video(movieA(), 0, 600, 2.0).build(), ExportFormat::mp4, "speed"},
        {CompositionBuilder().clip(movieA(), 0, 600).build(), ExportFormat::wav,
         "holds no picture"},
        {CompositionBuilder().audio(movieWithPcm(), 1, 0, 600).build(), ExportFormat::mp4,
         "cannot hold"},
        {CompositionBuilder()
             .audio(aacOnly(), 0, 0, 600)
             .audioOnLane(1, aacOnly(), 0, 0, 600)
             .build(),
         ExportFormat::m4a, "lanes"},
    };
    for (const auto& c : cases) {
        const auto file = dir / (std::string("out.") + std::string(model::toString(c.format)));
        const auto result = exporting::exportPassthrough(c.composition, file, c.format, {}, {});
        ASSERT_FALSE(result) << c.says;
        EXPECT_NE(result.error().message.find(c.says), std::string::npos) << result.error().message;
        EXPECT_FALSE(fs::exists(file));
    }
}

TEST(PassthroughExport, AudioFormatsCopyTheirSoundPlacedRight) {
    const auto dir = testing_support::freshDir("smart_audio");
    const std::vector<std::pair<fs::path, ExportFormat>> cases{{aacOnly(), ExportFormat::m4a},
                                                               {pcmWave(), ExportFormat::wav}};
    for (const auto& [source, format] : cases) {
        const auto file = dir / (std::string("out.") + std::string(model::toString(format)));
        const auto c = CompositionBuilder()
                           .audio(source, 0, 33, 900)
                           .audioGap(300)
                           .audio(source, 0, 1200, 2000)
                           .build();
        ASSERT_TRUE(exporting::exportPassthrough(c, file, format, {}, {}));
        const auto samples = soundOf(file);
        const auto original = soundOf(source);
        EXPECT_NEAR(double(samples.size()), (867 + 300 + 800) * 80.0, 1024.0);
        const std::vector<float> window(original.begin() + 1500 * 80,
                                        original.begin() + 1500 * 80 + 256);
        const auto found = findSound(samples, window, 1467 * 80 - 2048, 1467 * 80 + 2048);
        ASSERT_TRUE(found) << source;
        EXPECT_LE(std::abs(*found - 1467 * 80), format == ExportFormat::wav ? 0 : 512);
    }
}

// AAC frames at 12 kHz last 85 ms: a second from half a second in ends 0.72 of a frame into
// the twelfth, which is copied whole and must be played whole.
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

TEST(PassthroughExport, CancellingOrAVanishedSourceLeavesNoFile) {
    const auto dir = testing_support::freshDir("smart_cancel");
    expectCancellingLeavesNothing(passthroughAs(ExportFormat::mp4),
                                  CompositionBuilder().clip(movieA(), 0, 2400).build(),
                                  dir / "out.mp4", 0.3);
    expectVanishedSourceFails("smart_vanished", passthroughAs(ExportFormat::mp4));
}

}  // namespace
