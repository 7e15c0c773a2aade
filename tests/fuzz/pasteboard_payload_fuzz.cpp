// The pasteboard payload reader, through paste: whatever another program left under the
// clip type must paste cleanly or not at all. The probe fails every file, so a payload that
// decodes records one history entry and pastes nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/executor.h"
#include "model/media_services.h"
#include "model/pasteboard.h"
#include "model/project.h"

namespace {

// Runs background work at once and owner tasks when drained, all on this one thread.
class InlineExecutor final : public common::Executor {
  public:
    void runInBackground(std::function<void()> work) override { work(); }
    void postToOwner(std::function<void()> task) override { owner_.push_back(std::move(task)); }
    void drain() {
        while (!owner_.empty()) {
            auto task = std::move(owner_.front());
            owner_.pop_front();
            task();
        }
    }

  private:
    std::deque<std::function<void()>> owner_;
};

class NoMedia final : public model::MediaServices {
  public:
    common::Result<model::Clip> probe(const std::filesystem::path&,
                                      const std::optional<model::Bytes>&,
                                      const common::Uuid&) override {
        return common::Error{"No media here."};
    }
    std::optional<model::Bytes> makeBookmark(const std::filesystem::path&) override {
        return std::nullopt;
    }
    std::optional<std::filesystem::path> resolveBookmark(
        const model::Bytes&, const std::optional<std::filesystem::path>&) override {
        return std::nullopt;
    }
    std::optional<std::filesystem::path> renderReversed(const std::filesystem::path&, double,
                                                        double) override {
        return std::nullopt;
    }
    std::vector<model::Image> generateFilmstrip(const std::filesystem::path&, double) override {
        return {};
    }
    std::optional<std::vector<float>> extractPeaks(const std::filesystem::path&, int) override {
        return std::nullopt;
    }
    model::Image drawWaveform(const std::vector<float>&) override { return nullptr; }
};

class OneItemPasteboard final : public model::Pasteboard {
  public:
    explicit OneItemPasteboard(model::Bytes data) : data_(std::move(data)) {}
    common::Status setContents(std::string_view, const model::Bytes& data) override {
        data_ = data;
        return common::success();
    }
    std::optional<model::Bytes> data(std::string_view) override { return data_; }

  private:
    model::Bytes data_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    InlineExecutor executor;
    auto pasteboard = std::make_shared<OneItemPasteboard>(model::Bytes(data, data + size));
    model::Project project({&executor, std::make_shared<NoMedia>(), pasteboard});
    project.pasteAtPlayhead();
    executor.drain();
    if (!project.clips().empty()) std::abort();
    return 0;
}
