#pragma once

// The tests' debugger side is the session demo's recording one (tools/debugger), under the names
// the tests use.
#include "RecordingDebugger.h"

namespace testing_support {

using debugger_side::FlushCalls;
using debugger_side::InstallShutdownAndFlush;
using debugger_side::InstallWriters;
using debugger_side::RecordFromCommand;
using debugger_side::Reply;
using debugger_side::ReplyBuffer;
using debugger_side::ResetCounters;
using debugger_side::ShutdownCalls;

}  // namespace testing_support
