#include "common/result.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

using common::Error;
using common::Result;

Result<int> half(int n) {
    if (n % 2 != 0) return Error{"The number is odd.", -22};
    return n / 2;
}

TEST(Result, HoldsEitherTheValueOrTheError) {
    auto good = half(8);
    ASSERT_TRUE(good.ok());
    EXPECT_EQ(*good, 4);

    auto bad = half(7);
    ASSERT_FALSE(bad);
    EXPECT_EQ(bad.error().message, "The number is odd.");
    EXPECT_EQ(bad.error().avCode, -22);
}

TEST(Result, CarriesAMoveOnlyValueOut) {
    Result<std::unique_ptr<std::string>> r = std::make_unique<std::string>("kept");
    std::unique_ptr<std::string> taken = std::move(r).value();
    ASSERT_TRUE(taken);
    EXPECT_EQ(*taken, "kept");
}

TEST(Result, SuccessIsAnOkStatus) {
    common::Status s = common::success();
    EXPECT_TRUE(s.ok());
    common::Status failed = Error{"Nope."};
    EXPECT_FALSE(failed.ok());
}

}  // namespace
