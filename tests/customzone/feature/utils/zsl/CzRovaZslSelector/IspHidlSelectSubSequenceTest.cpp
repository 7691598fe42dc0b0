#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

using Modes = std::unordered_map<uint32_t, uint32_t>;
using Frames = std::vector<std::pair<int32_t, uint32_t>>;
using Ops = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr uint32_t kLock = 0;
constexpr uint32_t kUnlock = 1;
constexpr uint32_t kRelease = 2;
constexpr int64_t kGapNs = 200'000'000;  // over the 130 ms frame gap

// The series host with the wanted settings, shutter time and announced frames
// that every member carries; released frames leave the history.
struct Pipeline : SeriesHost {
  SelectInputParams wants;

  Pipeline(std::vector<uint8_t> psl, std::vector<int32_t> ev, bool reusePsl = false) {
    wants.sensorModes.resize(std::max(psl.size(), ev.size()));
    wants.pslSettings = std::move(psl);
    wants.evSettings = std::move(ev);
    wants.reusePsl = reusePsl;
  }
  void announce(uint32_t n, uint8_t psl, int32_t ev) {
    wants.subSeqReqs[n].setting = (uint64_t{static_cast<uint32_t>(ev)} << 32) | psl;
  }
  SelectOutputParams ask(uint32_t r, int32_t idx, int32_t cnt, int64_t elapsedMs = 0) {
    SelectInputParams in = member(r, idx, cnt, elapsedMs);
    in.zsdTs = wants.zsdTs;
    in.targetEv = wants.targetEv;
    in.pslSettings = wants.pslSettings;
    in.evSettings = wants.evSettings;
    in.sensorModes = wants.sensorModes;
    in.reusePsl = wants.reusePsl;
    in.subSeqReqs = wants.subSeqReqs;
    SelectOutputParams out = serve(in);
    for (auto const& [frame, op] : out.ops) {
      if (op == OpT::Release) leave(frame);
    }
    return out;
  }
};

FrameState psl1() {
  FrameState s;
  s.psl = 1;
  return s;
}
FrameState withEv(int32_t ev) {
  FrameState s;
  s.ev = ev;
  return s;
}
FrameState withModes(std::vector<int32_t> list) {
  FrameState s;
  s.sensorModeList = std::move(list);
  return s;
}

uint32_t auxOf(SelectOutputParams const& out) { return out.frames.at(0).aux; }

std::string prefix(uint32_t r, int32_t idx, int32_t cnt, int64_t elapsedMs = 0) {
  return "[r" + std::to_string(r) + "," + std::to_string(elapsedMs) +
         "/1000ms]<ispHidlSelect_SubSequence>IspHidl(" + std::to_string(idx) + "/" +
         std::to_string(cnt) + ")";
}

void expectLines(LogCapture const& logs, std::vector<std::string> const& lines) {
  for (auto const& line : lines) {
    EXPECT_TRUE(logs.hasLine(line)) << line;
  }
}

}  // namespace

