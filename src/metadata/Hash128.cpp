#include "metadata/Hash128.h"

#include <cstring>

std::string Hash128::ToString() const {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    unsigned char bytes[sizeof(Hash128)];
    std::memcpy(bytes, this, sizeof bytes);
    std::string text(2 * sizeof bytes, '0');
    for (size_t i = 0; i < sizeof bytes; ++i) {
        text[2 * i] = kDigits[bytes[i] >> 4];
        text[2 * i + 1] = kDigits[bytes[i] & 0x0F];
    }
    return text;
}
