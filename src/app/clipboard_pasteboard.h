#pragma once

#include <QString>

#include "model/image.h"
#include "model/pasteboard.h"

namespace app {

// The MIME type under which clip records travel on the desktop clipboard.
inline constexpr const char* kClipsMimeType = "application/x-vantrell-clips";

// The desktop clipboard as a project's pasteboard, so that clips copied in one window
// paste in another (or in another Vantrell process). The project's own type names map to
// MIME types. Main thread only.
class ClipboardPasteboard final : public model::Pasteboard {
  public:
    common::Status setContents(std::string_view type, const model::Bytes& data) override;
    std::optional<model::Bytes> data(std::string_view type) override;
};

// The MIME type that stands for one of the project's pasteboard type names.
QString mimeTypeFor(std::string_view pasteboardType);

// Leaves `image` on the desktop clipboard as a picture that other programs paste.
void putImageOnClipboard(const model::Image& image);

}  // namespace app
