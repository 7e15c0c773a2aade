#include "common/thread_pool_executor.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <string>

#include "common/log.h"

namespace common {

namespace {

// A utility worker's nice value: against a normal thread its share of a core is a tenth.
constexpr int kUtilityNice = 10;

}  // namespace

ThreadPoolExecutor::ThreadPoolExecutor(std::size_t threads) {
    threads = std::max<std::size_t>(threads, 1);
    workers_.reserve(2 * threads);
    for (std::size_t i = 0; i < threads; ++i) {
        workers_.emplace_back([this](std::stop_token stop) { workerLoop(normal_, stop); });
        workers_.emplace_back([this](std::stop_token stop) {
            // Per thread on Linux; the decoder threads the work starts inherit it. Without
            // it the work still runs, only without giving way.
            setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kUtilityNice);
            workerLoop(utility_, stop);
        });
    }
}

ThreadPoolExecutor::~ThreadPoolExecutor() {
    for (auto& w : workers_) w.request_stop();
    normal_.workAvailable.notify_all();
    utility_.workAvailable.notify_all();
    workers_.clear();  // joins
}

std::size_t ThreadPoolExecutor::defaultThreadCount() {
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, 8);
}

void ThreadPoolExecutor::runInBackground(std::function<void()> work) {
    run(normal_, std::move(work));
}

void ThreadPoolExecutor::runInBackgroundAtUtility(std::function<void()> work) {
    run(utility_, std::move(work));
}

void ThreadPoolExecutor::run(Lane& lane, std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        lane.queue.push_back(std::move(work));
        ++busy_;
    }
    lane.workAvailable.notify_one();
}

void ThreadPoolExecutor::postToOwner(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        owner_.push_back(std::move(task));
    }
    ownerAvailable_.notify_all();
    if (wakeup_) wakeup_();
}

void ThreadPoolExecutor::workerLoop(Lane& lane, std::stop_token stop) {
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(mutex_);
            if (!lane.workAvailable.wait(lock, stop, [&lane] { return !lane.queue.empty(); }))
                return;
            job = std::move(lane.queue.front());
            lane.queue.pop_front();
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
