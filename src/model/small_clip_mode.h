#pragma once

#include <optional>
#include <string_view>

namespace model {

// How frames of another size than the output are placed on it; saved in the project.
enum class SmallClipMode { proportional = 1, fill, centerNative };

constexpr std::string_view toString(SmallClipMode m) {
    switch (m) {
        case SmallClipMode::proportional:
            return "proportional";
        case SmallClipMode::fill:
            return "fill";
        case SmallClipMode::centerNative:
            return "centerNative";
    }
    return "proportional";
}

constexpr std::optional<SmallClipMode> parseSmallClipMode(std::string_view text) {
    if (text == "proportional") return SmallClipMode::proportional;
    if (text == "fill") return SmallClipMode::fill;
    if (text == "centerNative") return SmallClipMode::centerNative;
    return std::nullopt;
}

}  // namespace model