TEST(SubSequence, PslFramesAnnouncedInFlightAndLanding) {
  LogCapture logs;
  Pipeline p({0, 0, 1, 1}, {0, 0, 0, 0});
  p.arrive(10, 13);
  p.wants.zsdTs = tsOf(11);
  p.capture(14, 14);
  p.announce(15, 1, 0);
  p.announce(16, 1, 0);

  auto out = p.ask(100, 0, 4);
  EXPECT_EQ(chosen(out), (Frames{{0, 13}}));
  EXPECT_EQ(auxOf(out), 0u);
  EXPECT_EQ(opsOf(out), (Ops{{10, kRelease}, {11, kRelease}, {12, kRelease}, {13, kUnlock}}));
  EXPECT_EQ(out.frameSet, (std::set<uint32_t>{13, 14, 15, 16}));
  std::string const pre = prefix(100, 0, 4);
  expectLines(
      logs, {pre + " EMPLACE: new IspHidlReqObj(100 - 0), existing IspHidlReqObj={index=100 }",
             "select hf from ts:363000000", "outdate hf:10", "outdate hf:11", "push psl frameNo:15",
             "push psl frameNo:16", pre + " DEBUG: curFrameNumbers={ F12 F13 F14 F15 F16}",
             "match frame:14 with index:2", "ret:0 hisev:0 selectev:0 hispsl:0 selectpsl:1",
             "reusePsl=0 i=4 usedReusePsl=0 firstSelectIndex=1 retryCnt=1 selectCnt=4",
             "firstSelectIndex:1, frameNoList size:5 pslIndex=2 reusePsl=0",
             pre + " DEBUG: selectSubSequence={[0]F13 [1]F14 [2]F15 [3]F16 }",
             "release hf:12 minMapFn=13", "release hf:12",
             pre + " MAPPING: (operate at R100) R100[hF13] R101[hF14] R102[hF15] R103[hF16] ",
             pre + " SELECT: R100 [hF13]"});
  for (auto const& line : logs.unified()) {
    if (line.body == "select hf from ts:363000000") {
      EXPECT_EQ(line.function, "ispHidlSelect_SubSequence");
    }
  }

  // Its frame still in flight, R101 waits without a word.
  EXPECT_TRUE(p.ask(101, 1, 4).frames.empty());
  p.arrive(14, 14);
  p.capture(15, 15, psl1());
  out = p.ask(101, 1, 4);
  EXPECT_EQ(chosen(out), (Frames{{0, 14}}));
  EXPECT_EQ(auxOf(out), 0u);

  p.arrive(15, 16, psl1());
  logs.clear();
  out = p.ask(103, 3, 4);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(opsOf(out), (Ops{{15, kLock}, {16, kLock}}));
  std::string const pre3 = prefix(103, 3, 4);
  expectLines(logs, {pre3 + " DEBUG: cannot select R103 (FIFO), needSelectReqs={R102 R103 }",
                     pre3 + " LOCK: (operate at R103) R102 [hF15]"});

  out = p.ask(102, 2, 4);
  EXPECT_EQ(chosen(out), (Frames{{0, 15}}));
  EXPECT_EQ(auxOf(out), 1u);  // past the PSL index
  EXPECT_EQ(opsOf(out), (Ops{{15, kUnlock}}));
  out = p.ask(103, 3, 4);
  EXPECT_EQ(chosen(out), (Frames{{0, 16}}));
  EXPECT_TRUE(logs.hasLine(pre3 + " ERASE: (operate at R103) IspHidlReqObj[index=100], remaining "
                                  "IspHidlReqObj={index=null }"));
}

TEST(SubSequence, DiscontinuityAndFramesPastTheList) {
  LogCapture logs;
  Pipeline p({0, 0, 0}, {0, 0, 0});
  p.arrive(10, 12);
  p.history[13] = makeFrame(13, tsOf(13) + kGapNs);
  p.history[14] = makeFrame(14, tsOf(14) + kGapNs);

  auto out = p.ask(50, 0, 3);
  EXPECT_EQ(chosen(out), (Frames{{0, 13}}));
  EXPECT_EQ(opsOf(out),
            (Ops{{10, kRelease}, {11, kRelease}, {12, kRelease}, {13, kUnlock}, {14, kLock}}));
  expectLines(logs,
              {"discontinuous hf:13, clear frameNoList",
               "reusePsl=0 i=2 usedReusePsl=0 firstSelectIndex=0 retryCnt=1 selectCnt=2",
               "reusePsl=0 i=2 usedReusePsl=1 firstSelectIndex=0 retryCnt=0 selectCnt=2",
               prefix(50, 0, 3) + " MAPPING: (operate at R50) R50[hF13] R51[hF14] R52[hF18] "});

  p.arrive(15, 17);
  EXPECT_EQ(chosen(p.ask(51, 1, 3)), (Frames{{0, 14}}));
  EXPECT_TRUE(p.ask(52, 2, 3).frames.empty());  // F18 not there yet, but not missed either
  p.arrive(18, 18);
  out = p.ask(52, 2, 3);
  EXPECT_EQ(chosen(out), (Frames{{0, 18}}));
  EXPECT_EQ(opsOf(out), (Ops{{18, kUnlock}}));
}

