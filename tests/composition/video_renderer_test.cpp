#include "composition/video_renderer.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/media_time.h"
#include "composition/render_test_support.h"
#include "composition/stream_lookup.h"

namespace {

using common::MediaTime;
using composition::Composition;
using composition::PictureFormat;
using composition::RenderedFrame;
using composition::Segment;
using composition::VideoRenderer;
using render_test::clipOf;
using render_test::decodeAllVideo;
using render_test::expectedFrame;
using render_test::PlainVideo;
using render_test::samePicture;

// The segment of the video track shown at `ticks`, if any.
std::optional<std::size_t> segmentAt(const Composition& composition, std::int64_t ticks) {
    const auto& segments = composition.video->segments;
    for (std::size_t i = 0; i < segments.size(); ++i)
        if (segments[i].start.ticks <= ticks && ticks < segments[i].end().ticks) return i;
    return std::nullopt;
}

// Renders `ticks` and holds the picture against the plain decode of the one source.
void expectExactFrame(VideoRenderer& renderer, const Composition& composition,
                      const PlainVideo& plain, std::int64_t ticks) {
    SCOPED_TRACE("at " + std::to_string(ticks) + " ticks");
    auto rendered = renderer.uprightFrameAt(MediaTime{ticks});
    ASSERT_TRUE(rendered) << rendered.error().message;
    const auto index = segmentAt(composition, ticks);
    if (!index || !composition.video->segments[*index].source) {
        EXPECT_FALSE(rendered.value().picture);
        EXPECT_FALSE(rendered.value().origin);
        return;
    }
    const Segment& segment = composition.video->segments[*index];
    const std::size_t wanted = expectedFrame(plain, segment, ticks, 600);
    ASSERT_TRUE(rendered.value().picture);
    ASSERT_TRUE(rendered.value().origin);
    const auto& origin = *rendered.value().origin;
    EXPECT_EQ(origin.segmentIndex, *index);
    EXPECT_EQ(origin.clipID, segment.source->clipID);
    EXPECT_EQ(origin.sourceTimestamp, plain.frames[wanted].timestamp) << "frame " << wanted;
    EXPECT_TRUE(samePicture(*rendered.value().picture, *plain.frames[wanted].frame))
        << "frame " << wanted;
    EXPECT_EQ(rendered.value().picture->pts, ticks);
}

// Cuts at frames between keyframes, a gap, a clip on top of another, and a last clip
// that may run past the end of a short file.
std::vector<model::Clip> cutsOf(const std::filesystem::path& file) {
    return {clipOf(file, 0, 0.45, 1.2), clipOf(file, 0.9, 1.35, 1.9), clipOf(file, 1.2, 0.1, 0.5),
            clipOf(file, 1.6, 1.7, 3.5)};
}

class VideoRendererExactness : public testing::TestWithParam<std::filesystem::path (*)()> {};

TEST_P(VideoRendererExactness, EveryFrameIsTheSourceFrameAtTheMappedTime) {
    const auto file = GetParam()();
    const PlainVideo plain = decodeAllVideo(file);
    ASSERT_GT(plain.frames.size(), 10u);
    const Composition composition = composition::buildComposition(cutsOf(file));
    ASSERT_TRUE(composition.video);
    ASSERT_EQ(composition.video->segments.size(), 5u);

    // Sixtieths of a second, past the end of the track.
    std::vector<std::int64_t> times;
    for (std::int64_t ticks = 0; ticks <= composition.video->duration().ticks + 60; ticks += 10)
        times.push_back(ticks);

    VideoRenderer sequential{composition};
    for (std::int64_t ticks : times) expectExactFrame(sequential, composition, plain, ticks);

    std::shuffle(times.begin(), times.end(), std::mt19937{7});
    VideoRenderer random{composition};
    for (std::int64_t ticks : times) expectExactFrame(random, composition, plain, ticks);
}

std::string sourceName(const testing::TestParamInfo<std::filesystem::path (*)()>& info) {
    static const std::vector<std::string> names{"H264Ts", "H264WithoutEditList", "Vp9Webm",
                                                "VariableRateMp4"};
    return names.at(info.index);
}

INSTANTIATE_TEST_SUITE_P(Sources, VideoRendererExactness,
                         testing::Values(&render_test::h264Ts, &render_test::h264WithoutEditList,
                                         &render_test::vp9Webm, &render_test::variableRateMp4),
                         sourceName);

TEST(VideoRenderer, DoubleRateShowsEverySecondFrame) {
    const auto file = render_test::h264();
    const PlainVideo plain = decodeAllVideo(file);
    auto fast = clipOf(file, 0, 0, 2);
    fast.rateMultiplier = 2;
    VideoRenderer renderer{composition::buildComposition({fast})};
    for (int k = 0; k < 30; ++k) {
        auto rendered = renderer.uprightFrameAt(MediaTime{20 * k});
        ASSERT_TRUE(rendered && rendered.value().picture) << k;
        EXPECT_EQ(rendered.value().origin->sourceTimestamp, plain.frames[2 * k].timestamp) << k;
        EXPECT_TRUE(samePicture(*rendered.value().picture, *plain.frames[2 * k].frame)) << k;
    }
}

TEST(VideoRenderer, GapsThePastTheEndAndSoundAloneAreBlack) {
    const auto file = render_test::h264();
    VideoRenderer renderer{composition::buildComposition({clipOf(file, 1, 0, 1)})};
    const PictureFormat rgba{AV_PIX_FMT_RGBA, 32, 24};
    for (double seconds : {0.0, 0.5, 2.0, 5.0}) {
        SCOPED_TRACE(seconds);
        auto unconverted = renderer.uprightFrameAt(MediaTime::fromSeconds(seconds));
        ASSERT_TRUE(unconverted);
        EXPECT_FALSE(unconverted.value().picture);
        EXPECT_FALSE(unconverted.value().origin);

        auto black = renderer.frameAt(MediaTime::fromSeconds(seconds), rgba);
        ASSERT_TRUE(black && black.value().picture);
        const AVFrame& picture = *black.value().picture;
        EXPECT_EQ(std::pair(picture.width, picture.format), std::pair(32, int{AV_PIX_FMT_RGBA}));
        for (int y = 0; y < picture.height; ++y)
            for (int x = 0; x < picture.width * 4; x += 4)
                ASSERT_EQ(picture.data[0][y * picture.linesize[0] + x], 0) << x << "," << y;
    }
    auto shown = renderer.uprightFrameAt(MediaTime::fromSeconds(1.5));
    ASSERT_TRUE(shown);
    EXPECT_TRUE(shown.value().picture);

    VideoRenderer sound{composition::buildComposition({clipOf(render_test::toneWav(), 0, 0, 1)})};
    auto nothing = sound.uprightFrameAt(MediaTime{0});
    ASSERT_TRUE(nothing);
    EXPECT_FALSE(nothing.value().picture);
}

// The luma of the upright picture at (x, y) is that of the stored one at `stored(x, y)`.
template <typename Where>
void expectTurned(const AVFrame& upright, const AVFrame& stored, Where storedAt) {
    for (int y = 0; y < upright.height; ++y)
        for (int x = 0; x < upright.width; ++x) {
            const auto [sx, sy] = storedAt(x, y);
            ASSERT_EQ(upright.data[0][y * upright.linesize[0] + x],
                      stored.data[0][sy * stored.linesize[0] + sx])
                << x << "," << y;
        }
}

TEST(VideoRenderer, TurnedSourcesComeOutUprightAtTheirStoredSize) {
    const PlainVideo plain = decodeAllVideo(render_test::h264());
    const AVFrame& stored = *plain.frames[10].frame;
    const int lastX = stored.width - 1;
    const int lastY = stored.height - 1;
    const auto frameOf = [](const std::filesystem::path& file) {
        VideoRenderer renderer{composition::buildComposition({clipOf(file, 0, 0, 1)})};
        auto rendered = renderer.uprightFrameAt(MediaTime{200});
        EXPECT_TRUE(rendered && rendered.value().picture);
        return std::move(rendered.value().picture);
    };

    const auto clockwise = frameOf(render_test::turnedClockwise(90));
    ASSERT_TRUE(clockwise);
    EXPECT_EQ(clockwise->width, 120);
    EXPECT_EQ(clockwise->height, 160);
    expectTurned(*clockwise, stored, [&](int x, int y) { return std::pair{y, lastY - x}; });

    const auto half = frameOf(render_test::turnedClockwise(180));
    ASSERT_TRUE(half);
    EXPECT_EQ(half->width, 160);
    expectTurned(*half, stored, [&](int x, int y) { return std::pair{lastX - x, lastY - y}; });
}

TEST(VideoRenderer, FourTwoTwoSourceIsWidenedThenTurned) {
    const auto file = render_test::turnedFourTwoTwo();
    const PlainVideo plain = decodeAllVideo(file);
    const AVFrame& stored = *plain.frames[6].frame;
    ASSERT_EQ(stored.format, AV_PIX_FMT_YUV422P);
    VideoRenderer renderer{composition::buildComposition({clipOf(file, 0, 0, 1)})};
    auto rendered = renderer.uprightFrameAt(MediaTime{120});
    ASSERT_TRUE(rendered && rendered.value().picture);
    const AVFrame& upright = *rendered.value().picture;
    EXPECT_EQ(upright.format, AV_PIX_FMT_YUV444P);
    EXPECT_EQ(upright.width, 120);
    EXPECT_EQ(upright.height, 160);
    const int lastY = stored.height - 1;
    expectTurned(upright, stored, [&](int x, int y) { return std::pair{y, lastY - x}; });
}

TEST(VideoRenderer, TimesInAnyTimeBaseMapExactly) {
    // A 90 kHz tick before frame k is still frame k - 1, though it rounds to frame k's
    // time on the 1/600 s grid.
    const auto file = render_test::h264();
    const PlainVideo plain = decodeAllVideo(file);
    const Composition composition = composition::buildComposition({clipOf(file, 0, 0, 2.5)});
    VideoRenderer renderer{composition};
    for (std::int64_t k = 1; k < 70; ++k) {
        for (std::int64_t time : {3000 * k - 1, 3000 * k}) {
            auto rendered = renderer.uprightFrameAt(time, {1, 90000});
            ASSERT_TRUE(rendered && rendered.value().picture);
            const std::size_t wanted =
                expectedFrame(plain, composition.video->segments[0], time, 90000);
            EXPECT_EQ(wanted, static_cast<std::size_t>(time % 3000 == 0 ? k : k - 1));
            EXPECT_EQ(rendered.value().origin->sourceTimestamp, plain.frames[wanted].timestamp)
                << time;
            EXPECT_EQ(rendered.value().picture->pts, time);
        }
    }
}

}  // namespace
