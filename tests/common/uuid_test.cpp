#include "common/uuid.h"

#include <set>
#include <string>
#include <unordered_set>

#include <gtest/gtest.h>

namespace {

using common::Uuid;

TEST(Uuid, RandomIsVersionFourWithTheStandardVariant) {
    for (int i = 0; i < 100; ++i) {
        Uuid u = Uuid::random();
        EXPECT_EQ(u.bytes()[6] >> 4, 4);
        EXPECT_EQ(u.bytes()[8] >> 6, 2);
    }
}

TEST(Uuid, RandomValuesDoNotRepeat) {
    std::set<Uuid> seen;
    for (int i = 0; i < 1000; ++i) seen.insert(Uuid::random());
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(Uuid, TextIsUpperCaseHexGroupedEightFourFourFourTwelve) {
    std::array<std::uint8_t, 16> bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef,
                                       0xfe, 0xdc, 0xba, 0x98, 0x76, 0x54, 0x32, 0x10};
    EXPECT_EQ(Uuid(bytes).toString(), "01234567-89AB-CDEF-FEDC-BA9876543210");
    EXPECT_EQ(Uuid().toString(), "00000000-0000-0000-0000-000000000000");
}

TEST(Uuid, ParseAcceptsItsOwnTextAndLowerCase) {
    Uuid u = Uuid::random();
    EXPECT_EQ(Uuid::parse(u.toString()), u);
    std::string lower = u.toString();
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(Uuid::parse(lower), u);
}

TEST(Uuid, ParseRejectsEverythingButTheThirtySixCharacterForm) {
    for (const char* bad : {
             "",
             "01234567-89AB-CDEF-FEDC-BA987654321",    // too short
             "01234567-89AB-CDEF-FEDC-BA98765432100",  // too long
             "0123456789AB-CDEF-FEDC-BA9876543210-",   // hyphens misplaced
             "01234567-89AB-CDEF-FEDC+BA9876543210",   // wrong separator
             "01234567-89AB-CDEF-FEDC-BA987654321G",   // not hex
             "{1234567-89AB-CDEF-FEDC-BA987654321}",   // braces
             "0123456789ABCDEFFEDCBA9876543210",       // no hyphens
             "01234567-89AB-CDEF-FEDC- A9876543210",   // space
         }) {
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
    }
}

TEST(Uuid, HashAgreesWithEquality) {
    Uuid u = Uuid::random();
    Uuid copy = *Uuid::parse(u.toString());
    EXPECT_EQ(std::hash<Uuid>{}(u), std::hash<Uuid>{}(copy));
    std::unordered_set<Uuid> set{u, copy, Uuid::random()};
    EXPECT_EQ(set.size(), 2u);
}

}  // namespace
