#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

using Lines = std::vector<std::string>;
using Chosen = std::vector<std::pair<int32_t, uint32_t>>;

constexpr char kFn[] = "ispHidlSelect_MFNR_HDR";

// Every call is routed to hint 4 through the debug override, read at the
// first select of the process (each test runs in a process of its own).
class MfnrHdrTest : public testing::Test {
 protected:
  void SetUp() override {
    setProperty("vendor.debug.camera.zsl.runtime.adb", "true");
    setProperty("vendor.debug.camera.zsl.force.hint", "4");
    addHistory(mHistory, 20, 27);
  }

  static std::string pfx(uint32_t r, int32_t idx, int32_t cnt) {
    return "[r" + std::to_string(r) + ",0/1000ms]<ispHidlSelect_MFNR_HDR>IspHidl(" +
           std::to_string(idx) + "/" + std::to_string(cnt) + ") ";
  }

  // A noise-reduction member: no pre-collect hint.
  SelectInputParams mfll(uint32_t r, int32_t idx, int32_t cnt) const {
    SelectInputParams in = makeSeriesMember(r, idx, cnt);
    in.history = mHistory.history;
    in.inflight = mHistory.inflight;
    return in;
  }

  // An HDR member: pre-collect hint set, exposure compensation `ev` when given.
  SelectInputParams hdr(uint32_t r, int32_t idx, int32_t cnt, std::optional<int32_t> ev) const {
    SelectInputParams in = mfll(r, idx, cnt);
    IMetadata& control = in.frameInfos[0].metas[kAppMetaStream];
    IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT, 1);
    if (ev) {
      IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, *ev);
    }
    return in;
  }

  void addPreCollected(uint32_t frameNo, int32_t hint = 1) {
    FrameState state;
    state.preCollectHint = hint;
    mHistory.history[frameNo] = makeFrame(frameNo, tsOf(frameNo), state);
  }

  SelectOutputParams run(SelectInputParams const& in) {
    mLogs.clear();
    return mSelector.select(in);
  }

  // This strategy's lines of the last call; both sinks must agree.
  Lines lines() const {
    Lines unified;
    for (auto const& line : mLogs.unified()) {
      if (line.function == kFn) unified.push_back(line.body);
    }
    Lines android;
    for (auto const& line : mLogs.android()) {
      if (line.function == kFn) android.push_back(withoutErrorSuffix(line.body));
    }
    EXPECT_EQ(android, unified);
    return unified;
  }

  // One noise-reduction series of one frame switches to the HDR phase.
  void enterHdrPhase(uint32_t r = 10) {
    SelectOutputParams out = run(mfll(r, 0, 1));
    ASSERT_EQ(out.frames.size(), 1u);
    ASSERT_TRUE(mLogs.hasLine(pfx(r, 0, 1) +
                              "STATE: get all MFLL frames #1, current frames #1, change "
                              "status to HDR"));
  }

  LogCapture mLogs;
  CzRovaZslSelector mSelector;
  SelectInputParams mHistory;  // history and in-flight frames as the pipeline evolves them
};

std::string obj(uint32_t r, uint32_t frame, int32_t ev, int32_t status) {
  return "R" + std::to_string(r) + "={.targetFrameNo=" + std::to_string(frame) +
         " .evSetting=" + std::to_string(ev) + " .status=" + std::to_string(status) + "} ";
}

TEST_F(MfnrHdrTest, NoiseReductionSeriesCountsTheLatestFramesHandedOut) {
  mHistory.inflight[28] = makeInflight(28);

  // F26..F28 are the newest: F26 goes now, F27 is locked, F28 is still in flight.
  SelectOutputParams out = run(mfll(50, 0, 3));
  EXPECT_EQ(chosen(out), (Chosen{{0, 26}}));
  EXPECT_EQ(opsOf(out), (std::vector<std::pair<uint32_t, uint32_t>>{{27, 0}}));
  EXPECT_EQ(lines(), Lines{pfx(50, 0, 3) + "STATE: select MFLL frames #1, current frames #0->#1"});
  mHistory.history[27].locked = true;

  // An HDR member and an out-of-order member both wait; neither moves the count.
  EXPECT_TRUE(run(hdr(60, 0, 3, 0)).frames.empty());
  EXPECT_EQ(lines(), Lines{pfx(60, 0, 3) +
                           "DEBUG: is pre-collect, IspHidlReqObj={index=null }, send to pending"});
  EXPECT_TRUE(run(mfll(52, 2, 3)).frames.empty());
  EXPECT_EQ(lines(), Lines{});

  EXPECT_EQ(chosen(run(mfll(51, 1, 3))), (Chosen{{0, 27}}));
  EXPECT_EQ(lines(), Lines{pfx(51, 1, 3) + "STATE: select MFLL frames #1, current frames #1->#2"});
  EXPECT_TRUE(run(mfll(52, 2, 3)).frames.empty());
  EXPECT_EQ(lines(), Lines{});

  // F28 lands: the last member completes the series and HDR becomes current.
  mHistory.inflight.clear();
  mHistory.history[28] = makeFrame(28, tsOf(28));
  EXPECT_EQ(chosen(run(mfll(52, 2, 3))), (Chosen{{0, 28}}));
  EXPECT_EQ(lines(),
            (Lines{pfx(52, 2, 3) + "STATE: select MFLL frames #1, current frames #2->#3",
                   pfx(52, 2, 3) + "STATE: get all MFLL frames #3, current frames #3, change "
                                   "status to HDR"}));
  EXPECT_TRUE(run(mfll(70, 0, 1)).frames.empty());
  addPreCollected(29);
  EXPECT_EQ(chosen(run(hdr(60, 0, 1, 0))), (Chosen{{1, 29}}));
}

