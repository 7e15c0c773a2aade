#include <algorithm>
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
using testing_support::DecodedVideo;
using testing_support::Player;
using testing_support::playerName;

// A fresh folder per test for its output and the frames the players decode.
class Fidelity : public testing::Test {
  protected:
    fs::path reencoded(const composition::Composition& c, const std::string& name,
                       const exporting::ReencodeSettings& settings) {
        const auto out = dir_ / (name + ".mp4");
        const auto result =
            exporting::exportReencoded(c, out, model::ExportFormat::mp4, settings, {}, {});
        EXPECT_TRUE(result) << result.error().message;
        return out;
    }
    DecodedVideo decode(const fs::path& file, Player player,
                        const testing_support::VideoDecodeOptions& options = {}) {
        const auto work = dir_ / (file.stem().string() + "-" + playerName(player));
        auto video = testing_support::decodeVideo(file, player, work, options);
        EXPECT_EQ(video.error, "") << file;
        return video;
    }

  private:
    const testing::TestInfo& test_ = *testing::UnitTest::GetInstance()->current_test_info();
    fs::path dir_ =
        testing_support::freshDir(std::string(test_.test_suite_name()) + "." + test_.name());
};

class BothPlayers : public Fidelity, public testing::WithParamInterface<Player> {};

// A steady tone muxed to start half a second after the picture, as the mp4 muxer writes such
// a file (an empty edit first on the sound track), is silent until its place on the movie's
// clock. Pictures that start late are the renderer's, and tested with it.
TEST_P(BothPlayers, ALateSoundKeepsItsPlaceOnTheMoviesClock) {
    const auto picture = makeMedia("fidelity_picture.mp4", kPicture + "-t 3 " + kH264 + "-an");
    const auto tone =
        makeMedia("fidelity_tone.m4a",
                  "-f lavfi -i sine=frequency=500:sample_rate=48000 -t 3 -c:a aac -b:a 128k");
    const auto late = makeMedia("fidelity_late_sound.mp4",
                                "-i " + quote(picture.string()) + " -itsoffset 0.5 -i " +
                                    quote(tone.string()) + " -map 0 -map 1 -c copy");
    const auto out =
        reencoded(CompositionBuilder().clip(late, 0, 1200).build(), "late", plain(160, 120));
    const auto sound = testing_support::decodeAudio(out, GetParam());
    ASSERT_EQ(sound.error, "");
    EXPECT_LT(sound.peakBetween(0, 0.45), 0.01);
    EXPECT_GT(sound.peakBetween(0.55, 1.9), 0.05);
    EXPECT_NEAR(sound.seconds(), 2.0, 0.03);
}

// Loud sound on all six channels: a plain downmix would sum three of them into each side.
TEST_P(BothPlayers, FivePointOneDownmixedToStereoStaysWithinFullScale) {
    const std::string loud = "0.9*sin(600*PI*t)";
    const auto source =
        makeMedia("fidelity_51_loud.mp4", "-f lavfi -i \"aevalsrc=" + loud + "|" + loud + "|" +
                                              loud + "|" + loud + "|" + loud + "|" + loud +
                                              ":c=5.1:s=48000\" -t 1 -c:a aac -b:a 384k");
    const auto out = reencoded(CompositionBuilder().audio(source, 0, 0, 600).build(), "downmix",
                               plain(160, 120));
    const auto sound = testing_support::decodeAudio(out, GetParam());
    ASSERT_EQ(sound.error, "");
    EXPECT_LT(sound.peakBetween(0, 1), 0.99f);
    EXPECT_GT(sound.peakBetween(0, 1), 0.5f);
}

// Pixels a third wider than tall, stored 240 wide and shown 320 wide: the output, made at the
// shown size, is filled by the picture as players show it.
TEST_P(BothPlayers, NonSquarePixelsAreLaidOutAtTheirShownSize) {
    const auto source =
        makeMedia("fidelity_anamorphic.mp4",
                  "-f lavfi -i testsrc2=size=240x180:rate=30 -t 1 -vf setsar=4/3 " + kH264 + "-an");
    const auto out = reencoded(CompositionBuilder().video(source, 0, 600).build(), "anamorphic",
                               plain(320, 180));
    const testing_support::VideoDecodeOptions shown{testing_support::PixelLayout::i420,
                                                    std::pair{320, 180}};
    const DecodedVideo before = decode(source, GetParam(), shown);
    const DecodedVideo after = decode(out, GetParam(), shown);
    ASSERT_EQ(after.frameCount(), before.frameCount());
    EXPECT_GT(testing_support::psnr(after.frame(10), before.frame(10)), 30);
}

