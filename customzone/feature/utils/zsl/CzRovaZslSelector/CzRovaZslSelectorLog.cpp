#include "CzRovaZslSelectorLog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <string>

namespace NSCam::CustZone::zsllog {

namespace {

constexpr size_t kUnifiedBufferSize = 1024;
constexpr char kErrorSuffix[] = "%s (%s){#%d:%s}";

bool androidOn() { return (ULogger::sMode & kAndroidSink) != 0; }
bool unifiedOn() { return (ULogger::sMode & kUnifiedSink) != 0; }

bool vwriteUnified(uint32_t level, char const* fmt, va_list args) {
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kUnifiedBufferSize]);
  if (!buffer) {
    return false;
  }
  int written = std::vsnprintf(buffer.get(), kUnifiedBufferSize, fmt, args);
  if (written < 0) {
    return false;
  }
  size_t length = std::min(static_cast<size_t>(written), kUnifiedBufferSize - 1);
  ULogger::sULogger.textOutput(kModuleId, kTag, level, buffer.get(), length);
  return true;
}

// The whole line, uncut: the Android copy of an error and the assertion text.
std::string formatLine(char const* fmt, va_list args) {
  va_list sizing;
  va_copy(sizing, args);
  int length = std::vsnprintf(nullptr, 0, fmt, sizing);
  va_end(sizing);
  if (length <= 0) {
    return {};
  }
  std::string line(static_cast<size_t>(length), '\0');
  std::vsnprintf(line.data(), line.size() + 1, fmt, args);
  return line;
}

// Both copies of an error line; true when the unified copy was written.
bool verror(char const* func, int line, char const* fmt, va_list args) {
  if (androidOn()) {
    va_list copy;
    va_copy(copy, args);
    std::string text = formatLine(fmt, copy);
    va_end(copy);
    __android_log_print(ANDROID_LOG_ERROR, kTag, kErrorSuffix, text.c_str(), func, line,
                        kSourcePath);
  }
  return unifiedOn() && vwriteUnified(kError, fmt, args);
}

}  // namespace

bool writeUnified(uint32_t level, char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  bool written = vwriteUnified(level, fmt, args);
  va_end(args);
  return written;
}

void emit(int priority, uint32_t level, char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  if (androidOn()) {
    va_list copy;
    va_copy(copy, args);
    __android_log_vprint(priority, kTag, fmt, copy);
    va_end(copy);
  }
  if (unifiedOn()) {
    vwriteUnified(level, fmt, args);
  }
  va_end(args);
}

void emitError(char const* func, int line, char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  verror(func, line, fmt, args);
  va_end(args);
}

void emitFatal(char const* func, int line, char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list copy;
  va_copy(copy, args);
  std::string text = formatLine(fmt, copy);
  va_end(copy);
  bool unifiedWritten = verror(func, line, fmt, args);
  va_end(args);
  if (unifiedWritten) {
    ULogger::sULogger.fatalError(1);
  }
  __android_log_assert(nullptr, kTag, kErrorSuffix, text.c_str(), func, line, kSourcePath);
}

}  // namespace NSCam::CustZone::zsllog
