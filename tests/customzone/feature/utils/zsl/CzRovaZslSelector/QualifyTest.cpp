#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CzRovaZslSelectorUtils.h"
#include "ZslTestSupport.h"

using namespace zsltest;
using NSCam::CustZone::isQualify;
using NSCam::CustZone::SensorModeMap;
using testing::ElementsAre;

namespace {

constexpr uint32_t kAllQuality = 0xF;

// A frame that passes every check, with its PSL setting reported as 0.
HistoryFrame goodFrame(FrameState fs = {}) {
  if (!fs.psl) {
    fs.psl = 0;
  }
  return makeFrame(7, tsOf(7), fs);
}

bool qualify(HistoryFrame const& hf, uint32_t policy = kAllQuality, SensorModeMap const& modes = {},
             int32_t ev = 0, bool psl = false, bool timeout = false,
             StreamSets const& need = defaultStreams()) {
  return isQualify(hf, need, policy, timeout, modes, ev, psl);
}

}  // namespace

TEST(Qualify, PassingFrameRunsEveryCheckInOrder) {
  LogCapture logs;
  FrameState fs;
  fs.psl.reset();
  EXPECT_TRUE(qualify(makeFrame(7, tsOf(7), fs)));
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
                          "isQualify: hf[F7] OK"));
}

TEST(Qualify, ForcePendingRefusesBeforeAnythingIsRead) {
  LogCapture logs;
  HistoryFrame hf = goodFrame();
  hf.metas.clear();
  hf.ss = {};
  EXPECT_FALSE(qualify(hf, 0x1000000 | kAllQuality, {{0, 9}}, 3, true, true));
  EXPECT_THAT(bothSinks(logs), ElementsAre("isQualify: DEBUG: hf[F7] force pending..."));
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

TEST(Qualify, PslMustMatchTarget) {
  LogCapture logs(3, 0, 3);
  FrameState fs;
  fs.psl = 1;
  EXPECT_FALSE(qualify(goodFrame(fs), 0));
  fs.psl.reset();
  EXPECT_FALSE(qualify(makeFrame(7, tsOf(7), fs), 0, {}, 0, true));
  fs.psl = 2;
  EXPECT_FALSE(qualify(goodFrame(fs), 0, {}, 0, true));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("operator(): isRequiredPsl fail: Psl(History)=1, Psl(Target)=0",
                          "isQualify: hf[F7] does not include Psl=0",
                          "operator(): cannot get PSL setting, set default PSL=0",
                          "operator(): isRequiredPsl fail: Psl(History)=0, Psl(Target)=1",
                          "isQualify: hf[F7] does not include Psl=1",
                          "operator(): isRequiredPsl fail: Psl(History)=2, Psl(Target)=1",
                          "isQualify: hf[F7] does not include Psl=1"));
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

TEST(Qualify, SensorModesFromP1Buffers) {
  LogCapture logs(3, 0, 3);
  EXPECT_FALSE(qualify(goodFrame(), 0, {{0, 3}}));
  EXPECT_FALSE(qualify(goodFrame(), 0, {{1, 0}}));
  // Two P1 buffers of sensor 0: the lower stream id wins; one without a mode is passed over.
  HistoryFrame hf = goodFrame();
  IMetadata::setEntry<int32_t>(&hf.metas[0x2000010], ZEB_P1NODE_SENSOR_MODE, 5);
  hf.metas[0x2000002] = IMetadata();
  EXPECT_TRUE(qualify(hf, 0, {{0, 0}}));
  EXPECT_FALSE(qualify(hf, 0, {{0, 5}}));
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
          "isQualify: hf[F7] does not include all reqSensorModes"));
}