INSTANTIATE_TEST_SUITE_P(Reencode, BothPlayers, testing::ValuesIn(testing_support::kPlayers),
                         [](const auto& info) { return std::string(playerName(info.param)); });

// A container that says square pixels over a bitstream that says otherwise, as a phone's
// slow-motion recording has it: players show the container's shape, and so do both roads.
TEST_F(Fidelity, PixelShapeIsTheContainersWhereTheBitstreamSaysOtherwise) {
    const auto square = makeMedia(
        "fidelity_square.mp4", "-f lavfi -i testsrc2=size=320x180:rate=30 -t 1 " + kH264 + "-an");
    const auto source =
        testing_support::makeMediaFrom("fidelity_square_inside_narrow.mp4", square,
                                       "-c copy -bsf:v h264_metadata=sample_aspect_ratio=27/64");
    const auto clip = CompositionBuilder().video(source, 45, 555).build();
    const auto after = decode(reencoded(clip, "shape_inside", plain(320, 180)), Player::ffmpeg);
    ASSERT_GT(after.frameCount(), 10u);
    EXPECT_GT(testing_support::psnr(after.frame(10), decode(source, Player::ffmpeg).frame(12)), 30);

    const auto copied = testing_support::freshDir("shape_inside") / "smart.mp4";
    const auto written =
        exporting::exportPassthrough(clip, copied, model::ExportFormat::mp4, {}, {});
    ASSERT_TRUE(written) << written.error().message;
    EXPECT_EQ(probe(copied, "stream=sample_aspect_ratio", "v:0"), "1:1\n");
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
    return makeMedia("fidelity_bars_" + c.name + ".mp4", c.args + " -t 1 " + kH264 + "-an");
}

const std::string kBt709 = "-colorspace bt709 -color_primaries bt709 -color_trc bt709 ";
const std::string kHdBars = "-f lavfi -i smptehdbars=size=1280x720:rate=30 ";
const BarsCase kBars[] = {
    {"sd601",
     "-f lavfi -i smptebars=size=640x480:rate=30 -colorspace smpte170m -color_primaries "
     "smpte170m -color_trc smpte170m -color_range tv",
     640, 480},
    {"hd709", kHdBars + kBt709 + "-color_range tv", 1280, 720},
    {"hd709full",
     kHdBars + "-vf scale=out_range=full -pix_fmt yuvj420p " + kBt709 + "-color_range pc", 1280,
     720, true},
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
            sum.r += frame[i] / 81.0;
            sum.g += frame[i + 1] / 81.0;
            sum.b += frame[i + 2] / 81.0;
        }
    return sum;
}

const testing_support::VideoDecodeOptions kRgb{testing_support::PixelLayout::rgb24, {}};

class ColourBars : public Fidelity,
                   public testing::WithParamInterface<std::tuple<BarsCase, Player>> {};

// Each source joined with HD BT.709 bars, so the output is HD: every clip must come back in
// its own colours, whatever its matrix and range.
TEST_P(ColourBars, ComeBackWithinTwoCodeValuesAndTheOutputIsTaggedBt709Limited) {
    const auto& [c, player] = GetParam();
    const auto source = bars(c);
    const auto partner = bars(kBars[1]);
    const auto out =
        reencoded(CompositionBuilder().video(source, 0, 300).video(partner, 0, 300).build(), "bars",
                  plain(1280, 720));
    EXPECT_EQ(probe(out, "stream=color_range,color_space,color_transfer,color_primaries", "v:0"),
              "tv,bt709,bt709,bt709\n");

    // Each player against its own reading of the bars, whose conversion to RGB rounds its
    // own way; a full-range source against the same bars in limited range, as GStreamer 1.22
    // reads full-range H.264 as limited.
    const DecodedVideo before = decode(c.fullRange ? partner : source, player, kRgb);
    const DecodedVideo after = decode(out, player, kRgb);
    ASSERT_GT(after.frameCount(), 10u);
    // The source fitted whole into the output, centred.
    const double scale = std::min(1280.0 / c.width, 720.0 / c.height);
    const double left = (1280 - c.width * scale) / 2;
    for (int bar = 0; bar < 7; ++bar) {
        const double x = (bar + 0.5) / 7;
        const Rgb want = patch(before.frame(5), c.width, int(x * c.width), int(0.3 * c.height));
        const Rgb got = patch(after.frame(5), 1280, int(left + x * c.width * scale), 216);
        EXPECT_NEAR(got.r, want.r, 2) << "bar " << bar;
        EXPECT_NEAR(got.g, want.g, 2) << "bar " << bar;
        EXPECT_NEAR(got.b, want.b, 2) << "bar " << bar;
    }
}

