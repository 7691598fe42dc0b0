#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CzRovaZslSelectorUtils.h"
#include "ZslTestSupport.h"

using namespace zsltest;
using namespace NSCam::CustZone;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kAllQuality = 0xF;

HistoryFrame afFrame(uint8_t mode, uint8_t state, uint8_t lens) {
  FrameState fs;
  fs.afMode = mode;
  fs.afState = state;
  fs.lensState = lens;
  return makeFrame(1, tsOf(1), fs);
}

// F7 passing every check, with its PSL setting reported as 0 unless `fs` sets one.
HistoryFrame goodFrame(FrameState fs = {}) {
  if (!fs.psl) fs.psl = 0;
  return makeFrame(7, tsOf(7), fs);
}

bool qualify(HistoryFrame const& hf, uint32_t policy = kAllQuality, SensorModeMap const& modes = {},
             int32_t ev = 0, bool psl = false, bool timeout = false,
             StreamSets const& need = defaultStreams()) {
  return isQualify(hf, need, policy, timeout, modes, ev, psl);
}

}  // namespace

TEST(StringForms, StreamSetsFramesAndSensorModes) {
  StreamSets ss;
  EXPECT_EQ(toString(ss, true), "(0,0,0)");
  EXPECT_EQ(toString(ss, false), "halImages[]; halMetas[]; appMetas[]");
  ss.halImages = {2, 1};
  ss.halMetas = {3};
  ss.appMetas = {0x40000001, -1, 0};
  EXPECT_EQ(toString(ss, true), "(2,1,3)");
  EXPECT_EQ(toString(ss, false),
            "halImages[0x1 0x2 ]; halMetas[0x3 ]; appMetas[0xffffffff 0x0 0x40000001 ]");
  // The brief flag does not change a frame's form.
  HistoryFrame hf = makeFrame(120, 8123456789000);
  hf.requestNo = 57;
  hf.ss.halImages.insert(2);
  hf.Recycle = true;
  EXPECT_EQ(toString(hf, false), "[F120 R57 ts:8123456789000 ss=(2,1,1) locked=0 Recycle=1]");
  EXPECT_EQ(toString(hf, true), toString(hf, false));
  hf.frameNo = 0xFFFFFFFF;
  hf.ts = -5;
  hf.locked = true;
  hf.Recycle = false;
  EXPECT_EQ(toString(hf, true), "[F4294967295 R57 ts:-5 ss=(2,1,1) locked=1 Recycle=0]");
  // Sensor modes in the map's iteration order.
  SensorModeMap map;
  EXPECT_EQ(toString(map), "");
  map = {{3, 1}, {7, 0}, {0xFFFFFFFF, 0xFFFFFFFE}};
  std::string expected;
  for (auto const& [key, value] : map) {
    expected += "[" + std::to_string(key) + "]" + std::to_string(value) + " ";
  }
  EXPECT_EQ(toString(map), expected);
  EXPECT_NE(expected.find("[4294967295]4294967294 "), std::string::npos);
}

TEST(StringForms, PolicyWords) {
  EXPECT_EQ(toString(0u), "{ None }");
  EXPECT_EQ(toString(0x30005u), "{ AFStable AESoftStable ZeroShutterDelay ContinuousFrame }");
  EXPECT_EQ(toString(0x3u), "{ AFStable AEStable }");
  EXPECT_EQ(toString(0x2000Fu), "{ AFStable AEStable AESoftStable FrameSync ContinuousFrame }");
  EXPECT_EQ(toString(0x1000003u), "{ ForcePending }");
  EXPECT_EQ(toString(0xFFFFFFFFu), "{ ForcePending }");
  EXPECT_EQ(toString(0x30u), "{  }");
  EXPECT_EQ(toString(0x80000010u), "{  }");
  EXPECT_EQ(toString(0x10031u), "{ AFStable ZeroShutterDelay }");
}

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

