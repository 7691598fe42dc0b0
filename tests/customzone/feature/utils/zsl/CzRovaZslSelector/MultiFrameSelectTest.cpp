#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CzRovaZslSelectorUtils.h"
#include "ZslTestSupport.h"

using namespace zsltest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Chosen = std::vector<std::pair<int32_t, uint32_t>>;

constexpr uint32_t kZsd = 0x10000;
constexpr uint32_t kContinuous = 0x20000;

FrameState lensMoving() {
  FrameState fs;
  fs.lensState = 1;
  return fs;
}

class MultiFrame : public testing::Test {
 protected:
  Chosen run(uint32_t policy, int64_t elapsedMs = 0) {
    in.elapsedMs = elapsedMs;
    auto out = selector.multiFrameSelect(in, "P", policy);
    EXPECT_TRUE(out.ops.empty() && out.frameSet.empty());
    return chosen(out);
  }
  std::vector<std::string> lines() {
    auto out = bothSinks(logs, {"multiFrameSelect"});
    logs.clear();
    return out;
  }
  void wanted(size_t count) { in = makeStill(1, in.zsdTs, count); }
  // Frames whose EV differs from the request's fail even after the time-out.
  void spoil(std::initializer_list<uint32_t> frames) {
    for (uint32_t n : frames) {
      IMetadata::setEntry<int32_t>(&in.history[n].metas[kAppMetaStream],
                                   ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, 1);
    }
  }
  static std::string form(uint32_t n) {
    return "[F" + std::to_string(n) + " R" + std::to_string(n) + " ts:" + std::to_string(tsOf(n)) +
           " ss=(1,1,1) locked=0 Recycle=0]";
  }

  LogCapture logs;
  CzRovaZslSelector selector;
  SelectInputParams in = makeStill(1, 0);
};

}  // namespace

TEST_F(MultiFrame, OldestQualifyingFramesUnderTheWantedKeys) {
  in.frameInfos = {{3, makeFrameInfo(0)}, {7, makeFrameInfo(0)}};
  // Only the first wanted frame's streams count.
  in.frameInfos[7].needStreams.halImages.insert(99);
  addHistory(in, 10, 14);
  spoil({11});
  EXPECT_EQ(run(0), (Chosen{{3, 10}, {7, 12}}));
  EXPECT_THAT(lines(), ElementsAre("multiFrameSelect: P select #2/2 hfs"));
}

TEST_F(MultiFrame, ZeroShutterStartNeverTakesOlderFrames) {
  addHistory(in, 10, 14);
  in.history[13].metas[kAppMetaStream] = appMeta(lensMoving());
  in.zsdTs = tsOf(12) + 1;
  EXPECT_EQ(run(kZsd | 0x1), (Chosen{{0, 14}}));
  in.zsdTs = tsOf(12);
  EXPECT_EQ(run(kZsd | 0x1), (Chosen{{0, 12}}));
  in.zsdTs = tsOf(13);
  spoil({14});
  EXPECT_THAT(run(kZsd | 0x1), IsEmpty());
  EXPECT_THAT(lines(), ElementsAre("multiFrameSelect: P zsdTs(396000001) => hf" + form(13),
                                   "multiFrameSelect: P select #1/1 hfs",
                                   "multiFrameSelect: P zsdTs(396000000) => hf" + form(12),
                                   "multiFrameSelect: P select #1/1 hfs",
                                   "multiFrameSelect: P zsdTs(429000000) => hf" + form(13),
                                   "multiFrameSelect: P select #0/1 hfs",
                                   "multiFrameSelect: P PENDING: sel(#0) < zf(#1)"));
}

TEST_F(MultiFrame, ZeroShutterNewerThanHistoryPendsUntilTimeout) {
  EXPECT_THAT(run(kZsd), IsEmpty());
  addHistory(in, 10, 14);
  in.zsdTs = tsOf(15);
  EXPECT_THAT(run(kZsd, 999), IsEmpty());
  EXPECT_EQ(run(kZsd, 1000), (Chosen{{0, 10}}));
  EXPECT_THAT(lines(), ElementsAre("multiFrameSelect: P zsdTs(0) => hf[null], do pending directly",
                                   "multiFrameSelect: P zsdTs(495000000) => hf[null], do pending "
                                   "directly",
                                   "multiFrameSelect: P select #1/1 hfs"));
}

