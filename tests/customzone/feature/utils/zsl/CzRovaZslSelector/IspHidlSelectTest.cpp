#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "IspHidlSeries.h"
#include "ZslTestSupport.h"

using namespace zsltest;

namespace {

using Lines = std::vector<std::string>;
using Chosen = std::vector<std::pair<int32_t, uint32_t>>;
using Ops = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr uint32_t kLock = 0;

// Every call goes to hint 1 (policy 0x30005: zero shutter delay, continuous
// frames, AF and soft AE stable).
class FifoTest : public testing::Test, protected SeriesCalls {
 protected:
  FifoTest() : SeriesCalls(1, "ispHidlSelect", "ispHidl") {}

  // A member whose shutter time is that of frame `zsdFrame`.
  SelectInputParams at(uint32_t r, int32_t idx, int32_t cnt, uint32_t zsdFrame,
                       int64_t elapsedMs = 0) {
    SelectInputParams in = member(r, idx, cnt, elapsedMs);
    in.zsdTs = tsOf(zsdFrame);
    return in;
  }
  SelectOutputParams call(uint32_t r, int32_t idx, int32_t cnt, uint32_t zsdFrame,
                          int64_t elapsedMs = 0) {
    return serve(at(r, idx, cnt, zsdFrame, elapsedMs));
  }
};

TEST_F(FifoTest, WholeSeriesChosenAtOnceAndHandedOutInOrder) {
  host.arrive(10, 15);
  SelectInputParams in = at(57, 0, 3, 13);
  auto out = serve(in);
  EXPECT_EQ(chosen(out), (Chosen{{0, 11}}));
  EXPECT_EQ(opsOf(out), (Ops{{12, kLock}, {13, kLock}}));
  EXPECT_TRUE(logs.hasLine(
      prefix() +
      "INFO: hint=1, policy={ AFStable AESoftStable ZeroShutterDelay ContinuousFrame }"));
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(57 - 0), existing IspHidlReqObj={index=57 }",
                  "MAPPING: (operate at R57) R57[hF11] R58[hF12] R59[hF13] ", "SELECT: R57 [hF11]",
                  "LOCK: (operate at R57) R58 [hF12]", "LOCK: (operate at R57) R59 [hF13]"}));
  // The caller's record now wants the whole series.
  EXPECT_EQ(in.frameInfos.size(), 3u);

  host.leave(11);
  host.arrive(16, 17);
  out = call(58, 1, 3, 16);
  EXPECT_EQ(chosen(out), (Chosen{{0, 12}}));
  EXPECT_TRUE(out.ops.empty());
  out = call(59, 2, 3, 17);
  EXPECT_EQ(chosen(out), (Chosen{{0, 13}}));
  EXPECT_EQ(lines(), said({"SELECT: R59 [hF13]",
                           "ERASE: (operate at R59) IspHidlReqObj[index=57], remaining "
                           "IspHidlReqObj={index=null }"}));

  // A series of one is created, mapped and erased in one call.
  out = call(60, 0, 1, 17);
  EXPECT_EQ(chosen(out), (Chosen{{0, 17}}));
  EXPECT_EQ(lines(), said({"EMPLACE: new IspHidlReqObj(60 - 0), existing IspHidlReqObj={index=60 }",
                           "MAPPING: (operate at R60) R60[hF17] ", "SELECT: R60 [hF17]",
                           "ERASE: (operate at R60) IspHidlReqObj[index=60], remaining "
                           "IspHidlReqObj={index=null }"}));
}

