#pragma once

namespace testing_support {

// Blocks obtained through the global operator new and not yet given back, counted by the
// replacement operators of AllocationCounter.cpp. Every module of the process that allocates
// through operator new (a dlopen()ed plug-in included) is counted.
long LiveAllocations();

}  // namespace testing_support
