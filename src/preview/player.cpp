#include "preview/player.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <span>
#include <thread>
#include <utility>

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QIODevice>
#include <QMediaDevices>

#include "common/log.h"
#include "common/media_time.h"
#include "composition/audio_renderer.h"
#include "composition/video_renderer.h"
#include "model/project.h"
#include "preview/playback_clock.h"
#include "preview/serial_worker.h"

namespace preview {

namespace {

using Steady = PlaybackClock::Steady;

// A handful of pictures: enough to ride out one slow decode, little memory at 4K.
constexpr std::size_t kQueuedFrames = 4;
constexpr composition::AudioFormat kAudioFormat{48000, 2};
// Mixed ahead of the device: well under a second, and enough for two slow device reads.
constexpr std::int64_t kAudioAheadFrames = kAudioFormat.sampleRateHz / 4;
constexpr std::int64_t kAudioChunkFrames = 1024;
// A device takes sound in blocks (a tenth of a second through PulseAudio), so what it has
// taken runs ahead of what is heard and then stands still while the block plays: a saw
// around the sound. Set to each reading, the clock would leap a block ahead and drop the
// pictures it leapt over, so it leans towards the sound by a share of the difference each
// tick, following the saw's mean, and leaps only when they part by more than a saw can.
constexpr double kDriftFollowShare = 0.05;
constexpr double kDriftLeapSeconds = 0.25;

double secondsSince(Steady::time_point start) {
    return std::chrono::duration<double>(Steady::now() - start).count();
}

std::int64_t sampleAt(double seconds) {
    return std::llround(std::max(seconds, 0.0) * kAudioFormat.sampleRateHz);
}

void logSystemClockOnce(const char* why) {
    static std::once_flag once;
    std::call_once(once, [why] {
        common::logLine(std::string("Vantrell: ") + why + "; preview plays on the system clock");
    });
}

SharedFrame renderAt(composition::VideoRenderer* renderer, double seconds) {
    if (!renderer) return nullptr;
    // The same rounding to the composition's ticks as the frame grab's.
    auto rendered = renderer->uprightFrameAt(common::MediaTime::fromSeconds(seconds));
    // A source that can't be read shows black for as long as it is asked for.
    if (!rendered || !rendered.value().picture) return nullptr;
    return SharedFrame(rendered.value().picture.release(), media::FrameFree{});
}

// Where players' threads are joined once they are done with.
SerialWorker& reaper() {
    static SerialWorker worker;
    return worker;
}

}  // namespace

// The threads of one player and the state they share. Every field below `mutex` is
// guarded by it; the loader and the options are fixed at construction.
struct Player::Engine {
    struct Queued {
        double seconds = 0;
        SharedFrame picture;
        std::uint64_t generation = 0;
    };

    // Sound mixed ahead of the device: samples [frontSample, frontSample + size/2).
    struct AudioRing {
        std::deque<float> samples;
        std::int64_t frontSample = 0;
        std::uint64_t generation = ~std::uint64_t{0};
        bool starved = false;  // the device asked for more than there was

        std::int64_t frames() const {
            return static_cast<std::int64_t>(samples.size()) / kAudioFormat.channelCount;
        }
        std::int64_t endSample() const { return frontSample + frames(); }
        void dropUntil(std::int64_t sample) {
            const std::int64_t n = std::clamp<std::int64_t>(sample - frontSample, 0, frames());
            samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(n) *
                                                                 kAudioFormat.channelCount);
            frontSample += n;
        }
    };

    // What a replaced player hands to the one replacing it.
    struct Handover {
        std::vector<composition::VideoSource> sources;
        std::optional<double> resumeAt;  // the next picture it would have decoded, if playing
    };

    Engine(Player& owner, Loader loader, double frameRate, std::shared_ptr<Engine> predecessor)
        : owner(owner),
          loader(std::move(loader)),
          interval(1.0 / std::clamp(frameRate, 1.0, 120.0)),
          predecessor(std::move(predecessor)) {}

    ~Engine() { retire(); }

    // Stops for good: no picture, sound or end leaves after this returns. Waits only for a
    // picture being handed to the sink, never for a decode.
    void retire() {
        {
            std::unique_lock lock(mutex);
            stopping = true;
            sink = nullptr;
            sinkIdle.wait(lock, [&] { return sinkCalls == 0; });
        }
        videoWake.notify_all();
        presentWake.notify_all();
        audioWake.notify_all();
        handoverWake.notify_all();
    }

