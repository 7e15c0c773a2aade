#include "export/colour_conversion.h"

#include <string>

#include "composition/picture_converter.h"
#include "media/av_error.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/pixdesc.h>
}

namespace exporting {

namespace {

// The format pictures leave the graph in: full chroma, so that any size (odd ones too) comes
// through and the scaler's 4:2:0 step is the only one.
constexpr AVPixelFormat kConvertedFormat = AV_PIX_FMT_YUV444P;

// Tone mapping reads this many nits as SDR's white.
constexpr int kSdrWhiteNits = 100;

bool isHdSize(int width, int height) {
    return width >= 1280 || height >= 720;
}

// What an untagged picture is taken to be, as players take it: BT.709 at HD sizes, BT.601
// below. zscale takes the same numbers as FFmpeg's enumerations.
AVColorSpace matrixOf(const AVFrame& picture) {
    switch (picture.colorspace) {
        case AVCOL_SPC_BT709:
        case AVCOL_SPC_BT470BG:
        case AVCOL_SPC_SMPTE170M:
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL:
            return picture.colorspace;
        default:
            return isHdSize(picture.width, picture.height) ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    }
}

AVColorPrimaries primariesOf(const AVFrame& picture, AVColorSpace matrix) {
    switch (picture.color_primaries) {
        case AVCOL_PRI_BT709:
        case AVCOL_PRI_BT470M:
        case AVCOL_PRI_BT470BG:
        case AVCOL_PRI_SMPTE170M:
        case AVCOL_PRI_SMPTE240M:
        case AVCOL_PRI_FILM:
        case AVCOL_PRI_BT2020:
        case AVCOL_PRI_SMPTE431:
        case AVCOL_PRI_SMPTE432:
            return picture.color_primaries;
        default:
            if (matrix == AVCOL_SPC_BT709) return AVCOL_PRI_BT709;
            if (matrix == AVCOL_SPC_BT2020_NCL || matrix == AVCOL_SPC_BT2020_CL)
                return AVCOL_PRI_BT2020;
            return AVCOL_PRI_SMPTE170M;
    }
}

AVColorTransferCharacteristic transferOf(const AVFrame& picture) {
    switch (picture.color_trc) {
        case AVCOL_TRC_BT709:
        case AVCOL_TRC_GAMMA22:
        case AVCOL_TRC_GAMMA28:
        case AVCOL_TRC_SMPTE170M:
        case AVCOL_TRC_LINEAR:
        case AVCOL_TRC_IEC61966_2_1:
        case AVCOL_TRC_BT2020_10:
        case AVCOL_TRC_BT2020_12:
        case AVCOL_TRC_SMPTE2084:
        case AVCOL_TRC_ARIB_STD_B67:
            return picture.color_trc;
        default:
            return AVCOL_TRC_BT709;
    }
}

bool isHdr(AVColorTransferCharacteristic transfer) {
    return transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67;
}

// BT.601's two matrices are one; so, for display, are its two sets of primaries.
bool sameMatrix(AVColorSpace a, AVColorSpace b) {
    const auto sd = [](AVColorSpace m) {
        return m == AVCOL_SPC_SMPTE170M || m == AVCOL_SPC_BT470BG;
    };
    return a == b || (sd(a) && sd(b));
}

}  // namespace

OutputColour outputColourFor(int width, int height) {
    if (isHdSize(width, height)) return {};
    return {AVCOL_SPC_SMPTE170M, AVCOL_PRI_SMPTE170M, AVCOL_TRC_SMPTE170M};
}

common::Result<media::FramePtr> ColourConverter::convert(const AVFrame& picture,
                                                         const OutputColour& target) {
    const auto format = static_cast<AVPixelFormat>(picture.format);
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    if (!descriptor || (descriptor->flags & AV_PIX_FMT_FLAG_RGB) || descriptor->nb_components < 3)
        return media::FramePtr{};
    Key key;
    key.format = picture.format;
    key.width = picture.width;
    key.height = picture.height;
    key.matrix = matrixOf(picture);
    key.range = picture.color_range == AVCOL_RANGE_JPEG || composition::isFullRange(format)
                    ? AVCOL_RANGE_JPEG
                    : AVCOL_RANGE_MPEG;
    // Players read SDR pictures by their matrix and range alone, whatever primaries and
    // curve they name, so only a wider gamut or HDR is converted beyond that.
    key.primaries = primariesOf(picture, key.matrix);
    key.transfer = transferOf(picture);
    if (key.primaries != AVCOL_PRI_BT2020 && !isHdr(key.transfer)) {
        key.primaries = target.primaries;
        key.transfer = target.transfer;
    }
    key.target = target;
    if (key.range == AVCOL_RANGE_MPEG && !isHdr(key.transfer) &&
        sameMatrix(key.matrix, target.matrix) && key.primaries == target.primaries)
        return media::FramePtr{};

    if (!graph_ || !(key == key_)) {
        if (auto made = makeGraph(key); !made) {
            graph_.reset();
            return made.error();
        }
        key_ = key;
    }
    media::FramePtr input{av_frame_clone(&picture)};
    if (!input) return media::avError(AVERROR(ENOMEM), "Cannot convert a picture's colours");
    if (int rc = av_buffersrc_add_frame(source_, input.get()); rc < 0)
        return media::avError(rc, "Cannot convert a picture's colours");
    media::FramePtr output{av_frame_alloc()};
    if (!output) return media::avError(AVERROR(ENOMEM), "Cannot convert a picture's colours");
    if (int rc = av_buffersink_get_frame(sink_, output.get()); rc < 0)
        return media::avError(rc, "Cannot convert a picture's colours");
    output->colorspace = target.matrix;
    output->color_primaries = target.primaries;
    output->color_trc = target.transfer;
    output->color_range = AVCOL_RANGE_MPEG;
    return output;
}

common::Status ColourConverter::makeGraph(const Key& key) {
    const std::string what = "Cannot convert the colours of a " + std::to_string(key.width) + "x" +
                             std::to_string(key.height) + " picture";
    graph_.reset(avfilter_graph_alloc());
    if (!graph_) return media::avError(AVERROR(ENOMEM), what);
    const std::string source =
        "video_size=" + std::to_string(key.width) + "x" + std::to_string(key.height) +
        ":pix_fmt=" + std::to_string(key.format) + ":time_base=1/1:pixel_aspect=1/1";
    if (int rc = avfilter_graph_create_filter(&source_, avfilter_get_by_name("buffer"), "in",
                                              source.c_str(), nullptr, graph_.get());
        rc < 0)
        return media::avError(rc, what);
    if (int rc = avfilter_graph_create_filter(&sink_, avfilter_get_by_name("buffersink"), "out",
                                              nullptr, nullptr, graph_.get());
        rc < 0)
        return media::avError(rc, what);

    const auto number = [](int value) { return std::to_string(value); };
    const std::string input = "zscale=min=" + number(key.matrix) + ":pin=" + number(key.primaries) +
                              ":tin=" + number(key.transfer) +
                              ":rin=" + (key.range == AVCOL_RANGE_JPEG ? "full" : "limited");
    const std::string output = "m=" + number(key.target.matrix) +
                               ":p=" + number(key.target.primaries) +
                               ":t=" + number(key.target.transfer) + ":r=limited";
    const std::string converted = ",format=" + std::string(av_get_pix_fmt_name(kConvertedFormat));
    // HDR goes to linear light, into the output's primaries, through a curve that keeps
    // highlights, then into the output's transfer and matrix.
    const std::string chain =
        isHdr(key.transfer) ? input + ":t=linear:npl=" + number(kSdrWhiteNits) +
                                  ",format=gbrpf32le,zscale=p=" + number(key.target.primaries) +
                                  ",tonemap=tonemap=hable:desat=0,zscale=" + output + converted
                            : input + ":" + output + converted;

    AVFilterInOut* outputs = avfilter_inout_alloc();
    AVFilterInOut* inputs = avfilter_inout_alloc();
    if (!outputs || !inputs) {
        avfilter_inout_free(&outputs);
        avfilter_inout_free(&inputs);
        return media::avError(AVERROR(ENOMEM), what);
    }
    outputs->name = av_strdup("in");
    outputs->filter_ctx = source_;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = sink_;
    const int parsed =
        avfilter_graph_parse_ptr(graph_.get(), chain.c_str(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&outputs);
    avfilter_inout_free(&inputs);
    if (parsed < 0) return media::avError(parsed, what);
    if (int rc = avfilter_graph_config(graph_.get(), nullptr); rc < 0)
        return media::avError(rc, what);
    return common::success();
}

}  // namespace exporting
