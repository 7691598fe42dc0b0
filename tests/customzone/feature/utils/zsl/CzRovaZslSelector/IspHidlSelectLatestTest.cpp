#include <gtest/gtest.h>

#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

// Every call goes to hint 2.
class LatestTest : public testing::Test, protected SeriesCalls {
 protected:
  LatestTest() : SeriesCalls(2, "ispHidlSelect_Latest", "ispHidlSelect_Latest") {}
};

TEST_F(LatestTest, SeriesTakesTheNewestFramesInOrderAndLocksTheRest) {
  arrive(10, 15);
  EXPECT_EQ(ask(50, 0, 3), "F13 +14 +15");
  EXPECT_TRUE(logs.hasLine(prefix() + "INFO: hint=2, policy=None"));
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(50 - 0), existing IspHidlReqObj={index=50 }",
                  "DEBUG: curFrameNumbers={ F10 F11 F12 F13 F14 F15}",
                  "DEBUG: selectLatest={[0]F13 [1]F14 [2]F15 }",
                  "MAPPING: (operate at R50) R50[hF13] R51[hF14] R52[hF15] ", "SELECT: R50 [hF13]",
                  "LOCK: (operate at R50) R51 [hF14]", "LOCK: (operate at R50) R52 [hF15]"}));
  // F13 is consumed, newer frames arrive; the mapping holds, F15 stays locked.
  leave(13);
  arrive(16, 17);
  EXPECT_EQ(ask(51, 1, 3), "F14");
  EXPECT_EQ(lines(), said({"SELECT: R51 [hF14]"}));
  leave(14);
  EXPECT_EQ(ask(52, 2, 3), "F15");
  EXPECT_EQ(lines(), said({"SELECT: R52 [hF15]",
                           "ERASE: (operate at R52) IspHidlReqObj[index=50], remaining "
                           "IspHidlReqObj={index=null }"}));
}

TEST_F(LatestTest, MembersWaitForInFlightFramesAndTheirTurn) {
  arrive(10, 11);
  capture(12, 14);
  EXPECT_EQ(ask(50, 0, 3), "none");
  EXPECT_EQ(lines()[3], line("MAPPING: (operate at R50) R50[hF12] R51[hF13] R52[hF14] "));
  EXPECT_EQ(ask(51, 1, 3), "none");
  EXPECT_EQ(lines(), said({"DEBUG: cannot select R51 (FIFO), needSelectReqs={R50 R51 R52 }"}));
  // F12 and F13 arrive: R51 still waits for R50 but has the frames locked.
  arrive(12, 13);
  EXPECT_EQ(ask(51, 1, 3), "none +12 +13");
  EXPECT_EQ(lines(),
            said({"DEBUG: cannot select R51 (FIFO), needSelectReqs={R50 R51 R52 }",
                  "LOCK: (operate at R51) R50 [hF12]", "LOCK: (operate at R51) R51 [hF13]"}));
  EXPECT_EQ(ask(50, 0, 3), "F12");
  EXPECT_EQ(ask(51, 1, 3), "F13");
  // Presented again once answered, R51 is not answered twice.
  EXPECT_EQ(ask(51, 1, 3), "none");
  EXPECT_EQ(lines(), said({"DEBUG: cannot select R51 (FIFO), needSelectReqs={R52 }"}));
  // R52's frame is still in flight: no answer, no line.
  EXPECT_EQ(ask(52, 2, 3), "none");
  EXPECT_TRUE(lines().empty());
  arrive(14, 14);
  EXPECT_EQ(ask(52, 2, 3), "F14");
}

TEST_F(LatestTest, UnknownSeriesAndTooFewFrames) {
  arrive(10, 11);
  EXPECT_EQ(ask(61, 1, 3), "none");
  EXPECT_TRUE(logs.hasLine(prefix() +
                           "INVALID: fail to find IspHidlReqObj(61 - 1), please check frame "
                           "count/index of R61 (cnt=3, idx=1) : IspHidlReqObj={index=null }"));
  // Two frames for a series of three: the whole series goes without ZSL.
  EXPECT_EQ(ask(60, 0, 3), "noZsl");
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(60 - 0), existing IspHidlReqObj={index=60 }",
                  "DEBUG: curFrameNumbers={ F10 F11}",
                  "DEBUG: curFrameNumbers(2) < ispHidlFrameCnt(3), send all requests to non-zsl",
                  "MAPPING: (operate at R60) R60[hF4294967295] R61[hF4294967295] "
                  "R62[hF4294967295] ",
                  "SELECT: R60 [hF4294967295]"}));
  EXPECT_EQ(ask(61, 1, 3), "noZsl");
  EXPECT_EQ(ask(62, 2, 3), "noZsl");
}

