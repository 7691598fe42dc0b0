#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CzRovaZslSelectorUtils.h"
#include "ZslTestSupport.h"

using namespace zsltest;
using NSCam::CustZone::isAESoftStable;
using NSCam::CustZone::isAEStable;
using NSCam::CustZone::isAFStable;
using NSCam::CustZone::isFrameSync;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

HistoryFrame afFrame(uint8_t mode, uint8_t state, uint8_t lens) {
  FrameState fs;
  fs.afMode = mode;
  fs.afState = state;
  fs.lensState = lens;
  return makeFrame(1, tsOf(1), fs);
}

}  // namespace

TEST(StabilityChecks, EmptyWalks) {
  LogCapture logs;
  HistoryFrame bare = makeFrame(1, tsOf(1));
  bare.metas.clear();
  EXPECT_TRUE(isAFStable(bare, defaultStreams()));
  EXPECT_TRUE(isAEStable(bare, defaultStreams()));
  EXPECT_TRUE(isAESoftStable(bare, defaultStreams()));
  EXPECT_FALSE(isFrameSync(bare, defaultStreams()));

  // Nothing needed among the application metadata: AF and AE look at nothing.
  StreamSets noApp = defaultStreams();
  noApp.appMetas.clear();
  FrameState bad;
  bad.lensState = 1;
  bad.aeState = 4;
  EXPECT_TRUE(isAFStable(makeFrame(1, tsOf(1), bad), noApp));
  EXPECT_TRUE(isAEStable(makeFrame(1, tsOf(1), bad), noApp));
  EXPECT_THAT(bothSinks(logs), IsEmpty());
}

TEST(StabilityChecks, AutoFocusRule) {
  struct Case {
    uint8_t mode, state, lens;
    bool stable;
  } const cases[] = {
      {1, 4, 1, false}, {1, 3, 0, false}, {1, 2, 2, true},  {2, 5, 0, true},  {3, 6, 0, true},
      {4, 2, 0, true},  {4, 0, 0, true},  {4, 1, 0, false}, {4, 0, 2, false}, {4, 4, 1, false},
      {0, 1, 1, true},  {5, 3, 1, true},  {9, 0, 1, true},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(isAFStable(afFrame(c.mode, c.state, c.lens), defaultStreams()), c.stable)
        << "afMode=" << int(c.mode) << " afState=" << int(c.state) << " lens=" << int(c.lens);
  }
}

TEST(StabilityChecks, AutoFocusLines) {
  LogCapture logs;
  EXPECT_TRUE(isAFStable(afFrame(4, 2, 0), defaultStreams()));
  EXPECT_FALSE(isAFStable(afFrame(1, 4, 1), defaultStreams()));
  EXPECT_THAT(bothSinks(logs), ElementsAre("isAFStable: AF ok: afMode=4 afState=2 lensState=0",
                                           "isAFStable: AF fail: afMode=1 afState=4 lensState=1",
                                           "operator(): (0x40000001): AF X"));
}

TEST(StabilityChecks, AutoFocusMissingOrMistypedTagStopsTheWalk) {
  LogCapture logs;
  StreamSets need = defaultStreams();
  need.appMetas.insert(0x40000002);
  FrameState noState;
  noState.afState.reset();
  HistoryFrame hf = makeFrame(1, tsOf(1), noState);
  hf.metas[0x40000002] = IMetadata();  // would fail too, but is never examined
  EXPECT_FALSE(isAFStable(hf, need));

  HistoryFrame mistyped = makeFrame(2, tsOf(2));
  IMetadata::setEntry<int32_t>(&mistyped.metas[kAppMetaStream], ZEB_CONTROL_AF_MODE, 4);
  EXPECT_FALSE(isAFStable(mistyped, defaultStreams()));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("isAFStable: tag(0x10020) not found!", "operator(): (0x40000001): AF X",
                          "isAFStable: tag(0x10007) not found!", "operator(): (0x40000001): AF X"));
  EXPECT_EQ(logs.android()[0].priority, ANDROID_LOG_ERROR);
}

TEST(StabilityChecks, AutoExposure) {
  LogCapture logs;
  for (uint8_t state : {2, 3}) {
    FrameState fs;
    fs.aeState = state;
    EXPECT_TRUE(isAEStable(makeFrame(1, tsOf(1), fs), defaultStreams()));
  }
  FrameState flash;
  flash.aeState = 4;
  FrameState none;
  none.aeState.reset();
  logs.clear();
  EXPECT_FALSE(isAEStable(makeFrame(1, tsOf(1), flash), defaultStreams()));
  EXPECT_FALSE(isAEStable(makeFrame(1, tsOf(1), none), defaultStreams()));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("isMatched: [isAEStable] tag(0x1001f) val=4 target=2,3 bc=0",
                          "operator(): (0x40000001): AE X",
                          "isMatched: [isAEStable] tag(0x1001f) not found!",
                          "operator(): (0x40000001): AE X"));
}

TEST(StabilityChecks, SoftAutoExposureMissingTagPassesSilently) {
  LogCapture logs;
  FrameState fs;
  fs.aeSoftStable.reset();
  EXPECT_TRUE(isAESoftStable(makeFrame(1, tsOf(1), fs), defaultStreams()));
  EXPECT_THAT(bothSinks(logs), IsEmpty());
  EXPECT_TRUE(isAESoftStable(makeFrame(1, tsOf(1)), defaultStreams()));
  fs.aeSoftStable = 0;
  EXPECT_FALSE(isAESoftStable(makeFrame(1, tsOf(1), fs), defaultStreams()));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("isMatched: [isAESoftStable] tag(0xc003001c) val=1 target=1 bc=1",
                          "isMatched: [isAESoftStable] tag(0xc003001c) val=0 target=1 bc=1",
                          "operator(): (0x2000000): (soft) AE X"));
}

TEST(StabilityChecks, FrameSyncOneGoodBufferSuffices) {
  LogCapture logs;
  StreamSets need = defaultStreams();
  need.halMetas.insert(0x2000001);
  FrameState outOfSync;
  outOfSync.frameSync = 5;
  HistoryFrame hf = makeFrame(1, tsOf(1), outOfSync);
  hf.metas[0x2000001] = hf.metas[kHalMetaStream];
  EXPECT_FALSE(isFrameSync(hf, need));
  IMetadata::setEntry<int64_t>(&hf.metas[0x2000001], ZEB_FRAME_SYNC, 0);
  logs.clear();
  EXPECT_TRUE(isFrameSync(hf, need));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("isMatched: [isFrameSync] tag(0xc0080004) val=5 target=0 bc=1",
                          "operator(): (0x2000000): FrameSync X",
                          "isMatched: [isFrameSync] tag(0xc0080004) val=0 target=0 bc=1"));
  hf.metas[kHalMetaStream].remove(ZEB_FRAME_SYNC);
  EXPECT_TRUE(isFrameSync(hf, defaultStreams()));
}
