#pragma once

#include <cstdint>

// Every metadata tag the selector reads.
enum ZebMetadataTag : uint32_t {
  ZEB_CONTROL_AE_EXPOSURE_COMPENSATION = 0x00010001,  // int32
  ZEB_CONTROL_AF_MODE = 0x00010007,                   // uint8
  ZEB_CONTROL_AE_STATE = 0x0001001f,                  // uint8
  ZEB_CONTROL_AF_STATE = 0x00010020,                  // uint8
  ZEB_LENS_STATE = 0x00080009,                        // uint8
  ZEB_CSHOT_FEATURE_CAPTURE = 0x80050001,             // int32
  ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT = 0x800B0026,  // int32
  ZEB_PSL_SETTING = 0x90040156,                       // uint8
  ZEB_HAL_REQUEST_SENSOR_ID = 0xc0000004,             // int32
  ZEB_P1NODE_SENSOR_MODE = 0xc001000d,                // int32
  ZEB_AE_SOFT_STABLE = 0xc003001c,                    // int32
  ZEB_FRAME_SYNC = 0xc0080004,                        // int64
  ZEB_SENSOR_MODE_LIST = 0xC0150009,                  // int32 pairs (key, value)
};

// Names the selector's checks use for the vendor tags.
constexpr uint32_t TAG_PSL_SETTING = ZEB_PSL_SETTING;
constexpr uint32_t TAG_AE_SOFT_STABLE = ZEB_AE_SOFT_STABLE;
constexpr uint32_t TAG_FRAME_SYNC = ZEB_FRAME_SYNC;

// Stream id of the control (application) metadata of a request or a frame.
constexpr int32_t kControlMetaStreamId = 0x40000001;
