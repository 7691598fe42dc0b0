#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "IspHidlSeries.h"
#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

// Every call goes to hint 4; the phase belongs to the process (each test runs in
// a process of its own). History F20..F27.
class MfnrHdrTest : public testing::Test, protected SeriesCalls {
 protected:
  MfnrHdrTest() : SeriesCalls(4, "ispHidlSelect_MFNR_HDR", "ispHidlSelect_MFNR_HDR") {
    arrive(20, 27);
  }

  // An HDR member: pre-collect hint set, exposure compensation `ev` when given;
  // `bare` leaves out the control metadata.
  std::string hdr(uint32_t r, int32_t idx, int32_t cnt, std::optional<int32_t> ev,
                  bool bare = false) {
    SelectInputParams in = member(r, idx, cnt);
    IMetadata& control = in.frameInfos[0].metas[kAppMetaStream];
    IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT, 1);
    if (ev) IMetadata::setEntry<int32_t>(&control, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, *ev);
    if (bare) in.frameInfos[0].metas.clear();
    return answer(serve(in));
  }
  void addPreCollected(uint32_t n, int32_t hint = 1) {
    arrive(n, n, with(&FrameState::preCollectHint, hint));
  }
  // One noise-reduction series of one frame switches to the HDR phase.
  void enterHdrPhase() {
    ASSERT_EQ(ask(10, 0, 1), "F27");
    ASSERT_EQ(lines(), said({"STATE: select MFLL frames #1, current frames #0->#1",
                             "STATE: get all MFLL frames #1, current frames #1, change "
                             "status to HDR"}));
  }
};

std::string obj(uint32_t r, uint32_t frame, int32_t ev, int32_t status) {
  return "R" + std::to_string(r) + "={.targetFrameNo=" + std::to_string(frame) +
         " .evSetting=" + std::to_string(ev) + " .status=" + std::to_string(status) + "} ";
}

TEST_F(MfnrHdrTest, NoiseReductionSeriesCountsTheLatestFramesHandedOut) {
  // F26..F28 are the newest: F26 goes now, F27 is locked, F28 is still in flight.
  capture(28, 28);
  EXPECT_EQ(ask(50, 0, 3), "F26 +27");
  EXPECT_EQ(lines(), said({"STATE: select MFLL frames #1, current frames #0->#1"}));
  // An HDR member and an out-of-order member both wait; neither moves the count.
  EXPECT_EQ(hdr(60, 0, 3, 0), "none");
  EXPECT_EQ(lines(), said({"DEBUG: is pre-collect, IspHidlReqObj={index=null }, send to pending"}));
  EXPECT_EQ(ask(52, 2, 3), "none");
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(ask(51, 1, 3), "F27");
  EXPECT_EQ(lines(), said({"STATE: select MFLL frames #1, current frames #1->#2"}));
  EXPECT_EQ(ask(52, 2, 3), "none");
  EXPECT_TRUE(lines().empty());
  // F28 lands: the last member completes the series and HDR becomes current.
  arrive(28, 28);
  EXPECT_EQ(ask(52, 2, 3), "F28");
  EXPECT_EQ(lines(), said({"STATE: select MFLL frames #1, current frames #2->#3",
                           "STATE: get all MFLL frames #3, current frames #3, change "
                           "status to HDR"}));
  EXPECT_EQ(ask(70, 0, 1), "none");
  addPreCollected(29);
  EXPECT_EQ(hdr(60, 0, 1, 0), "[1]F29");
}

// Ten members over eight known frames: each goes without a frame, and each counts.
TEST_F(MfnrHdrTest, SeriesLongerThanTheHistoryGoesWithoutZsl) {
  for (int32_t idx = 0; idx < 10; ++idx) {
    EXPECT_EQ(ask(80 + idx, idx, 10), "noZsl");
  }
  EXPECT_EQ(lines(), said({"STATE: select MFLL frames #1, current frames #9->#10",
                           "STATE: get all MFLL frames #10, current frames #10, change "
                           "status to HDR"}));
}

TEST_F(MfnrHdrTest, HdrSeriesServedInTurnThenBackToNoiseReduction) {
  enterHdrPhase();
  addPreCollected(28);
  addPreCollected(29);
  EXPECT_EQ(ask(90, 0, 2), "none");  // a noise-reduction member waits while HDR is current
  EXPECT_EQ(lines(),
            said({"DEBUG: not pre-collect, IspHidlReqObj={index=null }, send to pending"}));
  EXPECT_EQ(hdr(100, 0, 3, -2), "[1]F28");
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(100 - 0), existing IspHidlReqObj={index=100 }",
                  "DEBUG: mapping={" + obj(100, kNoFrame, -2, 0) + "}",
                  "DEBUG: F28 get pre-collect hint, ispHidlFrameIdx=0, currentCount_MFHDR=0, "
                  "control EV=-2",
                  "DEBUG: mapping={" + obj(100, 28, -2, 1) + "}", "SELECT: R100 [hF28]",
                  "STATE: select HDR frames #1, current frames #0->#1",
                  "DEBUG: mapping={" + obj(100, 28, -2, 2) + "}"}));
  // Index 2 ahead of the count: recorded, no frame searched, pending.
  std::string const dump =
      "DEBUG: mapping={" + obj(100, 28, -2, 2) + obj(102, kNoFrame, 2, 0) + "}";
  EXPECT_EQ(hdr(102, 2, 3, 2), "none");
  EXPECT_EQ(lines(), said({dump, dump, dump}));
  // The host used F28 and dropped it; index 1 takes the next hinted frame.
  leave(28);
  EXPECT_EQ(hdr(101, 1, 3, 0), "[1]F29");
  EXPECT_EQ("", missing({"STATE: select HDR frames #1, current frames #1->#2"}));
  // No hinted frame left: index 2 is in turn but waits for one to arrive.
  leave(29);
  EXPECT_EQ(hdr(102, 2, 3, 2), "none");
  EXPECT_TRUE(logs.androidWith("get pre-collect hint").empty());
  addPreCollected(30);
  // The last frame completes the series in the same call that hands it out.
  EXPECT_EQ(hdr(102, 2, 3, 2), "[1]F30");
  std::vector<std::string> const all = lines();
  EXPECT_EQ(std::vector<std::string>(all.end() - 3, all.end()),
            said({"DEBUG: mapping={" + obj(100, 28, -2, 2) + obj(101, 29, 0, 2) +
                      obj(102, 30, 2, 2) + "}",
                  "ERASE: (operate at R102) IspHidlReqObj[index=100], remaining "
                  "IspHidlReqObj={index=null }",
                  "STATE: get all HDR frames #3, current frames #3, change status to MFLL"}));
  // Noise reduction is current again: a pre-collect member waits.
  EXPECT_EQ(hdr(110, 0, 1, 0), "none");
  EXPECT_EQ(lines(), said({"DEBUG: is pre-collect, IspHidlReqObj={index=null }, send to pending"}));
  // ...and its count starts again from 0.
  ask(120, 0, 2);
  EXPECT_EQ("", missing({"STATE: select MFLL frames #1, current frames #0->#1"}));
}

