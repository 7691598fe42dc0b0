#include "zebcam/utils/Properties.h"

#include <android-base/properties.h>

#include <limits>
#include <string>

namespace NSCam::Utils::Properties {

int32_t property_get_int32(char const* key, int32_t defaultValue) {
  if (key == nullptr) {
    return defaultValue;
  }
  return android::base::GetIntProperty<int32_t>(key, defaultValue);
}

int64_t property_get_int64(char const* key, int64_t defaultValue) {
  if (key == nullptr) {
    return defaultValue;
  }
  return android::base::GetIntProperty<int64_t>(key, defaultValue);
}

bool property_get_bool(char const* key, bool defaultValue) {
  if (key == nullptr) {
    return defaultValue;
  }
  return android::base::GetBoolProperty(key, defaultValue);
}

}  // namespace NSCam::Utils::Properties
