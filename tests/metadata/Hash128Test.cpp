#include "metadata/Hash128.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unordered_map>

#include "TableRows.h"

namespace {

using testing_support::PrintTo;

Hash128 FromBytes(const unsigned char (&bytes)[16]) {
    Hash128 hash;
    std::memcpy(&hash, bytes, sizeof hash);
    return hash;
}

struct TextCase {
    const char* name;
    Hash128 hash;
    const char* text;
};

class Hash128Text : public testing::TestWithParam<TextCase> {};

TEST_P(Hash128Text, PrintsBytesInMemoryOrder) {
    EXPECT_EQ(GetParam().hash.ToString(), GetParam().text);
}

const unsigned char kAscendingBytes[16] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07,
                                           0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};

INSTANTIATE_TEST_SUITE_P(
    Values, Hash128Text,
    testing::Values(TextCase{"Zero", {0, 0}, "00000000000000000000000000000000"},
                    TextCase{"AscendingBytes", FromBytes(kAscendingBytes),
                             "000102030405060708090A0B0C0D0E0F"},
                    TextCase{"Word0One", {1, 0}, "01000000000000000000000000000000"},
                    TextCase{"Word1MostSignificantByte",
                             {0, 0xAB00000000000000ull},
                             "000000000000000000000000000000AB"},
                    TextCase{"UpperCaseDigits",
                             {0xFEDCBA9876543210ull, 0xFFFFFFFFFFFFFFFFull},
                             "1032547698BADCFEFFFFFFFFFFFFFFFF"}),
    [](const testing::TestParamInfo<TextCase>& info) { return std::string(info.param.name); });

struct HashCase {
    const char* name;
    Hash128 hash;
    size_t expected;
};

class Hash128Hash : public testing::TestWithParam<HashCase> {};

TEST_P(Hash128Hash, IsWord0Times397XorWord1) {
    EXPECT_EQ(std::hash<Hash128>{}(GetParam().hash), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Values, Hash128Hash,
    testing::Values(
        HashCase{"Word0One", {1, 0}, 397}, HashCase{"Word1Five", {0, 5}, 5},
        HashCase{"BothWords", {2, 0xFF}, 794 ^ 0xFF},
        // 2^63 * 397 wraps to 2^63 (397 is odd); 2^64 - 1 times 397 wraps to -397.
        HashCase{"MultiplyWrapsHighBit", {0x8000000000000000ull, 0}, 0x8000000000000000ull},
        HashCase{"MultiplyWrapsAllOnes", {0xFFFFFFFFFFFFFFFFull, 1}, (0ull - 397ull) ^ 1ull}),
    [](const testing::TestParamInfo<HashCase>& info) { return std::string(info.param.name); });

TEST(Hash128Equality, ComparesBothWordsEvenWhenHashesCollide) {
    // 1*397 ^ 0 == 0*397 ^ 397: equal hashes, different identifiers.
    const Hash128 first{1, 0};
    const Hash128 second{0, 397};
    ASSERT_EQ(std::hash<Hash128>{}(first), std::hash<Hash128>{}(second));
    EXPECT_FALSE(first == second);
    EXPECT_TRUE(first == (Hash128{1, 0}));
    EXPECT_FALSE(first == (Hash128{1, 1}));
    EXPECT_FALSE(first == (Hash128{2, 0}));

    std::unordered_map<Hash128, int> map{{first, 1}, {second, 2}};
    EXPECT_EQ(map.size(), 2u);
    EXPECT_EQ(map.at(first), 1);
    EXPECT_EQ(map.at(second), 2);
}

}  // namespace
