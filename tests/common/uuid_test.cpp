#include "common/uuid.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

using common::Uuid;

TEST(Uuid, RandomValuesAreDistinctVersionFourAndTextIsUpperCaseHexThatParsesBackInEitherCase) {
    std::set<Uuid> seen;
    for (int i = 0; i < 1000; ++i) {
        Uuid u = Uuid::random();
        EXPECT_EQ(u.bytes()[6] >> 4, 4);
        EXPECT_EQ(u.bytes()[8] >> 6, 2);
        seen.insert(u);
    }
    EXPECT_EQ(seen.size(), 1000u);
    std::array<std::uint8_t, 16> bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef,
                                       0xfe, 0xdc, 0xba, 0x98, 0x76, 0x54, 0x32, 0x10};
    EXPECT_EQ(Uuid(bytes).toString(), "01234567-89AB-CDEF-FEDC-BA9876543210");
    EXPECT_EQ(Uuid::parse("01234567-89ab-cdef-fedc-ba9876543210"), Uuid(bytes));
    EXPECT_EQ(Uuid::parse(seen.begin()->toString()), *seen.begin());
    for (const char* bad :
         {"", "01234567-89AB-CDEF-FEDC-BA987654321", "01234567-89AB-CDEF-FEDC-BA98765432100",
          "0123456789AB-CDEF-FEDC-BA9876543210-", "01234567-89AB-CDEF-FEDC+BA9876543210",
          "01234567-89AB-CDEF-FEDC-BA987654321G", "{1234567-89AB-CDEF-FEDC-BA987654321}"})
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
}

}  // namespace