TEST(SubSequence, TimeOuts) {
  LogCapture logs;
  // PSL index not 0: 1000 ms. No candidate at all: frames counted on from R.
  Pipeline p({0, 0}, {0, 0});
  p.arrive(10, 10);
  p.wants.zsdTs = tsOf(10);
  EXPECT_TRUE(p.ask(200, 0, 2, 999).frames.empty());
  EXPECT_TRUE(logs.hasLine(prefix(200, 0, 2, 999) +
                           " MAPPING: (operate at R200) R200[hF203] R201[hF204] "));
  auto out = p.ask(200, 0, 2, 1000);
  EXPECT_EQ(chosen(out), (Frames{{0, kNoFrame}}));
  EXPECT_EQ(opsOf(out), (Ops{{kNoFrame, kUnlock}}));
  EXPECT_TRUE(logs.hasLine(prefix(200, 0, 2, 1000) +
                           " MAPPING: (TIMEOUT: operate at R200) R200[hF4294967295] "
                           "R201[hF4294967295] "));

  // A locked frame of an open request is unlocked.
  Pipeline q({0, 0}, {0, 0});
  q.arrive(10, 11);
  EXPECT_EQ(opsOf(q.ask(300, 0, 2)), (Ops{{10, kUnlock}, {11, kLock}}));
  out = q.ask(301, 1, 2, 1000);
  EXPECT_EQ(chosen(out), (Frames{{0, kNoFrame}}));
  EXPECT_EQ(opsOf(out), (Ops{{11, kUnlock}, {kNoFrame, kUnlock}}));
  expectLines(logs, {prefix(301, 1, 2, 1000) + " UNLOCK: (TIMEOUT: operate at R301) R301 [hF11]",
                     prefix(301, 1, 2, 1000) +
                         " MAPPING: (TIMEOUT: operate at R301) R300[hF10] R301[hF4294967295] "});

  // PSL index 0: 5000 ms; a series that times out before it is planned.
  Pipeline r({1, 0}, {0, 0});
  EXPECT_TRUE(r.ask(400, 0, 2, 4999).frames.empty());
  logs.clear();
  out = r.ask(500, 0, 2, 5000);
  EXPECT_EQ(chosen(out), (Frames{{0, kNoFrame}}));
  EXPECT_EQ(auxOf(out), 1u);
  EXPECT_TRUE(logs.hasLine(prefix(500, 0, 2, 5000) +
                           " MAPPING: (TIMEOUT: operate at R500) R500[hF4294967295] "
                           "R501[hF4294967295] "));
  EXPECT_TRUE(logs.androidWith("select hf from ts").empty());
}

TEST(SubSequence, ReusePslRetriesTheOtherArrangement) {
  LogCapture logs;
  // PSL frames first in the history: only the reused arrangement finds a whole run.
  Pipeline p({0, 0, 1, 1}, {0, 0, 0, 0});
  p.arrive(40, 41, psl1());
  p.arrive(42, 43);
  auto out = p.ask(700, 0, 4);
  EXPECT_EQ(chosen(out), (Frames{{0, 42}}));
  EXPECT_EQ(auxOf(out), 0u);
  EXPECT_EQ(opsOf(out), (Ops{{40, kLock}, {41, kLock}, {42, kUnlock}, {43, kLock}}));
  expectLines(logs,
              {"ret:0 hisev:0 selectev:0 hispsl:1 selectpsl:0",
               "reusePsl=0 i=2 usedReusePsl=0 firstSelectIndex=2 retryCnt=1 selectCnt=2",
               "reusePsl=0 i=4 usedReusePsl=1 firstSelectIndex=0 retryCnt=0 selectCnt=4",
               prefix(700, 0, 4) + " DEBUG: selectSubSequence={[0]F42 [1]F43 [2]F40 [3]F41 }"});
  EXPECT_EQ(chosen(p.ask(701, 1, 4)), (Frames{{0, 43}}));
  out = p.ask(702, 2, 4);
  EXPECT_EQ(chosen(out), (Frames{{0, 40}}));
  EXPECT_EQ(auxOf(out), 1u);  // this call asked for no reuse

  // Reuse asked for, but only the plain order is whole.
  Pipeline q({0, 0, 1, 1}, {0, 0, 0, 0}, true);
  q.arrive(30, 31);
  q.arrive(32, 33, psl1());
  logs.clear();
  EXPECT_EQ(chosen(q.ask(800, 0, 4)), (Frames{{0, 30}}));
  expectLines(logs, {"reusePsl=1 i=2 usedReusePsl=1 firstSelectIndex=2 retryCnt=1 selectCnt=2",
                     "reusePsl=1 i=4 usedReusePsl=0 firstSelectIndex=0 retryCnt=0 selectCnt=4",
                     "firstSelectIndex:0, frameNoList size:4 pslIndex=2 reusePsl=1"});
}

