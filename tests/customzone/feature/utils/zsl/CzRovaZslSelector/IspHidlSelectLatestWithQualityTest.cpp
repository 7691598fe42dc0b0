#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

using Lines = std::vector<std::string>;
using Chosen = std::vector<std::pair<int32_t, uint32_t>>;
using Ops = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr uint32_t kLock = 0;
constexpr uint32_t kUnlock = 1;

// AF still scanning: fails the AF-stable bit of the fixed policy 0x20005.
FrameState const kScanning = [] {
  FrameState state;
  state.afState = 1;
  return state;
}();

// Every call goes to hint 3.
class QualityTest : public testing::Test, protected SeriesCalls {
 protected:
  QualityTest()
      : SeriesCalls(3, "ispHidlSelect_LatestWithQuality", "ispHidlSelect_LatestWithQuality") {}
};

TEST_F(QualityTest, BothRunsPassNewestIsMappedAndTheSpareUnlockedAtTheEnd) {
  host.arrive(20, 25);
  SelectInputParams in = member(80, 0, 2);
  auto out = serve(in);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(opsOf(out), (Ops{{23, kLock}, {24, kLock}, {25, kLock}}));
  EXPECT_TRUE(
      logs.hasLine(prefix() + "INFO: hint=3, policy={ AFStable AESoftStable ContinuousFrame }"));
  EXPECT_EQ(lines(),
            (Lines{line("EMPLACE: new IspHidlReqObj(80 - 0), existing IspHidlReqObj={index=80 }"),
                   line("DEBUG: curFrameNumbers={ F20 F21 F22 F23 F24 F25}"),
                   line("DEBUG: toleranceFrameCnt=3, needLockFrames={F23 F24 F25 }"),
                   line("DEBUG: toleranceFrameCnt=3, needCheckSet={[index=F23, check=0][0]23 "
                        "[1]24 [index=F24, check=0][0]24 [1]25 }"),
                   line("LOCK: (operate at R80) hF23 for further quality check"),
                   line("LOCK: (operate at R80) hF24 for further quality check"),
                   line("LOCK: (operate at R80) hF25 for further quality check"),
                   line("DEBUG: (operate at R80) cannot find F25 in history yet, pending...")}));
  // The first run narrowed the caller's record, so the second waits a call.
  EXPECT_EQ(in.frameInfos.size(), 2u);
  EXPECT_EQ(in.history.size(), 2u);
  EXPECT_EQ(in.history.begin()->first, 23u);

  out = call(80, 0, 2);
  EXPECT_EQ(chosen(out), (Chosen{{0, 24}}));
  EXPECT_TRUE(out.ops.empty());
  EXPECT_EQ(lines(), (Lines{line("DEBUG: after check quality : needCheckSet={[index=F23, "
                                 "check=1][0]23 [1]24 [index=F24, check=1][0]24 [1]25 }"),
                            line("INFO: (operate at R80) quality check success! set latest frame "
                                 "with quality check : index=24"),
                            line("MAPPING: (operate at R80) R80[hF24] R81[hF25] "),
                            line("SELECT: R80 [hF24]")}));

  host.leave(24);
  out = call(81, 1, 2);
  EXPECT_EQ(chosen(out), (Chosen{{0, 25}}));
  EXPECT_EQ(opsOf(out), (Ops{{23, kUnlock}}));
  EXPECT_EQ(lines(), (Lines{line("SELECT: R81 [hF25]"), line("UNLOCK: (operate at R81) hF23"),
                            line("ERASE: (operate at R81) IspHidlReqObj[index=80], remaining "
                                 "IspHidlReqObj={index=null }")}));
}

TEST_F(QualityTest, OnlyTheOlderRunPasses) {
  host.arrive(20, 24);
  host.arrive(25, 25, kScanning);
  call(80, 0, 2);
  auto out = call(81, 1, 2);  // the later member asks first: the check goes on
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(lines()[1], line("INFO: (operate at R81) quality check success! set latest frame "
                             "with quality check : index=23"));
  EXPECT_EQ(lines()[3], line("DEBUG: cannot select R81 (FIFO), needSelectReqs={R80 R81 }"));
  EXPECT_EQ(chosen(call(80, 0, 2)), (Chosen{{0, 23}}));
  out = call(81, 1, 2);
  EXPECT_EQ(chosen(out), (Chosen{{0, 24}}));
  // F24 is R81's own frame; the spare F25 is handed back.
  EXPECT_EQ(opsOf(out), (Ops{{23, kUnlock}, {25, kUnlock}}));
}

TEST_F(QualityTest, NoRunPassesNewestIsMappedAnyway) {
  host.arrive(20, 25, kScanning);
  call(80, 0, 2);
  auto out = call(80, 0, 2);
  EXPECT_EQ(chosen(out), (Chosen{{0, 24}}));
  EXPECT_EQ(lines()[1], line("INFO: (operate at R80) quality check failed! set latest frame "
                             "anyway : needCheckSet size=2, index=24"));
  // A run keeps its verdict: nothing is checked again.
  out = call(81, 1, 2);
  EXPECT_EQ(chosen(out), (Chosen{{0, 25}}));
  EXPECT_EQ(bothSinks(logs, {"multiFrameSelect"}), Lines{});
}

