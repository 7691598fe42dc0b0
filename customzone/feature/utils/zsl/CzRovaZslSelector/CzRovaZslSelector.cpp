#include "CzRovaZslSelector.h"

#include <cstring>
#include <string>

#include "CzRovaZslSelectorUtils.h"
#include "zebcam/utils/Properties.h"

namespace NSCam::CustZone {

namespace {

using NSCam::Utils::Properties::property_get_bool;
using NSCam::Utils::Properties::property_get_int32;
using NSCam::Utils::Properties::property_get_int64;

constexpr char kPropLogLevel[] = "vendor.debug.camera.log.zsl.sample";
constexpr char kPropZslTime[] = "vendor.debug.camera.custzone.zsl.time";
constexpr char kPropRuntimeAdb[] = "vendor.debug.camera.zsl.runtime.adb";
constexpr char kPropForcePolicy[] = "vendor.debug.camera.zsl.force.policy";
constexpr char kPropForceTimeout[] = "vendor.debug.camera.zsl.force.timeout";
constexpr char kPropForceHint[] = "vendor.debug.camera.zsl.force.hint";

// AFStable AESoftStable ZeroShutterDelay ContinuousFrame.
constexpr uint32_t kDefaultPolicy = 0x30005;
// AFStable AEStable.
constexpr uint32_t kContinuousShotPolicy = 0x3;
constexpr uint32_t kLatestWithQualityPolicy = 0x20005;

enum Hint : int32_t {
  kHintMultiFrame = 0,
  kHintIspHidl = 1,
  kHintLatest = 2,
  kHintLatestWithQuality = 3,
  kHintMfnrHdr = 4,
  kHintSubSequence = 5,
};

template <typename Map>
std::string keyList(Map const& map) {
  if (map.empty()) {
    return "null";
  }
  std::string out;
  for (auto const& entry : map) {
    out += std::to_string(entry.first);
    out += ' ';
  }
  return out;
}

std::string makePrefix(ISelector::SelectInputParams const& in, int64_t timeoutMs,
                       char const* name) {
  std::string prefix = "[r";
  prefix += std::to_string(in.requestNo);
  prefix += ',';
  prefix += std::to_string(in.elapsedMs);
  prefix += '/';
  prefix += std::to_string(timeoutMs);
  prefix += "ms]<";
  prefix += name;
  prefix += '>';
  if (in.ispHidlFrameIdx != -1 || in.ispHidlFrameCnt != -1) {
    prefix += "IspHidl(";
    prefix += std::to_string(in.ispHidlFrameIdx);
    prefix += '/';
    prefix += std::to_string(in.ispHidlFrameCnt);
    prefix += ')';
  }
  return prefix;
}

}  // namespace

CzRovaZslSelector::CzRovaZslSelector()
    : mTimeoutMs(1000),
      mPslTimeoutMs(5000),
      mLogLevel(property_get_int32(kPropLogLevel, 1)),
      mZslTimeMs(property_get_int64(kPropZslTime, 130)),
      mPolicy(kDefaultPolicy),
      mCShotPolicy(kContinuousShotPolicy) {
  CZ_LOGD("CzRovaZslSelector ctor(%p), mLogLevel(%d)", static_cast<void*>(this), mLogLevel);
}

CzRovaZslSelector::~CzRovaZslSelector() {
  CZ_LOGD("CzRovaZslSelector dtor(%p)", static_cast<void*>(this));
}

std::string CzRovaZslSelector::getName() const { return "CzRovaZslSelector"; }

void CzRovaZslSelector::invokeADB(int32_t& hint) {
  // Read once per process; the three values only matter while the runtime flag is set.
  static bool const sRuntime = property_get_bool(kPropRuntimeAdb, false);
  static int64_t const sFirstPolicy = property_get_int64(kPropForcePolicy, -1);
  static int64_t const sFirstTimeout = property_get_int64(kPropForceTimeout, -1);
  static int64_t const sFirstHint = property_get_int32(kPropForceHint, -1);
  (void)sFirstPolicy;
  (void)sFirstTimeout;
  (void)sFirstHint;
  if (!sRuntime) {
    return;
  }
  static char const* const sModeWord = sRuntime ? "runtime" : "static";

  int64_t policy = property_get_int64(kPropForcePolicy, -1);
  int64_t timeout = property_get_int64(kPropForceTimeout, -1);
  int32_t forcedHint = static_cast<int32_t>(property_get_int64(kPropForceHint, -1));
  if (policy >= 0) {
    mPolicy = static_cast<uint32_t>(policy);
    CZ_LOGI("%s adb set policy(%u)=%s", sModeWord, mPolicy, toString(mPolicy).c_str());
  }
  if (timeout >= 0) {
    mTimeoutMs = timeout;
    CZ_LOGI("%s adb set timeout=%ldms", sModeWord, static_cast<long>(timeout));
  }
  if (forcedHint >= 0) {
    CZ_LOGI("%s adb set hint=%d", sModeWord, forcedHint);
    hint = forcedHint;
  }
}

ISelector::SelectOutputParams CzRovaZslSelector::select(SelectInputParams const& in) {
  // The request's control metadata is that of its first wanted frame.
  IMetadata const* control = nullptr;
  if (!in.frameInfos.empty()) {
    auto const& metas = in.frameInfos.begin()->second.metas;
    if (auto it = metas.find(kControlMetaStreamId); it != metas.end()) {
      control = &it->second;
    }
  }
  int32_t cshot = 0;
  int32_t hint = kHintSubSequence;
  if (control != nullptr && !control->isEmpty() &&
      IMetadata::getEntry<int32_t>(control, ZEB_CSHOT_FEATURE_CAPTURE, cshot)) {
    CZ_LOGD("ZEB_CSHOT_FEATURE_CAPTURE = %d", cshot);
    hint = kHintMultiFrame;
  }

  invokeADB(hint);
  // Outside the host contract: no strategy can serve a request that wants no frame.
  if (in.frameInfos.empty()) {
    CZ_LOGE("INVALID: R%u has no frameInfos, nothing to select", in.requestNo);
    return {};
  }

  if (zsllog::debugOn(mLogLevel) &&
      !(mIspHidlReqs.empty() && mIspHidlReqs_Latest.empty() &&
        mIspHidlReqs_LatestWithQuality.empty() && mIspHidlReqs_PreCollect.empty())) {
    CZ_LOGD(
        "DEBUG: R%u dump mIspHidlReqs={%s}, mIspHidlReqs_Latest={%s}, "
        "mIspHidlReqs_LatestWithQuality={%s}, mIspHidlReqs_PreCollect={%s}",
        in.requestNo, keyList(mIspHidlReqs).c_str(), keyList(mIspHidlReqs_Latest).c_str(),
        keyList(mIspHidlReqs_LatestWithQuality).c_str(), keyList(mIspHidlReqs_PreCollect).c_str());
  }

  if (hint == kHintMultiFrame) {
    std::string prefix = makePrefix(in, mTimeoutMs, "multiFrame");
    uint32_t policy = cshot != 0 ? mCShotPolicy : mPolicy;
    CZ_LOGI("%s INFO: hint=%d, policy=%s", prefix.c_str(), hint, toString(policy).c_str());
    return multiFrameSelect(in, prefix, policy);
  }

  // A count beyond the largest series is refused like a count below 1, so that
  // no bookkeeping grows with a number the host passed.
  if (in.ispHidlFrameIdx < 0 || in.ispHidlFrameCnt < 1 ||
      in.ispHidlFrameCnt > kMaxIspHidlFrameCnt) {
    std::string prefix = makePrefix(in, mTimeoutMs, "none");
    CZ_LOGE(
        "%s INVALID: ispHidl request (idx=%d, cnt=%d), use multiFrameSelect with policy=%s "
        "instead.",
        prefix.c_str(), in.ispHidlFrameIdx, in.ispHidlFrameCnt, toString(mPolicy).c_str());
    return multiFrameSelect(in, prefix, mPolicy);
  }

  switch (hint) {
    case kHintIspHidl: {
      std::string prefix = makePrefix(in, mTimeoutMs, "ispHidl");
      CZ_LOGI("%s INFO: hint=%d, policy=%s", prefix.c_str(), hint, toString(mPolicy).c_str());
      return ispHidlSelect(in, prefix, mPolicy);
    }
    case kHintLatest: {
      std::string prefix = makePrefix(in, mTimeoutMs, "ispHidlSelect_Latest");
      CZ_LOGI("%s INFO: hint=%d, policy=None", prefix.c_str(), hint);
      return ispHidlSelect_Latest(in, prefix);
    }
    case kHintLatestWithQuality: {
      std::string prefix = makePrefix(in, mTimeoutMs, "ispHidlSelect_LatestWithQuality");
      CZ_LOGI("%s INFO: hint=%d, policy=%s", prefix.c_str(), hint,
              toString(kLatestWithQualityPolicy).c_str());
      return ispHidlSelect_LatestWithQuality(in, prefix, kLatestWithQualityPolicy);
    }
    case kHintMfnrHdr: {
      std::string prefix = makePrefix(in, mTimeoutMs, "ispHidlSelect_MFNR_HDR");
      return ispHidlSelect_MFNR_HDR(in, prefix);
    }
    case kHintSubSequence: {
      std::string prefix = makePrefix(in, mTimeoutMs, "ispHidlSelect_SubSequence");
      CZ_LOGI("%s INFO: hint=%d, policy=None", prefix.c_str(), hint);
      return ispHidlSelect_SubSequence(in, prefix);
    }
    default: {
      std::string prefix = makePrefix(in, mTimeoutMs, "none");
      CZ_LOGE(
          "%s INVALID: no selector has been chosen, use multiFrameSelect with policy=%s "
          "instead",
          prefix.c_str(), toString(mPolicy).c_str());
      return multiFrameSelect(in, prefix, mPolicy);
    }
  }
}

}  // namespace NSCam::CustZone

extern "C" void createCustomSelector(std::shared_ptr<NSCam::CustZone::ZslPolicy::ISelector>& out) {
  out = std::make_shared<NSCam::CustZone::CzRovaZslSelector>();
}
