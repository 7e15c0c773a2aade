#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "common/uuid.h"
#include "model/clip.h"
#include "model/project.h"

namespace model_test {

// A clip of `length` seconds placed at `start`, using the whole of a file that long.
inline model::Clip clipAt(double start, double length, bool video = true, bool audio = true) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = "/media/clip.mov";
    c.displayName = "clip.mov";
    c.hasVideo = video;
    c.hasAudio = audio;
    c.fullDurationSeconds = length;
    c.outSeconds = length;
    c.frameRate = video ? 25 : 0;
    c.naturalSize = video ? model::Size{1280, 720} : model::Size{};
    c.startOnTimeline = start;
    return c;
}

// `c` shown only on the rows `mask` leaves it.
inline model::Clip masked(model::Clip c, model::StreamMask mask) {
    c.streamMask = mask;
    return c;
}

// A clip's trim and place; equal within a nanosecond, as sums of seconds rarely come out exact.
struct Placement {
    double in = 0;
    double out = 0;
    double start = 0;
    friend bool operator==(const Placement& a, const Placement& b) {
        auto near = [](double x, double y) { return std::abs(x - y) < 1e-9; };
        return near(a.in, b.in) && near(a.out, b.out) && near(a.start, b.start);
    }
    friend std::ostream& operator<<(std::ostream& os, const Placement& p) {
        return os << p.in << ".." << p.out << " at " << p.start;
    }
};

inline Placement placement(const model::Clip& c) {
    return {c.inSeconds, c.outSeconds, c.startOnTimeline};
}

// The newest history entry and the token, as edit commands leave them.
struct Step {
    std::optional<std::string> name;
    std::int64_t token = 0;
    friend bool operator==(const Step&, const Step&) = default;
    friend std::ostream& operator<<(std::ostream& os, const Step& s) {
        return os << (s.name ? *s.name : "no entry") << ", token " << s.token;
    }
};

inline Step lastStep(const model::Project& p) {
    return {p.undoName(), p.compositionToken()};
}

// Puts `clips` on the timeline, with `selected` as the whole selection if given.
inline void place(model::Project& p, std::vector<model::Clip> clips,
                  std::optional<common::Uuid> selected = std::nullopt) {
    p.setClips(std::move(clips));
    if (selected) p.setSelectedClipID(selected);
}

// Records what a project tells its observers and how often it calls didChange.
class Recorder {
  public:
    explicit Recorder(model::Project& p) : project_(p) {
        id_ = p.addObserver([this](model::ProjectField f) { fields.push_back(f); });
        p.didChange = [this] { ++didChangeCalls; };
    }
    ~Recorder() {
        project_.removeObserver(id_);
        project_.didChange = [] {};
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    std::size_t count(model::ProjectField f) const {
        return static_cast<std::size_t>(std::count(fields.begin(), fields.end(), f));
    }

    bool heardNothing() const { return fields.empty() && didChangeCalls == 0; }

    std::vector<model::ProjectField> fields;
    int didChangeCalls = 0;

  private:
    model::Project& project_;
    model::Project::ObserverID id_ = 0;
};

}  // namespace model_test