INSTANTIATE_TEST_SUITE_P(Reencode, ColourBars,
                         testing::Combine(testing::ValuesIn(kBars),
                                          testing::ValuesIn(testing_support::kPlayers)),
                         [](const auto& info) {
                             return std::get<0>(info.param).name + "_" +
                                    playerName(std::get<1>(info.param));
                         });

// HLG from a camera that films in HDR: tone-mapped into SDR BT.709, neither black nor
// washed into one colour.
TEST_F(Fidelity, HlgSourceIsToneMappedIntoTaggedSdr) {
    const auto source = makeMedia(
        "fidelity_hlg.mp4",
        kHdBars +
            "-t 1 -vf "
            "zscale=tin=709:min=709:pin=709:t=arib-std-b67:m=2020_ncl:p=2020,format=yuv420p10le "
            "-c:v libx264 -preset ultrafast -colorspace bt2020nc -color_primaries bt2020 "
            "-color_trc arib-std-b67 -an");
    const auto out =
        reencoded(CompositionBuilder().video(source, 0, 300).build(), "hlg", plain(1280, 720));
    EXPECT_EQ(probe(out, "stream=pix_fmt,color_space,color_transfer", "v:0"),
              "yuv420p,bt709,bt709\n");
    const auto frame = decode(out, Player::ffmpeg, kRgb).frame(0);
    // The grey bar on the left stays grey; yellow and blue bars stay apart.
    const Rgb grey = patch(frame, 1280, 90, 200);
    EXPECT_NEAR(grey.r, grey.g, 12);
    EXPECT_NEAR(grey.g, grey.b, 12);
    EXPECT_GT(grey.g, 60);
    const Rgb yellow = patch(frame, 1280, 365, 200);
    EXPECT_GT(yellow.r, yellow.b + 60);
}

// An AVI whose sound header states a rate a hundred times the real one, as some phones write
// it: FFmpeg stamps its packets a hundredth of their length apart, while players play the
// samples one after another from the start. A range from the middle sounds in its place.
TEST_F(Fidelity, AviSoundStampedAtAWrongRateStaysInPlace) {
    const auto made = makeMedia("fidelity_avi.avi",
                                kPicture + kSweep + "-t 3 " + kH264 + "-c:a libmp3lame -ac 1");
    std::string bytes = testing_support::contentsOf(made);
    const std::size_t header = bytes.find("auds");  // the sound's stream header
    ASSERT_NE(header, std::string::npos);
    const auto field = [&](std::size_t at) -> std::uint32_t {
        std::uint32_t value = 0;
        for (int i = 3; i >= 0; --i) value = value << 8 | std::uint8_t(bytes[header + at + i]);
        return value;
    };
    const auto set = [&](std::size_t at, std::uint32_t value) {
        for (int i = 0; i < 4; ++i) bytes[header + at + i] = char(value >> (8 * i));
    };
    set(24, field(24) * 100);  // rate
    set(32, field(32) * 100);  // length
    set(44, 1);                // sample size
    const auto source = testing_support::makeFile("fidelity_avi_fast.avi", bytes);

    const auto out = reencoded(CompositionBuilder().clip(source, 600, 1500).build(), "avi-rate",
                               plain(160, 120));
    const auto before = testing_support::decodeAudio(source, Player::ffmpeg, 48000, 1).samples;
    const auto after = testing_support::decodeAudio(out, Player::ffmpeg, 48000, 1).samples;
    // The output's sound at 0.5 s is the source's at 1.5 s, found within a millisecond.
    constexpr std::int64_t kWindow = 4800, kAt = 24000, kExpected = 72000, kSearch = 2400;
    ASSERT_GE(std::ssize(after), kAt + kWindow);
    ASSERT_GE(std::ssize(before), kExpected + kSearch + kWindow);
    double energy = 0;
    for (std::int64_t i = 0; i < kWindow; ++i) energy += double(after[kAt + i]) * after[kAt + i];
    double least = 1e300;
    std::int64_t lag = 0;
    for (std::int64_t d = -kSearch; d <= kSearch; ++d) {
        double error = 0;
        for (std::int64_t i = 0; i < kWindow && error < least; ++i) {
            const double e = double(after[kAt + i]) - before[kExpected + d + i];
            error += e * e;
        }
        if (error < least) {
            least = error;
            lag = d;
        }
    }
    EXPECT_GT(energy, 1.0);
    EXPECT_LT(least, energy * 0.05);
    EXPECT_LE(std::abs(lag), 48);
}

}  // namespace
