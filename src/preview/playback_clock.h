#pragma once

#include <chrono>

namespace preview {

// Media time in seconds, kept on the monotonic clock: it stands still while stopped and
// runs at rate 1 while running. The audio output pulls it towards the sound it plays.
// Not synchronised: its owner guards it.
class PlaybackClock {
  public:
    using Steady = std::chrono::steady_clock;

    double now() const { return now(Steady::now()); }
    double now(Steady::time_point at) const {
        if (!running_) return anchorSeconds_;
        return anchorSeconds_ + std::chrono::duration<double>(at - anchorTime_).count();
    }
    bool running() const { return running_; }

    void start() {
        if (running_) return;
        anchorTime_ = Steady::now();
        running_ = true;
    }
    void stop() {
        anchorSeconds_ = now();
        running_ = false;
    }
    void set(double seconds) {
        anchorSeconds_ = seconds;
        anchorTime_ = Steady::now();
    }
    // When the media time `seconds` falls on the monotonic clock; only while running.
    Steady::time_point when(double seconds) const {
        return anchorTime_ + std::chrono::duration_cast<Steady::duration>(
                                 std::chrono::duration<double>(seconds - anchorSeconds_));
    }

  private:
    double anchorSeconds_ = 0;
    Steady::time_point anchorTime_ = Steady::now();
    bool running_ = false;
};

}  // namespace preview
