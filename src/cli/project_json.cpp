#include "cli/project_json.h"

#include <algorithm>
#include <string>
#include <vector>

#include "composition/audio_lanes.h"
#include "composition/video_slicing.h"
#include "export/export_planning.h"
#include "model/snapshot.h"

namespace cli {

namespace {

using nlohmann::json;

template <typename T, typename F>
json optionalJson(const std::optional<T>& v, F&& convert) {
    return v ? json(convert(*v)) : json(nullptr);
}

json optionalNumber(const std::optional<double>& v) {
    return optionalJson(v, [](double d) { return d; });
}

json sizeJson(const std::optional<model::Size>& size) {
    if (!size) return nullptr;
    return json::array({size->width, size->height});
}

std::string linkStateText(model::ClipLinkState state) {
    switch (state) {
        case model::ClipLinkState::linked:
            return "linked";
        case model::ClipLinkState::unlinked:
            return "unlinked";
        case model::ClipLinkState::none:
            break;
    }
    return "none";
}

json sliceJson(const composition::Slice& s) {
    return {{"file", s.url.string()},
            {"timelineStart", s.timelineStart.ticks},
            {"assetStart", s.assetRange.start.ticks},
            {"assetEnd", s.assetRange.end().ticks},
            {"rate", s.rate}};
}

json gapsJson(const std::vector<model::GapSelection>& gaps) {
    json out = json::array();
    for (const auto& g : gaps) out.push_back({g.startTime, g.endTime});
    return out;
}

json imageSize(const model::Image& image) {
    if (!image) return nullptr;
    return {{"width", image->width}, {"height", image->height}};
}

}  // namespace

json probeJson(const model::Clip& c) {
    return {{"file", c.url.string()},
            {"displayName", c.displayName},
            {"hasVideo", c.hasVideo},
            {"hasAudio", c.hasAudio},
            {"fullDurationSeconds", c.fullDurationSeconds},
            {"frameRate", c.frameRate},
            {"naturalSize", {c.naturalSize.width, c.naturalSize.height}},
            {"rotationDegrees", c.rotationDegrees},
            {"fingerprint", c.fingerprint},
            {"thumbnail", imageSize(c.thumbnail)}};
}

json clipJson(const model::Clip& c) {
    auto uuidText = [](const common::Uuid& u) { return u.toString(); };
    auto pathText = [](const std::filesystem::path& p) { return p.string(); };
    return {
        {"id", c.id.toString()},
        {"url", model::fileURLString(c.url)},
        {"bookmark",
         optionalJson(c.bookmark, [](const model::Bytes& b) { return model::base64Encode(b); })},
        {"displayName", c.displayName},
        {"hasVideo", c.hasVideo},
        {"hasAudio", c.hasAudio},
        {"fullDurationSeconds", c.fullDurationSeconds},
        {"frameRate", c.frameRate},
        {"naturalSize", {c.naturalSize.width, c.naturalSize.height}},
        {"inSeconds", c.inSeconds},
        {"outSeconds", c.outSeconds},
        {"streamMask", std::string(model::toString(c.streamMask))},
        {"linkGroupID", optionalJson(c.linkGroupID, uuidText)},
        {"rateMultiplier", c.rateMultiplier},
        {"isReversed", c.isReversed},
        {"reversedURL", optionalJson(c.reversedURL, pathText)},
        {"forwardInSeconds", optionalNumber(c.forwardInSeconds)},
        {"forwardOutSeconds", optionalNumber(c.forwardOutSeconds)},
        {"isMissing", c.isMissing},
        {"startOnTimeline", c.startOnTimeline},
        {"fingerprint", c.fingerprint},
        {"rotationDegrees", c.rotationDegrees},
        {"filmstripFrames", c.filmstrip.size()},
        {"waveform", imageSize(c.waveform)},
        {"waveformPeakCount", c.waveformPeaks ? json(c.waveformPeaks->size()) : json(nullptr)},
    };
}

json projectJson(const model::Project& p) {
    json clips = json::array();
    for (const auto& c : p.clips()) {
        json clip = clipJson(c);
        clip["linkState"] = linkStateText(p.linkState(c.id));
        clips.push_back(std::move(clip));
    }
    json slices = json::array();
    for (const auto& s : composition::sliceVideoTopWins(p.clips())) slices.push_back(sliceJson(s));
    json lanes = json::array();
    for (const auto& lane : composition::assignAudioLanes(p.clips())) {
        json items = json::array();
        for (const auto& s : lane) items.push_back(sliceJson(s));
        lanes.push_back(std::move(items));
    }
    json formats = json::array();
    for (auto f : exporting::availableFormats(p))
        formats.push_back(std::string(model::toString(f)));
    auto aspect = p.aspectAtPlayhead();
    // A set has no order; sort so that the output is stable.
    std::vector<std::string> selected;
    for (const auto& id : p.selectedClipIDs()) selected.push_back(id.toString());
    std::sort(selected.begin(), selected.end());
    auto selectedID = p.selectedClipID();
    return {
        {"clips", std::move(clips)},
        {"totalDurationSeconds", p.totalDurationSeconds()},
        {"selectedClipIDs", selected},
        {"selectedClipID", selectedID ? json(selectedID->toString()) : json(nullptr)},
        {"playheadGlobal", p.playheadGlobal()},
        {"zoomFactor", p.zoomFactor()},
        {"cropInsets",
         {{"top", p.cropInsetTop()},
          {"leading", p.cropInsetLeading()},
          {"trailing", p.cropInsetTrailing()},
          {"bottom", p.cropInsetBottom()}}},
        {"smallClipMode", std::string(model::toString(p.smallClipMode()))},
        {"gaps", {{"video", gapsJson(p.gaps(false))}, {"audio", gapsJson(p.gaps(true))}}},
        {"hasOverlap", p.hasOverlap()},
        {"hasVideoContent", p.hasVideoContent()},
        {"videoAtPlayhead", p.videoAtPlayhead()},
        {"videoNaturalSize", sizeJson(p.videoNaturalSize())},
        {"naturalSizeAtPlayhead", sizeJson(p.naturalSizeAtPlayhead())},
        {"aspectAtPlayhead", aspect ? json(*aspect) : json(nullptr)},
        {"frameRateAtPlayhead", p.frameRateAtPlayhead()},
        {"largestVideoSize", sizeJson(p.largestVideoSize())},
        {"hasCrop", p.hasCrop()},
        {"snapTargets", p.snapTargets(std::nullopt)},
        {"passthroughEligible", exporting::passthroughEligible(p)},
        {"reEncodeReason", p.clips().empty() ? json(nullptr) : json(exporting::reEncodeReason(p))},
        {"statusLine", exporting::statusLine(p)},
        {"availableFormats", std::move(formats)},
        {"suggestedFilename", exporting::suggestedFilename(p)},
        {"slices", std::move(slices)},
        {"audioLanes", std::move(lanes)},
    };
}

}  // namespace cli
