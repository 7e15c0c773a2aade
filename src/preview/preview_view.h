#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include <QImage>
#include <QWidget>

#include "composition/stream_lookup.h"
#include "model/project.h"
#include "preview/frame_converter.h"
#include "preview/frame_relay.h"
#include "preview/player.h"
#include "preview/serial_worker.h"

namespace preview {

// Shows the project as export will write it: the picture of one Player, aspect-fitted on
// black. It rebuilds the composition whenever the project's composition token moves;
// otherwise it only plays, pauses and seeks. While playing, the player moves the
// playhead; while paused, the playhead moves the player. During a trim drag it shows the
// dragged file's own frame instead. UI thread only.
class PreviewView : public QWidget {
    Q_OBJECT

  public:
    explicit PreviewView(model::Project& project, QWidget* parent = nullptr);
    ~PreviewView() override;

    // The player now shown (the composition's, or the trim preview's), or null.
    Player* player() const { return player_.get(); }
    // Every picture the current player presents, whichever that is; see FrameRelay.
    FrameRelay& frames() { return *relay_; }
    // Whether a picture (not black) is on screen.
    bool hasPicture() const { return !shown_.isNull(); }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    void projectChanged(model::ProjectField field);
    void sync();
    void seek(double globalSeconds);
    void tearDown();
    void installPlayer(std::unique_ptr<Player> player);
    void startPlayer(std::shared_ptr<const composition::Composition> built, double frameRate,
                     double seekTo, bool autoPlay);
    void installStarted(Player* player);
    void rebuildAsync(std::vector<model::Clip> clips, double seekTo, bool autoPlay);
    void applyTrimPreview(const model::TrimPreviewState& state);
    void layoutPicture();

    model::Project& project_;
    model::Project::ObserverID observer_ = 0;
    std::optional<double> aspect_;
    std::int64_t lastToken_ = -1;  // of the composition asked for last; -1 forces a rebuild
    bool lastIsPlaying_ = false;   // the play state last acted on
    std::optional<std::filesystem::path> trimPreviewURL_;
    QImage shown_;  // at the shown size in device pixels; null for black

    std::shared_ptr<FrameRelay> relay_ = std::make_shared<FrameRelay>();
    FrameRelay::ListenerID ownListener_ = 0;
    // Declared after what their threads reach and before the player they feed.
    std::unique_ptr<FrameConverter> converter_;
    composition::StreamLookup streams_ = composition::lastingStreamLookup();  // builder_'s
    SerialWorker builder_;
    // Built players that are finding their first picture; the one before plays on meanwhile.
    std::vector<std::unique_ptr<Player>> starting_;
    std::unique_ptr<Player> player_;
};

}  // namespace preview
