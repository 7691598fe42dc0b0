#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

constexpr int64_t kGapNs = 200'000'000;  // over the 130 ms frame gap

// The default route (no continuous-shot tag) leads here.
class SubSequence : public testing::Test, protected SeriesCalls {
 protected:
  SubSequence() : SeriesCalls(-1, "ispHidlSelect_SubSequence", "ispHidlSelect_SubSequence") {}

  // A new selector and pipeline whose members want these settings.
  void start(std::vector<uint8_t> psl, std::vector<int32_t> ev, bool reusePsl = false) {
    restart();
    wants.sensorModes.resize(std::max(psl.size(), ev.size()));
    wants.pslSettings = std::move(psl);
    wants.evSettings = std::move(ev);
    wants.reusePsl = reusePsl;
  }
  void announce(uint32_t n, uint8_t psl, int32_t ev) {
    wants.subSeqReqs[n].setting = (uint64_t{static_cast<uint32_t>(ev)} << 32) | psl;
  }
};

TEST_F(SubSequence, PslFramesAnnouncedInFlightAndLanding) {
  start({0, 0, 1, 1}, {0, 0, 0, 0});
  arrive(10, 13);
  wants.zsdTs = tsOf(11);
  capture(14, 14);
  announce(15, 1, 0);
  announce(16, 1, 0);
  EXPECT_EQ(ask(100, 0, 4), "F13 x10 x11 x12 -13 {13 14 15 16}");
  EXPECT_EQ("",
            missing({"EMPLACE: new IspHidlReqObj(100 - 0), existing IspHidlReqObj={index=100 }",
                     "select hf from ts:363000000", "outdate hf:10", "outdate hf:11",
                     "push psl frameNo:15", "push psl frameNo:16",
                     "DEBUG: curFrameNumbers={ F12 F13 F14 F15 F16}", "match frame:14 with index:2",
                     "ret:0 hisev:0 selectev:0 hispsl:0 selectpsl:1",
                     "reusePsl=0 i=4 usedReusePsl=0 firstSelectIndex=1 retryCnt=1 selectCnt=4",
                     "firstSelectIndex:1, frameNoList size:5 pslIndex=2 reusePsl=0",
                     "DEBUG: selectSubSequence={[0]F13 [1]F14 [2]F15 [3]F16 }",
                     "release hf:12 minMapFn=13", "release hf:12",
                     "MAPPING: (operate at R100) R100[hF13] R101[hF14] R102[hF15] R103[hF16] ",
                     "SELECT: R100 [hF13]"}));
  EXPECT_EQ(ask(101, 1, 4), "none");  // its frame still in flight
  arrive(14, 14);
  capture(15, 15, with(&FrameState::psl, 1));
  EXPECT_EQ(ask(101, 1, 4), "F14 -14");
  arrive(15, 16, with(&FrameState::psl, 1));
  EXPECT_EQ(ask(103, 3, 4), "none +15 +16");
  EXPECT_EQ("", missing({"DEBUG: cannot select R103 (FIFO), needSelectReqs={R102 R103 }",
                         "LOCK: (operate at R103) R102 [hF15]"}));
  EXPECT_EQ(ask(102, 2, 4), "F15/aux1 -15");  // past the PSL index
  EXPECT_EQ(ask(103, 3, 4), "F16/aux1 -16");
  EXPECT_EQ(lines().back(), line("ERASE: (operate at R103) IspHidlReqObj[index=100], remaining "
                                 "IspHidlReqObj={index=null }"));
}

TEST_F(SubSequence, DiscontinuityAndFramesPastTheList) {
  start({0, 0, 0}, {0, 0, 0});
  arrive(10, 12);
  history[13] = makeFrame(13, tsOf(13) + kGapNs);
  history[14] = makeFrame(14, tsOf(14) + kGapNs);
  EXPECT_EQ(ask(50, 0, 3), "F13 x10 x11 x12 -13 +14 {13 14 18}");
  EXPECT_EQ("", missing({"discontinuous hf:13, clear frameNoList",
                         "reusePsl=0 i=2 usedReusePsl=0 firstSelectIndex=0 retryCnt=1 selectCnt=2",
                         "reusePsl=0 i=2 usedReusePsl=1 firstSelectIndex=0 retryCnt=0 selectCnt=2",
                         "MAPPING: (operate at R50) R50[hF13] R51[hF14] R52[hF18] "}));
  arrive(15, 17);
  EXPECT_EQ(ask(51, 1, 3), "F14 -14");
  EXPECT_EQ(ask(52, 2, 3), "none");  // F18 not there yet, but not missed either
  arrive(18, 18);
  EXPECT_EQ(ask(52, 2, 3), "F18 -18");
}

