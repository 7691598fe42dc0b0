#include <map>
#include <set>

#include "CzRovaZslSelector.h"
#include "CzRovaZslSelectorUtils.h"
#include "IspHidlSeries.h"

namespace NSCam::CustZone {

ISelector::SelectOutputParams CzRovaZslSelector::ispHidlSelect_Latest(
    SelectInputParams const& params, std::string const& prefix) const {
  SelectOutputParams result;
  if (params.frameInfos.empty()) {
    return result;
  }
  auto const& firstInfo = params.frameInfos.begin()->second;
  SensorModeMap const reqSensorModes =
      filterSensorModes(params.sensorModeTargets, firstInfo.checkSensorIds);
  uint32_t const request = params.requestNo;
  uint32_t const first = series::seriesKey(params);
  int32_t const cnt = params.ispHidlFrameCnt;
  auto const& history = params.history;

  IspHidlReqObj_Latest* record =
      series::findOrCreate(mIspHidlReqs_Latest, params, prefix, __FUNCTION__);
  if (record == nullptr) {
    return result;
  }

  if (params.elapsedMs >= mTimeoutMs) {
    series::timeOut(*record, history, result, request, first, cnt, prefix, __FUNCTION__, mLogLevel);
  }

  if (record->mapping.empty()) {
    std::set<uint32_t> const known = series::knownFrames(history, params.inflight);
    CZ_LOGD_L("%s DEBUG: curFrameNumbers={%s}", prefix.c_str(),
              series::frameNumbersForm(known).c_str());
    if (known.size() < static_cast<size_t>(cnt)) {
      CZ_LOGD_L(
          "%s DEBUG: curFrameNumbers(%zu) < ispHidlFrameCnt(%d), send all requests to "
          "non-zsl",
          prefix.c_str(), known.size(), cnt);
      series::mapToNoFrame(*record, first, cnt);
    } else {
      // The newest frames, oldest of them to the first member.
      std::map<uint32_t, uint32_t> selectLatest;
      auto newest = known.rbegin();
      for (int32_t k = cnt - 1; k >= 0; --k, ++newest) {
        selectLatest[static_cast<uint32_t>(k)] = *newest;
      }
      CZ_LOGD_L("%s DEBUG: selectLatest={%s}", prefix.c_str(),
                series::indexedFramesForm(selectLatest).c_str());
      for (auto const& [k, frame] : selectLatest) {
        uint32_t const member = first + k;
        record->mapping[member] = frame;
        record->needSelectReqs.insert(member);
      }
    }
    CZ_LOGI("%s MAPPING: (operate at R%u) %s", prefix.c_str(), request,
            series::mappingForm(record->mapping).c_str());
  }

  // The first member whose frame no longer qualifies takes every later one with
  // it, so that the series' frames stay in order.
  bool failed = false;
  for (auto& [member, frame] : record->mapping) {
    auto hf = frame == kNoFrame ? history.end() : history.find(frame);
    if (hf == history.end()) {
      if (failed) {
        frame = kNoFrame;
      }
      continue;
    }
    if (!failed && isQualify(hf->second, firstInfo.needStreams, 0, false, reqSensorModes,
                             params.targetEv, false)) {
      continue;
    }
    failed = true;
    frame = kNoFrame;
    if (hf->second.locked) {
      result.ops.emplace(hf->first, OpT::Unlock);
    }
  }
  if (failed) {
    CZ_LOGI("%s MAPPING: (Verify failed! operate at R%u) %s", prefix.c_str(), request,
            series::mappingForm(record->mapping).c_str());
  }

  if (series::serveInOrder(*record, history, result, request, prefix, __FUNCTION__, mLogLevel)) {
    series::erase(mIspHidlReqs_Latest, first, request, prefix, __FUNCTION__);
  }
  return result;
}

}  // namespace NSCam::CustZone
