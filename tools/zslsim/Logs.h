#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Scenario.h"

// Where the selector's log lines go: both sinks (the Android log and the
// unified log) are captured, kept for the trace of the current call, and
// copied to stderr when asked.

namespace zslsim {

struct LogLine {
  bool android = false;
  int level = 0;  // Android priority, or the unified-log level
  std::string text;
};

// Sets the logger's gates and installs both sinks for the process.
void installLogSinks(LogSettings const& settings, bool toStderr, bool keep);
// Restores liblog's own stderr logger and drops the unified sink.
void removeLogSinks();
// Lines kept since the last clear.
std::vector<LogLine> const& keptLogLines();
void clearLogLines();

}  // namespace zslsim
