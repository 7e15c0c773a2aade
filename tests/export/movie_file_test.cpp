#include "export/movie_file.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_media.h"

namespace {

namespace fs = std::filesystem;
using namespace export_media;
using exporting::MovieBoxMove;
using exporting::MovieTrackEdits;

// As libavformat writes it by default: the movie box after the media data.
fs::path movieBoxLast() {
    return makeMedia("movie_box_at_end.mp4", kPicture + kSweep + "-t 2 " + kH264 + kAac);
}

class MovieFileTest : public ::testing::TestWithParam<MovieBoxMove> {};

// With the edits libavformat wrote, at 600 ticks a second, the file shows the same; with
// others, each track gets its own and the movie the longest sum.
TEST_P(MovieFileTest, MovesTheMovieBoxFirstGivingEachTrackItsEdits) {
    const auto original = movieBoxLast();
    ASSERT_EQ(topLevelTypes(original).back(), "moov");
    std::vector<MovieTrackEdits> same;
    for (const char* handler : {"vide", "soun"}) {
        same.push_back({fourCC(handler), trackOf(original, handler).edits});
        for (auto& edit : same.back().edits)
            edit.duration = edit.duration * 600 / trackOf(original, handler).movieTimescale;
    }
    const auto dir = testing_support::freshDir("movie_file");
    fs::copy_file(original, dir / "same.mp4");
    ASSERT_TRUE(exporting::finishMovieFile(dir / "same.mp4", 600, same, GetParam()));
    const auto types = topLevelTypes(dir / "same.mp4");
    ASSERT_GE(types.size(), 3u);
    EXPECT_EQ(types[0], "ftyp");
    EXPECT_EQ(types[1], "moov");
    EXPECT_EQ(types.back(), "mdat");
    const auto shown = [&](const fs::path& file) {
        return testing_support::decodeVideo(file, testing_support::Player::ffmpeg, dir / "frames")
            .hashes;
    };
    EXPECT_EQ(shown(dir / "same.mp4"), shown(original));
    EXPECT_EQ(soundOf(dir / "same.mp4").samples, soundOf(original).samples);
    const auto video = trackOf(dir / "same.mp4", "vide");
    EXPECT_EQ(video.movieTimescale, 600u);
    EXPECT_EQ(video.edits, same[0].edits);
    EXPECT_EQ(video.trackDuration, same[0].edits.back().duration);

    const std::vector<MovieTrackEdits> other{
        {fourCC("vide"), {{-1, 300}, {1024, 600}, {-1, 30}, {5120, 60}}},
        {fourCC("soun"), {{1024, 900}}}};
    fs::copy_file(original, dir / "other.mp4");
    ASSERT_TRUE(exporting::finishMovieFile(dir / "other.mp4", 600, other, GetParam()));
    const auto edited = trackOf(dir / "other.mp4", "vide");
    const auto sound = trackOf(dir / "other.mp4", "soun");
    EXPECT_EQ(edited.edits, other[0].edits);
    EXPECT_EQ(sound.edits, other[1].edits);
    EXPECT_EQ(edited.trackDuration, 990u);
    EXPECT_EQ(sound.trackDuration, 900u);
    EXPECT_EQ(edited.movieDuration, 990u);
}

INSTANTIATE_TEST_SUITE_P(MovieFile, MovieFileTest,
                         ::testing::Values(MovieBoxMove::insertRangeOrCopy, MovieBoxMove::copy));

// A movie box that is not last, a track left without edits, and edits for a track the
// movie lacks: refused, naming the file, which stays as it was.
TEST(MovieFile, RefusesWhatItCannotFinishLeavingTheFileAlone) {
    const std::vector<MovieTrackEdits> videoOnly{{fourCC("vide"), {{0, 600}}}};
    struct Case {
        fs::path source;
        std::vector<MovieTrackEdits> edits;
    };
    for (const auto& [source, edits] : {
             Case{makeMedia("movie_box_first.mp4",
                            kPicture + "-t 1 " + kH264 + "-movflags faststart"),
                  videoOnly},
             Case{movieBoxLast(), videoOnly},
             Case{makeMedia("movie_box_last_video.mp4", kPicture + "-t 1 " + kH264),
                  {videoOnly[0], {fourCC("soun"), {{0, 600}}}}},
         }) {
        SCOPED_TRACE(source.filename().string());
        const auto file = testing_support::freshDir("movie_file_refused") / "out.mp4";
        fs::copy_file(source, file);
        const auto result =
            exporting::finishMovieFile(file, 600, edits, MovieBoxMove::insertRangeOrCopy);
        ASSERT_FALSE(result);
        EXPECT_NE(result.error().message.find(file.string()), std::string::npos);
        EXPECT_EQ(testing_support::contentsOf(file), testing_support::contentsOf(source));
    }
}

}  // namespace
