#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

// AF still scanning: fails the AF-stable bit of the fixed policy 0x20005.
FrameState const kScanning = with(&FrameState::afState, 1);

// Every call goes to hint 3.
class QualityTest : public testing::Test, protected SeriesCalls {
 protected:
  QualityTest()
      : SeriesCalls(3, "ispHidlSelect_LatestWithQuality", "ispHidlSelect_LatestWithQuality") {}
};

TEST_F(QualityTest, BothRunsPassNewestIsMappedAndTheSpareUnlockedAtTheEnd) {
  arrive(20, 25);
  SelectInputParams in = member(80, 0, 2);
  EXPECT_EQ(answer(serve(in)), "none +23 +24 +25");
  EXPECT_TRUE(
      logs.hasLine(prefix() + "INFO: hint=3, policy={ AFStable AESoftStable ContinuousFrame }"));
  EXPECT_EQ(lines(), said({"EMPLACE: new IspHidlReqObj(80 - 0), existing IspHidlReqObj={index=80 }",
                           "DEBUG: curFrameNumbers={ F20 F21 F22 F23 F24 F25}",
                           "DEBUG: toleranceFrameCnt=3, needLockFrames={F23 F24 F25 }",
                           "DEBUG: toleranceFrameCnt=3, needCheckSet={[index=F23, check=0][0]23 "
                           "[1]24 [index=F24, check=0][0]24 [1]25 }",
                           "LOCK: (operate at R80) hF23 for further quality check",
                           "LOCK: (operate at R80) hF24 for further quality check",
                           "LOCK: (operate at R80) hF25 for further quality check",
                           "DEBUG: (operate at R80) cannot find F25 in history yet, pending..."}));
  // The first run narrowed the caller's record, so the second waits a call.
  EXPECT_EQ(in.frameInfos.size(), 2u);
  EXPECT_EQ(in.history.size(), 2u);
  EXPECT_EQ(in.history.begin()->first, 23u);
  EXPECT_EQ(ask(80, 0, 2), "F24");
  EXPECT_EQ(lines(),
            said({"DEBUG: after check quality : needCheckSet={[index=F23, "
                  "check=1][0]23 [1]24 [index=F24, check=1][0]24 [1]25 }",
                  "INFO: (operate at R80) quality check success! set latest frame "
                  "with quality check : index=24",
                  "MAPPING: (operate at R80) R80[hF24] R81[hF25] ", "SELECT: R80 [hF24]"}));
  leave(24);
  EXPECT_EQ(ask(81, 1, 2), "F25 -23");
  EXPECT_EQ(lines(), said({"SELECT: R81 [hF25]", "UNLOCK: (operate at R81) hF23",
                           "ERASE: (operate at R81) IspHidlReqObj[index=80], remaining "
                           "IspHidlReqObj={index=null }"}));
}

TEST_F(QualityTest, OnlyTheOlderRunPasses) {
  arrive(20, 24);
  arrive(25, 25, kScanning);
  ask(80, 0, 2);
  EXPECT_EQ(ask(81, 1, 2), "none");  // the later member asks first: the check goes on
  EXPECT_EQ(lines()[1], line("INFO: (operate at R81) quality check success! set latest frame "
                             "with quality check : index=23"));
  EXPECT_EQ(lines()[3], line("DEBUG: cannot select R81 (FIFO), needSelectReqs={R80 R81 }"));
  EXPECT_EQ(ask(80, 0, 2), "F23");
  // F24 is R81's own frame; the spare F25 is handed back.
  EXPECT_EQ(ask(81, 1, 2), "F24 -23 -25");
}

TEST_F(QualityTest, NoRunPassesNewestIsMappedAnyway) {
  arrive(20, 25, kScanning);
  ask(80, 0, 2);
  EXPECT_EQ(ask(80, 0, 2), "F24");
  EXPECT_EQ(lines()[1], line("INFO: (operate at R80) quality check failed! set latest frame "
                             "anyway : needCheckSet size=2, index=24"));
  // A run keeps its verdict: nothing is checked again.
  EXPECT_EQ(ask(81, 1, 2), "F25 -23 -24");
  EXPECT_EQ(bothSinks(logs, {"multiFrameSelect"}), std::vector<std::string>{});
}