TEST(SubSequence, VerificationFailuresFallBackToNonZsl) {
  LogCapture logs;
  // A frame lands with another EV than it was announced with.
  Pipeline p({0, 0, 0}, {0, 0, 0});
  p.arrive(10, 10);
  p.capture(11, 12);
  EXPECT_EQ(chosen(p.ask(900, 0, 3)), (Frames{{0, 10}}));
  p.arrive(12, 12);
  EXPECT_EQ(opsOf(p.ask(902, 2, 3)), (Ops{{12, kLock}}));
  p.arrive(11, 11, withEv(2));
  auto out = p.ask(901, 1, 3);
  EXPECT_EQ(chosen(out), (Frames{{0, kNoFrame}}));
  EXPECT_EQ(opsOf(out), (Ops{{12, kUnlock}, {kNoFrame, kUnlock}}));
  expectLines(logs, {"cur req:901 first req:900",
                     prefix(901, 1, 3) + " MAPPING: (Verify failed! operate at R901) R900[hF10] "
                                         "R901[hF4294967295] R902[hF4294967295] "});
  EXPECT_EQ(chosen(p.ask(902, 2, 3)), (Frames{{0, kNoFrame}}));

  // An announced PSL frame that the pipeline has passed already.
  Pipeline q({0, 1}, {0, 0});
  q.arrive(10, 10);
  q.announce(11, 1, 0);
  q.capture(12, 12);
  logs.clear();
  out = q.ask(1000, 0, 2);
  EXPECT_EQ(chosen(out), (Frames{{0, 10}}));
  EXPECT_EQ(out.frameSet, (std::set<uint32_t>{10}));
  std::string const pre = prefix(1000, 0, 2);
  expectLines(logs, {pre + " INVALID: R1001 fail to find F:11 in hf/inf",
                     pre + " INVALID: R1001 fail to selected, remove F:11 from selectFrames",
                     pre + " MAPPING: (Verify failed! operate at R1000) R1000[hF10] "
                           "R1001[hF4294967295] "});
}

TEST(SubSequence, ReleaseWinsOverUnlockAndLock) {
  LogCapture logs;
  // Frames older than the shutter, reported in flight as well.
  Pipeline p({0, 0}, {0, 0});
  p.arrive(10, 11);
  p.inflight[10] = makeInflight(10);
  p.inflight[11] = makeInflight(11);
  p.wants.zsdTs = tsOf(11);
  auto out = p.ask(1100, 0, 2);
  EXPECT_EQ(chosen(out), (Frames{{0, 10}}));
  EXPECT_EQ(opsOf(out), (Ops{{10, kRelease}, {11, kRelease}}));
  EXPECT_TRUE(logs.hasLine(prefix(1100, 0, 2) + " LOCK: (operate at R1100) R1101 [hF11]"));
}

