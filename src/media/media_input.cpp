#include "media/media_input.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "media/av_error.h"
#include "media/regular_file.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/display.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

namespace media {

namespace {

// "file:" keeps a colon in a file name from being read as a protocol name.
constexpr std::string_view kFileProtocol = "file:";

// No real picture, packet or sample table comes near this; a demuxer sizing a table from a
// count a broken file states would otherwise ask for gigabytes at once.
constexpr std::size_t kLargestAllocation = std::size_t{512} << 20;

void setUpLibraries() {
    static std::once_flag once;
    std::call_once(once, [] {
        // Each failure reaches its caller as an Error and is logged once where it is handled;
        // the libraries' own lines on stderr would only repeat it, once per broken frame.
        av_log_set_level(AV_LOG_QUIET);
        av_max_alloc(kLargestAllocation);
    });
}

using IoOpen = int (*)(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**);

IoOpen libraryIoOpen() {
    static const IoOpen open = [] {
        AVFormatContext* probe = avformat_alloc_context();
        IoOpen found = probe ? probe->io_open : nullptr;
        avformat_free_context(probe);
        return found;
    }();
    return open;
}

// Every file a demuxer opens comes through here: the media file itself and whatever a
// playlist or reference inside it names. Each must be a regular file, and the library
// reads the very file that was checked, so a path swapped for a FIFO meanwhile can't
// make a read wait forever.
int openRegularOnly(AVFormatContext* context, AVIOContext** pb, const char* url, int flags,
                    AVDictionary** options) {
    if (flags & AVIO_FLAG_WRITE) return AVERROR(EPERM);
    std::string_view name = url;
    if (name.starts_with(kFileProtocol))
        name.remove_prefix(kFileProtocol.size());
    else if (!name.starts_with('/'))
        return AVERROR(EPERM);  // another protocol; only local files are read
    auto file = RegularFile::open(std::filesystem::path(name));
    if (!file) return AVERROR(EINVAL);
    const std::string reopened = std::string(kFileProtocol) + file->reopenPath();
    return libraryIoOpen()(context, pb, reopened.c_str(), flags, options);
}

}  // namespace

common::Result<InputFormatPtr> openInput(const std::filesystem::path& path, StreamDetail detail) {
    setUpLibraries();
    // Checked here first so that the refusal says what the path is.
    if (auto file = RegularFile::open(path); !file)
        return common::Error{"Cannot open " + displayPath(path) +
                             " as media: " + file.error().message};
    const std::string url = std::string(kFileProtocol) + path.string();
    AVFormatContext* raw = avformat_alloc_context();
    if (!raw || !libraryIoOpen())
        return avError(AVERROR(ENOMEM), "Cannot open " + path.string() + " as media");
    raw->io_open = openRegularOnly;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    // On failure FFmpeg frees *raw itself, so wrap only after success.
    const int rc = avformat_open_input(&raw, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (rc < 0) return avError(rc, "Cannot open " + path.string() + " as media");
    InputFormatPtr input{raw};
    if (detail == StreamDetail::listed && !(input->ctx_flags & AVFMTCTX_NOHEADER)) return input;
    // One decoder thread a stream is plenty for the few frames read here; a thread a core
    // would each set up its own pictures first.
    std::vector<AVDictionary*> perStream(input->nb_streams, nullptr);
    for (auto& streamOptions : perStream) av_dict_set(&streamOptions, "threads", "1", 0);
    const int found = avformat_find_stream_info(input.get(), perStream.data());
    for (auto& streamOptions : perStream) av_dict_free(&streamOptions);
    if (found < 0) return avError(found, "Cannot read the streams of " + path.string());
    // Players show a picture in the pixel shape its container states where that differs
    // from its bitstream's (a phone's slow-motion file says 27:64 inside and 1:1 outside),
    // so whatever reads the codec parameters sees that shape.
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        AVStream& stream = *input->streams[i];
        if (stream.sample_aspect_ratio.num > 0 && stream.sample_aspect_ratio.den > 0)
            stream.codecpar->sample_aspect_ratio = stream.sample_aspect_ratio;
    }
    return input;
}

const AVStream* firstStream(const AVFormatContext& input, AVMediaType type) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream* stream = input.streams[i];
        if (stream->codecpar->codec_type != type) continue;
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) continue;
        return stream;
    }
    return nullptr;
}

common::Result<CodecContextPtr> openDecoder(const AVFormatContext& input, const AVStream& stream,
                                            int threads) {
    const AVCodecParameters& parameters = *stream.codecpar;
    const std::string what = "the " + std::string(avcodec_get_name(parameters.codec_id)) +
                             " stream #" + std::to_string(stream.index) + " of " +
                             sourceName(input);
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    if (!codec) return common::Error{"There is no decoder for " + what + "."};
    CodecContextPtr decoder{avcodec_alloc_context3(codec)};
    if (!decoder) return avError(AVERROR(ENOMEM), "Cannot make a decoder for " + what);
    if (int rc = avcodec_parameters_to_context(decoder.get(), &parameters); rc < 0)
        return avError(rc, "Cannot set up a decoder for " + what);
    decoder->pkt_timebase = stream.time_base;
    decoder->thread_count = threads;
    if (int rc = avcodec_open2(decoder.get(), codec, nullptr); rc < 0)
        return avError(rc, "Cannot open a decoder for " + what);
    return decoder;
}

