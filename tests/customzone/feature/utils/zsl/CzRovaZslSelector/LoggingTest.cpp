#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "CzRovaZslSelectorLog.h"
#include "ZslTestSupport.h"

using namespace zsltest;
using NSCam::Utils::ULog::ULogger;
using testing::ElementsAre;

namespace {

void logEveryLevel() {
  CZ_LOGE_AT("f", "E");
  CZ_LOGW_AT("f", "W");
  CZ_LOGI_AT("f", "I");
  CZ_LOGD_AT("f", "D");
  CZ_LOGD_LV_AT(0, "f", "never: selector level 0");
}

std::vector<int> prioritiesOf(std::vector<LogLine> const& lines) {
  std::vector<int> out;
  for (auto const& line : lines) out.push_back(line.priority);
  return out;
}

}  // namespace

TEST(Logging, GatesSinksAndArguments) {
  struct Case {
    uint32_t details, mask, mode;
    std::vector<std::string> android, unified;
  };
  std::vector<std::string> const all = {"f: E", "f: W", "f: I", "f: D"};
  std::vector<std::string> const noDebug = {"f: E", "f: W", "f: I"};
  Case const cases[] = {
      {0, 0xFFFFFFFF, 3, {"f: E"}, {"f: E"}},
      {2, 0, 3, {"f: E", "f: W"}, {"f: E", "f: W"}},
      {4, 0x101000, 3, noDebug, noDebug},
      {5, 0x100000, 3, noDebug, noDebug},
      {5, 0x001000, 3, noDebug, noDebug},
      {5, 0x101000, 3, all, all},
      {9, 0xFFFFFFFF, 3, all, all},
      {5, 0x101000, 0, {}, {}},
      {5, 0x101000, 4, {}, {}},
      {5, 0x101000, 1, all, {}},
      {5, 0x101000, 2, {}, all},
      {5, 0x101000, 8, {}, all},
  };
  for (auto const& c : cases) {
    LogCapture logs(c.details, c.mask, c.mode);
    logEveryLevel();
    EXPECT_EQ(linesOf(logs.android()), c.android) << c.details << "/" << c.mask << "/" << c.mode;
    EXPECT_EQ(linesOf(logs.unified()), c.unified) << c.details << "/" << c.mask << "/" << c.mode;
  }
  {
    LogCapture logs;
    logEveryLevel();
    EXPECT_THAT(prioritiesOf(logs.android()), ElementsAre(6, 5, 4, 3));
    EXPECT_THAT(prioritiesOf(logs.unified()), ElementsAre(1, 2, 3, 5));
  }
  // Arguments are evaluated once, and only when the gate is open.
  LogCapture logs(3, 0, 3);
  int calls = 0;
  CZ_LOGI_AT("f", "%d", ++calls);
  CZ_LOGD_AT("f", "%d", ++calls);
  CZ_LOGE_AT("f", "%d", ++calls);
  EXPECT_EQ(calls, 2);
  EXPECT_THAT(bothSinks(logs), ElementsAre("f: 1", "f: 2"));
}

TEST(Logging, TagModuleIdAndErrorSuffix) {
  static std::vector<std::string> sAndroid;
  static std::vector<std::pair<uint32_t, std::string>> sUnified;
  LogCapture::setGates(5, 0x101000, 3);
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger([](__android_logger_data const* data, char const* message) {
    sAndroid.push_back(std::string(data->tag) + "|" + message);
  });
  ULogger::setHostSink(
      [](uint32_t moduleId, std::string_view tag, uint32_t, std::string_view text) {
        sUnified.emplace_back(moduleId, std::string(tag) + "|" + std::string(text));
      });
  int const line = __LINE__ + 1;
  CZ_LOGE_AT("fn", "bad %d%%", 5);
  CZ_LOGI_AT("fn", "fine");
  ULogger::setHostSink(nullptr);
  std::string const at = "CzRovaZslSelector|[fn::" + std::to_string(line) + "]";
  EXPECT_THAT(sAndroid,
              ElementsAre(at + "bad 5% (fn){#" + std::to_string(line) +
                              ":customzone/feature/utils/zsl/CzRovaZslSelector/"
                              "CzRovaZslSelector}",
                          "CzRovaZslSelector|[fn::" + std::to_string(line + 1) + "]fine"));
  ASSERT_EQ(sUnified.size(), 2u);
  EXPECT_EQ(sUnified[0], std::make_pair(0x101005u, at + "bad 5%"));
  EXPECT_EQ(sUnified[1].first, 0x101005u);
}

