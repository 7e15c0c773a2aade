#include "export/passthrough_export.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "export/audio_track_writer.h"
#include "export/movie_file.h"
#include "export/partial_file.h"
#include "export/video_track_writer.h"
#include "export/wav_writer.h"
#include "media/av_error.h"
#include "media/ff_ptr.h"
#include "media/media_input.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace exporting {

namespace {

namespace fs = std::filesystem;

// Edit durations are composition ticks, so the movie counts in them too.
constexpr std::uint32_t kMovieTimescale = common::MediaTime::kTicksPerSecond;

using DisplayMatrix = std::array<std::int32_t, 9>;
constexpr DisplayMatrix kIdentity{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};

// What must agree between the sources of one track for their samples to share one
// sample description.
struct SourceConfig {
    fs::path file;
    media::CodecParametersPtr parameters;
    AVRational timeBase{0, 1};
    DisplayMatrix displayMatrix = kIdentity;
    int rotationDegrees = 0;
};

struct Container {
    const char* muxer;
    const char* name;
};

Container containerFor(model::ExportFormat format) {
    switch (format) {
        case model::ExportFormat::mp4:
            return {"mp4", "An MP4 file"};
        case model::ExportFormat::mov:
            return {"mov", "A QuickTime movie"};
        case model::ExportFormat::m4a:
            return {"ipod", "An M4A file"};
        case model::ExportFormat::wav:
            return {"wav", "A WAV file"};
    }
    return {"mp4", "An MP4 file"};
}

bool hasSource(const composition::Track& track) {
    return std::any_of(track.segments.begin(), track.segments.end(),
                       [](const composition::Segment& s) { return s.source.has_value(); });
}

std::string speed(double rate) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", rate);
    return text;
}

// Raw PCM of whole samples back to back, which can be cut anywhere between samples.
bool isCuttablePcm(AVCodecID id) {
    switch (id) {
        case AV_CODEC_ID_PCM_S16LE:
        case AV_CODEC_ID_PCM_S16BE:
        case AV_CODEC_ID_PCM_U16LE:
        case AV_CODEC_ID_PCM_U16BE:
        case AV_CODEC_ID_PCM_S8:
        case AV_CODEC_ID_PCM_U8:
        case AV_CODEC_ID_PCM_MULAW:
        case AV_CODEC_ID_PCM_ALAW:
        case AV_CODEC_ID_PCM_S32LE:
        case AV_CODEC_ID_PCM_S32BE:
        case AV_CODEC_ID_PCM_U32LE:
        case AV_CODEC_ID_PCM_U32BE:
        case AV_CODEC_ID_PCM_S24LE:
        case AV_CODEC_ID_PCM_S24BE:
        case AV_CODEC_ID_PCM_U24LE:
        case AV_CODEC_ID_PCM_U24BE:
        case AV_CODEC_ID_PCM_F32BE:
        case AV_CODEC_ID_PCM_F32LE:
        case AV_CODEC_ID_PCM_F64BE:
        case AV_CODEC_ID_PCM_F64LE:
        case AV_CODEC_ID_PCM_S64LE:
        case AV_CODEC_ID_PCM_S64BE:
            return true;
        default:
            return false;
    }
}

common::Status checkRates(const composition::Track& track) {
    for (const auto& segment : track.segments) {
        if (segment.source && segment.source->rate != 1.0) {
            return common::Error{"A clip from " + segment.source->url.string() + " plays at " +
                                 speed(segment.source->rate) +
                                 "x speed, and copied samples cannot change speed."};
        }
    }
    return common::success();
}