    void start() {
        video = std::jthread([this] { videoLoop(); });
        presenter = std::jthread([this] { presentLoop(); });
        audio = std::jthread([this] { audioLoop(); });
    }

    void present(PresentedFrame frame, std::unique_lock<std::mutex>& lock) {
        FrameSink to = sink;
        if (!to) return;
        ++sinkCalls;
        lock.unlock();
        to(frame);
        lock.lock();
        if (--sinkCalls == 0) sinkIdle.notify_all();
    }

    bool settled() const { return loaded && !pendingSeek && !seekInFlight; }

    // Moves the decoder on to the next picture due on the clock, skipping those already
    // too late to show.
    double takeNextFrameTime() {
        if (clock.running()) {
            const double behind = clock.now() - interval - (gridStart + gridIndex * interval);
            if (behind > 0) {
                const auto skipped = static_cast<std::int64_t>(std::ceil(behind / interval));
                gridIndex += skipped;
                stats.framesDropped += skipped;
            }
        }
        return gridStart + static_cast<double>(gridIndex++) * interval;
    }

    bool videoHasWork() const {
        return stopping || pendingSeek || handoverWanted ||
               (playing && !handedOver && duration && frames.size() < kQueuedFrames &&
                gridStart + static_cast<double>(gridIndex) * interval < *duration);
    }

    // Called by the engine of the player that replaces this one, from its video thread:
    // waits for this video thread to finish the picture under way and give up its files.
    // Nothing when they went to another successor already, or this engine is stopping.
    Handover handOver() {
        std::unique_lock lock(mutex);
        if (handedOver || stopping) return {};
        handoverWanted = true;
        videoWake.notify_all();
        handoverWake.wait(lock, [&] { return handedOver || stopping; });
        return std::move(handover);
    }

    // On the video thread, before its first seek: the predecessor's files and where it stood.
    void takeOver(composition::VideoRenderer* renderer) {
        if (!predecessor) return;
        Handover taken = predecessor->handOver();
        // Its threads are joined on the reaper, never on this one, which has a picture to make.
        reaper().post([gone = std::move(predecessor)] {});
        if (renderer) renderer->adoptSources(std::move(taken.sources));
        std::lock_guard lock(mutex);
        resumeAt = taken.resumeAt;
    }

    void videoLoop() {
        auto made = loader();
        std::optional<composition::VideoRenderer> renderer;
        {
            std::lock_guard lock(mutex);
            if (made) {
                duration = made.value().duration().seconds();
                loadedComposition = made.value();
                if (made.value().video) renderer.emplace(std::move(made.value()));
            }
            loaded = true;
        }
        audioWake.notify_all();
        settledWake.notify_all();
        composition::VideoRenderer* r = renderer ? &*renderer : nullptr;
        takeOver(r);

        std::unique_lock lock(mutex);
        while (true) {
            videoWake.wait(lock, [&] { return videoHasWork(); });
            if (stopping) return;
            if (handoverWanted) {
                handoverWanted = false;
                handedOver = true;
                if (r) handover.sources = r->releaseSources();
                if (playing && clock.running())
                    handover.resumeAt = gridStart + static_cast<double>(gridIndex) * interval;
                handoverWake.notify_all();
                continue;
            }
            if (pendingSeek) {
                double target = *pendingSeek;
                // Taking over a playing predecessor: its decoders stand at its next picture.
                if (resumeAt && *resumeAt > target) {
                    target = *resumeAt;
                    clock.set(target);
                    // The sound mixed from the time first asked for is stale too.
                    ++generation;
                    audioWake.notify_all();
                }
                resumeAt.reset();
                const Steady::time_point asked = seekAskedAt;
                const std::uint64_t seekGeneration = generation;
                pendingSeek.reset();
                seekInFlight = true;
                lock.unlock();
                SharedFrame picture = renderAt(r, target);
                lock.lock();
                present({std::move(picture), target}, lock);
                stats.seekLatenciesSeconds.push_back(secondsSince(asked));
                if (seekGeneration == generation) {
                    gridStart = target;
                    gridIndex = 1;
                    // The clock held still while the picture was found.
                    if (playing) clock.start();
                }
                seekInFlight = false;
                settledWake.notify_all();
                presentWake.notify_all();
                audioWake.notify_all();
                continue;
            }
            const double at = takeNextFrameTime();
            const std::uint64_t frameGeneration = generation;
            lock.unlock();
            SharedFrame picture = renderAt(r, at);
            lock.lock();
            if (frameGeneration == generation) {
                frames.push_back({at, std::move(picture), frameGeneration});
                presentWake.notify_all();
            }
        }
    }

