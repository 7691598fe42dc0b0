#pragma once

#include <cstdint>

namespace NSCam::Utils::Properties {

int32_t property_get_int32(char const* key, int32_t defaultValue);
int64_t property_get_int64(char const* key, int64_t defaultValue);
bool property_get_bool(char const* key, bool defaultValue);

}  // namespace NSCam::Utils::Properties
