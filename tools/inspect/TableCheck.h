#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "DebugTables.h"

// One thing wrong with a compiled library's debug tables.
struct TableProblem {
    int32_t item;         // 1-based item number; 0 for the header
    int32_t method;       // method index within the item; -1 when not about a method
    std::string field;    // the table or field, with the element index where there is one
    std::string message;  // what is wrong, and what the plug-in or a debugger makes of it
};

// Validates the tables behind a debug query function without trusting its pointers: the header
// (version, count), the items the plug-in would skip and why, every index against its count,
// each sequence point's file against its method's file count, and null or unreadable tables.
std::vector<TableProblem> CheckDebugTables(uint64_t (*query)(uint64_t item, uint64_t field));

// The same checks on tables read already.
std::vector<TableProblem> CheckDebugTables(const DebugTables& tables);