TEST_F(MfnrHdrTest, SeriesLongerThanTheHistoryGoesWithoutZsl) {
  // Ten members over eight known frames: each is answered without a frame, and
  // each answer counts.
  for (int32_t idx = 0; idx < 10; ++idx) {
    EXPECT_EQ(chosen(run(mfll(80 + idx, idx, 10))), (Chosen{{0, kNoFrame}}));
  }
  EXPECT_EQ(lines(),
            (Lines{pfx(89, 9, 10) + "STATE: select MFLL frames #1, current frames #9->#10",
                   pfx(89, 9, 10) + "STATE: get all MFLL frames #10, current frames #10, change "
                                    "status to HDR"}));
}

TEST_F(MfnrHdrTest, HdrSeriesServedInTurnThenBackToNoiseReduction) {
  enterHdrPhase();
  addPreCollected(28);
  addPreCollected(29);

  // A noise-reduction member waits while HDR is current.
  EXPECT_TRUE(run(mfll(90, 0, 2)).frames.empty());
  EXPECT_EQ(lines(), Lines{pfx(90, 0, 2) +
                           "DEBUG: not pre-collect, IspHidlReqObj={index=null }, send to pending"});

  std::string const p100 = pfx(100, 0, 3);
  EXPECT_EQ(chosen(run(hdr(100, 0, 3, -2))), (Chosen{{1, 28}}));
  EXPECT_EQ(
      lines(),
      (Lines{p100 + "EMPLACE: new IspHidlReqObj(100 - 0), existing IspHidlReqObj={index=100 }",
             p100 + "DEBUG: mapping={" + obj(100, kNoFrame, -2, 0) + "}",
             p100 + "DEBUG: F28 get pre-collect hint, ispHidlFrameIdx=0, "
                    "currentCount_MFHDR=0, control EV=-2",
             p100 + "DEBUG: mapping={" + obj(100, 28, -2, 1) + "}", p100 + "SELECT: R100 [hF28]",
             p100 + "STATE: select HDR frames #1, current frames #0->#1",
             p100 + "DEBUG: mapping={" + obj(100, 28, -2, 2) + "}"}));

  // Index 2 ahead of the count: recorded, no frame searched, pending.
  std::string const p102 = pfx(102, 2, 3);
  std::string const dump102 = obj(100, 28, -2, 2) + obj(102, kNoFrame, 2, 0);
  EXPECT_TRUE(run(hdr(102, 2, 3, 2)).frames.empty());
  EXPECT_EQ(lines(), (Lines{p102 + "DEBUG: mapping={" + dump102 + "}",
                            p102 + "DEBUG: mapping={" + dump102 + "}",
                            p102 + "DEBUG: mapping={" + dump102 + "}"}));

  // The host used F28 and dropped it; index 1 takes the next hinted frame.
  mHistory.history.erase(28);
  EXPECT_EQ(chosen(run(hdr(101, 1, 3, 0))), (Chosen{{1, 29}}));
  EXPECT_TRUE(mLogs.hasLine(pfx(101, 1, 3) + "STATE: select HDR frames #1, current frames #1->#2"));

  // No hinted frame left: index 2 is in turn but waits for one to arrive.
  mHistory.history.erase(29);
  EXPECT_TRUE(run(hdr(102, 2, 3, 2)).frames.empty());
  EXPECT_TRUE(mLogs.androidWith("get pre-collect hint").empty());
  addPreCollected(30);

  // The last frame completes the series in the same call that hands it out.
  SelectOutputParams last = run(hdr(102, 2, 3, 2));
  EXPECT_EQ(chosen(last), (Chosen{{1, 30}}));
  EXPECT_TRUE(last.ops.empty());
  EXPECT_TRUE(last.frameSet.empty());
  Lines const all = lines();
  Lines const tail(all.end() - 3, all.end());
  EXPECT_EQ(tail, (Lines{p102 + "DEBUG: mapping={" + obj(100, 28, -2, 2) + obj(101, 29, 0, 2) +
                             obj(102, 30, 2, 2) + "}",
                         p102 + "ERASE: (operate at R102) IspHidlReqObj[index=100], remaining "
                                "IspHidlReqObj={index=null }",
                         p102 + "STATE: get all HDR frames #3, current frames #3, change status "
                                "to MFLL"}));

  // Noise reduction is current again: a pre-collect member waits.
  EXPECT_TRUE(run(hdr(110, 0, 1, 0)).frames.empty());
  EXPECT_EQ(lines(), Lines{pfx(110, 0, 1) +
                           "DEBUG: is pre-collect, IspHidlReqObj={index=null }, send to pending"});
}

