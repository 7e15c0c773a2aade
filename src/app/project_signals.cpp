#include "app/project_signals.h"

namespace app {

ProjectSignals::ProjectSignals(model::Project& project, QObject* parent)
    : QObject(parent),
      project_(project),
      observer_(project.addObserver([this](model::ProjectField field) { emit changed(field); })) {}

ProjectSignals::~ProjectSignals() {
    project_.removeObserver(observer_);
}

}  // namespace app