common::Result<std::vector<SourceConfig>> inspectSources(const composition::Track& track) {
    const AVMediaType type =
        track.kind == composition::MediaKind::video ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
    std::vector<SourceConfig> configs;
    for (const auto& segment : track.segments) {
        if (!segment.source) continue;
        const auto& source = *segment.source;
        if (std::any_of(configs.begin(), configs.end(),
                        [&](const SourceConfig& c) { return c.file == source.url; }))
            continue;
        auto input = media::openInput(source.url);
        if (!input) return input.error();
        if (source.streamIndex < 0 ||
            static_cast<unsigned>(source.streamIndex) >= (*input)->nb_streams ||
            (*input)->streams[source.streamIndex]->codecpar->codec_type != type) {
            return common::Error{"The file " + source.url.string() + " no longer has its " +
                                 (type == AVMEDIA_TYPE_VIDEO ? "video" : "audio") + " stream."};
        }
        const AVStream& stream = *(*input)->streams[source.streamIndex];
        SourceConfig config;
        config.file = source.url;
        config.parameters.reset(avcodec_parameters_alloc());
        if (!config.parameters)
            return media::avError(AVERROR(ENOMEM), "Cannot inspect " + source.url.string());
        if (int rc = avcodec_parameters_copy(config.parameters.get(), stream.codecpar); rc < 0)
            return media::avError(rc, "Cannot inspect " + source.url.string());
        config.timeBase = stream.time_base;
        std::size_t size = 0;
        const std::uint8_t* matrix =
            av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
        if (matrix && size >= sizeof(DisplayMatrix))
            std::memcpy(config.displayMatrix.data(), matrix, sizeof(DisplayMatrix));
        config.rotationDegrees = media::displayRotationDegrees(stream);
        configs.push_back(std::move(config));
    }
    return configs;
}

bool sameBytes(const AVCodecParameters& a, const AVCodecParameters& b) {
    return a.extradata_size == b.extradata_size &&
           (a.extradata_size == 0 || std::memcmp(a.extradata, b.extradata, a.extradata_size) == 0);
}

AVRational knownAspect(AVRational ratio) {
    return ratio.num > 0 ? ratio : AVRational{1, 1};
}

// What two sources of one track disagree on, or none.
std::optional<std::string> difference(const AVCodecParameters& a, const AVCodecParameters& b) {
    if (a.codec_id != b.codec_id) return "codecs";
    if (a.codec_type == AVMEDIA_TYPE_VIDEO) {
        if (a.width != b.width || a.height != b.height) return "picture sizes";
        if (a.format != b.format) return "pixel formats";
        if (a.profile != b.profile) return "codec profiles";
        if (av_cmp_q(knownAspect(a.sample_aspect_ratio), knownAspect(b.sample_aspect_ratio)))
            return "pixel shapes";
        // H.264 and HEVC pictures carry their own parameter sets in band where they change.
        const bool inBand = a.codec_id == AV_CODEC_ID_H264 || a.codec_id == AV_CODEC_ID_HEVC;
        if (!inBand && !sameBytes(a, b)) return "codec parameter sets";
        return std::nullopt;
    }
    if (a.sample_rate != b.sample_rate) return "sample rates";
    if (av_channel_layout_compare(&a.ch_layout, &b.ch_layout) != 0) return "channel layouts";
    if (a.block_align != b.block_align && isCuttablePcm(a.codec_id)) return "sample sizes";
    if (a.frame_size != b.frame_size && a.frame_size > 0 && b.frame_size > 0) return "frame sizes";
    if (!sameBytes(a, b)) return "codec configurations";
    return std::nullopt;
}

common::Status checkSameConfiguration(const std::vector<SourceConfig>& configs) {
    const SourceConfig& first = configs.front();
    for (const auto& other : configs) {
        if (auto differs = difference(*first.parameters, *other.parameters)) {
            return common::Error{"The clips from " + first.file.string() + " and " +
                                 other.file.string() + " differ in their " + *differs +
                                 ", so their samples cannot share one track."};
        }
        if (other.displayMatrix != first.displayMatrix) {
            return common::Error{"The clips from " + first.file.string() + " (turned " +
                                 std::to_string(first.rotationDegrees) + "°) and " +
                                 other.file.string() + " (turned " +
                                 std::to_string(other.rotationDegrees) +
                                 "°) are not turned alike, and one track has one orientation."};
        }
    }
    return common::success();
}

common::Status checkContainerHolds(const AVOutputFormat& format, const char* name,
                                   const AVCodecParameters& parameters) {
    if (avformat_query_codec(&format, parameters.codec_id, FF_COMPLIANCE_NORMAL) == 1)
        return common::success();
    return common::Error{std::string(name) + " cannot hold " +
                         avcodec_get_name(parameters.codec_id) + " " +
                         (parameters.codec_type == AVMEDIA_TYPE_VIDEO ? "video" : "audio") + "."};
}

// The source's container tag where the output container knows it for the same codec (so
// hvc1 stays hvc1), else none, and the muxer picks its own.
unsigned outputTag(const AVOutputFormat& format, const AVCodecParameters& parameters) {
    if (!format.codec_tag || parameters.codec_tag == 0) return 0;
    return av_codec_get_id(format.codec_tag, parameters.codec_tag) == parameters.codec_id
               ? parameters.codec_tag
               : 0;
}

