#include "zebcam/utils/ULog.h"

#include <gtest/gtest.h>

#include <string>

using NSCam::Utils::ULog::ULogger;

TEST(ULog, TextOutputGoesToTheHostSinkOrStderrAndFatalErrorCallsTheHook) {
  std::string seen;
  ULogger::setHostSink(
      [&seen](uint32_t moduleId, std::string_view tag, uint32_t level, std::string_view text) {
        seen = std::to_string(moduleId) + "|" + std::string(tag) + "|" + std::to_string(level) +
               "|" + std::string(text);
      });
  ULogger::sULogger.textOutput(0x101005, "Tag", 3, "abcdef", 3);
  EXPECT_EQ(seen, "1052677|Tag|3|abc");
  ULogger::setHostSink(nullptr);
  testing::internal::CaptureStderr();
  ULogger::sULogger.textOutput(0x101005, "Tag", 1, "abcdef", 4);
  ULogger::sULogger.textOutput(0x101005, nullptr, 2, nullptr, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "U/1 Tag: abcd\nU/2 : \n");
  ULogger::sULogger.fatalError(1);  // no hook: nothing happens
  int code = 0;
  ULogger::setFatalHook([&code](int c) { code = c; });
  ULogger::sULogger.fatalError(1);
  EXPECT_EQ(code, 1);
  ULogger::setFatalHook(nullptr);
}
