#include "composition/stream_lookup.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "composition/render_test_support.h"

namespace {

using composition::MediaKind;
using testing_support::makeMedia;
using testing_support::quote;

TEST(MediaStreamLookup, AnswersTheFirstStreamOfEachKindButNoCoverArt) {
    const auto twoPictures = makeMedia(
        "render_two_pictures.mkv",
        render_test::kTone + "-i " + quote(render_test::h264().string()) + " -i " +
            quote(render_test::vp9Webm().string()) + " -map 0 -map 1 -map 2 -t 1 -c copy");
    const auto cover = makeMedia(
        "render_cover.mp3", render_test::kTone +
                                "-f lavfi -i color=c=red:size=64x64 -map 0 -map 1 -t 1 "
                                "-frames:v 1 -c:a libmp3lame -c:v png -disposition:v attached_pic");
    // A transport stream names its streams only in its packets.
    const auto transport =
        makeMedia("render_transport.ts", "-i " + quote(render_test::h264WithTone().string()) +
                                             " -map 0:a -map 0:v -c copy -f mpegts");
    const auto lookup = composition::mediaStreamLookup();
    struct Streams {
        std::filesystem::path file;
        std::optional<int> video;
        std::optional<int> audio;
    };
    for (const auto& [file, video, audio] : {
             Streams{render_test::h264WithTone(), 0, 1},
             Streams{render_test::toneWav(), std::nullopt, 0},
             Streams{twoPictures, 1, 0},
             Streams{cover, std::nullopt, 0},
             Streams{transport, 1, 0},
             Streams{testing_support::scratchDir() / "render_no_such_file.mp4", std::nullopt,
                     std::nullopt},
         }) {
        EXPECT_EQ(lookup(file, MediaKind::video), video) << file;
        EXPECT_EQ(lookup(file, MediaKind::audio), audio) << file;
    }
}

TEST(LastingStreamLookup, AsksAFileAgainOnlyOnceItHasChanged) {
    namespace fs = std::filesystem;
    const fs::path file = testing_support::scratchDir() / "render_lasting_lookup";
    fs::copy_file(render_test::h264WithTone(), file, fs::copy_options::overwrite_existing);
    const auto lookup = composition::lastingStreamLookup();
    EXPECT_EQ(lookup(file, MediaKind::video), 0);
    EXPECT_EQ(lookup(file, MediaKind::audio), 1);

    // Another file at the same path: its own size, so its own streams.
    fs::copy_file(render_test::toneWav(), file, fs::copy_options::overwrite_existing);
    EXPECT_EQ(lookup(file, MediaKind::video), std::nullopt);
    EXPECT_EQ(lookup(file, MediaKind::audio), 0);
    fs::remove(file);
    EXPECT_EQ(lookup(file, MediaKind::audio), std::nullopt);
}

}  // namespace
