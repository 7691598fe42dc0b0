#pragma once

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <set>
#include <string>
#include <unordered_map>

#include "CzRovaZslSelectorLog.h"
#include "zebcam/custzone/zsl/ISelector.h"
#include "zebcam/metadata/IMetadata.h"
#include "zebcam/metadata/ZebMetadataTag.h"

// Frame checks and the printed forms of the host records, shared by every strategy.

namespace NSCam::CustZone::ZslPolicy {

using SensorModeMap = std::unordered_map<uint32_t, uint32_t>;

// (halImages,halMetas,appMetas) counts when brief, else every id in hex.
inline std::string toString(StreamSets const& ss, bool brief) {
  std::string out;
  if (brief) {
    out += '(';
    out += std::to_string(ss.halImages.size());
    out += ',';
    out += std::to_string(ss.halMetas.size());
    out += ',';
    out += std::to_string(ss.appMetas.size());
    out += ')';
    return out;
  }
  auto appendIds = [&out](std::set<int32_t> const& ids) {
    char hex[16];
    for (int32_t id : ids) {
      std::snprintf(hex, sizeof(hex), "0x%" PRIx32 " ", static_cast<uint32_t>(id));
      out += hex;
    }
  };
  out += "halImages[";
  appendIds(ss.halImages);
  out += "]; halMetas[";
  appendIds(ss.halMetas);
  out += "]; appMetas[";
  appendIds(ss.appMetas);
  out += ']';
  return out;
}

inline std::string toString(ISelector::HistoryFrame const& hf, bool /*unused*/) {
  std::string out = "[F";
  out += std::to_string(hf.frameNo);
  out += " R";
  out += std::to_string(hf.requestNo);
  out += " ts:";
  out += std::to_string(hf.ts);
  out += " ss=";
  out += toString(hf.ss, true);
  out += " locked=";
  out += hf.locked ? '1' : '0';
  out += " Recycle=";
  out += hf.Recycle ? '1' : '0';
  out += ']';
  return out;
}

inline std::string toString(SensorModeMap const& map) {
  std::string out;
  for (auto const& [key, value] : map) {
    out += '[';
    out += std::to_string(key);
    out += ']';
    out += std::to_string(value);
    out += ' ';
  }
  return out;
}

}  // namespace NSCam::CustZone::ZslPolicy

