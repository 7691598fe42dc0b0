#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ZslTestSupport.h"

using namespace zsltest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Chosen = std::vector<std::pair<int32_t, uint32_t>>;

std::string const kDefaultPolicy = "{ AFStable AESoftStable ZeroShutterDelay ContinuousFrame }";
std::vector<std::string> const kDispatch = {"select", "invokeADB"};

// History F10..F14; the zero-shutter frame is F13.
SelectInputParams withHistory(SelectInputParams in, int64_t elapsedMs) {
  in.zsdTs = tsOf(12) + 1;
  in.elapsedMs = elapsedMs;
  addHistory(in, 10, 14);
  return in;
}

SelectInputParams still(uint32_t no, std::optional<int32_t> cshot = 0, int64_t elapsedMs = 0) {
  SelectInputParams in = makeStill(no, 0);
  in.frameInfos[0] = makeFrameInfo(cshot);
  return withHistory(in, elapsedMs);
}

SelectInputParams member(uint32_t no, int32_t idx, int32_t cnt, int64_t elapsedMs = 0) {
  return withHistory(makeSeriesMember(no, idx, cnt), elapsedMs);
}

void setOverride(char const* name, std::string const& value) {
  setProperty("vendor.debug.camera.zsl.runtime.adb", "1");
  setProperty(std::string("vendor.debug.camera.zsl.force.") + name, value);
}

}  // namespace

TEST(SelectDispatch, ContinuousShotTagChoosesThePolicyAndOverridesNeedTheFirstCall) {
  LogCapture logs;
  CzRovaZslSelector selector;
  EXPECT_EQ(chosen(selector.select(still(57, 0, 12))), (Chosen{{0, 13}}));
  EXPECT_EQ(chosen(selector.select(still(58, 1))), (Chosen{{0, 10}}));
  // A continuous-shot tag of another type is no tag: the request is an invalid series.
  SelectInputParams mistyped = still(59, std::nullopt);
  IMetadata::setEntry<int64_t>(&mistyped.frameInfos[0].metas[kAppMetaStream],
                               ZEB_CSHOT_FEATURE_CAPTURE, 1);
  EXPECT_EQ(chosen(selector.select(mistyped)), (Chosen{{0, 13}}));
  // The runtime flag is read once per process, at the first call.
  setOverride("hint", "7");
  setOverride("timeout", "0");
  EXPECT_EQ(chosen(selector.select(still(60))), (Chosen{{0, 13}}));
  EXPECT_THAT(
      bothSinks(logs, kDispatch),
      ElementsAre("select: ZEB_CSHOT_FEATURE_CAPTURE = 0",
                  "select: [r57,12/1000ms]<multiFrame> INFO: hint=0, policy=" + kDefaultPolicy,
                  "select: ZEB_CSHOT_FEATURE_CAPTURE = 1",
                  "select: [r58,0/1000ms]<multiFrame> INFO: hint=0, policy={ AFStable AEStable }",
                  "select: [r59,0/1000ms]<none> INVALID: ispHidl request (idx=-1, cnt=-1), use "
                  "multiFrameSelect with policy=" +
                      kDefaultPolicy + " instead.",
                  "select: ZEB_CSHOT_FEATURE_CAPTURE = 0",
                  "select: [r60,0/1000ms]<multiFrame> INFO: hint=0, policy=" + kDefaultPolicy));
}

TEST(SelectDispatch, BadSeriesAndEmptyFrameInfos) {
  LogCapture logs;
  CzRovaZslSelector selector;
  std::pair<int32_t, int32_t> const bad[] = {{-1, -1}, {-1, 3}, {0, 0}, {2, -5}, {0, 257}};
  std::vector<std::string> expected;
  uint32_t no = 20;
  for (auto [idx, cnt] : bad) {
    SelectInputParams in = member(no, idx, cnt);
    EXPECT_EQ(chosen(selector.select(in)), (Chosen{{0, 13}}));
    std::string series = idx == -1 && cnt == -1
                             ? ""
                             : "IspHidl(" + std::to_string(idx) + "/" + std::to_string(cnt) + ")";
    expected.push_back("select: [r" + std::to_string(no++) + ",0/1000ms]<none>" + series +
                       " INVALID: ispHidl request (idx=" + std::to_string(idx) +
                       ", cnt=" + std::to_string(cnt) +
                       "), use multiFrameSelect with policy=" + kDefaultPolicy + " instead.");
  }
  // Without any control metadata the request is a series member too.
  SelectInputParams bare = member(30, 255, 256);
  bare.frameInfos[0].metas.clear();
  selector.select(bare);
  expected.push_back(
      "select: [r30,0/1000ms]<ispHidlSelect_SubSequence>IspHidl(255/256) INFO: hint=5, "
      "policy=None");
  SelectInputParams empty = member(9, 0, 3);
  empty.frameInfos.clear();
  auto out = selector.select(empty);
  EXPECT_TRUE(out.frames.empty() && out.ops.empty() && out.frameSet.empty());
  expected.push_back("select: INVALID: R9 has no frameInfos, nothing to select");
  EXPECT_EQ(bothSinks(logs, kDispatch), expected);
}

