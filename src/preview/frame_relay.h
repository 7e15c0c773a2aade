#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "preview/presented_frame.h"

namespace preview {

// Hands each presented picture to every listener, so the preview and its reflection show
// the same frames from one decoder, whichever player is current. Safe on any thread.
// Listeners run on the presenting thread under the relay's lock, so removing one waits
// for a picture being handed to it; they must only hand the picture on.
class FrameRelay {
  public:
    using ListenerID = std::uint64_t;

    // The listener gets the picture on show now, if there is one, and every one after.
    ListenerID add(FrameSink listener) {
        std::lock_guard lock(mutex_);
        if (last_) listener(*last_);
        listeners_.emplace_back(++lastID_, std::move(listener));
        return lastID_;
    }
    void remove(ListenerID id) {
        std::lock_guard lock(mutex_);
        std::erase_if(listeners_, [id](const auto& entry) { return entry.first == id; });
    }
    void present(const PresentedFrame& frame) {
        std::lock_guard lock(mutex_);
        last_ = frame;
        for (const auto& [id, listener] : listeners_) listener(frame);
    }

  private:
    std::mutex mutex_;
    ListenerID lastID_ = 0;                                    // guarded by mutex_
    std::optional<PresentedFrame> last_;                       // guarded by mutex_
    std::vector<std::pair<ListenerID, FrameSink>> listeners_;  // guarded by mutex_
};

}  // namespace preview