// A video time base in which every source's timestamps and every composition tick are
// whole numbers, so retiming and edit times stay exact.
common::Result<AVRational> videoTimeBase(const std::vector<SourceConfig>& configs) {
    std::int64_t den = common::MediaTime::kTicksPerSecond;
    for (const auto& config : configs) {
        den = std::lcm(den, static_cast<std::int64_t>(config.timeBase.den));
        if (den > INT_MAX) {
            return common::Error{
                "The video time bases of the clips have no common unit, so "
                "their frames cannot be timed exactly together."};
        }
    }
    return AVRational{1, static_cast<int>(den)};
}

// One track of the movie being written and the writer that feeds it.
struct Lane {
    std::optional<VideoTrackWriter> video;
    std::optional<AudioTrackWriter> audio;
    AVStream* stream;
    common::MediaTime duration;
    std::optional<TrackPacket> head = std::nullopt;
    std::uint64_t written = 0;

    common::Result<std::optional<TrackPacket>> next() {
        return video ? video->next() : audio->next();
    }
    std::int64_t mediaStart() const { return video ? video->mediaStart() : audio->mediaStart(); }
    double doneSeconds() const { return video ? video->doneSeconds() : audio->doneSeconds(); }
    double totalSeconds() const { return video ? video->totalSeconds() : audio->totalSeconds(); }
    FourCC handler() const { return video ? fourCC("vide") : fourCC("soun"); }
    // The track's one edit, in movie ticks: as long as the composition, and over the whole of
    // its last sample, since GStreamer drops a sample that the edit's end cuts into.
    std::uint64_t editTicks() const {
        std::int64_t ticks = duration.ticks;
        if (audio) {
            ticks = std::max(
                ticks, av_rescale_q_rnd(audio->mediaEnd() - audio->mediaStart(), stream->time_base,
                                        {1, kMovieTimescale}, AV_ROUND_UP));
        }
        return static_cast<std::uint64_t>(ticks);
    }
};

// Samples each lane is planned to write, a little over: the video's frames, the sound's
// coded frames (PCM packets taken as 1024 samples).
std::vector<std::uint64_t> plannedSamples(const std::vector<Lane>& lanes) {
    std::vector<std::uint64_t> samples;
    for (const auto& lane : lanes) {
        const AVCodecParameters& parameters = *lane.stream->codecpar;
        const double count = lane.video
                                 ? static_cast<double>(lane.video->frameCount())
                                 : lane.totalSeconds() * parameters.sample_rate /
                                       (parameters.frame_size > 0 ? parameters.frame_size : 1024);
        samples.push_back(static_cast<std::uint64_t>(std::ceil(count * 1.05)) + 16);
    }
    return samples;
}

std::uint64_t roomFor(const std::vector<Lane>& lanes, const std::vector<std::uint64_t>& samples) {
    std::uint64_t video = 0;
    std::uint64_t audio = 0;
    std::uint64_t setup = 0;
    for (std::size_t i = 0; i < lanes.size(); ++i) {
        (lanes[i].video ? video : audio) += samples[i];
        setup += static_cast<std::uint64_t>(lanes[i].stream->codecpar->extradata_size);
    }
    return movieBoxRoom(video, audio, setup);
}

common::Result<AVStream*> addStream(AVFormatContext& output, const SourceConfig& config,
                                    AVRational timeBase, const fs::path& destination) {
    AVStream* stream = avformat_new_stream(&output, nullptr);
    if (!stream)
        return media::avError(AVERROR(ENOMEM), "Cannot add a track to " + destination.string());
    if (int rc = avcodec_parameters_copy(stream->codecpar, config.parameters.get()); rc < 0)
        return media::avError(rc, "Cannot describe a track of " + destination.string());
    stream->codecpar->codec_tag = outputTag(*output.oformat, *config.parameters);
    stream->time_base = timeBase;
    if (config.displayMatrix != kIdentity) {
        auto* matrix =
            av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, sizeof(DisplayMatrix));
        if (!matrix)
            return media::avError(AVERROR(ENOMEM),
                                  "Cannot turn the picture of " + destination.string());
        std::memcpy(matrix, config.displayMatrix.data(), sizeof(DisplayMatrix));
    }
    return stream;
}

