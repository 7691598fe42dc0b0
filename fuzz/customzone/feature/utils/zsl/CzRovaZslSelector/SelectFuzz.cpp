// Drives one selector with a pipeline-like sequence of calls decoded from the
// input: frames arrive and leave, lock/unlock/release answers are applied, and
// requests of every route (valid or not) are asked, with metadata of random
// types. Any crash, sanitizer report or abort is a finding.

#include <android-base/properties.h>
#include <android/log.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "CzRovaZslSelector.h"
#include "zebcam/metadata/IMetadata.h"
#include "zebcam/metadata/ZebMetadataTag.h"
#include "zebcam/utils/ULog.h"

namespace {

using NSCam::IMetadata;
using NSCam::CustZone::CzRovaZslSelector;
using NSCam::Utils::ULog::ULogger;
using Selector = NSCam::CustZone::ZslPolicy::ISelector;

class Bytes {
 public:
  Bytes(uint8_t const* data, size_t size) : mData(data), mSize(size) {}
  bool empty() const { return mPos >= mSize; }
  uint8_t u8() { return mPos < mSize ? mData[mPos++] : 0; }
  uint32_t u32() {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
      value = (value << 8) | u8();
    }
    return value;
  }
  int32_t small(int32_t lo, int32_t hi) {
    return lo + static_cast<int32_t>(u8() % static_cast<uint32_t>(hi - lo + 1));
  }
  bool flag() { return (u8() & 1) != 0; }

 private:
  uint8_t const* mData;
  size_t mSize;
  size_t mPos = 0;
};

// A tag written with a random one of the container's item types, so that
// lookups of the wrong type are exercised too.
void putTag(Bytes& in, IMetadata& meta, uint32_t tag) {
  switch (in.u8() % 6) {
    case 0:
      return;
    case 1:
      IMetadata::setEntry<int32_t>(&meta, tag, static_cast<int32_t>(in.u32()));
      return;
    case 2:
      IMetadata::setEntry<int64_t>(&meta, tag, static_cast<int64_t>(in.u32()) - 3);
      return;
    case 3: {
      IMetadata::IEntry entry(tag);
      for (int n = in.small(0, 5); n > 0; --n) {
        entry.push_back(static_cast<int32_t>(in.small(-1, 4)), NSCam::Type2Type<int32_t>());
      }
      meta.update(tag, entry);
      return;
    }
    default:
      IMetadata::setEntry<uint8_t>(&meta, tag, static_cast<uint8_t>(in.small(0, 6)));
      return;
  }
}

IMetadata frameMeta(Bytes& in) {
  IMetadata meta;
  for (uint32_t tag :
       {ZEB_CONTROL_AF_MODE, ZEB_CONTROL_AF_STATE, ZEB_LENS_STATE, ZEB_CONTROL_AE_STATE,
        ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, ZEB_PSL_SETTING, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT,
        ZEB_SENSOR_MODE_LIST, ZEB_AE_SOFT_STABLE, ZEB_FRAME_SYNC, ZEB_P1NODE_SENSOR_MODE,
        ZEB_HAL_REQUEST_SENSOR_ID}) {
    putTag(in, meta, tag);
  }
  return meta;
}

NSCam::CustZone::ZslPolicy::StreamSets streams(Bytes& in) {
  NSCam::CustZone::ZslPolicy::StreamSets ss;
  uint8_t bits = in.u8();
  if (bits & 1) ss.halImages.insert(1);
  if (bits & 2) ss.halImages.insert(2);
  if (bits & 4) ss.halMetas.insert(0x2000000);
  if (bits & 8) ss.halMetas.insert(0x2000001);
  if (bits & 16) ss.appMetas.insert(kControlMetaStreamId);
  return ss;
}

Selector::HistoryFrame makeFrame(Bytes& in, uint32_t frameNo) {
  Selector::HistoryFrame hf;
  hf.frameNo = frameNo;
  hf.requestNo = frameNo;
  hf.ts = static_cast<int64_t>(frameNo) * 33'000'000 + in.small(-40, 40) * 1'000'000;
  hf.ss = streams(in);
  hf.metas[kControlMetaStreamId] = frameMeta(in);
  hf.metas[0x2000000 | in.small(0, 1)] = frameMeta(in);
  hf.locked = in.flag() && in.flag();
  return hf;
}