TEST_F(MfnrHdrTest, OldestHintedFrameWinsEvenWhenTaken) {
  enterHdrPhase();
  // Hint 0, no hint, no control metadata: none of them is pre-collected.
  addPreCollected(26, 0);
  mHistory.history[27].metas.erase(kAppMetaStream);
  addPreCollected(28);
  addPreCollected(29);

  EXPECT_EQ(chosen(run(hdr(200, 0, 2, -4))), (Chosen{{1, 28}}));
  // F28 stays in the history: index 1 is mapped to it again.
  EXPECT_EQ(chosen(run(hdr(201, 1, 2, 4))), (Chosen{{1, 28}}));
  EXPECT_TRUE(mLogs.hasLine(pfx(201, 1, 2) + "DEBUG: F28 get pre-collect hint, ispHidlFrameIdx=1, "
                                             "currentCount_MFHDR=1, control EV=4"));
  EXPECT_TRUE(mLogs.hasLine(pfx(201, 1, 2) + "DEBUG: mapping={" + obj(200, 28, -4, 2) +
                            obj(201, 28, 4, 2) + "}"));
  EXPECT_TRUE(mLogs.hasLine(pfx(201, 1, 2) +
                            "STATE: get all HDR frames #2, current frames #2, change status to "
                            "MFLL"));
}

TEST_F(MfnrHdrTest, MalformedHdrMembersStayPending) {
  enterHdrPhase();
  addPreCollected(28);

  // A member whose series was never opened.
  EXPECT_TRUE(run(hdr(301, 1, 3, 0)).frames.empty());
  EXPECT_EQ(lines(), Lines{pfx(301, 1, 3) +
                           "INVALID: fail to find IspHidlReqObj(301 - 1), please check frame "
                           "count/index of R301 (cnt=3, idx=1) : IspHidlReqObj={index=null }"});
  Lines const raw = mLogs.androidWith("INVALID");
  ASSERT_EQ(raw.size(), 1u);
  EXPECT_NE(raw[0].find(" (ispHidlSelect_MFNR_HDR){#"), std::string::npos);

  // No exposure compensation: the series opens, the member stays unmapped.
  std::string const p = pfx(300, 0, 3);
  EXPECT_TRUE(run(hdr(300, 0, 3, std::nullopt)).frames.empty());
  EXPECT_EQ(lines(),
            (Lines{p + "EMPLACE: new IspHidlReqObj(300 - 0), existing IspHidlReqObj={index=300 }",
                   p + "INVALID: fail to get ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, "
                       "IspHidlReqObj={index=300 }"}));

  // A control metadata without the application stream is no pre-collect request.
  SelectInputParams bare = hdr(300, 0, 3, 0);
  bare.frameInfos[0].metas.clear();
  EXPECT_TRUE(run(bare).frames.empty());
  EXPECT_EQ(lines(), Lines{p + "DEBUG: not pre-collect, IspHidlReqObj={index=300 }, send to "
                               "pending"});

  // The series record survived: the same member now maps without a new EMPLACE.
  EXPECT_EQ(chosen(run(hdr(300, 0, 3, 1))), (Chosen{{1, 28}}));
  EXPECT_TRUE(mLogs.androidWith("EMPLACE").empty());
}

TEST_F(MfnrHdrTest, PhaseOutlivesSelectorsAndIgnoresLogGates) {
  {
    LogCapture::setGates(0, 0, 0);
    CzRovaZslSelector first;
    EXPECT_EQ(first.select(mfll(10, 0, 1)).frames.size(), 1u);
  }
  LogCapture::setGates(5, 0x101000, 3);
  addPreCollected(28);
  // A fresh selector finds the HDR phase the first one switched to.
  EXPECT_TRUE(run(mfll(11, 0, 1)).frames.empty());
  EXPECT_EQ(lines(), Lines{pfx(11, 0, 1) +
                           "DEBUG: not pre-collect, IspHidlReqObj={index=null }, send to pending"});
  EXPECT_EQ(chosen(run(hdr(400, 0, 1, 0))), (Chosen{{1, 28}}));
  EXPECT_TRUE(mLogs.hasLine(pfx(400, 0, 1) +
                            "STATE: get all HDR frames #1, current frames #1, change status to "
                            "MFLL"));
}

}  // namespace
