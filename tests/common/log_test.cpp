#include "common/log.h"

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(Log, LinesFromManyThreadsComeWholeAndLoggersNameTheirCategory) {
    const std::string body(100, 'x');
    testing::internal::CaptureStderr();
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([&] {
                for (int i = 0; i < 200; ++i) common::logLine("Vantrell: " + body);
            });
    }
    std::istringstream lines(testing::internal::GetCapturedStderr());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) ASSERT_EQ(line, "Vantrell: " + body);
    EXPECT_EQ(count, 8 * 200);

    testing::internal::CaptureStderr();
    common::exportLog.info("started");
    common::reverseLog.error("render failed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[com.corvane.vantrell:export] started\n"
              "[com.corvane.vantrell:reverse] error: render failed\n");
}

}  // namespace
