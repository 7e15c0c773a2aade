#pragma once

#include <QWidget>

class QPushButton;

namespace app {

// What the preview region shows while the project has no clips: an invitation to drop
// media, a button that opens the import panel (Ctrl+Shift+I) and the main shortcuts.
class EmptyStateView final : public QWidget {
    Q_OBJECT

  public:
    explicit EmptyStateView(QWidget* parent = nullptr);
    QPushButton* chooseFilesButton() const { return choose_; }

  signals:
    void chooseFiles();

  private:
    QPushButton* choose_;
};

}  // namespace app
