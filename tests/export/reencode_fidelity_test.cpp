#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_media.h"
#include "export/passthrough_export.h"
#include "export/reencode_export.h"
#include "support/player_decode.h"

// The re-encoding road's output as both Linux player stacks show it, against the source as
// the same stack shows it.
namespace {

namespace fs = std::filesystem;
using namespace export_media;
using testing_support::DecodedAudio;
using testing_support::DecodedVideo;
using testing_support::Player;
using testing_support::playerName;

fs::path reencoded(const composition::Composition& c, const std::string& name,
                   const exporting::ReencodeSettings& settings) {
    const auto out = testing_support::freshDir(name) / "out.mp4";
    const auto result =
        exporting::exportReencoded(c, out, model::ExportFormat::mp4, settings, {}, {});
    EXPECT_TRUE(result) << result.error().message;
    return out;
}

// The frame of `video` shown at `seconds`: the last one that starts at or before it.
std::size_t frameAt(const DecodedVideo& video, double seconds) {
    std::size_t index = 0;
    while (index + 1 < video.seconds.size() && video.seconds[index + 1] <= seconds + 1e-6) ++index;
    return index;
}

// Picture moving every frame, and sound that is a steady tone, made apart and muxed with
// one of them starting half a second after the other, as the mp4 muxer writes such a
// file: an empty edit first on the later track.
fs::path offsetMovie(const std::string& name, const std::string& lateStream) {
    const auto picture = makeMedia(
        "fidelity_picture.mp4", "-f lavfi -i testsrc2=size=160x120:rate=30 -t 3 " + h264() + "-an");
    const auto sound =
        makeMedia("fidelity_tone.m4a",
                  "-f lavfi -i sine=frequency=500:sample_rate=48000 -t 3 -c:a aac -b:a 128k");
    const bool videoLate = lateStream == "video";
    return makeMedia(name, std::string(videoLate ? "-itsoffset 0.5 " : "") + "-i " +
                               quote(picture.string()) + (videoLate ? " " : " -itsoffset 0.5 ") +
                               "-i " + quote(sound.string()) + " -map 0 -map 1 -c copy");
}

class OffsetTracks : public testing::TestWithParam<Player> {};

TEST_P(OffsetTracks, LateVideoKeepsItsPlaceOnTheMoviesClockWithBlackBefore) {
    const Player player = GetParam();
    const auto source = offsetMovie("fidelity_late_video.mp4", "video");
    const auto out = reencoded(CompositionBuilder().clip(source, 0, 2 * 600).build(), "late-video",
                               plain(160, 120));
    const auto work = testing_support::freshDir(std::string("late-video-") + playerName(player));
    const DecodedVideo before = testing_support::decodeVideo(source, player, work / "source");
    const DecodedVideo after = testing_support::decodeVideo(out, player, work / "out");
    ASSERT_EQ(before.error, "");
    ASSERT_EQ(after.error, "");
    ASSERT_EQ(after.frameCount(), 60u);
    EXPECT_NEAR(before.seconds.front(), 0.5, 0.001);
    for (double t : {0.0, 0.4})
        EXPECT_TRUE(testing_support::looksBlack(after.meanLuma[frameAt(after, t)])) << t;
    for (double t : {0.5, 1.0, 1.9}) {
        const double match =
            testing_support::psnr(after.frame(frameAt(after, t)), before.frame(frameAt(before, t)));
        EXPECT_GT(match, 35) << "at " << t << " s";
    }
}

TEST_P(OffsetTracks, LateSoundIsSilentUntilItsPlaceOnTheMoviesClock) {
    const Player player = GetParam();
    const auto source = offsetMovie("fidelity_late_sound.mp4", "audio");
    const auto out = reencoded(CompositionBuilder().clip(source, 0, 2 * 600).build(), "late-sound",
                               plain(160, 120));
    const DecodedAudio audio = testing_support::decodeAudio(out, player);
    ASSERT_EQ(audio.error, "");
    EXPECT_LT(audio.peakBetween(0, 0.45), 0.01);
    EXPECT_GT(audio.peakBetween(0.55, 1.9), 0.05);
    EXPECT_NEAR(audio.seconds(), 2.0, 0.03);
}

// Loud sound on all six channels: a plain downmix would sum three of them into each side.
TEST_P(OffsetTracks, FivePointOneDownmixedToStereoStaysWithinFullScale) {
    const Player player = GetParam();
    const auto source =
        makeMedia("fidelity_51_loud.mp4",
                  "-f lavfi -i \"aevalsrc=0.9*sin(600*PI*t)|0.9*sin(600*PI*t)|0.9*sin(600*PI*t)|"
                  "0.9*sin(600*PI*t)|0.9*sin(600*PI*t)|0.9*sin(600*PI*t):c=5.1:s=48000\" -t 1 "
                  "-c:a aac -b:a 384k");
    const auto out = reencoded(CompositionBuilder().audio(source, 0, 0, 600).build(), "downmix",
                               plain(160, 120));
    const DecodedAudio audio = testing_support::decodeAudio(out, player);
    ASSERT_EQ(audio.error, "");
    EXPECT_LT(audio.peakBetween(0, 1), 0.99f);
    EXPECT_GT(audio.peakBetween(0, 1), 0.5f);
}

INSTANTIATE_TEST_SUITE_P(BothPlayers, OffsetTracks, testing::ValuesIn(testing_support::kPlayers),
                         [](const auto& info) { return std::string(playerName(info.param)); });

// Pixels a third wider than tall, stored 240 wide and shown 320 wide: the output, made at the
// shown size, is filled by the picture as players show it.
TEST_P(OffsetTracks, NonSquarePixelsAreLaidOutAtTheirShownSize) {
    const Player player = GetParam();
    const auto source = makeMedia(
        "fidelity_anamorphic.mp4",
        "-f lavfi -i testsrc2=size=240x180:rate=30 -t 1 -vf setsar=4/3 " + h264() + "-an");
    const auto out = reencoded(CompositionBuilder().video(source, 0, 600).build(), "anamorphic",
                               plain(320, 180));
    const auto work = testing_support::freshDir(std::string("anamorphic-") + playerName(player));
    const testing_support::VideoDecodeOptions shown{testing_support::PixelLayout::i420,
                                                    std::pair{320, 180}};
    const DecodedVideo before =
        testing_support::decodeVideo(source, player, work / "source", shown);
    const DecodedVideo after = testing_support::decodeVideo(out, player, work / "out", shown);
    ASSERT_EQ(before.error, "");
    ASSERT_EQ(after.error, "");
    ASSERT_EQ(after.frameCount(), before.frameCount());
    EXPECT_GT(testing_support::psnr(after.frame(10), before.frame(10)), 30);
}

// A container that says square pixels over a bitstream that says otherwise, as a phone's
// slow-motion recording has it: players show the container's shape, and so do both roads.
TEST(ReencodeFidelity, PixelShapeIsTheContainersWhereTheBitstreamSaysOtherwise) {
    const auto square = makeMedia(
        "fidelity_square.mp4", "-f lavfi -i testsrc2=size=320x180:rate=30 -t 1 " + h264() + "-an");
    const auto source = makeMediaFrom("fidelity_square_inside_narrow.mp4", square,
                                      "-c copy -bsf:v h264_metadata=sample_aspect_ratio=27/64");
    const auto clip = CompositionBuilder().video(source, 45, 555).build();
    const auto out = reencoded(clip, "shape_inside", plain(320, 180));
    const auto work = testing_support::freshDir("shape_inside-decoded");
    const DecodedVideo before = testing_support::decodeVideo(source, Player::ffmpeg, work / "in");
    const DecodedVideo after = testing_support::decodeVideo(out, Player::ffmpeg, work / "out");
    ASSERT_EQ(after.error, "");
    ASSERT_GT(after.frameCount(), 10u);
    EXPECT_GT(testing_support::psnr(after.frame(10), before.frame(12)), 30);

    const auto copied = work / "smart.mp4";
    const auto written =
        exporting::exportPassthrough(clip, copied, model::ExportFormat::mp4, {}, {});
    ASSERT_TRUE(written) << written.error().message;
    EXPECT_EQ(
        testing_support::ffprobe(
            copied, "-select_streams v:0 -show_entries stream=sample_aspect_ratio -of csv=p=0"),
        "1:1\n");
}

// Colour bars made in one colour description each, tagged with it.
struct BarsCase {
    std::string name;
    std::string args;  // ffmpeg arguments making a one-second clip
    int width = 0;
    int height = 0;
    bool fullRange = false;
};

fs::path bars(const BarsCase& c) {
    return makeMedia("fidelity_bars_" + c.name + ".mp4", c.args + " -t 1 " + h264() + "-an");
}

const std::string kHd709 =
    "-f lavfi -i smptehdbars=size=1280x720:rate=30 -colorspace bt709 -color_primaries bt709 "
    "-color_trc bt709 -color_range tv";

const BarsCase kBars[] = {
    {"sd601",
     "-f lavfi -i smptebars=size=640x480:rate=30 -colorspace smpte170m -color_primaries "
     "smpte170m -color_trc smpte170m -color_range tv",
     640, 480},
    {"hd709", kHd709, 1280, 720},
    {"hd709full",
     "-f lavfi -i smptehdbars=size=1280x720:rate=30 -vf scale=out_range=full -pix_fmt yuvj420p "
     "-colorspace bt709 -color_primaries bt709 -color_trc bt709 -color_range pc",
     1280, 720, true},
};

struct Rgb {
    double r = 0, g = 0, b = 0;
};

// The mean colour of a 9 x 9 patch around (x, y) of an RGB frame.
Rgb patch(const std::vector<std::uint8_t>& frame, int width, int x, int y) {
    Rgb sum;
    for (int dy = -4; dy <= 4; ++dy)
        for (int dx = -4; dx <= 4; ++dx) {
            const std::size_t i = (std::size_t(y + dy) * width + x + dx) * 3;
            sum.r += frame[i];
            sum.g += frame[i + 1];
            sum.b += frame[i + 2];
        }
    return {sum.r / 81, sum.g / 81, sum.b / 81};
}

class ColourBars : public testing::TestWithParam<std::tuple<BarsCase, Player>> {};

// Each source joined with HD BT.709 bars, so the output is HD: every clip must come back in
// its own colours, whatever its matrix and range.
TEST_P(ColourBars, ComeBackWithinTwoCodeValuesAndTheOutputIsTaggedBt709Limited) {
    const auto& [c, player] = GetParam();
    const auto source = bars(c);
    const auto partner = bars(kBars[1]);
    const auto out =
        reencoded(CompositionBuilder().video(source, 0, 300).video(partner, 0, 300).build(),
                  "bars-" + c.name, plain(1280, 720));
    EXPECT_EQ(testing_support::ffprobe(out,
                                       "-select_streams v:0 -show_entries "
                                       "stream=color_space,color_transfer,color_primaries,"
                                       "color_range -of csv=p=0"),
              "tv,bt709,bt709,bt709\n");

    const auto work = testing_support::freshDir("bars-" + c.name + "-" + playerName(player));
    const testing_support::VideoDecodeOptions rgb{testing_support::PixelLayout::rgb24, {}};
    // Each player against its own reading of the bars, whose conversion to RGB rounds its
    // own way; a full-range source against the same bars in limited range, as GStreamer 1.22
    // reads full-range H.264 as limited.
    const DecodedVideo before =
        testing_support::decodeVideo(c.fullRange ? partner : source, player, work / "source", rgb);
    const DecodedVideo after = testing_support::decodeVideo(out, player, work / "out", rgb);
    ASSERT_EQ(before.error, "");
    ASSERT_EQ(after.error, "");
    ASSERT_GT(after.frameCount(), 10u);
    const auto sourceFrame = before.frame(5);
    const auto outputFrame = after.frame(5);
    // The source fitted whole into the output, centred.
    const double scale = std::min(1280.0 / c.width, 720.0 / c.height);
    const double left = (1280 - c.width * scale) / 2;
    for (int bar = 0; bar < 7; ++bar) {
        const double fx = (bar + 0.5) / 7;
        const double fy = 0.3;
        const Rgb want = patch(sourceFrame, c.width, int(fx * c.width), int(fy * c.height));
        const Rgb got = patch(outputFrame, 1280, int(left + fx * c.width * scale), int(fy * 720));
        EXPECT_NEAR(got.r, want.r, 2) << "bar " << bar;
        EXPECT_NEAR(got.g, want.g, 2) << "bar " << bar;
        EXPECT_NEAR(got.b, want.b, 2) << "bar " << bar;
    }
}

INSTANTIATE_TEST_SUITE_P(BothPlayers, ColourBars,
                         testing::Combine(testing::ValuesIn(kBars),
                                          testing::ValuesIn(testing_support::kPlayers)),
                         [](const auto& info) {
                             return std::get<0>(info.param).name + "_" +
                                    playerName(std::get<1>(info.param));
                         });

// HLG from a camera that films in HDR: tone-mapped into SDR BT.709, neither black nor
// washed into one colour.
TEST(ReencodeFidelity, HlgSourceIsToneMappedIntoTaggedSdr) {
    const auto source = makeMedia(
        "fidelity_hlg.mp4",
        "-f lavfi -i smptehdbars=size=1280x720:rate=30 -t 1 -vf "
        "zscale=tin=709:min=709:pin=709:t=arib-std-b67:m=2020_ncl:p=2020,format=yuv420p10le "
        "-c:v libx264 -preset ultrafast -colorspace bt2020nc -color_primaries bt2020 -color_trc "
        "arib-std-b67 -an");
    const auto out =
        reencoded(CompositionBuilder().video(source, 0, 300).build(), "hlg", plain(1280, 720));
    EXPECT_EQ(testing_support::ffprobe(out,
                                       "-select_streams v:0 -show_entries "
                                       "stream=pix_fmt,color_space,color_transfer -of csv=p=0"),
              "yuv420p,bt709,bt709\n");
    const auto work = testing_support::freshDir("hlg-decoded");
    const DecodedVideo after = testing_support::decodeVideo(
        out, Player::ffmpeg, work, {testing_support::PixelLayout::rgb24, {}});
    ASSERT_EQ(after.error, "");
    const auto frame = after.frame(0);
    // The grey bar on the left stays grey; yellow and blue bars stay apart.
    const Rgb grey = patch(frame, 1280, 90, 200);
    EXPECT_NEAR(grey.r, grey.g, 12);
    EXPECT_NEAR(grey.g, grey.b, 12);
    EXPECT_GT(grey.g, 60);
    const Rgb yellow = patch(frame, 1280, 365, 200);
    EXPECT_GT(yellow.r, yellow.b + 60);
}

}  // namespace
