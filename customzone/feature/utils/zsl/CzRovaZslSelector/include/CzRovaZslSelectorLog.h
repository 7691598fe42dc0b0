#pragma once

#include <android/log.h>

#include <cstdint>

#include "zebcam/utils/ULog.h"

// The selector's one logging facility. Every line starts with "[function::line]"
// and goes to the Android log (sMode bit 0) and/or the unified log (bits 1, 3).
// Each macro tests its gate with one branch before anything is formatted.

namespace NSCam::CustZone::zsllog {

inline constexpr char kTag[] = "CzRovaZslSelector";
inline constexpr uint32_t kModuleId = 0x101005;
inline constexpr uint32_t kDebugMask = 0x101000;  // the module id's upper part
inline constexpr char kSourcePath[] =
    "customzone/feature/utils/zsl/CzRovaZslSelector/CzRovaZslSelector";
inline constexpr uint32_t kAndroidSink = 0x1;
inline constexpr uint32_t kUnifiedSink = 0xA;

enum Level : uint32_t { kError = 1, kWarning = 2, kInfo = 3, kDebug = 5 };

using ::NSCam::Utils::ULog::ULogger;

inline bool anySink() { return (ULogger::sMode & (kAndroidSink | kUnifiedSink)) != 0; }
inline bool errorOn() { return anySink(); }
inline bool warningOn() { return (ULogger::sDetailsLevel >= 2) & anySink(); }
inline bool infoOn() { return (ULogger::sDetailsLevel >= 3) & anySink(); }
inline bool debugOn() {
  return (ULogger::sDetailsLevel >= 5) &
         ((ULogger::sNormalDetailsMask & kDebugMask) == kDebugMask) & anySink();
}
inline bool debugOn(int32_t selectorLogLevel) { return debugOn() & (selectorLogLevel > 0); }

// Formats the unified copy into a 1024-byte buffer (cut at 1023 characters) and
// hands it to the unified logger; a formatting failure drops it. True when written.
bool writeUnified(uint32_t level, char const* fmt, ...) __attribute__((format(printf, 2, 3)));

// One warning, info or debug line to every sink sMode opens. The arguments are
// evaluated once, however many sinks are open.
void emit(int priority, uint32_t level, char const* fmt, ...) __attribute__((format(printf, 3, 4)));
// One error line; only the Android copy carries " (func){#line:path}".
void emitError(char const* func, int line, char const* fmt, ...)
    __attribute__((format(printf, 3, 4)));
// An error line, the unified logger's fatal-error operation (when the unified
// copy was written), then the Android log assertion.
[[noreturn]] void emitFatal(char const* func, int line, char const* fmt, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace NSCam::CustZone::zsllog

#define CZ_LOG_EMIT_(func, prio, level, fmt, ...) \
  ::NSCam::CustZone::zsllog::emit(prio, level, "[%s::%d]" fmt, func, __LINE__, ##__VA_ARGS__)

// Error lines carry the location suffix on the Android copy only.
#define CZ_LOGE_AT(func, fmt, ...)                                                         \
  do {                                                                                     \
    if (::NSCam::CustZone::zsllog::errorOn())                                              \
      ::NSCam::CustZone::zsllog::emitError(func, __LINE__, "[%s::%d]" fmt, func, __LINE__, \
                                           ##__VA_ARGS__);                                 \
  } while (0)

#define CZ_LOGW_AT(func, fmt, ...)                                                   \
  do {                                                                               \
    if (::NSCam::CustZone::zsllog::warningOn())                                      \
      CZ_LOG_EMIT_(func, ANDROID_LOG_WARN, ::NSCam::CustZone::zsllog::kWarning, fmt, \
                   ##__VA_ARGS__);                                                   \
  } while (0)

#define CZ_LOGI_AT(func, fmt, ...)                                                                \
  do {                                                                                            \
    if (::NSCam::CustZone::zsllog::infoOn())                                                      \
      CZ_LOG_EMIT_(func, ANDROID_LOG_INFO, ::NSCam::CustZone::zsllog::kInfo, fmt, ##__VA_ARGS__); \
  } while (0)

// Debug lines not gated by the selector's own log level.
#define CZ_LOGD_AT(func, fmt, ...)                                                  \
  do {                                                                              \
    if (::NSCam::CustZone::zsllog::debugOn())                                       \
      CZ_LOG_EMIT_(func, ANDROID_LOG_DEBUG, ::NSCam::CustZone::zsllog::kDebug, fmt, \
                   ##__VA_ARGS__);                                                  \
  } while (0)

// Debug lines that also need the selector's log level above 0.
#define CZ_LOGD_LV_AT(logLevel, func, fmt, ...)                                     \
  do {                                                                              \
    if (::NSCam::CustZone::zsllog::debugOn(logLevel))                               \
      CZ_LOG_EMIT_(func, ANDROID_LOG_DEBUG, ::NSCam::CustZone::zsllog::kDebug, fmt, \
                   ##__VA_ARGS__);                                                  \
  } while (0)

// A broken invariant: logged as an error, the unified log flushed, the process aborted.
#define CZ_LOG_FATAL_AT(func, fmt, ...)                                                \
  ::NSCam::CustZone::zsllog::emitFatal(func, __LINE__, "[%s::%d]" fmt, func, __LINE__, \
                                       ##__VA_ARGS__)

#define CZ_LOGE(fmt, ...) CZ_LOGE_AT(__FUNCTION__, fmt, ##__VA_ARGS__)
#define CZ_LOGW(fmt, ...) CZ_LOGW_AT(__FUNCTION__, fmt, ##__VA_ARGS__)
#define CZ_LOGI(fmt, ...) CZ_LOGI_AT(__FUNCTION__, fmt, ##__VA_ARGS__)
#define CZ_LOGD(fmt, ...) CZ_LOGD_AT(__FUNCTION__, fmt, ##__VA_ARGS__)
// Where mLogLevel is in scope.
#define CZ_LOGD_L(fmt, ...) CZ_LOGD_LV_AT(mLogLevel, __FUNCTION__, fmt, ##__VA_ARGS__)
#define CZ_LOG_FATAL(fmt, ...) CZ_LOG_FATAL_AT(__FUNCTION__, fmt, ##__VA_ARGS__)
