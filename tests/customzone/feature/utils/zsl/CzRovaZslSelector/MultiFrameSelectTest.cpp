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
  // The selection's lines since the last call, each without its "multiFrameSelect: ".
  std::vector<std::string> lines() {
    std::vector<std::string> out;
    for (auto const& line : bothSinks(logs, {"multiFrameSelect"})) {
      out.push_back(line.rfind("multiFrameSelect: ", 0) == 0 ? line.substr(18) : line);
    }
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
  EXPECT_THAT(lines(), ElementsAre("P select #2/2 hfs"));
}

TEST_F(MultiFrame, ZeroShutterFrameStartsTheSearchAndPendsUntilItArrives) {
  EXPECT_THAT(run(kZsd), IsEmpty());
  addHistory(in, 10, 14);
  in.zsdTs = tsOf(15);
  EXPECT_THAT(run(kZsd, 999), IsEmpty());
  EXPECT_EQ(run(kZsd, 1000), (Chosen{{0, 10}}));
  // Never a frame older than the zero-shutter one.
  in.history[13].metas[kAppMetaStream] = appMeta(lensMoving());
  in.zsdTs = tsOf(12) + 1;
  EXPECT_EQ(run(kZsd | 0x1), (Chosen{{0, 14}}));
  in.zsdTs = tsOf(12);
  EXPECT_EQ(run(kZsd | 0x1), (Chosen{{0, 12}}));
  in.zsdTs = tsOf(13);
  spoil({14});
  EXPECT_THAT(run(kZsd | 0x1), IsEmpty());
  EXPECT_THAT(lines(), ElementsAre("P zsdTs(0) => hf[null], do pending directly",
                                   "P zsdTs(495000000) => hf[null], do pending directly",
                                   "P select #1/1 hfs", "P zsdTs(396000001) => hf" + form(13),
                                   "P select #1/1 hfs", "P zsdTs(396000000) => hf" + form(12),
                                   "P select #1/1 hfs", "P zsdTs(429000000) => hf" + form(13),
                                   "P select #0/1 hfs", "P PENDING: sel(#0) < zf(#1)"));
}

TEST_F(MultiFrame, ContinuousRunBacksOffPastAFailureAndMayEndAtTheZeroShutterFrame) {
  wanted(3);
  addHistory(in, 1, 6);
  spoil({3});
  EXPECT_EQ(run(kContinuous), (Chosen{{0, 4}, {1, 5}, {2, 6}}));
  spoil({5});
  EXPECT_THAT(run(kContinuous, 999), IsEmpty());
  EXPECT_EQ(run(kContinuous, 1000), (Chosen{{0, kNoFrame}, {1, kNoFrame}, {2, kNoFrame}}));
  std::string const from = "P search continuous from hf" + form(1);
  // A run may end at the zero-shutter frame.
  wanted(3);
  addHistory(in, 15, 25);
  in.zsdTs = tsOf(20);
  EXPECT_EQ(run(kZsd | kContinuous), (Chosen{{0, 18}, {1, 19}, {2, 20}}));
  in.zsdTs = tsOf(16);
  EXPECT_EQ(run(kZsd | kContinuous), (Chosen{{0, 15}, {1, 16}, {2, 17}}));
  EXPECT_THAT(lines(), ElementsAre(from, "P select #3/3 hfs", from, "P cannot get continuous hfs",
                                   "P select #0/3 hfs", "P PENDING: sel(#0) < zf(#3)", from,
                                   "P cannot get continuous hfs", "P select #0/3 hfs",
                                   "P TIMEOUT: sel(#0) < zf(#3), change to non-Zsl",
                                   "P zsdTs(660000000) => hf" + form(20),
                                   "P search continuous from hf" + form(18), "P select #3/3 hfs",
                                   "P zsdTs(528000000) => hf" + form(16),
                                   "P search continuous from hf" + form(15), "P select #3/3 hfs"));
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
  EXPECT_THAT(lines(),
              ElementsAre("P select #0/2 hfs", "P PENDING: sel(#0) < zf(#2)", "P select #2/2 hfs",
                          "P select #1/2 hfs", "P TIMEOUT: sel(#1) < zf(#2), change to non-Zsl",
                          "P select #0/2 hfs", "P TIMEOUT: sel(#0) < zf(#2), change to non-Zsl"));
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
      ElementsAre("[r5,0/1000ms]<multiFrame> zsdTs(429000000) => hf[null], do pending directly",
                  "[r5,33/1000ms]<multiFrame> zsdTs(429000000) => hf" + form(13),
                  "[r5,33/1000ms]<multiFrame> search continuous from hf" + form(13),
                  "[r5,33/1000ms]<multiFrame> select #1/1 hfs"));
}
