#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "trampoline/JITBuffer.h"
#include "trampoline/Trampoline.h"

namespace {

// The object a test trampoline binds; wrappers return its `result`.
struct BoundObject {
    uint64_t result;
};

// What the last wrapper call received.
struct ReceivedCall {
    const BoundObject* object = nullptr;
    std::vector<uint64_t> arguments;
    double floatingArgument = 0;
    // The wrapper's frame address modulo 16: 0 when it was entered with the stack aligned as
    // the calling convention demands.
    uintptr_t frameMisalignment = 1;
};
ReceivedCall received;

uintptr_t FrameMisalignment(const void* frame) {
    return reinterpret_cast<uintptr_t>(frame) % 16;
}

template <class... Words>
__attribute__((noinline)) uint64_t RecordingWrapper(BoundObject* object, Words... arguments) {
    received.object = object;
    received.arguments = {arguments...};
    received.frameMisalignment = FrameMisalignment(__builtin_frame_address(0));
    return object->result;
}

// Integer arguments travel in general registers, the double in xmm0: the trampoline moves the
// former and must leave the latter (and the double result) alone.
__attribute__((noinline)) double ScalingWrapper(BoundObject* object, uint64_t factor,
                                                double value) {
    received.object = object;
    received.arguments = {factor};
    received.floatingArgument = value;
    return value * static_cast<double>(factor);
}

// Distinct values that fill all 64 bits, so a 32-bit move or a swapped register shows.
constexpr std::array<uint64_t, 6> kSentinels = {0x0123456789ABCDEF, 0xFEDCBA9876543210,
                                                0x8000000000000001, 0x00000000FFFFFFFF,
                                                0xDEADBEEFCAFEF00D, 0x7FFFFFFFFFFFFFFE};

using Generator = void* (Trampoline<BoundObject>::*)(void*);
constexpr Generator kGenerators[] = {
    &Trampoline<BoundObject>::GenerateTrampoline0Params,
    &Trampoline<BoundObject>::GenerateTrampoline1Params,
    &Trampoline<BoundObject>::GenerateTrampoline2Params,
    &Trampoline<BoundObject>::GenerateTrampoline3Params,
    &Trampoline<BoundObject>::GenerateTrampoline4Params,
    &Trampoline<BoundObject>::GenerateTrampoline5Params,
    &Trampoline<BoundObject>::GenerateTrampoline6Params,
};
// 34 bytes plus 3 per moved register, 4 for the sixth argument.
constexpr size_t kCodeLengths[] = {34, 37, 40, 43, 46, 49, 53};

template <size_t>
using Word = uint64_t;

template <size_t... Index>
void* RecordingWrapperFor(std::index_sequence<Index...>) {
    return reinterpret_cast<void*>(&RecordingWrapper<Word<Index>...>);
}

template <size_t... Index>
uint64_t CallWithSentinels(void* entry, std::index_sequence<Index...>) {
    using Function = uint64_t (*)(Word<Index>...);
    return reinterpret_cast<Function>(entry)(kSentinels[Index]...);
}

template <size_t ArgumentCount>
void ExpectTrampolineForwards() {
    SCOPED_TRACE(testing::Message() << ArgumentCount << " arguments");
    constexpr auto indices = std::make_index_sequence<ArgumentCount>{};
    JITBuffer buffer(4096);
    BoundObject object{0xA5A55A5A0F0FF0F0 + ArgumentCount};
    Trampoline<BoundObject> trampoline(&buffer, &object);
    const size_t start = buffer.Position();

    void* entry = (trampoline.*kGenerators[ArgumentCount])(RecordingWrapperFor(indices));
    EXPECT_EQ(entry, buffer.Base() + start);
    EXPECT_EQ(buffer.Position() - start, kCodeLengths[ArgumentCount]);

    received = {};
    const uint64_t result = CallWithSentinels(entry, indices);
    EXPECT_EQ(received.object, &object);
    EXPECT_EQ(received.arguments,
              std::vector<uint64_t>(kSentinels.begin(), kSentinels.begin() + ArgumentCount));
    EXPECT_EQ(received.frameMisalignment, 0u);
    EXPECT_EQ(result, object.result);
}

template <size_t... ArgumentCount>
void ExpectEveryArgumentCountForwards(std::index_sequence<ArgumentCount...>) {
    (ExpectTrampolineForwards<ArgumentCount>(), ...);
}

TEST(TrampolineForwarding, InsertsTheObjectFirstAndPassesArgumentsAndResultUnchanged) {
    ExpectEveryArgumentCountForwards(std::make_index_sequence<std::size(kGenerators)>{});
}

TEST(TrampolineForwarding, ReadsTheObjectFromItsCellAtEveryCall) {
    JITBuffer buffer(4096);
    BoundObject first{1};
    BoundObject second{2};
    Trampoline<BoundObject> trampoline(&buffer, &first);
    ASSERT_EQ(trampoline.ThisCell(), buffer.Base());
    const auto call = reinterpret_cast<uint64_t (*)(uint64_t)>(
        trampoline.GenerateTrampoline1Params(RecordingWrapperFor(std::make_index_sequence<1>{})));

    EXPECT_EQ(call(7), 1u);
    BoundObject* replacement = &second;
    std::memcpy(trampoline.ThisCell(), &replacement, sizeof replacement);
    EXPECT_EQ(call(7), 2u);
    EXPECT_EQ(received.object, &second);
}

TEST(TrampolineForwarding, LeavesFloatingPointArgumentsAndResultsAlone) {
    JITBuffer buffer(4096);
    BoundObject object{0};
    Trampoline<BoundObject> trampoline(&buffer, &object);
    const auto scale = reinterpret_cast<double (*)(uint64_t, double)>(
        trampoline.GenerateTrampoline1Params(reinterpret_cast<void*>(&ScalingWrapper)));

    EXPECT_EQ(scale(3, 2.5), 7.5);
    EXPECT_EQ(received.object, &object);
    EXPECT_EQ(received.arguments, std::vector<uint64_t>{3});
    EXPECT_EQ(received.floatingArgument, 2.5);
}

TEST(TrampolineForwarding, TrampolinesOfOneBufferShareTheCellAndPackBackToBack) {
    JITBuffer buffer(4096);
    BoundObject object{99};
    Trampoline<BoundObject> trampoline(&buffer, &object);
    void* wrapper = RecordingWrapperFor(std::make_index_sequence<2>{});

    void* firstEntry = trampoline.GenerateTrampoline2Params(wrapper);
    void* secondEntry = trampoline.GenerateTrampoline2Params(wrapper);

    EXPECT_EQ(firstEntry, buffer.Base() + 8);
    EXPECT_EQ(secondEntry, buffer.Base() + 8 + kCodeLengths[2]);
    using TwoArguments = uint64_t (*)(uint64_t, uint64_t);
    EXPECT_EQ(reinterpret_cast<TwoArguments>(secondEntry)(5, 6), 99u);
    EXPECT_EQ(received.arguments, (std::vector<uint64_t>{5, 6}));
}

}  // namespace
