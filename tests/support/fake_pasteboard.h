#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/pasteboard.h"

namespace model_test {

// A pasteboard in memory holding one item of one type, as the desktop clipboard does. Used on
// the test's thread only, like the project that holds it.
class FakePasteboard final : public model::Pasteboard {
  public:
    common::Status setContents(std::string_view type, const model::Bytes& data) override {
        put(type, std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
        ++writes_;
        return common::success();
    }
    std::optional<model::Bytes> data(std::string_view type) override {
        if (!data_ || type != type_) return std::nullopt;
        return data_;
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

}  // namespace model_test
