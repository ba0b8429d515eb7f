#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

#include "trampoline/ExecutableMemory.h"
#include "trampoline/ProcessMemoryMap.h"

namespace {

// lea rax, [rdi + rsi] ; ret  — uint64_t add(uint64_t, uint64_t)
constexpr uint8_t kAddTwoArguments[] = {0x48, 0x8D, 0x04, 0x37, 0xC3};
using AddFunction = uint64_t (*)(uint64_t, uint64_t);

size_t PageSize() {
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

TEST(ExecutableMemory, OneByteMapsOnePrivateAnonymousReadWriteExecutePage) {
    void* memory = JitAllocateMemory(1);
    ASSERT_NE(memory, MAP_FAILED);

    EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % PageSize(), 0u);
    const auto region = testing_support::FindMappedRegion(memory);
    ASSERT_TRUE(region.has_value());
    EXPECT_EQ(region->start, reinterpret_cast<uintptr_t>(memory));
    EXPECT_EQ(region->Size(), PageSize());
    EXPECT_EQ(region->permissions, "rwxp");
    EXPECT_EQ(region->inode, 0u);
    EXPECT_EQ(region->path, "");

    JitFreeMemory(static_cast<uint8_t*>(memory), 1);
    EXPECT_FALSE(testing_support::FindMappedRegion(memory).has_value());
}

TEST(ExecutableMemory, ZeroLengthPassesThePlatformFailureValueOn) {
    EXPECT_EQ(JitAllocateMemory(0), MAP_FAILED);
}

TEST(ExecutableMemory, CopiedCodeRunsWithoutAnyFurtherStep) {
    auto* memory = static_cast<uint8_t*>(JitAllocateMemory(sizeof kAddTwoArguments));
    ASSERT_NE(static_cast<void*>(memory), MAP_FAILED);

    JitBeginWriteToMemory();
    JitWriteToMemory(memory, kAddTwoArguments, sizeof kAddTwoArguments);
    JitEndWriteToMemory(memory, sizeof kAddTwoArguments);

    const auto add = reinterpret_cast<AddFunction>(memory);
    EXPECT_EQ(add(40, 2), 42u);
    EXPECT_EQ(add(0xFFFFFFFF00000000, 0x00000000FFFFFFFF), 0xFFFFFFFFFFFFFFFF);
    JitFreeMemory(memory, sizeof kAddTwoArguments);
}

}  // namespace
