#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "trampoline/GoldenCode.h"
#include "trampoline/JITBuffer.h"
#include "trampoline/ProcessMemoryMap.h"

namespace {

using golden::Bytes;

// Golden patterns, written out independently of the emitter.

// sub rsp, 8 ; add rsp, 8 ; ret
const Bytes kStackFrameAndReturn = {0x48, 0x83, 0xEC, 0x08, 0x48, 0x83, 0xC4, 0x08, 0xC3};

// movabs rdi, 0x1122334455667788 ; mov rdi, [rdi]
const Bytes kSetThisGolden = {0x48, 0xBF, 0x88, 0x77, 0x66, 0x55, 0x44,
                              0x33, 0x22, 0x11, 0x48, 0x8B, 0x3F};

// movabs rax, 0x401000 ; call rax
const Bytes kCallMemberFuncGolden = {0x48, 0xB8, 0x00, 0x10, 0x40, 0x00,
                                     0x00, 0x00, 0x00, 0x00, 0xFF, 0xD0};

class JitBufferEmit : public ::testing::Test {
  protected:
    static constexpr size_t kCapacity = 4096;

    // Runs `emit` and returns the bytes it appended.
    template <class Emit>
    Bytes Appended(Emit emit) {
        const size_t start = buffer.Position();
        emit();
        return Bytes(buffer.Base() + start, buffer.Base() + buffer.Position());
    }

    JITBuffer buffer{kCapacity};
};

TEST_F(JitBufferEmit, FreshBufferPlacesThePointerCellAtBase) {
    void* cell = nullptr;
    const Bytes cellBytes = Appended(
        [&] { cell = buffer.AllocatePointer(reinterpret_cast<const void*>(0x1122334455667788)); });

    EXPECT_EQ(cell, buffer.Base());
    EXPECT_EQ(cellBytes, (Bytes{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}));
    EXPECT_EQ(buffer.Position(), 8u);
    EXPECT_EQ(buffer.EndBlock(), cell);
}

TEST_F(JitBufferEmit, CopyBlockAndCellsArePackedWithoutAlignment) {
    const Bytes block = {0x90, 0xCC, 0x90};
    EXPECT_EQ(Appended([&] { buffer.CopyBlock(block.data(), block.size()); }), block);

    void* cell = buffer.AllocatePointer(reinterpret_cast<const void*>(0x0102030405060708));

    EXPECT_EQ(cell, buffer.Base() + 3);
    EXPECT_EQ(buffer.Position(), 11u);
    EXPECT_EQ(buffer.EndBlock(), cell);
    EXPECT_EQ(Bytes(buffer.Base() + 3, buffer.Base() + 11),
              (Bytes{0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01}));
}

TEST_F(JitBufferEmit, StackSpaceMovesEightBytesWhateverTheSlotCount) {
    for (const int8_t slots : std::initializer_list<int8_t>{INT8_MIN, -3, 0, 1, 7, INT8_MAX}) {
        SCOPED_TRACE(static_cast<int>(slots));
        const size_t start = buffer.Position();
        buffer.StartBlock();
        const Bytes emitted = Appended([&] {
            buffer.AllocateStackSpace(slots);
            buffer.FreeStackSpace(slots);
            buffer.Return();
        });
        EXPECT_EQ(emitted, kStackFrameAndReturn);
        EXPECT_EQ(buffer.EndBlock(), buffer.Base() + start);
    }
}

TEST_F(JitBufferEmit, CopySlotToNextSlotEmitsOneMovePerSlotAndIgnoresTotal) {
    for (int slot = 0; slot <= 5; ++slot) {
        for (const int total : {INT_MIN, 0, slot + 2, 7}) {
            SCOPED_TRACE(testing::Message() << "slot " << slot << " total " << total);
            EXPECT_EQ(Appended([&] { buffer.CopySlotToNextSlot(slot, total); }),
                      golden::kSlotMoves[slot]);
        }
    }
}

TEST_F(JitBufferEmit, CopySlotToNextSlotOutsideZeroToFiveEmitsNothing) {
    for (const int slot : {INT_MIN, -1, 6, 7, INT_MAX}) {
        SCOPED_TRACE(slot);
        EXPECT_EQ(Appended([&] { buffer.CopySlotToNextSlot(slot, slot + 1); }), Bytes{});
    }
    // Nothing was written past the position either: a fresh mapping reads as zero.
    EXPECT_EQ(Bytes(buffer.Base(), buffer.Base() + 8), Bytes(8, 0));
}

TEST_F(JitBufferEmit, SetThisLoadsTheCellAddressThenDereferencesIt) {
    EXPECT_EQ(Appended([&] { buffer.SetThis(reinterpret_cast<void*>(0x1122334455667788)); }),
              kSetThisGolden);
}

TEST_F(JitBufferEmit, CallMemberFuncCallsThroughRax) {
    EXPECT_EQ(Appended([&] { buffer.CallMemberFunc(reinterpret_cast<void*>(0x401000)); }),
              kCallMemberFuncGolden);
}

TEST_F(JitBufferEmit, OwnsOnePrivateReadWriteExecuteMappingOfItsCapacity) {
    const auto region = testing_support::FindMappedRegion(buffer.Base());
    ASSERT_TRUE(region.has_value());
    EXPECT_EQ(region->start, reinterpret_cast<uintptr_t>(buffer.Base()));
    EXPECT_EQ(region->Size(), kCapacity);
    EXPECT_EQ(region->permissions, "rwxp");
    EXPECT_EQ(buffer.Capacity(), kCapacity);
    EXPECT_EQ(buffer.Position(), 0u);
}

TEST(JitBufferLifetime, DestructorUnmapsTheBuffer) {
    uint8_t* base = nullptr;
    {
        JITBuffer buffer(4096);
        base = buffer.Base();
        ASSERT_TRUE(testing_support::FindMappedRegion(base).has_value());
    }
    EXPECT_FALSE(testing_support::FindMappedRegion(base).has_value());
}

}  // namespace
