// Values of the shared names; the query symbol is taken from the producer header so compiled
// libraries and the library spell it alike.
#include "plugin/Constants.h"

#include "quarn_debug_producer.h"

namespace Constants {
const std::string DebugLogName = "quarn-mono-debug.log";
const std::string DebugQueryName = QUARN_DEBUG_QUERY_SYMBOL;
const std::string PlaceholderAssemblyFilename = "Orvel.Quarn.Placeholder.dll";
const std::string PlaceholderNamespace = "Orvel.Quarn.Placeholder";
const std::string PlaceholderType = "MonoDebuggerClass";
}  // namespace Constants

const std::string compilerCommandInitialiseDebuggerCommand = "$load_debugger_interface";
