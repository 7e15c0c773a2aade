#include "export/export_planning.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <optional>
#include <string_view>

#include "model/time_format.h"

namespace exporting {

namespace {

// The wordings of the reasons; the differ form takes the two counts.
constexpr const char* kReasonCrop = "cropped";
constexpr const char* kReasonOverlap = "clips overlap";
constexpr const char* kReasonNoClips = "no clips";
constexpr const char* kReasonFormat = "format can't be copied";

std::string differReason(int differing, int total) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%d of %d clips differ in format", differing, total);
    return buffer;
}

// Two sounds that play at once take two audio lanes, and a copy holds one audio track. The
// same exact test as lane assignment: touching is no overlap, so sounds a and b overlap when
// b starts before a ends and a before b ends. Swept in start order, as the status line asks
// this of every clip on each edit.
bool soundsOverlap(const model::Project& project) {
    struct Span {
        double start;
        double end;
    };
    std::vector<Span> sounds;
    for (const auto& c : project.clips())
        if (c.isOnAudioRow()) sounds.push_back({c.startOnTimeline, c.timelineEnd()});
    // A time that is no number compares false with everything, so it meets every other sound,
    // and it would leave no order to sort by.
    if (sounds.size() > 1 && std::any_of(sounds.begin(), sounds.end(), [](const Span& s) {
            return std::isnan(s.start) || std::isnan(s.end);
        }))
        return true;
    // In start order, a sound meets an earlier one exactly when it starts before the latest
    // end so far. Ties go shortest first, so a sound of no length is not counted as meeting
    // one that starts with it.
    std::sort(sounds.begin(), sounds.end(), [](const Span& a, const Span& b) {
        return a.start < b.start || (a.start == b.start && a.end < b.end);
    });
    double reach = -std::numeric_limits<double>::infinity();
    for (const Span& sound : sounds) {
        if (sound.start < reach) return true;
        reach = std::max(reach, sound.end);
    }
    return false;
}

bool overlapping(const model::Project& project) {
    return project.hasOverlap() || soundsOverlap(project);
}

// The codecs each format's copy can hold.
struct Holds {
    model::ExportFormat format;
    const char* name;
    std::vector<std::string_view> video;
    std::vector<std::string_view> audio;
    bool pcm;
};

const std::array<Holds, 4>& containers() {
    static const std::array<Holds, 4> table{{
        {model::ExportFormat::mp4,
         "MP4",
         {"h264", "hevc", "mpeg4", "av1", "vp9", "mpeg2video", "mpeg1video"},
         {"aac", "mp3", "alac", "opus", "ac3", "eac3", "mp2"},
         false},
        {model::ExportFormat::mov,
         "MOV",
         {"h264", "hevc", "mpeg4", "prores", "dnxhd", "mjpeg", "png", "mpeg2video", "mpeg1video",
          "h263", "dvvideo"},
         {"aac", "mp3", "alac", "ac3", "eac3", "mp2", "amr_nb", "amr_wb", "adpcm_ima_qt"},
         true},
        {model::ExportFormat::m4a, "M4A", {}, {"aac", "alac"}, false},
        {model::ExportFormat::wav, "WAV", {}, {}, true},
    }};
    return table;
}

bool holds(const Holds& format, const std::vector<std::string_view>& list, std::string_view codec,
           bool audio) {
    if (audio && format.pcm && codec.starts_with("pcm_")) return true;
    return std::find(list.begin(), list.end(), codec) != list.end();
}

// The first codec of the project that `format` cannot hold, as "pcm_s16le audio".
std::optional<std::string> unheld(const model::Project& project, const Holds& format) {
    for (const auto& c : project.clips()) {
        const auto& facts = c.copyFacts;
        if (c.isOnVideoRow() && !facts.videoCodec.empty() &&
            !holds(format, format.video, facts.videoCodec, false))
            return facts.videoCodec + " video";
        if (c.isOnAudioRow() && !facts.audioCodec.empty() &&
            !holds(format, format.audio, facts.audioCodec, true))
            return facts.audioCodec + " audio";
    }
    return std::nullopt;
}

// Why the format the sheet starts with cannot hold the copy, naming the others that can.
std::optional<std::string> containerReason(const model::Project& project) {
    const auto offered = availableFormats(project).front();
    const bool picture = offered == model::ExportFormat::mp4;
    std::string others;
    std::optional<std::string> missing;
    for (const auto& format : containers()) {
        if (format.format == offered) {
            missing = unheld(project, format);
            if (!missing) return std::nullopt;
            continue;
        }
        if (picture && format.video.empty()) continue;
        if (!unheld(project, format))
            others += (others.empty() ? "" : " or ") + std::string(format.name);
    }
    std::string name;
    for (const auto& format : containers())
        if (format.format == offered) name = format.name;
    return name + " can't hold " + *missing + (others.empty() ? "" : "; " + others + " can");
}

std::optional<std::string> untimedReason(const model::Project& project) {
    for (const auto& c : project.clips())
        if (c.copyFacts.untimedPackets) return c.displayName + " has packets without timestamps";
    return std::nullopt;
}

// The silence of a gap in the sound is encoded as the sources' own kind, and FFmpeg's AAC
// encoder makes only the low-complexity kind, not the high-efficiency one (HE-AAC and v2).
std::optional<std::string> silenceReason(const model::Project& project) {
    std::vector<const model::Clip*> sound;
    for (const auto& c : project.clips())
        if (c.isOnAudioRow()) sound.push_back(&c);
    std::sort(sound.begin(), sound.end(), [](const model::Clip* a, const model::Clip* b) {
        return a->startOnTimeline < b->startOnTimeline;
    });
    double end = 0;
    bool gap = false;
    for (const auto* c : sound) {
        gap = gap || c->startOnTimeline > end + 0.001;
        end = std::max(end, c->timelineEnd());
    }
    if (!gap) return std::nullopt;
    for (const auto* c : sound) {
        if (c->copyFacts.audioProfile.starts_with("HE-AAC")) {
            return c->displayName + " has " + c->copyFacts.audioProfile +
                   " sound, and silence for a gap can't be encoded as " + c->copyFacts.audioProfile;
        }
    }
    return std::nullopt;
}

int frames(double seconds, double rate) {
    return static_cast<int>(std::lround(std::max(seconds, 0.0) * rate));
}

// The frames a source shows over [from, to) of its own time: the one already showing at
// `from`, which an in point between two frames shows for a moment, and each that starts
// before `to`.
int shownFrames(double from, double to, double rate) {
    constexpr double kRounding = 1e-6;
    const double first = std::floor(from * rate + kRounding);
    const double end = std::ceil(to * rate - kRounding);
    return static_cast<int>(std::max(end - first, 0.0));
}

// One run of one source on the video row: clips that continue each other in both times.
struct VideoRun {
    const model::Clip* clip;
    double start;
    double inSeconds;
    double outSeconds;
};

int clipsDifferingFromFirst(const model::Project& project) {
    const auto& clips = project.clips();
    int differing = 0;
    for (const auto& c : clips)
        if (c.fingerprint != clips.front().fingerprint) ++differing;
    return differing;
}

}  // namespace

