#include "export/reencode_export.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "composition/crop_frame.h"
#include "export/export_media.h"
#include "support/player_decode.h"

// The re-encoding road's files, and what both player stacks show of them and of the source.
namespace {

namespace fs = std::filesystem;
using namespace export_media;
using exporting::Framing;
using model::ExportFormat;
using testing_support::DecodedVideo;
using testing_support::Player;
using testing_support::playerName;

constexpr int kSecond = common::MediaTime::kTicksPerSecond;
const testing_support::VideoDecodeOptions kRgb{testing_support::PixelLayout::rgb24, {}};

struct Rgb {
    double r = 0, g = 0, b = 0;
};
constexpr Rgb kRed{255, 0, 0}, kGreen{0, 128, 0}, kBlue{0, 0, 255}, kWhite{255, 255, 255};

// The mean colour of the square of `radius` around (x, y) of an RGB frame.
Rgb patch(const std::vector<std::uint8_t>& frame, int width, int x, int y, int radius = 4) {
    Rgb sum;
    const double n = (2 * radius + 1) * (2 * radius + 1);
    for (int dy = -radius; dy <= radius; ++dy)
        for (int dx = -radius; dx <= radius; ++dx) {
            const std::size_t i = (std::size_t(y + dy) * width + x + dx) * 3;
            sum.r += frame.at(i) / n;
            sum.g += frame.at(i + 1) / n;
            sum.b += frame.at(i + 2) / n;
        }
    return sum;
}

// The big-endian 32-bit number at `at` of `bytes`.
std::int32_t big32(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + 4 && i < bytes.size(); ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return static_cast<std::int32_t>(value);
}

// A fresh folder per test for its output and the frames the players decode.
class Reencode : public testing::Test {
  protected:
    fs::path reencoded(const composition::Composition& c, const std::string& name,
                       const exporting::ReencodeSettings& settings,
                       ExportFormat format = ExportFormat::mp4) {
        const auto out = dir / name;
        const auto result = exporting::exportReencoded(c, out, format, settings, {}, {});
        EXPECT_TRUE(result) << result.error().message;
        return out;
    }
    DecodedVideo decode(const fs::path& file, Player player = Player::ffmpeg,
                        const testing_support::VideoDecodeOptions& options = {}) {
        const auto work = dir / (file.stem().string() + "-" + playerName(player));
        auto video = testing_support::decodeVideo(file, player, work, options);
        EXPECT_EQ(video.error, "") << file;
        return video;
    }

