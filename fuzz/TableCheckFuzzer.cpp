// The inspector's table check on debug tables whose counts, indices, offsets and hashes are
// arbitrary and whose tables may be null (every other pointer stays valid): it must never fault,
// and every problem it reports must name an item and a method that exist. Any failure aborts.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "FuzzInput.h"
#include "TableCheck.h"
#include "quarn_debug_producer.h"

namespace {

constexpr int32_t kItems = 3;
// The tables of every item lie in this buffer of numbers from -4 to 4, item k's from word 8 * k
// past the origin: no count or index drawn reaches outside it (an element has at most 6 words).
int32_t gWords[128];
constexpr size_t kOrigin = 32;
constexpr char kNames[] = "src/A.cs\0src/B.cs";
// What the debug query answers: the header (item 0), then each item's fields.
uint64_t gAnswers[1 + kItems][12];

int32_t SmallNumber(FuzzInput& input) {
    return static_cast<int8_t>(input.Byte()) % 5;
}

uint64_t Answer(uint64_t item, uint64_t field) {
    return item <= kItems && field < 12 ? gAnswers[item][field] : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint64_t versions[] = {QUARN_DEBUG_FORMAT_VERSION, 0x10000, 0x20001};
    const int32_t itemCount = int32_t(input.Below(kItems + 2)) - 1;
    gAnswers[0][0] = input.Pick(versions);
    gAnswers[0][1] = uint32_t(itemCount);
    for (int32_t item = 1; item <= kItems; ++item) {
        const uint64_t nullTable = input.Below(16);   // one table field (3 to 11), or none
        for (uint64_t field = 0; field < 3; ++field)  // the counts
            gAnswers[item][field] = uint32_t(SmallNumber(input));
        for (uint64_t field = 3; field < 12; ++field)
            gAnswers[item][field] = field == nullTable ? 0 : uintptr_t(gWords + kOrigin + 8 * item);
        if (gAnswers[item][QUARN_FIELD_STRING_TABLE] != 0)
            gAnswers[item][QUARN_FIELD_STRING_TABLE] = uintptr_t(kNames);
    }
    for (int32_t& word : gWords)
        word = SmallNumber(input);

    for (const TableProblem& problem : CheckDebugTables(Answer)) {
        const bool itemExists = problem.item >= 0 && problem.item <= std::max(itemCount, 0);
        const bool methodExists =
            problem.method < 0 ||
            (itemExists && problem.item > 0 && problem.method < int32_t(gAnswers[problem.item][0]));
        if (itemExists && methodExists && !problem.field.empty() && !problem.message.empty())
            continue;
        std::fprintf(stderr, "table check: item %d method %d %s: no such item or method\n",
                     problem.item, problem.method, problem.field.c_str());
        std::abort();
    }
    return 0;
}
