// The pasteboard payload reader: the probe knows no file, so any payload pastes nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "support/fake_media_services.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static common::ThreadPoolExecutor executor{1};
    auto pasteboard = std::make_shared<model_test::FakePasteboard>();
    pasteboard->put(model::PasteboardType::vantrellClips,
                    std::string_view(reinterpret_cast<const char*>(data), size));
    model::Project project(
        {&executor, std::make_shared<model_test::FakeMediaServices>(), pasteboard});
    project.pasteAtPlayhead();
    executor.drain();
    if (!project.clips().empty()) std::abort();
    return 0;
}
