#include "composition/frame_grab.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "composition/render_test_support.h"
#include "media/sample_media.h"

namespace {

using composition::grabFrame;
using render_test::clipOf;
using sample_media::pixel;

TEST(FrameGrab, GivesTheTopClipsUprightFrameAndNothingWhereNoPictureShows) {
    const auto red = clipOf(render_test::solid("red"), 0, 0, 2);
    const auto blue = clipOf(render_test::solid("blue"), 0.5, 0, 0.5);
    const auto top = grabFrame({red, blue}, 0.75);
    ASSERT_TRUE(top);
    EXPECT_EQ(std::pair(top->width, top->height), std::pair(160, 120));
    EXPECT_TRUE(sample_media::isBlue(pixel(*top, 80, 60)));
    EXPECT_EQ(pixel(*top, 80, 60).a, 255);
    const auto below = grabFrame({red, blue}, 1.25);
    ASSERT_TRUE(below);
    EXPECT_TRUE(sample_media::isRed(pixel(*below, 80, 60)));
    // Upright, at the stored size.
    const auto turned = grabFrame({clipOf(render_test::turnedClockwise(90), 0, 0, 2)}, 0.5);
    ASSERT_TRUE(turned);
    EXPECT_EQ(std::pair(turned->width, turned->height), std::pair(120, 160));

    const auto clip = clipOf(render_test::h264(), 1, 0, 1);
    EXPECT_TRUE(grabFrame({clip}, 1.5));
    auto gone = clip;
    gone.url = testing_support::scratchDir() / "render_gone.mp4";
    for (const auto& [clips, seconds] : {std::pair{std::vector{clip}, 0.5},
                                         {{clip}, 2.0},
                                         {{clip}, 7.0},
                                         {{}, 0.0},
                                         {{gone}, 1.5},
                                         {{clipOf(render_test::toneWav(), 0, 0, 1)}, 0.5}})
        EXPECT_FALSE(grabFrame(clips, seconds)) << seconds;
}

TEST(FrameGrab, MeasuresASourceOnItsMoviesClockWherePictureStartsAfterSound) {
    // The picture half a second after the sound, as the mp4 muxer writes it: an empty edit.
    const auto late = testing_support::makeMedia(
        "render_late_video.mp4",
        "-itsoffset 0.5 -i " + testing_support::quote(render_test::h264().string()) +
            " -f lavfi -i sine=sample_rate=48000 -t 3 -map 0:v -map 1:a -c:v copy -c:a aac");
    const auto clip = clipOf(late, 0, 0, 3);
    EXPECT_FALSE(grabFrame({clip}, 0.25));
    const auto shown = grabFrame({clip}, 1.0);
    const auto same = grabFrame({clipOf(render_test::h264(), 0, 0, 3)}, 0.5);
    ASSERT_TRUE(shown && same);
    EXPECT_EQ(shown->rgba, same->rgba);
}

TEST(FrameGrab, IsTheExactFrameAtTheTime) {
    // Frame 31 starts at 31/30 s = 1.0333 s; a grab at 1.035 s shows it, at 1.03 s frame 30.
    const auto file = render_test::h264();
    const auto plain = render_test::decodeAllVideo(file);
    const auto rgbaOf = [](const AVFrame& frame) {
        media::SwsPtr scaler{sws_getContext(
            frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), frame.width,
            frame.height, AV_PIX_FMT_RGBA, SWS_BICUBIC, nullptr, nullptr, nullptr)};
        std::vector<std::uint8_t> rgba(static_cast<std::size_t>(frame.width) * frame.height * 4);
        std::uint8_t* planes[4] = {rgba.data()};
        int strides[4] = {frame.width * 4};
        sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
        return rgba;
    };
    const auto at30 = grabFrame({clipOf(file, 0, 0, 3)}, 1.03);
    const auto at31 = grabFrame({clipOf(file, 0, 0, 3)}, 1.035);
    ASSERT_TRUE(at30 && at31);
    EXPECT_EQ(at30->rgba, rgbaOf(*plain.frames[30].frame));
    EXPECT_EQ(at31->rgba, rgbaOf(*plain.frames[31].frame));
    EXPECT_NE(at30->rgba, at31->rgba);
}

TEST(FrameGrab, PngReplacesTheFileAndDecodesToTheSameImageOrIsNotWrittenAtAll) {
    const auto dir = testing_support::freshDir("frame_grab_png");
    const auto png = dir / "frame.png";
    EXPECT_FALSE(composition::writePng(nullptr, png));
    EXPECT_FALSE(std::filesystem::exists(png));
    const auto image = grabFrame({clipOf(render_test::h264(), 0, 0, 2)}, 1.0);
    ASSERT_TRUE(image);
    std::ofstream(png) << "an older file";
    const auto written = composition::writePng(image, png);
    ASSERT_TRUE(written) << written.error().message;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
    const std::string decoded = testing_support::outputOf(
        std::string(VANTRELL_FFMPEG) + " -nostdin -loglevel error -i " +
        testing_support::quote(png.string()) + " -f rawvideo -pix_fmt rgba -");
    EXPECT_EQ(std::vector<std::uint8_t>(decoded.begin(), decoded.end()), image->rgba);
}

}  // namespace
