#include "composition/source_container.h"

#include <string>

#include "media/media_input.h"

namespace composition {

common::Result<media::InputFormatPtr> openStreamOnly(const std::filesystem::path& file,
                                                     int streamIndex, AVMediaType type) {
    auto input = media::openInput(file);
    if (!input) return input.error();
    AVFormatContext& format = *input.value();
    if (streamIndex < 0 || static_cast<unsigned>(streamIndex) >= format.nb_streams ||
        format.streams[streamIndex]->codecpar->codec_type != type)
        return common::Error{"There is no " + std::string(av_get_media_type_string(type)) +
                             " stream #" + std::to_string(streamIndex) + " in " + file.string() +
                             "."};
    for (unsigned i = 0; i < format.nb_streams; ++i)
        if (static_cast<int>(i) != streamIndex) format.streams[i]->discard = AVDISCARD_ALL;
    return input;
}

}  // namespace composition
