#include "plugin/Constants.h"

namespace Constants {
const std::string DebugLogName = "quarn-mono-debug.log";
const std::string DebugQueryName = "quarn.debug_query";
const std::string PlaceholderAssemblyFilename = "Orvel.Quarn.Placeholder.dll";
const std::string PlaceholderNamespace = "Orvel.Quarn.Placeholder";
const std::string PlaceholderType = "MonoDebuggerClass";
}  // namespace Constants

const std::string compilerCommandInitialiseDebuggerCommand = "$load_debugger_interface";
