#include "common/log.h"

#include <gtest/gtest.h>

namespace {

TEST(Log, LoggersNameTheirCategoryAndMarkErrors) {
    testing::internal::CaptureStderr();
    common::exportLog.info("started");
    common::reverseLog.error("render failed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[com.corvane.vantrell:export] started\n"
              "[com.corvane.vantrell:reverse] error: render failed\n");
}

}  // namespace
