#pragma once

#include <optional>

#include <QWidget>

class QPainter;

namespace timeline {

// What lies over the strip's content, bottom to top: the audio preview's span, the playhead
// line and the landing indicator of a move. Takes no pointer events.
class StripOverlay : public QWidget {
    Q_OBJECT

  public:
    explicit StripOverlay(QWidget* parent = nullptr);

    struct State {
        double pxPerSec = 0;
        double playheadSeconds = 0;
        bool showsAudioPreview = false;
        std::optional<double> landingX;
        friend bool operator==(const State&, const State&) = default;
    };
    void setState(const State& state);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QRect dirtyRect(const State& s) const;
    void paintMarks(QPainter& p);
    State state_;
};

}  // namespace timeline
