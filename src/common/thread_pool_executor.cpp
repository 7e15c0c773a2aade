#include "common/thread_pool_executor.h"

#include <algorithm>
#include <exception>
#include <string>

#include "common/log.h"

namespace common {

ThreadPoolExecutor::ThreadPoolExecutor(std::size_t threads) {
    workers_.reserve(threads);
    for (std::size_t i = 0; i < std::max<std::size_t>(threads, 1); ++i)
        workers_.emplace_back([this](std::stop_token stop) { workerLoop(stop); });
}

ThreadPoolExecutor::~ThreadPoolExecutor() {
    for (auto& w : workers_) w.request_stop();
    workAvailable_.notify_all();
    workers_.clear();  // joins
}

std::size_t ThreadPoolExecutor::defaultThreadCount() {
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, 8);
}

void ThreadPoolExecutor::runInBackground(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        background_.push_back(std::move(work));
        ++busy_;
    }
    workAvailable_.notify_one();
}

void ThreadPoolExecutor::postToOwner(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        owner_.push_back(std::move(task));
    }
    ownerAvailable_.notify_all();
    if (wakeup_) wakeup_();
}

void ThreadPoolExecutor::workerLoop(std::stop_token stop) {
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(mutex_);
            if (!workAvailable_.wait(lock, stop, [this] { return !background_.empty(); })) return;
            job = std::move(background_.front());
            background_.pop_front();
        }
        // An exception must not cross threads; background work reports failure by value,
        // so one arriving here is a bug worth a log line rather than a crash of the pool.
        try {
            job();
        } catch (const std::exception& e) {
            logLine(std::string("Vantrell: background task failed: ") + e.what());
        }
        {
            std::lock_guard lock(mutex_);
            --busy_;
        }
        ownerAvailable_.notify_all();
    }
}

std::size_t ThreadPoolExecutor::runOwnerTasks() {
    std::deque<std::function<void()>> tasks;
    {
        std::lock_guard lock(mutex_);
        tasks.swap(owner_);
    }
    for (auto& t : tasks) t();
    return tasks.size();
}

void ThreadPoolExecutor::drain() {
    for (;;) {
        runOwnerTasks();
        std::unique_lock lock(mutex_);
        ownerAvailable_.wait(lock, [this] { return !owner_.empty() || busy_ == 0; });
        if (owner_.empty() && busy_ == 0) return;
    }
}

}  // namespace common
