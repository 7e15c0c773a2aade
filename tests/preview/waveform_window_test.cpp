#include <memory>

#include <gtest/gtest.h>

#include "preview/fit_rect.h"
#include "preview/waveform_window.h"

namespace {

model::Clip audioClip(double start, double rate, std::vector<float> peaks) {
    model::Clip clip;
    clip.hasAudio = true;
    clip.fullDurationSeconds = 10;
    clip.outSeconds = 10;
    clip.startOnTimeline = start;
    clip.rateMultiplier = rate;
    clip.waveformPeaks = std::make_shared<const std::vector<float>>(std::move(peaks));
    return clip;
}

TEST(WaveformWindow, AClipAtRateTwoReadsTwiceTheStretchOfItsFile) {
    // One peak per second of file; the window 0..6 s of timeline covers 0..12 s of file,
    // cut at the file's end: 10 peaks over 5 s of timeline.
    std::vector<float> peaks(10);
    for (std::size_t i = 0; i < peaks.size(); ++i) peaks[i] = 0.1f * static_cast<float>(i);
    const auto strokes = preview::waveformStrokes({audioClip(0, 2, peaks)}, {0, 6}, 600, 100);
    ASSERT_EQ(strokes.size(), 1u);
    // 500 points wide, 10 peaks: too few for a column each, so one per column from the first.
    EXPECT_EQ(strokes[0].lines.size(), 10u);
    EXPECT_DOUBLE_EQ(strokes[0].lineWidth, 1.0);
    EXPECT_DOUBLE_EQ(strokes[0].lines.back().x1(), 9.5);
    EXPECT_NEAR(strokes[0].lines.back().y1(), 50 - 42 * 0.9, 1e-4);
}

TEST(WaveformWindow, StaysCentredOnThePlayheadAndLeavesOutClipsWithoutAudioOrPeaks) {
    auto silent = audioClip(0, 1, {0.5f});
    silent.streamMask = model::StreamMask::videoOnly;
    auto unenriched = audioClip(0, 1, {});
    unenriched.waveformPeaks = nullptr;
    auto outside = audioClip(20, 1, {0.5f});
    EXPECT_TRUE(preview::waveformStrokes({silent, unenriched, outside}, {0, 6}, 600, 100).empty());
    // The window itself stays centred on the playhead.
    const auto window = preview::waveformWindow(1.0);
    EXPECT_DOUBLE_EQ(window.startSeconds, -2.0);
    EXPECT_DOUBLE_EQ(window.endSeconds, 4.0);
}

TEST(AspectFit, PlacesThePictureCentredInTheBounds) {
    struct Case {
        QRectF bounds;
        std::optional<double> aspect;
        QRectF expected;
    };
    const Case cases[] = {
        {{0, 0, 400, 100}, 2.0, {100, 0, 200, 100}},
        {{0, 0, 100, 400}, 0.5, {0, 100, 100, 200}},
        {{0, 0, 100, 100}, std::nullopt, {0, 0, 100, 100}},
        {{0, 0, 100, 100}, 0.0, {0, 0, 100, 100}},
        {{0, 0, 0, 100}, 2.0, {0, 0, 0, 100}},
    };
    for (const Case& c : cases) EXPECT_EQ(preview::aspectFitRect(c.bounds, c.aspect), c.expected);
}

}  // namespace