TEST(StabilityChecks, AutoFocusLinesAndAMissingOrMistypedTagStopsTheWalk) {
  LogCapture logs;
  EXPECT_TRUE(isAFStable(afFrame(4, 2, 0), defaultStreams()));
  EXPECT_FALSE(isAFStable(afFrame(1, 4, 1), defaultStreams()));
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
              ElementsAre("isAFStable: AF ok: afMode=4 afState=2 lensState=0",
                          "isAFStable: AF fail: afMode=1 afState=4 lensState=1",
                          "operator(): (0x40000001): AF X", "isAFStable: tag(0x10020) not found!",
                          "operator(): (0x40000001): AF X", "isAFStable: tag(0x10007) not found!",
                          "operator(): (0x40000001): AF X"));
  EXPECT_EQ(logs.android()[3].priority, ANDROID_LOG_ERROR);
}

TEST(StabilityChecks, AutoExposure) {
  LogCapture logs;
  HistoryFrame hf = makeFrame(1, tsOf(1));
  IMetadata& app = hf.metas[kAppMetaStream];
  IMetadata& hal = hf.metas[kHalMetaStream];
  hal.remove(ZEB_AE_SOFT_STABLE);
  EXPECT_TRUE(isAESoftStable(hf, defaultStreams()));  // a missing soft tag passes silently
  EXPECT_THAT(bothSinks(logs), IsEmpty());
  EXPECT_TRUE(isAEStable(hf, defaultStreams()));
  IMetadata::setEntry<uint8_t>(&app, ZEB_CONTROL_AE_STATE, 3);
  EXPECT_TRUE(isAEStable(hf, defaultStreams()));
  IMetadata::setEntry<uint8_t>(&app, ZEB_CONTROL_AE_STATE, 4);
  EXPECT_FALSE(isAEStable(hf, defaultStreams()));
  app.remove(ZEB_CONTROL_AE_STATE);
  EXPECT_FALSE(isAEStable(hf, defaultStreams()));
  IMetadata::setEntry<int32_t>(&hal, ZEB_AE_SOFT_STABLE, 1);
  EXPECT_TRUE(isAESoftStable(hf, defaultStreams()));
  IMetadata::setEntry<int32_t>(&hal, ZEB_AE_SOFT_STABLE, 0);
  EXPECT_FALSE(isAESoftStable(hf, defaultStreams()));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("isMatched: [isAEStable] tag(0x1001f) val=2 target=2,3 bc=0",
                          "isMatched: [isAEStable] tag(0x1001f) val=3 target=2,3 bc=0",
                          "isMatched: [isAEStable] tag(0x1001f) val=4 target=2,3 bc=0",
                          "operator(): (0x40000001): AE X",
                          "isMatched: [isAEStable] tag(0x1001f) not found!",
                          "operator(): (0x40000001): AE X",
                          "isMatched: [isAESoftStable] tag(0xc003001c) val=1 target=1 bc=1",
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

TEST(Qualify, PassingFrameRunsEveryCheckInOrderAndForcePendingNone) {
  LogCapture logs;
  EXPECT_TRUE(qualify(makeFrame(7, tsOf(7))));
  // Force pending refuses before anything is read.
  HistoryFrame bare = goodFrame();
  bare.metas.clear();
  bare.ss = {};
  EXPECT_FALSE(qualify(bare, 0x1000000 | kAllQuality, {{0, 9}}, 3, true, true));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("operator(): cannot get PSL setting, set default PSL=0",
                          "operator(): isRequiredEV OK: Psl=0",
                          "operator(): isRequiredSensorMode OK: sensorModes={history={[0]0 } "
                          "request={}",
                          "operator(): cannot get PSL setting, set default PSL=0",
                          "operator(): streamId(0x40000001): get EV setting=0",
                          "operator(): isRequiredEV OK: EV=0",
                          "isAFStable: AF ok: afMode=4 afState=2 lensState=0",
                          "isMatched: [isAEStable] tag(0x1001f) val=2 target=2,3 bc=0",
                          "isMatched: [isAESoftStable] tag(0xc003001c) val=1 target=1 bc=1",
                          "isMatched: [isFrameSync] tag(0xc0080004) val=0 target=0 bc=1",
                          "isQualify: hf[F7] OK", "isQualify: DEBUG: hf[F7] force pending..."));
}

TEST(Qualify, StreamsMustBeSubsets) {
  LogCapture logs(2, 0, 3);
  StreamSets need = defaultStreams();
  need.halImages = {0, 1};
  EXPECT_FALSE(qualify(goodFrame(), 0, {}, 0, false, false, need));
  EXPECT_TRUE(qualify(goodFrame(), 0, {}, 0, false, false, StreamSets{}));
  HistoryFrame wide = goodFrame();
  wide.ss.halImages = {0, 1, 2, 3};
  EXPECT_TRUE(qualify(wide, 0, {}, 0, false, false, need));
  need.halImages = {0, 4};
  EXPECT_FALSE(qualify(wide, 0, {}, 0, false, false, need));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("isQualify: hf[F7]{(1,1,1)} does not include all needStreams{(2,1,1)}",
                          "operator(): cannot get PSL setting, set default PSL=0",
                          "operator(): cannot get PSL setting, set default PSL=0",
                          "operator(): cannot get EV setting, set default EV=0",
                          "isQualify: hf[F7]{(4,1,1)} does not include all needStreams{(2,1,1)}"));
}

