#include "composition/stream_lookup.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "composition/render_test_support.h"

namespace {

using composition::MediaKind;
using testing_support::makeMedia;
using testing_support::quote;

TEST(MediaStreamLookup, AnswersTheFirstStreamOfEachKind) {
    const auto lookup = composition::mediaStreamLookup();
    const auto both = render_test::h264WithTone();
    EXPECT_EQ(lookup(both, MediaKind::video), 0);
    EXPECT_EQ(lookup(both, MediaKind::audio), 1);
    EXPECT_EQ(lookup(render_test::toneWav(), MediaKind::video), std::nullopt);
    EXPECT_EQ(lookup(render_test::toneWav(), MediaKind::audio), 0);
}

TEST(MediaStreamLookup, OnlyTheFirstOfSeveralVideoStreamsIsUsed) {
    const auto file = makeMedia("render_two_pictures.mkv",
                                render_test::kTone + "-i " + quote(render_test::h264().string()) +
                                    " -i " + quote(render_test::vp9Webm().string()) +
                                    " -map 0 -map 1 -map 2 -t 1 -c copy");
    const auto lookup = composition::mediaStreamLookup();
    EXPECT_EQ(lookup(file, MediaKind::audio), 0);
    EXPECT_EQ(lookup(file, MediaKind::video), 1);
}

TEST(MediaStreamLookup, CoverArtIsNoPicture) {
    const auto file = makeMedia(
        "render_cover.mp3", render_test::kTone +
                                "-f lavfi -i color=c=red:size=64x64 -map 0 -map 1 -t 1 "
                                "-frames:v 1 -c:a libmp3lame -c:v png -disposition:v attached_pic");
    const auto lookup = composition::mediaStreamLookup();
    EXPECT_EQ(lookup(file, MediaKind::video), std::nullopt);
    EXPECT_EQ(lookup(file, MediaKind::audio), 0);
}

TEST(MediaStreamLookup, FileThatIsGoneHasNoStreams) {
    const auto lookup = composition::mediaStreamLookup();
    const auto gone = testing_support::scratchDir() / "render_no_such_file.mp4";
    EXPECT_EQ(lookup(gone, MediaKind::video), std::nullopt);
    EXPECT_EQ(lookup(gone, MediaKind::audio), std::nullopt);
}

TEST(MediaStreamLookup, BuildsACompositionWithHolesForVanishedFiles) {
    auto gone = render_test::clipOf(render_test::h264(), 0, 0, 1);
    gone.url = testing_support::scratchDir() / "render_vanished.mp4";
    const auto kept = render_test::clipOf(render_test::h264(), 1.5, 0, 1);
    const auto composition = composition::buildComposition({gone, kept});
    ASSERT_TRUE(composition.video);
    ASSERT_EQ(composition.video->segments.size(), 2u);
    EXPECT_FALSE(composition.video->segments[0].source);
    EXPECT_EQ(composition.video->segments[1].start, common::MediaTime::fromSeconds(1.5));
}

}  // namespace
