#include "export/source_stream.h"

#include <string>
#include <utility>

#include "media/av_error.h"
#include "media/media_input.h"

namespace exporting {

SourceStream::SourceStream(media::InputFormatPtr input, std::filesystem::path path,
                           AVStream& stream)
    : input_(std::move(input)),
      path_(std::move(path)),
      stream_(&stream),
      origin_(media::movieOrigin(*input_, stream)) {}

common::Result<SourceStream> SourceStream::open(const std::filesystem::path& path,
                                                int streamIndex) {
    auto input = media::openInput(path);
    if (!input) return input.error();
    if (streamIndex < 0 || static_cast<unsigned>(streamIndex) >= (*input)->nb_streams) {
        return common::Error{"The file " + path.string() + " has no stream #" +
                             std::to_string(streamIndex) + " any more."};
    }
    for (unsigned i = 0; i < (*input)->nb_streams; ++i)
        if (static_cast<int>(i) != streamIndex) (*input)->streams[i]->discard = AVDISCARD_ALL;
    AVStream& stream = *(*input)->streams[streamIndex];
    return SourceStream(std::move(input).value(), path, stream);
}

AVRational SourceStream::frameRate() {
    return media::measuredFrameRate(*input_, *stream_);
}

common::Status SourceStream::seek(std::int64_t timestamp) {
    if (av_seek_frame(input_.get(), stream_->index, timestamp, AVSEEK_FLAG_BACKWARD) >= 0)
        return common::success();
    // Before the first indexed point some demuxers refuse a backward seek; the start of
    // the stream is then the answer.
    if (int rc =
            avformat_seek_file(input_.get(), stream_->index, INT64_MIN, INT64_MIN, timestamp, 0);
        rc < 0)
        return media::avError(rc, "Cannot seek in " + path_.string());
    return common::success();
}

common::Result<bool> SourceStream::read(AVPacket& packet) {
    while (true) {
        av_packet_unref(&packet);
        const int rc = av_read_frame(input_.get(), &packet);
        if (rc == AVERROR_EOF) return false;
        if (rc < 0) return media::avError(rc, "Cannot read " + path_.string());
        if (packet.stream_index == stream_->index) return true;
    }
}

}  // namespace exporting