TEST(Qualify, PslAndEvMustMatchTheirTargets) {
  LogCapture logs(3, 0, 3);
  FrameState fs;
  fs.psl = 1;
  EXPECT_FALSE(qualify(goodFrame(fs), 0));
  EXPECT_FALSE(qualify(makeFrame(7, tsOf(7)), 0, {}, 0, true));
  fs.psl = 2;
  EXPECT_FALSE(qualify(goodFrame(fs), 0, {}, 0, true));
  fs = {};
  fs.ev = 1;
  EXPECT_FALSE(qualify(goodFrame(fs), 0, {}, 0));
  fs.ev.reset();
  EXPECT_TRUE(qualify(goodFrame(fs), 0, {}, 0));
  EXPECT_FALSE(qualify(goodFrame(fs), 0, {}, -1));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("operator(): isRequiredPsl fail: Psl(History)=1, Psl(Target)=0",
                          "isQualify: hf[F7] does not include Psl=0",
                          "operator(): cannot get PSL setting, set default PSL=0",
                          "operator(): isRequiredPsl fail: Psl(History)=0, Psl(Target)=1",
                          "isQualify: hf[F7] does not include Psl=1",
                          "operator(): isRequiredPsl fail: Psl(History)=2, Psl(Target)=1",
                          "isQualify: hf[F7] does not include Psl=1",
                          "operator(): isRequiredEV fail: EV(History)=1, EV(Target)=0",
                          "isQualify: hf[F7] does not include tareget EV=0",
                          "operator(): cannot get EV setting, set default EV=0",
                          "operator(): cannot get EV setting, set default EV=0",
                          "operator(): isRequiredEV fail: EV(History)=0, EV(Target)=-1",
                          "isQualify: hf[F7] does not include tareget EV=-1"));
}

TEST(Qualify, PslFrameSkipsTheEvCheck) {
  LogCapture logs;
  // The PSL setting sits in the second needed application buffer only.
  StreamSets need = defaultStreams();
  need.appMetas.insert(0x40000002);
  FrameState fs;
  fs.ev = 3;
  HistoryFrame hf = makeFrame(7, tsOf(7), fs);
  hf.ss.appMetas.insert(0x40000002);
  IMetadata::setEntry<uint8_t>(&hf.metas[0x40000002], ZEB_PSL_SETTING, 1);
  EXPECT_TRUE(qualify(hf, 0, {}, -2, true, false, need));
  EXPECT_THAT(bothSinks(logs, {"operator()"}),
              ElementsAre("operator(): streamId(0x40000002): get PSL setting=1",
                          "operator(): isRequiredEV OK: Psl=1",
                          "operator(): isRequiredSensorMode OK: sensorModes={history={[0]0 } "
                          "request={}",
                          "operator(): streamId(0x40000002): get PSL setting=1",
                          "operator(): psl frame skip check ev"));
}

