#include "CzRovaZslSelector.h"

#include <map>
#include <string>

#include "CzRovaZslSelectorUtils.h"
#include "IspHidlSeries.h"

namespace NSCam::CustZone {

namespace {

// The phase machine belongs to the process, not to a selector: the camera
// alternates noise-reduction and HDR bursts across every selector it creates.
// false: MFLL phase, true: HDR phase.
bool currentStatus_MFHDR = false;
// Frames handed out so far in the current phase.
int32_t currentCount_MFHDR = 0;

using PreCollectObj = CzRovaZslSelector::IspHidlReqObj_PreCollect::PreCollectObj;

// The request's control metadata; nullptr makes every look-up fail.
IMetadata const* controlMeta(ISelector::SelectInputParams const& params) {
  if (params.frameInfos.empty()) {
    return nullptr;
  }
  auto const& metas = params.frameInfos.begin()->second.metas;
  auto it = metas.find(kControlMetaStreamId);
  return it == metas.end() ? nullptr : &it->second;
}

bool hasPreCollectHint(IMetadata const* meta) {
  int32_t hint = -1;
  return IMetadata::getEntry<int32_t>(meta, ZEB_CONTROL_CAPTURE_PRE_COLLECT_HINT, hint) && hint > 0;
}

// "R60={.targetFrameNo=12 .evSetting=-2 .status=1} ".
std::string mappingDump(std::map<uint32_t, PreCollectObj> const& mapping) {
  std::string out;
  for (auto const& [request, obj] : mapping) {
    out += 'R';
    out += std::to_string(request);
    out += "={.targetFrameNo=";
    out += std::to_string(obj.targetFrameNo);
    out += " .evSetting=";
    out += std::to_string(obj.evSetting);
    out += " .status=";
    out += std::to_string(obj.status);
    out += "} ";
  }
  return out;
}

}  // namespace

ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_MFNR_HDR(
    SelectInputParams const& params, std::string const& prefix) const {
  uint32_t const request = params.requestNo;
  int32_t const idx = params.ispHidlFrameIdx;
  int32_t const cnt = params.ispHidlFrameCnt;
  IMetadata const* control = controlMeta(params);
  bool const preCollect = hasPreCollectHint(control);

  if (!currentStatus_MFHDR) {
    if (preCollect) {
      CZ_LOGD_L("%s DEBUG: is pre-collect, IspHidlReqObj={%s}, send to pending", prefix.c_str(),
                series::recordList(mIspHidlReqs_PreCollect).c_str());
      return {};
    }
    SelectOutputParams result = ispHidlSelect_Latest(params, prefix);
    if (size_t const n = result.frames.size(); n != 0) {
      int32_t const old = currentCount_MFHDR;
      currentCount_MFHDR += static_cast<int32_t>(n);
      CZ_LOGI("%s STATE: select MFLL frames #%zu, current frames #%d->#%d", prefix.c_str(), n, old,
              currentCount_MFHDR);
    }
    if (cnt <= currentCount_MFHDR) {
      CZ_LOGI("%s STATE: get all MFLL frames #%d, current frames #%d, change status to HDR",
              prefix.c_str(), cnt, currentCount_MFHDR);
      currentCount_MFHDR = 0;
      currentStatus_MFHDR = true;
    }
    return result;
  }

  if (!preCollect) {
    CZ_LOGD_L("%s DEBUG: not pre-collect, IspHidlReqObj={%s}, send to pending", prefix.c_str(),
              series::recordList(mIspHidlReqs_PreCollect).c_str());
    return {};
  }
  IspHidlReqObj_PreCollect* record =
      series::findOrCreate(mIspHidlReqs_PreCollect, params, prefix, __FUNCTION__);
  if (record == nullptr) {
    return {};
  }

  auto entry = record->mapping.find(request);
  if (entry == record->mapping.end()) {
    int32_t ev = 0;
    if (!IMetadata::getEntry<int32_t>(control, ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, ev)) {
      CZ_LOGE("%s INVALID: fail to get ZEB_CONTROL_AE_EXPOSURE_COMPENSATION, IspHidlReqObj={%s}",
              prefix.c_str(), series::recordList(mIspHidlReqs_PreCollect).c_str());
      return {};
    }
    entry = series::emplaceNew(record->mapping, request, PreCollectObj{kNoFrame, ev, 0}, prefix,
                               __FUNCTION__);
  }
  PreCollectObj& obj = entry->second;
  CZ_LOGD_L("%s DEBUG: mapping={%s}", prefix.c_str(), mappingDump(record->mapping).c_str());

  // Only the request in turn takes a frame, and always the oldest hinted one,
  // even if an earlier member already took it.
  if (idx == currentCount_MFHDR) {
    for (auto const& [frameNo, frame] : params.history) {
      auto meta = frame.metas.find(kControlMetaStreamId);
      if (meta == frame.metas.end() || !hasPreCollectHint(&meta->second)) {
        continue;
      }
      CZ_LOGI(
          "%s DEBUG: F%u get pre-collect hint, ispHidlFrameIdx=%d, currentCount_MFHDR=%d, "
          "control EV=%d",
          prefix.c_str(), frameNo, idx, currentCount_MFHDR, obj.evSetting);
      obj.targetFrameNo = frameNo;
      obj.status = 1;
      break;
    }
  }
  CZ_LOGD_L("%s DEBUG: mapping={%s}", prefix.c_str(), mappingDump(record->mapping).c_str());

  SelectOutputParams result;
  if (idx == currentCount_MFHDR && obj.status == 1 && params.history.count(obj.targetFrameNo)) {
    CZ_LOGD_L("%s SELECT: R%u [hF%u]", prefix.c_str(), request, obj.targetFrameNo);
    // The host reads the HDR frame under index 1.
    result.frames[1] = ZslFrameResult{obj.targetFrameNo, 0};
    int32_t const old = currentCount_MFHDR++;
    obj.status = 2;
    CZ_LOGI("%s STATE: select HDR frames #%zu, current frames #%d->#%d", prefix.c_str(),
            result.frames.size(), old, currentCount_MFHDR);
  }
  CZ_LOGD_L("%s DEBUG: mapping={%s}", prefix.c_str(), mappingDump(record->mapping).c_str());

  if (cnt <= currentCount_MFHDR) {
    series::erase(mIspHidlReqs_PreCollect, series::seriesKey(params), request, prefix,
                  __FUNCTION__);
    CZ_LOGI("%s STATE: get all HDR frames #%d, current frames #%d, change status to MFLL",
            prefix.c_str(), cnt, currentCount_MFHDR);
    currentCount_MFHDR = 0;
    currentStatus_MFHDR = false;
  }
  return result;
}

}  // namespace NSCam::CustZone
