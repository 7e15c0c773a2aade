#include "common/thread_pool_executor.h"

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using common::ThreadPoolExecutor;

TEST(ThreadPoolExecutor, WorkRunsInTheBackgroundAndItsResultOnTheDrainingThread) {
    ThreadPoolExecutor executor(2);
    const auto owner = std::this_thread::get_id();
    std::thread::id workThread;
    std::thread::id doneThread;
    int result = 0;
    common::runAsync(
        executor,
        [&] {
            workThread = std::this_thread::get_id();
            return 42;
        },
        [&](int value) {
            doneThread = std::this_thread::get_id();
            result = value;
        });
    executor.drain();
    EXPECT_EQ(result, 42);
    EXPECT_NE(workThread, owner);
    EXPECT_EQ(doneThread, owner);
}

TEST(ThreadPoolExecutor, DrainRunsChainsOfWorkStartedByOwnerTasks) {
    ThreadPoolExecutor executor(3);
    const auto owner = std::this_thread::get_id();
    std::vector<int> arrived;
    bool allOnOwner = true;
    std::function<void(int)> step = [&](int n) {
        common::runAsync(
            executor, [n] { return n; },
            [&](int value) {
                allOnOwner = allOnOwner && std::this_thread::get_id() == owner;
                arrived.push_back(value);
                if (value < 20) step(value + 1);
            });
    };
    step(1);
    executor.drain();
    ASSERT_EQ(arrived.size(), 20u);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(arrived[i], i + 1);
    EXPECT_TRUE(allOnOwner);
}

TEST(ThreadPoolExecutor, ManyConcurrentJobsAllDeliverTheirResults) {
    ThreadPoolExecutor executor(4);
    long sum = 0;
    for (int i = 1; i <= 500; ++i)
        common::runAsync(
            executor, [i] { return i; }, [&](int v) { sum += v; });
    executor.drain();
    EXPECT_EQ(sum, 500L * 501 / 2);
}

TEST(ThreadPoolExecutor, OwnerTasksWaitUntilTheOwnerRunsThem) {
    ThreadPoolExecutor executor(1);
    int ran = 0;
    executor.postToOwner([&] { ++ran; });
    executor.postToOwner([&] { ++ran; });
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(executor.runOwnerTasks(), 2u);
    EXPECT_EQ(ran, 2);
    EXPECT_EQ(executor.runOwnerTasks(), 0u);
}

TEST(ThreadPoolExecutor, DrainReturnsAtOnceWhenNothingIsPending) {
    ThreadPoolExecutor executor(2);
    executor.drain();
    SUCCEED();
}

TEST(ThreadPoolExecutor, WakeupFiresForEveryTaskPostedFromAnyThread) {
    ThreadPoolExecutor executor(2);
    std::atomic<int> wakeups = 0;
    executor.setWakeup([&] { ++wakeups; });
    for (int i = 0; i < 10; ++i) executor.runInBackground([&] { executor.postToOwner([] {}); });
    executor.drain();
    EXPECT_EQ(wakeups.load(), 10);
}

TEST(ThreadPoolExecutor, ZeroThreadsStillGetsOneWorker) {
    ThreadPoolExecutor executor(0);
    bool done = false;
    common::runAsync(
        executor, [] { return true; }, [&](bool v) { done = v; });
    executor.drain();
    EXPECT_TRUE(done);
}

TEST(ThreadPoolExecutor, AThrowingJobIsLoggedAndThePoolGoesOn) {
    ThreadPoolExecutor executor(1);
    testing::internal::CaptureStderr();
    executor.runInBackground([] { throw std::runtime_error("boom"); });
    executor.drain();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Vantrell: background task failed: boom\n");

    int after = 0;
    common::runAsync(
        executor, [] { return 7; }, [&](int v) { after = v; });
    executor.drain();
    EXPECT_EQ(after, 7);
}

}  // namespace
