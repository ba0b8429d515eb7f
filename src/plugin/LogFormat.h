#pragma once

#include <charconv>
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