    void presentLoop() {
        std::unique_lock lock(mutex);
        while (!stopping) {
            if (!playing || !clock.running() || !duration) {
                presentWake.wait(lock);
                continue;
            }
            const double now = clock.now();
            if (now >= *duration) {
                playing = false;
                clock.stop();
                clock.set(*duration);
                frames.clear();
                ++generation;
                QMetaObject::invokeMethod(
                    &owner, [player = &owner] { player->ended(); }, Qt::QueuedConnection);
                continue;
            }
            while (!frames.empty() && frames.front().generation != generation) frames.pop_front();
            if (frames.empty() || now < frames.front().seconds) {
                const double until =
                    frames.empty() ? *duration : std::min(frames.front().seconds, *duration);
                presentWake.wait_until(
                    lock,
                    std::min(clock.when(until), Steady::now() + std::chrono::milliseconds(20)));
                continue;
            }
            Queued frame = std::move(frames.front());
            frames.pop_front();
            videoWake.notify_all();
            const double lateness = now - frame.seconds;
            if (lateness > interval) {
                ++stats.framesDropped;
                continue;
            }
            ++stats.framesPresented;
            stats.largestLatenessSeconds = std::max(stats.largestLatenessSeconds, lateness);
            present({std::move(frame.picture), frame.seconds}, lock);
        }
    }

    void audioLoop() {
        std::unique_lock lock(mutex);
        audioWake.wait(lock, [&] { return stopping || loaded; });
        if (stopping || !loadedComposition || loadedComposition->audio.empty()) return;
        hasSound = true;
        composition::AudioRenderer mixer(*loadedComposition, kAudioFormat);
        std::vector<float> chunk(static_cast<std::size_t>(kAudioChunkFrames) *
                                 kAudioFormat.channelCount);
        while (!stopping) {
            if (ring.generation != generation) {
                ring = AudioRing{};
                ring.generation = generation;
                ring.frontSample = sampleAt(clock.now());
            }
            if (!deviceSound && playing && clock.running()) {
                // Without a device the clock is the listener: what lies behind it is heard.
                const std::int64_t heard = sampleAt(clock.now());
                if (heard > ring.endSample() + kAudioChunkFrames) {
                    if (!ring.starved) ++stats.audioUnderruns;
                    ring.starved = true;
                }
                ring.dropUntil(heard);
                if (ring.frontSample < heard) ring.frontSample = heard;
            }
            // Mixed ahead while paused too, so that playing starts with sound in hand.
            if (!duration || ring.frames() >= kAudioAheadFrames) {
                audioWake.wait_for(lock, std::chrono::milliseconds(10));
                continue;
            }
            const std::int64_t from = ring.endSample();
            const std::uint64_t mixGeneration = ring.generation;
            lock.unlock();
            if (mixer.position() != from) mixer.seek(from);
            // A source that can't be read is silent; the mixer starts that lane over.
            if (!mixer.read(chunk)) std::fill(chunk.begin(), chunk.end(), 0.0f);
            lock.lock();
            if (mixGeneration == ring.generation && from == ring.endSample()) {
                ring.samples.insert(ring.samples.end(), chunk.begin(), chunk.end());
                ring.starved = false;
            }
        }
    }

    // The device's pull: interleaved floats into `out`; silence where the mixer lags.
    void readSound(std::span<float> out) {
        std::lock_guard lock(mutex);
        const auto wanted = static_cast<std::int64_t>(out.size()) / kAudioFormat.channelCount;
        const bool current = ring.generation == generation;
        const std::int64_t n = current ? std::min(wanted, ring.frames()) : 0;
        std::copy_n(ring.samples.begin(), n * kAudioFormat.channelCount, out.begin());
        std::fill(out.begin() + n * kAudioFormat.channelCount, out.end(), 0.0f);
        if (current) ring.dropUntil(ring.frontSample + n);
        if (n < wanted && playing && hasSound) {
            if (!ring.starved) ++stats.audioUnderruns;
            ring.starved = true;
        }
        audioWake.notify_all();
    }