TEST(Logging, UnifiedCopyIsCutAt1023Characters) {
  LogCapture logs;
  std::string const fill(2000, 'x');
  CZ_LOGW_AT("f", "%s", fill.c_str());
  std::string const head = "[f::" + std::to_string(__LINE__ + 1) + "]";
  CZ_LOGW_AT("f", "%s", std::string(1023 - head.size(), 'y').c_str());
  ASSERT_EQ(logs.unified().size(), 2u);
  std::string const first = "[f::" + std::to_string(logs.unified()[0].line) + "]" + fill;
  EXPECT_EQ(logs.unified()[0].raw, first.substr(0, 1023));
  EXPECT_EQ(logs.unified()[1].raw, head + std::string(1023 - head.size(), 'y'));
}

TEST(Logging, ConstructorDestructorAndSelectorLevel) {
  LogCapture logs;
  std::optional<CzRovaZslSelector> selector;
  selector.emplace();
  char self[32];
  std::snprintf(self, sizeof(self), "%p", static_cast<void*>(&*selector));
  std::string const ctor = "CzRovaZslSelector: CzRovaZslSelector ctor(" + std::string(self) + ")";
  std::string const dtor = "~CzRovaZslSelector: CzRovaZslSelector dtor(" + std::string(self) + ")";
  selector.reset();
  EXPECT_THAT(bothSinks(logs), ElementsAre(ctor + ", mLogLevel(1)", dtor));
  EXPECT_THAT(prioritiesOf(logs.android()), ElementsAre(3, 3));
  EXPECT_THAT(prioritiesOf(logs.unified()), ElementsAre(5, 5));
  logs.clear();
  // Selector level 0 silences only the per-request debug lines.
  setProperty("vendor.debug.camera.log.zsl.sample", "0");
  selector.emplace();
  SelectInputParams in = makeStill(3, tsOf(11));
  addHistory(in, 10, 12);
  in.elapsedMs = 1000;
  selector->select(in);
  selector.reset();
  EXPECT_THAT(
      bothSinks(logs, {"CzRovaZslSelector", "~CzRovaZslSelector", "select", "multiFrameSelect"}),
      ElementsAre(ctor + ", mLogLevel(0)", "select: ZEB_CSHOT_FEATURE_CAPTURE = 0",
                  "select: [r3,1000/1000ms]<multiFrame> INFO: hint=0, policy={ AFStable "
                  "AESoftStable ZeroShutterDelay ContinuousFrame }",
                  "multiFrameSelect: [r3,1000/1000ms]<multiFrame> search continuous from hf[F10 "
                  "R10 ts:330000000 ss=(1,1,1) locked=0 Recycle=0]",
                  dtor));
}

namespace {

// Death-test child: every sink writes to stderr, which the parent matches.
void fatalChild(uint32_t mode, bool hookExits) {
  LogCapture::setGates(0, 0, mode);
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger([](__android_logger_data const* data, char const* message) {
    std::fprintf(stderr, "android:%d:%s\n", data->priority, message);
  });
  __android_log_set_aborter([](char const* message) {
    std::fprintf(stderr, "aborter:%s\n", message);
    std::abort();
  });
  ULogger::setHostSink([](uint32_t, std::string_view, uint32_t level, std::string_view text) {
    std::fprintf(stderr, "unified:%u:%.*s\n", level, static_cast<int>(text.size()), text.data());
  });
  if (hookExits) {
    ULogger::setFatalHook([](int code) { _exit(10 + code); });
  } else {
    ULogger::setFatalHook([](int code) { std::fprintf(stderr, "hook:%d\n", code); });
  }
  CZ_LOG_FATAL_AT("fatalCase", "%s INVALID: R%u fail to get request mapping", "[r7]", 7u);
}

}  // namespace

TEST(LoggingDeathTest, FatalWritesBothCopiesCallsTheHookThenAsserts) {
  std::string const text =
      "\\[fatalCase::[0-9]+\\]\\[r7\\] INVALID: R7 fail to get request mapping";
  std::string const suffix =
      " \\(fatalCase\\)\\{#[0-9]+:customzone/feature/utils/zsl/CzRovaZslSelector/"
      "CzRovaZslSelector\\}";
  EXPECT_EXIT(fatalChild(3, false), testing::KilledBySignal(SIGABRT),
              "android:6:" + text + suffix + "\nunified:1:" + text + "\nhook:1\n" +
                  ".*android:7:" + text + suffix + "\naborter:" + text + suffix);
  // The hook runs only after a unified copy; the assertion aborts either way.
  EXPECT_EXIT(fatalChild(1, true), testing::KilledBySignal(SIGABRT), "aborter:");
  EXPECT_EXIT(fatalChild(0, true), testing::KilledBySignal(SIGABRT), "aborter:");
  EXPECT_EXIT(fatalChild(8, true), testing::ExitedWithCode(11), "unified:1:");
}
