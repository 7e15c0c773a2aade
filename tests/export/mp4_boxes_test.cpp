#include "export/mp4_boxes.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace exporting;
using Bytes = std::vector<std::uint8_t>;

void put(Bytes& out, std::uint64_t value, int count) {
    for (int i = count - 1; i >= 0; --i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::uint64_t get(const Bytes& in, std::size_t at, int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | in[at + i];
    return value;
}

Bytes box(const char* type, const Bytes& payload) {
    Bytes out;
    put(out, payload.size() + 8, 4);
    put(out, fourCC(type), 4);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// A version 0 track header: times, track ID 7, reserved, duration, then 60 other bytes.
Bytes tkhd(std::uint32_t duration) {
    Bytes p;
    put(p, 0x00000003, 4);
    put(p, 11, 4);
    put(p, 12, 4);
    put(p, 7, 4);
    put(p, 0, 4);
    put(p, duration, 4);
    p.resize(p.size() + 60, 0xab);
    return box("tkhd", p);
}

// A version 0 media or movie header with `timescale` and `duration`, then `rest` bytes.
Bytes timedHeader(const char* type, std::uint32_t timescale, std::uint32_t duration, int rest) {
    Bytes p;
    put(p, 0, 4);
    put(p, 1, 4);
    put(p, 2, 4);
    put(p, timescale, 4);
    put(p, duration, 4);
    p.resize(p.size() + rest, 0xcd);
    return box(type, p);
}

Bytes hdlr(const char* handler) {
    Bytes p;
    put(p, 0, 4);
    put(p, 0, 4);
    put(p, fourCC(handler), 4);
    p.resize(p.size() + 13, 0);
    return box("hdlr", p);
}

Bytes stco(const std::vector<std::uint32_t>& offsets) {
    Bytes p;
    put(p, 0, 4);
    put(p, offsets.size(), 4);
    for (auto o : offsets) put(p, o, 4);
    return box("stco", p);
}

Bytes trak(const char* handler, const std::vector<std::uint32_t>& offsets,
           const Bytes& extra = {}) {
    return box("trak",
               join({tkhd(1000), extra,
                     box("mdia", join({timedHeader("mdhd", 15360, 30720, 4), hdlr(handler),
                                       box("minf", box("stbl", join({box("stsz", Bytes(12, 1)),
                                                                     stco(offsets)})))}))}));
}

Bytes movie(const Bytes& extra = {}) {
    return box("moov",
               join({timedHeader("mvhd", 1000, 2000, 80), trak("vide", {48, 5000, 90000}, extra),
                     trak("soun", {4000}), box("udta", Bytes(20, 0x55))}));
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

Mp4Box& track(Mp4Box& moov, std::size_t index) {
    std::size_t seen = 0;
    for (auto& child : moov.children)
        if (child.type == fourCC("trak") && seen++ == index) return child;
    throw std::out_of_range("no such track");
}

Mp4Box& stblOf(Mp4Box& trak) {
    return *findMp4Child(*findMp4Child(*findMp4Child(trak, fourCC("mdia")), fourCC("minf")),
                         fourCC("stbl"));
}

TEST(Mp4Boxes, ParsesContainersAndWritesThemBackByteForByte) {
    const Bytes bytes = movie();
    Mp4Box moov = parseOne(bytes);
    EXPECT_TRUE(moov.container);
    ASSERT_EQ(moov.children.size(), 4u);
    EXPECT_EQ(moov.children[3].type, fourCC("udta"));
    EXPECT_FALSE(moov.children[3].container);
    EXPECT_EQ(moov.children[3].payload, Bytes(20, 0x55));
    EXPECT_EQ(mp4BoxSize(moov), bytes.size());
    EXPECT_EQ(written(moov), bytes);
}

TEST(Mp4Boxes, ReadsSixtyFourBitAndToTheEndSizes) {
    Bytes large;
    put(large, 1, 4);
    put(large, fourCC("free"), 4);
    put(large, 16 + 3, 8);
    put(large, 0x010203, 3);
    Bytes toEnd;
    put(toEnd, 0, 4);
    put(toEnd, fourCC("mdat"), 4);
    toEnd.resize(toEnd.size() + 5, 9);
    auto boxes = parseMp4Boxes(join({large, toEnd}));
    ASSERT_TRUE(boxes) << boxes.error().message;
    ASSERT_EQ(boxes->size(), 2u);
    EXPECT_EQ((*boxes)[0].payload, (Bytes{1, 2, 3}));
    EXPECT_EQ((*boxes)[1].payload, Bytes(5, 9));

    const auto header = parseMp4BoxHeader(large, 1ull << 40);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->headerSize, 16u);
    EXPECT_EQ(header->size, 19u);
}

TEST(Mp4Boxes, RefusesBoxesThatClaimMoreThanThereIs) {
    Bytes bytes = box("free", Bytes(10, 0));
    bytes[3] = 40;
    EXPECT_FALSE(parseMp4Boxes(bytes));
    EXPECT_FALSE(parseMp4Boxes(Bytes{0, 0, 0}));
    Bytes tooSmall = box("free", {});
    tooSmall[3] = 4;
    EXPECT_FALSE(parseMp4Boxes(tooSmall));
    // A broken child makes its container broken too.
    Bytes nested = box("moov", box("trak", Bytes(3, 0)));
    nested[11] = 50;
    EXPECT_FALSE(parseMp4Boxes(nested));
}

TEST(Mp4Boxes, WritesASixtyFourBitHeaderOnlyWhenTheSizeNeedsIt) {
    Bytes small;
    appendMp4BoxHeader(small, fourCC("mdat"), 0xffffffffull - 8);
    EXPECT_EQ(small.size(), 8u);
    EXPECT_EQ(get(small, 0, 4), 0xffffffffull);
    Bytes large;
    appendMp4BoxHeader(large, fourCC("mdat"), 0xffffffffull - 7);
    ASSERT_EQ(large.size(), 16u);
    EXPECT_EQ(get(large, 0, 4), 1u);
    EXPECT_EQ(get(large, 4, 4), fourCC("mdat"));
    EXPECT_EQ(get(large, 8, 8), 0xffffffffull - 7 + 16);
}

TEST(Mp4Boxes, EditListsUseVersionZeroWhileValuesFitThirtyTwoBitsAndVersionOneBeyond) {
    const std::vector<Mp4Edit> small{{1024, 600}, {-1, 300}, {40960, 120}};
    const Bytes bytes = written(makeMp4EditBox(small));
    ASSERT_EQ(bytes.size(), 8u + 8 + 8 + 3 * 12);
    EXPECT_EQ(get(bytes, 16, 1), 0u);  // elst version
    EXPECT_EQ(get(bytes, 20, 4), 3u);  // entry count
    EXPECT_EQ(get(bytes, 24, 4), 600u);
    EXPECT_EQ(get(bytes, 28, 4), 1024u);
    EXPECT_EQ(get(bytes, 32, 4), 0x00010000u);  // rate 1.0
    EXPECT_EQ(get(bytes, 40, 4), 0xffffffffu);  // -1: empty
    EXPECT_EQ(readMp4EditList(parseOne(bytes)).value(), small);

    const std::vector<Mp4Edit> large{{-1, 5'000'000'000ull}, {3'000'000'000ll, 7}};
    const Bytes longer = written(makeMp4EditBox(large));
    ASSERT_EQ(longer.size(), 8u + 8 + 8 + 2 * 20);
    EXPECT_EQ(get(longer, 16, 1), 1u);
    EXPECT_EQ(get(longer, 24, 8), 5'000'000'000ull);
    EXPECT_EQ(get(longer, 32, 8), 0xffffffffffffffffull);
    EXPECT_EQ(readMp4EditList(parseOne(longer)).value(), large);
}

TEST(Mp4Boxes, ReplacingAnEditListPutsTheNewOneAfterTheTrackHeader) {
    Mp4Box moov = parseOne(movie(box("edts", box("elst", Bytes(8, 0)))));
    Mp4Box& video = track(moov, 0);
    ASSERT_TRUE(replaceMp4EditList(video, std::vector<Mp4Edit>{{0, 100}}));
    ASSERT_EQ(video.children.size(), 3u);
    EXPECT_EQ(video.children[0].type, fourCC("tkhd"));
    EXPECT_EQ(video.children[1].type, fourCC("edts"));
    EXPECT_EQ(*readMp4EditList(video.children[1]), (std::vector<Mp4Edit>{{0, 100}}));

    Mp4Box& sound = track(moov, 1);
    ASSERT_TRUE(replaceMp4EditList(sound, std::vector<Mp4Edit>{{-1, 5}, {2048, 10}}));
    EXPECT_EQ(sound.children[1].type, fourCC("edts"));
    // Sizes are written fresh, so the whole movie parses back the same.
    EXPECT_EQ(written(parseOne(written(moov))), written(moov));
}

TEST(Mp4Boxes, DurationsAndTimescalesAreReadAndSet) {
    Mp4Box moov = parseOne(movie());
    Mp4Box& mvhd = *findMp4Child(moov, fourCC("mvhd"));
    EXPECT_EQ(*mp4Timescale(mvhd), 1000u);
    EXPECT_EQ(*mp4Duration(mvhd), 2000u);
    ASSERT_TRUE(setMp4Timescale(mvhd, 600));
    ASSERT_TRUE(setMp4Duration(mvhd, 1234));
    EXPECT_EQ(*mp4Timescale(mvhd), 600u);
    EXPECT_EQ(*mp4Duration(mvhd), 1234u);

    Mp4Box& video = track(moov, 0);
    const Mp4Box& mdhd = *findMp4Child(*findMp4Child(video, fourCC("mdia")), fourCC("mdhd"));
    EXPECT_EQ(*mp4Timescale(mdhd), 15360u);
    EXPECT_EQ(*mp4Duration(mdhd), 30720u);
    EXPECT_EQ(*mp4HandlerType(*findMp4Child(*findMp4Child(video, fourCC("mdia")), fourCC("hdlr"))),
              fourCC("vide"));
    EXPECT_FALSE(mp4Timescale(*findMp4Child(video, fourCC("tkhd"))));
}

TEST(Mp4Boxes, ALongTrackHeaderMovesToVersionOneAndKeepsItsOtherFields) {
    Mp4Box moov = parseOne(movie());
    Mp4Box& tkhdBox = *findMp4Child(track(moov, 0), fourCC("tkhd"));
    const Bytes before = tkhdBox.payload;
    ASSERT_TRUE(setMp4Duration(tkhdBox, 6'000'000'000ull));
    const Bytes& after = tkhdBox.payload;
    ASSERT_EQ(after.size(), before.size() + 12);
    EXPECT_EQ(after[0], 1);
    EXPECT_EQ(get(after, 1, 3), 3u);    // flags
    EXPECT_EQ(get(after, 4, 8), 11u);   // creation time
    EXPECT_EQ(get(after, 12, 8), 12u);  // modification time
    EXPECT_EQ(get(after, 20, 4), 7u);   // track ID
    EXPECT_EQ(*mp4Duration(tkhdBox), 6'000'000'000ull);
    EXPECT_EQ(Bytes(after.end() - 60, after.end()), Bytes(60, 0xab));

    Mp4Box& mvhd = *findMp4Child(moov, fourCC("mvhd"));
    ASSERT_TRUE(setMp4Duration(mvhd, 1ull << 33));
    EXPECT_EQ(*mp4Timescale(mvhd), 1000u);
    EXPECT_EQ(*mp4Duration(mvhd), 1ull << 33);
    EXPECT_EQ(written(parseOne(written(moov))), written(moov));
}

TEST(Mp4Boxes, ShiftsEveryChunkOffsetOfEveryTrackPastFourGigabytesIntoCo64) {
    Mp4Box moov = parseOne(movie());
    const std::uint64_t size = mp4BoxSize(moov);
    ASSERT_TRUE(shiftMp4ChunkOffsets(moov, 1000));
    EXPECT_EQ(mp4BoxSize(moov), size);
    EXPECT_EQ(*readMp4ChunkOffsets(stblOf(track(moov, 0))),
              (std::vector<std::uint64_t>{1048, 6000, 91000}));
    EXPECT_EQ(*readMp4ChunkOffsets(stblOf(track(moov, 1))), (std::vector<std::uint64_t>{5000}));

    const std::uint64_t shift = 0xffffffffull - 11000;
    const std::vector<std::uint64_t> far{shift + 1048, shift + 6000, shift + 91000};
    ASSERT_TRUE(shiftMp4ChunkOffsets(moov, shift));
    Mp4Box& video = stblOf(track(moov, 0));
    EXPECT_EQ(findMp4Child(video, fourCC("stco")), nullptr);
    ASSERT_NE(findMp4Child(video, fourCC("co64")), nullptr);
    EXPECT_EQ(*readMp4ChunkOffsets(video), far);
    // The sound track's one offset still fits, so it keeps its 32-bit table.
    EXPECT_NE(findMp4Child(stblOf(track(moov, 1)), fourCC("stco")), nullptr);
    EXPECT_EQ(mp4BoxSize(moov), size + 3 * 4);
    // The co64 sits where the stco was, and the sizes of its parents follow.
    const Bytes bytes = written(moov);
    EXPECT_EQ(bytes.size(), size + 12);
    EXPECT_EQ(get(bytes, 0, 4), size + 12);
    Mp4Box again = parseOne(bytes);
    EXPECT_EQ(*readMp4ChunkOffsets(stblOf(track(again, 0))), far);
    EXPECT_EQ(stblOf(track(again, 0)).children.back().type, fourCC("co64"));
}

}  // namespace
