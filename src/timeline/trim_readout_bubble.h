#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include <QImage>
#include <QTimer>
#include <QWidget>

#include "model/image.h"
#include "model/project_types.h"

namespace timeline {

// Asks for the source frame at `seconds` of the file at `url`, at most 320 by 180, and calls
// `done` on the UI thread with it (null when it can't be decoded). Any number may be in
// flight at once.
using FrameRequester = std::function<void(const std::filesystem::path& url, double seconds,
                                          std::function<void(model::Image)> done)>;

// The bubble over a trimmed edge: source and timeline times and, for a clip with video, the
// source frame there. Only the newest request's answer is shown. UI thread only.
class TrimReadoutBubble : public QWidget {
    Q_OBJECT

  public:
    explicit TrimReadoutBubble(QWidget* parent = nullptr);

    // `url` is the clip's source, none if the clip is gone.
    void setInfo(const model::TrimReadoutInfo& info,
                 const std::optional<std::filesystem::path>& url, const FrameRequester& request);
    QString text() const;

  protected:
    void paintEvent(QPaintEvent* event) override;
    void hideEvent(QHideEvent* event) override;

  private:
    std::optional<model::TrimReadoutInfo> info_;
    model::Image frame_;
    int requestToken_ = 0;
    QTimer spinner_;
};

}  // namespace timeline
