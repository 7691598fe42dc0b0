#include "Logs.h"

#include <android/log.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "zebcam/utils/ULog.h"

namespace zslsim {

namespace {

using NSCam::Utils::ULog::ULogger;

bool gToStderr = false;
bool gKeep = false;
std::vector<LogLine> gLines;

char priorityLetter(int priority) {
  switch (priority) {
    case ANDROID_LOG_VERBOSE:
      return 'V';
    case ANDROID_LOG_DEBUG:
      return 'D';
    case ANDROID_LOG_INFO:
      return 'I';
    case ANDROID_LOG_WARN:
      return 'W';
    case ANDROID_LOG_ERROR:
      return 'E';
    case ANDROID_LOG_FATAL:
      return 'F';
    default:
      return '?';
  }
}

void androidSink(__android_logger_data const* data, char const* message) {
  std::string_view text = message == nullptr ? std::string_view() : std::string_view(message);
  if (gToStderr) {
    std::fprintf(stderr, "A/%c %s: %.*s\n", priorityLetter(data->priority),
                 data->tag == nullptr ? "" : data->tag, static_cast<int>(text.size()), text.data());
  }
  if (gKeep) {
    gLines.push_back(LogLine{true, data->priority, std::string(text)});
  }
}

void unifiedSink(uint32_t, std::string_view tag, uint32_t level, std::string_view text) {
  if (gToStderr) {
    std::fprintf(stderr, "U/%u %.*s: %.*s\n", level, static_cast<int>(tag.size()), tag.data(),
                 static_cast<int>(text.size()), text.data());
  }
  if (gKeep) {
    gLines.push_back(LogLine{false, static_cast<int>(level), std::string(text)});
  }
}

// The plug-in's fatal assertion ends the run with its own exit status.
void onAbort(char const* message) {
  std::fprintf(stderr, "zslsim: the plug-in aborted: %s\n", message == nullptr ? "" : message);
  std::fflush(nullptr);
  std::_Exit(3);
}

}  // namespace

void installLogSinks(LogSettings const& settings, bool toStderr, bool keep) {
  ULogger::sDetailsLevel = settings.detailsLevel;
  ULogger::sNormalDetailsMask = settings.mask;
  ULogger::sMode = settings.mode;
  gToStderr = toStderr;
  gKeep = keep;
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger(androidSink);
  __android_log_set_aborter(onAbort);
  ULogger::setHostSink(unifiedSink);
}

void removeLogSinks() {
  ULogger::setHostSink(nullptr);
  __android_log_set_logger(__android_log_stderr_logger);
  gLines.clear();
  gLines.shrink_to_fit();
}

std::vector<LogLine> const& keptLogLines() { return gLines; }

void clearLogLines() { gLines.clear(); }

}  // namespace zslsim
