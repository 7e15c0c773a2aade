#pragma once

#include <QWidget>
#include <string>
#include <utility>

#include "model/project.h"

namespace app {

// The frame number at the playhead, "%06df".
std::string lcdFrameText(double seconds, double frameRate);
// Splits a text into its dim head (the leading run of "0" and ":") and its bright tail;
// a text of only such characters keeps its last character as the tail.
std::pair<std::string, std::string> lcdDimSplit(const std::string& text);

// The LCD timecode of the transport bar: the playhead time and, while the project has
// video, the frame. Repaints from the project on every change of it.
class LcdTimecode final : public QWidget {
    Q_OBJECT

  public:
    explicit LcdTimecode(const model::Project& project, QWidget* parent = nullptr);
    QSize sizeHint() const override;
    void refresh();

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const model::Project& project_;
};

}  // namespace app
