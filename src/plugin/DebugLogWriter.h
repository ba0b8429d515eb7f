// The log file behind the handling object's Log calls, kept apart from the object because the
// file outlives it: it stays open until the process ends.

#pragma once

#include <fstream>
#include <mutex>
#include <string>
#include <string_view>

// Writes diagnostic lines to <working directory>/Logs/<name>. The first writer of the process
// truncates the file; later ones append after a separator line. Every failure is silent.
class DebugLogWriter {
  public:
    DebugLogWriter(int level, std::string name);

    // Writes `text` and a newline when `level` is at least `messageLevel`.
    void Log(int messageLevel, std::string_view text);
    // Writes `text` and a newline unconditionally, if the file is open; flushed before return.
    void LogImpl(std::string_view text);

    bool Accepts(int messageLevel) const { return level >= messageLevel; }
    bool IsOpen() const { return stream.is_open(); }

  private:
    std::ofstream stream;
    int level;
    // Keeps lines from concurrent callers whole (the handling object logs with and without
    // its own lock held).
    std::mutex writeMutex;
};
