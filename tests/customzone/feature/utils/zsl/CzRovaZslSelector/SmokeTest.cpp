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
  for (auto const& l : logs.unified())
    printf("U %d [%s::%d]%s\n", l.priority, l.function.c_str(), l.line, l.body.c_str());
  for (auto const& l : logs.android())
    printf("A %d [%s::%d]%s\n", l.priority, l.function.c_str(), l.line, l.body.c_str());
}
