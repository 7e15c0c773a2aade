#pragma once

#include <algorithm>
#include <cstddef>
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

// Records what a project tells its observers and how often it calls didChange, for as
// long as it lives.
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

    std::vector<model::ProjectField> fields;
    int didChangeCalls = 0;

  private:
    model::Project& project_;
    model::Project::ObserverID id_ = 0;
};

}  // namespace model_test
