#include "composition/stream_lookup.h"

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
    auto input = media::openInput(file);
    if (!input) return {};
    FileStreams streams;
    if (const AVStream* video = media::firstStream(*input.value(), AVMEDIA_TYPE_VIDEO))
        streams.video = video->index;
    if (const AVStream* audio = media::firstStream(*input.value(), AVMEDIA_TYPE_AUDIO))
        streams.audio = audio->index;
    return streams;
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

Composition buildComposition(const std::vector<model::Clip>& clips) {
    return buildComposition(clips, mediaStreamLookup());
}

}  // namespace composition
