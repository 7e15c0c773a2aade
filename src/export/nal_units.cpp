#include "export/nal_units.h"

#include <cstddef>

namespace exporting {

namespace {

void appendFramed(std::vector<std::uint8_t>& out, std::span<const std::uint8_t> nal,
                  const NalFraming& framing) {
    if (framing.lengthSize == 0) {
        out.insert(out.end(), {0, 0, 0, 1});
    } else {
        for (int shift = 8 * (framing.lengthSize - 1); shift >= 0; shift -= 8)
            out.push_back(static_cast<std::uint8_t>(nal.size() >> shift));
    }
    out.insert(out.end(), nal.begin(), nal.end());
}

// Calls `each` with every NAL unit of a start-code stream.
template <typename Each>
void forEachAnnexB(std::span<const std::uint8_t> data, Each each) {
    const auto startCodeAt = [&](std::size_t i) {
        return i + 2 < data.size() && data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
    };
    std::size_t i = 0;
    while (i < data.size() && !startCodeAt(i)) ++i;
    while (i < data.size()) {
        const std::size_t begin = i + 3;
        std::size_t end = begin;
        while (end < data.size() && !startCodeAt(end)) ++end;
        std::size_t last = end;
        // A four-byte start code leaves a zero behind the unit before it.
        while (last > begin && end < data.size() && data[last - 1] == 0) --last;
        if (last > begin) each(data.subspan(begin, last - begin));
        i = end;
    }
}

template <typename Each>
void forEachNal(std::span<const std::uint8_t> data, const NalFraming& framing, Each each) {
    if (framing.lengthSize == 0) return forEachAnnexB(data, each);
    std::size_t i = 0;
    while (i + framing.lengthSize <= data.size()) {
        std::size_t length = 0;
        for (int k = 0; k < framing.lengthSize; ++k) length = length << 8 | data[i + k];
        i += framing.lengthSize;
        if (length > data.size() - i) return;
        each(data.subspan(i, length));
        i += length;
    }
}

int nalType(std::span<const std::uint8_t> nal, bool hevc) {
    if (nal.empty()) return -1;
    return hevc ? (nal[0] >> 1) & 0x3f : nal[0] & 0x1f;
}

}  // namespace

NalFraming nalFraming(const AVCodecParameters& parameters) {
    NalFraming framing;
    if (parameters.codec_id != AV_CODEC_ID_H264 && parameters.codec_id != AV_CODEC_ID_HEVC)
        return framing;
    framing.nal = true;
    framing.hevc = parameters.codec_id == AV_CODEC_ID_HEVC;
    const std::uint8_t* extra = parameters.extradata;
    const int size = parameters.extradata_size;
    if (framing.hevc && size > 22 && extra[0] == 1) framing.lengthSize = (extra[21] & 3) + 1;
    if (!framing.hevc && size > 6 && extra[0] == 1) framing.lengthSize = (extra[4] & 3) + 1;
    return framing;
}

std::vector<std::uint8_t> inBandParameterSets(const AVCodecParameters& parameters,
                                              const NalFraming& framing) {
    std::vector<std::uint8_t> out;
    if (!framing.nal || parameters.extradata_size <= 0) return out;
    std::span<const std::uint8_t> extra(parameters.extradata,
                                        static_cast<std::size_t>(parameters.extradata_size));
    if (framing.lengthSize == 0) {
        forEachAnnexB(extra, [&](auto nal) { appendFramed(out, nal, framing); });
        return out;
    }
    std::size_t i = 0;
    const auto read16 = [&]() -> std::size_t {
        if (i + 2 > extra.size()) return 0;
        std::size_t value = extra[i] << 8 | extra[i + 1];
        i += 2;
        return value;
    };
    const auto takeNal = [&] {
        const std::size_t length = read16();
        if (length == 0 || length > extra.size() - i) {
            i = extra.size();
            return;
        }
        appendFramed(out, extra.subspan(i, length), framing);
        i += length;
    };
    if (framing.hevc) {
        i = 22;
        const int arrays = extra[i++];
        for (int a = 0; a < arrays && i < extra.size(); ++a) {
            ++i;  // completeness and type
            const std::size_t count = read16();
            for (std::size_t n = 0; n < count && i < extra.size(); ++n) takeNal();
        }
        return out;
    }
    i = 5;
    const int sequenceSets = extra[i++] & 0x1f;
    for (int n = 0; n < sequenceSets && i < extra.size(); ++n) takeNal();
    if (i < extra.size()) {
        const int pictureSets = extra[i++];
        for (int n = 0; n < pictureSets && i < extra.size(); ++n) takeNal();
    }
    return out;
}

std::vector<std::uint8_t> reframed(std::span<const std::uint8_t> annexB,
                                   const NalFraming& framing) {
    std::vector<std::uint8_t> out;
    forEachAnnexB(annexB, [&](auto nal) { appendFramed(out, nal, framing); });
    return out;
}

bool startsWithIdr(std::span<const std::uint8_t> picture, const NalFraming& framing) {
    int first = -1;
    forEachNal(picture, framing, [&](auto nal) {
        if (first >= 0) return;
        const int type = nalType(nal, framing.hevc);
        const bool slice = framing.hevc ? type < 32 : (type >= 1 && type <= 5);
        if (slice) first = type;
    });
    return framing.hevc ? (first == 19 || first == 20) : first == 5;
}

std::vector<std::uint8_t> spliceStart(std::span<const std::uint8_t> picture,
                                      const NalFraming& framing) {
    std::vector<std::uint8_t> out;
    if (!framing.hevc) {
        const std::uint8_t endOfSequence[] = {10};
        appendFramed(out, endOfSequence, framing);
        out.insert(out.end(), picture.begin(), picture.end());
        return out;
    }
    constexpr int kCra = 21;
    constexpr int kBlaWithLeading = 16;
    forEachNal(picture, framing, [&](auto nal) {
        const std::size_t at = out.size() + (framing.lengthSize == 0 ? 4 : framing.lengthSize);
        appendFramed(out, nal, framing);
        if (nalType(nal, true) == kCra)
            out[at] = static_cast<std::uint8_t>((out[at] & 0x81) | kBlaWithLeading << 1);
    });
    return out;
}

}  // namespace exporting
