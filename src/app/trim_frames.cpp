#include "app/trim_frames.h"

#include "media/media_input.h"
#include "media/thumbnail.h"

namespace app {

timeline::FrameRequester trimFrameRequester(common::Executor& executor) {
    return [&executor](const std::filesystem::path& url, double seconds,
                       std::function<void(model::Image)> done) {
        common::runAsync(
            executor,
            [url, seconds]() -> model::Image {
                auto input = media::openInput(url);
                if (!input) return nullptr;
                return media::thumbnailAt(*input.value(), seconds);
            },
            std::move(done));
    };
}

}  // namespace app
