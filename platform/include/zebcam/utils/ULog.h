#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace NSCam::Utils::ULog {

class ULogger {
 public:
  static uint32_t sDetailsLevel;       // detail level
  static uint32_t sNormalDetailsMask;  // detail mask
  static uint32_t sMode;               // bit 0: Android log; bits 1 or 3: unified log
  static ULogger sULogger;             // the process-wide instance

  // Writes one unified-log line.
  void textOutput(uint32_t moduleId, char const* tag, uint32_t level, char const* text,
                  size_t length);
  // Called after a fatal line was written, before the process aborts; flushes
  // the unified log.
  void fatalError(int code);

  // Linux only: where unified-log lines go (stderr when unset).
  using HostSink = std::function<void(uint32_t moduleId, std::string_view tag, uint32_t level,
                                      std::string_view text)>;
  static void setHostSink(HostSink sink);
  // Linux only: called by fatalError with its code (nothing when unset).
  using FatalHook = std::function<void(int code)>;
  static void setFatalHook(FatalHook hook);
};

}  // namespace NSCam::Utils::ULog