namespace NSCam::CustZone {

using ZslPolicy::ISelector;
using ZslPolicy::SensorModeMap;
using ZslPolicy::StreamSets;
using ZslPolicy::toString;

// Policy bits.
inline constexpr uint32_t kPolicyAFStable = 0x1;
inline constexpr uint32_t kPolicyAEStable = 0x2;
inline constexpr uint32_t kPolicyAESoftStable = 0x4;
inline constexpr uint32_t kPolicyFrameSync = 0x8;
inline constexpr uint32_t kPolicyZeroShutterDelay = 0x10000;
inline constexpr uint32_t kPolicyContinuousFrame = 0x20000;
inline constexpr uint32_t kPolicyForcePending = 0x1000000;

inline constexpr uint32_t kNoFrame = 0xFFFFFFFF;

inline std::string toString(unsigned policy) {
  if (policy == 0) {
    return "{ None }";
  }
  if (policy & kPolicyForcePending) {
    return "{ ForcePending }";
  }
  static constexpr struct {
    uint32_t bit;
    char const* name;
  } kNames[] = {{kPolicyAFStable, "AFStable"},
                {kPolicyAEStable, "AEStable"},
                {kPolicyAESoftStable, "AESoftStable"},
                {kPolicyFrameSync, "FrameSync"},
                {kPolicyZeroShutterDelay, "ZeroShutterDelay"},
                {kPolicyContinuousFrame, "ContinuousFrame"}};
  std::string out = "{ ";
  for (auto const& entry : kNames) {
    if (policy & entry.bit) {
      out += entry.name;
      out += ' ';
    }
  }
  // A word with no named bit still prints two spaces between the braces.
  out += out.size() == 2 ? " }" : "}";
  return out;
}

// The sensor modes of `targets` whose sensor id the wanted frame checks.
inline SensorModeMap filterSensorModes(SensorModeMap const& targets,
                                       std::set<uint32_t> const& checkSensorIds) {
  SensorModeMap out;
  for (auto const& [sensorId, mode] : targets) {
    if (checkSensorIds.count(sensorId) != 0) {
      out.emplace(sensorId, mode);
    }
  }
  return out;
}

// Whether `tag` of `meta` equals one of `targets`; `bc` decides a missing tag.
template <typename T>
inline bool isMatched(IMetadata const& meta, uint32_t tag, std::initializer_list<T> targets,
                      char const* name, bool bc) {
  T value{};
  if (!IMetadata::getEntry<T>(&meta, tag, value)) {
    if (!bc) {
      CZ_LOGE("[%s] tag(%#x) not found!", name, tag);
    }
    return bc;
  }
  bool matched = false;
  for (T target : targets) {
    matched = matched || value == target;
  }
  if (zsllog::debugOn()) {
    std::string joined;
    for (T target : targets) {
      if (!joined.empty()) {
        joined += ',';
      }
      joined += std::to_string(target);
    }
    CZ_LOGD("[%s] tag(%#x) val=%s target=%s bc=%d", name, tag, std::to_string(value).c_str(),
            joined.c_str(), bc ? 1 : 0);
  }
  return matched;
}

inline bool isAFStable(ISelector::HistoryFrame const& hf, StreamSets const& needStreams) {
  auto reject = [](int32_t streamId) {
    CZ_LOGW("(%#x): AF X", static_cast<uint32_t>(streamId));
    return false;
  };
  for (auto const& [streamId, meta] : hf.metas) {
    if (needStreams.appMetas.count(streamId) == 0) {
      continue;
    }
    uint8_t afMode = 0;
    uint8_t afState = 0;
    uint8_t lensState = 0;
    for (auto [tag, value] : {std::pair<uint32_t, uint8_t*>{ZEB_CONTROL_AF_MODE, &afMode},
                              {ZEB_CONTROL_AF_STATE, &afState},
                              {ZEB_LENS_STATE, &lensState}}) {
      if (!IMetadata::getEntry<uint8_t>(&meta, tag, *value)) {
        CZ_LOGE("tag(%#x) not found!", tag);
        return reject(streamId);
      }
    }
    bool stable = true;
    if (afMode >= 1 && afMode <= 4) {
      stable =
          (lensState != 1 && (afState > 3 || afState == 2)) || (lensState == 0 && afState == 0);
    }
    if (stable) {
      CZ_LOGD("AF ok: afMode=%d afState=%d lensState=%d", afMode, afState, lensState);
      continue;
    }
    CZ_LOGW("AF fail: afMode=%d afState=%d lensState=%d", afMode, afState, lensState);
    return reject(streamId);
  }
  return true;
}

inline bool isAEStable(ISelector::HistoryFrame const& hf, StreamSets const& needStreams) {
  auto reject = [](int32_t streamId) {
    CZ_LOGW("(%#x): AE X", static_cast<uint32_t>(streamId));
    return false;
  };
  for (auto const& [streamId, meta] : hf.metas) {
    if (needStreams.appMetas.count(streamId) == 0) {
      continue;
    }
    if (!isMatched<uint8_t>(meta, ZEB_CONTROL_AE_STATE, {2, 3}, "isAEStable", false)) {
      return reject(streamId);
    }
  }
  return true;
}

inline bool isAESoftStable(ISelector::HistoryFrame const& hf, StreamSets const& needStreams) {
  auto reject = [](int32_t streamId) {
    CZ_LOGW("(%#x): (soft) AE X", static_cast<uint32_t>(streamId));
    return false;
  };
  for (auto const& [streamId, meta] : hf.metas) {
    if (needStreams.halMetas.count(streamId) == 0) {
      continue;
    }
    if (!isMatched<int32_t>(meta, TAG_AE_SOFT_STABLE, {1}, "isAESoftStable", true)) {
      return reject(streamId);
    }
  }
  return true;
}

// Unlike the other checks one good buffer suffices, and an empty walk fails.
inline bool isFrameSync(ISelector::HistoryFrame const& hf, StreamSets const& needStreams) {
  auto reject = [](int32_t streamId) {
    CZ_LOGW("(%#x): FrameSync X", static_cast<uint32_t>(streamId));
  };
  for (auto const& [streamId, meta] : hf.metas) {
    if (needStreams.halMetas.count(streamId) == 0) {
      continue;
    }
    if (isMatched<int64_t>(meta, TAG_FRAME_SYNC, {0}, "isFrameSync", true)) {
      return true;
    }
    reject(streamId);
  }
  return false;
}

inline bool isSubset(std::set<int32_t> const& need, std::set<int32_t> const& have) {
  auto h = have.begin();
  for (int32_t id : need) {
    while (h != have.end() && *h < id) {
      ++h;
    }
    if (h == have.end() || *h != id) {
      return false;
    }
    ++h;
  }
  return true;
}

inline bool isQualify(ISelector::HistoryFrame const& hf, StreamSets const& needStreams,
                      uint32_t policy, bool isTimeout, SensorModeMap const& reqSensorModes,
                      int32_t targetEv, bool targetPsl) {
  if (policy & kPolicyForcePending) {
    CZ_LOGW("DEBUG: hf[F%u] force pending...", hf.frameNo);
    return false;
  }
  if (!isSubset(needStreams.halImages, hf.ss.halImages) ||
      !isSubset(needStreams.halMetas, hf.ss.halMetas) ||
      !isSubset(needStreams.appMetas, hf.ss.appMetas)) {
    CZ_LOGW("hf[F%u]{%s} does not include all needStreams{%s}", hf.frameNo,
            toString(hf.ss, true).c_str(), toString(needStreams, true).c_str());
    return false;
  }

  auto readPsl = [&]() {
    for (auto const& [streamId, meta] : hf.metas) {
      if (needStreams.appMetas.count(streamId) == 0) {
        continue;
      }
      uint8_t psl = 0;
      if (IMetadata::getEntry<uint8_t>(&meta, TAG_PSL_SETTING, psl)) {
        CZ_LOGD("streamId(%#x): get PSL setting=%d", static_cast<uint32_t>(streamId), psl);
        return static_cast<int>(psl);
      }
    }
    CZ_LOGW("cannot get PSL setting, set default PSL=%d", 0);
    return 0;
  };

  auto isRequiredPsl = [&]() {
    int psl = readPsl();
    int target = targetPsl ? 1 : 0;
    if (psl != target) {
      CZ_LOGI("isRequiredPsl fail: Psl(History)=%d, Psl(Target)=%d", psl, target);
      return false;
    }
    CZ_LOGD("isRequiredEV OK: Psl=%d", target);
    return true;
  };
  if (!isRequiredPsl()) {
    CZ_LOGW("hf[F%u] does not include Psl=%d", hf.frameNo, targetPsl ? 1 : 0);
    return false;
  }

  auto isRequiredSensorMode = [&]() {
    SensorModeMap frameModes;
    for (auto const& [streamId, meta] : hf.metas) {
      if ((static_cast<uint32_t>(streamId) & 0x2000000u) == 0) {
        continue;
      }
      int32_t mode = 0;
      if (!IMetadata::getEntry<int32_t>(&meta, ZEB_P1NODE_SENSOR_MODE, mode)) {
        CZ_LOGE("streamId(%#x): ZEB_P1NODE_SENSOR_MODE(%#x) not found!",
                static_cast<uint32_t>(streamId), ZEB_P1NODE_SENSOR_MODE);
        continue;
      }
      frameModes.emplace(static_cast<uint32_t>(streamId) & 0xFu, static_cast<uint32_t>(mode));
    }
    if (frameModes.empty()) {
      for (auto const& [streamId, meta] : hf.metas) {
        if (needStreams.halMetas.count(streamId) == 0) {
          continue;
        }
        int32_t sensorId = 0;
        int32_t mode = 0;
        if (!IMetadata::getEntry<int32_t>(&meta, ZEB_HAL_REQUEST_SENSOR_ID, sensorId)) {
          CZ_LOGE("streamId(%#x): ZEB_HAL_REQUEST_SENSOR_ID(%#x) not found!",
                  static_cast<uint32_t>(streamId), ZEB_HAL_REQUEST_SENSOR_ID);
          return false;
        }
        if (!IMetadata::getEntry<int32_t>(&meta, ZEB_P1NODE_SENSOR_MODE, mode)) {
          CZ_LOGE("streamId(%#x): ZEB_P1NODE_SENSOR_MODE(%#x) not found!",
                  static_cast<uint32_t>(streamId), ZEB_P1NODE_SENSOR_MODE);
          return false;
        }
        frameModes.emplace(static_cast<uint32_t>(sensorId), static_cast<uint32_t>(mode));
      }
    }
    // The outer brace stays open in the printed form.
    auto describe = [&]() {
      return "sensorModes={history={" + toString(frameModes) + "} request={" +
             toString(reqSensorModes) + "}";
    };
    for (auto const& [sensorId, mode] : reqSensorModes) {
      auto it = frameModes.find(sensorId);
      if (it == frameModes.end()) {
        CZ_LOGI("check sensorId(%u) fail: %s", sensorId, describe().c_str());
        return false;
      }
      if (it->second != mode) {
        CZ_LOGI("check sensorMode(%d) fail: %s", static_cast<int>(mode), describe().c_str());
        return false;
      }
    }
    CZ_LOGD("isRequiredSensorMode OK: %s", describe().c_str());
    return true;
  };
  if (!isRequiredSensorMode()) {
    CZ_LOGW("hf[F%u] does not include all reqSensorModes", hf.frameNo);
    return false;
  }

  auto isRequiredEV = [&]() {
    if (readPsl() != 0) {
      CZ_LOGI("psl frame skip check ev");
      return true;
    }
    int32_t ev = 0;
    bool found = false;
    for (auto const& [streamId, meta] : hf.metas) {
      if (needStreams.appMetas.count(streamId) == 0) {
        continue;
      }
      if (IMetadata::getEntry<int32_t>(&meta, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, ev)) {
        CZ_LOGD("streamId(%#x): get EV setting=%d", static_cast<uint32_t>(streamId), ev);
        found = true;
        break;
      }
    }
    if (!found) {
      CZ_LOGW("cannot get EV setting, set default EV=%d", 0);
      ev = 0;
    }
    if (ev != targetEv) {
      CZ_LOGI("isRequiredEV fail: EV(History)=%d, EV(Target)=%d", ev, targetEv);
      return false;
    }
    CZ_LOGD("isRequiredEV OK: EV=%d", targetEv);
    return true;
  };
  if (!isRequiredEV()) {
    CZ_LOGW("hf[F%u] does not include tareget EV=%d", hf.frameNo, targetEv);
    return false;
  }

  if (isTimeout) {
    CZ_LOGI("TIMEOUT: take hf[F%u] without checking quality", hf.frameNo);
    return true;
  }
  if ((policy & kPolicyAFStable) && !isAFStable(hf, needStreams)) {
    CZ_LOGW("hf[F%u] AF X", hf.frameNo);
    return false;
  }
  if ((policy & kPolicyAEStable) && !isAEStable(hf, needStreams)) {
    CZ_LOGW("hf[F%u] AE X", hf.frameNo);
    return false;
  }
  if ((policy & kPolicyAESoftStable) && !isAESoftStable(hf, needStreams)) {
    CZ_LOGW("hf[F%u] (soft) AE X", hf.frameNo);
    return false;
  }
  if ((policy & kPolicyFrameSync) && !isFrameSync(hf, needStreams)) {
    CZ_LOGW("hf[F%u] FrameSync X", hf.frameNo);
    return false;
  }
  CZ_LOGD("hf[F%u] OK", hf.frameNo);
  return true;
}

}  // namespace NSCam::CustZone