TEST(Qualify, SensorModesFromHalBuffersWhenNoP1Mode) {
  LogCapture logs(3, 0, 3);
  StreamSets need = defaultStreams();
  need.halMetas = {0x100};
  HistoryFrame hf = goodFrame();
  hf.ss.halMetas = {0x100};
  hf.metas.erase(kHalMetaStream);
  // Neither a P1 buffer nor a needed HAL buffer: an empty request still passes.
  EXPECT_TRUE(qualify(hf, 0, {}, 0, false, false, need));
  IMetadata::setEntry<int32_t>(&hf.metas[0x100], ZEB_P1NODE_SENSOR_MODE, 7);
  EXPECT_FALSE(qualify(hf, 0, {}, 0, false, false, need));
  IMetadata::setEntry<int32_t>(&hf.metas[0x100], ZEB_HAL_REQUEST_SENSOR_ID, 2);
  EXPECT_TRUE(qualify(hf, 0, {{2, 7}}, 0, false, false, need));
  hf.metas[0x100].remove(ZEB_P1NODE_SENSOR_MODE);
  EXPECT_FALSE(qualify(hf, 0, {}, 0, false, false, need));
  EXPECT_THAT(
      bothSinks(logs),
      ElementsAre("operator(): streamId(0x100): ZEB_HAL_REQUEST_SENSOR_ID(0xc0000004) not found!",
                  "isQualify: hf[F7] does not include all reqSensorModes",
                  "operator(): streamId(0x100): ZEB_P1NODE_SENSOR_MODE(0xc001000d) not found!",
                  "isQualify: hf[F7] does not include all reqSensorModes"));
}

TEST(Qualify, EvMustMatchTarget) {
  LogCapture logs(3, 0, 3);
  FrameState fs;
  fs.ev = 1;
  EXPECT_FALSE(qualify(goodFrame(fs), 0, {}, 0));
  fs.ev.reset();
  EXPECT_TRUE(qualify(goodFrame(fs), 0, {}, 0));
  EXPECT_FALSE(qualify(goodFrame(fs), 0, {}, -1));
  EXPECT_THAT(bothSinks(logs),
              ElementsAre("operator(): isRequiredEV fail: EV(History)=1, EV(Target)=0",
                          "isQualify: hf[F7] does not include tareget EV=0",
                          "operator(): cannot get EV setting, set default EV=0",
                          "operator(): cannot get EV setting, set default EV=0",
                          "operator(): isRequiredEV fail: EV(History)=0, EV(Target)=-1",
                          "isQualify: hf[F7] does not include tareget EV=-1"));
}

TEST(Qualify, TimeoutWaivesOnlyTheQualityBits) {
  LogCapture logs(3, 0, 3);
  FrameState moving;
  moving.lensState = 1;
  moving.aeState = 4;
  EXPECT_TRUE(qualify(goodFrame(moving), kAllQuality, {}, 0, false, true));
  moving.ev = 2;
  EXPECT_FALSE(qualify(goodFrame(moving), kAllQuality, {}, 0, false, true));
  EXPECT_THAT(bothSinks(logs, {"isQualify"}),
              ElementsAre("isQualify: TIMEOUT: take hf[F7] without checking quality",
                          "isQualify: hf[F7] does not include tareget EV=0"));
}

TEST(Qualify, QualityBitsInOrder) {
  LogCapture logs(2, 0, 3);
  FrameState bad;
  bad.lensState = 1;
  bad.aeState = 4;
  bad.aeSoftStable = 0;
  bad.frameSync = 3;
  for (uint32_t policy : {0xFu, 0xEu, 0xCu, 0x8u}) {
    EXPECT_FALSE(qualify(goodFrame(bad), policy));
  }
  EXPECT_TRUE(qualify(goodFrame(bad), 0x30000));
  // Frame sync needs a needed HAL buffer, unlike the other checks.
  HistoryFrame noHal = goodFrame();
  noHal.metas.erase(kHalMetaStream);
  StreamSets need = defaultStreams();
  need.halMetas.clear();
  EXPECT_TRUE(qualify(noHal, 0x7, {}, 0, false, false, need));
  EXPECT_FALSE(qualify(noHal, 0x8, {}, 0, false, false, need));
  EXPECT_THAT(bothSinks(logs, {"isQualify"}),
              ElementsAre("isQualify: hf[F7] AF X", "isQualify: hf[F7] AE X",
                          "isQualify: hf[F7] (soft) AE X", "isQualify: hf[F7] FrameSync X",
                          "isQualify: hf[F7] FrameSync X"));
}
