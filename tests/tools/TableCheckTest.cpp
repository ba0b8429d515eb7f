// CheckDebugTables called directly, on tables whose pointers cannot be trusted: memory that is
// mapped but unreadable, names that run into it, pointers to nowhere and absurd counts. The
// check must report them and never fault.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cstring>

#include "TableCheck.h"
#include "quarn_debug_producer.h"

namespace {

// A readable page followed by an unreadable one.
class GuardedPage {
  public:
    GuardedPage() {
        void* mapping =
            mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(mapping, MAP_FAILED);
        base = static_cast<char*>(mapping);
        mprotect(base + kPage, kPage, PROT_NONE);
    }
    ~GuardedPage() { munmap(base, 2 * kPage); }

    // The last `size` readable bytes, right before the guard.
    char* EndOfReadable(size_t size) const { return base + kPage - size; }
    const void* Guard() const { return base + kPage; }

    static constexpr size_t kPage = 4096;

  private:
    char* base;
};

// One valid item; each test spoils a copy of it.
const char kNames[] = "src/One.cs";
const int32_t kNameOffsets[] = {0};
const int32_t kMethodFiles[] = {0};
const quarn_method_debug_info kMethods[] = {{1, 0, 1, 0}};
const quarn_sequence_point kPoints[] = {{0, 1, 1, 1, 9, 0}};
const quarn_hash128 kMethodHashes[] = {{0x10, 0x1}};
const int32_t kDigestIndices[] = {-1};
const quarn_debug_item kValidItem = {
    1,      1,       1,          kMethodFiles,  kMethods,       kNameOffsets,
    kNames, kPoints, {0x1, 0xB}, kMethodHashes, kDigestIndices, nullptr};

quarn_debug_item gItem;
quarn_debug_library gLibrary;

uint64_t Query(uint64_t item, uint64_t field) {
    return quarn_debug_answer(&gLibrary, item, field);
}

std::vector<TableProblem> Check(const quarn_debug_item& item) {
    gItem = item;
    gLibrary = {QUARN_DEBUG_FORMAT_VERSION, 1, &gItem};
    return CheckDebugTables(&Query);
}

std::vector<std::string> Fields(const std::vector<TableProblem>& problems) {
    std::vector<std::string> fields;
    for (const TableProblem& problem : problems) {
        fields.push_back(problem.field);
    }
    return fields;
}

template <class T>
const T* At(const void* address) {
    return static_cast<const T*>(address);
}

}  // namespace

TEST(TableCheckTest, ValidTablesHaveNoProblem) {
    EXPECT_TRUE(Check(kValidItem).empty());
}

TEST(TableCheckTest, TablesInUnreadableMemoryAreReportedNotRead) {
    GuardedPage page;
    quarn_debug_item item = kValidItem;
    item.methods = At<quarn_method_debug_info>(page.Guard());
    item.methodHashes = At<quarn_hash128>(page.Guard());
    item.fileMD5Indices = At<int32_t>(page.Guard());

    const std::vector<TableProblem> problems = Check(item);

    EXPECT_EQ(Fields(problems),
              (std::vector<std::string>{"methods", "methodHashes", "fileMD5Indices"}));
    EXPECT_EQ(problems[0].message, "only 0 of 1 elements are readable memory");
    EXPECT_EQ(problems[0].item, 1);
    EXPECT_EQ(problems[0].method, -1);
}

TEST(TableCheckTest, TableRunningIntoUnreadableMemoryIsReportedWithItsReadablePart) {
    GuardedPage page;
    quarn_debug_item item = kValidItem;
    // Two sequence points wanted, only the first lies before the guard.
    std::memcpy(page.EndOfReadable(sizeof kPoints), kPoints, sizeof kPoints);
    static const quarn_method_debug_info twoPoints[] = {{2, 0, 1, 0}};
    item.methods = twoPoints;
    item.sequencePoints = At<quarn_sequence_point>(page.EndOfReadable(sizeof kPoints));

    const std::vector<TableProblem> problems = Check(item);

    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].method, 0);
    EXPECT_EQ(problems[0].field, "sequencePoints");
    EXPECT_EQ(problems[0].message, "sequence points 0..1 are not all readable memory");
}

TEST(TableCheckTest, NameWithoutTerminatorBeforeUnreadableMemoryIsReported) {
    GuardedPage page;
    quarn_debug_item item = kValidItem;
    std::memcpy(page.EndOfReadable(5), "abcde", 5);  // no NUL before the guard
    item.stringTable = page.EndOfReadable(5);

    const std::vector<TableProblem> problems = Check(item);

    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].field, "fileNameOffsets[0]");
}

TEST(TableCheckTest, UnreadableItemHashIsReported) {
    GuardedPage page;
    quarn_debug_item item = kValidItem;
    gItem = item;
    gLibrary = {QUARN_DEBUG_FORMAT_VERSION, 1, &gItem};
    // The producer helper answers field 8 with the address of the item's hash; this query
    // answers with the guard instead.
    static const void* guard;
    guard = page.Guard();
    const auto query = [](uint64_t itemNumber, uint64_t field) -> uint64_t {
        return field == QUARN_FIELD_HASH && itemNumber == 1
                   ? reinterpret_cast<uintptr_t>(guard)
                   : quarn_debug_answer(&gLibrary, itemNumber, field);
    };

    const std::vector<TableProblem> problems = CheckDebugTables(+query);

    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].field, "hash");
    EXPECT_EQ(problems[0].message,
              "not readable memory: the plug-in copies the item's 16-byte hash from it");
}

TEST(TableCheckTest, PointersToNowhereAreReportedForEveryTable) {
    quarn_debug_item item = kValidItem;
    const auto nowhere = [](uint64_t address) { return reinterpret_cast<const void*>(address); };
    item.methodFileIndices = At<int32_t>(nowhere(0x10));
    item.methods = At<quarn_method_debug_info>(nowhere(0xFFFFFFFFFFFFFFF0ull));
    item.fileNameOffsets = At<int32_t>(nowhere(0x8));
    item.methodHashes = At<quarn_hash128>(nowhere(0x7FFFFFFFF000ull));
    item.fileMD5Indices = At<int32_t>(nowhere(0x1000));

    EXPECT_EQ(Fields(Check(item)), (std::vector<std::string>{"methods", "methodHashes",
                                                             "fileNameOffsets", "fileMD5Indices"}));
}

TEST(TableCheckTest, AbsurdCountsAreInspectedOnlyUpToTheLimit) {
    quarn_debug_item item = kValidItem;
    item.methodCount = INT32_MAX;
    item.fileCount = INT32_MAX;

    const std::vector<TableProblem> problems = Check(item);

    ASSERT_GE(problems.size(), 2u);
    EXPECT_EQ(problems[0].field, "methodCount");
    EXPECT_EQ(problems[0].message, "2147483647 methods: only the first 65536 are inspected");
    EXPECT_EQ(problems[1].field, "fileCount");
}
