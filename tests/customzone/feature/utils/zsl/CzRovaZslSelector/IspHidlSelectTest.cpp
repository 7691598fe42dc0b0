#include <gtest/gtest.h>

#include <string>

#include "IspHidlSeries.h"
#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

// Every call goes to hint 1 (policy 0x30005: zero shutter delay, continuous
// frames, AF and soft AE stable); a member's shutter time is that of frame `zsd`.
class FifoTest : public testing::Test, protected SeriesCalls {
 protected:
  FifoTest() : SeriesCalls(1, "ispHidlSelect", "ispHidl") {}
  std::string ask(uint32_t r, int32_t idx, int32_t cnt, uint32_t zsd, int64_t elapsedMs = 0) {
    wants.zsdTs = tsOf(zsd);
    return SeriesCalls::ask(r, idx, cnt, elapsedMs);
  }
};

TEST_F(FifoTest, WholeSeriesChosenAtOnceAndHandedOutInOrder) {
  arrive(10, 15);
  wants.zsdTs = tsOf(13);
  SelectInputParams in = member(57, 0, 3);
  EXPECT_EQ(answer(serve(in)), "F11 +12 +13");
  EXPECT_TRUE(logs.hasLine(
      prefix() +
      "INFO: hint=1, policy={ AFStable AESoftStable ZeroShutterDelay ContinuousFrame }"));
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(57 - 0), existing IspHidlReqObj={index=57 }",
                  "MAPPING: (operate at R57) R57[hF11] R58[hF12] R59[hF13] ", "SELECT: R57 [hF11]",
                  "LOCK: (operate at R57) R58 [hF12]", "LOCK: (operate at R57) R59 [hF13]"}));
  EXPECT_EQ(in.frameInfos.size(), 3u);  // the caller's record now wants the whole series
  leave(11);
  arrive(16, 17);
  EXPECT_EQ(ask(58, 1, 3, 16), "F12");
  EXPECT_EQ(ask(59, 2, 3, 17), "F13");
  EXPECT_EQ(lines(), said({"SELECT: R59 [hF13]",
                           "ERASE: (operate at R59) IspHidlReqObj[index=57], remaining "
                           "IspHidlReqObj={index=null }"}));
  // A series of one is created, mapped and erased in one call.
  EXPECT_EQ(ask(60, 0, 1, 17), "F17");
  EXPECT_EQ(lines(), said({"EMPLACE: new IspHidlReqObj(60 - 0), existing IspHidlReqObj={index=60 }",
                           "MAPPING: (operate at R60) R60[hF17] ", "SELECT: R60 [hF17]",
                           "ERASE: (operate at R60) IspHidlReqObj[index=60], remaining "
                           "IspHidlReqObj={index=null }"}));
}

TEST_F(FifoTest, TooFewFramesRetriedByAnyMemberUntilChosen) {
  arrive(10, 11);
  EXPECT_EQ(ask(58, 1, 3, 10), "none");
  EXPECT_TRUE(logs.hasLine(prefix() +
                           "INVALID: fail to find IspHidlReqObj(58 - 1), please check frame "
                           "count/index of R58 (cnt=3, idx=1) : IspHidlReqObj={index=null }"));
  EXPECT_EQ(ask(57, 0, 3, 10), "none");
  EXPECT_EQ(lines(), said({"EMPLACE: new IspHidlReqObj(57 - 0), existing IspHidlReqObj={index=57 }",
                           "MAPPING(R57): pending due to Selected(0) < ispHidlFrameCnt(3)"}));
  // F12 arrives; R58 comes first and maps the series, but R57 is due first.
  arrive(12, 12);
  EXPECT_EQ(ask(58, 1, 3, 10), "none +10 +11 +12");
  EXPECT_EQ(lines(), said({"MAPPING: (operate at R58) R57[hF10] R58[hF11] R59[hF12] ",
                           "DEBUG: cannot select R58 (FIFO), needSelectReqs={R57 R58 R59 }",
                           "LOCK: (operate at R58) R57 [hF10]", "LOCK: (operate at R58) R58 [hF11]",
                           "LOCK: (operate at R58) R59 [hF12]"}));
  EXPECT_EQ(ask(57, 0, 3, 10), "F10");
  EXPECT_EQ(ask(58, 1, 3, 10), "F11");
  // R59's frame has left the history: R59 waits, without a line, for good.
  leave(12);
  EXPECT_EQ(ask(59, 2, 3, 10, 5000), "none");
  EXPECT_TRUE(lines().empty());
}

