#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "mono_debugger_handling.h"

// Byte strings in the plug-in's log format: two upper-case hexadecimal digits per byte, in
// memory order (so a hash reads as it does in the log).
inline std::string BytesText(const void* bytes, size_t size) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<const uint8_t*>(bytes)[i];
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

inline std::string HashText(const mdh_hash128& hash) {
    return BytesText(&hash, sizeof hash);
}

inline std::string AddressText(const void* address) {
    char text[24];
    std::snprintf(text, sizeof text, "%p", address);
    return text;
}

inline std::string TokenText(uint32_t token) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", token);
    return text;
}