TEST(Qualify, SensorModesFromP1BuffersOrElseFromHalBuffers) {
  LogCapture logs(3, 0, 3);
  EXPECT_FALSE(qualify(goodFrame(), 0, {{0, 3}}));
  EXPECT_FALSE(qualify(goodFrame(), 0, {{1, 0}}));
  // Two P1 buffers of sensor 0: the lower stream id wins; one without a mode is passed over.
  HistoryFrame hf = goodFrame();
  IMetadata::setEntry<int32_t>(&hf.metas[0x2000010], ZEB_P1NODE_SENSOR_MODE, 5);
  hf.metas[0x2000002] = IMetadata();
  EXPECT_TRUE(qualify(hf, 0, {{0, 0}}));
  EXPECT_FALSE(qualify(hf, 0, {{0, 5}}));
  // No P1 buffer: the needed HAL buffers.
  StreamSets need = defaultStreams();
  need.halMetas = {0x100};
  hf = goodFrame();
  hf.ss.halMetas = {0x100};
  hf.metas.erase(kHalMetaStream);
  EXPECT_TRUE(qualify(hf, 0, {}, 0, false, false, need));  // neither: an empty request passes
  IMetadata::setEntry<int32_t>(&hf.metas[0x100], ZEB_P1NODE_SENSOR_MODE, 7);
  EXPECT_FALSE(qualify(hf, 0, {}, 0, false, false, need));
  IMetadata::setEntry<int32_t>(&hf.metas[0x100], ZEB_HAL_REQUEST_SENSOR_ID, 2);
  EXPECT_TRUE(qualify(hf, 0, {{2, 7}}, 0, false, false, need));
  hf.metas[0x100].remove(ZEB_P1NODE_SENSOR_MODE);
  EXPECT_FALSE(qualify(hf, 0, {}, 0, false, false, need));
  EXPECT_THAT(
      bothSinks(logs),
      ElementsAre(
          "operator(): check sensorMode(3) fail: sensorModes={history={[0]0 } "
          "request={[0]3 }",
          "isQualify: hf[F7] does not include all reqSensorModes",
          "operator(): check sensorId(1) fail: sensorModes={history={[0]0 } request={[1]0 }",
          "isQualify: hf[F7] does not include all reqSensorModes",
          "operator(): streamId(0x2000002): ZEB_P1NODE_SENSOR_MODE(0xc001000d) not found!",
          "operator(): streamId(0x2000002): ZEB_P1NODE_SENSOR_MODE(0xc001000d) not found!",
          "operator(): check sensorMode(5) fail: sensorModes={history={[0]0 } "
          "request={[0]5 }",
          "isQualify: hf[F7] does not include all reqSensorModes",
          "operator(): streamId(0x100): ZEB_HAL_REQUEST_SENSOR_ID(0xc0000004) not found!",
          "isQualify: hf[F7] does not include all reqSensorModes",
          "operator(): streamId(0x100): ZEB_P1NODE_SENSOR_MODE(0xc001000d) not found!",
          "isQualify: hf[F7] does not include all reqSensorModes"));
}

TEST(Qualify, QualityBitsInOrderAndTheTimeoutWaivesOnlyThem) {
  LogCapture logs(2, 0, 3);
  FrameState bad;
  bad.lensState = 1;
  bad.aeState = 4;
  bad.aeSoftStable = 0;
  bad.frameSync = 3;
  for (uint32_t policy : {0xFu, 0xEu, 0xCu, 0x8u}) EXPECT_FALSE(qualify(goodFrame(bad), policy));
  EXPECT_TRUE(qualify(goodFrame(bad), 0x30000));
  // Frame sync needs a needed HAL buffer, unlike the other checks.
  HistoryFrame noHal = goodFrame();
  noHal.metas.erase(kHalMetaStream);
  StreamSets need = defaultStreams();
  need.halMetas.clear();
  EXPECT_TRUE(qualify(noHal, 0x7, {}, 0, false, false, need));
  EXPECT_FALSE(qualify(noHal, 0x8, {}, 0, false, false, need));
  LogCapture::setGates(3, 0, 3);
  EXPECT_TRUE(qualify(goodFrame(bad), kAllQuality, {}, 0, false, true));
  bad.ev = 2;
  EXPECT_FALSE(qualify(goodFrame(bad), kAllQuality, {}, 0, false, true));
  EXPECT_THAT(bothSinks(logs, {"isQualify"}),
              ElementsAre("isQualify: hf[F7] AF X", "isQualify: hf[F7] AE X",
                          "isQualify: hf[F7] (soft) AE X", "isQualify: hf[F7] FrameSync X",
                          "isQualify: hf[F7] FrameSync X",
                          "isQualify: TIMEOUT: take hf[F7] without checking quality",
                          "isQualify: hf[F7] does not include tareget EV=0"));
}
