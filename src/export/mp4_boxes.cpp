#include "export/mp4_boxes.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>

namespace exporting {

namespace {

constexpr std::array<FourCC, 6> kContainers{fourCC("moov"), fourCC("trak"), fourCC("edts"),
                                            fourCC("mdia"), fourCC("minf"), fourCC("stbl")};

constexpr std::uint32_t kSmallHeader = 8;
constexpr std::uint32_t kLargeHeader = 16;
constexpr std::size_t kFullBoxHeader = 4;  // version and flags
constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();

bool isContainer(FourCC type) {
    return std::find(kContainers.begin(), kContainers.end(), type) != kContainers.end();
}

std::string typeName(FourCC type) {
    std::string name(4, ' ');
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(type >> (24 - 8 * i) & 0xff);
        name[i] = c >= 0x20 && c < 0x7f ? c : '?';
    }
    return name;
}

common::Error malformed(FourCC type, const std::string& what) {
    return common::Error{"The " + typeName(type) + " box is malformed: " + what + "."};
}

std::uint64_t readBig(std::span<const std::uint8_t> bytes, std::size_t at, int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | bytes[at + i];
    return value;
}

void writeBig(std::span<std::uint8_t> bytes, std::size_t at, std::uint64_t value, int count) {
    for (int i = count - 1; i >= 0; --i) {
        bytes[at + i] = static_cast<std::uint8_t>(value & 0xff);
        value >>= 8;
    }
}

void appendBig(std::vector<std::uint8_t>& out, std::uint64_t value, int count) {
    out.resize(out.size() + count);
    writeBig(out, out.size() - count, value, count);
}

// Where a movie, track or media header keeps its fields. The three share the layout of
// their opening: version 0 has 32-bit times and duration, version 1 64-bit ones; only the
// field between the modification time and the duration differs (a timescale in mvhd and
// mdhd, a track ID and a reserved word in tkhd).
struct HeaderLayout {
    int version = 0;
    std::size_t timescaleAt = 0;  // mvhd and mdhd only
    std::size_t durationAt = 0;
    int durationBytes = 4;
};

common::Result<HeaderLayout> headerLayout(const Mp4Box& box) {
    if (box.type != fourCC("mvhd") && box.type != fourCC("tkhd") && box.type != fourCC("mdhd"))
        return common::Error{"A " + typeName(box.type) + " box has no duration field."};
    if (box.payload.size() < kFullBoxHeader) return malformed(box.type, "it is empty");
    HeaderLayout layout;
    layout.version = box.payload[0];
    if (layout.version > 1) return malformed(box.type, "its version is unknown");
    const std::size_t timeBytes = layout.version == 1 ? 8 : 4;
    layout.timescaleAt = kFullBoxHeader + 2 * timeBytes;
    const std::size_t middleBytes = box.type == fourCC("tkhd") ? 8 : 4;
    layout.durationAt = layout.timescaleAt + middleBytes;
    layout.durationBytes = static_cast<int>(timeBytes);
    if (box.payload.size() < layout.durationAt + timeBytes)
        return malformed(box.type, "it is too short for its duration");
    return layout;
}

// Rewrites a version 0 header as version 1: the creation and modification times and the
// duration widen to 64 bits, everything else stays.
void widenHeader(Mp4Box& box, const HeaderLayout& layout) {
    const auto& old = box.payload;
    std::vector<std::uint8_t> wide;
    wide.reserve(old.size() + 12);
    wide.push_back(1);
    wide.insert(wide.end(), old.begin() + 1, old.begin() + kFullBoxHeader);
    appendBig(wide, readBig(old, kFullBoxHeader, 4), 8);
    appendBig(wide, readBig(old, kFullBoxHeader + 4, 4), 8);
    wide.insert(wide.end(), old.begin() + layout.timescaleAt, old.begin() + layout.durationAt);
    appendBig(wide, readBig(old, layout.durationAt, 4), 8);
    wide.insert(wide.end(), old.begin() + layout.durationAt + 4, old.end());
    box.payload = std::move(wide);
}

common::Result<std::vector<std::uint64_t>> readOffsets(const Mp4Box& box) {
    const int width = box.type == fourCC("co64") ? 8 : 4;
    if (box.payload.size() < kFullBoxHeader + 4) return malformed(box.type, "it is too short");
    const std::uint64_t count = readBig(box.payload, kFullBoxHeader, 4);
    if (box.payload.size() < kFullBoxHeader + 4 + count * width)
        return malformed(box.type, "it holds fewer offsets than it counts");
    std::vector<std::uint64_t> offsets(count);
    for (std::uint64_t i = 0; i < count; ++i)
        offsets[i] = readBig(box.payload, kFullBoxHeader + 4 + i * width, width);
    return offsets;
}

Mp4Box makeOffsetBox(const std::vector<std::uint64_t>& offsets) {
    const bool wide =
        !offsets.empty() && *std::max_element(offsets.begin(), offsets.end()) > kMax32;
    const int width = wide ? 8 : 4;
    Mp4Box box{wide ? fourCC("co64") : fourCC("stco"), false, {}, {}};
    box.payload.reserve(kFullBoxHeader + 4 + offsets.size() * width);
    appendBig(box.payload, 0, 4);
    appendBig(box.payload, offsets.size(), 4);
    for (std::uint64_t offset : offsets) appendBig(box.payload, offset, width);
    return box;
}

common::Status shiftTrack(Mp4Box& trak, std::uint64_t shift) {
    Mp4Box* mdia = findMp4Child(trak, fourCC("mdia"));
    Mp4Box* minf = mdia ? findMp4Child(*mdia, fourCC("minf")) : nullptr;
    Mp4Box* stbl = minf ? findMp4Child(*minf, fourCC("stbl")) : nullptr;
    if (!stbl) return malformed(trak.type, "it has no sample table");
    auto offsets = readMp4ChunkOffsets(*stbl);
    if (!offsets) return offsets.error();
    for (auto& offset : *offsets) offset += shift;
    for (auto& child : stbl->children) {
        if (child.type == fourCC("stco") || child.type == fourCC("co64")) {
            child = makeOffsetBox(*offsets);
            break;
        }
    }
    return common::success();
}

}  // namespace

