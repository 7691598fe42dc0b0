#include "zebcam/utils/ULog.h"

#include <cstdio>
#include <utility>

namespace NSCam::Utils::ULog {

uint32_t ULogger::sDetailsLevel = 2;
uint32_t ULogger::sNormalDetailsMask = 0;
uint32_t ULogger::sMode = 2;
ULogger ULogger::sULogger;

namespace {

ULogger::HostSink& hostSink() {
  static ULogger::HostSink sink;
  return sink;
}

ULogger::FatalHook& fatalHook() {
  static ULogger::FatalHook hook;
  return hook;
}

}  // namespace

void ULogger::textOutput(uint32_t moduleId, char const* tag, uint32_t level, char const* text,
                         size_t length) {
  std::string_view tagView = tag == nullptr ? std::string_view() : std::string_view(tag);
  std::string_view textView = text == nullptr ? std::string_view() : std::string_view(text, length);
  if (hostSink()) {
    hostSink()(moduleId, tagView, level, textView);
    return;
  }
  std::fprintf(stderr, "U/%u %.*s: %.*s\n", level, static_cast<int>(tagView.size()), tagView.data(),
               static_cast<int>(textView.size()), textView.data());
}

void ULogger::fatalError(int code) {
  std::fflush(stderr);
  if (fatalHook()) {
    fatalHook()(code);
  }
}

void ULogger::setHostSink(HostSink sink) { hostSink() = std::move(sink); }

void ULogger::setFatalHook(FatalHook hook) { fatalHook() = std::move(hook); }

}  // namespace NSCam::Utils::ULog