TEST_F(QualityTest, CandidatesInFlightAndTooFewFramesKeepTheSeriesPending) {
  host.arrive(20, 20);
  auto out = call(80, 0, 2);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(lines().back(),
            line("DEBUG: curFrameNumbers(1) < ispHidlFrameCnt(2), send R80 to pending"));

  host.arrive(21, 22);
  host.capture(23, 23);
  out = call(80, 0, 2);
  EXPECT_EQ(opsOf(out), (Ops{{21, kLock}, {22, kLock}}));
  EXPECT_EQ(lines().back(),
            line("DEBUG: (operate at R80) cannot find F23 in history yet, pending..."));
  // F23 is still in flight: the newer run waits again, the older keeps its verdict.
  out = call(80, 0, 2);
  EXPECT_TRUE(out.ops.empty());
  EXPECT_EQ(lines(),
            (Lines{line("DEBUG: (operate at R80) cannot find F23 in history yet, pending...")}));
  host.arrive(23, 23);
  out = call(80, 0, 2);
  EXPECT_EQ(chosen(out), (Chosen{{0, 22}}));
  EXPECT_EQ(opsOf(out), (Ops{{23, kLock}}));
}

TEST_F(QualityTest, ExactlyCountFramesTheShortRunFailsAtOnce) {
  host.arrive(20, 21);
  auto out = call(80, 0, 2);
  EXPECT_EQ(chosen(out), (Chosen{{0, 20}}));
  EXPECT_EQ(lines()[3], line("DEBUG: toleranceFrameCnt=3, needCheckSet={[index=F20, "
                             "check=0][0]20 [1]21 [index=F21, check=0][0]21 }"));
  EXPECT_EQ(lines()[6], line("DEBUG: after check quality : needCheckSet={[index=F20, "
                             "check=1][0]20 [1]21 [index=F21, check=-1][0]21 }"));
}

TEST_F(QualityTest, TimeOutMapsOpenMembersWithoutZslAndFreesTheCandidates) {
  host.arrive(20, 22);
  host.capture(23, 23);
  call(80, 0, 2);
  auto out = call(80, 0, 2, 1000);
  EXPECT_EQ(chosen(out), (Chosen{{0, kNoFrame}}));
  EXPECT_TRUE(out.ops.empty());
  EXPECT_EQ(lines(),
            (Lines{line("MAPPING: (TIMEOUT: operate at R80) R80[hF4294967295] R81[hF4294967295] "),
                   line("SELECT: R80 [hF4294967295]")}));
  host.arrive(23, 23);
  out = call(81, 1, 2, 1000);
  EXPECT_EQ(chosen(out), (Chosen{{0, kNoFrame}}));
  EXPECT_EQ(opsOf(out), (Ops{{21, kUnlock}, {22, kUnlock}}));
  EXPECT_EQ(lines(),
            (Lines{line("MAPPING: (TIMEOUT: operate at R81) R80[hF4294967295] R81[hF4294967295] "),
                   line("SELECT: R81 [hF4294967295]"), line("UNLOCK: (operate at R81) hF21"),
                   line("UNLOCK: (operate at R81) hF22"),
                   line("ERASE: (operate at R81) IspHidlReqObj[index=80], remaining "
                        "IspHidlReqObj={index=null }")}));

  // Timed out once mapped: the open member's locked frame is handed back.
  call(90, 0, 2);
  call(90, 0, 2);
  out = call(91, 1, 2, 1000);
  EXPECT_EQ(chosen(out), (Chosen{{0, kNoFrame}}));
  EXPECT_EQ(lines()[0], line("UNLOCK: (TIMEOUT: operate at R91) R91 [hF23]"));
}

// Unknown series, members beyond the count, request numbers across the wrap.
TEST_F(QualityTest, StrayAndWrappingMembers) {
  host.arrive(20, 25);
  call(1, 2, 3);
  EXPECT_TRUE(logs.hasLine(prefix() +
                           "INVALID: fail to find IspHidlReqObj(1 - 2), please check frame "
                           "count/index of R1 (cnt=3, idx=2) : IspHidlReqObj={index=null }"));
  call(0xFFFFFFFF, 0, 2);
  auto out = call(0xFFFFFFFF, 0, 2);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(lines()[2], line("MAPPING: (operate at R4294967295) R0[hF25] R4294967295[hF24] "));
  out = call(1, 2, 2);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(lines(), (Lines{line("DEBUG: cannot select R1 (FIFO), needSelectReqs={R0 "
                                 "R4294967295 }")}));
  EXPECT_EQ(chosen(call(0, 1, 2)), (Chosen{{0, 25}}));
  EXPECT_EQ(chosen(call(0xFFFFFFFF, 0, 2)), (Chosen{{0, 24}}));
}

}  // namespace
