#include <map>

#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"
#include "IspHidlSeries.h"

namespace NSCam::CustZone {

ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect(SelectInputParams const& params,
                                                               std::string const& prefix,
                                                               uint32_t policy) const {
  SelectOutputParams result;
  uint32_t const request = params.requestNo;
  uint32_t const key = series::seriesKey(params);
  int32_t const cnt = params.ispHidlFrameCnt;

  IspHidlReqObj* record = series::findOrCreate(mIspHidlReqs, params, prefix, __FUNCTION__);
  if (record == nullptr) {
    return result;
  }

  if (record->mapping.empty()) {
    // The host passes a non-const record and reads the series' wanted frames
    // back from it, so they are written in place.
    series::wantEvery(const_cast<std::map<int32_t, ZslFrameInfo>&>(params.frameInfos), cnt);
    SelectOutputParams const whole = multiFrameSelect(params, prefix, policy);
    if (whole.frames.size() < static_cast<size_t>(cnt)) {
      CZ_LOGD_L("%s MAPPING(R%u): pending due to Selected(%zu) < ispHidlFrameCnt(%d)",
                prefix.c_str(), request, whole.frames.size(), cnt);
      return result;
    }
    for (auto const& [k, choice] : whole.frames) {
      uint32_t const member = key + static_cast<uint32_t>(k);
      record->mapping[member] = choice.frameNo;
      record->needSelectReqs.insert(member);
    }
    CZ_LOGI("%s MAPPING: (operate at R%u) %s", prefix.c_str(), request,
            series::mappingForm(record->mapping).c_str());
  }

  if (series::serveInOrder(*record, params.history, result, request, prefix, __FUNCTION__,
                           mLogLevel)) {
    series::erase(mIspHidlReqs, key, request, prefix, __FUNCTION__);
  }
  return result;
}

}  // namespace NSCam::CustZone