TEST_F(LatestTest, FailedVerificationTakesTheLaterMembersAlong) {
  arrive(10, 14);
  capture(15, 15);
  ask(50, 0, 3);
  leave(13);
  // R51 wants another exposure: F14 no longer qualifies, and R52 goes with it
  // although its frame is still in flight.
  wants.targetEv = 2;
  EXPECT_EQ(ask(51, 1, 3), "noZsl -14");
  EXPECT_EQ(lines(), said({"MAPPING: (Verify failed! operate at R51) R50[hF13] "
                           "R51[hF4294967295] R52[hF4294967295] ",
                           "SELECT: R51 [hF4294967295]"}));
  wants.targetEv = 0;
  arrive(15, 15);
  EXPECT_EQ(ask(52, 2, 3), "noZsl");
}

TEST_F(LatestTest, TimeOutAnswersOpenMembersWithoutZsl) {
  arrive(10, 15);
  ask(50, 0, 3);
  leave(13);
  EXPECT_EQ(ask(51, 1, 3, 999), "F14");
  leave(14);
  EXPECT_EQ(ask(52, 2, 3, 1000), "noZsl -15");
  EXPECT_EQ(lines(),
            said({"UNLOCK: (TIMEOUT: operate at R52) R52 [hF15]",
                  "MAPPING: (TIMEOUT: operate at R52) R50[hF13] R51[hF14] R52[hF4294967295] ",
                  "SELECT: R52 [hF4294967295]",
                  "ERASE: (operate at R52) IspHidlReqObj[index=50], remaining "
                  "IspHidlReqObj={index=null }"}));
  // Timed out on its first call, a series is never mapped to frames.
  EXPECT_EQ(ask(70, 0, 2, 1000), "noZsl");
  EXPECT_EQ(lines()[1],
            line("MAPPING: (TIMEOUT: operate at R70) R70[hF4294967295] R71[hF4294967295] "));
}

// A series whose members stop coming stays, its frames locked, until a late
// member times it out; members beyond the count or with another count only
// ever see the series as its first member made it.
TEST_F(LatestTest, StrayMembersGetDefinedAnswers) {
  arrive(10, 15);
  ask(50, 0, 3);
  EXPECT_EQ(ask(53, 3, 3), "none");  // never due, the series goes on
  EXPECT_EQ(lines(), said({"DEBUG: cannot select R53 (FIFO), needSelectReqs={R51 R52 }"}));
  EXPECT_EQ(ask(51, 1, 5), "F14");
  // R52 does not come; another series starts and ends meanwhile.
  arrive(16, 16);
  EXPECT_EQ(ask(60, 0, 1), "F16");
  EXPECT_EQ(lines().front(),
            line("EMPLACE: new IspHidlReqObj(60 - 0), existing IspHidlReqObj={index=50 60 }"));
  EXPECT_EQ(lines().back(), line("ERASE: (operate at R60) IspHidlReqObj[index=60], remaining "
                                 "IspHidlReqObj={index=50 }"));
  // Long after, R52 comes: timed out, its frame is handed back. The series is
  // gone; R54 of the "longer" series is unknown.
  EXPECT_EQ(ask(52, 2, 5, 5000), "noZsl -15");
  ask(54, 4, 5);
  EXPECT_TRUE(logs.hasLine(prefix() +
                           "INVALID: fail to find IspHidlReqObj(54 - 4), please check frame "
                           "count/index of R54 (cnt=5, idx=4) : IspHidlReqObj={index=null }"));
}

// Request numbers wrap: the series key and members are unsigned, and members
// are due in ascending unsigned order, so R0 comes before R4294967295.
TEST_F(LatestTest, RequestNumbersWrapAround) {
  arrive(10, 15);
  EXPECT_EQ(ask(0xFFFFFFFE, 0, 3), "none +13 +14 +15");
  EXPECT_EQ(lines()[3], line("MAPPING: (operate at R4294967294) R0[hF15] R4294967294[hF13] "
                             "R4294967295[hF14] "));
  EXPECT_EQ(lines()[4], line("DEBUG: cannot select R4294967294 (FIFO), needSelectReqs={R0 "
                             "R4294967294 R4294967295 }"));
  EXPECT_EQ(ask(0, 2, 3), "F15");
  EXPECT_EQ(ask(0xFFFFFFFE, 0, 3), "F13");
  EXPECT_EQ(ask(0xFFFFFFFF, 1, 3), "F14");
  EXPECT_EQ(lines().back(), line("ERASE: (operate at R4294967295) IspHidlReqObj[index=4294967294], "
                                 "remaining IspHidlReqObj={index=null }"));
}

}  // namespace
