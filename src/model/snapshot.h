#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "common/result.h"
#include "common/uuid.h"
#include "model/small_clip_mode.h"
#include "model/stream_mask.h"

namespace model {

using Bytes = std::vector<std::uint8_t>;

// One clip as the project file and the clipboard store it: edit decisions and a file
// reference, nothing derived from the media.
struct VantrellSnapshotClip {
    common::Uuid id;
    // The absolute path of the source file; a URL text that names no local file is kept
    // here as it was read, as a relative path.
    std::filesystem::path url;
    std::optional<Bytes> bookmark;
    double inSeconds = 0;
    double outSeconds = 0;
    double startOnTimeline = 0;
    std::optional<StreamMask> streamMask;
    std::optional<common::Uuid> linkGroupID;
    std::optional<double> rateMultiplier;
    std::optional<bool> isReversed;
    std::optional<double> forwardInSeconds;
    std::optional<double> forwardOutSeconds;

    friend bool operator==(const VantrellSnapshotClip&, const VantrellSnapshotClip&) = default;
};

// The whole project file.
struct VantrellSnapshot {
    int version = 1;
    std::vector<VantrellSnapshotClip> clips;
    double playheadGlobal = 0;
    double zoomFactor = 1.0;
    std::optional<bool> preferLossless;
    std::optional<SmallClipMode> smallClipMode;
    std::optional<double> cropInsetTop;
    std::optional<double> cropInsetLeading;
    std::optional<double> cropInsetTrailing;
    std::optional<double> cropInsetBottom;

    friend bool operator==(const VantrellSnapshot&, const VantrellSnapshot&) = default;
};

// Limits past which a project file or a clipboard payload is refused whole instead of read:
// far beyond any real project, and small enough to decode in a few hundred megabytes.
inline constexpr std::size_t kMostSnapshotClips = 100'000;
inline constexpr std::size_t kLargestSnapshotBytes = 64u << 20;

// JSON forms. Encoding leaves absent values out and fails on a non-finite number;
// decoding fails on a missing required key, a wrong type, a non-UUID id, an unknown raw
// value or more than kMostSnapshotClips clips. Unknown keys are ignored. A url that is not
// an absolute file URL decodes to its own text (see VantrellSnapshotClip::url).
common::Result<nlohmann::json> toJson(const VantrellSnapshotClip& clip);
common::Result<VantrellSnapshotClip> clipFromJson(const nlohmann::json& json);
common::Result<nlohmann::json> toJson(const VantrellSnapshot& snapshot);
common::Result<VantrellSnapshot> snapshotFromJson(const nlohmann::json& json);

// The project file's text: pretty-printed, keys sorted at every level.
common::Result<std::string> encodeSnapshot(const VantrellSnapshot& snapshot);
common::Result<VantrellSnapshot> decodeSnapshot(std::string_view text);

// File URLs as the project file writes them: "file://" and the percent-encoded path. A
// relative path is written as it stands; pathFromFileURL gives none for any text that is not
// "file://" with an absolute path.
std::string fileURLString(const std::filesystem::path& absolutePath);
std::optional<std::filesystem::path> pathFromFileURL(std::string_view url);

std::string base64Encode(const Bytes& bytes);
std::optional<Bytes> base64Decode(std::string_view text);

}  // namespace model
