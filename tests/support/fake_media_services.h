#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "common/thread_pool_executor.h"
#include "model/media_services.h"
#include "model/pasteboard.h"
#include "model/project.h"
#include "support/model_test_support.h"

namespace model_test {

// A pasteboard in memory holding one item of one type, as the desktop clipboard does.
class FakePasteboard final : public model::Pasteboard {
  public:
    common::Status setContents(std::string_view type, const model::Bytes& data) override {
        put(type, std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
        ++writes_;
        return common::success();
    }
    std::optional<model::Bytes> data(std::string_view type) override {
        return type == type_ ? data_ : std::nullopt;
    }
    // Puts `text` on the pasteboard under `type`, as another program might.
    void put(std::string_view type, std::string_view text) {
        type_ = type;
        data_ = model::Bytes(text.begin(), text.end());
    }
    // The clip payload as text; none if the pasteboard holds none.
    std::optional<std::string> payloadText() {
        auto bytes = data(model::PasteboardType::vantrellClips);
        if (!bytes) return std::nullopt;
        return std::string(bytes->begin(), bytes->end());
    }
    int writes() const { return writes_; }

  private:
    std::string type_;
    std::optional<model::Bytes> data_;
    int writes_ = 0;
};

// Media served from a table of paths, bookmarked by their text; work can be held until
// released. The executor's workers call it, so every member locks.
class FakeMediaServices final : public model::MediaServices {
    template <typename F>
    auto locked(F&& f) {
        std::lock_guard lock(mutex_);
        return f();
    }

  public:
    enum Work { probes, filmstrips, peaks };
    static constexpr const char* kProbeFailure = "The file can't be opened as media.";
    static constexpr std::size_t kFilmstripFrames = 3;
    static constexpr float kPeakLevel = 0.5f;

    struct RenderCall {
        std::filesystem::path url;
        double fromSeconds = 0;
        double toSeconds = 0;
    };
    struct PeaksCall {
        std::filesystem::path url;
        int targetPeakCount = 0;
    };

    // Makes `path` probe as a file of `seconds` with the given streams.
    void add(const std::filesystem::path& path, double seconds, bool video = true,
             bool audio = true) {
        model::Clip c = clipAt(0, seconds, video, audio);
        c.fingerprint = video ? "v:1635148593:1280x720" : "a:1633772320";
        c.thumbnail = std::make_shared<const model::ImageData>();
        locked([&] { files_[path] = c; });
    }
    // Probes of `path` fail from now on, as for a file that is gone.
    void remove(const std::filesystem::path& path) {
        locked([&] { files_.erase(path); });
    }
    void moveBookmarkTarget(const model::Bytes& bookmark, const std::filesystem::path& to) {
        locked([&] { moved_[bookmark] = to; });
    }
    void setRenderResult(std::optional<std::filesystem::path> file) {
        locked([&] { renderResult_ = std::move(file); });
    }
    // drawWaveform answers null from now on, as when there is no surface to draw on.
    void failWaveformImages() {
        locked([&] { waveformImagesFail_ = true; });
    }

    // Work of this kind started from now on waits inside the background until release().
    void hold(Work work) {
        locked([&] { held_[work] = true; });
    }
    void release() {
        locked([&] { held_ = {}; });
        changed_.notify_all();
    }
    // Blocks until `count` tasks of this kind have started in all; false after a few seconds.
    bool waitFor(Work work, std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return started_[work] >= count; });
    }

    std::size_t probeCount() {
        return locked([&] { return started_[probes]; });
    }
    std::optional<std::filesystem::path> lastProjectFolder() {
        return locked([&] { return lastProjectFolder_; });
    }
    std::vector<RenderCall> renderCalls() {
        return locked([&] { return renderCalls_; });
    }
    std::vector<std::filesystem::path> filmstripCalls() {
        return locked([&] { return filmstripCalls_; });
    }
    std::vector<PeaksCall> peakCalls() {
        return locked([&] { return peakCalls_; });
    }

