#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace preview {

// Runs jobs one after the other on its own thread, in the order given. The destructor
// waits for the job under way and drops those still waiting. Post from any thread.
class SerialWorker {
  public:
    SerialWorker() : thread_([this](std::stop_token stop) { run(stop); }) {}
    ~SerialWorker() {
        thread_.request_stop();
        wake_.notify_all();
    }
    SerialWorker(const SerialWorker&) = delete;
    SerialWorker& operator=(const SerialWorker&) = delete;

    void post(std::function<void()> job) {
        {
            std::lock_guard lock(mutex_);
            jobs_.push_back(std::move(job));
        }
        wake_.notify_all();
    }

  private:
    void run(std::stop_token stop) {
        std::unique_lock lock(mutex_);
        while (wake_.wait(lock, stop, [&] { return !jobs_.empty(); })) {
            auto job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            job();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::deque<std::function<void()>> jobs_;  // guarded by mutex_
    std::jthread thread_;                     // last: stops first
};

}  // namespace preview
