#include "composition/frame_grab.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "composition/render_test_support.h"
#include "model/project.h"

namespace {

using composition::grabFrame;
using composition::writePng;
using render_test::clipOf;
using testing_support::quote;

std::vector<int> pixelAt(const model::ImageData& image, int x, int y) {
    const std::uint8_t* p = &image.rgba[(static_cast<std::size_t>(y) * image.width + x) * 4];
    return {p[0], p[1], p[2], p[3]};
}

TEST(FrameGrab, GivesTheTopClipsFrameAndNothingWhereNoPictureShows) {
    const auto red = clipOf(render_test::solid("red"), 0, 0, 2);
    const auto blue = clipOf(render_test::solid("blue"), 0.5, 0, 0.5);
    const auto top = grabFrame({red, blue}, 0.75);
    ASSERT_TRUE(top);
    EXPECT_EQ(top->width, 160);
    EXPECT_EQ(top->height, 120);
    const auto centre = pixelAt(*top, 80, 60);
    EXPECT_GT(centre[2], 200);
    EXPECT_LT(centre[0], 60);
    EXPECT_EQ(centre[3], 255);
    const auto below = grabFrame({red, blue}, 1.25);
    ASSERT_TRUE(below);
    EXPECT_GT(pixelAt(*below, 80, 60)[0], 200);

    const auto clip = clipOf(render_test::h264(), 1, 0, 1);
    EXPECT_TRUE(grabFrame({clip}, 1.5));
    for (const double seconds : {0.5, 2.0, 7.0})
        EXPECT_FALSE(grabFrame({clip}, seconds)) << seconds;
    EXPECT_FALSE(grabFrame({}, 0));
    EXPECT_FALSE(grabFrame({clipOf(render_test::toneWav(), 0, 0, 1)}, 0.5));
    auto gone = clip;
    gone.url = testing_support::scratchDir() / "render_gone.mp4";
    EXPECT_FALSE(grabFrame({gone}, 1.5));
}

TEST(FrameGrab, MeasuresASourceOnItsMoviesClockWherePictureStartsAfterSound) {
    // The picture half a second after the sound, as the mp4 muxer writes it: an empty edit.
    const auto late = testing_support::makeMedia(
        "render_late_video.mp4", "-itsoffset 0.5 -i " + quote(render_test::h264().string()) +
                                     " -f lavfi -i sine=sample_rate=48000 -t 3 -map 0:v -map 1:a "
                                     "-c:v copy -c:a aac");
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
    const auto clip = clipOf(file, 0, 0, 3);
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
    const auto at30 = grabFrame({clip}, 1.03);
    const auto at31 = grabFrame({clip}, 1.035);
    ASSERT_TRUE(at30 && at31);
    EXPECT_EQ(at30->rgba, rgbaOf(*plain.frames[30].frame));
    EXPECT_EQ(at31->rgba, rgbaOf(*plain.frames[31].frame));
    EXPECT_NE(at30->rgba, at31->rgba);
}

TEST(FrameGrab, IsTheWholeUprightFrameAtItsFullStoredSize) {
    model::Project project;
    project.setClips({clipOf(render_test::h264(), 0, 0, 2)});
    project.setCropInsetLeading(0.25);
    project.setCropInsetTop(0.1);
    const auto cropped = grabFrame(project.clips(), 1.0);
    ASSERT_TRUE(cropped);
    EXPECT_EQ(cropped->width, 160);
    EXPECT_EQ(cropped->height, 120);

    const auto turned = grabFrame({clipOf(render_test::turnedClockwise(90), 0, 0, 2)}, 0.5);
    ASSERT_TRUE(turned);
    EXPECT_EQ(turned->width, 120);
    EXPECT_EQ(turned->height, 160);
}

TEST(FrameGrab, PngReplacesTheFileAndDecodesToTheSameImageOrIsNotWrittenAtAll) {
    const auto dir = testing_support::freshDir("frame_grab_png");
    EXPECT_FALSE(writePng(nullptr, dir / "frame.png"));
    EXPECT_FALSE(std::filesystem::exists(dir / "frame.png"));

    const auto image = grabFrame({clipOf(render_test::h264(), 0, 0, 2)}, 1.0);
    ASSERT_TRUE(image);
    const auto png = dir / "frame.png";
    std::ofstream(png) << "an older file";
    const auto written = writePng(image, png);
    ASSERT_TRUE(written) << written.error().message;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir),
                            std::filesystem::directory_iterator()),
              1);
    const std::string decoded = testing_support::outputOf(
        std::string(VANTRELL_FFMPEG) + " -nostdin -loglevel error -i " +
        testing_support::quote(png.string()) + " -f rawvideo -pix_fmt rgba -");
    EXPECT_EQ(std::vector<std::uint8_t>(decoded.begin(), decoded.end()), image->rgba);
}

}  // namespace
