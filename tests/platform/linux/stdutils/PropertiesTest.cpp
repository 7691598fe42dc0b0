#include "zebcam/utils/Properties.h"

#include <android-base/properties.h>
#include <gtest/gtest.h>

using namespace NSCam::Utils::Properties;

TEST(Properties, ReadWhatLibbaseSets) {
  EXPECT_EQ(property_get_int32("test.zsl.a", 1), 1);
  android::base::SetProperty("test.zsl.a", "-12");
  EXPECT_EQ(property_get_int32("test.zsl.a", 1), -12);
  EXPECT_EQ(property_get_int64("test.zsl.a", 1), -12);
  android::base::SetProperty("test.zsl.a", "5000000000");
  EXPECT_EQ(property_get_int32("test.zsl.a", 1), 1);
  EXPECT_EQ(property_get_int64("test.zsl.a", 1), 5000000000);
  android::base::SetProperty("test.zsl.a", "twelve");
  EXPECT_EQ(property_get_int64("test.zsl.a", -1), -1);
  EXPECT_EQ(property_get_int32(nullptr, 3), 3);
  EXPECT_FALSE(property_get_bool("test.zsl.b", false));
  for (char const* yes : {"1", "true", "y", "yes", "on"}) {
    android::base::SetProperty("test.zsl.b", yes);
    EXPECT_TRUE(property_get_bool("test.zsl.b", false)) << yes;
  }
  for (char const* no : {"0", "false", "n", "no", "off"}) {
    android::base::SetProperty("test.zsl.b", no);
    EXPECT_FALSE(property_get_bool("test.zsl.b", true)) << no;
  }
  android::base::SetProperty("test.zsl.b", "maybe");
  EXPECT_TRUE(property_get_bool("test.zsl.b", true));
  EXPECT_FALSE(property_get_bool(nullptr, false));
}
