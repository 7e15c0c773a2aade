#pragma once

#include <QObject>

#include "model/project.h"

namespace app {

// Re-emits a project's field notices as a Qt signal, so that widgets can connect to them.
// Holds no logic. Lives on the project's thread and must not outlive the project.
class ProjectSignals final : public QObject {
    Q_OBJECT

  public:
    explicit ProjectSignals(model::Project& project, QObject* parent = nullptr);
    ~ProjectSignals() override;

    model::Project& project() const { return project_; }

  signals:
    void changed(model::ProjectField field);

  private:
    model::Project& project_;
    model::Project::ObserverID observer_;
};

}  // namespace app
