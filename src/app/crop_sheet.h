#pragma once

#include <QDialog>
#include <QWidget>
#include <array>
#include <optional>

#include "app/crop_math.h"
#include "model/project.h"

class QLabel;
class QPushButton;
class QToolButton;

namespace app {

class BareIntField;

// The window-modal project settings sheet: the output crop in whole pixels of the output
// frame. Every change goes straight into the project; "Done" (Return) closes it. The lock
// starts open each time.
class CropSheet final : public QDialog {
    Q_OBJECT

  public:
    explicit CropSheet(model::Project& project, QWidget* parent = nullptr);
    ~CropSheet() override;

    BareIntField* field(CropEdge edge) const;
    QToolButton* lockButton() const { return lock_; }
    QPushButton* resetButton() const { return reset_; }
    QPushButton* doneButton() const { return done_; }
    bool isLocked() const { return locked_; }
    QString outputText() const;
    // Re-reads the four insets into the fields.
    void refresh();

  private:
    void toggleLock();
    model::Project& project_;
    std::optional<CropPixels> pixels_;
    bool locked_ = false;
    std::array<BareIntField*, 4> fields_{};
    QToolButton* lock_ = nullptr;
    QLabel* output_ = nullptr;
    QPushButton* reset_ = nullptr;
    QPushButton* done_ = nullptr;
    model::Project::ObserverID observer_ = 0;
};

// Tints what the crop cuts away over the preview and outlines what stays. Lets mouse
// events through to the preview below.
class CropOverlay final : public QWidget {
    Q_OBJECT

  public:
    explicit CropOverlay(const model::Project& project, QWidget* parent = nullptr);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const model::Project& project_;
};

}  // namespace app