TEST_F(QualityTest, CandidatesInFlightAndTooFewFramesKeepTheSeriesPending) {
  arrive(20, 20);
  EXPECT_EQ(ask(80, 0, 2), "none");
  EXPECT_EQ(lines().back(),
            line("DEBUG: curFrameNumbers(1) < ispHidlFrameCnt(2), send R80 to pending"));
  arrive(21, 22);
  capture(23, 23);
  EXPECT_EQ(ask(80, 0, 2), "none +21 +22");
  EXPECT_EQ(lines().back(),
            line("DEBUG: (operate at R80) cannot find F23 in history yet, pending..."));
  // F23 is still in flight: the newer run waits again, the older keeps its verdict.
  EXPECT_EQ(ask(80, 0, 2), "none");
  EXPECT_EQ(lines(), said({"DEBUG: (operate at R80) cannot find F23 in history yet, pending..."}));
  arrive(23, 23);
  EXPECT_EQ(ask(80, 0, 2), "F22 +23");
}

TEST_F(QualityTest, ExactlyCountFramesTheShortRunFailsAtOnce) {
  arrive(20, 21);
  EXPECT_EQ(ask(80, 0, 2), "F20 +20 +21");
  EXPECT_EQ(lines()[3], line("DEBUG: toleranceFrameCnt=3, needCheckSet={[index=F20, "
                             "check=0][0]20 [1]21 [index=F21, check=0][0]21 }"));
  EXPECT_EQ(lines()[6], line("DEBUG: after check quality : needCheckSet={[index=F20, "
                             "check=1][0]20 [1]21 [index=F21, check=-1][0]21 }"));
}

TEST_F(QualityTest, TimeOutMapsOpenMembersWithoutZslAndFreesTheCandidates) {
  arrive(20, 22);
  capture(23, 23);
  ask(80, 0, 2);
  EXPECT_EQ(ask(80, 0, 2, 1000), "noZsl");
  EXPECT_EQ(lines(),
            said({"MAPPING: (TIMEOUT: operate at R80) R80[hF4294967295] R81[hF4294967295] ",
                  "SELECT: R80 [hF4294967295]"}));
  arrive(23, 23);
  EXPECT_EQ(ask(81, 1, 2, 1000), "noZsl -21 -22");
  EXPECT_EQ(lines(),
            said({"MAPPING: (TIMEOUT: operate at R81) R80[hF4294967295] R81[hF4294967295] ",
                  "SELECT: R81 [hF4294967295]", "UNLOCK: (operate at R81) hF21",
                  "UNLOCK: (operate at R81) hF22",
                  "ERASE: (operate at R81) IspHidlReqObj[index=80], remaining "
                  "IspHidlReqObj={index=null }"}));
  // Timed out once mapped: the open member's locked frame is handed back.
  ask(90, 0, 2);
  ask(90, 0, 2);
  EXPECT_EQ(ask(91, 1, 2, 1000), "noZsl -21 -22 -23");
  EXPECT_EQ(lines()[0], line("UNLOCK: (TIMEOUT: operate at R91) R91 [hF23]"));
}

// Unknown series, members beyond the count, request numbers across the wrap.
TEST_F(QualityTest, StrayAndWrappingMembers) {
  arrive(20, 25);
  ask(1, 2, 3);
  EXPECT_TRUE(logs.hasLine(prefix() +
                           "INVALID: fail to find IspHidlReqObj(1 - 2), please check frame "
                           "count/index of R1 (cnt=3, idx=2) : IspHidlReqObj={index=null }"));
  ask(0xFFFFFFFF, 0, 2);
  EXPECT_EQ(ask(0xFFFFFFFF, 0, 2), "none");
  EXPECT_EQ(lines()[2], line("MAPPING: (operate at R4294967295) R0[hF25] R4294967295[hF24] "));
  EXPECT_EQ(ask(1, 2, 2), "none");
  EXPECT_EQ(lines(), said({"DEBUG: cannot select R1 (FIFO), needSelectReqs={R0 R4294967295 }"}));
  EXPECT_EQ(ask(0, 1, 2), "F25");
  EXPECT_EQ(ask(0xFFFFFFFF, 0, 2), "F24 -23 -25");
}

}  // namespace
