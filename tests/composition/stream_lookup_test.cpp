#include "composition/stream_lookup.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "composition/render_test_support.h"
#include "media/sample_media.h"

namespace {

using composition::MediaKind;
using testing_support::makeMedia;
using testing_support::quote;

TEST(MediaStreamLookup, AnswersTheFirstStreamOfEachKind) {
    const auto twoPictures = makeMedia(
        "render_two_pictures.mkv",
        render_test::kTone + "-i " + quote(render_test::h264().string()) + " -i " +
            quote(render_test::vp9Webm().string()) + " -map 0 -map 1 -map 2 -t 1 -c copy");
    // A transport stream names its streams only in its packets.
    const auto transport =
        makeMedia("render_transport.ts", "-i " + quote(sample_media::h264Mp4().string()) +
                                             " -map 0:a -map 0:v -c copy -f mpegts");
    const auto lookup = composition::mediaStreamLookup();
    const std::optional<int> none;
    for (const auto& [file, video, audio] :
         {std::tuple{sample_media::h264Mp4(), std::optional(0), std::optional(1)},
          {render_test::toneWav(), none, 0},
          {twoPictures, 1, 0},
          {transport, 1, 0},
          {testing_support::scratchDir() / "render_no_such_file.mp4", none, none}}) {
        EXPECT_EQ(lookup(file, MediaKind::video), video) << file;
        EXPECT_EQ(lookup(file, MediaKind::audio), audio) << file;
    }
}

TEST(LastingStreamLookup, AsksAFileAgainOnlyOnceItHasChanged) {
    namespace fs = std::filesystem;
    const fs::path file = testing_support::scratchDir() / "render_lasting_lookup";
    fs::copy_file(sample_media::h264Mp4(), file, fs::copy_options::overwrite_existing);
    const auto lookup = composition::lastingStreamLookup();
    EXPECT_EQ(lookup(file, MediaKind::video), 0);
    EXPECT_EQ(lookup(file, MediaKind::audio), 1);

    // Another file at the same path, of another size.
    fs::copy_file(render_test::toneWav(), file, fs::copy_options::overwrite_existing);
    EXPECT_EQ(lookup(file, MediaKind::video), std::nullopt);
    EXPECT_EQ(lookup(file, MediaKind::audio), 0);
    fs::remove(file);
    EXPECT_EQ(lookup(file, MediaKind::audio), std::nullopt);
}

}  // namespace
