#pragma once

#include <QColor>
#include <QWidget>

#include "model/project.h"

namespace preview {

// Where the playhead stands on no picture: a moving window of waveform centred on the
// playhead, the playhead as a line in the middle, and the window's two ends as times at
// the bottom. Draws from the clips' stored peaks only. UI thread only.
class AudioPreviewView : public QWidget {
    Q_OBJECT

  public:
    explicit AudioPreviewView(model::Project& project, QWidget* parent = nullptr);
    ~AudioPreviewView() override;

    static QColor waveColor() { return QColor::fromRgbF(0.27f, 0.81f, 0.86f, 1.0f); }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    model::Project& project_;
    model::Project::ObserverID observer_ = 0;
};

}  // namespace preview