TEST(SubSequence, BadInputGetsDefinedAnswers) {
  LogCapture logs;
  Pipeline p({0, 0, 0}, {0, 0, 0});
  // An index at or past the count: no record, multi-frame answer.
  EXPECT_TRUE(p.ask(1200, 3, 3).frames.empty());
  EXPECT_TRUE(p.ask(1201, 1, 3).frames.empty());
  expectLines(
      logs,
      {prefix(1200, 3, 3) + " INVALID: R1200 (idx=3) is outside its series of 3, use "
                            "multiFrameSelect with policy={ AFStable AESoftStable ZeroShutterDelay "
                            "ContinuousFrame } instead.",
       prefix(1201, 1, 3) + " INVALID: fail to find IspHidlReqObj(1201 - 1), please check frame "
                            "count/index of R1201 (cnt=3, idx=1) : IspHidlReqObj={index=null }"});

  // A member past the series as first planned.
  p.arrive(10, 11);
  EXPECT_EQ(chosen(p.ask(1300, 0, 2)), (Frames{{0, 10}}));
  p.ask(1302, 2, 3);
  EXPECT_TRUE(logs.hasLine(prefix(1302, 2, 3) +
                           " INVALID: R1302 (idx=2) is outside its series of 2, use "
                           "multiFrameSelect with policy={ AFStable AESoftStable "
                           "ZeroShutterDelay ContinuousFrame } instead."));

  // Settings shorter than the count: missing EVs match any frame, verified against targetEv.
  Pipeline s({}, {0});
  s.wants.targetEv = 2;
  s.arrive(20, 20);
  s.arrive(21, 22, withEv(2));
  auto out = s.ask(1400, 0, 3);
  EXPECT_EQ(chosen(out), (Frames{{0, 20}}));
  EXPECT_EQ(auxOf(out), 1u);  // no PSL frame: the PSL index is 0
  EXPECT_TRUE(logs.hasLine(prefix(1400, 0, 3) +
                           " INVALID: settings shorter than cnt=3 (psl=0 ev=1 sensorModes=1): a "
                           "missing PSL is 0, a missing EV or sensor mode matches any frame, EV "
                           "verified against targetEv=2"));
  EXPECT_EQ(chosen(s.ask(1401, 1, 3)), (Frames{{0, 21}}));
}

TEST(SubSequence, SensorModeListsAndAnnouncedFramesInHistory) {
  LogCapture logs;
  Pipeline p({0}, {0});
  p.wants.sensorModes = {Modes{{7, 3}}};
  p.arrive(20, 20, withModes({7, 4}));
  p.arrive(21, 21, withModes({8, 3}));
  p.arrive(22, 22, withModes({3, 7, 7}));
  p.arrive(23, 23, withModes({7}));
  p.arrive(24, 24);
  IMetadata::IEntry empty(ZEB_SENSOR_MODE_LIST);
  p.history[24].metas[kAppMetaStream].update(ZEB_SENSOR_MODE_LIST, empty);
  p.arrive(25, 25, withModes({7, 3}));
  EXPECT_EQ(chosen(p.ask(1500, 0, 1)), (Frames{{0, 24}}));  // an empty list passes
  std::string const pre = prefix(1500, 0, 1);
  expectLines(logs, {"ret:0 hissm:4 selectsm:3",
                     pre + " INVALID: F22 sensor-mode list has odd length 3, its last item is "
                           "ignored",
                     pre + " INVALID: F23 sensor-mode list has odd length 1, its last item is "
                           "ignored"});
  EXPECT_TRUE(logs.androidWith("hissm:3 selectsm").empty());

  for (uint32_t n = 20; n <= 24; ++n) p.history.erase(n);
  EXPECT_EQ(chosen(p.ask(1501, 0, 1)), (Frames{{0, 25}}));
  EXPECT_TRUE(logs.hasLine("ret:1 hissm:3 selectsm:3"));

  // An announced frame already captured is judged by its own metadata.
  p.history.clear();
  p.arrive(30, 30);
  p.announce(30, 1, 0);
  logs.clear();
  EXPECT_EQ(chosen(p.ask(1502, 0, 1)), (Frames{{0, 30}}));
  EXPECT_TRUE(logs.androidWith("push psl").empty());
}

TEST(SubSequence, WrappedRequestNumbersServeInRequestOrder) {
  LogCapture logs;
  Pipeline p({0, 0}, {0, 0});
  p.arrive(10, 11);
  EXPECT_TRUE(p.ask(0xFFFFFFFF, 0, 2).frames.empty());  // R0 is the smaller request
  EXPECT_EQ(chosen(p.ask(0, 1, 2)), (Frames{{0, 11}}));
  EXPECT_EQ(chosen(p.ask(0xFFFFFFFF, 0, 2)), (Frames{{0, 10}}));
  EXPECT_TRUE(logs.hasLine(prefix(0xFFFFFFFF, 0, 2) +
                           " ERASE: (operate at R4294967295) IspHidlReqObj[index=4294967295], "
                           "remaining IspHidlReqObj={index=null }"));
}