std::optional<Mp4BoxHeader> parseMp4BoxHeader(std::span<const std::uint8_t> bytes,
                                              std::uint64_t available) {
    if (bytes.size() < kSmallHeader || available < kSmallHeader) return std::nullopt;
    Mp4BoxHeader header;
    header.type = static_cast<FourCC>(readBig(bytes, 4, 4));
    header.size = readBig(bytes, 0, 4);
    header.headerSize = kSmallHeader;
    if (header.size == 1) {
        if (bytes.size() < kLargeHeader) return std::nullopt;
        header.size = readBig(bytes, 8, 8);
        header.headerSize = kLargeHeader;
    } else if (header.size == 0) {
        header.size = available;
    }
    if (header.size < header.headerSize || header.size > available) return std::nullopt;
    return header;
}

common::Result<std::vector<Mp4Box>> parseMp4Boxes(std::span<const std::uint8_t> bytes) {
    std::vector<Mp4Box> boxes;
    std::size_t at = 0;
    while (at < bytes.size()) {
        const auto rest = bytes.subspan(at);
        const auto header = parseMp4BoxHeader(rest, rest.size());
        if (!header) {
            return common::Error{"A box header at byte " + std::to_string(at) +
                                 " is cut short or claims more bytes than there are."};
        }
        const auto payload = rest.subspan(header->headerSize, header->size - header->headerSize);
        Mp4Box box{header->type, isContainer(header->type), {}, {}};
        if (box.container) {
            auto children = parseMp4Boxes(payload);
            if (!children) return malformed(box.type, children.error().message);
            box.children = std::move(children).value();
        } else {
            box.payload.assign(payload.begin(), payload.end());
        }
        boxes.push_back(std::move(box));
        at += header->size;
    }
    return boxes;
}

std::uint64_t mp4BoxSize(const Mp4Box& box) {
    std::uint64_t payload = box.payload.size();
    for (const auto& child : box.children) payload += mp4BoxSize(child);
    return payload + kSmallHeader > kMax32 ? payload + kLargeHeader : payload + kSmallHeader;
}

void appendMp4BoxHeader(std::vector<std::uint8_t>& out, FourCC type, std::uint64_t payloadSize) {
    if (payloadSize + kSmallHeader <= kMax32) {
        appendBig(out, payloadSize + kSmallHeader, 4);
        appendBig(out, type, 4);
    } else {
        appendBig(out, 1, 4);
        appendBig(out, type, 4);
        appendBig(out, payloadSize + kLargeHeader, 8);
    }
}

void appendMp4Box(std::vector<std::uint8_t>& out, const Mp4Box& box) {
    const std::uint64_t size = mp4BoxSize(box);
    appendMp4BoxHeader(out, box.type, size - (size > kMax32 ? kLargeHeader : kSmallHeader));
    out.insert(out.end(), box.payload.begin(), box.payload.end());
    for (const auto& child : box.children) appendMp4Box(out, child);
}

Mp4Box* findMp4Child(Mp4Box& parent, FourCC type) {
    for (auto& child : parent.children)
        if (child.type == type) return &child;
    return nullptr;
}

const Mp4Box* findMp4Child(const Mp4Box& parent, FourCC type) {
    for (const auto& child : parent.children)
        if (child.type == type) return &child;
    return nullptr;
}

