#include "JsonWriter.h"

#include <cstdio>

namespace {

// Length of the valid UTF-8 sequence at the start of `text`, or 0 when it is not one.
size_t Utf8SequenceLength(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const size_t length = lead < 0x80           ? 1
                          : (lead >> 5) == 0x6  ? 2
                          : (lead >> 4) == 0xE  ? 3
                          : (lead >> 3) == 0x1E ? 4
                                                : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) >> 6) != 0x2) {
            return 0;
        }
    }
    return length;
}

}  // namespace

void JsonWriter::BeforeValue() {
    if (afterKey) {
        afterKey = false;
        return;
    }
    if (!hasMembers.empty()) {
        if (hasMembers.back()) {
            out << ',';
        }
        hasMembers.back() = true;
    }
}

JsonWriter& JsonWriter::Open(char bracket) {
    BeforeValue();
    out << bracket;
    hasMembers.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::Close(char bracket) {
    out << bracket;
    hasMembers.pop_back();
    if (hasMembers.empty()) {
        out << '\n';
    }
    return *this;
}

JsonWriter& JsonWriter::Key(std::string_view name) {
    BeforeValue();
    WriteEscaped(name);
    out << ':';
    afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::String(std::string_view text) {
    BeforeValue();
    WriteEscaped(text);
    return *this;
}

JsonWriter& JsonWriter::Number(int64_t value) {
    BeforeValue();
    out << value;
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    BeforeValue();
    out << (value ? "true" : "false");
    return *this;
}

JsonWriter& JsonWriter::Null() {
    BeforeValue();
    out << "null";
    return *this;
}

void JsonWriter::WriteEscaped(std::string_view text) {
    out << '"';
    while (!text.empty()) {
        const char c = text[0];
        const size_t length = Utf8SequenceLength(text);
        if (c == '"' || c == '\\') {
            out << '\\' << c;
        } else if (length == 1 && static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned char>(c));
            out << escaped;
        } else if (length == 0) {
            out << "\\uFFFD";
        } else {
            out << text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    out << '"';
}
