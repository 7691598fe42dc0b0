#include "CzRovaZslSelectorLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace NSCam::CustZone::zsllog {

namespace {
constexpr size_t kUnifiedBufferSize = 1024;
}  // namespace

bool writeUnified(uint32_t level, char const* fmt, ...) {
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kUnifiedBufferSize]);
  if (!buffer) {
    return false;
  }
  va_list args;
  va_start(args, fmt);
  int written = std::vsnprintf(buffer.get(), kUnifiedBufferSize, fmt, args);
  va_end(args);
  if (written < 0) {
    return false;
  }
  size_t length = std::strlen(buffer.get());
  ULogger::sULogger.textOutput(kModuleId, kTag, level, buffer.get(), length);
  return true;
}

}  // namespace NSCam::CustZone::zsllog
