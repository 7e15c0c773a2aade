#include "common/log.h"

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(Log, EachCallWritesExactlyOneLine) {
    testing::internal::CaptureStderr();
    common::logLine("Vantrell: first");
    common::logLine("Vantrell: second");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Vantrell: first\nVantrell: second\n");
}

TEST(Log, LinesFromManyThreadsNeverInterleave) {
    constexpr int kThreads = 8;
    constexpr int kLines = 200;
    const std::string body(100, 'x');
    testing::internal::CaptureStderr();
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < kLines; ++i) common::logLine(std::to_string(t) + ":" + body);
            });
    }
    std::istringstream lines(testing::internal::GetCapturedStderr());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        auto colon = line.find(':');
        ASSERT_NE(colon, std::string::npos) << line;
        EXPECT_EQ(line.substr(colon + 1), body);
    }
    EXPECT_EQ(count, kThreads * kLines);
}

TEST(Log, LoggerNamesItsCategoryAndMarksErrors) {
    testing::internal::CaptureStderr();
    common::exportLog.info("started");
    common::reverseLog.error("render failed");
    std::string out = testing::internal::GetCapturedStderr();
    EXPECT_EQ(out,
              "[com.corvane.vantrell:export] started\n"
              "[com.corvane.vantrell:reverse] error: render failed\n");
}

}  // namespace
