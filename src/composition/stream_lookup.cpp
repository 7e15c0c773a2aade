#include "composition/stream_lookup.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>

#include "media/media_input.h"

namespace composition {

namespace {

struct FileStreams {
    std::optional<int> video;
    std::optional<int> audio;
};

FileStreams readStreams(const std::filesystem::path& file) {
    // A build opens every file of a project; decoding each one's first frames would cost
    // far more than the list of streams it needs.
    auto input = media::openInput(file, media::StreamDetail::listed);
    if (!input) return {};
    FileStreams streams;
    if (const AVStream* video = media::firstStream(*input.value(), AVMEDIA_TYPE_VIDEO))
        streams.video = video->index;
    if (const AVStream* audio = media::firstStream(*input.value(), AVMEDIA_TYPE_AUDIO))
        streams.audio = audio->index;
    return streams;
}

// What tells a file apart from what stood at its path before; none when it can't be read.
struct FileStamp {
    std::uintmax_t bytes = 0;
    std::filesystem::file_time_type modified;
    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

std::optional<FileStamp> stampOf(const std::filesystem::path& file) {
    std::error_code error;
    FileStamp stamp{std::filesystem::file_size(file, error), {}};
    if (error) return std::nullopt;
    stamp.modified = std::filesystem::last_write_time(file, error);
    if (error) return std::nullopt;
    return stamp;
}

}  // namespace

StreamLookup mediaStreamLookup() {
    // Shared by the copies a std::function may make of the lookup within one build.
    auto known = std::make_shared<std::map<std::filesystem::path, FileStreams>>();
    return [known](const std::filesystem::path& file, MediaKind kind) -> std::optional<int> {
        auto found = known->find(file);
        if (found == known->end()) found = known->emplace(file, readStreams(file)).first;
        return kind == MediaKind::video ? found->second.video : found->second.audio;
    };
}

StreamLookup lastingStreamLookup() {
    struct Known {
        std::optional<FileStamp> stamp;
        FileStreams streams;
    };
    auto known = std::make_shared<std::map<std::filesystem::path, Known>>();
    return [known](const std::filesystem::path& file, MediaKind kind) -> std::optional<int> {
        const auto stamp = stampOf(file);
        auto found = known->find(file);
        // A file that can't be read is asked again, as it may come back.
        if (found == known->end() || !stamp || found->second.stamp != stamp)
            found = known->insert_or_assign(file, Known{stamp, readStreams(file)}).first;
        return kind == MediaKind::video ? found->second.streams.video : found->second.streams.audio;
    };
}

Composition buildComposition(const std::vector<model::Clip>& clips) {
    return buildComposition(clips, mediaStreamLookup());
}

}  // namespace composition