Mp4Box makeMp4EditBox(std::span<const Mp4Edit> edits) {
    const bool wide = std::any_of(edits.begin(), edits.end(), [](const Mp4Edit& e) {
        return e.duration > kMax32 || e.mediaTime > std::numeric_limits<std::int32_t>::max() ||
               e.mediaTime < std::numeric_limits<std::int32_t>::min();
    });
    const int width = wide ? 8 : 4;
    Mp4Box elst{fourCC("elst"), false, {}, {}};
    appendBig(elst.payload, wide ? 1u << 24 : 0, 4);
    appendBig(elst.payload, edits.size(), 4);
    for (const auto& edit : edits) {
        appendBig(elst.payload, edit.duration, width);
        appendBig(elst.payload, static_cast<std::uint64_t>(edit.mediaTime), width);
        appendBig(elst.payload, 0x00010000, 4);  // media rate 1.0 as 16.16
    }
    return Mp4Box{fourCC("edts"), true, {}, {std::move(elst)}};
}

common::Result<std::vector<Mp4Edit>> readMp4EditList(const Mp4Box& edts) {
    const Mp4Box* elst = findMp4Child(edts, fourCC("elst"));
    if (!elst) return malformed(edts.type, "it holds no elst");
    const auto& p = elst->payload;
    if (p.size() < kFullBoxHeader + 4) return malformed(elst->type, "it is too short");
    const int width = p[0] == 1 ? 8 : 4;
    const std::uint64_t count = readBig(p, kFullBoxHeader, 4);
    const std::size_t entryBytes = 2 * width + 4;
    if (p.size() < kFullBoxHeader + 4 + count * entryBytes)
        return malformed(elst->type, "it holds fewer entries than it counts");
    std::vector<Mp4Edit> edits(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::size_t at = kFullBoxHeader + 4 + i * entryBytes;
        edits[i].duration = readBig(p, at, width);
        const std::uint64_t media = readBig(p, at + width, width);
        edits[i].mediaTime = width == 8
                                 ? static_cast<std::int64_t>(media)
                                 : static_cast<std::int32_t>(static_cast<std::uint32_t>(media));
    }
    return edits;
}

common::Status replaceMp4EditList(Mp4Box& trak, std::span<const Mp4Edit> edits) {
    auto& children = trak.children;
    std::erase_if(children, [](const Mp4Box& b) { return b.type == fourCC("edts"); });
    const auto tkhd = std::find_if(children.begin(), children.end(),
                                   [](const Mp4Box& b) { return b.type == fourCC("tkhd"); });
    if (tkhd == children.end()) return malformed(trak.type, "it has no track header");
    children.insert(tkhd + 1, makeMp4EditBox(edits));
    return common::success();
}

common::Result<std::uint32_t> mp4Timescale(const Mp4Box& header) {
    auto layout = headerLayout(header);
    if (!layout) return layout.error();
    if (header.type == fourCC("tkhd")) return malformed(header.type, "it has no timescale");
    return static_cast<std::uint32_t>(readBig(header.payload, layout->timescaleAt, 4));
}

common::Result<std::uint64_t> mp4Duration(const Mp4Box& header) {
    auto layout = headerLayout(header);
    if (!layout) return layout.error();
    return readBig(header.payload, layout->durationAt, layout->durationBytes);
}

common::Status setMp4Duration(Mp4Box& header, std::uint64_t duration) {
    auto layout = headerLayout(header);
    if (!layout) return layout.error();
    if (layout->version == 0 && duration > kMax32) {
        widenHeader(header, *layout);
        layout = headerLayout(header);
        if (!layout) return layout.error();
    }
    writeBig(header.payload, layout->durationAt, duration, layout->durationBytes);
    return common::success();
}

common::Status setMp4Timescale(Mp4Box& header, std::uint32_t timescale) {
    auto layout = headerLayout(header);
    if (!layout) return layout.error();
    if (header.type == fourCC("tkhd")) return malformed(header.type, "it has no timescale");
    writeBig(header.payload, layout->timescaleAt, timescale, 4);
    return common::success();
}

common::Result<FourCC> mp4HandlerType(const Mp4Box& hdlr) {
    // Version and flags, then a pre-defined word (QuickTime's component type), then the type.
    if (hdlr.type != fourCC("hdlr") || hdlr.payload.size() < 12)
        return malformed(hdlr.type, "it names no handler type");
    return static_cast<FourCC>(readBig(hdlr.payload, 8, 4));
}

Mp4Box* findMp4Track(Mp4Box& moov, FourCC handler) {
    for (auto& trak : moov.children) {
        const Mp4Box* mdia =
            trak.type == fourCC("trak") ? findMp4Child(trak, fourCC("mdia")) : nullptr;
        const Mp4Box* hdlr = mdia ? findMp4Child(*mdia, fourCC("hdlr")) : nullptr;
        const auto type = hdlr ? mp4HandlerType(*hdlr) : common::Result<FourCC>(FourCC{0});
        if (type && *type == handler) return &trak;
    }
    return nullptr;
}