    // The sound heard now is `bufferedFrames` behind what the device has taken.
    void followSound(std::int64_t bufferedFrames) {
        std::lock_guard lock(mutex);
        if (!playing || !clock.running() || ring.generation != generation) return;
        const double heard =
            static_cast<double>(ring.frontSample - bufferedFrames) / kAudioFormat.sampleRateHz;
        const double now = clock.now();
        const double drift = heard - now;
        if (std::abs(drift) > kDriftLeapSeconds) {
            clock.set(heard);
            meanDrift = 0;
            return;
        }
        clock.set(now + kDriftFollowShare * drift);
        meanDrift += kDriftFollowShare * (drift - meanDrift);
        stats.greatestDriftSeconds = std::max(stats.greatestDriftSeconds, std::abs(meanDrift));
    }

    Player& owner;
    const Loader loader;
    const double interval;  // seconds between pictures while playing
    // The replaced player's engine, until this video thread has taken over from it.
    std::shared_ptr<Engine> predecessor;

    mutable std::mutex mutex;
    std::condition_variable videoWake;
    std::condition_variable presentWake;
    std::condition_variable audioWake;
    mutable std::condition_variable settledWake;

    FrameSink sink;
    int sinkCalls = 0;  // pictures being handed to the sink outside the lock
    std::condition_variable sinkIdle;
    bool deviceSound = false;  // a device pulls the sound; else the clock stands in for it
    double meanDrift = 0;      // the sound's lead over the clock, averaged over the saw
    bool hasSound = false;     // the composition has audio tracks, mixed as they play
    bool stopping = false;
    bool loaded = false;
    std::optional<composition::Composition> loadedComposition;  // for the mixer
    std::optional<double> duration;
    bool playing = false;
    PlaybackClock clock;
    // Bumped by every seek and by the end: frames and sound made before are stale.
    std::uint64_t generation = 0;
    std::optional<double> pendingSeek;
    Steady::time_point seekAskedAt;
    bool seekInFlight = false;
    std::int64_t seekRequests = 0;
    double gridStart = 0;  // the decoder's pictures fall at gridStart + k × interval
    std::int64_t gridIndex = 0;
    std::deque<Queued> frames;
    AudioRing ring;
    PlaybackStats stats;
    // Handing over to a successor: asked for, done (this engine then decodes no further
    // ahead), and what it hands.
    bool handoverWanted = false;
    bool handedOver = false;
    Handover handover;
    std::condition_variable handoverWake;
    std::optional<double> resumeAt;  // from the predecessor, for the first seek

    // Declared last, so they stop before anything they use goes.
    std::jthread video;
    std::jthread presenter;
    std::jthread audio;
};

namespace {

// The pull end of the audio device: reads what the mixer has made.
class SoundFeed : public QIODevice {
  public:
    explicit SoundFeed(std::function<void(std::span<float>)> read) : read_(std::move(read)) {}

