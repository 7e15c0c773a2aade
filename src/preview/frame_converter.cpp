#include "preview/frame_converter.h"

#include <cstring>
#include <utility>

#include "composition/picture_converter.h"

namespace preview {

FrameConverter::FrameConverter(Deliver deliver, Finish finish)
    : deliver_(std::move(deliver)),
      finish_(std::move(finish)),
      worker_([this](std::stop_token stop) { run(stop); }) {}

FrameConverter::~FrameConverter() {
    worker_.request_stop();
    wake_.notify_all();
}

void FrameConverter::submit(SharedFrame picture) {
    {
        std::lock_guard lock(mutex_);
        picture_ = std::move(picture);
        pending_ = true;
    }
    wake_.notify_all();
}

void FrameConverter::resize(QSize devicePixels) {
    {
        std::lock_guard lock(mutex_);
        if (size_ == devicePixels) return;
        size_ = devicePixels;
        pending_ = true;
    }
    wake_.notify_all();
}

void FrameConverter::run(std::stop_token stop) {
    composition::PictureConverter converter;
    std::unique_lock lock(mutex_);
    while (wake_.wait(lock, stop, [&] { return pending_; })) {
        pending_ = false;
        SharedFrame picture = picture_;
        const QSize size = size_;
        lock.unlock();
        QImage image;
        if (picture && !size.isEmpty()) {
            // BGRA in memory is Qt's 0xAARRGGBB on this little-endian machine.
            auto converted =
                converter.convert(*picture, {AV_PIX_FMT_BGRA, size.width(), size.height()});
            if (converted) {
                const AVFrame& frame = *converted.value();
                image = QImage(size, QImage::Format_RGB32);
                for (int y = 0; y < size.height(); ++y)
                    std::memcpy(image.scanLine(y), frame.data[0] + y * frame.linesize[0],
                                static_cast<std::size_t>(size.width()) * 4);
            }
        }
        if (finish_ && !image.isNull()) image = finish_(std::move(image));
        deliver_(std::move(image));
        lock.lock();
    }
}

}  // namespace preview