    fs::path dir =
        testing_support::freshDir(testing::UnitTest::GetInstance()->current_test_info()->name());
};

// A sound alone makes an mp4 without video; a colon is part of a file's name.
TEST_F(Reencode, WritesTheFormatsOwnContainerStreamsAndLength) {
    const auto movie = CompositionBuilder().clip(movieA(), 10 * kFrameTicks, 70 * kFrameTicks);
    const auto sound = CompositionBuilder().audio(aacOnly(), 0, 0, 2 * kSecond);
    const std::string video = "h264,High,video,160,120,yuv420p\n", aac = "aac,LC,audio,48000,2\n",
                      pcm = "pcm_s16le,unknown,audio,48000,2\n",
                      isom = "\"mov,mp4,m4a,3gp,3g2,mj2\",";
    struct Row {
        std::string name;
        ExportFormat format;
        const CompositionBuilder& composition;
        std::string streams, container;  // codec, profile, kind, size and sound; name and brand
    };
    const Row rows[] = {{"out.mp4", ExportFormat::mp4, movie, video + aac, isom + "isom\n"},
                        {"out.mov", ExportFormat::mov, movie, video + aac, isom + "qt  \n"},
                        {"out.m4a", ExportFormat::m4a, movie, aac, isom + "M4A \n"},
                        {"out.wav", ExportFormat::wav, movie, pcm, "wav\n"},
                        {"sound.mp4", ExportFormat::mp4, sound, aac, isom + "isom\n"},
                        {"take:2.wav", ExportFormat::wav, sound, pcm, "wav\n"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto file = dir / row.name;
        const bool pictures = &row.composition == &movie;
        std::vector<double> reports;
        ASSERT_TRUE(exporting::exportReencoded(
            row.composition.build(), file, row.format,
            pictures ? plain(160, 120)
                     : exporting::ReencodeSettings{std::nullopt, Framing::whole, 30},
            [&](double fraction) { reports.push_back(fraction); }, {}));
        EXPECT_EQ(probe(file,
                        "stream=codec_type,codec_name,profile,pix_fmt,width,height,"
                        "sample_rate,channels"),
                  row.streams);
        EXPECT_EQ(probe(file, "format=format_name:format_tags=major_brand"), row.container);
        if (row.streams.starts_with("h264")) {
            EXPECT_EQ(probe(file, "stream=r_frame_rate,nb_read_frames", "v:0"), "30/1,60\n");
        }
        EXPECT_NEAR(std::stod(probe(file, "stream=duration", "a:0")), 2.0, 1024.0 / 48000);
        EXPECT_NEAR(std::stod(probe(file, "format=duration")), 2.0, 1.0 / 30);
        // The sound decodes to exactly its length, priming and padding removed.
        EXPECT_NEAR(soundOf(file).seconds(), 2.0, 1024.0 / 48000);
        // The movie box comes first, so a player can start before the whole file is there.
        const auto types = row.format == ExportFormat::wav ? "moov" : topLevelTypes(file);
        EXPECT_LT(types.find("moov"), types.find("mdat"));
        ASSERT_FALSE(reports.empty());
        EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
        EXPECT_EQ(reports.back(), 1.0);
    }
}

TEST_F(Reencode, JoinsClipsOfDifferentSizesAndGapsOnBlackInSilence) {
    const auto a = movieA();
    const auto wide = makeMedia("reencode_wide.mp4",
                                "-f lavfi -i testsrc2=size=96x54:rate=30 -t 2 " + kH264 + "-an");
    const auto c = CompositionBuilder()
                       .clip(a, 0, kSecond)
                       .video(wide, 0, kSecond)
                       .gap(kSecond)
                       .gap(2 * kSecond, 0)
                       .clip(a, kSecond, 2 * kSecond)
                       .build();
    const auto out = reencoded(c, "out.mov", plain(160, 120), ExportFormat::mov);
    EXPECT_EQ(probe(out, "stream=width,height,nb_read_frames", "v:0"), "160,120,120\n");
    const auto video = decode(out, Player::ffmpeg, kRgb);
    ASSERT_EQ(video.frameCount(), 120u);
    const auto brightest = [&](double seconds) {
        const auto frame = video.frame(std::size_t(seconds * 30));
        return *std::max_element(frame.begin(), frame.end());
    };
    // How each clip is fitted is the renderer's; the colour bars show it through both players.
    EXPECT_GT(brightest(1.5), 100);
    EXPECT_LT(brightest(2.5), 24);
    EXPECT_GT(brightest(3.5), 100);

    const auto sound = soundOf(out);
    ASSERT_GE(sound.seconds(), 4 - 1024.0 / kSampleRate);
    EXPECT_GT(sound.peakBetween(0.2, 0.8), 0.09);
    EXPECT_LT(sound.peakBetween(1.1, 2.9), 0.001);
    EXPECT_GT(sound.peakBetween(3.2, 3.8), 0.09);
}

// 4:2:0 codes an odd size a pixel larger; the movie says which pixels to show.
TEST_F(Reencode, CropKeepsItsExactSizeAndShowsTheCroppedPart) {
    const auto source = makeMedia(
        "reencode_quadrants.mp4",
        "-filter_complex \"color=c=red:s=80x60:r=30:d=2[a];color=c=green:s=80x60:r=30:d=2[b];"
        "color=c=blue:s=80x60:r=30:d=2[c];color=c=white:s=80x60:r=30:d=2[d];[a][b]hstack[top];"
        "[c][d]hstack[bottom];[top][bottom]vstack\" " +
            kH264);
    struct Case {
        double leading, trailing, top, bottom;
        int width, height;  // as coded
        // The track header's width and height, then the clean aperture's fractions.
        std::vector<std::int32_t> shown;
    };
    for (const auto& c :
         {Case{0.1, 0.26875, 0.1, 0.425, 102, 58, {101, 57, 101, 1, 57, 1, -1, 2, -1, 2}},
          Case{0.25, 0, 0.25, 0, 120, 90, {120, 90}}}) {
        SCOPED_TRACE(c.width);
        const composition::VideoSettings crop{
            model::SmallClipMode::proportional, c.top, c.leading, c.trailing, c.bottom, {160, 120}};
        const auto file = reencoded(CompositionBuilder().video(source, 0, kSecond).build(),
                                    "crop" + std::to_string(c.width) + ".mp4",
                                    {composition::outputFrame(crop), Framing::crop, 30});
        EXPECT_EQ(probe(file, "stream=profile,width,height,pix_fmt,r_frame_rate,nb_read_frames"),
                  "High," + std::to_string(c.width) + "," + std::to_string(c.height) +
                      ",yuv420p,30/1,30\n");
        // The video track's header ends with its width and height in 16.16.
        const auto bytes = testing_support::contentsOf(file);
        const auto tkhd = bytes.find("tkhd") - 4;
        std::vector<std::int32_t> shown{big32(bytes, tkhd + big32(bytes, tkhd) - 8) >> 16,
                                        big32(bytes, tkhd + big32(bytes, tkhd) - 4) >> 16};
        const auto clap = bytes.find("clap");
        for (std::size_t at = clap + 4; clap != std::string::npos && at < clap + 36; at += 4)
            shown.push_back(big32(bytes, at));
        EXPECT_EQ(shown, c.shown);

        // Coded pixels beyond the last shown column and row repeat their neighbours.
        const auto picture = decode(file, Player::ffmpeg, kRgb).frame(15);
        int wrong = 0;
        for (int y = 0; y < c.height; ++y)
            for (int x = 0; x < c.width; ++x) {
                const int sx = std::min(x, c.shown[0] - 1) + int(c.leading * 160);
                const int sy = std::min(y, c.shown[1] - 1) + int(c.top * 120);
                const Rgb want = sy < 60 ? (sx < 80 ? kRed : kGreen) : (sx < 80 ? kBlue : kWhite);
                const Rgb got = patch(picture, c.width, x, y, 0);
                if (std::abs(sx - 80) > 4 && std::abs(sy - 60) > 4 &&
                    std::max({std::abs(got.r - want.r), std::abs(got.g - want.g),
                              std::abs(got.b - want.b)}) > 40)
                    ++wrong;
            }
        EXPECT_EQ(wrong, 0);
    }
}

// Upright, with no display matrix left to turn it again; the 30th frame starts at 0.967 s.
TEST_F(Reencode, RotatedClipAtDoubleSpeedComesOutUprightInHalfTheTimeAtAnExactNtscRate) {
    const auto turned = testing_support::turnedCopy("reencode_cw270.mp4", movieA(), 270);
    auto c = CompositionBuilder()
                 .video(turned, 0, 2 * kSecond, 2.0)
                 .audio(turned, 1, 0, 2 * kSecond, 2.0)
                 .build();
    c.video->segments.front().source->rotationDegrees = 270;
    const auto file = reencoded(c, "out.mp4", plain(120, 160, 30000.0 / 1001));
    EXPECT_EQ(
        probe(file, "stream=width,height,r_frame_rate,nb_read_frames:stream_side_data_list", "v:0"),
        "120,160,30000/1001,30\n");
    EXPECT_NEAR(std::stod(probe(file, "format=duration")), 1.0, 1.0 / 30);
    EXPECT_NEAR(soundOf(file).seconds(), 1.0, 1024.0 / 48000);
}

// An AVI sound header claiming a hundred times the real rate and length moves no sound.
TEST_F(Reencode, AviSoundStampedAtAWrongRateStaysInPlace) {
    const auto honest = makeMedia("fidelity_avi.avi",
                                  kPicture + kSweep + "-t 3 " + kH264 + "-c:a libmp3lame -ac 1");
    std::string bytes = testing_support::contentsOf(honest);
    const std::size_t header = bytes.find("auds");
    ASSERT_NE(header, std::string::npos);
    // Little-endian rate, start, length, buffer size, quality and sample size, from byte 24.
    std::uint32_t fields[6];
    std::memcpy(fields, bytes.data() + header + 24, sizeof fields);
    fields[0] *= 100;
    fields[2] *= 100;
    fields[5] = 1;
    std::memcpy(bytes.data() + header + 24, fields, sizeof fields);
    const auto sound = [&](const fs::path& source) {
        const auto out = reencoded(CompositionBuilder().clip(source, 600, 1500).build(),
                                   source.stem().string() + ".mp4", plain(160, 120));
        return testing_support::decodeAudio(out, Player::ffmpeg, 48000, 1).samples;
    };
    const auto want = sound(honest);
    const auto got = sound(testing_support::makeFile("fidelity_avi_fast.avi", bytes));
    ASSERT_NEAR(double(got.size()), double(want.size()), 1024);
    double energy = 0, error = 0;
    for (std::size_t i = 0; i < std::min(got.size(), want.size()); ++i) {
        energy += double(want[i]) * want[i];
        error += (double(got[i]) - want[i]) * (double(got[i]) - want[i]);
    }
    EXPECT_GT(energy, 1.0);
    EXPECT_LT(error, energy * 0.01);
}

TEST_F(Reencode, CancellationOrAVanishedSourceLeaveNoFile) {
    const auto road = [](const composition::Composition& c, const fs::path& out,
                         const exporting::ProgressCallback& progress, std::stop_token stop) {
        return exporting::exportReencoded(c, out, ExportFormat::mp4, plain(160, 120), progress,
                                          std::move(stop));
    };
    expectFailuresLeaveNothing("reencode_failures", road, 0.2);
}

class BothPlayers : public Reencode, public testing::WithParamInterface<Player> {};

// Sound muxed half a second after the picture (an empty edit first) stays silent until its
// place; then loud 5.1, which a plain downmix would sum three channels at a time into each side.
TEST_P(BothPlayers, ALateSoundKeepsItsPlaceAndFivePointOneStaysWithinFullScale) {
    const auto late = testing_support::makeMediaFrom(
        "fidelity_sweep_late.mp4", movieA(),
        "-itsoffset 0.5 -i " + quote(movieA().string()) + " -map 0:v -map 1:a -c copy");
    const std::string loud = "0.9*sin(600*PI*t)";
    const auto surround =
        makeMedia("fidelity_51_loud.mp4", "-f lavfi -i \"aevalsrc=" + loud + "|" + loud + "|" +
                                              loud + "|" + loud + "|" + loud + "|" + loud +
                                              ":c=5.1:s=48000\" -t 1 -c:a aac -b:a 384k");
    const auto c = CompositionBuilder().clip(late, 0, 1200).audio(surround, 0, 0, 600).build();
    const auto sound =
        testing_support::decodeAudio(reencoded(c, "sound.mp4", plain(160, 120)), GetParam());
    ASSERT_EQ(sound.error, "");
    EXPECT_LT(sound.peakBetween(0, 0.45), 0.01);
    EXPECT_GT(sound.peakBetween(0.55, 1.9), 0.05);
    EXPECT_LT(sound.peakBetween(2, 3), 0.99f);
    EXPECT_GT(sound.peakBetween(2.1, 2.9), 0.5f);
    EXPECT_NEAR(sound.seconds(), 3.0, 0.03);
}

// Pixels stored 240 wide and shown 320 wide fill an output made at the shown size.
TEST_P(BothPlayers, NonSquarePixelsAreLaidOutAtTheirShownSize) {
    const auto source =
        makeMedia("fidelity_anamorphic.mp4",
                  "-f lavfi -i testsrc2=size=240x180:rate=30 -t 1 -vf setsar=4/3 " + kH264 + "-an");
    const auto out = reencoded(CompositionBuilder().video(source, 0, 600).build(), "anamorphic.mp4",
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
const BarsCase kHd709{"hd709", kHdBars + kBt709 + "-color_range tv", 1280, 720};

// Joined with HD BT.709 bars, each clip comes back in its own colours whatever its matrix.
TEST_P(BothPlayers, ColourBarsComeBackWithinTwoCodeValuesAndTheOutputIsTaggedBt709Limited) {
    const auto partner = bars(kHd709);
    for (const auto& c :
         {BarsCase{"sd601",
                   "-f lavfi -i smptebars=size=640x480:rate=30 -colorspace smpte170m "
                   "-color_primaries smpte170m -color_trc smpte170m -color_range tv",
                   640, 480},
          BarsCase{
              "hd709full",
              kHdBars + "-vf scale=out_range=full -pix_fmt yuvj420p " + kBt709 + "-color_range pc",
              1280, 720, true}}) {
        SCOPED_TRACE(c.name);
        const auto source = bars(c);
        const auto out =
            reencoded(CompositionBuilder().video(source, 0, 300).video(partner, 0, 300).build(),
                      "bars_" + c.name + ".mp4", plain(1280, 720));
        EXPECT_EQ(
            probe(out, "stream=color_range,color_space,color_transfer,color_primaries", "v:0"),
            "tv,bt709,bt709,bt709\n");

        // Each player rounds its own way; GStreamer 1.22 reads full-range H.264 as limited.
        const DecodedVideo before = decode(c.fullRange ? partner : source, GetParam(), kRgb);
        const DecodedVideo after = decode(out, GetParam(), kRgb);
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
}

}  // namespace
