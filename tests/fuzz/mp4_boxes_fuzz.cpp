// The MP4 box reader and rewriter: what parses, rewritten or not, writes back to the same boxes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "export/mp4_boxes.h"

namespace {

using namespace exporting;

bool sameBox(const Mp4Box& a, const Mp4Box& b) {
    return a.type == b.type && a.container == b.container && a.payload == b.payload &&
           std::equal(a.children.begin(), a.children.end(), b.children.begin(), b.children.end(),
                      sameBox);
}

// Writes `boxes` and aborts unless they parse back to the same boxes.
void roundTrip(const std::vector<Mp4Box>& boxes) {
    std::vector<std::uint8_t> out;
    for (const auto& box : boxes) appendMp4Box(out, box);
    auto again = parseMp4Boxes(out);
    if (!again || !std::equal(boxes.begin(), boxes.end(), again->begin(), again->end(), sameBox))
        std::abort();
}

void rewrite(Mp4Box& moov, std::uint64_t value) {
    for (FourCC handler : {fourCC("vide"), fourCC("soun")}) {
        Mp4Box* trak = findMp4Track(moov, handler);
        if (!trak) continue;
        if (const Mp4Box* edts = findMp4Child(*trak, fourCC("edts")))
            static_cast<void>(readMp4EditList(*edts));
        const Mp4Edit edits[] = {{-1, value & 0xffff},
                                 {static_cast<std::int64_t>(value >> 1), value}};
        static_cast<void>(replaceMp4EditList(*trak, edits));
        if (Mp4Box* tkhd = findMp4Child(*trak, fourCC("tkhd"))) {
            static_cast<void>(mp4Duration(*tkhd));
            static_cast<void>(setMp4Duration(*tkhd, value));
        }
        if (Mp4Box* mdia = findMp4Child(*trak, fourCC("mdia"))) {
            if (Mp4Box* mdhd = findMp4Child(*mdia, fourCC("mdhd"))) {
                static_cast<void>(mp4Timescale(*mdhd));
                static_cast<void>(setMp4Timescale(*mdhd, static_cast<std::uint32_t>(value)));
            }
            if (Mp4Box* minf = findMp4Child(*mdia, fourCC("minf")))
                if (Mp4Box* stbl = findMp4Child(*minf, fourCC("stbl")))
                    static_cast<void>(readMp4ChunkOffsets(*stbl));
        }
        static_cast<void>(setMp4CleanAperture(*trak, static_cast<std::uint32_t>(value & 0xffff),
                                              static_cast<std::uint32_t>(value >> 16 & 0xffff)));
    }
    if (Mp4Box* mvhd = findMp4Child(moov, fourCC("mvhd")))
        static_cast<void>(setMp4Duration(*mvhd, value));
    static_cast<void>(shiftMp4ChunkOffsets(moov, value));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    if (size >= 8) static_cast<void>(parseMp4BoxHeader(bytes, size));
    auto parsed = parseMp4Boxes(bytes);
    if (!parsed) return 0;
    roundTrip(*parsed);

    // The last eight bytes choose the values written, so the fuzzer steers them too.
    std::uint64_t value = 0;
    for (std::size_t i = size >= 8 ? size - 8 : 0; i < size; ++i) value = value << 8 | data[i];
    for (Mp4Box& box : *parsed)
        if (box.type == fourCC("moov")) rewrite(box, value);
    roundTrip(*parsed);
    return 0;
}