common::Result<std::vector<std::uint64_t>> readMp4ChunkOffsets(const Mp4Box& stbl) {
    for (const auto& child : stbl.children)
        if (child.type == fourCC("stco") || child.type == fourCC("co64")) return readOffsets(child);
    return malformed(stbl.type, "it has no chunk offsets");
}

common::Status shiftMp4ChunkOffsets(Mp4Box& moov, std::uint64_t shift) {
    for (auto& child : moov.children) {
        if (child.type != fourCC("trak")) continue;
        if (auto shifted = shiftTrack(child, shift); !shifted) return shifted;
    }
    return common::success();
}

common::Status setMp4CleanAperture(Mp4Box& trak, std::uint32_t width, std::uint32_t height) {
    Mp4Box* tkhd = findMp4Child(trak, fourCC("tkhd"));
    if (!tkhd) return malformed(trak.type, "it has no track header");
    if (auto layout = headerLayout(*tkhd); !layout) return layout.error();
    // The display size closes the track header, two 16.16 fixed-point numbers.
    const std::size_t sizeAt = tkhd->payload.size() - 8;
    writeBig(tkhd->payload, sizeAt, std::uint64_t{width} << 16, 4);
    writeBig(tkhd->payload, sizeAt + 4, std::uint64_t{height} << 16, 4);

    Mp4Box* mdia = findMp4Child(trak, fourCC("mdia"));
    Mp4Box* minf = mdia ? findMp4Child(*mdia, fourCC("minf")) : nullptr;
    Mp4Box* stbl = minf ? findMp4Child(*minf, fourCC("stbl")) : nullptr;
    Mp4Box* stsd = stbl ? findMp4Child(*stbl, fourCC("stsd")) : nullptr;
    if (!stsd) return malformed(trak.type, "it has no sample descriptions");
    // Version and flags, an entry count, then the first entry: its size and type, the
    // sample entry's 8 bytes, 16 reserved ones, the coded width and height, 54 more bytes of
    // a visual sample entry, and its child boxes.
    constexpr std::size_t kEntryAt = 8;
    constexpr std::size_t kCodedSizeAt = kEntryAt + 32;
    constexpr std::size_t kChildrenAt = kEntryAt + 86;
    std::vector<std::uint8_t>& payload = stsd->payload;
    if (payload.size() < kChildrenAt || readBig(payload, 4, 4) == 0)
        return malformed(stsd->type, "it describes no pictures");
    const std::uint64_t entrySize = readBig(payload, kEntryAt, 4);
    if (entrySize < kChildrenAt - kEntryAt || entrySize > payload.size() - kEntryAt)
        return malformed(stsd->type, "its first entry does not fit");
    const std::size_t entryEnd = kEntryAt + static_cast<std::size_t>(entrySize);
    const auto codedWidth = static_cast<std::int64_t>(readBig(payload, kCodedSizeAt, 2));
    const auto codedHeight = static_cast<std::int64_t>(readBig(payload, kCodedSizeAt + 2, 2));
    if (width == 0 || height == 0 || width > codedWidth || height > codedHeight)
        return malformed(stsd->type, "its pictures are smaller than the aperture");

    std::vector<std::uint8_t> entry(payload.begin() + kEntryAt, payload.begin() + kChildrenAt);
    const std::span<const std::uint8_t> children{payload.data() + kChildrenAt,
                                                 entryEnd - kChildrenAt};
    for (std::size_t at = 0; at < children.size();) {
        const auto header = parseMp4BoxHeader(children.subspan(at), children.size() - at);
        if (!header) return malformed(stsd->type, "a box in its first entry is broken");
        const auto box = children.subspan(at, static_cast<std::size_t>(header->size));
        if (header->type != fourCC("clap")) entry.insert(entry.end(), box.begin(), box.end());
        at += box.size();
    }
    // The aperture's centre lies (coded - shown) / 2 pixels left of and above the picture's.
    appendMp4BoxHeader(entry, fourCC("clap"), 32);
    for (std::int64_t value :
         {std::int64_t{width}, std::int64_t{1}, std::int64_t{height}, std::int64_t{1},
          width - codedWidth, std::int64_t{2}, height - codedHeight, std::int64_t{2}})
        appendBig(entry, static_cast<std::uint32_t>(value), 4);
    writeBig(entry, 0, entry.size(), 4);

    std::vector<std::uint8_t> rewritten(payload.begin(), payload.begin() + kEntryAt);
    rewritten.insert(rewritten.end(), entry.begin(), entry.end());
    rewritten.insert(rewritten.end(), payload.begin() + static_cast<std::ptrdiff_t>(entryEnd),
                     payload.end());
    payload = std::move(rewritten);
    return common::success();
}

}  // namespace exporting
