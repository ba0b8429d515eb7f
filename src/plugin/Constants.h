// Names the library shares with its peers (log file, query symbol, command string fields, log
// switch), kept together because each must match the peer that reads it byte for byte.

#pragma once

#include <string>

namespace Constants {
extern const std::string DebugLogName;                 // "quarn-mono-debug.log"
extern const std::string DebugQueryName;               // "quarn.debug_query"
extern const std::string PlaceholderAssemblyFilename;  // not read by the library itself
extern const std::string PlaceholderNamespace;         // |NM| field of the command string
extern const std::string PlaceholderType;              // |TP| field of the command string
}  // namespace Constants

// The command word that opens the command string.
extern const std::string compilerCommandInitialiseDebuggerCommand;

// Environment variable whose presence turns the log on; its number is the level.
inline constexpr const char* kDebugLevelVariable = "ORVEL_QUARN_DEBUG";