common::Status writeMovie(const composition::Composition& composition, const fs::path& destination,
                          const Container& container, const std::vector<SourceConfig>* videoConfigs,
                          const composition::Track* audio,
                          const std::vector<SourceConfig>* audioConfigs,
                          const ProgressCallback& progress, std::stop_token stop) {
    const std::string url = "file:" + destination.string();
    AVFormatContext* raw = nullptr;
    if (int rc = avformat_alloc_output_context2(&raw, nullptr, container.muxer, url.c_str());
        rc < 0)
        return media::avError(rc, "Cannot make a movie at " + destination.string());
    media::OutputFormatPtr output{raw};

    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
    if (videoConfigs) {
        auto timeBase = videoTimeBase(*videoConfigs);
        if (!timeBase) return timeBase.error();
        auto added = addStream(*output, videoConfigs->front(), *timeBase, destination);
        if (!added) return added.error();
        videoStream = *added;
    }
    if (audioConfigs) {
        const AVCodecParameters& parameters = *audioConfigs->front().parameters;
        auto added =
            addStream(*output, audioConfigs->front(), {1, parameters.sample_rate}, destination);
        if (!added) return added.error();
        audioStream = *added;
    }
    if (int rc = avio_open(&output->pb, url.c_str(), AVIO_FLAG_WRITE); rc < 0)
        return media::avError(rc, "Cannot create " + destination.string());
    if (int rc = avformat_init_output(output.get(), nullptr); rc < 0)
        return media::avError(rc, "Cannot start writing " + destination.string());

    // The muxer has now fixed each track's timescale as its stream time base.
    std::vector<Lane> lanes;
    if (videoStream) {
        auto planned = VideoTrackWriter::plan(*composition.video, *videoStream->codecpar,
                                              videoStream->time_base);
        if (!planned) return planned.error();
        lanes.push_back(
            {std::move(planned).value(), std::nullopt, videoStream, composition.video->duration()});
    }
    if (audioStream) {
        const AVCodecParameters& sound = *audioStream->codecpar;
        const AudioCut cut = isCuttablePcm(sound.codec_id) ? AudioCut::pcm
                             : recodesExactly(sound)       ? AudioCut::recoded
                                                           : AudioCut::framed;
        lanes.push_back({std::nullopt, AudioTrackWriter(*audio, cut, *audioStream->codecpar),
                         audioStream, audio->duration()});
    }

    // Room for the movie box in front of the media data, from the planned sample counts;
    // it is used only if the samples actually written still fit it.
    const std::uint64_t room = roomFor(lanes, plannedSamples(lanes));
    if (int rc = av_opt_set_int(output->priv_data, "moov_size", static_cast<std::int64_t>(room), 0);
        rc < 0)
        return media::avError(rc, "Cannot start writing " + destination.string());
    if (int rc = avformat_write_header(output.get(), nullptr); rc < 0)
        return media::avError(rc, "Cannot start writing " + destination.string());

    double total = 0;
    for (const auto& lane : lanes) total += lane.totalSeconds();
    double reported = 0;
    for (auto& lane : lanes) {
        auto first = lane.next();
        if (!first) return first.error();
        lane.head = std::move(first).value();
    }
    while (true) {
        if (stop.stop_requested()) return exportCancelled();
        Lane* earliest = nullptr;
        for (auto& lane : lanes) {
            if (lane.head &&
                (!earliest || lane.head->timelineSeconds < earliest->head->timelineSeconds))
                earliest = &lane;
        }
        if (!earliest) break;
        AVPacket& packet = *earliest->head->packet;
        packet.stream_index = earliest->stream->index;
        if (int rc = av_write_frame(output.get(), &packet); rc < 0)
            return media::avError(rc, "Cannot write " + destination.string());
        ++earliest->written;
        auto next = earliest->next();
        if (!next) return next.error();
        earliest->head = std::move(next).value();

        double done = 0;
        for (const auto& lane : lanes) done += lane.doneSeconds();
        const double fraction = total > 0 ? done / total : 1.0;
        if (progress && fraction >= reported + 0.01) {
            reported = fraction;
            progress(std::min(fraction, 1.0));
        }
    }
    // Each track is one plain run of samples: its one edit skips what plays before
    // composition time 0 and lasts as long as the track.
    std::vector<MovieTrackEdits> edits;
    for (const auto& lane : lanes) {
        const std::vector<Mp4Edit> one{{lane.mediaStart(), lane.editTicks()}};
        edits.push_back({lane.handler(), one});
    }
    std::vector<std::uint64_t> written;
    for (const auto& lane : lanes) written.push_back(lane.written);
    const bool fits = roomFor(lanes, written) <= room;
    lanes.clear();  // they read the output's codec parameters, which go with it
    if (!fits) {
        if (int rc = av_opt_set_int(output->priv_data, "moov_size", 0, 0); rc < 0)
            return media::avError(rc, "Cannot finish " + destination.string());
    }
    if (int rc = av_write_trailer(output.get()); rc < 0)
        return media::avError(rc, "Cannot finish " + destination.string());
    output.reset();
    if (!fits) {
        if (auto freed = markRoomFree(destination, room); !freed) return freed;
    }
    return finishMovieFile(destination, kMovieTimescale, edits, MovieBoxMove::insertRangeOrCopy);
}

}  // namespace