  protected:
    qint64 readData(char* data, qint64 maxSize) override {
        const auto frameBytes = static_cast<qint64>(sizeof(float)) * kAudioFormat.channelCount;
        const qint64 bytes = maxSize / frameBytes * frameBytes;
        buffer_.resize(static_cast<std::size_t>(bytes) / sizeof(float));
        read_(buffer_);
        std::memcpy(data, buffer_.data(), static_cast<std::size_t>(bytes));
        return bytes;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

  private:
    std::function<void(std::span<float>)> read_;
    std::vector<float> buffer_;
};

}  // namespace

Player::Player(Loader loader, Options options, QObject* parent)
    : QObject(parent),
      options_(options),
      engine_(std::make_shared<Engine>(*this, std::move(loader), options.frameRate,
                                       options.replacing ? options.replacing->engine_ : nullptr)) {
    periodic_.setInterval(std::chrono::milliseconds(1000 / 30));
    periodic_.setTimerType(Qt::PreciseTimer);
    connect(&periodic_, &QTimer::timeout, this, &Player::tick);
    if (options_.audio == AudioOutput::device) startAudio();
    engine_->start();
}

Player::~Player() {
    periodic_.stop();
    // The device reads through the engine: stop it first.
    if (audioSink_) audioSink_->stop();
    engine_->retire();
    // Its threads may be inside a decode, which the UI thread must not wait for.
    reaper().post([engine = std::move(engine_)] {});
}

void Player::startAudio() {
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    QAudioFormat format;
    format.setSampleRate(kAudioFormat.sampleRateHz);
    format.setChannelCount(kAudioFormat.channelCount);
    format.setSampleFormat(QAudioFormat::Float);
    if (device.isNull() || !device.isFormatSupported(format)) {
        logSystemClockOnce("no audio output");
        return;
    }
    engine_->deviceSound = true;
    audioSink_ = std::make_unique<QAudioSink>(device, format);
    auto* feed =
        new SoundFeed([engine = engine_.get()](std::span<float> out) { engine->readSound(out); });
    feed->setParent(this);
    feed->open(QIODevice::ReadOnly);
    connect(audioSink_.get(), &QAudioSink::stateChanged, this, [this](QAudio::State) {
        if (!audioSink_ || audioSink_->error() == QAudio::NoError ||
            audioSink_->error() == QAudio::UnderrunError)
            return;
        logSystemClockOnce("the audio output failed");
        // Sound can't be had; the clock alone drives the picture from here on.
        {
            std::lock_guard lock(engine_->mutex);
            engine_->deviceSound = false;
        }
        audioSink_->disconnect(this);
        audioSink_.release()->deleteLater();
    });
    audioSink_->start(feed);
    audioSink_->suspend();
}

void Player::setFrameSink(FrameSink sink) {
    std::lock_guard lock(engine_->mutex);
    engine_->sink = std::move(sink);
}

void Player::play() {
    {
        std::lock_guard lock(engine_->mutex);
        if (engine_->playing) return;
        engine_->playing = true;
        if (!engine_->seekInFlight && !engine_->pendingSeek) engine_->clock.start();
    }
    engine_->videoWake.notify_all();
    engine_->presentWake.notify_all();
    engine_->audioWake.notify_all();
    if (audioSink_) audioSink_->resume();
    periodic_.start();
}

void Player::pause() {
    {
        std::lock_guard lock(engine_->mutex);
        if (!engine_->playing) return;
        engine_->playing = false;
        engine_->clock.stop();
    }
    engine_->presentWake.notify_all();
    if (audioSink_) audioSink_->suspend();
    periodic_.stop();
}

int Player::rate() const {
    std::lock_guard lock(engine_->mutex);
    return engine_->playing ? 1 : 0;
}

void Player::seek(double seconds) {
    {
        std::lock_guard lock(engine_->mutex);
        const double target = std::isfinite(seconds) ? std::max(seconds, 0.0) : 0.0;
        ++engine_->seekRequests;
        ++engine_->generation;
        engine_->pendingSeek = target;
        engine_->seekAskedAt = Steady::now();
        engine_->frames.clear();
        engine_->clock.stop();
        engine_->clock.set(target);
    }
    engine_->videoWake.notify_all();
    engine_->audioWake.notify_all();
}

double Player::currentTime() const {
    std::lock_guard lock(engine_->mutex);
    return engine_->clock.now();
}

std::optional<double> Player::duration() const {
    std::lock_guard lock(engine_->mutex);
    return engine_->duration;
}

void Player::setPeriodicCallback(std::function<void(double)> callback) {
    onPeriodic_ = std::move(callback);
}

void Player::setEndCallback(std::function<void()> callback) {
    onEnd_ = std::move(callback);
}

std::int64_t Player::seekRequests() const {
    std::lock_guard lock(engine_->mutex);
    return engine_->seekRequests;
}

PlaybackStats Player::stats() const {
    std::lock_guard lock(engine_->mutex);
    return engine_->stats;
}

bool Player::waitUntilSettled(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(engine_->mutex);
    return engine_->settledWake.wait_for(lock, timeout, [&] { return engine_->settled(); });
}

void Player::tick() {
    if (audioSink_) {
        const auto frameBytes = static_cast<qint64>(sizeof(float)) * kAudioFormat.channelCount;
        engine_->followSound((audioSink_->bufferSize() - audioSink_->bytesFree()) / frameBytes);
    }
    if (rate() == 0) return;
    if (onPeriodic_) onPeriodic_(currentTime());
}

void Player::ended() {
    periodic_.stop();
    if (audioSink_) audioSink_->suspend();
    if (onEnd_) onEnd_();
}

double frameRateFor(const std::vector<model::Clip>& clips) {
    double rate = 0;
    for (const model::Clip& clip : clips)
        if (clip.isOnVideoRow()) rate = std::max(rate, clip.frameRate);
    return rate > 0 ? std::min(rate, 60.0) : model::Project::defaultFrameRate;
}

}  // namespace preview
