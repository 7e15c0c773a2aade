#include <string>

#include <gtest/gtest.h>

#include "model/snapshot.h"

namespace {

TEST(SnapshotLimits, AProjectOfTooManyClipsOrBytesIsRefusedSayingSo) {
    std::string clips;
    for (std::size_t i = 0; i <= model::kMostSnapshotClips; ++i) clips += i ? ",{}" : "{}";
    auto many = model::decodeSnapshot(
        R"({"version":1,"playheadGlobal":0,"zoomFactor":1,"clips":[)" + clips + "]}");
    ASSERT_FALSE(many.ok());
    EXPECT_NE(many.error().message.find("more than the 100000"), std::string::npos)
        << many.error().message;

    std::string large(model::kLargestSnapshotBytes + 1, ' ');
    auto huge = model::decodeSnapshot(large);
    ASSERT_FALSE(huge.ok());
    EXPECT_NE(huge.error().message.find("too large"), std::string::npos) << huge.error().message;
}

}  // namespace
