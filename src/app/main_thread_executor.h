#pragma once

#include <QObject>
#include <atomic>
#include <functional>

#include "common/executor.h"
#include "common/thread_pool_executor.h"

namespace app {

// The window's executor: background work on a thread pool, results posted to the Qt main
// thread's event loop. Made, used and destroyed on the main thread; runInBackground and
// postToOwner may be called from any thread.
class MainThreadExecutor final : public common::Executor {
  public:
    MainThreadExecutor();
    ~MainThreadExecutor() override;

    void runInBackground(std::function<void()> work) override;
    void runInBackgroundAtUtility(std::function<void()> work) override;
    void postToOwner(std::function<void()> task) override;

    // Runs posted tasks until no work is queued or running: tests and benchmarks wait
    // with this instead of spinning the event loop.
    void drain() { pool_.drain(); }

    // No background work and no result waiting: what a screenshot waits for.
    bool isIdle() const { return outstanding_.load() == 0; }

  private:
    std::atomic<int> outstanding_{0};  // background jobs and owner tasks not yet finished
    QObject receiver_;                 // lives on the main thread; queued calls to it run there
    common::ThreadPoolExecutor pool_;  // declared last: its workers stop first
};

}  // namespace app
