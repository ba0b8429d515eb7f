// The two landing functions: out of line, so that each has one address for stubs to jump to.
#include "support/JumpStubs.h"

extern "C" __attribute__((noinline)) int NativeCode() {
    return 1;
}
extern "C" __attribute__((noinline)) int ManagedCode() {
    return 2;
}
