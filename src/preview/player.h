#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <QObject>
#include <QTimer>

#include "common/result.h"
#include "composition/composition.h"
#include "model/clip.h"
#include "preview/presented_frame.h"

class QAudioSink;

namespace preview {

// Where the sound goes: the default audio device, or nowhere (the player then runs on the
// monotonic clock alone, as it also does when the device is missing or fails).
enum class AudioOutput { device = 1, none };

// What a run of playback cost, for the command line and the benchmarks.
struct PlaybackStats {
    std::int64_t framesPresented = 0;
    std::int64_t framesDropped = 0;
    double largestLatenessSeconds = 0;         // of a presented frame, behind its time
    std::int64_t audioUnderruns = 0;           // reads the mixer could not fill in time
    double greatestDriftSeconds = 0;           // between the sound heard and the clock
    std::vector<double> seekLatenciesSeconds;  // request to frame handed to the sink
};

// Plays a Composition through the same video renderer and audio mixer that export and
// the frame grab use, so the picture presented at time t is the one export writes at t.
// Decoding, mixing and presenting run on worker threads with bounded queues; seeks are
// frame-exact, coalesced (only the newest waiting request is kept) and never block the
// caller. The audio device's clock leads; a frame late by more than one frame interval
// is dropped. At the end the player pauses there. See docs/preview.md.
//
// Made, used and destroyed on one thread with a Qt event loop (the UI thread): the
// periodic and end callbacks run there. The frame sink runs on a worker thread.
class Player : public QObject {
    Q_OBJECT

  public:
    // Makes the composition; runs on a worker thread when the player starts. A failure
    // leaves the player black, with an unknown duration.
    using Loader = std::function<common::Result<composition::Composition>()>;

    struct Options {
        double frameRate = 30;  // pictures per second while playing
        AudioOutput audio = AudioOutput::device;
        // A player that this one comes to replace, or null. Before its first picture this
        // player takes over the files that one holds open, which then decodes no further
        // ahead but keeps its picture and still seeks; and if that one was playing, this
        // one's first seek goes no earlier than the picture that one would have decoded
        // next, so play runs on without opening, seeking or going back. Must outlive this
        // constructor only.
        Player* replacing = nullptr;
    };

    Player(Loader loader, Options options, QObject* parent = nullptr);
    ~Player() override;

    void play();
    void pause();
    int rate() const;  // 1 while playing, else 0
    // Frame-exact, to max(seconds, 0); no clamp at the end.
    void seek(double seconds);
    double currentTime() const;
    // Seconds; none until the composition is loaded, or if it failed.
    std::optional<double> duration() const;

    // Every 1/30 s while the rate is not 0, with the current time.
    void setPeriodicCallback(std::function<void(double)> callback);
    // When playing reaches the end; the player then rests paused there.
    void setEndCallback(std::function<void()> callback);
    // Gets every picture presented, on a worker thread.
    void setFrameSink(FrameSink sink);

    // Seeks asked for since the start, counted as asked (before coalescing).
    std::int64_t seekRequests() const;
    PlaybackStats stats() const;
    // Waits until the composition is loaded and every seek asked for has put its frame
    // into the sink; false when `timeout` ran out first.
    bool waitUntilSettled(std::chrono::milliseconds timeout) const;

  private:
    struct Engine;

    void tick();
    void ended();
    void startAudio();
    void stopAudio();

    Options options_;
    std::shared_ptr<Engine> engine_;         // shared with a player that replaces this one
    std::unique_ptr<QAudioSink> audioSink_;  // only while there is a working device
    QTimer periodic_;
    std::function<void(double)> onPeriodic_;
    std::function<void()> onEnd_;
};

// Pictures per second for playing `clips`: the fastest video clip's rate up to 60, as a
// display would refresh; the project's default without video.
double frameRateFor(const std::vector<model::Clip>& clips);

}  // namespace preview
