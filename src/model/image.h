#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace model {

// Decoded picture pixels: 8-bit RGBA, rows packed without padding.
struct ImageData {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;  // width * height * 4 bytes
};

// Images are immutable once made and shared by every copy of a clip, so a history
// entry costs a pointer per image. Two images compare equal only when they are the
// same object, as platform image objects do.
using Image = std::shared_ptr<const ImageData>;

// Audio peak values in 0...1, shared between copies of a clip like images.
using Peaks = std::shared_ptr<const std::vector<float>>;

}  // namespace model
