#pragma once

// Builders for the reply sequences the debugger side expects to receive.

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "support/MonoSide.h"

namespace testing_support {

using Replies = std::vector<Reply>;

inline Replies Ints(std::initializer_list<int32_t> values) {
    Replies replies;
    for (int32_t value : values) {
        replies.push_back(Int(value));
    }
    return replies;
}

inline Replies Strings(std::initializer_list<const char*> texts) {
    Replies replies;
    for (const char* text : texts) {
        replies.push_back(String(text));
    }
    return replies;
}

// A 16-byte digest as 16 writeByte calls, byte 0 first.
inline Replies DigestBytes(const uint8_t (&digest)[16]) {
    Replies replies;
    for (uint8_t byte : digest) {
        replies.push_back(Byte(byte));
    }
    return replies;
}

inline Replies NoDigestBytes() {
    static constexpr uint8_t kZeros[16] = {};
    return DigestBytes(kZeros);
}

inline Replies Concat(std::initializer_list<Replies> parts) {
    Replies all;
    for (const Replies& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// The reply to a debug-info query for a handle that is not valid.
inline Replies InvalidMethodDebugInfo() {
    return Concat({Ints({0}), Strings({""}), Ints({0})});
}

// Readable replies in failure messages.
inline void PrintTo(const Reply& reply, std::ostream* out) {
    switch (reply.kind) {
        case Reply::Kind::Byte:
            *out << "Byte(" << reply.value << ")";
            break;
        case Reply::Kind::Int:
            *out << "Int(" << reply.value << ")";
            break;
        case Reply::Kind::Id:
            *out << "Id(" << reply.value << ")";
            break;
        case Reply::Kind::String:
            *out << "String(\"" << reply.text << "\")";
            break;
        case Reply::Kind::MethodId:
            *out << "MethodId(" << reply.method << ")";
            break;
    }
}

}  // namespace testing_support
