#include "common/thread_pool_executor.h"

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using common::ThreadPoolExecutor;

TEST(ThreadPoolExecutor, WorkRunsInTheBackgroundAndResultsInOrderOnTheOwner) {
    ThreadPoolExecutor executor(3);
    const auto owner = std::this_thread::get_id();
    std::vector<int> arrived;
    bool workOffOwner = true, resultsOnOwner = true;
    std::function<void(int)> step = [&](int n) {
        common::runAsync(
            executor,
            [&, n] {
                if (std::this_thread::get_id() == owner) workOffOwner = false;
                return n;
            },
            [&](int value) {
                resultsOnOwner = resultsOnOwner && std::this_thread::get_id() == owner;
                arrived.push_back(value);
                if (value < 20) step(value + 1);
            });
    };
    step(1);
    executor.drain();
    ASSERT_EQ(arrived.size(), 20u);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(arrived[i], i + 1);
    EXPECT_TRUE(workOffOwner && resultsOnOwner);
}

TEST(ThreadPoolExecutor, OwnerTasksWaitForTheOwnerEachPostWakesItAndAThrowingJobIsLogged) {
    ThreadPoolExecutor executor(2);
    std::atomic<int> wakeups = 0;
    executor.setWakeup([&] { ++wakeups; });
    for (int i = 0; i < 10; ++i) executor.runInBackground([&] { executor.postToOwner([] {}); });
    executor.drain();
    EXPECT_EQ(wakeups.load(), 10);

    int ran = 0;
    executor.postToOwner([&] { ++ran; });
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(executor.runOwnerTasks(), 1u);
    EXPECT_EQ(ran, 1);

    ThreadPoolExecutor single(0);
    testing::internal::CaptureStderr();
    single.runInBackground([] { throw std::runtime_error("boom"); });
    single.drain();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Vantrell: background task failed: boom\n");
    int after = 0;
    common::runAsync(
        single, [] { return 7; }, [&](int v) { after = v; });
    single.drain();
    EXPECT_EQ(after, 7);
}

}  // namespace