int displayRotationDegrees(const AVStream& stream) {
    std::size_t size = 0;
    const std::uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (!data || size < 9 * sizeof(std::int32_t)) return 0;
    const double counterClockwise =
        av_display_rotation_get(reinterpret_cast<const std::int32_t*>(data));
    if (std::isnan(counterClockwise)) return 0;
    const long quarterTurns = std::lround(-counterClockwise / 90.0);
    return static_cast<int>((quarterTurns % 4 + 4) % 4) * 90;
}

std::string sourceName(const AVFormatContext& input) {
    std::string_view url = input.url ? input.url : "";
    if (url.starts_with(kFileProtocol)) url.remove_prefix(kFileProtocol.size());
    return std::string(url);
}

double displayWidth(const AVStream& stream) {
    AVRational shape = stream.sample_aspect_ratio;
    if (shape.num <= 0 || shape.den <= 0) shape = stream.codecpar->sample_aspect_ratio;
    const double width = stream.codecpar->width;
    if (shape.num <= 0 || shape.den <= 0) return width;
    return width * shape.num / shape.den;
}

std::int64_t movieOrigin(const AVFormatContext& input, const AVStream& stream) {
    std::optional<std::pair<std::int64_t, AVRational>> earliest;
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream& s = *input.streams[i];
        const AVMediaType type = s.codecpar->codec_type;
        if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) continue;
        if (s.disposition & AV_DISPOSITION_ATTACHED_PIC) continue;
        if (s.start_time == AV_NOPTS_VALUE) continue;
        if (!earliest ||
            av_compare_ts(s.start_time, s.time_base, earliest->first, earliest->second) < 0)
            earliest = std::pair{s.start_time, s.time_base};
    }
    if (!earliest) return 0;
    return av_rescale_q(earliest->first, earliest->second, stream.time_base);
}

bool timestampsFollowDurations(AVFormatContext& input, const AVStream& stream) {
    // Enough of the stream's packets to see a steady step, and a bound on the other
    // streams' packets read past on the way.
    constexpr int kTimed = 8;
    constexpr int kReads = 256;
    PacketPtr packet{av_packet_alloc()};
    if (!packet) return true;
    std::optional<std::int64_t> firstPts;
    std::int64_t lastPts = 0;
    std::int64_t lasted = 0;  // durations from the first timed packet on
    std::int64_t lastedToLast = 0;
    int timed = 0;
    for (int read = 0; timed < kTimed && read < kReads && av_read_frame(&input, packet.get()) >= 0;
         ++read) {
        const bool ours = packet->stream_index == stream.index;
        const std::int64_t pts = packet->pts;
        const std::int64_t duration = packet->duration;
        av_packet_unref(packet.get());
        if (!ours) continue;
        if (duration <= 0) return true;
        if (pts != AV_NOPTS_VALUE) {
            if (!firstPts) firstPts = pts;
            lastPts = pts;
            lastedToLast = lasted;
            ++timed;
        }
        if (firstPts) lasted += duration;
    }
    if (timed < 2) return true;
    const std::int64_t stamped = lastPts - *firstPts;
    return 2 * stamped >= lastedToLast && stamped <= 2 * lastedToLast;
}

double fileDurationSeconds(const AVFormatContext& input) {
    const double container =
        input.duration != AV_NOPTS_VALUE ? static_cast<double>(input.duration) / AV_TIME_BASE : 0;
    double longest = 0;
    bool anyTrack = false;
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream* stream = input.streams[i];
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) continue;
        anyTrack = true;
        const double seconds = stream->duration != AV_NOPTS_VALUE && stream->duration > 0
                                   ? stream->duration * av_q2d(stream->time_base)
                                   : container;
        longest = std::max(longest, seconds);
    }
    return anyTrack ? longest : container;
}

double measuredDurationSeconds(AVFormatContext& input) {
    const double stated = fileDurationSeconds(input);
    // A fragmented movie may give its tracks a length of all ones: unknown.
    bool unknownTrackLength = false;
    for (unsigned i = 0; i < input.nb_streams; ++i)
        unknownTrackLength = unknownTrackLength || input.streams[i]->duration == 0xFFFFFFFF;
    if (stated > 0 && !unknownTrackLength &&
        input.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE)
        return stated;
    PacketPtr packet{av_packet_alloc()};
    if (!packet) return stated;
    std::optional<double> first;
    std::optional<double> last;
    while (av_read_frame(&input, packet.get()) >= 0) {
        const AVStream& stream = *input.streams[packet->stream_index];
        const AVMediaType type = stream.codecpar->codec_type;
        const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if ((type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO) &&
            !(stream.disposition & AV_DISPOSITION_ATTACHED_PIC) && time != AV_NOPTS_VALUE) {
            const double start = time * av_q2d(stream.time_base);
            const double end =
                (time + std::max<std::int64_t>(packet->duration, 0)) * av_q2d(stream.time_base);
            first = std::min(first.value_or(start), start);
            last = std::max(last.value_or(end), end);
        }
        av_packet_unref(packet.get());
    }
    avformat_seek_file(&input, -1, INT64_MIN, 0, 0, 0);
    if (!first || !(*last > *first)) return stated;
    return *last - *first;
}