bool passthroughEligible(const model::Project& project) {
    if (project.clips().empty()) return false;
    if (project.hasCrop()) return false;
    if (overlapping(project)) return false;
    if (clipsDifferingFromFirst(project) != 0) return false;
    return !containerReason(project) && !untimedReason(project) && !silenceReason(project);
}

std::string reEncodeReason(const model::Project& project) {
    if (project.hasCrop()) return kReasonCrop;
    if (overlapping(project)) return kReasonOverlap;
    if (project.clips().empty()) return kReasonNoClips;
    int differing = clipsDifferingFromFirst(project);
    if (differing != 0) return differReason(differing, static_cast<int>(project.clips().size()));
    if (auto reason = containerReason(project)) return *reason;
    if (auto reason = untimedReason(project)) return *reason;
    if (auto reason = silenceReason(project)) return *reason;
    return kReasonFormat;
}

ReencodedFrames smartCutFrames(const model::Project& project) {
    std::vector<VideoRun> runs;
    for (const auto& c : project.clips())
        if (c.isOnVideoRow()) runs.push_back({&c, c.startOnTimeline, c.inSeconds, c.outSeconds});
    std::sort(runs.begin(), runs.end(),
              [](const VideoRun& a, const VideoRun& b) { return a.start < b.start; });
    std::vector<VideoRun> merged;
    for (const auto& run : runs) {
        if (!merged.empty()) {
            VideoRun& last = merged.back();
            const double lastEnd = last.start + (last.outSeconds - last.inSeconds);
            if (last.clip->url == run.clip->url && std::abs(lastEnd - run.start) < 0.001 &&
                std::abs(last.outSeconds - run.inSeconds) < 0.001) {
                last.outSeconds = run.outSeconds;
                continue;
            }
        }
        merged.push_back(run);
    }
    ReencodedFrames count;
    double at = 0;
    for (const auto& run : merged) {
        const model::Clip& c = *run.clip;
        const double rate = c.frameRate > 0 ? c.frameRate : 30;
        const int gap = frames(run.start - at, rate);
        count.reencoded += gap;
        count.total += gap;
        at = run.start + (run.outSeconds - run.inSeconds);
        const int all = shownFrames(run.inSeconds, run.outSeconds, rate);
        count.total += all;
        if (c.copyFacts.videoCodec.empty()) continue;  // never probed: nothing known to cut
        // Whole groups of pictures from the first keyframe at or after the in point on are
        // copied; a group running to the end of the file ends at its end. A group shows from
        // its own leading pictures to the next one's, so the copy ends at the leading pictures
        // of the last keyframe that has them all before the out point.
        const double slack = 0.5 / rate;
        const double leading = c.copyFacts.leadingPictures / rate;
        const auto& keys = c.copyFacts.keyframeSeconds;
        const auto first = std::find_if(keys.begin(), keys.end(),
                                        [&](double k) { return k >= run.inSeconds - slack; });
        bool copies = first != keys.end() && run.outSeconds > *first + slack;
        double copyEnd = run.outSeconds;
        if (copies && run.outSeconds < c.fullDurationSeconds - slack) {
            const auto last = std::find_if(keys.rbegin(), keys.rend(), [&](double k) {
                return k - leading <= run.outSeconds + slack;
            });
            copies = last != keys.rend() && *last > *first + slack;
            if (copies) copyEnd = *last - leading;
        }
        if (!copies) {
            count.reencoded += all;
            continue;
        }
        count.reencoded += std::min(all, shownFrames(run.inSeconds, *first, rate) +
                                             shownFrames(copyEnd, run.outSeconds, rate));
    }
    return count;
}

