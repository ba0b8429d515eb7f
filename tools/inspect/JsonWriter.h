#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>
#include <vector>

// Writes one compact JSON document, putting the commas between members and elements itself.
class JsonWriter {
  public:
    explicit JsonWriter(std::ostream& out) : out(out) {}

    JsonWriter& BeginObject() { return Open('{'); }
    JsonWriter& EndObject() { return Close('}'); }
    JsonWriter& BeginArray() { return Open('['); }
    JsonWriter& EndArray() { return Close(']'); }
    // The member name; the next value written is its value.
    JsonWriter& Key(std::string_view name);
    // Text from compiled libraries is not necessarily UTF-8: invalid bytes become U+FFFD.
    JsonWriter& String(std::string_view text);
    JsonWriter& Number(int64_t value);
    JsonWriter& Bool(bool value);
    JsonWriter& Null();

  private:
    JsonWriter& Open(char bracket);
    JsonWriter& Close(char bracket);
    void BeforeValue();
    void WriteEscaped(std::string_view text);

    std::ostream& out;
    std::vector<bool> hasMembers;  // per open container: whether a comma is due
    bool afterKey = false;
};