namespace {

AVRational statedFrameRate(const AVStream& stream) {
    AVRational rate = stream.avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) rate = stream.r_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) return {0, 1};
    return rate;
}

// The common rate nearest to `perSecond` when one lies within 0.2%, which millisecond
// timestamps cannot tell apart; otherwise the measured rate itself.
AVRational roundedRate(double perSecond) {
    constexpr AVRational kCommon[] = {{24000, 1001}, {24, 1},  {25, 1},  {30000, 1001},
                                      {30, 1},       {48, 1},  {50, 1},  {60000, 1001},
                                      {60, 1},       {100, 1}, {120, 1}, {240, 1}};
    AVRational best{0, 1};
    double bestError = 0.002;
    for (AVRational rate : kCommon) {
        const double error = std::abs(perSecond / av_q2d(rate) - 1);
        if (error < bestError) {
            bestError = error;
            best = rate;
        }
    }
    return best.num > 0 ? best : av_d2q(perSecond, 1000000);
}

// A counted stream's rate is its frame count over its duration, which takes in the last
// frame's duration; some phones give that frame the rest of the recording (a slow-motion file
// of 1/30 s frames states 30.47 per second). The index's first and last decode times leave it
// out, and where the two disagree they tell the rate.
AVRational countedFrameRate(AVFormatContext& input, const AVStream& stream) {
    const AVRational stated = statedFrameRate(stream);
    AVStream& indexed = *input.streams[stream.index];
    // An index that leaves out frames (AVI's dropped ones) can't tell.
    const int counted = avformat_index_get_entries_count(&indexed);
    if (counted < 2 || counted != stream.nb_frames) return stated;
    const std::int64_t first = avformat_index_get_entry(&indexed, 0)->timestamp;
    const std::int64_t last = avformat_index_get_entry(&indexed, counted - 1)->timestamp;
    if (!(last > first)) return stated;
    const double perSecond =
        (counted - 1) / (static_cast<double>(last - first) * av_q2d(stream.time_base));
    if (stated.num > 0 && std::abs(perSecond / av_q2d(stated) - 1) < 0.002) return stated;
    return roundedRate(perSecond);
}

}  // namespace

std::int64_t countedSoundTime(AVStream& stream, std::int64_t pts) {
    const AVCodecParameters& parameters = *stream.codecpar;
    if (parameters.frame_size <= 0 || parameters.sample_rate <= 0) return pts;
    const int count = avformat_index_get_entries_count(&stream);
    if (count < 2 || count != stream.nb_frames) return pts;
    const int index =
        av_index_search_timestamp(&stream, pts, AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_ANY);
    if (index < 0 || avformat_index_get_entry(&stream, index)->timestamp != pts) return pts;
    const AVRational sample{1, parameters.sample_rate};
    const std::int64_t counted =
        avformat_index_get_entry(&stream, 0)->timestamp +
        av_rescale_q(std::int64_t{index} * parameters.frame_size, sample, stream.time_base);
    const std::int64_t frame = av_rescale_q(parameters.frame_size, sample, stream.time_base);
    return std::abs(pts - counted) < frame ? counted : pts;
}

double reportedFrameRate(AVRational rate) {
    if (rate.num <= 0 || rate.den <= 0) return 0;
    return static_cast<float>(av_q2d(rate));
}

AVRational measuredFrameRate(AVFormatContext& input, const AVStream& stream) {
    if (stream.nb_frames > 0) return countedFrameRate(input, stream);
    constexpr int kFrames = 120;
    std::vector<std::int64_t> times;
    PacketPtr packet{av_packet_alloc()};
    if (!packet) return statedFrameRate(stream);
    avformat_seek_file(&input, -1, INT64_MIN, 0, 0, 0);
    while (std::ssize(times) < kFrames && av_read_frame(&input, packet.get()) >= 0) {
        if (packet->stream_index == stream.index && packet->pts != AV_NOPTS_VALUE &&
            !(packet->flags & AV_PKT_FLAG_DISCARD))
            times.push_back(packet->pts);
        av_packet_unref(packet.get());
    }
    avformat_seek_file(&input, -1, INT64_MIN, 0, 0, 0);
    // Read in decode order, the last few presentation times may skip frames not yet read;
    // they are left out when there are enough.
    constexpr std::size_t kReorderDepth = 16;
    std::sort(times.begin(), times.end());
    if (times.size() > 2 * kReorderDepth) times.resize(times.size() - kReorderDepth);
    if (times.size() < 2) return statedFrameRate(stream);
    const double seconds =
        static_cast<double>(times.back() - times.front()) * av_q2d(stream.time_base);
    if (!(seconds > 0)) return statedFrameRate(stream);
    return roundedRate(static_cast<double>(times.size() - 1) / seconds);
}

}  // namespace media