    common::Result<model::Clip> probe(const std::filesystem::path& url,
                                      const std::optional<model::Bytes>& bookmark,
                                      const common::Uuid& id) override {
        auto known = started(probes, url);
        if (!known) return common::Error{kProbeFailure};
        known->id = id;
        known->url = url;
        known->bookmark = bookmark;
        known->displayName = url.filename().string();
        return *known;
    }
    std::optional<model::Bytes> makeBookmark(const std::filesystem::path& url) override {
        if (!locked([&] { return files_.contains(url); })) return std::nullopt;
        return bookmarkFor(url);
    }
    std::optional<std::filesystem::path> resolveBookmark(
        const model::Bytes& bookmark,
        const std::optional<std::filesystem::path>& projectFolder) override {
        std::lock_guard lock(mutex_);
        lastProjectFolder_ = projectFolder;
        if (auto it = moved_.find(bookmark); it != moved_.end()) return it->second;
        std::filesystem::path path(std::string(bookmark.begin(), bookmark.end()));
        if (files_.contains(path)) return path;
        return std::nullopt;
    }
    std::optional<std::filesystem::path> renderReversed(const std::filesystem::path& url,
                                                        double fromSeconds,
                                                        double toSeconds) override {
        return locked([&] {
            renderCalls_.push_back({url, fromSeconds, toSeconds});
            return renderResult_;
        });
    }
    std::vector<model::Image> generateFilmstrip(const std::filesystem::path& url, double) override {
        locked([&] { filmstripCalls_.push_back(url); });
        auto known = started(filmstrips, url);
        if (!known || !known->hasVideo) return {};
        return std::vector<model::Image>(kFilmstripFrames,
                                         std::make_shared<const model::ImageData>());
    }
    std::optional<std::vector<float>> extractPeaks(const std::filesystem::path& url,
                                                   int targetPeakCount) override {
        locked([&] { peakCalls_.push_back({url, targetPeakCount}); });
        auto known = started(peaks, url);
        if (!known || !known->hasAudio) return std::nullopt;
        return std::vector<float>(static_cast<std::size_t>(targetPeakCount), kPeakLevel);
    }
    model::Image drawWaveform(const std::vector<float>&) override {
        if (locked([&] { return waveformImagesFail_; })) return nullptr;
        return std::make_shared<const model::ImageData>();
    }

    static model::Bytes bookmarkFor(const std::filesystem::path& path) {
        std::string s = path.string();
        return model::Bytes(s.begin(), s.end());
    }

  private:
    // Counts the task as started and waits while its kind is held; answers the file's clip.
    std::optional<model::Clip> started(Work work, const std::filesystem::path& url) {
        std::unique_lock lock(mutex_);
        ++started_[work];
        changed_.notify_all();
        changed_.wait(lock, [&] { return !held_[work]; });
        auto it = files_.find(url);
        if (it == files_.end()) return std::nullopt;
        return it->second;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::array<bool, 3> held_{};
    std::array<std::size_t, 3> started_{};
    bool waveformImagesFail_ = false;
    std::vector<std::filesystem::path> filmstripCalls_;
    std::vector<PeaksCall> peakCalls_;
    std::map<std::filesystem::path, model::Clip> files_;
    std::optional<std::filesystem::path> renderResult_;
    std::vector<RenderCall> renderCalls_;
    std::map<model::Bytes, std::filesystem::path> moved_;
    std::optional<std::filesystem::path> lastProjectFolder_;
};

// A project wired to the fake media layer and a real pool; drain() finishes its work.
class MediaProjectTest : public testing::Test {
  protected:
    // Held work would keep the pool's workers from joining.
    ~MediaProjectTest() override { media->release(); }

    // A clip as the probe makes it of a `seconds`-long file at `path`, placed at `start`.
    model::Clip liveClip(const std::filesystem::path& path, double seconds, double start = 0,
                         bool video = true, bool audio = true) {
        media->add(path, seconds, video, audio);
        model::Clip c =
            media->probe(path, FakeMediaServices::bookmarkFor(path), common::Uuid::random())
                .value();
        c.startOnTimeline = start;
        return c;
    }

    std::string drainCapturingLog() {
        testing::internal::CaptureStderr();
        executor.drain();
        return testing::internal::GetCapturedStderr();
    }

    std::shared_ptr<FakeMediaServices> media = std::make_shared<FakeMediaServices>();
    std::shared_ptr<FakePasteboard> pasteboard = std::make_shared<FakePasteboard>();
    common::ThreadPoolExecutor executor{2};
    model::Project project{{&executor, media, pasteboard}};
};

}  // namespace model_test
