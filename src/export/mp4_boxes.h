#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "common/result.h"

namespace exporting {

// A box type, its four characters read as one big-endian number.
using FourCC = std::uint32_t;

constexpr FourCC fourCC(std::string_view code) {
    FourCC value = 0;
    for (char c : code) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

// One box of an ISO base media file (MP4, QuickTime, M4A). The containers this module
// walks into (moov, trak, edts, mdia, minf, stbl) keep their children; every other box
// keeps its payload, the bytes after its size and type, untouched. A plain value.
struct Mp4Box {
    FourCC type = 0;
    bool container = false;
    std::vector<std::uint8_t> payload;  // empty for a container
    std::vector<Mp4Box> children;       // empty for a leaf
};

// The size and type at the start of a box. `size` counts the header too.
struct Mp4BoxHeader {
    FourCC type = 0;
    std::uint64_t size = 0;
    std::uint32_t headerSize = 0;  // 8, or 16 with a 64-bit size
};

// Reads the header at the start of `bytes`, a box that may run on for `available` bytes
// in all (a size of 0 means "to the end", and gets `available`). None when the header is
// cut short or its size cannot be right.
std::optional<Mp4BoxHeader> parseMp4BoxHeader(std::span<const std::uint8_t> bytes,
                                              std::uint64_t available);

// The boxes that fill `bytes` exactly, or an error naming the first malformed one.
common::Result<std::vector<Mp4Box>> parseMp4Boxes(std::span<const std::uint8_t> bytes);

// Bytes `box` takes when written: a 32-bit size where it fits, else a 64-bit one.
std::uint64_t mp4BoxSize(const Mp4Box& box);

// Appends the header of a box of `type` whose payload is `payloadSize` bytes.
void appendMp4BoxHeader(std::vector<std::uint8_t>& out, FourCC type, std::uint64_t payloadSize);

// Appends `box` with all its children, sizes written fresh.
void appendMp4Box(std::vector<std::uint8_t>& out, const Mp4Box& box);

// The first child of `parent` of `type`, or null.
Mp4Box* findMp4Child(Mp4Box& parent, FourCC type);
const Mp4Box* findMp4Child(const Mp4Box& parent, FourCC type);

// One entry of an edit list at rate 1: `mediaTime` in the track's media timescale, or -1
// for an empty edit; `duration` in the movie timescale.
struct Mp4Edit {
    std::int64_t mediaTime = -1;
    std::uint64_t duration = 0;

    friend bool operator==(const Mp4Edit&, const Mp4Edit&) = default;
};

// An edts box holding one elst with `edits`; version 1 entries where a value needs more
// than 32 bits.
Mp4Box makeMp4EditBox(std::span<const Mp4Edit> edits);

// The entries of the elst inside `edts`.
common::Result<std::vector<Mp4Edit>> readMp4EditList(const Mp4Box& edts);

// Gives `trak` a new edit list in place of any it had, after its tkhd.
common::Status replaceMp4EditList(Mp4Box& trak, std::span<const Mp4Edit> edits);

// The timescale of an mvhd or mdhd box, both of which keep it at the same place.
common::Result<std::uint32_t> mp4Timescale(const Mp4Box& header);

// The duration of an mvhd, tkhd or mdhd box, in the unit that box uses.
common::Result<std::uint64_t> mp4Duration(const Mp4Box& header);

// Sets the duration of an mvhd, tkhd or mdhd box, moving it to version 1 if the value
// needs more than 32 bits.
common::Status setMp4Duration(Mp4Box& header, std::uint64_t duration);

// Sets the timescale of an mvhd or mdhd box; durations are not converted.
common::Status setMp4Timescale(Mp4Box& header, std::uint32_t timescale);

// The handler type of an hdlr box ('vide', 'soun', ...).
common::Result<FourCC> mp4HandlerType(const Mp4Box& hdlr);

// The first track of `moov` whose handler is `handler`, or null.
Mp4Box* findMp4Track(Mp4Box& moov, FourCC handler);

// The chunk offsets of an stbl box, from its stco or co64.
common::Result<std::vector<std::uint64_t>> readMp4ChunkOffsets(const Mp4Box& stbl);

// Adds `shift` to every chunk offset in the stbl boxes of every track of `moov`; a track
// whose offsets no longer fit 32 bits gets a co64 in place of its stco.
common::Status shiftMp4ChunkOffsets(Mp4Box& moov, std::uint64_t shift);

// Has players show only the top-left `width` x `height` of the pictures of the video track
// `trak`, which are coded larger: the track header's display size becomes that, and the
// first sample entry gets a clean aperture box over that corner in place of any it had.
common::Status setMp4CleanAperture(Mp4Box& trak, std::uint32_t width, std::uint32_t height);

}  // namespace exporting
