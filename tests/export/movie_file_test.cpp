#include "export/movie_file.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_media.h"
#include "export/mp4_boxes.h"

// The boxes on byte buffers, then whole movie files finished on disk.
namespace {

namespace fs = std::filesystem;
using namespace exporting;
using namespace export_media;
using Bytes = std::vector<std::uint8_t>;

// Each value as a big-endian 32-bit number, then `pad` bytes of `padByte`.
Bytes words(const std::vector<std::uint64_t>& values, std::size_t pad = 0,
            std::uint8_t padByte = 0) {
    Bytes out;
    for (auto value : values)
        for (int shift = 24; shift >= 0; shift -= 8) out.push_back(std::uint8_t(value >> shift));
    out.resize(out.size() + pad, padByte);
    return out;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes box(const char* type, const Bytes& payload) {
    return join({words({payload.size() + 8, fourCC(type)}), payload});
}

// A track with a version 0 header (flags 3, times 11 and 12, ID 7, duration 1000, then 60
// other bytes), a media header, a handler and a sample table whose stco holds `offsets`.
Bytes trak(const char* handler, std::vector<std::uint64_t> offsets, const Bytes& extra = {}) {
    offsets.insert(offsets.begin(), {0, offsets.size()});
    const Bytes stbl = box("stbl", join({box("stsz", Bytes(12, 1)), box("stco", words(offsets))}));
    return box("trak", join({box("tkhd", words({3, 11, 12, 7, 0, 1000}, 60, 0xab)), extra,
                             box("mdia", join({box("mdhd", words({0, 1, 2, 15360, 30720}, 4)),
                                               box("hdlr", words({0, 0, fourCC(handler)}, 13)),
                                               box("minf", stbl)}))}));
}

Bytes movie(const Bytes& extra = {}) {
    return box("moov", join({box("mvhd", words({0, 1, 2, 1000, 2000}, 80, 0xcd)),
                             trak("vide", {48, 5000, 90000}, extra), trak("soun", {4000}),
                             box("udta", Bytes(20, 0x55))}));
}

Mp4Box parseOne(const Bytes& bytes) {
    auto boxes = parseMp4Boxes(bytes);
    EXPECT_TRUE(boxes) << boxes.error().message;
    EXPECT_EQ(boxes->size(), 1u);
    return boxes->front();
}

Bytes written(const Mp4Box& b) {
    Bytes out;
    appendMp4Box(out, b);
    return out;
}

Mp4Box& track(Mp4Box& moov, const char* handler) {
    return *findMp4Track(moov, fourCC(handler));
}

Mp4Box& stblOf(Mp4Box& trak) {
    return *findMp4Child(*findMp4Child(*findMp4Child(trak, fourCC("mdia")), fourCC("minf")),
                         fourCC("stbl"));
}

TEST(Mp4Boxes, ParsesContainersAndWritesThemBackByteForByte) {
    EXPECT_EQ(written(parseOne(movie())), movie());
}

TEST(Mp4Boxes, ReadsSixtyFourBitAndToTheEndSizes) {
    const Bytes large = join({words({1, fourCC("free"), 0, 16 + 3}), Bytes{1, 2, 3}});
    auto boxes = parseMp4Boxes(join({large, words({0, fourCC("mdat")}, 5, 9)}));
    ASSERT_TRUE(boxes) << boxes.error().message;
    ASSERT_EQ(boxes->size(), 2u);
    EXPECT_EQ((*boxes)[0].payload, (Bytes{1, 2, 3}));
    EXPECT_EQ((*boxes)[1].payload, Bytes(5, 9));

    const auto header = parseMp4BoxHeader(large, 1ull << 40);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->headerSize, 16u);
    EXPECT_EQ(header->size, 19u);
}

TEST(Mp4Boxes, RefusesBoxesThatClaimMoreOrLessThanThereIs) {
    Bytes tooLarge = box("free", Bytes(10, 0));
    tooLarge[3] = 40;
    Bytes tooSmall = box("free", {});
    tooSmall[3] = 4;
    // A broken child makes its container broken too.
    Bytes nested = box("moov", box("trak", Bytes(3, 0)));
    nested[11] = 50;
    for (const auto& bytes : {tooLarge, tooSmall, nested, Bytes{0, 0, 0}})
        EXPECT_FALSE(parseMp4Boxes(bytes)) << bytes.size();
}

TEST(Mp4Boxes, WritesASixtyFourBitHeaderOnlyWhenTheSizeNeedsIt) {
    Bytes small;
    appendMp4BoxHeader(small, fourCC("mdat"), 0xffffffffull - 8);
    EXPECT_EQ(small, words({0xffffffff, fourCC("mdat")}));
    Bytes large;
    appendMp4BoxHeader(large, fourCC("mdat"), 0xffffffffull - 7);
    EXPECT_EQ(large, words({1, fourCC("mdat"), 1, 8}));
}

TEST(Mp4Boxes, EditListsUseVersionZeroWhileValuesFitThirtyTwoBitsAndVersionOneBeyond) {
    const std::vector<Mp4Edit> small{{1024, 600}, {-1, 300}, {40960, 120}};
    const Bytes bytes = written(makeMp4EditBox(small));
    // Duration, media time and rate 1.0 of each entry; -1 is an empty edit.
    EXPECT_EQ(bytes, box("edts", box("elst", words({0, 3, 600, 1024, 0x10000, 300, 0xffffffff,
                                                    0x10000, 120, 40960, 0x10000}))));
    EXPECT_EQ(readMp4EditList(parseOne(bytes)).value(), small);

    const std::vector<Mp4Edit> large{{-1, 5'000'000'000ull}, {3'000'000'000ll, 7}};
    const Bytes longer = written(makeMp4EditBox(large));
    EXPECT_EQ(longer,
              box("edts", box("elst", words({0x01000000, 2, 1, 705032704, 0xffffffff, 0xffffffff,
                                             0x10000, 0, 7, 0, 3000000000, 0x10000}))));
    EXPECT_EQ(readMp4EditList(parseOne(longer)).value(), large);
}

TEST(Mp4Boxes, ReplacingAnEditListPutsTheNewOneAfterTheTrackHeader) {
    Mp4Box moov = parseOne(movie(box("edts", box("elst", Bytes(8, 0)))));
    Mp4Box& video = track(moov, "vide");
    ASSERT_TRUE(replaceMp4EditList(video, std::vector<Mp4Edit>{{0, 100}}));
    ASSERT_EQ(video.children.size(), 3u);
    EXPECT_EQ(video.children[0].type, fourCC("tkhd"));
    EXPECT_EQ(video.children[1].type, fourCC("edts"));
    EXPECT_EQ(*readMp4EditList(video.children[1]), (std::vector<Mp4Edit>{{0, 100}}));

    Mp4Box& sound = track(moov, "soun");
    ASSERT_TRUE(replaceMp4EditList(sound, std::vector<Mp4Edit>{{-1, 5}, {2048, 10}}));
    EXPECT_EQ(sound.children[1].type, fourCC("edts"));
}

TEST(Mp4Boxes, ALongDurationMovesAHeaderToVersionOneKeepingItsOtherFields) {
    Mp4Box moov = parseOne(movie());
    Mp4Box& tkhd = *findMp4Child(track(moov, "vide"), fourCC("tkhd"));
    ASSERT_TRUE(setMp4Duration(tkhd, 6'000'000'000ull));
    // Flags, 64-bit creation and modification times, ID, reserved, duration, the rest.
    EXPECT_EQ(tkhd.payload, words({0x01000003, 0, 11, 0, 12, 7, 0, 1, 1705032704}, 60, 0xab));
    EXPECT_EQ(*mp4Duration(tkhd), 6'000'000'000ull);

    Mp4Box& mvhd = *findMp4Child(moov, fourCC("mvhd"));
    ASSERT_TRUE(setMp4Duration(mvhd, 1ull << 33));
    EXPECT_EQ(*mp4Timescale(mvhd), 1000u);
    EXPECT_EQ(*mp4Duration(mvhd), 1ull << 33);
}

TEST(Mp4Boxes, ShiftsEveryChunkOffsetOfEveryTrackPastFourGigabytesIntoCo64) {
    Mp4Box moov = parseOne(movie());
    const std::uint64_t size = mp4BoxSize(moov);
    ASSERT_TRUE(shiftMp4ChunkOffsets(moov, 1000));
    EXPECT_EQ(mp4BoxSize(moov), size);
    EXPECT_EQ(*readMp4ChunkOffsets(stblOf(track(moov, "vide"))),
              (std::vector<std::uint64_t>{1048, 6000, 91000}));
    EXPECT_EQ(*readMp4ChunkOffsets(stblOf(track(moov, "soun"))),
              (std::vector<std::uint64_t>{5000}));

    const std::uint64_t shift = 0xffffffffull - 11000;
    const std::vector<std::uint64_t> far{shift + 1048, shift + 6000, shift + 91000};
    ASSERT_TRUE(shiftMp4ChunkOffsets(moov, shift));
    EXPECT_EQ(findMp4Child(stblOf(track(moov, "vide")), fourCC("stco")), nullptr);
    // The sound track's one offset still fits, so it keeps its 32-bit table.
    EXPECT_NE(findMp4Child(stblOf(track(moov, "soun")), fourCC("stco")), nullptr);
    // The co64 sits where the stco was, and the sizes of its parents follow.
    const Bytes bytes = written(moov);
    EXPECT_EQ(bytes.size(), size + 12);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 4), words({size + 12}));
    Mp4Box again = parseOne(bytes);
    EXPECT_EQ(*readMp4ChunkOffsets(stblOf(track(again, "vide"))), far);
    EXPECT_EQ(stblOf(track(again, "vide")).children.back().type, fourCC("co64"));
}

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

// The room the muxer kept in front of the media data is left a free box.
TEST(MovieFile, FinishesInTheRoomKept) {
    const auto edits = sameEditsAt600(movieA());
    const auto kept = testing_support::freshDir("movie_file_room") / "kept.mp4";
    fs::copy_file(
        makeMedia("movie_box_in_room.mp4", kPicture + "-t 2 " + kH264 + "-moov_size 200000"), kept);
    ASSERT_TRUE(exporting::finishMovieFile(kept, 600, {edits.data(), 1}, MovieBoxMove::copy));
    EXPECT_EQ(topLevelTypes(kept), "ftypmoovfreemdat");
    EXPECT_EQ(trackOf(kept, "vide").edits, edits[0].edits);
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
