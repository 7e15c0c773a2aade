#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

#include "common/uuid.h"

namespace model {

// One gap of one timeline row.
struct GapSelection {
    bool isAudioRow = false;
    double startTime = 0;  // end of the clips before the gap
    double endTime = 0;    // start of the clip after the gap
    friend bool operator==(const GapSelection&, const GapSelection&) = default;
};

// Where a clip lies on the timeline, in seconds: from `start`, included, to `end`, excluded.
struct TimelineRange {
    double start = 0;
    double end = 0;
    friend bool operator==(const TimelineRange&, const TimelineRange&) = default;
};

// The source frame to show while an edge is being trimmed.
struct TrimPreviewState {
    std::filesystem::path url;
    double assetSeconds = 0;
    friend bool operator==(const TrimPreviewState&, const TrimPreviewState&) = default;
};

// The live readout of an edge being trimmed.
struct TrimReadoutInfo {
    enum class Edge { in = 1, out };
    common::Uuid clipID;
    Edge edge = Edge::in;
    double absoluteClipSeconds = 0;  // the new in or out point, source seconds
    double timelineSeconds = 0;      // where the edge lies on the timeline
    double cursorX = 0;              // x of the edge in the strip's content coordinates
    bool hasVideo = false;
    friend bool operator==(const TrimReadoutInfo&, const TrimReadoutInfo&) = default;
};

}  // namespace model

template <>
struct std::hash<model::GapSelection> {
    std::size_t operator()(const model::GapSelection& g) const noexcept {
        std::size_t h = std::hash<bool>{}(g.isAudioRow);
        h = h * 31 + std::hash<double>{}(g.startTime);
        return h * 31 + std::hash<double>{}(g.endTime);
    }
};
