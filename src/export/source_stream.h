#pragma once

#include <cstdint>
#include <filesystem>

#include "common/result.h"
#include "media/ff_ptr.h"

namespace exporting {

// One stream of one media file, opened to copy its packets. The file's other streams are
// discarded, so the demuxer skips their data. Move-only; one thread at a time.
class SourceStream {
  public:
    static common::Result<SourceStream> open(const std::filesystem::path& path, int streamIndex);

    const std::filesystem::path& path() const { return path_; }
    const AVStream& stream() const { return *stream_; }
    const AVFormatContext& format() const { return *input_; }

    // Where source time 0 lies, in the stream's time base: the earliest start of any audio
    // or video stream of the file, so that picture and sound keep their offset.
    std::int64_t origin() const { return origin_; }

    // The rate the stream's frames come at (see media::measuredFrameRate); reading goes back
    // to the start. {0, 1} when nothing tells.
    AVRational frameRate();

    // Moves reading to the last point at or before `timestamp` (stream time base) where
    // the demuxer can start, or to the start of the stream.
    common::Status seek(std::int64_t timestamp);

    // The next packet of the stream, into `packet`; false at the end of the file.
    common::Result<bool> read(AVPacket& packet);

  private:
    SourceStream(media::InputFormatPtr input, std::filesystem::path path, AVStream& stream);

    media::InputFormatPtr input_;
    std::filesystem::path path_;
    AVStream* stream_;  // owned by input_
    std::int64_t origin_ = 0;
};

}  // namespace exporting
