#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// Reads a fuzz input as a stream of choices. An exhausted input reads as zeros, so every input,
// however short, describes a complete run.
class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : data(data), size(size) {}

    bool Exhausted() const { return position >= size; }
    uint8_t Byte() { return Exhausted() ? 0 : data[position++]; }
    bool Flag() { return (Byte() & 1) != 0; }
    // A number in [0, bound); 0 when bound is 0.
    size_t Below(size_t bound) { return bound == 0 ? 0 : Byte() % bound; }
    template <class T, size_t N>
    const T& Pick(const T (&choices)[N]) {
        return choices[Below(N)];
    }
    // Everything not read yet.
    std::string_view Rest() {
        const std::string_view rest(reinterpret_cast<const char*>(data) + position,
                                    Exhausted() ? 0 : size - position);
        position = size;
        return rest;
    }

  private:
    const uint8_t* data;
    size_t size;
    size_t position = 0;
};
