#include <gtest/gtest.h>

#include "ZslTestSupport.h"

using namespace zsltest;

TEST(Smoke, StillCaptureTakesZeroShutterFrame) {
  LogCapture logs;
  CzRovaZslSelector selector;
  SelectInputParams in = makeStill(57, tsOf(12) + 1);
  addHistory(in, 10, 14);
  auto out = selector.select(in);
  EXPECT_EQ(chosen(out), (std::vector<std::pair<int32_t, uint32_t>>{{0, 13}}));
  EXPECT_TRUE(logs.hasLine("[r57,0/1000ms]<multiFrame> select #1/1 hfs"));
}
