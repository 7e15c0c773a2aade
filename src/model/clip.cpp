#include "model/clip.h"

#include <algorithm>
#include <string_view>

namespace model {

namespace {

bool samePeaks(const Peaks& a, const Peaks& b) {
    if (!a || !b) return !a && !b;
    return a == b || *a == *b;
}

class Hasher {
  public:
    template <typename T>
    void add(const T& v) {
        combine(std::hash<T>{}(v));
    }
    void add(const std::filesystem::path& p) { add(p.native()); }
    void add(const Bytes& bytes) {
        add(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    }
    void add(const Image& image) { add(static_cast<const void*>(image.get())); }
    template <typename T>
    void add(const std::optional<T>& v) {
        add(v.has_value() ? 1 : 0);
        if (v) add(*v);
    }
    std::size_t value() const { return h_; }

  private:
    void combine(std::size_t x) { h_ ^= x + 0x9e3779b97f4a7c15ULL + (h_ << 6) + (h_ >> 2); }
    std::size_t h_ = 0;
};

}  // namespace

bool operator==(const Clip& a, const Clip& b) {
    return a.id == b.id && a.url == b.url && a.bookmark == b.bookmark &&
           a.displayName == b.displayName && a.hasVideo == b.hasVideo && a.hasAudio == b.hasAudio &&
           a.fullDurationSeconds == b.fullDurationSeconds && a.frameRate == b.frameRate &&
           a.naturalSize == b.naturalSize && a.inSeconds == b.inSeconds &&
           a.outSeconds == b.outSeconds && a.streamMask == b.streamMask &&
           a.linkGroupID == b.linkGroupID && a.rateMultiplier == b.rateMultiplier &&
           a.isReversed == b.isReversed && a.reversedURL == b.reversedURL &&
           a.forwardInSeconds == b.forwardInSeconds && a.forwardOutSeconds == b.forwardOutSeconds &&
           a.isMissing == b.isMissing && a.startOnTimeline == b.startOnTimeline &&
           a.thumbnail == b.thumbnail && a.filmstrip == b.filmstrip && a.waveform == b.waveform &&
           samePeaks(a.waveformPeaks, b.waveformPeaks) && a.fingerprint == b.fingerprint &&
           a.rotationDegrees == b.rotationDegrees && a.copyFacts == b.copyFacts;
}

std::size_t hashValue(const Clip& c) {
    Hasher h;
    h.add(c.id);
    h.add(c.url);
    h.add(c.bookmark);
    h.add(c.displayName);
    h.add(c.hasVideo);
    h.add(c.hasAudio);
    h.add(c.fullDurationSeconds);
    h.add(c.frameRate);
    h.add(c.naturalSize.width);
    h.add(c.naturalSize.height);
    h.add(c.inSeconds);
    h.add(c.outSeconds);
    h.add(std::string_view(toString(c.streamMask)));
    h.add(c.linkGroupID);
    h.add(c.rateMultiplier);
    h.add(c.isReversed);
    h.add(c.reversedURL);
    h.add(c.forwardInSeconds);
    h.add(c.forwardOutSeconds);
    h.add(c.isMissing);
    h.add(c.startOnTimeline);
    h.add(c.thumbnail ? 1 : 0);
    h.add(c.thumbnail);
    h.add(c.filmstrip.size());
    for (const auto& frame : c.filmstrip) h.add(frame);
    h.add(c.waveform ? 1 : 0);
    h.add(c.waveform);
    h.add(c.waveformPeaks ? 1 : 0);
    if (c.waveformPeaks)
        for (float p : *c.waveformPeaks) h.add(p);
    h.add(c.fingerprint);
    h.add(c.rotationDegrees);
    h.add(c.copyFacts.videoCodec);
    h.add(c.copyFacts.audioCodec);
    h.add(c.copyFacts.audioProfile);
    h.add(c.copyFacts.keyframeSeconds.size());
    for (double k : c.copyFacts.keyframeSeconds) h.add(k);
    h.add(c.copyFacts.leadingPictures);
    h.add(c.copyFacts.untimedPackets);
    return h.value();
}

Clip Clip::missingPlaceholder(const VantrellSnapshotClip& record) {
    Clip c;
    c.id = record.id;
    c.url = record.url;
    c.bookmark = record.bookmark;
    c.displayName = record.url.filename().string();
    c.hasVideo = true;
    c.hasAudio = true;
    c.fullDurationSeconds = std::max(record.outSeconds, 0.01);
    c.frameRate = 30.0;
    c.naturalSize = {0, 0};
    c.inSeconds = record.inSeconds;
    c.outSeconds = record.outSeconds;
    c.startOnTimeline = record.startOnTimeline;
    c.streamMask = record.streamMask.value_or(StreamMask::both);
    c.linkGroupID = record.linkGroupID;
    c.rateMultiplier = record.rateMultiplier.value_or(1.0);
    c.isReversed = record.isReversed.value_or(false);
    c.forwardInSeconds = record.forwardInSeconds;
    c.forwardOutSeconds = record.forwardOutSeconds;
    c.isMissing = true;
    c.fingerprint = "missing";
    return c;
}

}  // namespace model
