#include "composition/video_renderer.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
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
using composition::VideoRenderer;
using render_test::clipOf;
using render_test::decodeAllVideo;
using render_test::expectedFrame;
using render_test::PlainVideo;
using render_test::samePicture;

// Renders `ticks` and holds the picture against the plain decode of the one source.
void expectExactFrame(VideoRenderer& renderer, const Composition& composition,
                      const PlainVideo& plain, std::int64_t ticks) {
    SCOPED_TRACE("at " + std::to_string(ticks) + " ticks");
    auto rendered = renderer.uprightFrameAt(MediaTime{ticks});
    ASSERT_TRUE(rendered) << rendered.error().message;
    const auto& segments = composition.video->segments;
    const auto at = std::find_if(segments.begin(), segments.end(), [&](const auto& s) {
        return s.start.ticks <= ticks && ticks < s.end().ticks;
    });
    if (at == segments.end() || !at->source) {
        EXPECT_FALSE(rendered.value().picture || rendered.value().origin);
        return;
    }
    const std::size_t wanted = expectedFrame(plain, *at, ticks, 600);
    ASSERT_TRUE(rendered.value().picture && rendered.value().origin);
    const auto& origin = *rendered.value().origin;
    EXPECT_EQ(origin.segmentIndex, static_cast<std::size_t>(at - segments.begin()));
    EXPECT_EQ(origin.clipID, at->source->clipID);
    EXPECT_EQ(origin.sourceTimestamp, plain.frames[wanted].timestamp) << "frame " << wanted;
    EXPECT_TRUE(samePicture(*rendered.value().picture, *plain.frames[wanted].frame))
        << "frame " << wanted;
    EXPECT_EQ(rendered.value().picture->pts, ticks);
}

// Cuts at frames between keyframes, gaps, a clip on top of another, a clip that may run past
// the end of a short file, and one at double rate.
std::vector<model::Clip> cutsOf(const std::filesystem::path& file) {
    auto fast = clipOf(file, 3.6, 0.2, 1.2);
    fast.rateMultiplier = 2;
    return {clipOf(file, 0, 0.45, 1.2), clipOf(file, 0.9, 1.35, 1.9), clipOf(file, 1.2, 0.1, 0.5),
            clipOf(file, 1.6, 1.7, 3.5), fast};
}

TEST(VideoRenderer, EveryFrameIsTheSourceFrameAtTheMappedTimeInOrderOrNot) {
    using testing_support::makeMediaFrom;
    for (const auto& file : {
             // MPEG-TS, whose clock starts well above 0.
             makeMediaFrom("render_h264.ts", render_test::h264(), "-c copy"),
             // Without an edit list the B-frame delay shows: the clock starts two frames in.
             makeMediaFrom("render_h264_no_edits.mp4", render_test::h264(),
                           "-c copy -use_editlist 0"),
             render_test::vp9Webm(),
             // Frames at 0, 3, 6, 9, 10, 12, 15, ... thirtieths of a second.
             testing_support::makeMedia("render_vfr.mp4",
                                        render_test::kPicture +
                                            "-t 2 -vf \"select='not(mod(n\\,3))+eq(n\\,10)'\" "
                                            "-fps_mode passthrough -c:v libx264 -preset veryfast "
                                            "-bf 2 -g 12 -pix_fmt yuv420p"),
         }) {
        SCOPED_TRACE(file.filename().string());
        const PlainVideo plain = decodeAllVideo(file);
        ASSERT_GT(plain.frames.size(), 10u);
        const Composition composition = composition::buildComposition(cutsOf(file));
        ASSERT_TRUE(composition.video);
        ASSERT_EQ(composition.video->segments.size(), 7u);
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
}

TEST(VideoRenderer, WhereNoPictureShowsAFormattedFrameIsBlack) {
    VideoRenderer renderer{composition::buildComposition({clipOf(render_test::h264(), 1, 0, 1)})};
    for (double seconds : {0.5, 5.0}) {
        auto black = renderer.frameAt(MediaTime::fromSeconds(seconds), {AV_PIX_FMT_RGBA, 32, 24});
        ASSERT_TRUE(black && black.value().picture);
        const AVFrame& picture = *black.value().picture;
        EXPECT_EQ(std::pair(picture.width, picture.format), std::pair(32, int{AV_PIX_FMT_RGBA}));
        const auto bytes = render_test::pixels(picture);
        for (std::size_t i = 0; i < bytes.size(); i += 4)
            ASSERT_EQ(bytes[i] | bytes[i + 1] | bytes[i + 2], 0) << i;
    }
    VideoRenderer sound{composition::buildComposition({clipOf(render_test::toneWav(), 0, 0, 1)})};
    auto nothing = sound.uprightFrameAt(MediaTime{0});
    ASSERT_TRUE(nothing);
    EXPECT_FALSE(nothing.value().picture);
}

TEST(VideoRenderer, TurnedSourcesComeOutUprightAtTheirStoredSize) {
    struct Turn {
        std::filesystem::path file;
        int width, height;
        std::pair<int, int> (*storedAt)(int x, int y, int lastX, int lastY);
    };
    const auto quarter = [](int x, int y, int, int lastY) { return std::pair{y, lastY - x}; };
    const auto half = [](int x, int y, int lastX, int lastY) {
        return std::pair{lastX - x, lastY - y};
    };
    // 4:2:2 can't be turned a quarter as it is: it is widened to 4:4:4 first.
    for (const auto& [file, width, height, storedAt] :
         {Turn{render_test::turnedClockwise(90), 120, 160, quarter},
          Turn{render_test::turnedClockwise(180), 160, 120, half},
          Turn{testing_support::turnedCopy(
                   "render_422_cw90.mp4",
                   testing_support::makeMedia("render_422.mp4", render_test::kPicture +
                                                                    "-t 1 -c:v libx264 -preset "
                                                                    "veryfast -pix_fmt yuv422p"),
                   90),
               120, 160, quarter}}) {
        SCOPED_TRACE(file.filename().string());
        const PlainVideo plain = decodeAllVideo(file);
        const AVFrame& stored = *plain.frames.at(10).frame;
        VideoRenderer renderer{composition::buildComposition({clipOf(file, 0, 0, 1)})};
        auto rendered = renderer.uprightFrameAt(MediaTime{200});
        ASSERT_TRUE(rendered && rendered.value().picture);
        const AVFrame& upright = *rendered.value().picture;
        EXPECT_EQ(std::pair(upright.width, upright.height), std::pair(width, height));
        EXPECT_EQ(upright.format,
                  stored.format == AV_PIX_FMT_YUV422P ? AV_PIX_FMT_YUV444P : stored.format);
        // The luma of the upright picture at (x, y) is that of the stored one at storedAt.
        for (int y = 0; y < upright.height; ++y)
            for (int x = 0; x < upright.width; ++x) {
                const auto [sx, sy] = storedAt(x, y, stored.width - 1, stored.height - 1);
                ASSERT_EQ(upright.data[0][y * upright.linesize[0] + x],
                          stored.data[0][sy * stored.linesize[0] + sx])
                    << x << "," << y;
            }
    }
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
            EXPECT_EQ(rendered.value().origin->sourceTimestamp, plain.frames[wanted].timestamp);
            EXPECT_EQ(rendered.value().picture->pts, time);
        }
    }
}

}  // namespace