TEST_F(FifoTest, TooFewFramesRetriedByAnyMemberUntilChosen) {
  host.arrive(10, 11);
  auto out = call(58, 1, 3, 10);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_TRUE(logs.hasLine(prefix() +
                           "INVALID: fail to find IspHidlReqObj(58 - 1), please check frame "
                           "count/index of R58 (cnt=3, idx=1) : IspHidlReqObj={index=null }"));

  out = call(57, 0, 3, 10);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_TRUE(out.ops.empty());
  EXPECT_EQ(lines(), said({"EMPLACE: new IspHidlReqObj(57 - 0), existing IspHidlReqObj={index=57 }",
                           "MAPPING(R57): pending due to Selected(0) < ispHidlFrameCnt(3)"}));

  // F12 arrives; R58 comes first and maps the series, but R57 is due first.
  host.arrive(12, 12);
  out = call(58, 1, 3, 10);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(opsOf(out), (Ops{{10, kLock}, {11, kLock}, {12, kLock}}));
  EXPECT_EQ(lines(), said({"MAPPING: (operate at R58) R57[hF10] R58[hF11] R59[hF12] ",
                           "DEBUG: cannot select R58 (FIFO), needSelectReqs={R57 R58 R59 }",
                           "LOCK: (operate at R58) R57 [hF10]", "LOCK: (operate at R58) R58 [hF11]",
                           "LOCK: (operate at R58) R59 [hF12]"}));
  EXPECT_EQ(chosen(call(57, 0, 3, 10)), (Chosen{{0, 10}}));
  EXPECT_EQ(chosen(call(58, 1, 3, 10)), (Chosen{{0, 11}}));

  // R59's frame has left the history: R59 waits, without a line, for good.
  host.leave(12);
  out = call(59, 2, 3, 10, 5000);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_TRUE(lines().empty());
}

TEST_F(FifoTest, TimedOutSelectionMapsTheSeriesWithoutZsl) {
  // One frame cannot make a continuous run of two, even with the quality waived.
  host.arrive(10, 10);
  auto out = call(57, 0, 2, 10, 1000);
  EXPECT_EQ(chosen(out), (Chosen{{0, kNoFrame}}));
  EXPECT_TRUE(out.ops.empty());
  EXPECT_EQ(lines()[1],
            said({"MAPPING: (operate at R57) R57[hF4294967295] R58[hF4294967295] "})[0]);
  out = call(58, 1, 2, 10, 1000);
  EXPECT_EQ(chosen(out), (Chosen{{0, kNoFrame}}));
  EXPECT_EQ(lines()[0], said({"SELECT: R58 [hF4294967295]"})[0]);
}

// Members beyond the count, with another count, or that stop coming; request
// numbers that wrap, served in ascending unsigned order.
TEST_F(FifoTest, StrayAndWrappingMembers) {
  host.arrive(10, 15);
  call(57, 0, 3, 13);
  auto out = call(60, 3, 3, 13);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(lines(), said({"DEBUG: cannot select R60 (FIFO), needSelectReqs={R58 R59 }"}));
  EXPECT_EQ(chosen(call(58, 1, 5, 13)), (Chosen{{0, 12}}));

  // R59 never comes. A series across the wrap starts meanwhile.
  out = call(0xFFFFFFFF, 0, 2, 15);
  EXPECT_TRUE(out.frames.empty());
  EXPECT_EQ(lines(),
            said({"EMPLACE: new IspHidlReqObj(4294967295 - 0), existing "
                  "IspHidlReqObj={index=57 4294967295 }",
                  "MAPPING: (operate at R4294967295) R0[hF15] R4294967295[hF14] ",
                  "DEBUG: cannot select R4294967295 (FIFO), needSelectReqs={R0 R4294967295 }",
                  "LOCK: (operate at R4294967295) R0 [hF15]",
                  "LOCK: (operate at R4294967295) R4294967295 [hF14]"}));
  EXPECT_EQ(chosen(call(0, 1, 2, 15)), (Chosen{{0, 15}}));
  out = call(0xFFFFFFFF, 0, 2, 15);
  EXPECT_EQ(chosen(out), (Chosen{{0, 14}}));
  EXPECT_EQ(lines().back(),
            said({"ERASE: (operate at R4294967295) IspHidlReqObj[index=4294967295], "
                  "remaining IspHidlReqObj={index=57 }"})[0]);
}

// A member due without a mapping entry is a broken invariant: the process ends.
TEST(FifoDeathTest, DueMemberWithoutMappingAborts) {
  CzRovaZslSelector::IspHidlReqObj record;
  record.needSelectReqs = {7};
  SelectOutputParams result;
  EXPECT_DEATH(NSCam::CustZone::series::handOut(record, {}, result, 7, "[r7]", "ispHidlSelect", 1),
               "\\[ispHidlSelect::[0-9]+\\]\\[r7\\] INVALID: R7 fail to get request mapping");
}

}  // namespace
