#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include <QImage>
#include <QSize>

#include "preview/presented_frame.h"

namespace preview {

// Turns presented pictures into images of the size they are shown at, on its own thread,
// so the UI thread never scales a picture. Only the newest waiting picture is converted;
// older ones are skipped. `deliver` gets each image on that thread (a null image for
// black, or before any picture); `finish`, if set, works on it there first. submit and
// resize may be called from any thread.
class FrameConverter {
  public:
    using Finish = std::function<QImage(QImage)>;
    using Deliver = std::function<void(QImage)>;

    explicit FrameConverter(Deliver deliver, Finish finish = {});
    ~FrameConverter();
    FrameConverter(const FrameConverter&) = delete;
    FrameConverter& operator=(const FrameConverter&) = delete;

    void submit(SharedFrame picture);
    // The size in device pixels; the last picture is converted again at it.
    void resize(QSize devicePixels);

  private:
    void run(std::stop_token stop);

    const Deliver deliver_;
    const Finish finish_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    SharedFrame picture_;   // guarded by mutex_: the newest picture
    QSize size_;            // guarded by mutex_
    bool pending_ = false;  // guarded by mutex_: picture_ or size_ changed since converted
    std::jthread worker_;   // last: stops first
};

}  // namespace preview