TEST_F(SubSequence, TimeOuts) {
  // PSL index not 0: 1000 ms. No candidate at all: frames counted on from R.
  start({0, 0}, {0, 0});
  arrive(10, 10);
  wants.zsdTs = tsOf(10);
  EXPECT_EQ(ask(200, 0, 2, 999), "none x10 {203 204}");
  EXPECT_EQ(lines().back(), line("MAPPING: (operate at R200) R200[hF203] R201[hF204] "));
  EXPECT_EQ(ask(200, 0, 2, 1000), "noZsl -noZsl");
  EXPECT_EQ(lines().front(), line("MAPPING: (TIMEOUT: operate at R200) R200[hF4294967295] "
                                  "R201[hF4294967295] "));
  // A locked frame of an open request is unlocked.
  start({0, 0}, {0, 0});
  arrive(10, 11);
  EXPECT_EQ(ask(300, 0, 2), "F10 -10 +11 {10 11}");
  EXPECT_EQ(ask(301, 1, 2, 1000), "noZsl -11 -noZsl");
  EXPECT_EQ("", missing({"UNLOCK: (TIMEOUT: operate at R301) R301 [hF11]",
                         "MAPPING: (TIMEOUT: operate at R301) R300[hF10] "
                         "R301[hF4294967295] "}));
  // PSL index 0: 5000 ms; a series that times out before it is planned.
  start({1, 0}, {0, 0});
  EXPECT_EQ(ask(400, 0, 2, 4999), "none {403 404}");
  EXPECT_EQ(ask(500, 0, 2, 5000), "noZsl/aux1 -noZsl");
  EXPECT_EQ("", missing({"MAPPING: (TIMEOUT: operate at R500) R500[hF4294967295] "
                         "R501[hF4294967295] "}));
  EXPECT_TRUE(logs.androidWith("select hf from ts").empty());
}

TEST_F(SubSequence, ReusePslRetriesTheOtherArrangement) {
  // PSL frames first in the history: only the reused arrangement finds a whole run.
  start({0, 0, 1, 1}, {0, 0, 0, 0});
  arrive(40, 41, with(&FrameState::psl, 1));
  arrive(42, 43);
  EXPECT_EQ(ask(700, 0, 4), "F42 +40 +41 -42 +43 {40 41 42 43}");
  EXPECT_EQ("", missing({"ret:0 hisev:0 selectev:0 hispsl:1 selectpsl:0",
                         "reusePsl=0 i=2 usedReusePsl=0 firstSelectIndex=2 retryCnt=1 selectCnt=2",
                         "reusePsl=0 i=4 usedReusePsl=1 firstSelectIndex=0 retryCnt=0 selectCnt=4",
                         "DEBUG: selectSubSequence={[0]F42 [1]F43 [2]F40 [3]F41 }"}));
  EXPECT_EQ(ask(701, 1, 4), "F43 -43");
  EXPECT_EQ(ask(702, 2, 4), "F40/aux1 -40");  // this call asked for no reuse
  // Reuse asked for, but only the plain order is whole.
  start({0, 0, 1, 1}, {0, 0, 0, 0}, true);
  arrive(30, 31);
  arrive(32, 33, with(&FrameState::psl, 1));
  EXPECT_EQ(ask(800, 0, 4), "F30 -30 +31 +32 +33 {30 31 32 33}");
  EXPECT_EQ("", missing({"reusePsl=1 i=2 usedReusePsl=1 firstSelectIndex=2 retryCnt=1 selectCnt=2",
                         "reusePsl=1 i=4 usedReusePsl=0 firstSelectIndex=0 retryCnt=0 selectCnt=4",
                         "firstSelectIndex:0, frameNoList size:4 pslIndex=2 reusePsl=1"}));
}

TEST_F(SubSequence, VerificationFailuresFallBackToNonZsl) {
  // A frame lands with another EV than it was announced with.
  start({0, 0, 0}, {0, 0, 0});
  arrive(10, 10);
  capture(11, 12);
  EXPECT_EQ(ask(900, 0, 3), "F10 -10 {10 11 12}");
  arrive(12, 12);
  EXPECT_EQ(ask(902, 2, 3), "none +12");
  arrive(11, 11, with(&FrameState::ev, 2));
  EXPECT_EQ(ask(901, 1, 3), "noZsl -12 -noZsl");
  EXPECT_EQ("", missing({"cur req:901 first req:900",
                         "MAPPING: (Verify failed! operate at R901) R900[hF10] "
                         "R901[hF4294967295] R902[hF4294967295] "}));
  EXPECT_EQ(ask(902, 2, 3), "noZsl -noZsl");
  // An announced PSL frame that the pipeline has passed already.
  start({0, 1}, {0, 0});
  arrive(10, 10);
  announce(11, 1, 0);
  capture(12, 12);
  EXPECT_EQ(ask(1000, 0, 2), "F10 -10 {10}");
  EXPECT_EQ("", missing({"INVALID: R1001 fail to find F:11 in hf/inf",
                         "INVALID: R1001 fail to selected, remove F:11 from selectFrames",
                         "MAPPING: (Verify failed! operate at R1000) R1000[hF10] "
                         "R1001[hF4294967295] "}));
}