common::Status exportPassthrough(const composition::Composition& composition,
                                 const fs::path& destination, model::ExportFormat format,
                                 const ProgressCallback& progress, std::stop_token stop) {
    const Container container = containerFor(format);
    const AVOutputFormat* muxer = av_guess_format(container.muxer, nullptr, nullptr);
    if (!muxer) return common::Error{std::string(container.name) + " cannot be written here."};

    const composition::Track* video =
        composition.video && hasSource(*composition.video) ? &*composition.video : nullptr;
    std::vector<const composition::Track*> audioTracks;
    for (const auto& track : composition.audio)
        if (hasSource(track)) audioTracks.push_back(&track);
    if (!video && audioTracks.empty())
        return common::Error{"There is nothing to copy: no clip has a readable source."};
    const bool soundOnly = format == model::ExportFormat::m4a || format == model::ExportFormat::wav;
    if (video && soundOnly) {
        return common::Error{std::string(container.name) +
                             " holds no picture, so a composition with video cannot be copied "
                             "into it."};
    }
    if (audioTracks.size() > 1) {
        return common::Error{"The sound plays on " + std::to_string(audioTracks.size()) +
                             " lanes at once, and copying keeps one audio track; mixing needs "
                             "decoding."};
    }
    const composition::Track* audio = audioTracks.empty() ? nullptr : audioTracks.front();
    if (video) {
        if (auto rates = checkRates(*video); !rates) return rates;
    }
    if (audio) {
        if (auto rates = checkRates(*audio); !rates) return rates;
    }

    std::optional<std::vector<SourceConfig>> videoConfigs;
    std::optional<std::vector<SourceConfig>> audioConfigs;
    if (video) {
        auto configs = inspectSources(*video);
        if (!configs) return configs.error();
        if (auto same = checkSameConfiguration(*configs); !same) return same;
        if (auto holds = checkContainerHolds(*muxer, container.name, *configs->front().parameters);
            !holds)
            return holds;
        videoConfigs = std::move(configs).value();
    }
    if (audio) {
        auto configs = inspectSources(*audio);
        if (!configs) return configs.error();
        if (auto same = checkSameConfiguration(*configs); !same) return same;
        AVCodecParameters& parameters = *configs->front().parameters;
        if (auto holds = checkContainerHolds(*muxer, container.name, parameters); !holds)
            return holds;
        const bool pcm = isCuttablePcm(parameters.codec_id);
        if (format == model::ExportFormat::wav && !pcm) {
            return common::Error{
                "A WAV file holds PCM only, and the sound of " + configs->front().file.string() +
                " is " + avcodec_get_name(parameters.codec_id) + ", which must be decoded first."};
        }
        if (pcm && parameters.block_align <= 0) {
            parameters.block_align =
                parameters.ch_layout.nb_channels * av_get_bits_per_sample(parameters.codec_id) / 8;
        }
        if (parameters.sample_rate <= 0 || (pcm && parameters.block_align <= 0)) {
            return common::Error{"The sound of " + configs->front().file.string() +
                                 " does not say how its samples are laid out."};
        }
        audioConfigs = std::move(configs).value();
    }

    PartialFile partial{destination};
    common::Status written =
        format == model::ExportFormat::wav
            ? writeWave(*audio, *audioConfigs->front().parameters, destination, progress, stop)
            : writeMovie(composition, destination, container,
                         videoConfigs ? &*videoConfigs : nullptr, audio,
                         audioConfigs ? &*audioConfigs : nullptr, progress, stop);
    if (!written) return written;
    partial.keep();
    if (progress) progress(1.0);
    return common::success();
}

}  // namespace exporting
