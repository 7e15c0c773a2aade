#pragma once

#include <functional>
#include <memory>
#include <utility>

namespace common {

// Runs work off the owning thread and brings its results back to the owning thread.
// The owning thread is whichever thread runs the posted tasks.
class Executor {
  public:
    virtual ~Executor() = default;

    // Runs `work` on some background thread. Safe to call from any thread.
    virtual void runInBackground(std::function<void()> work) = 0;

    // As runInBackground, for work that nothing waits on: it gives way to other work and to
    // the owning thread wherever the executor can arrange that.
    virtual void runInBackgroundAtUtility(std::function<void()> work) {
        runInBackground(std::move(work));
    }

    // Queues `task` to run on the owning thread. Safe to call from any thread.
    virtual void postToOwner(std::function<void()> task) = 0;
};

// How soon background work should run against the rest of the process's work.
enum class Priority { normal = 1, utility };

// Runs `work()` in the background and then `done(result)` on the owning thread.
template <typename Work, typename Done>
void runAsync(Executor& executor, Work work, Done done, Priority priority = Priority::normal) {
    auto job = [&executor, work = std::move(work), done = std::move(done)]() mutable {
        using R = decltype(work());
        auto result = std::make_shared<R>(work());
        executor.postToOwner([result, done]() mutable { done(std::move(*result)); });
    };
    if (priority == Priority::utility)
        executor.runInBackgroundAtUtility(std::move(job));
    else
        executor.runInBackground(std::move(job));
}

}  // namespace common
