#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "common/executor.h"

namespace common {

// A fixed pool of worker threads plus a queue of tasks for the owning thread. Utility work
// has workers of its own, as many as the rest, which the system schedules at a lower
// priority: they take what the others and the owner leave of the cores.
// The owner runs its queue either by calling drain() (tests, the command line) or from
// its event loop after the wakeup callback fires (the window).
// Thread use: runInBackground/postToOwner from any thread; drain, runOwnerTasks and
// setWakeup on the owning thread only.
class ThreadPoolExecutor final : public Executor {
  public:
    explicit ThreadPoolExecutor(std::size_t threads = defaultThreadCount());
    ~ThreadPoolExecutor() override;

    ThreadPoolExecutor(const ThreadPoolExecutor&) = delete;
    ThreadPoolExecutor& operator=(const ThreadPoolExecutor&) = delete;

    void runInBackground(std::function<void()> work) override;
    void runInBackgroundAtUtility(std::function<void()> work) override;
    void postToOwner(std::function<void()> task) override;

    // Runs the owner tasks queued so far; answers how many ran.
    std::size_t runOwnerTasks();

    // Runs owner tasks until no background work is queued or running and no owner task
    // is waiting, including work that those tasks start in turn.
    void drain();

    // Called from any thread after a task is posted for the owner; the window uses it to
    // schedule runOwnerTasks on its event loop. Set it before any work starts.
    void setWakeup(std::function<void()> wakeup) { wakeup_ = std::move(wakeup); }

    static std::size_t defaultThreadCount();

  private:
    struct Lane {
        std::condition_variable_any workAvailable;
        std::deque<std::function<void()>> queue;
    };

    void run(Lane& lane, std::function<void()> work);
    void workerLoop(Lane& lane, std::stop_token stop);

    std::mutex mutex_;  // guards everything below up to workers_
    std::condition_variable ownerAvailable_;
    Lane normal_;
    Lane utility_;
    std::deque<std::function<void()>> owner_;
    std::size_t busy_ = 0;  // background jobs queued or running
    std::function<void()> wakeup_;
    std::vector<std::jthread> workers_;
};

}  // namespace common
