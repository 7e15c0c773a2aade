#include "cli/project_json.h"

#include <algorithm>
#include <string>
#include <vector>

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
        {"bookmark", optionalJson(c.bookmark, [](const model::Bytes& b) { return model::base64Encode(b); })},
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
    };
}

json projectJson(const model::Project& p) {
    json clips = json::array();
    for (const auto& c : p.clips()) clips.push_back(clipJson(c));
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
    };
}

}  // namespace cli
