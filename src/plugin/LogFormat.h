// Log line assembly, header-only because every member file logs. One place decides how each
// number is printed, since existing log readers parse those formats.

#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "metadata/Hash128.h"

// Pieces of a log line. Numbers print exactly as the printf formats named beside each type;
// pointers and handles print as signed decimals ("%ld").
namespace logfmt {

struct Int {  // "%d"
    int32_t value;
};
struct UInt {  // "%u"
    uint32_t value;
};
struct Long {  // "%ld"
    int64_t value;
};
struct ULong {  // "%lu"
    uint64_t value;
};

inline Long Ptr(const void* pointer) {
    return {static_cast<int64_t>(reinterpret_cast<intptr_t>(pointer))};
}

// Two upper-case hexadecimal digits per byte, in memory order.
inline std::string UpperHex(const void* bytes, size_t size) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    const auto* byte = static_cast<const unsigned char*>(bytes);
    std::string text(2 * size, '0');
    for (size_t i = 0; i < size; ++i) {
        text[2 * i] = kDigits[byte[i] >> 4];
        text[2 * i + 1] = kDigits[byte[i] & 0x0F];
    }
    return text;
}

template <class Integer>
void AppendInteger(std::string& line, Integer value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    line.append(digits, result.ptr);
}

inline void Append(std::string& line, std::string_view text) {
    line.append(text);
}
inline void Append(std::string& line, const char* text) {
    line.append(text);
}
inline void Append(std::string& line, const std::string& text) {
    line.append(text);
}
inline void Append(std::string& line, Int piece) {
    AppendInteger(line, piece.value);
}
inline void Append(std::string& line, UInt piece) {
    AppendInteger(line, piece.value);
}
inline void Append(std::string& line, Long piece) {
    AppendInteger(line, piece.value);
}
inline void Append(std::string& line, ULong piece) {
    AppendInteger(line, piece.value);
}
// 32 hexadecimal digits in memory order.
inline void Append(std::string& line, const Hash128& hash) {
    line.append(hash.ToString());
}

template <class... Pieces>
std::string Concat(const Pieces&... pieces) {
    std::string line;
    (Append(line, pieces), ...);
    return line;
}

}  // namespace logfmt