std::string statusLine(const model::Project& project) {
    const auto count = static_cast<int>(project.clips().size());
    if (count == 0) return "Drop clips here";
    std::string time = model::formatHMS(project.totalDurationSeconds());
    std::string mode = "Re-encode (" + reEncodeReason(project) + ")";
    if (passthroughEligible(project)) {
        const ReencodedFrames smart = smartCutFrames(project);
        mode = smart.reencoded == 0 ? "Lossless ✓"
                                    : "Smart cut ✓ · " + std::to_string(smart.reencoded) + " of " +
                                          std::to_string(smart.total) + " frames re-encoded";
    }
    return std::to_string(count) + (count == 1 ? " clip · " : " clips · ") + time + " · " + mode;
}

std::string suggestedFilename(const model::Project& project) {
    std::string base = "Untitled";
    if (!project.clips().empty())
        base = std::filesystem::path(project.clips().front().displayName).stem().string();
    return base + " - trimmed";
}

std::vector<model::ExportFormat> availableFormats(const model::Project& project) {
    for (const auto& c : project.clips())
        if (c.hasVideo) return {model::ExportFormat::mp4, model::ExportFormat::mov};
    return {model::ExportFormat::m4a, model::ExportFormat::wav};
}

void beginExport(model::Project& project) {
    if (project.clips().empty()) return;
    auto formats = availableFormats(project);
    model::ExportSheetState state;
    state.id = common::Uuid::random();
    state.suggestedFilename = suggestedFilename(project);
    state.statusLine = statusLine(project);
    state.availableFormats = formats;
    state.initialFormat = formats.front();
    project.setExportSheet(std::move(state));
}

}  // namespace exporting
