#include <gtest/gtest.h>

#include "CzRovaZslSelectorUtils.h"
#include "ZslTestSupport.h"

using namespace zsltest;
using NSCam::CustZone::toString;

TEST(StringForms, StreamSetsBriefAndFull) {
  StreamSets ss;
  EXPECT_EQ(toString(ss, true), "(0,0,0)");
  EXPECT_EQ(toString(ss, false), "halImages[]; halMetas[]; appMetas[]");
  ss.halImages = {2, 1};
  ss.halMetas = {3};
  ss.appMetas = {0x40000001, -1, 0};
  EXPECT_EQ(toString(ss, true), "(2,1,3)");
  EXPECT_EQ(toString(ss, false),
            "halImages[0x1 0x2 ]; halMetas[0x3 ]; appMetas[0xffffffff 0x0 0x40000001 ]");
}

TEST(StringForms, HistoryFrameIgnoresFlag) {
  HistoryFrame hf = makeFrame(120, 8123456789000);
  hf.requestNo = 57;
  hf.ss.halImages.insert(2);
  hf.Recycle = true;
  EXPECT_EQ(toString(hf, false), "[F120 R57 ts:8123456789000 ss=(2,1,1) locked=0 Recycle=1]");
  EXPECT_EQ(toString(hf, true), toString(hf, false));
  hf.frameNo = 0xFFFFFFFF;
  hf.ts = -5;
  hf.locked = true;
  hf.Recycle = false;
  EXPECT_EQ(toString(hf, true), "[F4294967295 R57 ts:-5 ss=(2,1,1) locked=1 Recycle=0]");
}

TEST(StringForms, SensorModeMapInIterationOrder) {
  NSCam::CustZone::SensorModeMap map;
  EXPECT_EQ(toString(map), "");
  map = {{3, 1}, {7, 0}, {0xFFFFFFFF, 0xFFFFFFFE}};
  std::string expected;
  for (auto const& [key, value] : map) {
    expected += "[" + std::to_string(key) + "]" + std::to_string(value) + " ";
  }
  EXPECT_EQ(toString(map), expected);
  EXPECT_NE(expected.find("[4294967295]4294967294 "), std::string::npos);
}

TEST(StringForms, PolicyWords) {
  EXPECT_EQ(toString(0u), "{ None }");
  EXPECT_EQ(toString(0x30005u), "{ AFStable AESoftStable ZeroShutterDelay ContinuousFrame }");
  EXPECT_EQ(toString(0x3u), "{ AFStable AEStable }");
  EXPECT_EQ(toString(0x2000Fu), "{ AFStable AEStable AESoftStable FrameSync ContinuousFrame }");
  EXPECT_EQ(toString(0x1000003u), "{ ForcePending }");
  EXPECT_EQ(toString(0xFFFFFFFFu), "{ ForcePending }");
  EXPECT_EQ(toString(0x30u), "{  }");
  EXPECT_EQ(toString(0x80000010u), "{  }");
  EXPECT_EQ(toString(0x10031u), "{ AFStable ZeroShutterDelay }");
}