TEST_F(MultiFrame, ContinuousRunBacksOffPastAFailure) {
  wanted(3);
  addHistory(in, 1, 6);
  spoil({3});
  EXPECT_EQ(run(kContinuous), (Chosen{{0, 4}, {1, 5}, {2, 6}}));
  spoil({5});
  EXPECT_THAT(run(kContinuous, 999), IsEmpty());
  EXPECT_EQ(run(kContinuous, 1000), (Chosen{{0, kNoFrame}, {1, kNoFrame}, {2, kNoFrame}}));
  std::string const from = "multiFrameSelect: P search continuous from hf" + form(1);
  EXPECT_THAT(lines(),
              ElementsAre(from, "multiFrameSelect: P select #3/3 hfs", from,
                          "multiFrameSelect: P cannot get continuous hfs",
                          "multiFrameSelect: P select #0/3 hfs",
                          "multiFrameSelect: P PENDING: sel(#0) < zf(#3)", from,
                          "multiFrameSelect: P cannot get continuous hfs",
                          "multiFrameSelect: P select #0/3 hfs",
                          "multiFrameSelect: P TIMEOUT: sel(#0) < zf(#3), change to non-Zsl"));
}

TEST_F(MultiFrame, ContinuousRunMayEndAtTheZeroShutterFrame) {
  wanted(3);
  addHistory(in, 15, 25);
  in.zsdTs = tsOf(20);
  EXPECT_EQ(run(kZsd | kContinuous), (Chosen{{0, 18}, {1, 19}, {2, 20}}));
  in.zsdTs = tsOf(16);
  EXPECT_EQ(run(kZsd | kContinuous), (Chosen{{0, 15}, {1, 16}, {2, 17}}));
  EXPECT_THAT(lines(), ElementsAre("multiFrameSelect: P zsdTs(660000000) => hf" + form(20),
                                   "multiFrameSelect: P search continuous from hf" + form(18),
                                   "multiFrameSelect: P select #3/3 hfs",
                                   "multiFrameSelect: P zsdTs(528000000) => hf" + form(16),
                                   "multiFrameSelect: P search continuous from hf" + form(15),
                                   "multiFrameSelect: P select #3/3 hfs"));
}

TEST_F(MultiFrame, TimeoutWaivesQualityButKeepsTheRest) {
  wanted(2);
  addHistory(in, 10, 12, lensMoving());
  EXPECT_THAT(run(0x1, 999), IsEmpty());
  EXPECT_EQ(run(0x1, 1000), (Chosen{{0, 10}, {1, 11}}));
  spoil({10, 11});
  EXPECT_EQ(run(0x1, 1000), (Chosen{{0, 12}, {1, kNoFrame}}));
  // The force-pending bit is not waived.
  EXPECT_EQ(run(0x1000000, 1000), (Chosen{{0, kNoFrame}, {1, kNoFrame}}));
  EXPECT_THAT(
      lines(),
      ElementsAre("multiFrameSelect: P select #0/2 hfs",
                  "multiFrameSelect: P PENDING: sel(#0) < zf(#2)",
                  "multiFrameSelect: P select #2/2 hfs", "multiFrameSelect: P select #1/2 hfs",
                  "multiFrameSelect: P TIMEOUT: sel(#1) < zf(#2), change to non-Zsl",
                  "multiFrameSelect: P select #0/2 hfs",
                  "multiFrameSelect: P TIMEOUT: sel(#0) < zf(#2), change to non-Zsl"));
}

TEST_F(MultiFrame, OnlyCheckedSensorsAreCompared) {
  addHistory(in, 10, 12);
  in.sensorModeTargets = {{0, 5}, {1, 9}};
  EXPECT_EQ(run(0), (Chosen{{0, 10}}));
  in.frameInfos[0].checkSensorIds = {1};
  EXPECT_THAT(run(0), IsEmpty());
  in.frameInfos[0].checkSensorIds = {0};
  IMetadata::setEntry<int32_t>(&in.history[12].metas[kHalMetaStream], ZEB_P1NODE_SENSOR_MODE, 5);
  EXPECT_EQ(run(0), (Chosen{{0, 12}}));
}

TEST_F(MultiFrame, PendingRequestServedOnceItsFrameArrives) {
  // A still capture through select: its zero-shutter frame is still in flight.
  SelectInputParams request = makeStill(5, tsOf(13));
  addHistory(request, 10, 12);
  EXPECT_THAT(chosen(selector.select(request)), IsEmpty());
  // F13 arrives still focusing, F14 settled: F13 is skipped, never an older frame.
  request.elapsedMs = 33;
  FrameState scanning;
  scanning.afState = 1;
  request.history[13] = makeFrame(13, tsOf(13), scanning);
  request.history[14] = makeFrame(14, tsOf(14));
  request.history.erase(10);
  EXPECT_EQ(chosen(selector.select(request)), (Chosen{{0, 14}}));
  EXPECT_THAT(
      lines(),
      ElementsAre(
          "multiFrameSelect: [r5,0/1000ms]<multiFrame> zsdTs(429000000) => "
          "hf[null], do pending directly",
          "multiFrameSelect: [r5,33/1000ms]<multiFrame> zsdTs(429000000) => hf" + form(13),
          "multiFrameSelect: [r5,33/1000ms]<multiFrame> search continuous from hf" + form(13),
          "multiFrameSelect: [r5,33/1000ms]<multiFrame> select #1/1 hfs"));
}
