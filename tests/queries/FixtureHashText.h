#pragma once

// The fixture libraries' identities (tests/fixtures/FixtureTables.h) as the log prints them: the
// 16 bytes in memory order, two upper-case hexadecimal digits each.

namespace testing_support {

inline constexpr const char* kItemA1Text = "A1000000000000000000000000000010";
inline constexpr const char* kItemA2Text = "A2000000000000000000000000000010";
inline constexpr const char* kItemB1Text = "B1000000000000000000000000000020";
inline constexpr const char* kMethodSharedText = "55555555555555550500000000000000";
inline constexpr const char* kMethodA1OnlyText = "A1000000000000001100000000000000";
inline constexpr const char* kMethodA2OnlyText = "A2000000000000001200000000000000";
inline constexpr const char* kMethodB1OnlyText = "B1000000000000002100000000000000";

}  // namespace testing_support