TEST_F(MfnrHdrTest, OldestHintedFrameWinsEvenWhenTaken) {
  enterHdrPhase();
  // Hint 0, no hint, no control metadata: none of them is pre-collected.
  addPreCollected(26, 0);
  history[27].metas.erase(kAppMetaStream);
  addPreCollected(28);
  addPreCollected(29);
  EXPECT_EQ(hdr(200, 0, 2, -4), "[1]F28");
  // F28 stays in the history: index 1 is mapped to it again.
  EXPECT_EQ(hdr(201, 1, 2, 4), "[1]F28");
  EXPECT_EQ("", missing({"DEBUG: F28 get pre-collect hint, ispHidlFrameIdx=1, "
                         "currentCount_MFHDR=1, control EV=4",
                         "DEBUG: mapping={" + obj(200, 28, -4, 2) + obj(201, 28, 4, 2) + "}",
                         "STATE: get all HDR frames #2, current frames #2, change status "
                         "to MFLL"}));
}

TEST_F(MfnrHdrTest, MalformedHdrMembersStayPending) {
  enterHdrPhase();
  addPreCollected(28);
  // A member whose series was never opened.
  EXPECT_EQ(hdr(301, 1, 3, 0), "none");
  EXPECT_EQ(lines(), said({"INVALID: fail to find IspHidlReqObj(301 - 1), please check frame "
                           "count/index of R301 (cnt=3, idx=1) : IspHidlReqObj={index=null }"}));
  std::vector<std::string> const raw = logs.androidWith("INVALID");
  ASSERT_EQ(raw.size(), 1u);
  EXPECT_NE(raw[0].find(" (ispHidlSelect_MFNR_HDR){#"), std::string::npos);
  // No exposure compensation: the series opens, the member stays unmapped.
  EXPECT_EQ(hdr(300, 0, 3, std::nullopt), "none");
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(300 - 0), existing IspHidlReqObj={index=300 }",
                  "INVALID: fail to get ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, "
                  "IspHidlReqObj={index=300 }"}));
  // A control metadata without the application stream is no pre-collect request.
  EXPECT_EQ(hdr(300, 0, 3, 0, true), "none");
  EXPECT_EQ(lines(), said({"DEBUG: not pre-collect, IspHidlReqObj={index=300 }, send to pending"}));
  // The series record survived: the same member now maps without a new EMPLACE.
  EXPECT_EQ(hdr(300, 0, 3, 1), "[1]F28");
  EXPECT_TRUE(logs.androidWith("EMPLACE").empty());
}

TEST_F(MfnrHdrTest, PhaseOutlivesSelectorsAndIgnoresLogGates) {
  {
    LogCapture::setGates(0, 0, 0);
    CzRovaZslSelector first;
    EXPECT_EQ(first.select(member(10, 0, 1)).frames.size(), 1u);
  }
  LogCapture::setGates(5, 0x101000, 3);
  addPreCollected(28);
  // A fresh selector finds the HDR phase the first one switched to.
  EXPECT_EQ(ask(11, 0, 1), "none");
  EXPECT_EQ(lines(),
            said({"DEBUG: not pre-collect, IspHidlReqObj={index=null }, send to pending"}));
  EXPECT_EQ(hdr(400, 0, 1, 0), "[1]F28");
  EXPECT_EQ("", missing({"STATE: get all HDR frames #1, current frames #1, change status "
                         "to MFLL"}));
}

using PreCollectObj = CzRovaZslSelector::IspHidlReqObj_PreCollect::PreCollectObj;

// Mapping storage that already holds every request.
struct FullMapping : std::map<uint32_t, PreCollectObj> {
  std::pair<iterator, bool> emplace(uint32_t, PreCollectObj) { return {end(), false}; }
};

TEST(MfnrHdrDeathTest, MappingThatCannotBeCreatedAborts) {
  FullMapping mapping;
  EXPECT_DEATH(NSCam::CustZone::series::emplaceNew(mapping, 100, PreCollectObj{}, "[r100]",
                                                   "ispHidlSelect_MFNR_HDR"),
               "\\[ispHidlSelect_MFNR_HDR::[0-9]+\\]\\[r100\\] INVALID: fail to create a new "
               "mapping");
}

}  // namespace