Selector::SelectInputParams makeRequest(Bytes& in, uint32_t requestNo,
                                        std::map<uint32_t, Selector::HistoryFrame> const& history,
                                        uint32_t nextFrame) {
  Selector::SelectInputParams req;
  req.requestNo = requestNo;
  req.elapsedMs = in.flag() ? in.small(0, 40) * 50 : static_cast<int32_t>(in.u32());
  req.zsdTs = static_cast<int64_t>(nextFrame - in.small(0, 8)) * 33'000'000;
  for (int n = in.small(0, 3); n > 0; --n) {
    Selector::ZslFrameInfo info;
    info.needStreams = streams(in);
    IMetadata control;
    if (in.u8() % 3 == 0) {
      IMetadata::setEntry<int32_t>(&control, ZEB_CSHOT_FEATURE_CAPTURE, in.small(0, 1));
    }
    putTag(in, control, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT);
    putTag(in, control, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION);
    if (in.flag()) info.metas[kControlMetaStreamId] = control;
    for (int s = in.small(0, 2); s > 0; --s) info.checkSensorIds.insert(in.small(0, 2));
    req.frameInfos[in.small(-1, 3)] = info;
  }
  for (int s = in.small(0, 2); s > 0; --s) req.sensorModeTargets[in.small(0, 2)] = in.small(0, 3);
  req.targetEv = in.small(-2, 2);
  static constexpr int32_t kIndexes[] = {-1, 0, 0, 1, 2, 3, 7, 255, 256, 300, -5, INT32_MAX};
  req.ispHidlFrameIdx = kIndexes[in.u8() % std::size(kIndexes)];
  req.ispHidlFrameCnt = kIndexes[in.u8() % std::size(kIndexes)];
  for (int n = in.small(0, 6); n > 0; --n) req.pslSettings.push_back(in.small(0, 2));
  for (int n = in.small(0, 6); n > 0; --n) req.evSettings.push_back(in.small(-2, 2));
  for (int n = in.small(0, 6); n > 0; --n)
    req.sensorModes.push_back({{in.small(0, 2), in.small(0, 3)}});
  req.reusePsl = in.flag();
  req.history = history;
  for (int n = in.small(0, 4); n > 0; --n) {
    Selector::InflightFrame frame;
    frame.frameNo = nextFrame + static_cast<uint32_t>(n - 1);
    frame.ss = streams(in);
    frame.meta = frameMeta(in);
    req.inflight[frame.frameNo] = frame;
  }
  for (int n = in.small(0, 3); n > 0; --n) {
    Selector::SubSeqReq announced;
    announced.setting = (static_cast<uint64_t>(in.small(-2, 2)) << 32) | in.small(0, 2);
    uint32_t frameNo = in.flag() ? nextFrame + in.small(0, 8) : nextFrame - in.small(0, 8);
    req.subSeqReqs[frameNo] = announced;
  }
  return req;
}

void applyOps(Selector::SelectOutputParams const& out,
              std::map<uint32_t, Selector::HistoryFrame>& history) {
  for (auto const& [frameNo, op] : out.ops) {
    auto it = history.find(frameNo);
    if (it == history.end()) continue;
    if (op == Selector::OpT::Release) {
      history.erase(it);
    } else {
      it->second.locked = op == Selector::OpT::Lock;
    }
  }
  for (auto const& [key, frame] : out.frames) {
    history.erase(frame.frameNo);
  }
}

void discardAndroid(__android_logger_data const*, char const*) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static bool const kInitialised = [] {
    android::base::SetProperty("vendor.debug.camera.zsl.runtime.adb", "1");
    __android_log_set_logger(discardAndroid);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    ULogger::setHostSink([](uint32_t, std::string_view, uint32_t, std::string_view) {});
    return true;
  }();
  (void)kInitialised;

  Bytes in(data, size);
  uint8_t gates = in.u8();
  ULogger::sMode = gates & 0xB;
  ULogger::sDetailsLevel = (gates >> 4) % 6;
  ULogger::sNormalDetailsMask = (gates & 0x40) ? 0x101000 : 0;

  CzRovaZslSelector selector;
  std::map<uint32_t, Selector::HistoryFrame> history;
  uint32_t nextFrame = in.u32() % 8 == 0 ? 0xFFFFFFF0u : 100;
  uint32_t requestNo = in.flag() ? 0xFFFFFFFEu : 1;
  for (int call = 0; call < 48 && !in.empty(); ++call) {
    switch (in.u8() % 4) {
      case 0:
        for (int n = in.small(1, 4); n > 0; --n, ++nextFrame) {
          history[nextFrame] = makeFrame(in, nextFrame);
        }
        break;
      case 1:
        if (!history.empty()) history.erase(history.begin());
        break;
      default: {
        android::base::SetProperty("vendor.debug.camera.zsl.force.hint",
                                   std::to_string(in.small(-1, 6)));
        Selector::SelectInputParams req = makeRequest(in, requestNo, history, nextFrame);
        requestNo += static_cast<uint32_t>(in.small(0, 2));
        applyOps(selector.select(req), history);
        break;
      }
    }
  }
  return 0;
}
