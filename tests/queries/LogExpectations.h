#pragma once

// Comparisons of log lines where hashed containers decide part of the order.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

using LogLines = std::vector<std::string>;

// A pointer or handle as the log prints it ("%ld").
inline std::string Decimal(const void* pointer) {
    return std::to_string(reinterpret_cast<intptr_t>(pointer));
}

// One stretch of an expected log: fixed lines, or groups of lines that stand one after another
// in any order (each group contiguous, as one container element with its detail lines).
struct LogSegment {
    std::vector<LogLines> groups;
    bool anyOrder = false;
};

inline LogSegment Fixed(LogLines lines) {
    return {{std::move(lines)}, false};
}
inline LogSegment AnyOrder(std::vector<LogLines> groups) {
    return {std::move(groups), true};
}
// Single lines in any order.
inline LogSegment AnyOrderLines(const LogLines& lines) {
    std::vector<LogLines> groups;
    for (const std::string& line : lines) {
        groups.push_back({line});
    }
    return AnyOrder(std::move(groups));
}

namespace detail {

inline bool GroupAt(const LogLines& lines, size_t position, const LogLines& group) {
    return position + group.size() <= lines.size() &&
           std::equal(group.begin(), group.end(), lines.begin() + static_cast<long>(position));
}

inline std::string Describe(const LogLines& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += "\n  [" + line + "]";
    }
    return text;
}

}  // namespace detail

// True when `lines` are exactly the segments, one after another, and nothing else.
inline ::testing::AssertionResult MatchesSegments(const LogLines& lines,
                                                  const std::vector<LogSegment>& segments) {
    size_t position = 0;
    for (const LogSegment& segment : segments) {
        std::vector<bool> used(segment.groups.size(), false);
        for (size_t matched = 0; matched < segment.groups.size(); ++matched) {
            size_t found = segment.groups.size();
            for (size_t g = 0; g < segment.groups.size() && found == segment.groups.size(); ++g) {
                const bool eligible = segment.anyOrder ? !used[g] : g == matched;
                if (eligible && detail::GroupAt(lines, position, segment.groups[g])) {
                    found = g;
                }
            }
            if (found == segment.groups.size()) {
                return ::testing::AssertionFailure()
                       << "unexpected log from line " << position << ":" << detail::Describe(lines);
            }
            used[found] = true;
            position += segment.groups[found].size();
        }
    }
    if (position != lines.size()) {
        return ::testing::AssertionFailure()
               << "extra log lines from line " << position << ":" << detail::Describe(lines);
    }
    return ::testing::AssertionSuccess();
}

// True when every expected line occurs in `lines`, in this order (others may stand between).
inline ::testing::AssertionResult ContainsInOrder(const LogLines& lines, const LogLines& expected) {
    auto position = lines.begin();
    for (const std::string& line : expected) {
        position = std::find(position, lines.end(), line);
        if (position == lines.end()) {
            return ::testing::AssertionFailure()
                   << "missing, or out of order: [" << line << "] in" << detail::Describe(lines);
        }
        ++position;
    }
    return ::testing::AssertionSuccess();
}

inline long CountOf(const LogLines& lines, const std::string& line) {
    return std::count(lines.begin(), lines.end(), line);
}

}  // namespace testing_support