TEST_F(SubSequence, ReleaseWinsOverUnlockAndLock) {
  // Frames older than the shutter, reported in flight as well.
  start({0, 0}, {0, 0});
  arrive(10, 11);
  inflight[10] = makeInflight(10);
  inflight[11] = makeInflight(11);
  wants.zsdTs = tsOf(11);
  EXPECT_EQ(ask(1100, 0, 2), "F10 x10 x11 {10 11}");
  EXPECT_EQ("", missing({"LOCK: (operate at R1100) R1101 [hF11]"}));
}

TEST_F(SubSequence, BadInputGetsDefinedAnswers) {
  // An index at or past the count: no record, multi-frame answer.
  start({0, 0, 0}, {0, 0, 0});
  EXPECT_EQ(ask(1200, 3, 3), "none");
  EXPECT_TRUE(
      logs.hasLine(prefix() +
                   "INVALID: R1200 (idx=3) is outside its series of 3, use multiFrameSelect "
                   "with policy={ AFStable AESoftStable ZeroShutterDelay ContinuousFrame } "
                   "instead."));
  EXPECT_EQ(ask(1201, 1, 3), "none");
  EXPECT_EQ(lines(), said({"INVALID: fail to find IspHidlReqObj(1201 - 1), please check frame "
                           "count/index of R1201 (cnt=3, idx=1) : IspHidlReqObj={index=null }"}));
  // A member past the series as first planned.
  arrive(10, 11);
  EXPECT_EQ(ask(1300, 0, 2), "F10 -10 +11 {10 11}");
  ask(1302, 2, 3);
  EXPECT_TRUE(
      logs.hasLine(prefix() +
                   "INVALID: R1302 (idx=2) is outside its series of 2, use multiFrameSelect "
                   "with policy={ AFStable AESoftStable ZeroShutterDelay ContinuousFrame } "
                   "instead."));
  // Settings shorter than the count: missing EVs match any frame, verified against targetEv.
  start({}, {0});
  wants.targetEv = 2;
  arrive(20, 20);
  arrive(21, 22, with(&FrameState::ev, 2));
  EXPECT_EQ(ask(1400, 0, 3), "F20/aux1 -20 +21 +22 {20 21 22}");  // no PSL frame: PSL index 0
  EXPECT_EQ(lines().front(),
            line("INVALID: settings shorter than cnt=3 (psl=0 ev=1 sensorModes=1): a missing PSL "
                 "is 0, a missing EV or sensor mode matches any frame, EV verified against "
                 "targetEv=2"));
  EXPECT_EQ(ask(1401, 1, 3), "F21/aux1 -21");
}

TEST_F(SubSequence, SensorModeListsAndAnnouncedFramesInHistory) {
  start({0}, {0});
  wants.sensorModes = {std::unordered_map<uint32_t, uint32_t>{{7, 3}}};
  arrive(20, 20, with(&FrameState::sensorModeList, std::vector<int32_t>{7, 4}));
  arrive(21, 21, with(&FrameState::sensorModeList, std::vector<int32_t>{8, 3}));
  arrive(22, 22, with(&FrameState::sensorModeList, std::vector<int32_t>{3, 7, 7}));
  arrive(23, 23, with(&FrameState::sensorModeList, std::vector<int32_t>{7}));
  arrive(24, 24);
  history[24].metas[kAppMetaStream].update(ZEB_SENSOR_MODE_LIST,
                                           IMetadata::IEntry(ZEB_SENSOR_MODE_LIST));
  arrive(25, 25, with(&FrameState::sensorModeList, std::vector<int32_t>{7, 3}));
  EXPECT_EQ(ask(1500, 0, 1), "F24 x20 x21 x22 x23 -24 {24}");  // an empty list passes
  EXPECT_EQ("", missing({"ret:0 hissm:4 selectsm:3",
                         "INVALID: F22 sensor-mode list has odd length 3, its last item "
                         "is ignored",
                         "INVALID: F23 sensor-mode list has odd length 1, its last item "
                         "is ignored"}));
  EXPECT_TRUE(logs.androidWith("hissm:3 selectsm").empty());
  for (uint32_t n = 20; n <= 24; ++n) leave(n);
  EXPECT_EQ(ask(1501, 0, 1), "F25 -25 {25}");
  EXPECT_EQ("", missing({"ret:1 hissm:3 selectsm:3"}));
  // An announced frame already captured is judged by its own metadata.
  history.clear();
  arrive(30, 30);
  announce(30, 1, 0);
  EXPECT_EQ(ask(1502, 0, 1), "F30 -30 {30}");
  EXPECT_TRUE(logs.androidWith("push psl").empty());
}

TEST_F(SubSequence, WrappedRequestNumbersServeInRequestOrder) {
  start({0, 0}, {0, 0});
  arrive(10, 11);
  EXPECT_EQ(ask(0xFFFFFFFF, 0, 2), "none +10 +11 {10 11}");  // R0 is the smaller request
  EXPECT_EQ(ask(0, 1, 2), "F11 -11");
  EXPECT_EQ(ask(0xFFFFFFFF, 0, 2), "F10/aux1 -10");
  EXPECT_EQ(lines().back(), line("ERASE: (operate at R4294967295) IspHidlReqObj[index=4294967295], "
                                 "remaining IspHidlReqObj={index=null }"));
}

}  // namespace