TEST_F(FifoTest, TimedOutSelectionMapsTheSeriesWithoutZsl) {
  // One frame cannot make a continuous run of two, even with the quality waived.
  arrive(10, 10);
  EXPECT_EQ(ask(57, 0, 2, 10, 1000), "noZsl");
  EXPECT_EQ(lines()[1], line("MAPPING: (operate at R57) R57[hF4294967295] R58[hF4294967295] "));
  EXPECT_EQ(ask(58, 1, 2, 10, 1000), "noZsl");
  EXPECT_EQ(lines()[0], line("SELECT: R58 [hF4294967295]"));
}

// Members beyond the count, with another count, or that stop coming; request
// numbers that wrap, served in ascending unsigned order.
TEST_F(FifoTest, StrayAndWrappingMembers) {
  arrive(10, 15);
  ask(57, 0, 3, 13);
  EXPECT_EQ(ask(60, 3, 3, 13), "none");
  EXPECT_EQ(lines(), said({"DEBUG: cannot select R60 (FIFO), needSelectReqs={R58 R59 }"}));
  EXPECT_EQ(ask(58, 1, 5, 13), "F12");
  // R59 never comes. A series across the wrap starts meanwhile.
  EXPECT_EQ(ask(0xFFFFFFFF, 0, 2, 15), "none +14 +15");
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(4294967295 - 0), existing "
                  "IspHidlReqObj={index=57 4294967295 }",
                  "MAPPING: (operate at R4294967295) R0[hF15] R4294967295[hF14] ",
                  "DEBUG: cannot select R4294967295 (FIFO), needSelectReqs={R0 R4294967295 }",
                  "LOCK: (operate at R4294967295) R0 [hF15]",
                  "LOCK: (operate at R4294967295) R4294967295 [hF14]"}));
  EXPECT_EQ(ask(0, 1, 2, 15), "F15");
  EXPECT_EQ(ask(0xFFFFFFFF, 0, 2, 15), "F14");
  EXPECT_EQ(lines().back(), line("ERASE: (operate at R4294967295) IspHidlReqObj[index=4294967295], "
                                 "remaining IspHidlReqObj={index=57 }"));
}

// A member due without a mapping entry is a broken invariant: the process ends.
TEST(FifoDeathTest, DueMemberWithoutMappingAborts) {
  CzRovaZslSelector::IspHidlReqObj record;
  record.needSelectReqs = {7};
  SelectOutputParams result;
  EXPECT_DEATH(NSCam::CustZone::series::handOut(record, {}, result, 7, "[r7]", "ispHidlSelect", 1),
               "\\[ispHidlSelect::[0-9]+\\]\\[r7\\] INVALID: R7 fail to get request mapping");
}

// Record storage that refuses every new series.
struct FullRecords : std::map<uint32_t, CzRovaZslSelector::IspHidlReqObj> {
  std::pair<iterator, bool> emplace(uint32_t, CzRovaZslSelector::IspHidlReqObj const&) {
    return {end(), false};
  }
};

TEST(FifoDeathTest, SeriesThatCannotBeCreatedAborts) {
  FullRecords records;
  EXPECT_DEATH(NSCam::CustZone::series::findOrCreate(records, makeSeriesMember(57, 0, 3), "[r57]",
                                                     "ispHidlSelect"),
               "\\[ispHidlSelect::[0-9]+\\]\\[r57\\] INVALID: fail to create a new "
               "IspHidlReqObj\\(57 - 0\\), IspHidlReqObj=\\{index=null \\}");
}

}  // namespace
