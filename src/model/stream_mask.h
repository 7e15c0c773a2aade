#pragma once

#include <optional>
#include <string_view>

namespace model {

// Which of a file's streams take part in a clip. The texts are the project file's form.
enum class StreamMask { both = 1, videoOnly, audioOnly };

constexpr std::string_view toString(StreamMask m) {
    switch (m) {
        case StreamMask::both:
            return "both";
        case StreamMask::videoOnly:
            return "videoOnly";
        case StreamMask::audioOnly:
            return "audioOnly";
    }
    return "both";
}

constexpr std::optional<StreamMask> parseStreamMask(std::string_view text) {
    if (text == "both") return StreamMask::both;
    if (text == "videoOnly") return StreamMask::videoOnly;
    if (text == "audioOnly") return StreamMask::audioOnly;
    return std::nullopt;
}

}  // namespace model
