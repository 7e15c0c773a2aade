#include "app/main_thread_executor.h"

#include <QMetaObject>

namespace app {

MainThreadExecutor::MainThreadExecutor() {
    pool_.setWakeup([this] {
        // One wakeup per posted task; runOwnerTasks runs whatever is queued by then, so a
        // later wakeup may find nothing left, which is harmless.
        QMetaObject::invokeMethod(
            &receiver_, [this] { pool_.runOwnerTasks(); }, Qt::QueuedConnection);
    });
}

MainThreadExecutor::~MainThreadExecutor() = default;

void MainThreadExecutor::runInBackground(std::function<void()> work) {
    ++outstanding_;
    pool_.runInBackground([this, work = std::move(work)] {
        work();
        --outstanding_;
    });
}

void MainThreadExecutor::runInBackgroundAtUtility(std::function<void()> work) {
    ++outstanding_;
    pool_.runInBackgroundAtUtility([this, work = std::move(work)] {
        work();
        --outstanding_;
    });
}

void MainThreadExecutor::postToOwner(std::function<void()> task) {
    ++outstanding_;
    pool_.postToOwner([this, task = std::move(task)] {
        task();
        --outstanding_;
    });
}

}  // namespace app
