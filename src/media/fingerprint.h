#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "media/ff_ptr.h"

namespace media {

// A stream's encoded format as the platform media layer would name it: a four-character
// code read as one big-endian number ("avc1" is 1635148593), or 0 when it has none.
// Video gets the MOV/MP4 sample-entry code (the file's own tag when `input` is a MOV/MP4
// file, so avc1/avc3 and hvc1/hev1 stay apart); audio gets the audio format code that
// platform audio services use ("aac " for AAC in any container, "lpcm" for linear PCM).
std::uint32_t mediaSubtype(const AVFormatContext& input, const AVStream& stream);

inline constexpr std::string_view kUnknownFingerprint = "unknown";

// Names the encoded format of a whole file, for equality tests only:
// "v:<subtype>:<width>x<height>" from the first video stream, else "a:<subtype>" from the
// first audio stream, else "unknown". Equal codecs and sizes give equal text whatever the
// container.
std::string fingerprint(const AVFormatContext& input);

}  // namespace media
