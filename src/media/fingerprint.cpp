#include "media/fingerprint.h"

#include <array>
#include <utility>

#include "media/media_input.h"

namespace media {

namespace {

constexpr std::uint32_t fourCC(std::string_view code) {
    std::uint32_t value = 0;
    for (char c : code) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

// FFmpeg keeps tags with the first character in the lowest byte.
constexpr std::uint32_t fromCodecTag(std::uint32_t tag) {
    return (tag & 0xff) << 24 | (tag >> 8 & 0xff) << 16 | (tag >> 16 & 0xff) << 8 | tag >> 24;
}

template <typename Key, std::size_t N>
std::uint32_t lookUp(const std::array<std::pair<Key, std::string_view>, N>& table, Key key) {
    for (const auto& [k, code] : table) {
        if (k == key) return fourCC(code);
    }
    return 0;
}

// The sample-entry codes a MOV/MP4 file would carry for each codec; ProRes goes by profile.
constexpr std::array<std::pair<AVCodecID, std::string_view>, 11> kVideoCodes{{
    {AV_CODEC_ID_H264, "avc1"},
    {AV_CODEC_ID_HEVC, "hvc1"},
    {AV_CODEC_ID_MPEG4, "mp4v"},
    {AV_CODEC_ID_VP9, "vp09"},
    {AV_CODEC_ID_AV1, "av01"},
    {AV_CODEC_ID_MJPEG, "jpeg"},
    {AV_CODEC_ID_DNXHD, "AVdn"},
    {AV_CODEC_ID_H263, "h263"},
    {AV_CODEC_ID_PNG, "png "},
    {AV_CODEC_ID_MPEG1VIDEO, "mp1v"},
    {AV_CODEC_ID_MPEG2VIDEO, "mp2v"},
}};

constexpr std::array<std::pair<int, std::string_view>, 6> kProResCodes{{
    {FF_PROFILE_PRORES_PROXY, "apco"},
    {FF_PROFILE_PRORES_LT, "apcs"},
    {FF_PROFILE_PRORES_STANDARD, "apcn"},
    {FF_PROFILE_PRORES_HQ, "apch"},
    {FF_PROFILE_PRORES_4444, "ap4h"},
    {FF_PROFILE_PRORES_XQ, "ap4x"},
}};

// Audio format codes, which the platform reports as an audio track's subtype whatever
// sample entry the file uses. PCM is handled apart.
constexpr std::array<std::pair<AVCodecID, std::string_view>, 18> kAudioCodes{{
    {AV_CODEC_ID_AAC, "aac "},
    {AV_CODEC_ID_AAC_LATM, "aac "},
    {AV_CODEC_ID_MP3, ".mp3"},
    {AV_CODEC_ID_MP2, ".mp2"},
    {AV_CODEC_ID_MP1, ".mp1"},
    {AV_CODEC_ID_ALAC, "alac"},
    {AV_CODEC_ID_AC3, "ac-3"},
    {AV_CODEC_ID_EAC3, "ec-3"},
    {AV_CODEC_ID_OPUS, "opus"},
    {AV_CODEC_ID_FLAC, "flac"},
    {AV_CODEC_ID_AMR_NB, "samr"},
    {AV_CODEC_ID_AMR_WB, "sawb"},
    {AV_CODEC_ID_ILBC, "ilbc"},
    {AV_CODEC_ID_ADPCM_IMA_QT, "ima4"},
    {AV_CODEC_ID_QDMC, "QDMC"},
    {AV_CODEC_ID_QDM2, "QDM2"},
    {AV_CODEC_ID_MACE3, "MAC3"},
    {AV_CODEC_ID_MACE6, "MAC6"},
}};

bool isMovFamily(const AVFormatContext& input) {
    static const AVInputFormat* const movFamily = av_find_input_format("mov");
    return input.iformat == movFamily;
}

std::uint32_t videoSubtype(const AVFormatContext& input, const AVCodecParameters& parameters) {
    if (isMovFamily(input) && parameters.codec_tag != 0) return fromCodecTag(parameters.codec_tag);
    if (parameters.codec_id == AV_CODEC_ID_PRORES) {
        if (std::uint32_t code = lookUp(kProResCodes, parameters.profile)) return code;
        // Every container that carries ProRes names the flavour by this same code.
        return fromCodecTag(parameters.codec_tag);
    }
    return lookUp(kVideoCodes, parameters.codec_id);
}

std::uint32_t audioSubtype(const AVCodecParameters& parameters) {
    const AVCodecID id = parameters.codec_id;
    // Companded, not linear, so they have codes of their own apart from the rest of PCM.
    if (id == AV_CODEC_ID_PCM_MULAW) return fourCC("ulaw");
    if (id == AV_CODEC_ID_PCM_ALAW) return fourCC("alaw");
    // FFmpeg numbers every PCM variant in one block that ends where ADPCM begins.
    if (id >= AV_CODEC_ID_PCM_S16LE && id < AV_CODEC_ID_ADPCM_IMA_QT) return fourCC("lpcm");
    return lookUp(kAudioCodes, id);
}

}  // namespace

std::uint32_t mediaSubtype(const AVFormatContext& input, const AVStream& stream) {
    const AVCodecParameters& parameters = *stream.codecpar;
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) return videoSubtype(input, parameters);
    if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) return audioSubtype(parameters);
    return 0;
}

std::string fingerprint(const AVFormatContext& input) {
    if (const AVStream* video = firstStream(input, AVMEDIA_TYPE_VIDEO)) {
        return "v:" + std::to_string(mediaSubtype(input, *video)) + ":" +
               std::to_string(video->codecpar->width) + "x" +
               std::to_string(video->codecpar->height);
    }
    if (const AVStream* audio = firstStream(input, AVMEDIA_TYPE_AUDIO))
        return "a:" + std::to_string(mediaSubtype(input, *audio));
    return std::string(kUnknownFingerprint);
}

}  // namespace media
