#include "export/movie_file.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_media.h"

namespace {

namespace fs = std::filesystem;
using namespace export_media;
using exporting::MovieBoxMove;
using exporting::MovieTrackEdits;
using exporting::Mp4Edit;

// The edits libavformat wrote, at 600 ticks a second: presenting by them shows the same.
std::vector<MovieTrackEdits> sameEditsAt600(const fs::path& file) {
    std::vector<MovieTrackEdits> same;
    for (const char* handler : {"vide", "soun"}) {
        same.push_back({fourCC(handler), trackOf(file, handler).edits});
        for (auto& edit : same.back().edits)
            edit.duration = edit.duration * 600 / trackOf(file, handler).movieTimescale;
    }
    return same;
}

std::vector<std::string> shown(const fs::path& file, const fs::path& dir) {
    return testing_support::decodeVideo(file, testing_support::Player::ffmpeg, dir / "frames")
        .hashes;
}

class MovieFileTest : public ::testing::TestWithParam<MovieBoxMove> {};

// With other edits, each track gets its own and the movie the longest sum.
TEST_P(MovieFileTest, MovesTheMovieBoxFirstGivingEachTrackItsEdits) {
    const auto original = movieA();  // the movie box last, as libavformat writes it by default
    ASSERT_TRUE(topLevelTypes(original).ends_with("moov"));
    const auto same = sameEditsAt600(original);
    const auto dir = testing_support::freshDir("movie_file");
    fs::copy_file(original, dir / "same.mp4");
    ASSERT_TRUE(exporting::finishMovieFile(dir / "same.mp4", 600, same, GetParam()));
    const auto types = topLevelTypes(dir / "same.mp4");
    EXPECT_TRUE(types.starts_with("ftypmoov") && types.ends_with("mdat")) << types;
    EXPECT_EQ(shown(dir / "same.mp4", dir), shown(original, dir));
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

// Unused room (zeros after the file type box) becomes a free box.
TEST(MovieFile, FinishesInTheRoomKeptOrFreesItWhenUnused) {
    const auto original = movieA();
    const auto edits = sameEditsAt600(original);
    const auto dir = testing_support::freshDir("movie_file_room");

    const auto kept = dir / "kept.mp4";
    fs::copy_file(
        makeMedia("movie_box_in_room.mp4", kPicture + "-t 2 " + kH264 + "-moov_size 200000"), kept);
    ASSERT_TRUE(exporting::finishMovieFile(kept, 600, {edits.data(), 1}, MovieBoxMove::copy));
    EXPECT_EQ(topLevelTypes(kept), "ftypmoovfreemdat");
    EXPECT_EQ(trackOf(kept, "vide").edits, edits[0].edits);

    const auto unused = dir / "unused.mp4";
    const std::string bytes = testing_support::contentsOf(original);
    auto boxes = boxesOf(original);
    constexpr std::uint64_t kRoom = 5000;
    ASSERT_TRUE(exporting::shiftMp4ChunkOffsets(boxes.back(), kRoom));
    std::vector<std::uint8_t> moved;
    exporting::appendMp4Box(moved, boxes.back());
    const auto ftypSize = exporting::mp4BoxSize(boxes.front());
    const auto moovSize = exporting::mp4BoxSize(boxes.back());
    std::ofstream(unused, std::ios::binary)
        << bytes.substr(0, ftypSize) << std::string(kRoom, '\0')
        << bytes.substr(ftypSize, bytes.size() - ftypSize - moovSize)
        << std::string(moved.begin(), moved.end());
    ASSERT_TRUE(exporting::markRoomFree(unused, kRoom));
    ASSERT_TRUE(exporting::finishMovieFile(unused, 600, edits, MovieBoxMove::copy));
    EXPECT_EQ(topLevelTypes(unused).substr(4, 4), "moov");
    EXPECT_EQ(shown(unused, dir), shown(original, dir));
    EXPECT_EQ(soundOf(unused).samples, soundOf(original).samples);
}

// Edits that outgrow the room, miss a track or name one the movie lacks leave the file alone.
TEST(MovieFile, RefusesWhatItCannotFinishLeavingTheFileAlone) {
    const std::vector<MovieTrackEdits> videoOnly{{fourCC("vide"), {{0, 600}}}};
    const std::vector<MovieTrackEdits> manyEdits{
        {fourCC("vide"), std::vector<Mp4Edit>(100, Mp4Edit{0, 6})}};
    struct Case {
        fs::path source;
        std::vector<MovieTrackEdits> edits;
    };
    for (const auto& [source, edits] : {
             Case{makeMedia("movie_box_first.mp4",
                            kPicture + "-t 1 " + kH264 + "-movflags faststart"),
                  manyEdits},
             Case{movieA(), videoOnly},
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