TEST(SelectDispatch, ForcedHintRoutesEveryValidSeries) {
  LogCapture logs(3, 0, 3);
  CzRovaZslSelector selector;
  std::vector<std::string> expected;
  auto route = [&](int32_t hint, uint32_t no, int32_t idx, std::string const& line) {
    setOverride("hint", std::to_string(hint));
    selector.select(member(no, idx, 3, 12));
    expected.push_back("invokeADB: runtime adb set hint=" + std::to_string(hint));
    if (!line.empty()) expected.push_back("select: [r" + std::to_string(no) + ",12/1000ms]" + line);
  };
  route(0, 56, 0, "<multiFrame>IspHidl(0/3) INFO: hint=0, policy=" + kDefaultPolicy);
  route(1, 57, 0, "<ispHidl>IspHidl(0/3) INFO: hint=1, policy=" + kDefaultPolicy);
  route(2, 60, 0, "<ispHidlSelect_Latest>IspHidl(0/3) INFO: hint=2, policy=None");
  route(3, 70, 0,
        "<ispHidlSelect_LatestWithQuality>IspHidl(0/3) INFO: hint=3, policy={ AFStable "
        "AESoftStable ContinuousFrame }");
  route(4, 80, 0, "");
  route(5, 90, 0, "<ispHidlSelect_SubSequence>IspHidl(0/3) INFO: hint=5, policy=None");
  route(7, 100, 0,
        "<none>IspHidl(0/3) INVALID: no selector has been chosen, use multiFrameSelect with "
        "policy=" +
            kDefaultPolicy + " instead");
  // The series checks come before the hint's range.
  route(7, 110, -1,
        "<none>IspHidl(-1/3) INVALID: ispHidl request (idx=-1, cnt=3), use multiFrameSelect with "
        "policy=" +
            kDefaultPolicy + " instead.");
  EXPECT_EQ(bothSinks(logs, kDispatch), expected);
}

TEST(SelectDispatch, ForcedPolicyAndTimeoutPersist) {
  setOverride("policy", "16777216");
  setOverride("timeout", "5");
  LogCapture logs(3, 0, 3);
  CzRovaZslSelector selector;
  EXPECT_THAT(chosen(selector.select(still(1, 0, 3))), IsEmpty());
  setOverride("policy", "-1");
  setOverride("timeout", "-1");
  EXPECT_EQ(chosen(selector.select(still(2, 0, 5))), (Chosen{{0, kNoFrame}}));
  // Only the low 32 bits of a forced policy are kept.
  setOverride("policy", std::to_string((1LL << 32) | 3));
  EXPECT_EQ(chosen(selector.select(still(3))), (Chosen{{0, 10}}));
  EXPECT_THAT(bothSinks(logs, kDispatch),
              ElementsAre("invokeADB: runtime adb set policy(16777216)={ ForcePending }",
                          "invokeADB: runtime adb set timeout=5ms",
                          "select: [r1,3/5ms]<multiFrame> INFO: hint=0, policy={ ForcePending }",
                          "select: [r2,5/5ms]<multiFrame> INFO: hint=0, policy={ ForcePending }",
                          "invokeADB: runtime adb set policy(3)={ AFStable AEStable }",
                          "select: [r3,0/5ms]<multiFrame> INFO: hint=0, policy={ AFStable "
                          "AEStable }"));
}

TEST(SelectDispatch, OpenSeriesAreDumpedWithoutSubSequence) {
  LogCapture logs;
  CzRovaZslSelector selector;
  for (auto [hint, no] : {std::pair{5, 300}, {2, 200}, {2, 205}, {1, 210}}) {
    setOverride("hint", std::to_string(hint));
    selector.select(member(no, 0, 2));
  }
  setOverride("hint", "-1");
  selector.select(still(400));
  // No line while only the sub-sequence series is open.
  EXPECT_THAT(logs.unifiedWith("DEBUG: R200 dump"), IsEmpty());
  EXPECT_THAT(bothSinks(logs, {"select"}),
              testing::Contains(
                  "select: DEBUG: R400 dump mIspHidlReqs={210 }, mIspHidlReqs_Latest={200 205 }, "
                  "mIspHidlReqs_LatestWithQuality={null}, mIspHidlReqs_PreCollect={null}"));
}

// Zero is a value like any other: no quality bits, and every request is due at once.
TEST(SelectDispatch, ForcedZeroPolicyAndTimeout) {
  setOverride("policy", "0");
  setOverride("timeout", "0");
  LogCapture logs(3, 0, 3);
  CzRovaZslSelector selector;
  EXPECT_EQ(chosen(selector.select(still(1))), (Chosen{{0, 10}}));
  EXPECT_THAT(bothSinks(logs, kDispatch),
              ElementsAre("invokeADB: runtime adb set policy(0)={ None }",
                          "invokeADB: runtime adb set timeout=0ms",
                          "select: [r1,0/0ms]<multiFrame> INFO: hint=0, policy={ None }"));
}
