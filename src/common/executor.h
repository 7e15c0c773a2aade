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

    // Queues `task` to run on the owning thread. Safe to call from any thread.
    virtual void postToOwner(std::function<void()> task) = 0;
};

// Runs `work()` in the background and then `done(result)` on the owning thread.
template <typename Work, typename Done>
void runAsync(Executor& executor, Work work, Done done) {
    executor.runInBackground([&executor, work = std::move(work), done = std::move(done)]() mutable {
        using R = decltype(work());
        auto result = std::make_shared<R>(work());
        executor.postToOwner([result, done]() mutable { done(std::move(*result)); });
    });
}

}  // namespace common
